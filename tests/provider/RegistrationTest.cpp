// Self-registration: regsvr32 writes the provider's keys in the registry view of the DLL's own
// bitness and removes its CLSID keys again with /u; the class object and unloading rules.
#include <windows.h>
#include <msdasc.h>

#include <string>

#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;

constexpr wchar_t kClsidKey[] = L"Software\\Classes\\CLSID\\{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}";
const CLSID kProviderClsid = {0x6ed3cdc0, 0xcb85, 0x478b, {0x86, 0xc2, 0xac, 0xc4, 0x37, 0xdd, 0xd2, 0x88}};

REGSAM OwnView() { return sizeof(void*) == 8 ? KEY_WOW64_64KEY : KEY_WOW64_32KEY; }
REGSAM OtherView() { return sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY; }

bool KeyExists(const std::wstring& path, REGSAM view = OwnView()) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | view, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
}

// Reads a value of a key in this process's own registry view.
bool ReadValue(const std::wstring& path, const wchar_t* name, DWORD* type, BYTE* data, DWORD* size) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | OwnView(), &key) != ERROR_SUCCESS) return false;
    LONG rc = RegQueryValueExW(key, name, nullptr, type, data, size);
    RegCloseKey(key);
    return rc == ERROR_SUCCESS;
}

std::wstring ReadString(const std::wstring& path, const wchar_t* name) {
    wchar_t buffer[1024] = {};
    DWORD size = sizeof(buffer) - sizeof(wchar_t), type = 0;
    if (!ReadValue(path, name, &type, reinterpret_cast<BYTE*>(buffer), &size) || type != REG_SZ) return L"<missing>";
    return buffer;
}

