// Date and time texts of one locale made the way the platform's date formatting
// (VarBstrFromDate: the locale's short date picture, a blank, its time picture) writes them,
// without the platform's per-value conversions and locale look-ups. Only pictures made of
// numeric fields, time markers and plain separators are reproduced here; a locale with
// anything else (day or month names, eras, quoted text, a calendar other than the
// Gregorian one) is left to the platform call, which gives the same text more slowly.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <vector>

namespace zel {

class DateTextFormat {
public:
    // The pictures and time markers of `locale` (GetLocaleInfoW), read now.
    static DateTextFormat ForLocale(LCID locale);
    // The user default locale's (LOCALE_USER_DEFAULT), read again when the copy held for the
    // calling thread is more than a second old, so that changed user settings show within a
    // second. The reference stays valid until the thread's next call.
    static const DateTextFormat& UserDefault();

    LCID Locale() const { return m_locale; }
    // True when both pictures are reproduced here; otherwise every text comes from the
    // platform.
    bool Recognised() const { return m_recognised; }

    // VarBstrFromDate(value, Locale(), flags) as text, flags being 0, VAR_DATEVALUEONLY or
    // VAR_TIMEVALUEONLY; false when the platform conversion fails (a value outside the date
    // range), with `text` unspecified.
    bool DateText(DATE value, ULONG flags, std::wstring& text) const;

    // The text of the date those calendar fields make (SystemTimeToVariantTime), formatted
    // with `flags` like DateText; the fields must make a valid date in years 100 to 9999.
    bool FieldsText(const SYSTEMTIME& fields, ULONG flags, std::wstring& text) const;

private:
    enum class Field { Literal, Day, Month, Year, Hour12, Hour24, Minute, Second, Marker };
    struct Token {
        Field field;
        int width;            // digits (1: no padding, 2: two digits, 4: the whole year), marker letters
        std::wstring literal; // Field::Literal only
    };

    static bool ParsePicture(const std::wstring& picture, bool time, std::vector<Token>& tokens);
    bool FastDateText(DATE value, ULONG flags, std::wstring& text) const;
    void AppendPicture(const std::vector<Token>& tokens, const SYSTEMTIME& fields, std::wstring& text) const;
    void AppendText(const SYSTEMTIME& fields, bool dateOnly, bool timeOnly, std::wstring& text) const;

    LCID m_locale = LOCALE_USER_DEFAULT;
    bool m_recognised = false;
    std::vector<Token> m_date;
    std::vector<Token> m_time;
    std::wstring m_am;
    std::wstring m_pm;
};

}  // namespace zel
