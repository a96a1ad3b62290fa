// ZelLite's self-registration: its names under the CLSID and ProgID keys.
#include <windows.h>

#include "provider/ProviderIdentity.h"
#include "provider/module/ProviderRegistration.h"

namespace {

zel::provider::ProviderNames Names() {
    using namespace zel::provider;
    return {ModuleHandle(), kProviderClsidText, kProviderName, kProgId, kVersionIndependentProgId};
}

}  // namespace

STDAPI DllRegisterServer() { return zel::provider::RegisterProvider(Names()); }

STDAPI DllUnregisterServer() { return zel::provider::UnregisterProvider(Names()); }
