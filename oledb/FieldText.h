// Text forms of OLE DB values as the field readers give them to hosts. Several forms are
// fixed by existing hosts and kept as they are, odd ones included (see each function).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>

namespace zel {

// The platform's wide printf (msvcrt), not the C99 one: hosts expect its output.
std::wstring PlatformFormat(const wchar_t* format, ...);

// DBTYPE_DECIMAL: the high 32 bits' digits (when not 0) joined with the low 64 bits'
// digits, not combined arithmetically; then the point placed by the scale (a scale of 0
// leaves a trailing point); a leading minus when the sign byte is set.
std::wstring DecimalText(const DECIMAL& value);

// Date and time values through the platform's date formatting (user default locale), or
// "Invalid DateTime" when the parts do not make a valid date.
std::wstring DateText(DATE value, ULONG flags);
std::wstring DbDateText(const DBDATE& value);
std::wstring DbTimeText(const DBTIME& value);
std::wstring DbTimestampText(const DBTIMESTAMP& value);
std::wstring FileTimeText(const FILETIME& value);

// 36-character hyphenated lower-case form, no braces.
std::wstring GuidText(const GUID& value);

// The text as stored in a wide buffer, up to its first NUL.
std::wstring WideText(const BYTE* value, DBLENGTH bytes);

}  // namespace zel
