#include "provider/values/DateTime.h"

#include <cmath>
#include <cstdio>
#include <cwchar>

namespace zel::provider {

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date.
long long DaysFromCivil(long long y, unsigned m, unsigned d) noexcept {
    y -= m <= 2;
    const long long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long long>(doe) - 719468;
}

void CivilFromDays(long long z, int* y, int* m, int* d) noexcept {
    z += 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long yy = static_cast<long long>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    *d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    *m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    *y = static_cast<int>(yy + (*m <= 2));
}

constexpr long long kOleZeroDays = -25569;  // 1899-12-30 counted from 1970-01-01

int DaysInMonth(int year, int month) noexcept {
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month == 2 && ((year % 4 == 0 && year % 100 != 0) || year % 400 == 0)) return 29;
    return days[month - 1];
}

// Reads exactly `count` digits.
bool Digits(std::wstring_view text, size_t& pos, int count, int* out) {
    int value = 0;
    for (int i = 0; i < count; ++i, ++pos) {
        if (pos >= text.size() || text[pos] < L'0' || text[pos] > L'9') return false;
        value = value * 10 + (text[pos] - L'0');
    }
    *out = value;
    return true;
}

bool ParseTime(std::wstring_view text, size_t& pos, Timestamp& t) {
    if (!Digits(text, pos, 2, &t.hour) || pos >= text.size() || text[pos] != L':') return false;
    ++pos;
    if (!Digits(text, pos, 2, &t.minute)) return false;
    if (pos < text.size() && text[pos] == L':') {
        ++pos;
        if (!Digits(text, pos, 2, &t.second)) return false;
        if (pos < text.size() && text[pos] == L'.') {
            ++pos;
            ULONG fraction = 0;
            int digits = 0;
            while (pos < text.size() && text[pos] >= L'0' && text[pos] <= L'9') {
                if (digits < 9) {
                    fraction = fraction * 10 + static_cast<ULONG>(text[pos] - L'0');
                    ++digits;
                }
                ++pos;
            }
            if (digits == 0) return false;
            for (; digits < 9; ++digits) fraction *= 10;
            t.fraction = fraction;
        }
    }
    return t.hour < 24 && t.minute < 60 && t.second < 60;
}

}  // namespace

bool IsValidTimestamp(const Timestamp& t) noexcept {
    return t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= DaysInMonth(t.year, t.month) && t.hour >= 0 &&
           t.hour < 24 && t.minute >= 0 && t.minute < 60 && t.second >= 0 && t.second < 60 &&
           t.fraction < 1000000000;
}

