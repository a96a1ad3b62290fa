// Self-registration of a provider DLL under HKEY_LOCAL_MACHINE\Software\Classes, in the
// registry view of the DLL's own bitness (a 32-bit DLL lands in the 32-bit view).
//
// CLSID keys are per view; the two ProgID keys are shared by both views. So unregistering one
// bitness keeps the ProgID keys while the other view still registers the provider, and removes
// them with the last registration.
#include "provider/module/ProviderRegistration.h"

#include <string>

#include "common/Win32Handles.h"

namespace zel::provider {

namespace {


constexpr wchar_t kClasses[] = L"Software\\Classes";
// All OLE DB services may wrap the provider (DBPROPVAL_OS_ENABLEALL).
constexpr DWORD kOleDbServices = 0xFFFFFFFF;

std::wstring ClassesPath(const std::wstring& sub) { return std::wstring(kClasses) + L"\\" + sub; }

std::wstring ClsidKeyPath(const ProviderNames& names) { return std::wstring(L"CLSID\\") + names.clsidText; }

// Creates `path` (under Software\Classes) and sets its default value and, when given, one named
// string value. Returns the Win32 error as an HRESULT.
HRESULT WriteKey(REGSAM view, const std::wstring& path, const wchar_t* defaultValue,
                 const wchar_t* valueName = nullptr, const wchar_t* value = nullptr) {
    UniqueRegKey key;
    LONG rc = RegCreateKeyExW(HKEY_LOCAL_MACHINE, ClassesPath(path).c_str(), 0, nullptr, 0,
                              KEY_WRITE | view, nullptr, key.put(), nullptr);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    auto setString = [&](const wchar_t* name, const wchar_t* text) {
        return RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                              static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
    };
    if (defaultValue && (rc = setString(nullptr, defaultValue)) != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    if (valueName && (rc = setString(valueName, value)) != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    return S_OK;
}

HRESULT WriteDword(REGSAM view, const std::wstring& path, const wchar_t* name, DWORD value) {
    UniqueRegKey key;
    LONG rc = RegOpenKeyExW(HKEY_LOCAL_MACHINE, ClassesPath(path).c_str(), 0, KEY_WRITE | view, key.put());
    if (rc == ERROR_SUCCESS)
        rc = RegSetValueExW(key.get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
    return HRESULT_FROM_WIN32(rc);
}

// Deletes `path` and everything below it; a missing key is not an error.
HRESULT DeleteTree(REGSAM view, const std::wstring& path) {
    UniqueRegKey classes;
    LONG rc = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kClasses, 0, KEY_ALL_ACCESS | view, classes.put());
    if (rc == ERROR_FILE_NOT_FOUND) return S_OK;
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    rc = RegDeleteTreeW(classes.get(), path.c_str());
    if (rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND) return S_OK;
    return HRESULT_FROM_WIN32(rc);
}

bool KeyExists(REGSAM view, const std::wstring& path) {
    UniqueRegKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, ClassesPath(path).c_str(), 0, KEY_READ | view, key.put()) ==
           ERROR_SUCCESS;
}

REGSAM OwnView() { return sizeof(void*) == 8 ? KEY_WOW64_64KEY : KEY_WOW64_32KEY; }
REGSAM OtherView() { return sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY; }

HRESULT WriteRegistration(const ProviderNames& names) {
    wchar_t path[MAX_PATH * 2];
    DWORD length = GetModuleFileNameW(names.module, path, static_cast<DWORD>(std::size(path)));
    if (length == 0 || length >= std::size(path)) return HRESULT_FROM_WIN32(GetLastError());

    const REGSAM view = OwnView();
    const std::wstring clsid = ClsidKeyPath(names);
    HRESULT hr;
    if (FAILED(hr = WriteKey(view, clsid, names.name))) return hr;
    if (FAILED(hr = WriteDword(view, clsid, L"OLEDB_SERVICES", kOleDbServices))) return hr;
    if (FAILED(hr = WriteKey(view, clsid + L"\\InprocServer32", path, L"ThreadingModel", L"Both"))) return hr;
    if (FAILED(hr = WriteKey(view, clsid + L"\\ProgID", names.progId))) return hr;
    if (FAILED(hr = WriteKey(view, clsid + L"\\VersionIndependentProgID", names.versionIndependentProgId))) return hr;
    if (FAILED(hr = WriteKey(view, clsid + L"\\OLE DB Provider", names.name))) return hr;

    const std::wstring progId = names.progId;
    const std::wstring indep = names.versionIndependentProgId;
    if (FAILED(hr = WriteKey(view, progId, names.name))) return hr;
    if (FAILED(hr = WriteKey(view, progId + L"\\CLSID", names.clsidText))) return hr;
    if (FAILED(hr = WriteKey(view, indep, names.name))) return hr;
    if (FAILED(hr = WriteKey(view, indep + L"\\CLSID", names.clsidText))) return hr;
    return WriteKey(view, indep + L"\\CurVer", names.progId);
}

}  // namespace

HRESULT UnregisterProvider(const ProviderNames& names) {
    HRESULT hr = DeleteTree(OwnView(), ClsidKeyPath(names));
    if (FAILED(hr)) return hr;
    if (KeyExists(OtherView(), ClsidKeyPath(names) + L"\\InprocServer32")) return S_OK;
    if (FAILED(hr = DeleteTree(OwnView(), names.progId))) return hr;
    return DeleteTree(OwnView(), names.versionIndependentProgId);
}

HRESULT RegisterProvider(const ProviderNames& names) {
    HRESULT hr = WriteRegistration(names);
    if (FAILED(hr)) UnregisterProvider(names);
    return hr;
}

}  // namespace zel::provider
