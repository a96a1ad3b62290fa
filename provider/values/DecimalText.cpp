#include "provider/values/DecimalText.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zel::provider {

namespace {

// The 96-bit unsigned mantissa of a DECIMAL as three 32-bit words, least significant first.
struct Mantissa {
    std::uint32_t w[3] = {0, 0, 0};

    bool IsZero() const { return !w[0] && !w[1] && !w[2]; }
    // this = this * 10 + digit; false on overflow (this unchanged then).
    bool MulAdd(std::uint32_t factor, std::uint32_t add) {
        Mantissa r;
        std::uint64_t carry = add;
        for (int i = 0; i < 3; ++i) {
            std::uint64_t v = static_cast<std::uint64_t>(w[i]) * factor + carry;
            r.w[i] = static_cast<std::uint32_t>(v);
            carry = v >> 32;
        }
        if (carry) return false;
        *this = r;
        return true;
    }
    // this /= divisor; returns the remainder.
    std::uint32_t Div(std::uint32_t divisor) {
        std::uint64_t rem = 0;
        for (int i = 2; i >= 0; --i) {
            std::uint64_t v = (rem << 32) | w[i];
            w[i] = static_cast<std::uint32_t>(v / divisor);
            rem = v % divisor;
        }
        return static_cast<std::uint32_t>(rem);
    }
    static Mantissa Of(const DECIMAL& d) {
        Mantissa m;
        m.w[0] = static_cast<std::uint32_t>(d.Lo64);
        m.w[1] = static_cast<std::uint32_t>(d.Lo64 >> 32);
        m.w[2] = d.Hi32;
        return m;
    }
    void Store(DECIMAL* d) const {
        d->Lo64 = static_cast<ULONGLONG>(w[0]) | (static_cast<ULONGLONG>(w[1]) << 32);
        d->Hi32 = w[2];
    }
};

DECIMAL Make(const Mantissa& m, int scale, bool negative) {
    DECIMAL d{};
    m.Store(&d);
    d.scale = static_cast<BYTE>(scale);
    d.sign = (negative && !m.IsZero()) ? DECIMAL_NEG : 0;
    return d;
}

// Divides by 10 once, remembering what was dropped for rounding.
void DropDigit(Mantissa& m, std::uint32_t& lastDropped, bool& stickyNonZero) {
    if (lastDropped) stickyNonZero = true;
    lastDropped = m.Div(10);
}

// Rounds after dropping digits: half to even.
bool RoundUp(Mantissa& m, std::uint32_t lastDropped, bool sticky) {
    bool up = lastDropped > 5 || (lastDropped == 5 && (sticky || (m.w[0] & 1)));
    return !up || m.MulAdd(1, 1);
}

}  // namespace

bool ParseDecimal(std::wstring_view text, DECIMAL* out) {
    size_t pos = 0;
    while (pos < text.size() && (text[pos] == L' ' || text[pos] == L'\t')) ++pos;
    bool negative = false;
    if (pos < text.size() && (text[pos] == L'-' || text[pos] == L'+')) negative = text[pos++] == L'-';
    Mantissa m;
    int scale = 0, digits = 0;
    bool seenPoint = false, full = false;
    std::uint32_t dropped = 0;
    bool sticky = false, firstDropped = false;
    int integerDigitsDropped = 0;
    for (; pos < text.size(); ++pos) {
        wchar_t c = text[pos];
        if (c == L'.' && !seenPoint) {
            seenPoint = true;
            continue;
        }
        if (c < L'0' || c > L'9') break;
        ++digits;
        std::uint32_t digit = static_cast<std::uint32_t>(c - L'0');
        if (!full) {
            Mantissa before = m;
            if (m.MulAdd(10, digit)) {
                if (seenPoint) ++scale;
                continue;
            }
            m = before;
            full = true;
        }
        // The mantissa is full: further fraction digits round, further integer digits scale.
        if (!seenPoint) ++integerDigitsDropped;
        if (!firstDropped) {
            firstDropped = true;
            dropped = digit;
        } else if (digit) {
            sticky = true;
        }
    }
    if (digits == 0) return false;
    int exponent = 0;
    if (pos < text.size() && (text[pos] == L'e' || text[pos] == L'E')) {
        ++pos;
        bool expNegative = false;
        if (pos < text.size() && (text[pos] == L'-' || text[pos] == L'+')) expNegative = text[pos++] == L'-';
        int expDigits = 0;
        while (pos < text.size() && text[pos] >= L'0' && text[pos] <= L'9') {
            if (exponent < 10000) exponent = exponent * 10 + (text[pos] - L'0');
            ++pos;
            ++expDigits;
        }
        if (!expDigits) return false;
        if (expNegative) exponent = -exponent;
    }
    while (pos < text.size() && (text[pos] == L' ' || text[pos] == L'\t')) ++pos;
    if (pos != text.size()) return false;
    if (!RoundUp(m, dropped, sticky)) return false;
    exponent += integerDigitsDropped;
    scale -= exponent;
    while (scale < 0) {
        if (!m.MulAdd(10, 0)) return false;
        ++scale;
    }
    dropped = 0;
    sticky = false;
    bool droppedAny = false;
    while (scale > 28) {
        DropDigit(m, dropped, sticky);
        droppedAny = true;
        --scale;
    }
    if (droppedAny && !RoundUp(m, dropped, sticky)) return false;
    *out = Make(m, scale, negative);
    return true;
}

