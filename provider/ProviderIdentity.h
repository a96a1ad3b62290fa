// Names and ids under which ZelLite is registered and reports itself.
#pragma once

#include <windows.h>

#include "ZelVersion.h"

namespace zel::provider {

// {6ED3CDC0-CB85-478B-86C2-ACC437DDD288}
inline constexpr CLSID kProviderClsid = {
    0x6ed3cdc0, 0xcb85, 0x478b, {0x86, 0xc2, 0xac, 0xc4, 0x37, 0xdd, 0xd2, 0x88}};
inline constexpr wchar_t kProviderClsidText[] = L"{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}";

inline constexpr wchar_t kProviderName[] = L"ZelLite OLE DB Provider for SQLite";
inline constexpr wchar_t kErrorSource[] = L"ZelLite OLE DB Provider";
inline constexpr wchar_t kProgId[] = L"ZelLite.OLEDB.1";
inline constexpr wchar_t kVersionIndependentProgId[] = L"ZelLite.OLEDB";
inline constexpr wchar_t kProviderFileName[] = L"ZelLite.dll";
inline constexpr wchar_t kProviderVersion[] = ZEL_PROVIDER_VERSION_WTEXT;  // "01.00.0000" for 1.0.0
inline constexpr wchar_t kDbmsName[] = L"SQLite";

// Module handle of ZelLite.dll, set in DllMain.
HMODULE ModuleHandle() noexcept;

}  // namespace zel::provider
