// The data-source formats the helper knows: for each one the connection-string template,
// the connection code, and the Jet engine and ISAM driver keys that must be registered.
#pragma once

#include <windows.h>

#include <string>

namespace zel {

// Answers for data-source format `format` (ZelOleDbFormatType, 0 to 10). True when the
// format is known and both its engine key and (where it has one) its ISAM key exist under
// HKEY_LOCAL_MACHINE in the 32-bit registry view; then `connStr` receives the format's
// template (its "%1!s!" insert left for the host), followed by "User ID=<user>;" when `user`
// is given and "Password=<password>;" when `password` is given, and `connFlags` the
// format's code (2 Access, 0 Excel, 1 dBase/FoxPro/HTML). False leaves both untouched.
// Throws std::bad_alloc when the string cannot be made.
bool BuildFormatConnectionInfo(LONG format, const wchar_t* user, const wchar_t* password, std::wstring& connStr,
                               LONG& connFlags);

}  // namespace zel
