// Starts ZelLockHolder (next to this build's server) on a database file and keeps it holding
// the file until Release or destruction; every wait is bounded.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "tests/server/ServerProcessSupport.h"

namespace zel::test {

class LockHolder {
public:
    // `mode` is "write" (a write transaction on table "locks") or "open" (the file only).
    LockHolder(const wchar_t* mode, const std::wstring& file);
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    ~LockHolder();

    // Whether the holder signalled that it holds the file.
    bool Holding() const { return m_holding; }
    // Lets the holder roll back and end; its exit code, or nothing when it did not end.
    std::optional<DWORD> Release();

private:
    HANDLE m_ready = nullptr;
    HANDLE m_release = nullptr;
    std::unique_ptr<ChildProcess> m_process;
    bool m_holding = false;
    bool m_released = false;
};

}  // namespace zel::test
