#include "provider/values/ValueReader.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <string>

#include "provider/text/Utf.h"
#include "provider/values/DecimalText.h"

namespace zel::provider {

namespace {

bool IsIntegerType(DBTYPE type) {
    switch (type) {
    case DBTYPE_I1: case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_I8:
    case DBTYPE_UI1: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_UI8: return true;
    default: return false;
    }
}

int HexDigit(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

Scalar FromCellAsIs(const Cell& cell) {
    Scalar s;
    switch (cell.index()) {
    case 1: s.kind = ScalarKind::Integer; s.integer = std::get<std::int64_t>(cell); break;
    case 2: s.kind = ScalarKind::Real; s.real = std::get<double>(cell); break;
    case 3: s.kind = ScalarKind::Text; s.text = std::get<std::wstring>(cell); break;
    case 4: {
        const auto& bytes = std::get<Bytes>(cell);
        s.kind = ScalarKind::Binary;
        s.bytes = bytes.data();
        s.byteCount = bytes.size();
        break;
    }
    default: break;
    }
    return s;
}

}  // namespace

bool ParseInteger(std::wstring_view text, std::int64_t* out) {
    std::wstring t = Trim(text);
    if (t.empty()) return false;
    wchar_t* end = nullptr;
    errno = 0;
    long long value = std::wcstoll(t.c_str(), &end, 10);
    if (errno == ERANGE || end != t.c_str() + t.size()) return false;
    *out = value;
    return true;
}

bool ParseReal(std::wstring_view text, double* out) {
    std::wstring t = Trim(text);
    if (t.empty()) return false;
    // Only plain decimal notation: no hexadecimal floats, infinities or NaN.
    for (wchar_t c : t)
        if (!((c >= L'0' && c <= L'9') || c == L'.' || c == L'-' || c == L'+' || c == L'e' || c == L'E')) return false;
    wchar_t* end = nullptr;
    double value = std::wcstod(t.c_str(), &end);
    if (end != t.c_str() + t.size() || !std::isfinite(value)) return false;
    *out = value;
    return true;
}

bool ParseBoolean(std::wstring_view text, bool* out) {
    std::wstring t = Trim(text);
    if (EqualsNoCase(t, L"true") || EqualsNoCase(t, L"yes") || EqualsNoCase(t, L"on")) {
        *out = true;
        return true;
    }
    if (EqualsNoCase(t, L"false") || EqualsNoCase(t, L"no") || EqualsNoCase(t, L"off")) {
        *out = false;
        return true;
    }
    double number;
    if (ParseReal(t, &number)) {
        *out = number != 0;
        return true;
    }
    return false;
}

bool ParseGuid(std::wstring_view text, GUID* out) {
    std::wstring t = Trim(text);
    if (t.size() == 38 && t.front() == L'{' && t.back() == L'}') t = t.substr(1, 36);
    if (t.size() != 36) return false;
    BYTE digits[16];
    int n = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (t[i] != L'-') return false;
            continue;
        }
        int hi = HexDigit(t[i]), lo = HexDigit(t[++i]);
        if (hi < 0 || lo < 0) return false;
        digits[n++] = static_cast<BYTE>(hi * 16 + lo);
    }
    GUID g;
    g.Data1 = (static_cast<unsigned long>(digits[0]) << 24) | (digits[1] << 16) | (digits[2] << 8) | digits[3];
    g.Data2 = static_cast<unsigned short>((digits[4] << 8) | digits[5]);
    g.Data3 = static_cast<unsigned short>((digits[6] << 8) | digits[7]);
    for (int i = 0; i < 8; ++i) g.Data4[i] = digits[8 + i];
    *out = g;
    return true;
}

Scalar ReadValue(const Cell& cell, const ColumnType& column) {
    Scalar s = FromCellAsIs(cell);
    if (s.kind == ScalarKind::Null) return s;
    const DBTYPE type = column.type;

    if (IsIntegerType(type)) {
        if (s.kind == ScalarKind::Text) {
            std::int64_t i;
            double r;
            if (ParseInteger(s.text, &i)) {
                s.kind = ScalarKind::Integer;
                s.integer = i;
            } else if (ParseReal(s.text, &r)) {
                s.kind = ScalarKind::Real;
                s.real = r;
            }
        }
        return s;
    }
    switch (type) {
    case DBTYPE_R4:
    case DBTYPE_R8: {
        double r;
        if (s.kind == ScalarKind::Integer) {
            s.kind = ScalarKind::Real;
            s.real = static_cast<double>(s.integer);
        } else if (s.kind == ScalarKind::Text && ParseReal(s.text, &r)) {
            s.kind = ScalarKind::Real;
            s.real = r;
        }
        return s;
    }
    case DBTYPE_CY:
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC: {
        DECIMAL d{};
        bool ok = false;
        if (s.kind == ScalarKind::Integer) ok = DecimalFromInt64(s.integer, &d);
        else if (s.kind == ScalarKind::Real) ok = DecimalFromDouble(s.real, &d);
        else if (s.kind == ScalarKind::Text) ok = ParseDecimal(s.text, &d);
        if (!ok) return s;
        // A REAL approximates the decimal stored: round it to the column's scale. Exact values
        // keep their scale unless they have more digits than the column allows.
        int scale = type == DBTYPE_CY ? 4 : column.scale;
        if (scale <= 28 && (s.kind == ScalarKind::Real || d.scale > scale)) RescaleDecimal(&d, scale);
        s.kind = ScalarKind::Decimal;
        s.decimal = d;
        return s;
    }
    case DBTYPE_BOOL: {
        bool b;
        if (s.kind == ScalarKind::Integer) {
            s.boolean = s.integer != 0;
            s.kind = ScalarKind::Boolean;
        } else if (s.kind == ScalarKind::Real) {
            s.boolean = s.real != 0;
            s.kind = ScalarKind::Boolean;
        } else if (s.kind == ScalarKind::Text && ParseBoolean(s.text, &b)) {
            s.boolean = b;
            s.kind = ScalarKind::Boolean;
        }
        return s;
    }
    case DBTYPE_DATE:
    case DBTYPE_DBDATE:
    case DBTYPE_DBTIME:
    case DBTYPE_DBTIMESTAMP: {
        if (s.kind == ScalarKind::Text) {
            if (auto t = ParseIsoDateTime(s.text)) {
                s.kind = ScalarKind::DateTime;
                s.timestamp = *t;
            }
        } else if (s.kind == ScalarKind::Integer || s.kind == ScalarKind::Real) {
            double julian = s.kind == ScalarKind::Integer ? static_cast<double>(s.integer) : s.real;
            Timestamp t;
            if (OleDateToTimestamp(julian - kJulianDayOfOleZero, &t)) {
                s.kind = ScalarKind::DateTime;
                s.timestamp = t;
            }
        }
        return s;
    }
    case DBTYPE_GUID: {
        GUID g;
        if (s.kind == ScalarKind::Text && ParseGuid(s.text, &g)) {
            s.kind = ScalarKind::Guid;
            s.guid = g;
        } else if (s.kind == ScalarKind::Binary && s.byteCount == sizeof(GUID)) {
            s.kind = ScalarKind::Guid;
            memcpy(&s.guid, s.bytes, sizeof(GUID));
        }
        return s;
    }
    default: return s;
    }
}

}  // namespace zel::provider
