// Names and ids under which ZelOdbc is registered and reports itself.
#pragma once

#include <windows.h>

#include "ZelVersion.h"

namespace zel::provider::odbc {

// {84AC49C0-B098-45FD-B026-21C5A56F5FA9}
inline constexpr CLSID kProviderClsid = {
    0x84ac49c0, 0xb098, 0x45fd, {0xb0, 0x26, 0x21, 0xc5, 0xa5, 0x6f, 0x5f, 0xa9}};
inline constexpr wchar_t kProviderClsidText[] = L"{84AC49C0-B098-45FD-B026-21C5A56F5FA9}";

inline constexpr wchar_t kProviderName[] = L"ZelOdbc OLE DB Provider for ODBC Drivers";
inline constexpr wchar_t kErrorSource[] = L"ZelOdbc OLE DB Provider";
inline constexpr wchar_t kProgId[] = L"ZelOdbc.OLEDB.1";
inline constexpr wchar_t kVersionIndependentProgId[] = L"ZelOdbc.OLEDB";
inline constexpr wchar_t kProviderFileName[] = L"ZelOdbc.dll";
inline constexpr wchar_t kProviderVersion[] = ZEL_PROVIDER_VERSION_WTEXT;

// Module handle of ZelOdbc.dll, set in DllMain.
HMODULE ModuleHandle() noexcept;

}  // namespace zel::provider::odbc