std::optional<Timestamp> ParseIsoDateTime(std::wstring_view text) {
    while (!text.empty() && (text.front() == L' ' || text.front() == L'\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == L' ' || text.back() == L'\t')) text.remove_suffix(1);
    if (!text.empty() && (text.back() == L'Z' || text.back() == L'z')) text.remove_suffix(1);
    Timestamp t;
    size_t pos = 0;
    if (text.size() >= 3 && text[2] == L':') {
        if (!ParseTime(text, pos, t) || pos != text.size()) return std::nullopt;
        return t;
    }
    if (!Digits(text, pos, 4, &t.year) || pos >= text.size() || text[pos++] != L'-') return std::nullopt;
    if (!Digits(text, pos, 2, &t.month) || pos >= text.size() || text[pos++] != L'-') return std::nullopt;
    if (!Digits(text, pos, 2, &t.day)) return std::nullopt;
    if (pos < text.size()) {
        if (text[pos] != L' ' && text[pos] != L'T' && text[pos] != L't') return std::nullopt;
        ++pos;
        if (!ParseTime(text, pos, t) || pos != text.size()) return std::nullopt;
    }
    if (!IsValidTimestamp(t)) return std::nullopt;
    return t;
}

namespace {

// Writes `value` (0 to 10^width - 1) in `width` digits with leading zeros.
wchar_t* PutDigits(wchar_t* at, unsigned value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        at[i] = static_cast<wchar_t>(L'0' + value % 10);
        value /= 10;
    }
    return at + width;
}

}  // namespace

std::wstring FormatIsoDateTime(const Timestamp& t) {
    // Written digit by digit (rows read from a database format a timestamp each): the same text
    // as "%04d-%02d-%02d %02d:%02d:%02d", which serves values outside those widths.
    const auto within = [](int value, int limit) { return value >= 0 && value <= limit; };
    const bool midnight = t.hour == 0 && t.minute == 0 && t.second == 0 && t.fraction == 0;
    if (within(t.year, 9999) && within(t.month, 99) && within(t.day, 99) && within(t.hour, 99) &&
        within(t.minute, 99) && within(t.second, 99) && t.fraction <= 999999999) {
        wchar_t buffer[32];
        wchar_t* at = PutDigits(buffer, static_cast<unsigned>(t.year), 4);
        *at++ = L'-';
        at = PutDigits(at, static_cast<unsigned>(t.month), 2);
        *at++ = L'-';
        at = PutDigits(at, static_cast<unsigned>(t.day), 2);
        if (!midnight) {
            *at++ = L' ';
            at = PutDigits(at, static_cast<unsigned>(t.hour), 2);
            *at++ = L':';
            at = PutDigits(at, static_cast<unsigned>(t.minute), 2);
            *at++ = L':';
            at = PutDigits(at, static_cast<unsigned>(t.second), 2);
            if (t.fraction) {
                *at++ = L'.';
                wchar_t* digits = at;
                at = PutDigits(at, static_cast<unsigned>(t.fraction), 9);
                while (at - digits > 3 && at[-1] == L'0') --at;
            }
        }
        return std::wstring(buffer, static_cast<size_t>(at - buffer));
    }
    wchar_t buffer[64];
    if (midnight) {
        swprintf(buffer, std::size(buffer), L"%04d-%02d-%02d", t.year, t.month, t.day);
        return buffer;
    }
    swprintf(buffer, std::size(buffer), L"%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute,
             t.second);
    std::wstring text = buffer;
    if (t.fraction) {
        swprintf(buffer, std::size(buffer), L".%09lu", static_cast<unsigned long>(t.fraction));
        std::wstring fraction = buffer;
        while (fraction.size() > 4 && fraction.back() == L'0') fraction.pop_back();
        text += fraction;
    }
    return text;
}

bool TimestampToOleDate(const Timestamp& t, DATE* out) noexcept {
    if (!IsValidTimestamp(t) || t.year < 100 || t.year > 9999) return false;
    const long long days = DaysFromCivil(t.year, static_cast<unsigned>(t.month), static_cast<unsigned>(t.day)) - kOleZeroDays;
    const double time = (t.hour * 3600.0 + t.minute * 60.0 + t.second + t.fraction / 1e9) / 86400.0;
    *out = days >= 0 ? static_cast<double>(days) + time : static_cast<double>(days) - time;
    return true;
}

bool OleDateToTimestamp(DATE value, Timestamp* out) noexcept {
    if (!std::isfinite(value) || value < -657434.0 || value >= 2958466.0) return false;
    double dayPart = value >= 0 ? std::floor(value) : std::ceil(value);
    double timePart = std::fabs(value - dayPart);
    long long days = static_cast<long long>(dayPart);
    long long ms = std::llround(timePart * 86400000.0);
    if (ms >= 86400000) {
        ms -= 86400000;
        days += value >= 0 ? 1 : -1;
    }
    Timestamp t;
    CivilFromDays(days + kOleZeroDays, &t.year, &t.month, &t.day);
    t.hour = static_cast<int>(ms / 3600000);
    t.minute = static_cast<int>(ms / 60000 % 60);
    t.second = static_cast<int>(ms / 1000 % 60);
    t.fraction = static_cast<ULONG>(ms % 1000) * 1000000u;
    *out = t;
    return t.year >= 100 && t.year <= 9999;
}

}  // namespace zel::provider
