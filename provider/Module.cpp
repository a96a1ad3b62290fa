// DLL entry points: the module handle, the class object of the data source, unloading.
#include <windows.h>
#include <objbase.h>

#include "common/ComObject.h"
#include "provider/ProviderIdentity.h"
#include "provider/objects/DataSource.h"

namespace {
HMODULE g_module = nullptr;
}

HMODULE zel::provider::ModuleHandle() noexcept { return g_module; }

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

// Hands out the class factory of the data source object; any other class is unknown here.
STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (clsid != zel::provider::kProviderClsid) return CLASS_E_CLASSNOTAVAILABLE;
    try {
        auto factory = zel::ClassFactory<zel::provider::DataSource>::Make();
        return factory->QueryInterface(riid, ppv);
    }
    ZEL_CATCH_RETURN()
}

// The DLL may go once no object, error object or server lock is alive.
STDAPI DllCanUnloadNow() { return zel::ModuleLifetime::Count() == 0 ? S_OK : S_FALSE; }
