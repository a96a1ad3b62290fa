#include "tests/server/ServerProcessSupport.h"

#include <tlhelp32.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include "ZelPmDb32.h"
#include "tests/support/ProcessStart.h"

namespace zel::test {
namespace {

constexpr DWORD kEndWait = 5000;  // bound for ending a process a test started

std::wstring FromEnvironment(const wchar_t* name) {
    const wchar_t* value = _wgetenv(name);
    return value ? value : L"";
}

std::wstring GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

bool SamePath(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }

std::wstring FileName(const std::wstring& path) {
    size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

std::wstring ImagePath(DWORD id) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
    if (!process) return L"";
    wchar_t path[MAX_PATH * 2];
    DWORD size = MAX_PATH * 2;
    std::wstring result;
    if (QueryFullProcessImageNameW(process, 0, path, &size)) result.assign(path, size);
    CloseHandle(process);
    return result;
}

// The keys registration writes, relative to a Software\Classes root.
std::vector<std::wstring> RegistrationKeys() {
    const std::wstring appId = GuidText(LIBID_ZelPmDb32Lib);
    return {
        L"CLSID\\" + GuidText(CLSID_ZelOleDbHelperImpl),
        L"CLSID\\" + GuidText(CLSID_ZelOleDbImpl),
        L"ZelPmDb32.ZelOleDbHelperImpl.1",
        L"ZelPmDb32.ZelOleDbImpl.1",
        L"AppID\\" + appId,
        L"AppID\\ZelPmDb32.EXE",
        L"TypeLib\\" + appId,
        L"Interface\\" + GuidText(IID_IZelOleDb),
        L"Interface\\" + GuidText(IID_IZelOleDbHelper),
    };
}

std::wstring ValueText(DWORD type, const BYTE* data, DWORD size) {
    wchar_t buffer[32];
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ: {
            std::wstring text(reinterpret_cast<const wchar_t*>(data), size / sizeof(wchar_t));
            while (!text.empty() && text.back() == L'\0') text.pop_back();
            return (type == REG_SZ ? L"sz:" : L"expand_sz:") + text;
        }
        case REG_DWORD:
            if (size == sizeof(DWORD)) {
                swprintf(buffer, 32, L"dword:%lu", static_cast<unsigned long>(*reinterpret_cast<const DWORD*>(data)));
                return buffer;
            }
            break;
        default:
            break;
    }
    swprintf(buffer, 32, L"type%lu:", static_cast<unsigned long>(type));
    std::wstring text = buffer;
    for (DWORD i = 0; i < size; ++i) {
        swprintf(buffer, 32, L"%02x", data[i]);
        text += buffer;
    }
    return text;
}

void DumpKey(HKEY root, const std::wstring& path, REGSAM view, const std::wstring& label, RegistrySnapshot& out) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS) return;
    out[label + path + L"\\"] = L"(key)";
    DWORD subkeys = 0, maxSubkey = 0, values = 0, maxName = 0, maxData = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, &maxSubkey, nullptr, &values, &maxName, &maxData,
                     nullptr, nullptr);
    std::vector<wchar_t> name(maxName + maxSubkey + 2);
    std::vector<BYTE> data(maxData + 2);
    for (DWORD i = 0; i < values; ++i) {
        DWORD nameSize = static_cast<DWORD>(name.size());
        DWORD dataSize = static_cast<DWORD>(data.size());
        DWORD type = 0;
        if (RegEnumValueW(key, i, name.data(), &nameSize, nullptr, &type, data.data(), &dataSize) != ERROR_SUCCESS)
            continue;
        out[label + path + L"\\:" + std::wstring(name.data(), nameSize)] = ValueText(type, data.data(), dataSize);
    }
    std::vector<std::wstring> children;
    for (DWORD i = 0; i < subkeys; ++i) {
        DWORD nameSize = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(key, i, name.data(), &nameSize, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS)
            children.emplace_back(name.data(), nameSize);
    }
    RegCloseKey(key);
    for (const std::wstring& child : children) DumpKey(root, path + L"\\" + child, view, label, out);
}

RegistrySnapshot Snapshot(HKEY root, const wchar_t* rootName) {
    RegistrySnapshot out;
    const struct {
        REGSAM view;
        const wchar_t* name;
    } views[] = {{KEY_WOW64_32KEY, L"[32] "}, {KEY_WOW64_64KEY, L"[64] "}};
    for (const auto& v : views)
        for (const std::wstring& key : RegistrationKeys())
            DumpKey(root, L"Software\\Classes\\" + key, v.view, std::wstring(v.name) + rootName + L"\\", out);
    return out;
}

std::string Narrow(const std::wstring& text) {
    std::string out;
    for (wchar_t c : text) out += c < 128 ? static_cast<char>(c) : '?';
    return out;
}

}  // namespace

std::wstring ServerExePath() { return FromEnvironment(L"ZEL_SERVER_EXE"); }
std::wstring ProviderDllPath() { return FromEnvironment(L"ZEL_PROVIDER_DLL"); }

ChildProcess::ChildProcess(const std::wstring& commandLine) {
    std::wstring line = commandLine;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info{};
    if (StartProcess(nullptr, line, false, 0, startup, info) != ERROR_SUCCESS) return;
    CloseHandle(info.hThread);
    m_process = info.hProcess;
    m_id = info.dwProcessId;
}

ChildProcess::~ChildProcess() {
    if (!m_process) return;
    if (running()) {
        TerminateProcess(m_process, 1);
        WaitForSingleObject(m_process, kEndWait);
    }
    CloseHandle(m_process);
}

