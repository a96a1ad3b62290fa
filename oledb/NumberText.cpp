#include "oledb/NumberText.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace zel {
namespace {

// Digits of an unsigned value written backwards from the end of a buffer; returns the first.
wchar_t* WriteDigits(wchar_t* end, unsigned long long value) {
    do {
        *--end = static_cast<wchar_t>(L'0' + value % 10);
        value /= 10;
    } while (value != 0);
    return end;
}

// The parts of a finite double: sign bit, and the magnitude as mantissa * 2^exponent with
// the mantissa odd (or 0 for a zero).
struct BinaryParts {
    bool negative;
    uint64_t mantissa;
    int exponent;
};

BinaryParts Split(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    BinaryParts parts{(bits >> 63) != 0, bits & ((uint64_t{1} << 52) - 1), 0};
    const int biased = static_cast<int>((bits >> 52) & 0x7FF);
    if (biased == 0) {
        parts.exponent = -1074;  // subnormal (or zero)
    } else {
        parts.mantissa |= uint64_t{1} << 52;
        parts.exponent = biased - 1075;
    }
    if (parts.mantissa != 0) {
        while ((parts.mantissa & 1) == 0) {
            parts.mantissa >>= 1;
            ++parts.exponent;
        }
    }
    return parts;
}

// True when the magnitude times 10^scale lies exactly halfway between two integers and the
// lower one is even: the one case where the digit generator used here (ties to even) rounds
// down and the platform formatter (ties away from zero) rounds up.
bool TieRoundedDown(const BinaryParts& parts, int scale) {
    if (parts.mantissa == 0) return false;
    // Twice the scaled magnitude, m * 2^(e+1) * 10^s, is an odd integer exactly when
    // e + s = -1 and, for a negative s, 5^-s divides the odd mantissa; it is then 2k + 1 with
    // k the lower integer, even when the odd number is 1 modulo 4.
    if (parts.exponent + scale != -1) return false;
    if (scale >= 0) return parts.mantissa % 4 == 1;  // m * 5^s, and 5^s is 1 modulo 4
    if (-scale > 22) return false;                    // 5^23 exceeds every 53-bit mantissa
    uint64_t power = 1;
    for (int i = 0; i < -scale; ++i) power *= 5;
    return parts.mantissa % power == 0 && parts.mantissa / power % 4 == 1;
}

// NaN and infinity as the platform's formatter writes them; for "%f" the text is padded with
// zeros to the six decimals.
std::wstring SpecialText(double value, bool negative, bool fixed) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const bool infinite = (bits & ((uint64_t{1} << 52) - 1)) == 0;
    std::wstring text = negative ? L"-1.#" : L"1.#";
    if (infinite) text += fixed ? L"INF00" : L"INF";
    else if (negative) text += fixed ? L"IND00" : L"IND";
    else text += fixed ? L"QNAN0" : L"QNAN";
    return text;
}

bool IsSpecial(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return ((bits >> 52) & 0x7FF) == 0x7FF;
}

}  // namespace

std::wstring SignedText(long long value) {
    wchar_t buffer[24];
    wchar_t* end = buffer + 24;
    const unsigned long long magnitude =
        value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    wchar_t* first = WriteDigits(end, magnitude);
    if (value < 0) *--first = L'-';
    return std::wstring(first, end);
}

std::wstring UnsignedText(unsigned long long value) {
    wchar_t buffer[24];
    wchar_t* end = buffer + 24;
    wchar_t* first = WriteDigits(end, value);
    return std::wstring(first, end);
}

