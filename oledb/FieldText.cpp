#include "oledb/FieldText.h"

#include <oleauto.h>
#include <rpc.h>

#include <cstdarg>
#include <cstdlib>
#include <cwchar>

#include "common/Bstr.h"

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
    wchar_t part[72];
    std::wstring digits;
    if (value.Hi32 != 0) {
        _ultow(value.Hi32, part, 10);
        digits = part;
    }
    _ui64tow(value.Lo64, part, 10);
    digits += part;
    const size_t scale = value.scale;
    std::wstring text;
    if (digits.size() > scale) {
        text = digits.substr(0, digits.size() - scale) + L"." + digits.substr(digits.size() - scale);
    } else {
        while (digits.size() < scale) digits.insert(digits.begin(), L'0');
        text = L"0." + digits;
    }
    if (value.sign != 0) text.insert(text.begin(), L'-');
    return text;
}

std::wstring DateText(DATE value, ULONG flags) {
    Bstr text;
    if (FAILED(VarBstrFromDate(value, LANG_USER_DEFAULT, flags, text.put()))) return L"Invalid DateTime";
    return text.str();
}

namespace {

std::wstring SystemTimeText(const SYSTEMTIME& time, ULONG flags) {
    DATE date = 0;
    if (!SystemTimeToVariantTime(const_cast<SYSTEMTIME*>(&time), &date)) return L"Invalid DateTime";
    return DateText(date, flags);
}

bool ValidCalendarDate(int year, int month, int day) {
    if (month < 1 || month > 12 || day < 1) return false;
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    int last = kDays[month - 1] + (month == 2 && leap ? 1 : 0);
    return day <= last && year >= 100 && year <= 9999;
}

}  // namespace

std::wstring DbDateText(const DBDATE& value) {
    if (!ValidCalendarDate(value.year, value.month, value.day)) return L"Invalid DateTime";
    SYSTEMTIME time = {};
    time.wYear = static_cast<WORD>(value.year);
    time.wMonth = value.month;
    time.wDay = value.day;
    return SystemTimeText(time, VAR_DATEVALUEONLY);
}

std::wstring DbTimeText(const DBTIME& value) {
    if (value.hour > 23 || value.minute > 59 || value.second > 59) return L"Invalid DateTime";
    SYSTEMTIME time = {};
    time.wYear = 1899;
    time.wMonth = 12;
    time.wDay = 30;
    time.wHour = value.hour;
    time.wMinute = value.minute;
    time.wSecond = value.second;
    return SystemTimeText(time, VAR_TIMEVALUEONLY);
}

std::wstring DbTimestampText(const DBTIMESTAMP& value) {
    if (!ValidCalendarDate(value.year, value.month, value.day) || value.hour > 23 || value.minute > 59 ||
        value.second > 59)
        return L"Invalid DateTime";
    SYSTEMTIME time = {};
    time.wYear = static_cast<WORD>(value.year);
    time.wMonth = value.month;
    time.wDay = value.day;
    time.wHour = value.hour;
    time.wMinute = value.minute;
    time.wSecond = value.second;  // the fraction is dropped
    return SystemTimeText(time, 0);
}

std::wstring FileTimeText(const FILETIME& value) {
    SYSTEMTIME time = {};
    if (!FileTimeToSystemTime(&value, &time)) return {};
    DBTIMESTAMP stamp = {};
    stamp.year = static_cast<SHORT>(time.wYear);
    stamp.month = time.wMonth;
    stamp.day = time.wDay;
    stamp.hour = time.wHour;
    stamp.minute = time.wMinute;
    stamp.second = time.wSecond;
    return DbTimestampText(stamp);
}

std::wstring GuidText(const GUID& value) {
    RPC_WSTR text = nullptr;
    if (UuidToStringW(const_cast<GUID*>(&value), &text) != RPC_S_OK || !text) return {};
    std::wstring result(reinterpret_cast<wchar_t*>(text));
    RpcStringFreeW(&text);  // the RPC runtime's own string
    return result;
}

std::wstring WideText(const BYTE* value, DBLENGTH bytes) {
    const wchar_t* text = reinterpret_cast<const wchar_t*>(value);
    size_t limit = static_cast<size_t>(bytes / sizeof(wchar_t));
    size_t n = 0;
    while (n < limit && text[n] != 0) ++n;
    return std::wstring(text, n);
}

}  // namespace zel
