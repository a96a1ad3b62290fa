// Access to the ZelPmDb32 type library from inside the server's objects.
#pragma once

#include <windows.h>
#include <oaidl.h>

namespace zel {

// Type information of one interface of the library (IZelOleDb, IZelOleDbHelper) or of a
// coclass. Loads the registered library, or else the one embedded in the running program
// (resource TYPELIB 1), once per process. Returns TYPE_E_* or the load failure when neither
// is available; `*info` receives a new reference on success and null otherwise.
HRESULT GetZelTypeInfo(REFGUID guid, ITypeInfo** info) noexcept;

}  // namespace zel
