// What the out-of-process tests need around the server: starting programs with bounded
// waits, finding the server's processes, snapshots of the registry keys that registration
// owns, and a guard that restores the registration a test run found.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zel::test {

// Full Windows paths of this build's server and provider, from the environment that CTest
// sets (ZEL_SERVER_EXE, ZEL_PROVIDER_DLL); empty when unset.
std::wstring ServerExePath();
std::wstring ProviderDllPath();

// A program started by a test. The destructor ends it if it is still running.
class ChildProcess {
public:
    ChildProcess() = default;
    // Starts `commandLine`; `started()` tells whether that worked.
    explicit ChildProcess(const std::wstring& commandLine);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    bool started() const { return m_process != nullptr; }
    DWORD id() const { return m_id; }
    bool running() const;
    // True when the process ended within `milliseconds`.
    bool WaitForExit(DWORD milliseconds) const;
    DWORD ExitCode() const;

private:
    HANDLE m_process = nullptr;
    DWORD m_id = 0;
};

// Runs `commandLine` to its end; nothing when it could not start or did not end within
// `milliseconds` (it is then ended).
std::optional<DWORD> RunToCompletion(const std::wstring& commandLine, DWORD milliseconds = 60000);
// Runs this build's server with `arguments` (a registration switch) to its end.
std::optional<DWORD> RunServer(const std::wstring& arguments);

// Ids of every running process whose image is this build's server.
std::vector<DWORD> ServerProcessIds();
// The first server process that is not in `before`, waiting up to `milliseconds` for one.
std::optional<DWORD> WaitForNewServerProcess(const std::vector<DWORD>& before, DWORD milliseconds = 10000);
bool ProcessRunning(DWORD id);
// IsWow64Process of another process; nothing when it cannot be opened.
std::optional<bool> ProcessIsWow64(DWORD id);
// Waits up to `milliseconds` for the process to end; the time it took, or nothing.
std::optional<DWORD> WaitForProcessExit(DWORD id, DWORD milliseconds);

// Every key and value under the keys that registration writes, both registry views, keyed
// by view, path and value name; the text gives type and data.
using RegistrySnapshot = std::map<std::wstring, std::wstring>;
RegistrySnapshot SnapshotMachineRegistration();  // HKLM\Software\Classes (what HKCR shows)
RegistrySnapshot SnapshotUserRegistration();     // HKCU\Software\Classes
// Lines naming what differs between two snapshots; empty when they are equal.
std::wstring DescribeDifferences(const RegistrySnapshot& expected, const RegistrySnapshot& actual);
// The text of one entry of a snapshot, empty when absent.
std::wstring SnapshotValue(const RegistrySnapshot& snapshot, const std::wstring& entry);

// The LocalServer32 path registered for the service class in the 32-bit view; empty when
// the class is not registered machine-wide.
std::wstring RegisteredServerPath();

// Registers the 32-bit provider of this build with the 32-bit regsvr32.
bool RegisterProvider();

// Notes the machine-wide registration found at construction and puts it back when
// destroyed: unregistered stays unregistered, another build's server is registered again.
class RegistrationRestorer {
public:
    RegistrationRestorer();
    RegistrationRestorer(const RegistrationRestorer&) = delete;
    RegistrationRestorer& operator=(const RegistrationRestorer&) = delete;
    ~RegistrationRestorer();

private:
    std::wstring m_found;
};

}  // namespace zel::test
