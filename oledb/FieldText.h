// Text forms of OLE DB values as the field readers give them to hosts. Several forms are
// fixed by existing hosts and kept as they are, odd ones included (see each function). The
// numbers come from oledb/NumberText.h, written like the platform's wide printf.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <string_view>

#include "oledb/DateTextFormat.h"
#include "oledb/NumberText.h"

namespace zel {

// The platform's wide printf (msvcrt), not the C99 one: the reference the number texts are
// made to match, and the formatter for texts made once per call rather than per value.
std::wstring PlatformFormat(const wchar_t* format, ...);

// DBTYPE_DECIMAL: the high 32 bits' digits (when not 0) joined with the low 64 bits'
// digits, not combined arithmetically; then the point placed by the scale (a scale of 0
// leaves a trailing point); a leading minus when the sign byte is set.
std::wstring DecimalText(const DECIMAL& value);

// Date and time values as the platform's date formatting writes them in `format`'s locale
// (by default the user default locale), or "Invalid DateTime" when the parts do not make a
// valid date.
std::wstring DateText(DATE value, ULONG flags, const DateTextFormat& format = DateTextFormat::UserDefault());
std::wstring DbDateText(const DBDATE& value, const DateTextFormat& format = DateTextFormat::UserDefault());
std::wstring DbTimeText(const DBTIME& value, const DateTextFormat& format = DateTextFormat::UserDefault());
std::wstring DbTimestampText(const DBTIMESTAMP& value, const DateTextFormat& format = DateTextFormat::UserDefault());
std::wstring FileTimeText(const FILETIME& value, const DateTextFormat& format = DateTextFormat::UserDefault());
// The calendar fields the date texts are written from (a time on day 0, 1899-12-30; a
// timestamp without its fraction); false when they do not make a valid date or time of years
// 100 to 9999, the range the date texts cover.
bool DateFields(const DBDATE& value, SYSTEMTIME& fields);
bool TimeFields(const DBTIME& value, SYSTEMTIME& fields);
bool TimestampFields(const DBTIMESTAMP& value, SYSTEMTIME& fields);

// 36-character hyphenated lower-case form, no braces (UuidToStringW's text).
std::wstring GuidText(const GUID& value);

// The text FieldAsString gives for a value of `type` held at `value` in the row buffer, for
// every type whose text depends on the value alone; text, numeric and long types (and types
// without a text) give an empty string.
std::wstring ValueText(DBTYPE type, const BYTE* value);

// The text as stored in a wide buffer, up to its first NUL.
std::wstring WideText(const BYTE* value, DBLENGTH bytes);
// The same text as a view of the bound value.
std::wstring_view WideTextView(const BYTE* value, DBLENGTH bytes);

}  // namespace zel
