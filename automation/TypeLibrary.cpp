#include "automation/TypeLibrary.h"

#include <oleauto.h>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"

namespace zel {
namespace {

// Loaded on the first request and kept for the process lifetime: the library is small and
// GetTypeInfo is called for every late-bound client.
ITypeLib* s_lib = nullptr;
HRESULT s_hr = E_UNEXPECTED;
INIT_ONCE s_once = INIT_ONCE_STATIC_INIT;

BOOL CALLBACK LoadOnce(PINIT_ONCE, PVOID, PVOID*) {
    s_hr = LoadRegTypeLib(LIBID_ZelPmDb32Lib, 1, 0, LOCALE_NEUTRAL, &s_lib);
    if (FAILED(s_hr)) {
        wchar_t path[MAX_PATH] = {};
        if (GetModuleFileNameW(nullptr, path, MAX_PATH) != 0) s_hr = LoadTypeLibEx(path, REGKIND_NONE, &s_lib);
    }
    return TRUE;
}

HRESULT LoadLibraryOnce(ITypeLib** lib) {
    InitOnceExecuteOnce(&s_once, LoadOnce, nullptr, nullptr);
    if (FAILED(s_hr)) return s_hr;
    s_lib->AddRef();
    *lib = s_lib;
    return S_OK;
}

}  // namespace

HRESULT GetZelTypeInfo(REFGUID guid, ITypeInfo** info) noexcept {
    if (!info) return E_POINTER;
    *info = nullptr;
    ComPtr<ITypeLib> lib;
    HRESULT hr = LoadLibraryOnce(lib.put());
    if (FAILED(hr)) return hr;
    return lib->GetTypeInfoOfGuid(guid, info);
}

}  // namespace zel
