// ZelOdbc's DLL entry points: the module handle, the class object of the data source,
// unloading and self-registration.
#include <windows.h>
#include <objbase.h>

#include "common/ComObject.h"
#include "provider/module/ProviderRegistration.h"
#include "provider/odbc/OdbcDataSource.h"
#include "provider/odbc/OdbcIdentity.h"

namespace {

HMODULE g_module = nullptr;

zel::provider::ProviderNames Names() {
    using namespace zel::provider::odbc;
    return {ModuleHandle(), kProviderClsidText, kProviderName, kProgId, kVersionIndependentProgId};
}

}  // namespace

HMODULE zel::provider::odbc::ModuleHandle() noexcept { return g_module; }

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
    if (clsid != zel::provider::odbc::kProviderClsid) return CLASS_E_CLASSNOTAVAILABLE;
    try {
        auto factory = zel::ClassFactory<zel::provider::odbc::OdbcDataSource>::Make();
        return factory->QueryInterface(riid, ppv);
    }
    ZEL_CATCH_RETURN()
}

// The DLL may go once no object, error object or server lock is alive.
STDAPI DllCanUnloadNow() { return zel::ModuleLifetime::Count() == 0 ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() { return zel::provider::RegisterProvider(Names()); }

STDAPI DllUnregisterServer() { return zel::provider::UnregisterProvider(Names()); }
