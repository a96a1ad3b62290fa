// What every provider DLL writes to the registry: its CLSID (InprocServer32, threading model
// Both, OLE DB services), its ProgIDs and the "OLE DB Provider" key that enumerators read.
#pragma once

#include <windows.h>

namespace zel::provider {

struct ProviderNames {
    HMODULE module;                          // the DLL whose path is registered
    const wchar_t* clsidText;                // "{...}"
    const wchar_t* name;                     // the friendly name
    const wchar_t* progId;                   // "Name.OLEDB.1"
    const wchar_t* versionIndependentProgId; // "Name.OLEDB"
};

// DllRegisterServer: writes every key; on failure removes what was written. Returns the
// registry's error as an HRESULT.
HRESULT RegisterProvider(const ProviderNames& names);
// DllUnregisterServer: removes the CLSID of this bitness, and the ProgIDs with the last
// bitness registered. A missing key is not an error.
HRESULT UnregisterProvider(const ProviderNames& names);

}  // namespace zel::provider
