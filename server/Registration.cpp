#include "server/Registration.h"

#include <oleauto.h>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "common/Win32Handles.h"

// Per-user type-library registration; oleaut32 exports these, mingw's headers omit them.
extern "C" {
HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* lib, OLECHAR* path, OLECHAR* helpDir);
HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID libId, WORD major, WORD minor, LCID lcid, SYSKIND syskind);
}

namespace zel {
namespace {

constexpr const wchar_t* kAppIdName = L"ZelPmDb32";
constexpr const wchar_t* kExeName = L"ZelPmDb32.EXE";

struct ClassEntry {
    const CLSID* clsid;
    const wchar_t* progId;
    const wchar_t* friendlyName;
};

// Registered and offered in this order.
const ClassEntry kClasses[] = {
    {&CLSID_ZelOleDbHelperImpl, L"ZelPmDb32.ZelOleDbHelperImpl.1", L"ZelOleDbHelperImpl Object"},
    {&CLSID_ZelOleDbImpl, L"ZelPmDb32.ZelOleDbImpl.1", L"ZelOleDbImpl Object"},
};

std::wstring GuidString(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

// The classes root of the scope.
HKEY OpenRoot(RegistrationScope scope, UniqueRegKey& opened) {
    opened.reset();
    if (scope == RegistrationScope::Machine) return HKEY_CLASSES_ROOT;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\Classes", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, opened.put(),
                        nullptr) != ERROR_SUCCESS)
        return nullptr;
    return opened.get();
}

class Writer {
public:
    explicit Writer(HKEY root) : m_root(root) {}
    // Creates `path` and sets its value `name` (null: the default value) to `value`.
    void Set(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
        if (FAILED(m_hr)) return;
        UniqueRegKey key;
        LONG status = RegCreateKeyExW(m_root, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, key.put(), nullptr);
        if (status == ERROR_SUCCESS)
            status = RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                    static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
        if (status != ERROR_SUCCESS) m_hr = HRESULT_FROM_WIN32(status);
    }
    // Creates `path` with no value of its own.
    void Create(const std::wstring& path) {
        if (FAILED(m_hr)) return;
        UniqueRegKey key;
        LONG status = RegCreateKeyExW(m_root, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, key.put(), nullptr);
        if (status != ERROR_SUCCESS) m_hr = HRESULT_FROM_WIN32(status);
    }
    HRESULT Result() const { return m_hr; }

private:
    HKEY m_root;
    HRESULT m_hr = S_OK;
};

// True when version 1.0 of the type library is registered (HKCR\TypeLib\{libid}\1.0), which
// is where both the machine-wide and the per-user type-library registration are seen.
bool TypeLibRegistered() {
    const std::wstring path = L"TypeLib\\" + GuidString(LIBID_ZelPmDb32Lib) + L"\\1.0";
    UniqueRegKey key;
    return RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

HRESULT DeleteTree(HKEY root, const std::wstring& path) {
    LONG status = RegDeleteTreeW(root, path.c_str());
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) return S_OK;
    return HRESULT_FROM_WIN32(status);
}

}  // namespace

HRESULT RegisterServer(RegistrationScope scope, const std::wstring& serverPath) {
    UniqueRegKey opened;
    HKEY root = OpenRoot(scope, opened);
    if (!root) return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    const std::wstring appId = GuidString(LIBID_ZelPmDb32Lib);
    const std::wstring libId = appId;  // the same GUID serves as AppID and type-library id
    Writer w(root);
    w.Set(L"AppID\\" + appId, nullptr, kAppIdName);
    w.Set(std::wstring(L"AppID\\") + kExeName, L"AppID", appId);
    for (const ClassEntry& c : kClasses) {
        const std::wstring key = L"CLSID\\" + GuidString(*c.clsid);
        w.Set(key, nullptr, c.friendlyName);
        w.Set(key, L"AppID", appId);
        w.Set(key, L"ThreadingModel", L"apartment");
        w.Set(key + L"\\ProgID", nullptr, c.progId);
        w.Create(key + L"\\Programmable");
        w.Set(key + L"\\LocalServer32", nullptr, serverPath);
        w.Set(key + L"\\TypeLib", nullptr, libId);
        w.Set(c.progId, nullptr, c.friendlyName);
        w.Set(std::wstring(c.progId) + L"\\CLSID", nullptr, GuidString(*c.clsid));
    }
    HRESULT hr = w.Result();
    opened.reset();
    if (FAILED(hr)) return hr;

    ComPtr<ITypeLib> lib;
    hr = LoadTypeLibEx(serverPath.c_str(), REGKIND_NONE, lib.put());
    if (FAILED(hr)) return hr;
    std::wstring path = serverPath;
    return scope == RegistrationScope::Machine ? RegisterTypeLib(lib.get(), path.data(), nullptr)
                                               : RegisterTypeLibForUser(lib.get(), path.data(), nullptr);
}

HRESULT UnregisterServer(RegistrationScope scope) {
    UniqueRegKey opened;
    HKEY root = OpenRoot(scope, opened);
    if (!root) return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    HRESULT hr = S_OK;
    auto remove = [&](const std::wstring& path) {
        HRESULT r = DeleteTree(root, path);
        if (SUCCEEDED(hr)) hr = r;
    };
    for (const ClassEntry& c : kClasses) {
        remove(L"CLSID\\" + GuidString(*c.clsid));
        remove(c.progId);
    }
    remove(L"AppID\\" + GuidString(LIBID_ZelPmDb32Lib));
    remove(std::wstring(L"AppID\\") + kExeName);
    opened.reset();

    // A library that is not registered is not an error for unregistration. Wine's
    // UnRegisterTypeLib answers E_INVALIDARG for it, so look for the version key first.
    if (!TypeLibRegistered()) return hr;
    HRESULT lib = scope == RegistrationScope::Machine ? UnRegisterTypeLib(LIBID_ZelPmDb32Lib, 1, 0, 0, SYS_WIN32)
                                                      : UnRegisterTypeLibForUser(LIBID_ZelPmDb32Lib, 1, 0, 0, SYS_WIN32);
    if (FAILED(lib) && lib != TYPE_E_REGISTRYACCESS && lib != TYPE_E_CANTLOADLIBRARY && SUCCEEDED(hr)) hr = lib;
    return hr;
}

}  // namespace zel
