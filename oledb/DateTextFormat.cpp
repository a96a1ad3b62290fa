#include "oledb/DateTextFormat.h"

#include <cmath>

#include "common/Bstr.h"

namespace zel {
namespace {

// The platform's date range: 1 January 100 to 31 December 9999.
constexpr double kDateMin = -657434.0;
constexpr double kDateMax = 2958465.0;
constexpr ULONGLONG kUserLocaleRefreshMs = 1000;

std::wstring LocaleText(LCID locale, LCTYPE type) {
    wchar_t buffer[128];
    const int n = GetLocaleInfoW(locale, type, buffer, 128);
    return n > 0 ? std::wstring(buffer, static_cast<size_t>(n - 1)) : std::wstring();
}

// Calendar fields of a day count on the platform's scale (day 0 is 30 December 1899), by the
// same Julian-day arithmetic as the platform.
void DayFields(int day, SYSTEMTIME& fields) {
    int l = day - static_cast<int>(kDateMin) + 1757585 + 68569;
    const int n = l * 4 / 146097;
    l -= (n * 146097 + 3) / 4;
    const int i = (4000 * (l + 1)) / 1461001;
    l += 31 - (i * 1461) / 4;
    const int j = (l * 80) / 2447;
    fields.wDay = static_cast<WORD>(l - (j * 2447) / 80);
    l = j / 11;
    fields.wMonth = static_cast<WORD>((j + 2) - (12 * l));
    fields.wYear = static_cast<WORD>(100 * (n - 49) + i + l);
}

void AppendNumber(std::wstring& text, int value, int width) {
    wchar_t digits[8];
    int n = 0;
    do {
        digits[n++] = static_cast<wchar_t>(L'0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (n < width) digits[n++] = L'0';
    while (n > 0) text += digits[--n];
}

// The platform's choice of parts: a value on day 0 shows only its time, a value at midnight
// (within 1e-12 of a day) only its date; the caller's flags add to that. `whole` is the value
// rounded toward zero.
void ChooseParts(DATE value, double whole, ULONG flags, bool& dateOnly, bool& timeOnly) {
    const double partial = value - whole;
    if (whole == 0.0) flags |= VAR_TIMEVALUEONLY;
    else if (partial > -1e-12 && partial < 1e-12) flags |= VAR_DATEVALUEONLY;
    dateOnly = (flags & VAR_DATEVALUEONLY) != 0;
    timeOnly = (flags & VAR_TIMEVALUEONLY) != 0;
}

bool PlatformDateText(DATE value, LCID locale, ULONG flags, std::wstring& text) {
    Bstr result;
    if (FAILED(VarBstrFromDate(value, locale, flags, result.put()))) return false;
    text = result.str();
    return true;
}

}  // namespace

DateTextFormat DateTextFormat::ForLocale(LCID locale) {
    DateTextFormat format;
    format.m_locale = locale;
    format.m_am = LocaleText(locale, LOCALE_S1159);
    format.m_pm = LocaleText(locale, LOCALE_S2359);
    format.m_recognised = LocaleText(locale, LOCALE_ICALENDARTYPE) == L"1" &&
                          ParsePicture(LocaleText(locale, LOCALE_SSHORTDATE), false, format.m_date) &&
                          ParsePicture(LocaleText(locale, LOCALE_STIMEFORMAT), true, format.m_time);
    // An empty marker makes the platform drop the separators around it: left to the platform.
    for (const Token& token : format.m_time)
        if (token.field == Field::Marker && (format.m_am.empty() || format.m_pm.empty())) format.m_recognised = false;
    if (!format.m_recognised) {
        format.m_date.clear();
        format.m_time.clear();
    }
    return format;
}

const DateTextFormat& DateTextFormat::UserDefault() {
    struct Held {
        DateTextFormat format;
        ULONGLONG readAt = 0;
        bool read = false;
    };
    thread_local Held held;
    const ULONGLONG now = GetTickCount64();
    if (!held.read || now - held.readAt >= kUserLocaleRefreshMs) {
        held.format = ForLocale(LOCALE_USER_DEFAULT);
        held.readAt = now;
        held.read = true;
    }
    return held.format;
}

// Pictures of numeric fields and separators only: d, dd, M, MM, y, yy, yyyy in a date
// picture; h, hh, H, HH, m, mm, s, ss, t, tt in a time picture. Any other letter, a quote or
// an empty picture makes the locale one left to the platform.
bool DateTextFormat::ParsePicture(const std::wstring& picture, bool time, std::vector<Token>& tokens) {
    tokens.clear();
    if (picture.empty()) return false;
    for (size_t i = 0; i < picture.size();) {
        const wchar_t c = picture[i];
        size_t run = 1;
        while (i + run < picture.size() && picture[i + run] == c) ++run;
        const bool letter = (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
        if (c == L'\'') return false;
        if (!letter) {
            if (tokens.empty() || tokens.back().field != Field::Literal) tokens.push_back({Field::Literal, 0, {}});
            tokens.back().literal.append(run, c);
            i += run;
            continue;
        }
        Field field;
        if (!time && c == L'd' && run <= 2) field = Field::Day;
        else if (!time && c == L'M' && run <= 2) field = Field::Month;
        else if (!time && c == L'y' && (run <= 2 || run == 4)) field = Field::Year;
        else if (time && c == L'h' && run <= 2) field = Field::Hour12;
        else if (time && c == L'H' && run <= 2) field = Field::Hour24;
        else if (time && c == L'm' && run <= 2) field = Field::Minute;
        else if (time && c == L's' && run <= 2) field = Field::Second;
        else if (time && c == L't' && run <= 2) field = Field::Marker;
        else return false;
        tokens.push_back({field, static_cast<int>(run), {}});
        i += run;
    }
    return true;
}

bool DateTextFormat::DateText(DATE value, ULONG flags, std::wstring& text) const {
    if (m_recognised && FastDateText(value, flags, text)) return true;
    return PlatformDateText(value, m_locale, flags, text);
}

bool DateTextFormat::FieldsText(const SYSTEMTIME& fields, ULONG flags, std::wstring& text) const {
    if (!m_recognised) {
        DATE date = 0;
        if (!SystemTimeToVariantTime(const_cast<SYSTEMTIME*>(&fields), &date)) return false;
        return PlatformDateText(date, m_locale, flags, text);
    }
    // The date the fields make is whole on the day and exact to the second, so its parts are
    // chosen from the fields: day 0 (30 December 1899) shows only the time, midnight only the
    // date.
    const bool dayZero = fields.wYear == 1899 && fields.wMonth == 12 && fields.wDay == 30;
    const bool midnight = fields.wHour == 0 && fields.wMinute == 0 && fields.wSecond == 0;
    const bool timeOnly = (flags & VAR_TIMEVALUEONLY) != 0 || dayZero;
    const bool dateOnly = (flags & VAR_DATEVALUEONLY) != 0 || (!dayZero && midnight);
    text.clear();
    AppendText(fields, dateOnly, timeOnly, text);
    return true;
}

// The platform's conversion of a date value to calendar fields (VariantTimeToSystemTime), step
// by step: the day from the value's integer part, the time from the distance to it plus a
// small compensation, truncated field by field, the rest of a second rounded.
bool DateTextFormat::FastDateText(DATE value, ULONG flags, std::wstring& text) const {
    if (!(value > kDateMin - 1.0 && value < kDateMax + 1.0)) return false;  // NaN included
    // The day is the value rounded toward zero (the platform's ceiling of a negative value and
    // floor of a positive one).
    int day = static_cast<int>(value);
    const double datePart = day;
    double timePart = std::fabs(value - datePart) + 0.00000000001;
    if (timePart >= 1.0) timePart -= 0.00000000001;
    SYSTEMTIME fields = {};
    timePart *= 24.0;
    fields.wHour = static_cast<WORD>(timePart);
    timePart -= fields.wHour;
    timePart *= 60.0;
    fields.wMinute = static_cast<WORD>(timePart);
    timePart -= fields.wMinute;
    timePart *= 60.0;
    fields.wSecond = static_cast<WORD>(timePart);
    timePart -= fields.wSecond;
    if (timePart > 0.5) {
        // The rounded second carries into the minute, hour and day.
        if (fields.wSecond < 59) {
            ++fields.wSecond;
        } else {
            fields.wSecond = 0;
            if (fields.wMinute < 59) {
                ++fields.wMinute;
            } else {
                fields.wMinute = 0;
                if (fields.wHour < 23) {
                    ++fields.wHour;
                } else {
                    fields.wHour = 0;
                    ++day;
                }
            }
        }
    }
    DayFields(day, fields);
    if (fields.wYear < 100 || fields.wYear > 9999) return false;  // the last second of 9999 rounds into 10000
    bool dateOnly = false;
    bool timeOnly = false;
    ChooseParts(value, datePart, flags, dateOnly, timeOnly);
    text.clear();
    AppendText(fields, dateOnly, timeOnly, text);
    return true;
}

void DateTextFormat::AppendText(const SYSTEMTIME& fields, bool dateOnly, bool timeOnly, std::wstring& text) const {
    text.reserve(32);  // one allocation for the usual date and time
    if (!timeOnly) AppendPicture(m_date, fields, text);
    if (!dateOnly) {
        if (!text.empty()) text += L' ';
        AppendPicture(m_time, fields, text);
    }
}

void DateTextFormat::AppendPicture(const std::vector<Token>& tokens, const SYSTEMTIME& fields,
                                   std::wstring& text) const {
    for (const Token& token : tokens) {
        switch (token.field) {
            case Field::Literal: text += token.literal; break;
            case Field::Day: AppendNumber(text, fields.wDay, token.width); break;
            case Field::Month: AppendNumber(text, fields.wMonth, token.width); break;
            case Field::Year:
                if (token.width == 4) AppendNumber(text, fields.wYear, 1);
                else AppendNumber(text, fields.wYear % 100, token.width);
                break;
            case Field::Hour12: AppendNumber(text, fields.wHour % 12 == 0 ? 12 : fields.wHour % 12, token.width); break;
            case Field::Hour24: AppendNumber(text, fields.wHour, token.width); break;
            case Field::Minute: AppendNumber(text, fields.wMinute, token.width); break;
            case Field::Second: AppendNumber(text, fields.wSecond, token.width); break;
            case Field::Marker: {
                const std::wstring& marker = fields.wHour < 12 ? m_am : m_pm;
                if (token.width == 1) text += marker[0];
                else text += marker;
                break;
            }
        }
    }
}

}  // namespace zel