bool ChildProcess::running() const { return m_process && WaitForSingleObject(m_process, 0) == WAIT_TIMEOUT; }

bool ChildProcess::WaitForExit(DWORD milliseconds) const {
    return m_process && WaitForSingleObject(m_process, milliseconds) == WAIT_OBJECT_0;
}

DWORD ChildProcess::ExitCode() const {
    DWORD code = STILL_ACTIVE;
    if (m_process) GetExitCodeProcess(m_process, &code);
    return code;
}

std::optional<DWORD> RunToCompletion(const std::wstring& commandLine, DWORD milliseconds) {
    ChildProcess child(commandLine);
    if (!child.started() || !child.WaitForExit(milliseconds)) return std::nullopt;
    return child.ExitCode();
}

std::optional<DWORD> RunServer(const std::wstring& arguments) {
    return RunToCompletion(L"\"" + ServerExePath() + L"\" " + arguments);
}

std::vector<DWORD> ServerProcessIds() {
    std::vector<DWORD> ids;
    const std::wstring server = ServerExePath();
    const std::wstring exeName = FileName(server);
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return ids;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (_wcsicmp(entry.szExeFile, exeName.c_str()) != 0) continue;
        // Other build trees may run a server of the same name in the same prefix.
        if (SamePath(ImagePath(entry.th32ProcessID), server)) ids.push_back(entry.th32ProcessID);
    }
    CloseHandle(snapshot);
    return ids;
}

std::optional<DWORD> WaitForNewServerProcess(const std::vector<DWORD>& before, DWORD milliseconds) {
    const DWORD start = GetTickCount();
    for (;;) {
        for (DWORD id : ServerProcessIds()) {
            bool known = false;
            for (DWORD old : before) known = known || old == id;
            if (!known) return id;
        }
        if (GetTickCount() - start >= milliseconds) return std::nullopt;
        Sleep(50);
    }
}

bool ProcessRunning(DWORD id) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, id);
    if (!process) return false;
    bool running = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
    CloseHandle(process);
    return running;
}

std::optional<bool> ProcessIsWow64(DWORD id) {
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
    if (!process) return std::nullopt;
    BOOL wow64 = FALSE;
    BOOL ok = IsWow64Process(process, &wow64);
    CloseHandle(process);
    if (!ok) return std::nullopt;
    return wow64 != FALSE;
}

std::optional<DWORD> WaitForProcessExit(DWORD id, DWORD milliseconds) {
    const DWORD start = GetTickCount();
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, id);
    if (!process) return 0;  // already gone
    DWORD wait = WaitForSingleObject(process, milliseconds);
    CloseHandle(process);
    if (wait != WAIT_OBJECT_0) return std::nullopt;
    return GetTickCount() - start;
}

RegistrySnapshot SnapshotMachineRegistration() { return Snapshot(HKEY_LOCAL_MACHINE, L"HKLM"); }
RegistrySnapshot SnapshotUserRegistration() { return Snapshot(HKEY_CURRENT_USER, L"HKCU"); }

std::wstring SnapshotValue(const RegistrySnapshot& snapshot, const std::wstring& entry) {
    auto it = snapshot.find(entry);
    return it == snapshot.end() ? L"" : it->second;
}

std::wstring DescribeDifferences(const RegistrySnapshot& expected, const RegistrySnapshot& actual) {
    std::wstring text;
    for (const auto& [entry, value] : expected) {
        auto it = actual.find(entry);
        if (it == actual.end())
            text += L"missing: " + entry + L" = " + value + L"\n";
        else if (it->second != value)
            text += L"changed: " + entry + L" = " + value + L" -> " + it->second + L"\n";
    }
    for (const auto& [entry, value] : actual)
        if (!expected.count(entry)) text += L"added: " + entry + L" = " + value + L"\n";
    return text;
}

std::wstring RegisteredServerPath() {
    const std::wstring path = L"Software\\Classes\\CLSID\\" + GuidText(CLSID_ZelOleDbImpl) + L"\\LocalServer32";
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, &key) != ERROR_SUCCESS)
        return L"";
    wchar_t value[MAX_PATH * 2] = {};
    DWORD size = sizeof(value) - sizeof(wchar_t);
    DWORD type = 0;
    LONG status = RegQueryValueExW(key, nullptr, nullptr, &type, reinterpret_cast<BYTE*>(value), &size);
    RegCloseKey(key);
    if (status != ERROR_SUCCESS || type != REG_SZ) return L"";
    return value;
}

bool RegisterProvider() {
    wchar_t system[MAX_PATH];
    // The 32-bit system folder, from a 32-bit and from a 64-bit process alike.
    if (!GetSystemWow64DirectoryW(system, MAX_PATH)) return false;
    std::wstring command = L"\"" + std::wstring(system) + L"\\regsvr32.exe\" /s \"" + ProviderDllPath() + L"\"";
    auto code = RunToCompletion(command);
    if (!code || *code != 0)
        std::fprintf(stderr, "registering %s failed\n", Narrow(ProviderDllPath()).c_str());
    return code && *code == 0;
}

RegistrationRestorer::RegistrationRestorer() : m_found(RegisteredServerPath()) {}

RegistrationRestorer::~RegistrationRestorer() {
    const std::wstring current = RegisteredServerPath();
    if (m_found.empty()) {
        if (!current.empty()) RunServer(L"/UnregServer");
    } else if (!SamePath(current, m_found) && GetFileAttributesW(m_found.c_str()) != INVALID_FILE_ATTRIBUTES) {
        RunToCompletion(L"\"" + m_found + L"\" /RegServer");
    }
}

}  // namespace zel::test
