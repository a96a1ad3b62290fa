#include "host/ValueText.h"

#include <oleauto.h>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace zel::zeldb {
namespace {

std::wstring Widen(const char* text, size_t length) { return std::wstring(text, text + length); }

template <typename Real>
std::wstring Shortest(Real value) {
    if (std::isnan(value)) return L"nan";
    if (std::isinf(value)) return value < 0 ? L"-inf" : L"inf";
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return Widen(buffer, static_cast<size_t>(result.ptr - buffer));
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void CivilFromDays(long long days, long long& year, unsigned& month, unsigned& day) {
    days += 719468;
    const long long era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = doy - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<long long>(yoe) + era * 400 + (month <= 2 ? 1 : 0);
}

// The decimal digits of a 96-bit unsigned number (high 32 bits, low 64 bits).
std::wstring Digits96(ULONG high, ULONGLONG low) {
    ULONG parts[3] = {static_cast<ULONG>(low), static_cast<ULONG>(low >> 32), high};  // little-endian words
    std::wstring digits;
    while (parts[0] || parts[1] || parts[2]) {
        ULONGLONG remainder = 0;
        for (int i = 2; i >= 0; --i) {
            const ULONGLONG current = (remainder << 32) | parts[i];
            parts[i] = static_cast<ULONG>(current / 10);
            remainder = current % 10;
        }
        digits.insert(digits.begin(), static_cast<wchar_t>(L'0' + remainder));
    }
    return digits.empty() ? L"0" : digits;
}

}  // namespace

std::wstring ShortestRealText(double value) { return Shortest(value); }
std::wstring ShortestRealText(float value) { return Shortest(value); }

std::wstring IsoDateText(DATE value) {
    // An OLE date counts days from 1899-12-30; for a negative date the fraction is still
    // the time of day after midnight (-1.25 is 1899-12-29 06:00).
    // Milliseconds: a DATE's double keeps better than a millisecond over its whole range
    // (year 100 to 9999), but not a microsecond.
    double whole = std::trunc(value);
    const double fraction = std::fabs(value - whole);
    long long millis = std::llround(fraction * 86400.0 * 1e3);
    constexpr long long kMillisPerDay = 86400LL * 1000;
    if (millis >= kMillisPerDay) {
        millis -= kMillisPerDay;
        whole += value < 0 ? -1 : 1;
    }
    long long year = 0;
    unsigned month = 0;
    unsigned day = 0;
    CivilFromDays(static_cast<long long>(whole) - 25569, year, month, day);  // 25569: 1899-12-30 to 1970-01-01
    const long long seconds = millis / 1000;
    const long long rest = millis % 1000;
    char buffer[64];
    int length = std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02u %02lld:%02lld:%02lld", year, month, day,
                               seconds / 3600, seconds / 60 % 60, seconds % 60);
    if (rest) {
        char fractionText[8];
        std::snprintf(fractionText, sizeof fractionText, "%03lld", rest);
        int digits = 3;
        while (digits > 0 && fractionText[digits - 1] == '0') --digits;
        length += std::snprintf(buffer + length, sizeof buffer - static_cast<size_t>(length), ".%.*s", digits,
                                fractionText);
    }
    return Widen(buffer, static_cast<size_t>(length));
}

std::wstring DecimalExactText(const DECIMAL& value) {
    std::wstring digits = Digits96(value.Hi32, value.Lo64);
    const size_t scale = value.scale;
    if (scale > 0) {
        if (digits.size() <= scale) digits.insert(0, scale - digits.size() + 1, L'0');
        digits.insert(digits.size() - scale, 1, L'.');
    }
    const bool zero = value.Hi32 == 0 && value.Lo64 == 0;
    return (value.sign & DECIMAL_NEG) && !zero ? L"-" + digits : digits;
}

std::wstring CurrencyExactText(CY value) {
    const bool negative = value.int64 < 0;
    const unsigned long long magnitude =
        negative ? 0ULL - static_cast<unsigned long long>(value.int64) : static_cast<unsigned long long>(value.int64);
    std::wstring text = std::to_wstring(magnitude / 10000);
    unsigned fraction = static_cast<unsigned>(magnitude % 10000);
    if (fraction) {
        wchar_t digits[8];
        std::swprintf(digits, 8, L"%04u", fraction);
        std::wstring decimals(digits);
        while (!decimals.empty() && decimals.back() == L'0') decimals.pop_back();
        text += L"." + decimals;
    }
    return negative ? L"-" + text : text;
}

Cell NaturalCell(const VARIANT& value) {
    switch (V_VT(&value)) {
        case VT_EMPTY:
        case VT_NULL: return Cell::Null();
        case VT_BSTR: return Cell::Text(V_BSTR(&value) ? std::wstring(V_BSTR(&value), SysStringLen(V_BSTR(&value)))
                                                       : std::wstring());
        case VT_BOOL: return Cell::Boolean(V_BOOL(&value) != VARIANT_FALSE);
        case VT_I1: return Cell::Number(std::to_wstring(static_cast<int>(V_I1(&value))));
        case VT_UI1: return Cell::Number(std::to_wstring(static_cast<unsigned>(V_UI1(&value))));
        case VT_I2: return Cell::Number(std::to_wstring(V_I2(&value)));
        case VT_UI2: return Cell::Number(std::to_wstring(V_UI2(&value)));
        case VT_I4: return Cell::Number(std::to_wstring(V_I4(&value)));
        case VT_UI4: return Cell::Number(std::to_wstring(V_UI4(&value)));
        case VT_INT: return Cell::Number(std::to_wstring(V_INT(&value)));
        case VT_UINT: return Cell::Number(std::to_wstring(V_UINT(&value)));
        case VT_I8: return Cell::Number(std::to_wstring(V_I8(&value)));
        case VT_UI8: return Cell::Number(std::to_wstring(V_UI8(&value)));
        case VT_ERROR: return Cell::Number(std::to_wstring(V_ERROR(&value)));
        case VT_R4: {
            const float real = V_R4(&value);
            return std::isfinite(real) ? Cell::Number(ShortestRealText(real)) : Cell::Text(ShortestRealText(real));
        }
        case VT_R8: {
            const double real = V_R8(&value);
            return std::isfinite(real) ? Cell::Number(ShortestRealText(real)) : Cell::Text(ShortestRealText(real));
        }
        case VT_CY: return Cell::Number(CurrencyExactText(V_CY(&value)));
        case VT_DECIMAL: return Cell::Number(DecimalExactText(V_DECIMAL(&value)));
        case VT_DATE: return Cell::Text(IsoDateText(V_DATE(&value)));
        case VT_ARRAY | VT_UI1: {
            LONG lower = 0;
            LONG upper = -1;
            SAFEARRAY* bytes = V_ARRAY(&value);
            if (bytes) {
                SafeArrayGetLBound(bytes, 1, &lower);
                SafeArrayGetUBound(bytes, 1, &upper);
            }
            return Cell::Blob(upper >= lower ? static_cast<std::uint64_t>(upper - lower + 1) : 0);
        }
        default: {
            // Anything else is shown as the platform converts it to text.
            VARIANT text;
            VariantInit(&text);
            if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(&value), 0, VT_BSTR))) return Cell::Null();
            Cell cell = Cell::Text(V_BSTR(&text) ? V_BSTR(&text) : L"");
            VariantClear(&text);
            return cell;
        }
    }
}

}  // namespace zel::zeldb
