// The server process: command line, registration, class objects, message loop and the rules
// by which it ends: as soon as the last client reference and server lock are gone; when every
// client that held references died; and, started by COM for an activation, when no client
// came within the idle grace period.
#pragma once

#include <windows.h>

#include <atomic>

#include "common/Win32Handles.h"
#include "server/ClassRegistrations.h"

namespace zel {

class CKobPmDb32Module {
public:
    // Runs the process for `commandLine`; returns the exit code (the registration result,
    // the class-object failure, or WM_QUIT's parameter).
    int WinMain(const wchar_t* commandLine);

    // How long a server that COM started waits for its first object before it ends.
    static constexpr DWORD kIdleGrace = 5000;
    // The least time a server that COM started offers its class objects, even when its last
    // object went before. Under Wine a host whose activation found no server starts one and
    // fails if that process ends within a second; it then asks for a class object once a
    // second, and starts no other server.
    static constexpr DWORD kLeastLifetime = 3000;
    // How long the process goes on once its class objects are withdrawn, for an activation
    // that took one just before to make its object.
    static constexpr DWORD kActivationDrain = 500;

private:
    HRESULT RunServer();
    void RunMessageLoop();
    void EndIfUnused();
    static void OnServerLock(bool lock);
    static DWORD WINAPI MonitorThread(void* parameter);

    static CKobPmDb32Module* s_instance;
    DWORD m_mainThreadId = 0;
    UniqueHandle m_shutdownEvent;
    ClassRegistrations m_classes;
    bool m_startedForCom = false;  // the command line has -Embedding
    DWORD m_startTicks = 0;
    std::atomic<long> m_locks{0};  // objects and server locks, as counted for COM
    std::atomic<bool> m_served{false};  // an object or lock was taken at least once
    std::atomic<bool> m_clientSeen{false};  // a client connection was there when an object was made
    std::atomic<bool> m_clientsGone{false};  // every client died: end with objects still referenced
    std::atomic<bool> m_ending{false};  // the message loop is over: the monitor thread stops
};

}  // namespace zel
