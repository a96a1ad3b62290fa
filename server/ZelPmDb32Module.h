// The server process: command line, registration, class objects, message loop and the rule
// by which it ends (as soon as the last client reference and server lock are gone).
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

private:
    HRESULT RunServer();
    HRESULT RegisterClassObjects();
    void RevokeClassObjects() noexcept;
    static void OnServerLock(bool lock);
    static DWORD WINAPI MonitorThread(void* parameter);

    static CKobPmDb32Module* s_instance;
    DWORD m_mainThreadId = 0;
    UniqueHandle m_shutdownEvent;
    DWORD m_cookies[2] = {};
    std::atomic<long> m_locks{0};  // objects and server locks, as counted for COM
    std::atomic<bool> m_clientSeen{false};  // a client connection was there when an object was made
};

}  // namespace zel
