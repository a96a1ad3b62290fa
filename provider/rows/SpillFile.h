// A temporary file that takes blocks of bytes a rowset no longer needs in memory and gives them
// back on request. The file is deleted when it is closed, so nothing is left behind however the
// process ends.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "common/Win32Handles.h"

namespace zel::provider {

class SpillFile {
public:
    SpillFile() = default;
    SpillFile(const SpillFile&) = delete;
    SpillFile& operator=(const SpillFile&) = delete;

    // Appends `size` bytes and returns where they start. False when the file cannot be made or
    // written (no temporary folder, disk full): the caller keeps the bytes in memory.
    bool Write(const BYTE* bytes, size_t size, std::uint64_t& at) noexcept;
    // Reads back `size` bytes written at `at`. Fails through the provider's error object
    // (ComError E_FAIL) when the file cannot be read.
    void Read(std::uint64_t at, BYTE* bytes, size_t size);

private:
    bool Open() noexcept;

    UniqueHandle m_file;
    std::uint64_t m_end = 0;  // bytes written
    bool m_broken = false;    // making or writing the file failed once: no further attempt
};

}  // namespace zel::provider