void RealTextTo(double value, std::wstring& out) {
    const BinaryParts parts = Split(value);
    if (IsSpecial(value)) {
        out = SpecialText(value, parts.negative, false);
        return;
    }
    // At most "-d.ddddde+ddd" or "-0.0000dddddd": 14 characters.
    wchar_t text[16];
    int n = 0;
    if (parts.negative) text[n++] = L'-';
    if (parts.mantissa == 0) {
        text[n++] = L'0';
        out.assign(text, static_cast<size_t>(n));
        return;
    }

    // Six significant digits of the magnitude, d.ddddde+X, correctly rounded (ties to even).
    char scientific[32];
    const double magnitude = parts.negative ? -value : value;
    const auto written = std::to_chars(scientific, scientific + sizeof scientific, magnitude,
                                       std::chars_format::scientific, 5);
    char digits[6] = {scientific[0], scientific[2], scientific[3], scientific[4], scientific[5], scientific[6]};
    int exponent = 0;
    std::from_chars(scientific + 9, written.ptr, exponent);  // after "d.ddddde" and the sign
    if (scientific[8] == '-') exponent = -exponent;
    // An exact tie rounded down to an even digit goes up instead; an even digit never carries,
    // so the exponent stays.
    if (TieRoundedDown(parts, 5 - exponent)) ++digits[5];

    int kept = 6;
    while (kept > 1 && digits[kept - 1] == '0') --kept;
    if (exponent < -4 || exponent >= 6) {
        text[n++] = static_cast<wchar_t>(digits[0]);
        if (kept > 1) {
            text[n++] = L'.';
            for (int i = 1; i < kept; ++i) text[n++] = static_cast<wchar_t>(digits[i]);
        }
        text[n++] = L'e';
        text[n++] = exponent < 0 ? L'-' : L'+';
        const int absolute = exponent < 0 ? -exponent : exponent;
        text[n++] = static_cast<wchar_t>(L'0' + absolute / 100);
        text[n++] = static_cast<wchar_t>(L'0' + absolute / 10 % 10);
        text[n++] = static_cast<wchar_t>(L'0' + absolute % 10);
    } else if (exponent < 0) {
        text[n++] = L'0';
        text[n++] = L'.';
        for (int i = exponent + 1; i < 0; ++i) text[n++] = L'0';
        for (int i = 0; i < kept; ++i) text[n++] = static_cast<wchar_t>(digits[i]);
    } else {
        for (int i = 0; i <= exponent; ++i) text[n++] = static_cast<wchar_t>(digits[i]);
        if (kept > exponent + 1) {
            text[n++] = L'.';
            for (int i = exponent + 1; i < kept; ++i) text[n++] = static_cast<wchar_t>(digits[i]);
        }
    }
    out.assign(text, static_cast<size_t>(n));
}

std::wstring RealText(double value) {
    std::wstring text;
    RealTextTo(value, text);
    return text;
}

std::wstring FixedRealText(double value) {
    const BinaryParts parts = Split(value);
    if (IsSpecial(value)) return SpecialText(value, parts.negative, true);
    const double magnitude = parts.negative ? -value : value;
    // Below half a millionth every decimal is 0 (the double nearest 5e-7 lies below it, so no
    // tie can round up): the text of zeros, subnormals and a BOOL read as a double.
    if (magnitude <= 5e-7) return parts.negative ? L"-0.000000" : L"0.000000";
    // Up to 309 integer digits, the point and six decimals.
    char fixed[330];
    const auto written = std::to_chars(fixed, fixed + sizeof fixed, magnitude, std::chars_format::fixed, 6);
    char* last = written.ptr - 1;
    if (TieRoundedDown(parts, 6)) ++*last;
    std::wstring text;
    text.reserve(static_cast<size_t>(written.ptr - fixed) + 1);
    if (parts.negative) text += L'-';
    for (const char* c = fixed; c != written.ptr; ++c) text += static_cast<wchar_t>(*c);
    return text;
}

std::wstring PointerText(const void* value) {
    static const wchar_t kHex[] = L"0123456789ABCDEF";
    uintptr_t bits = reinterpret_cast<uintptr_t>(value);
    std::wstring text(2 * sizeof(void*), L'0');
    for (size_t i = text.size(); i-- > 0; bits >>= 4) text[i] = kHex[bits & 15];
    return text;
}

}  // namespace zel