std::wstring FormatDecimal(const DECIMAL& value) {
    Mantissa m = Mantissa::Of(value);
    std::wstring digits;
    do {
        digits.insert(digits.begin(), static_cast<wchar_t>(L'0' + m.Div(10)));
    } while (!m.IsZero());
    const size_t scale = value.scale;
    if (scale > 0) {
        if (digits.size() <= scale) digits.insert(0, scale - digits.size() + 1, L'0');
        digits.insert(digits.size() - scale, 1, L'.');
    }
    if (value.sign & DECIMAL_NEG) digits.insert(digits.begin(), L'-');
    return digits;
}

bool RescaleDecimal(DECIMAL* value, int scale) {
    if (scale < 0 || scale > 28) return false;
    Mantissa m = Mantissa::Of(*value);
    int current = value->scale;
    while (current < scale) {
        if (!m.MulAdd(10, 0)) return false;
        ++current;
    }
    std::uint32_t dropped = 0;
    bool sticky = false, any = false;
    while (current > scale) {
        DropDigit(m, dropped, sticky);
        any = true;
        --current;
    }
    if (any && !RoundUp(m, dropped, sticky)) return false;
    *value = Make(m, scale, (value->sign & DECIMAL_NEG) != 0);
    return true;
}

bool DecimalFromInt64(std::int64_t value, DECIMAL* out) noexcept {
    DECIMAL d{};
    std::uint64_t magnitude = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    d.Lo64 = magnitude;
    d.sign = value < 0 ? DECIMAL_NEG : 0;
    *out = d;
    return true;
}

bool DecimalToInt64(const DECIMAL& value, std::int64_t* out) {
    DECIMAL d = value;
    if (!RescaleDecimal(&d, 0)) return false;
    if (d.Hi32) return false;
    std::uint64_t magnitude = d.Lo64;
    if (d.sign & DECIMAL_NEG) {
        if (magnitude > 0x8000000000000000ull) return false;
        *out = static_cast<std::int64_t>(0 - magnitude);
    } else {
        if (magnitude > 0x7FFFFFFFFFFFFFFFull) return false;
        *out = static_cast<std::int64_t>(magnitude);
    }
    return true;
}

bool DecimalFromDouble(double value, DECIMAL* out) {
    if (!std::isfinite(value)) return false;
    wchar_t text[64];
    swprintf(text, std::size(text), L"%.15g", value);
    return ParseDecimal(text, out);
}

double DecimalToDouble(const DECIMAL& value) {
    std::wstring text = FormatDecimal(value);
    return std::wcstod(text.c_str(), nullptr);
}

bool DecimalToCurrency(const DECIMAL& value, CY* out) {
    DECIMAL d = value;
    std::int64_t scaled;
    if (!RescaleDecimal(&d, 4)) return false;
    d.scale = 0;
    if (!DecimalToInt64(d, &scaled)) return false;
    out->int64 = scaled;
    return true;
}

void DecimalFromCurrency(CY value, DECIMAL* out) noexcept {
    DecimalFromInt64(value.int64, out);
    out->scale = 4;
}

bool DecimalToNumeric(const DECIMAL& value, BYTE precision, BYTE scale, DB_NUMERIC* out) {
    if (precision < 1 || precision > 38 || scale > precision) return false;
    DECIMAL d = value;
    if (scale <= 28) {
        if (!RescaleDecimal(&d, scale)) return false;
    }
    if (DecimalDigits(d) > precision) return false;
    DB_NUMERIC n{};
    n.precision = precision;
    n.scale = static_cast<BYTE>(d.scale);
    n.sign = (d.sign & DECIMAL_NEG) ? 0 : 1;
    Mantissa m = Mantissa::Of(d);
    for (int i = 0; i < 3; ++i)
        for (int b = 0; b < 4; ++b) n.val[i * 4 + b] = static_cast<BYTE>(m.w[i] >> (8 * b));
    *out = n;
    return true;
}

bool NumericToDecimal(const DB_NUMERIC& value, DECIMAL* out) {
    for (int i = 12; i < 16; ++i)
        if (value.val[i]) return false;
    if (value.scale > 28) return false;
    Mantissa m;
    for (int i = 0; i < 3; ++i)
        for (int b = 0; b < 4; ++b) m.w[i] |= static_cast<std::uint32_t>(value.val[i * 4 + b]) << (8 * b);
    *out = Make(m, value.scale, value.sign == 0);
    return true;
}

int DecimalDigits(const DECIMAL& value) {
    Mantissa m = Mantissa::Of(value);
    int digits = 0;
    do {
        m.Div(10);
        ++digits;
    } while (!m.IsZero());
    return digits;
}

}  // namespace zel::provider
