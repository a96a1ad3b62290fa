// The server process: command line, registration, class objects, message loop and the rules
// by which it ends: as soon as the last client reference and server lock are gone; when every
// client that held references died; and, started by COM for an activation, when no client
// came within the idle grace period.
#pragma once

#include <windows.h>

#include <atomic>

#include "common/Win32Handles.h"

namespace zel {

class CKobPmDb32Module {
public:
    // Runs the process for `commandLine`; returns the exit code (the registration result,
    // the class-object failure, or WM_QUIT's parameter).
    int WinMain(const wchar_t* commandLine);

    // How long a server that COM started waits for its first object before it ends.
    static constexpr DWORD kIdleGrace = 5000;
    // The least time a server that COM started lives and offers its class objects. Under
    // Wine the client whose activation started a server watches that process for a second
    // and fails if it ends by then, even when another server took its class request; and the
    // clients of an activation storm reach the first server that registered up to a second
    // after they looked it up.
    static constexpr DWORD kLeastLifetime = 3000;

private:
    HRESULT RunServer();
    void RunMessageLoop();
    void EndIfUnused();
    bool StillYoung() const noexcept;  // started by COM and younger than kLeastLifetime
    HRESULT RegisterClassObjects();
    void RevokeClassObjects() noexcept;
    static void OnServerLock(bool lock);
    static DWORD WINAPI MonitorThread(void* parameter);

    static CKobPmDb32Module* s_instance;
    DWORD m_mainThreadId = 0;
    UniqueHandle m_shutdownEvent;
    DWORD m_cookies[2] = {};
    bool m_startedForCom = false;  // the command line has -Embedding
    DWORD m_startTicks = 0;
    std::atomic<long> m_locks{0};  // objects and server locks, as counted for COM
    std::atomic<bool> m_served{false};  // an object or lock was taken at least once
    std::atomic<bool> m_clientSeen{false};  // a client connection was there when an object was made
    std::atomic<bool> m_clientsGone{false};  // every client died: end with objects still referenced
    std::atomic<bool> m_ending{false};  // the message loop is over: the monitor thread stops
};

}  // namespace zel
