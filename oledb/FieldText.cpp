#include "oledb/FieldText.h"

#include <cstdarg>
#include <cwchar>

namespace zel {

std::wstring PlatformFormat(const wchar_t* format, ...) {
    wchar_t buffer[512];
    va_list args;
    va_start(args, format);
    // _vsnwprintf is msvcrt's own formatter (mingw's C99 printf is not used here).
    int n = _vsnwprintf(buffer, 511, format, args);
    va_end(args);
    buffer[511] = 0;
    if (n < 0) n = static_cast<int>(wcslen(buffer));
    return std::wstring(buffer, static_cast<size_t>(n));
}

std::wstring DecimalText(const DECIMAL& value) {
    std::wstring digits;
    if (value.Hi32 != 0) digits = UnsignedText(value.Hi32);
    digits += UnsignedText(value.Lo64);
    const size_t scale = value.scale;
    std::wstring text;
    if (value.sign != 0) text += L'-';
    if (digits.size() > scale) {
        const size_t point = digits.size() - scale;
        text.append(digits, 0, point);
        text += L'.';
        text.append(digits, point, std::wstring::npos);
    } else {
        text += L"0.";
        text.append(scale - digits.size(), L'0');
        text += digits;
    }
    return text;
}

std::wstring DateText(DATE value, ULONG flags, const DateTextFormat& format) {
    std::wstring text;
    if (!format.DateText(value, flags, text)) return L"Invalid DateTime";
    return text;
}

namespace {

std::wstring SystemTimeText(const SYSTEMTIME& time, ULONG flags, const DateTextFormat& format) {
    std::wstring text;
    if (!format.FieldsText(time, flags, text)) return L"Invalid DateTime";
    return text;
}

bool ValidCalendarDate(int year, int month, int day) {
    if (month < 1 || month > 12 || day < 1) return false;
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    int last = kDays[month - 1] + (month == 2 && leap ? 1 : 0);
    return day <= last && year >= 100 && year <= 9999;
}

}  // namespace

bool DateFields(const DBDATE& value, SYSTEMTIME& fields) {
    if (!ValidCalendarDate(value.year, value.month, value.day)) return false;
    fields = SYSTEMTIME{};
    fields.wYear = static_cast<WORD>(value.year);
    fields.wMonth = value.month;
    fields.wDay = value.day;
    return true;
}

bool TimeFields(const DBTIME& value, SYSTEMTIME& fields) {
    if (value.hour > 23 || value.minute > 59 || value.second > 59) return false;
    fields = SYSTEMTIME{};
    fields.wYear = 1899;  // day 0 of the automation calendar
    fields.wMonth = 12;
    fields.wDay = 30;
    fields.wHour = value.hour;
    fields.wMinute = value.minute;
    fields.wSecond = value.second;
    return true;
}

bool TimestampFields(const DBTIMESTAMP& value, SYSTEMTIME& fields) {
    if (!ValidCalendarDate(value.year, value.month, value.day) || value.hour > 23 || value.minute > 59 ||
        value.second > 59)
        return false;
    fields = SYSTEMTIME{};
    fields.wYear = static_cast<WORD>(value.year);
    fields.wMonth = value.month;
    fields.wDay = value.day;
    fields.wHour = value.hour;
    fields.wMinute = value.minute;
    fields.wSecond = value.second;  // the fraction is dropped
    return true;
}

std::wstring DbDateText(const DBDATE& value, const DateTextFormat& format) {
    SYSTEMTIME time;
    if (!DateFields(value, time)) return L"Invalid DateTime";
    return SystemTimeText(time, VAR_DATEVALUEONLY, format);
}

std::wstring DbTimeText(const DBTIME& value, const DateTextFormat& format) {
    SYSTEMTIME time;
    if (!TimeFields(value, time)) return L"Invalid DateTime";
    return SystemTimeText(time, VAR_TIMEVALUEONLY, format);
}

std::wstring DbTimestampText(const DBTIMESTAMP& value, const DateTextFormat& format) {
    SYSTEMTIME time;
    if (!TimestampFields(value, time)) return L"Invalid DateTime";
    return SystemTimeText(time, 0, format);
}

std::wstring FileTimeText(const FILETIME& value, const DateTextFormat& format) {
    SYSTEMTIME time = {};
    if (!FileTimeToSystemTime(&value, &time)) return {};
    DBTIMESTAMP stamp = {};
    stamp.year = static_cast<SHORT>(time.wYear);
    stamp.month = time.wMonth;
    stamp.day = time.wDay;
    stamp.hour = time.wHour;
    stamp.minute = time.wMinute;
    stamp.second = time.wSecond;
    return DbTimestampText(stamp, format);
}

std::wstring GuidText(const GUID& value) {
    static const wchar_t kHex[] = L"0123456789abcdef";
    wchar_t text[36];
    int n = 0;
    auto put = [&](unsigned long long bits, int digits) {
        for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) text[n++] = kHex[(bits >> shift) & 15];
    };
    put(value.Data1, 8);
    text[n++] = L'-';
    put(value.Data2, 4);
    text[n++] = L'-';
    put(value.Data3, 4);
    text[n++] = L'-';
    put(value.Data4[0], 2);
    put(value.Data4[1], 2);
    text[n++] = L'-';
    for (int i = 2; i < 8; ++i) put(value.Data4[i], 2);
    return std::wstring(text, 36);
}

std::wstring_view WideTextView(const BYTE* value, DBLENGTH bytes) {
    const wchar_t* text = reinterpret_cast<const wchar_t*>(value);
    size_t limit = static_cast<size_t>(bytes / sizeof(wchar_t));
    size_t n = 0;
    while (n < limit && text[n] != 0) ++n;
    return std::wstring_view(text, n);
}

std::wstring WideText(const BYTE* value, DBLENGTH bytes) { return std::wstring(WideTextView(value, bytes)); }

}  // namespace zel
