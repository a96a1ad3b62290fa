// Registration of the server in the registry: the AppID entries, both classes (ProgID,
// LocalServer32, TypeLib, Programmable, AppID, ThreadingModel) and the type library,
// machine-wide under HKEY_CLASSES_ROOT or per user under HKCU\Software\Classes.
#pragma once

#include <windows.h>

#include <string>

namespace zel {

enum class RegistrationScope { Machine, User };

// Writes every entry; `serverPath` is the executable's full path. Returns the first failing
// registry or type-library HRESULT.
HRESULT RegisterServer(RegistrationScope scope, const std::wstring& serverPath);
// Removes every entry RegisterServer wrote (a missing one is not an error); the AppID root
// key itself stays.
HRESULT UnregisterServer(RegistrationScope scope);

}  // namespace zel