template <typename T>
T Export(HMODULE module, const char* name) {
    return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

std::wstring ProviderDllPath() {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring exe(path, length);
    return exe.substr(0, exe.find_last_of(L"\\/") + 1) + L"ZelLite.dll";
}

// Runs the regsvr32 of this process's bitness (the system directory maps to it) and returns
// its exit code.
DWORD RunRegsvr32(const std::wstring& arguments) {
    wchar_t system[MAX_PATH];
    GetSystemDirectoryW(system, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(system) + L"\\regsvr32.exe\" " + arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return static_cast<DWORD>(-1);
    WaitForSingleObject(process.hProcess, 60000);
    DWORD code = static_cast<DWORD>(-1);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

// The 32-bit and the 64-bit suites run side by side in one prefix and share the ProgID keys:
// their registration tests take turns, so that one never unregisters while the other is
// unregistered too (which would remove the shared keys under the other suite's feet).
class RegistrationTurn {
public:
    RegistrationTurn() : m_mutex(CreateMutexW(nullptr, FALSE, L"ZelLiteRegistrationTests")) {
        WaitForSingleObject(m_mutex, 60000);
    }
    RegistrationTurn(const RegistrationTurn&) = delete;
    RegistrationTurn& operator=(const RegistrationTurn&) = delete;
    ~RegistrationTurn() {
        ReleaseMutex(m_mutex);
        CloseHandle(m_mutex);
    }

private:
    HANDLE m_mutex;
};

TEST(Registration, Regsvr32WritesTheProviderKeysInItsOwnView) {
    RegistrationTurn turn;
    ASSERT_EQ(0u, RunRegsvr32(L"/s \"" + ProviderDllPath() + L"\""));
    const std::wstring clsid = kClsidKey;
    EXPECT_EQ(L"ZelLite OLE DB Provider for SQLite", ReadString(clsid, nullptr));
    EXPECT_EQ(0, _wcsicmp(ProviderDllPath().c_str(), ReadString(clsid + L"\\InprocServer32", nullptr).c_str()));
    EXPECT_EQ(L"Both", ReadString(clsid + L"\\InprocServer32", L"ThreadingModel"));
    EXPECT_EQ(L"ZelLite.OLEDB.1", ReadString(clsid + L"\\ProgID", nullptr));
    EXPECT_EQ(L"ZelLite.OLEDB", ReadString(clsid + L"\\VersionIndependentProgID", nullptr));
    EXPECT_EQ(L"ZelLite OLE DB Provider for SQLite", ReadString(clsid + L"\\OLE DB Provider", nullptr));
    DWORD services = 0, size = sizeof(services), type = 0;
    EXPECT_TRUE(ReadValue(clsid, L"OLEDB_SERVICES", &type, reinterpret_cast<BYTE*>(&services), &size));
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), type);
    EXPECT_EQ(0xFFFFFFFFu, services);
    EXPECT_EQ(L"{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}",
              ReadString(L"Software\\Classes\\ZelLite.OLEDB.1\\CLSID", nullptr));
    EXPECT_EQ(L"{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}", ReadString(L"Software\\Classes\\ZelLite.OLEDB\\CLSID", nullptr));
    EXPECT_EQ(L"ZelLite.OLEDB.1", ReadString(L"Software\\Classes\\ZelLite.OLEDB\\CurVer", nullptr));
}

TEST(Registration, Regsvr32UnregisterRemovesTheClsidKeysOfItsView) {
    RegistrationTurn turn;
    const std::wstring dll = L"\"" + ProviderDllPath() + L"\"";
    ASSERT_EQ(0u, RunRegsvr32(L"/s " + dll));
    ASSERT_TRUE(KeyExists(kClsidKey));
    ASSERT_EQ(0u, RunRegsvr32(L"/u /s " + dll));
    const bool clsidGone = !KeyExists(kClsidKey);
    // The ProgID keys are shared by both views: they stay exactly while the other bitness's
    // registration still names the provider.
    const bool otherViewRegistered = KeyExists(std::wstring(kClsidKey) + L"\\InprocServer32", OtherView());
    const bool progIdKept = KeyExists(L"Software\\Classes\\ZelLite.OLEDB.1");
    const bool indepKept = KeyExists(L"Software\\Classes\\ZelLite.OLEDB");
    // Register again at once, in this process: other test programs in the same prefix use the
    // provider, so the time without a registration is kept as short as possible.
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    auto registerServer = Export<RegisterFunction>(GetModuleHandleW(L"ZelLite.dll"), "DllRegisterServer");
    ASSERT_NE(nullptr, registerServer);
    ASSERT_EQ(S_OK, registerServer());
    EXPECT_TRUE(clsidGone);
    EXPECT_EQ(otherViewRegistered, progIdKept);
    EXPECT_EQ(otherViewRegistered, indepKept);
    EXPECT_TRUE(KeyExists(kClsidKey));
}

TEST(Registration, ClassObjectIsOfferedOnlyForTheProviderClsid) {
    HMODULE module = GetModuleHandleW(L"ZelLite.dll");
    ASSERT_NE(nullptr, module);
    using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    auto get = Export<GetClassObject>(module, "DllGetClassObject");
    ASSERT_NE(nullptr, get);
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK, get(kProviderClsid, IID_IClassFactory, factory.put_void()));
    ComPtr<IClassFactory> other;
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, get(CLSID_MSDAINITIALIZE, IID_IClassFactory, other.put_void()));
    ComPtr<IDBInitialize> source;
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IDBInitialize, source.put_void()));
}

TEST(Registration, DllCanUnloadOnlyOnceEveryObjectIsReleased) {
    HMODULE module = GetModuleHandleW(L"ZelLite.dll");
    ASSERT_NE(nullptr, module);
    using CanUnload = HRESULT(STDAPICALLTYPE*)();
    auto canUnload = Export<CanUnload>(module, "DllCanUnloadNow");
    ASSERT_NE(nullptr, canUnload);
    SetErrorInfo(0, nullptr);  // an error object of an earlier test would keep the module busy
    {
        zel::test::TempDatabase db;
        auto connection = zel::test::Connection::Open(db.ConnectionString());
        ASSERT_TRUE(connection.session);
        EXPECT_EQ(S_FALSE, canUnload());
    }
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(S_OK, canUnload());
}

}  // namespace
