#include "server/ZelPmDb32Module.h"

#include <objbase.h>

#include <algorithm>
#include <string>

#include "common/ComObject.h"
#include "server/ClientWatch.h"
#include "server/CommandLine.h"
#include "server/Registration.h"

namespace zel {

CKobPmDb32Module* CKobPmDb32Module::s_instance = nullptr;

namespace {

constexpr DWORD kShutdownTimeout = 5000;  // bounds the wait for the monitor thread on a failed start
// Posted by the monitor thread to the main thread: end the process if no object is held.
constexpr UINT kEndIfUnusedMessage = WM_APP + 1;

std::wstring ModulePath() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        DWORD n = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (n < path.size()) {
            path.resize(n);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

}  // namespace

int CKobPmDb32Module::WinMain(const wchar_t* commandLine) {
    HRESULT hr = CoInitialize(nullptr);
    if (FAILED(hr)) return hr;
    m_mainThreadId = GetCurrentThreadId();
    m_startTicks = GetTickCount();
    m_startedForCom = IsStartedForCom(commandLine);
    s_instance = this;
    switch (ParseCommandLine(commandLine)) {
        case ServerAction::RegServer: hr = RegisterServer(RegistrationScope::Machine, ModulePath()); break;
        case ServerAction::UnregServer: hr = UnregisterServer(RegistrationScope::Machine); break;
        case ServerAction::RegServerPerUser: hr = RegisterServer(RegistrationScope::User, ModulePath()); break;
        case ServerAction::UnregServerPerUser: hr = UnregisterServer(RegistrationScope::User); break;
        case ServerAction::Run: hr = RunServer(); break;
    }
    CoUninitialize();
    return static_cast<int>(hr);
}

void CKobPmDb32Module::OnServerLock(bool lock) {
    if (s_instance) {
        s_instance->m_locks += lock ? 1 : -1;
        if (lock) s_instance->m_served = true;
        // Objects are made during a client's call, while its connection is there to be seen.
        if (lock && !s_instance->m_clientSeen.load() && CountClientConnections() > 0)
            s_instance->m_clientSeen = true;
    }
    if (lock) {
        CoAddRefServerProcess();
    } else if (CoReleaseServerProcess() == 0 && s_instance && s_instance->m_shutdownEvent) {
        // The last object and lock are gone: the monitor thread has the main thread decide.
        SetEvent(s_instance->m_shutdownEvent.get());
    }
}

DWORD WINAPI CKobPmDb32Module::MonitorThread(void* parameter) {
    auto* module = static_cast<CKobPmDb32Module*>(parameter);
    // Its own apartment, for the activations by which the class objects are withdrawn.
    const HRESULT com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    // A server COM started also ends when the client of its only activation died before any
    // connection of it was seen (its object made after the client was gone).
    ClientWatch watch(module->m_startedForCom && ConnectionThreadsAreVisible());
    bool idleReported = false;
    while (!module->m_ending.load()) {
        const DWORD wait = WaitForSingleObject(module->m_shutdownEvent.get(), ClientWatch::kInterval);
        if (module->m_ending.load()) break;
        const DWORD age = GetTickCount() - module->m_startTicks;
        if (wait == WAIT_OBJECT_0) {
            if (module->m_classes.Withdrawn()) {
                // New activations are no longer sent here once this server's registrations
                // are out of the activation service; one already on its way gets time to
                // make its object.
                module->m_classes.Absorb();
                Sleep(kActivationDrain);
            } else if (module->m_startedForCom && age < kLeastLifetime) {
                Sleep(kLeastLifetime - age);
            }
            PostThreadMessageW(module->m_mainThreadId, kEndIfUnusedMessage, 0, 0);
            continue;
        }
        // Objects are still referenced: when no client can reach them any more (every one
        // died, ClientWatch.h), end the process as their release would have.
        if (module->m_clientSeen.load()) watch.NoteConnection();
        if (module->m_locks.load() > 0 && watch.Observe(CountClientConnections())) {
            module->m_clientsGone = true;
            PostThreadMessageW(module->m_mainThreadId, WM_QUIT, 0, 0);
            break;
        }
        // Started by COM and no client came (an activation abandoned, or taken by another
        // server process started at the same time): end instead of waiting for ever.
        if (module->m_startedForCom && !module->m_served.load() && !idleReported && age >= kIdleGrace) {
            idleReported = true;
            PostThreadMessageW(module->m_mainThreadId, kEndIfUnusedMessage, 0, 0);
        }
    }
    if (SUCCEEDED(com)) CoUninitialize();
    return 0;
}

void CKobPmDb32Module::EndIfUnused() {
    // Runs on the apartment's thread, where objects are made, so no object can be made
    // between the check and the revoke. Once no object is left, the class objects are
    // withdrawn (ClassRegistrations.h); an object made after that by an activation that was
    // already on its way is served until its release, which decides again (RunServer runs
    // the loop again for it).
    if (m_locks.load() != 0) return;
    m_classes.Withdraw();
    if (!m_classes.Absorbed()) {
        SetEvent(m_shutdownEvent.get());  // the monitor thread absorbs, then asks again
        return;
    }
    m_classes.RevokeAll();
    PostQuitMessage(0);
}

void CKobPmDb32Module::RunMessageLoop() {
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (!message.hwnd && message.message == kEndIfUnusedMessage) {
            EndIfUnused();
            continue;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

HRESULT CKobPmDb32Module::RunServer() {
    ModuleLifetime::SetHook(&CKobPmDb32Module::OnServerLock);
    // Under Wine, with the single-use registrations that let activations on their way
    // through a withdrawal still be served.
    HRESULT hr = m_classes.Register(RunsUnderWine());
    if (FAILED(hr)) {
        m_classes.RevokeAll();
        return hr;
    }
    m_shutdownEvent.reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    UniqueHandle monitor(m_shutdownEvent ? CreateThread(nullptr, 0, &MonitorThread, this, 0, nullptr) : nullptr);
    hr = monitor ? ClassRegistrations::Resume() : HRESULT_FROM_WIN32(GetLastError());
    if (FAILED(hr)) {
        m_ending = true;
        if (m_shutdownEvent) SetEvent(m_shutdownEvent.get());
        if (monitor) WaitForSingleObject(monitor.get(), 2 * kShutdownTimeout);
        monitor.reset();
        m_shutdownEvent.reset();
        m_classes.RevokeAll();
        return hr;
    }

    // An object made after the decision to end (by a client that already had a class object)
    // is served until its release, which decides again.
    do {
        RunMessageLoop();
    } while (m_locks.load() > 0 && !m_clientsGone.load());
    m_ending = true;
    SetEvent(m_shutdownEvent.get());
    WaitForSingleObject(monitor.get(), kShutdownTimeout);
    monitor.reset();
    m_shutdownEvent.reset();
    m_classes.RevokeAll();
    return S_OK;
}

}  // namespace zel
