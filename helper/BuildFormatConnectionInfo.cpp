#include "helper/BuildFormatConnectionInfo.h"

#include <iterator>

#include "common/Win32Handles.h"

namespace zel {
namespace {

struct FormatEntry {
    const wchar_t* engine;   // key name under the engines root
    const wchar_t* isam;     // key name under the ISAM root; empty for the Access formats
    const wchar_t* connStr;  // template; "%1!s!" is where the host puts the data source path
    LONG connFlags;
};

// Indexed by ZelOleDbFormatType. The templates differ on purpose (the kAccess one has no
// trailing semicolon, only the Excel ones carry HDR=Yes) and must stay exactly as they are.
constexpr FormatEntry kFormats[] = {
    {L"Jet 4.0", L"", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!", 2},
    {L"Jet 4.0", L"", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Jet OLEDB:Engine Type=4;", 2},
    {L"Excel", L"Excel 8.0",
     L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"Excel 8.0;HDR=Yes\"", 0},
    {L"Excel", L"Excel 5.0",
     L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"Excel 5.0;HDR=Yes\"", 0},
    {L"Xbase", L"dBase 5.0", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase 5.0;\"", 1},
    {L"Xbase", L"dBase IV", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase IV;\"", 1},
    {L"Xbase", L"dBase III", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"dBase III;\"", 1},
    {L"Xbase", L"FoxPro 3.0", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 3.0;\"", 1},
    {L"Xbase", L"FoxPro 2.6", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 2.6;\"", 1},
    {L"Xbase", L"FoxPro 2.5", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"FoxPro 2.5;\"", 1},
    {L"Text", L"HTML Export", L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"HTML Export;\"", 1},
};

constexpr wchar_t kEnginesRoot[] = L"Software\\Microsoft\\Jet\\4.0\\Engines\\";
constexpr wchar_t kIsamRoot[] = L"Software\\Microsoft\\Jet\\4.0\\ISAM Formats\\";

// Whether HKLM\<path> exists in the 32-bit view, where the 32-bit Jet engine registers
// itself; a 64-bit build asks the same view. Only presence counts: no value is read.
bool KeyExists(const std::wstring& path) {
    UniqueRegKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, key.put()) ==
           ERROR_SUCCESS;
}

}  // namespace

bool BuildFormatConnectionInfo(LONG format, const wchar_t* user, const wchar_t* password, std::wstring& connStr,
                               LONG& connFlags) {
    const std::wstring enginesRoot = kEnginesRoot;
    const std::wstring isamRoot = kIsamRoot;
    if (format < 0 || format >= static_cast<LONG>(std::size(kFormats))) return false;
    const FormatEntry& entry = kFormats[format];

    // Engine first, then the ISAM driver; both must be registered.
    if (!KeyExists(enginesRoot + entry.engine)) return false;
    if (*entry.isam && !KeyExists(isamRoot + entry.isam)) return false;

    std::wstring text = entry.connStr;
    if (user) text.append(L"User ID=").append(user).append(L";");
    if (password) text.append(L"Password=").append(password).append(L";");
    connStr = std::move(text);
    connFlags = entry.connFlags;
    return true;
}

}  // namespace zel
