#include "provider/values/DataConversion.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include "common/ComError.h"
#include "provider/text/Utf.h"
#include "provider/values/DecimalText.h"

namespace zel::provider {

namespace {

enum class Outcome { Ok, Overflow, CantConvert };

DBSTATUS StatusOf(Outcome outcome) {
    switch (outcome) {
    case Outcome::Ok: return DBSTATUS_S_OK;
    case Outcome::Overflow: return DBSTATUS_E_DATAOVERFLOW;
    default: return DBSTATUS_E_CANTCONVERTVALUE;
    }
}

bool IsNumericType(DBTYPE t) {
    switch (t) {
    case DBTYPE_I1: case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_I8:
    case DBTYPE_UI1: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_UI8:
    case DBTYPE_R4: case DBTYPE_R8: case DBTYPE_CY: case DBTYPE_DECIMAL: case DBTYPE_NUMERIC:
    case DBTYPE_VARNUMERIC: case DBTYPE_BOOL: return true;
    default: return false;
    }
}

bool IsTextType(DBTYPE t) { return t == DBTYPE_STR || t == DBTYPE_WSTR || t == DBTYPE_BSTR; }

bool IsDateType(DBTYPE t) {
    return t == DBTYPE_DATE || t == DBTYPE_DBDATE || t == DBTYPE_DBTIME || t == DBTYPE_DBTIMESTAMP ||
           t == DBTYPE_FILETIME;
}

// Rounds half to even and checks the result fits an int64.
Outcome RoundReal(double value, std::int64_t* out) {
    if (!std::isfinite(value)) return Outcome::Overflow;
    double rounded = std::nearbyint(value);
    if (rounded < -9223372036854775808.0 || rounded >= 9223372036854775808.0) return Outcome::Overflow;
    *out = static_cast<std::int64_t>(rounded);
    return Outcome::Ok;
}

Outcome ToInt64(const Scalar& v, std::int64_t* out) {
    switch (v.kind) {
    case ScalarKind::Integer: *out = v.integer; return Outcome::Ok;
    case ScalarKind::Real: return RoundReal(v.real, out);
    case ScalarKind::Decimal: return DecimalToInt64(v.decimal, out) ? Outcome::Ok : Outcome::Overflow;
    case ScalarKind::Boolean: *out = v.boolean ? -1 : 0; return Outcome::Ok;
    case ScalarKind::DateTime: {
        DATE d;
        if (!TimestampToOleDate(v.timestamp, &d)) return Outcome::Overflow;
        return RoundReal(d, out);
    }
    case ScalarKind::Text: {
        double r;
        if (ParseInteger(v.text, out)) return Outcome::Ok;
        if (ParseReal(v.text, &r)) return RoundReal(r, out);
        return Outcome::CantConvert;
    }
    default: return Outcome::CantConvert;
    }
}

Outcome ToDouble(const Scalar& v, double* out) {
    switch (v.kind) {
    case ScalarKind::Integer: *out = static_cast<double>(v.integer); return Outcome::Ok;
    case ScalarKind::Real: *out = v.real; return Outcome::Ok;
    case ScalarKind::Decimal: *out = DecimalToDouble(v.decimal); return Outcome::Ok;
    case ScalarKind::Boolean: *out = v.boolean ? -1.0 : 0.0; return Outcome::Ok;
    case ScalarKind::DateTime: return TimestampToOleDate(v.timestamp, out) ? Outcome::Ok : Outcome::Overflow;
    case ScalarKind::Text: return ParseReal(v.text, out) ? Outcome::Ok : Outcome::CantConvert;
    default: return Outcome::CantConvert;
    }
}

Outcome ToDecimal(const Scalar& v, DECIMAL* out) {
    switch (v.kind) {
    case ScalarKind::Integer: DecimalFromInt64(v.integer, out); return Outcome::Ok;
    case ScalarKind::Real: return DecimalFromDouble(v.real, out) ? Outcome::Ok : Outcome::Overflow;
    case ScalarKind::Decimal: *out = v.decimal; return Outcome::Ok;
    case ScalarKind::Boolean: DecimalFromInt64(v.boolean ? -1 : 0, out); return Outcome::Ok;
    case ScalarKind::DateTime: {
        DATE d;
        if (!TimestampToOleDate(v.timestamp, &d)) return Outcome::Overflow;
        return DecimalFromDouble(d, out) ? Outcome::Ok : Outcome::Overflow;
    }
    case ScalarKind::Text: {
        if (ParseDecimal(v.text, out)) return Outcome::Ok;
        double r;
        return ParseReal(v.text, &r) ? Outcome::Overflow : Outcome::CantConvert;
    }
    default: return Outcome::CantConvert;
    }
}

Outcome ToTimestamp(const Scalar& v, Timestamp* out) {
    switch (v.kind) {
    case ScalarKind::DateTime: *out = v.timestamp; return Outcome::Ok;
    case ScalarKind::Text: {
        auto t = ParseIsoDateTime(v.text);
        if (!t) return Outcome::CantConvert;
        *out = *t;
        return Outcome::Ok;
    }
    case ScalarKind::Integer:
    case ScalarKind::Real:
    case ScalarKind::Decimal: {
        double d;
        ToDouble(v, &d);
        return OleDateToTimestamp(d, out) ? Outcome::Ok : Outcome::Overflow;
    }
    default: return Outcome::CantConvert;
    }
}

Outcome ToBoolean(const Scalar& v, bool* out) {
    switch (v.kind) {
    case ScalarKind::Boolean: *out = v.boolean; return Outcome::Ok;
    case ScalarKind::Integer: *out = v.integer != 0; return Outcome::Ok;
    case ScalarKind::Real: *out = v.real != 0; return Outcome::Ok;
    case ScalarKind::Decimal: *out = !(v.decimal.Lo64 == 0 && v.decimal.Hi32 == 0); return Outcome::Ok;
    case ScalarKind::Text: return ParseBoolean(v.text, out) ? Outcome::Ok : Outcome::CantConvert;
    default: return Outcome::CantConvert;
    }
}

Outcome ToGuid(const Scalar& v, GUID* out) {
    switch (v.kind) {
    case ScalarKind::Guid: *out = v.guid; return Outcome::Ok;
    case ScalarKind::Text: return ParseGuid(v.text, out) ? Outcome::Ok : Outcome::CantConvert;
    case ScalarKind::Binary:
        if (v.byteCount != sizeof(GUID)) return Outcome::CantConvert;
        memcpy(out, v.bytes, sizeof(GUID));
        return Outcome::Ok;
    default: return Outcome::CantConvert;
    }
}

template <typename T>
Outcome ToIntegerType(const Scalar& v, T* out) {
    std::int64_t i;
    Outcome o = ToInt64(v, &i);
    if (o != Outcome::Ok) return o;
    if constexpr (std::is_unsigned_v<T>) {
        if (i < 0 || static_cast<std::uint64_t>(i) > std::numeric_limits<T>::max()) return Outcome::Overflow;
    } else {
        if (i < std::numeric_limits<T>::min() || i > std::numeric_limits<T>::max()) return Outcome::Overflow;
    }
    *out = static_cast<T>(i);
    return Outcome::Ok;
}

std::wstring RealText(double value, bool single) {
    char buffer[64];
    auto result = single ? std::to_chars(buffer, buffer + sizeof(buffer), static_cast<float>(value))
                         : std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::wstring(buffer, result.ptr);
}

std::wstring HexText(const BYTE* bytes, size_t count) {
    static const wchar_t digits[] = L"0123456789ABCDEF";
    std::wstring text;
    text.reserve(count * 2);
    for (size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::wstring GuidText(const GUID& g) {
    wchar_t buffer[40];
    StringFromGUID2(g, buffer, static_cast<int>(std::size(buffer)));
    return buffer;
}

// The bytes delivered for BYTES bindings and storage objects.
Bytes ValueAsBytes(const Scalar& v, const ColumnType& column) {
    if (v.kind == ScalarKind::Binary) return Bytes(v.bytes, v.bytes + v.byteCount);
    if (v.kind == ScalarKind::Guid) {
        auto p = reinterpret_cast<const BYTE*>(&v.guid);
        return Bytes(p, p + sizeof(GUID));
    }
    std::wstring text = ValueAsText(v, column);
    if (column.type == DBTYPE_BYTES) {
        std::string utf8 = ToUtf8(text);  // text stored in a binary column, as SQLite casts it
        return Bytes(utf8.begin(), utf8.end());
    }
    auto p = reinterpret_cast<const BYTE*>(text.data());
    return Bytes(p, p + text.size() * sizeof(wchar_t));
}

// The text form of a value, read where it lies when the value is text already (a cell of the
// row); other values are formatted into `storage`. Saves a copy of every text field read.
std::wstring_view TextView(const Scalar& v, const ColumnType& column, std::wstring& storage) {
    if (v.kind == ScalarKind::Text) return v.text;
    storage = ValueAsText(v, column);
    return storage;
}

// Likewise for the bytes of BYTES bindings: a binary value is read where it lies.
std::span<const BYTE> BytesView(const Scalar& v, const ColumnType& column, Bytes& storage) {
    if (v.kind == ScalarKind::Binary) return {v.bytes, v.byteCount};
    storage = ValueAsBytes(v, column);
    return storage;
}

// Copies variable-length data in place: at most maxLength bytes including `terminator` bytes
// of zeros; returns the status (S_TRUNCATED when the data did not fit).
DBSTATUS CopyInPlace(const void* data, size_t bytes, size_t terminator, size_t unit, DBLENGTH maxLength, void* out) {
    if (!out) return DBSTATUS_S_OK;
    size_t room = maxLength > terminator ? static_cast<size_t>(maxLength) - terminator : 0;
    room -= room % unit;
    size_t n = bytes < room ? bytes : room;
    if (maxLength >= terminator) {
        if (n) memcpy(out, data, n);
        memset(static_cast<BYTE*>(out) + n, 0, terminator);
    } else if (maxLength > 0) {
        memset(out, 0, static_cast<size_t>(maxLength));
    }
    return n < bytes || maxLength < terminator ? DBSTATUS_S_TRUNCATED : DBSTATUS_S_OK;
}

// Copies variable-length data into a new CoTaskMem block handed to the consumer (BYREF).
void CopyByReference(const void* data, size_t bytes, size_t terminator, void* out) {
    if (!out) return;
    auto block = static_cast<BYTE*>(CoTaskMemAlloc(bytes + terminator + (terminator ? 0 : 1)));
    if (!block) throw std::bad_alloc();
    if (bytes) memcpy(block, data, bytes);
    memset(block + bytes, 0, terminator);
    *static_cast<void**>(out) = block;
}

template <typename T>
ConversionResult Fixed(Outcome outcome, const T& value, void* out) {
    if (outcome != Outcome::Ok) return {StatusOf(outcome), 0};
    if (out) memcpy(out, &value, sizeof(T));
    return {DBSTATUS_S_OK, sizeof(T)};
}

VARTYPE NaturalVariantType(DBTYPE type) {
    switch (type) {
    case DBTYPE_I1: return VT_I1;
    case DBTYPE_I2: return VT_I2;
    case DBTYPE_I4: return VT_I4;
    case DBTYPE_I8: return VT_I8;
    case DBTYPE_UI1: return VT_UI1;
    case DBTYPE_UI2: return VT_UI2;
    case DBTYPE_UI4: return VT_UI4;
    case DBTYPE_UI8: return VT_UI8;
    case DBTYPE_R4: return VT_R4;
    case DBTYPE_R8: return VT_R8;
    case DBTYPE_CY: return VT_CY;
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC: return VT_DECIMAL;
    case DBTYPE_BOOL: return VT_BOOL;
    case DBTYPE_DATE:
    case DBTYPE_DBDATE:
    case DBTYPE_DBTIME:
    case DBTYPE_DBTIMESTAMP: return VT_DATE;
    case DBTYPE_BYTES: return VT_ARRAY | VT_UI1;
    default: return VT_BSTR;
    }
}

VARTYPE VariantTypeOfScalar(const Scalar& v) {
    switch (v.kind) {
    case ScalarKind::Integer: return VT_I8;
    case ScalarKind::Real: return VT_R8;
    case ScalarKind::Decimal: return VT_DECIMAL;
    case ScalarKind::Boolean: return VT_BOOL;
    case ScalarKind::DateTime: return VT_DATE;
    case ScalarKind::Binary: return VT_ARRAY | VT_UI1;
    default: return VT_BSTR;
    }
}

// Builds a VARIANT of type `vt`; false when the value does not convert to it.
bool MakeVariant(const Scalar& v, const ColumnType& column, VARTYPE vt, VARIANT* out) {
    VARIANT r;
    VariantInit(&r);
    Outcome o = Outcome::Ok;
    switch (vt) {
    case VT_I1: o = ToIntegerType(v, reinterpret_cast<signed char*>(&V_I1(&r))); break;
    case VT_I2: o = ToIntegerType(v, &V_I2(&r)); break;
    case VT_I4: { LONG x = 0; o = ToIntegerType(v, &x); V_I4(&r) = x; break; }
    case VT_I8: o = ToIntegerType(v, &V_I8(&r)); break;
    case VT_UI1: o = ToIntegerType(v, &V_UI1(&r)); break;
    case VT_UI2: o = ToIntegerType(v, &V_UI2(&r)); break;
    case VT_UI4: { ULONG x = 0; o = ToIntegerType(v, &x); V_UI4(&r) = x; break; }
    case VT_UI8: o = ToIntegerType(v, &V_UI8(&r)); break;
    case VT_R4: {
        double d = 0;
        o = ToDouble(v, &d);
        if (o == Outcome::Ok && std::fabs(d) > FLT_MAX) o = Outcome::Overflow;
        V_R4(&r) = static_cast<float>(d);
        break;
    }
    case VT_R8: o = ToDouble(v, &V_R8(&r)); break;
    case VT_CY: {
        DECIMAL d{};
        o = ToDecimal(v, &d);
        if (o == Outcome::Ok && !DecimalToCurrency(d, &V_CY(&r))) o = Outcome::Overflow;
        break;
    }
    case VT_DECIMAL: {
        DECIMAL d{};
        o = ToDecimal(v, &d);
        V_DECIMAL(&r) = d;  // sets the whole 16 bytes; the type is set below
        break;
    }
    case VT_BOOL: {
        bool b = false;
        o = ToBoolean(v, &b);
        V_BOOL(&r) = b ? VARIANT_TRUE : VARIANT_FALSE;
        break;
    }
    case VT_DATE: {
        Timestamp t;
        o = ToTimestamp(v, &t);
        if (o == Outcome::Ok && !TimestampToOleDate(t, &V_DATE(&r))) o = Outcome::Overflow;
        break;
    }
    case VT_ARRAY | VT_UI1: {
        if (v.kind != ScalarKind::Binary && column.type != DBTYPE_BYTES) return false;
        Bytes bytes = ValueAsBytes(v, column);
        SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
        if (!array) throw std::bad_alloc();
        if (!bytes.empty()) memcpy(array->pvData, bytes.data(), bytes.size());
        V_ARRAY(&r) = array;
        break;
    }
    default: {
        std::wstring storage;
        const std::wstring_view text = TextView(v, column, storage);
        BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
        if (!b) throw std::bad_alloc();
        V_BSTR(&r) = b;
        vt = VT_BSTR;
        break;
    }
    }
    if (o != Outcome::Ok) return false;
    V_VT(&r) = vt;
    *out = r;
    return true;
}

}  // namespace

std::wstring ValueAsText(const Scalar& v, const ColumnType& column) {
    switch (v.kind) {
    case ScalarKind::Null: return {};
    case ScalarKind::Integer: return std::to_wstring(v.integer);
    case ScalarKind::Real: return RealText(v.real, column.type == DBTYPE_R4);
    case ScalarKind::Decimal: {
        std::wstring text = FormatDecimal(v.decimal);
        if (column.type == DBTYPE_CY && text.find(L'.') != std::wstring::npos) {
            while (text.back() == L'0') text.pop_back();
            if (text.back() == L'.') text.pop_back();
        }
        return text;
    }
    case ScalarKind::Boolean: return v.boolean ? L"True" : L"False";
    case ScalarKind::DateTime: return FormatIsoDateTime(v.timestamp);
    case ScalarKind::Guid: return GuidText(v.guid);
    case ScalarKind::Text: return std::wstring(v.text);
    case ScalarKind::Binary: return HexText(v.bytes, v.byteCount);
    }
    return {};
}

bool ValidConvertFlags(DBTYPE from, DBCONVERTFLAGS flags, bool takesParameters) noexcept {
    constexpr DBCONVERTFLAGS known = static_cast<DBCONVERTFLAGS>(DBCONVERTFLAGS_PARAMETER) |
                                     static_cast<DBCONVERTFLAGS>(DBCONVERTFLAGS_ISLONG) |
                                     static_cast<DBCONVERTFLAGS>(DBCONVERTFLAGS_ISFIXEDLENGTH) |
                                     static_cast<DBCONVERTFLAGS>(DBCONVERTFLAGS_FROMVARIANT);
    if (flags & ~known) return false;
    if ((flags & DBCONVERTFLAGS_PARAMETER) && !takesParameters) return false;
    return !(flags & DBCONVERTFLAGS_ISLONG) || from == DBTYPE_STR || from == DBTYPE_WSTR || from == DBTYPE_BYTES;
}

bool CanConvert(DBTYPE from, DBTYPE to) noexcept {
    if (from & DBTYPE_BYREF) return false;
    if (to & DBTYPE_BYREF) {
        to &= static_cast<DBTYPE>(~DBTYPE_BYREF);
        if (to != DBTYPE_STR && to != DBTYPE_WSTR && to != DBTYPE_BYTES) return false;
    }
    if (to & (DBTYPE_ARRAY | DBTYPE_VECTOR | DBTYPE_RESERVED)) return false;
    auto known = [](DBTYPE t) {
        return IsNumericType(t) || IsTextType(t) || IsDateType(t) || t == DBTYPE_GUID || t == DBTYPE_BYTES ||
               t == DBTYPE_VARIANT || t == DBTYPE_IUNKNOWN;
    };
    if (!known(from) || !known(to) || to == DBTYPE_VARNUMERIC || to == DBTYPE_FILETIME) return false;
    if (from == to || to == DBTYPE_VARIANT || from == DBTYPE_VARIANT) return true;
    if (to == DBTYPE_IUNKNOWN) return IsTextType(from) || from == DBTYPE_BYTES;
    if (from == DBTYPE_IUNKNOWN) return IsTextType(to) || to == DBTYPE_BYTES;
    if (IsTextType(from)) return true;                 // text parses into anything
    if (IsTextType(to)) return true;                   // everything has a text form
    if (to == DBTYPE_BYTES) return from == DBTYPE_GUID;
    if (from == DBTYPE_BYTES) return to == DBTYPE_GUID;
    if (from == DBTYPE_GUID || to == DBTYPE_GUID) return false;
    if (IsNumericType(from)) return IsNumericType(to) || to == DBTYPE_DATE || to == DBTYPE_DBTIMESTAMP ||
                                    to == DBTYPE_DBDATE || to == DBTYPE_DBTIME;
    if (from == DBTYPE_DATE) return IsNumericType(to) || IsDateType(to);
    if (IsDateType(from)) return IsDateType(to);
    return false;
}

namespace {

// Numbers and booleans: fixed-size values, range-checked.
ConversionResult ConvertToNumber(const Scalar& v, DBTYPE type, const BindingTarget& target, void* out) {
    switch (type) {
    case DBTYPE_I1: { signed char x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_I2: { SHORT x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_I4: { LONG x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_I8: { LONGLONG x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_UI1: { BYTE x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_UI2: { USHORT x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_UI4: { ULONG x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_UI8: { ULONGLONG x = 0; Outcome o = ToIntegerType(v, &x); return Fixed(o, x, out); }
    case DBTYPE_R4: {
        double d = 0;
        Outcome o = ToDouble(v, &d);
        if (o == Outcome::Ok && std::fabs(d) > FLT_MAX) o = Outcome::Overflow;
        float f = static_cast<float>(d);
        return Fixed(o, f, out);
    }
    case DBTYPE_R8: { double d = 0; Outcome o = ToDouble(v, &d); return Fixed(o, d, out); }
    case DBTYPE_CY: {
        DECIMAL d{};
        CY cy{};
        Outcome o = ToDecimal(v, &d);
        if (o == Outcome::Ok && !DecimalToCurrency(d, &cy)) o = Outcome::Overflow;
        return Fixed(o, cy, out);
    }
    case DBTYPE_DECIMAL: { DECIMAL d{}; Outcome o = ToDecimal(v, &d); return Fixed(o, d, out); }
    case DBTYPE_NUMERIC: {
        DECIMAL d{};
        DB_NUMERIC n{};
        Outcome o = ToDecimal(v, &d);
        if (o == Outcome::Ok) {
            BYTE precision = target.precision, scale = target.scale;
            if (precision == 0) {  // no precision bound: the value's own
                scale = d.scale;
                precision = static_cast<BYTE>(std::max(DecimalDigits(d), static_cast<int>(scale) + 1));
                if (precision > 38) precision = 38;
            }
            if (!DecimalToNumeric(d, precision, scale, &n)) o = Outcome::Overflow;
        }
        return Fixed(o, n, out);
    }
    case DBTYPE_BOOL: {
        bool b = false;
        Outcome o = ToBoolean(v, &b);
        VARIANT_BOOL x = b ? VARIANT_TRUE : VARIANT_FALSE;
        return Fixed(o, x, out);
    }
    default: return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    }
}

// Dates, times and GUIDs: fixed-size values parsed from their stored form.
ConversionResult ConvertToDateOrGuid(const Scalar& v, DBTYPE type, void* out) {
    switch (type) {
    case DBTYPE_DATE: {
        Timestamp t;
        DATE d = 0;
        Outcome o = ToTimestamp(v, &t);
        if (o == Outcome::Ok && !TimestampToOleDate(t, &d)) o = Outcome::Overflow;
        return Fixed(o, d, out);
    }
    case DBTYPE_DBTIMESTAMP: {
        Timestamp t;
        Outcome o = ToTimestamp(v, &t);
        DBTIMESTAMP x{static_cast<SHORT>(t.year), static_cast<USHORT>(t.month), static_cast<USHORT>(t.day),
                      static_cast<USHORT>(t.hour), static_cast<USHORT>(t.minute), static_cast<USHORT>(t.second),
                      t.fraction};
        return Fixed(o, x, out);
    }
    case DBTYPE_DBDATE: {
        Timestamp t;
        Outcome o = ToTimestamp(v, &t);
        DBDATE x{static_cast<SHORT>(t.year), static_cast<USHORT>(t.month), static_cast<USHORT>(t.day)};
        return Fixed(o, x, out);
    }
    case DBTYPE_DBTIME: {
        Timestamp t;
        Outcome o = ToTimestamp(v, &t);
        DBTIME x{static_cast<USHORT>(t.hour), static_cast<USHORT>(t.minute), static_cast<USHORT>(t.second)};
        return Fixed(o, x, out);
    }
    case DBTYPE_GUID: { GUID g{}; Outcome o = ToGuid(v, &g); return Fixed(o, g, out); }
    default: return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    }
}

// Text in place, by reference or as a BSTR.
ConversionResult ConvertToText(const Scalar& v, const ColumnType& column, DBTYPE type, bool byRef,
                               const BindingTarget& target, void* out) {
    switch (type) {
    case DBTYPE_WSTR: {
        std::wstring storage;
        const std::wstring_view text = TextView(v, column, storage);
        size_t bytes = text.size() * sizeof(wchar_t);
        if (byRef) {
            CopyByReference(text.data(), bytes, sizeof(wchar_t), out);
            return {DBSTATUS_S_OK, bytes};
        }
        return {CopyInPlace(text.data(), bytes, sizeof(wchar_t), sizeof(wchar_t), target.maxLength, out), bytes};
    }
    case DBTYPE_STR: {
        std::wstring storage;
        const std::wstring_view text = TextView(v, column, storage);
        std::string ansi;
        if (!text.empty()) {
            int size = WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
            ansi.resize(static_cast<size_t>(size));
            WideCharToMultiByte(CP_ACP, 0, text.data(), static_cast<int>(text.size()), ansi.data(), size, nullptr, nullptr);
        }
        if (byRef) {
            CopyByReference(ansi.data(), ansi.size(), 1, out);
            return {DBSTATUS_S_OK, ansi.size()};
        }
        return {CopyInPlace(ansi.data(), ansi.size(), 1, 1, target.maxLength, out), ansi.size()};
    }
    case DBTYPE_BSTR: {
        if (out) {
            std::wstring storage;
            const std::wstring_view text = TextView(v, column, storage);
            BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            if (!b) throw std::bad_alloc();
            *static_cast<BSTR*>(out) = b;
        }
        return {DBSTATUS_S_OK, sizeof(BSTR)};
    }
    default: return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    }
}

// Binary data in place or by reference.
ConversionResult ConvertToBytes(const Scalar& v, const ColumnType& column, bool byRef, const BindingTarget& target,
                                void* out) {
    if (v.kind != ScalarKind::Binary && v.kind != ScalarKind::Guid && v.kind != ScalarKind::Text &&
        column.type != DBTYPE_BYTES)
        return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    Bytes storage;
    const std::span<const BYTE> bytes = BytesView(v, column, storage);
    if (byRef) {
        CopyByReference(bytes.data(), bytes.size(), 0, out);
        return {DBSTATUS_S_OK, bytes.size()};
    }
    return {CopyInPlace(bytes.data(), bytes.size(), 0, 1, target.maxLength, out), bytes.size()};
}

// A VARIANT of the column's natural type, else of the value's own.
ConversionResult ConvertToVariant(const Scalar& v, const ColumnType& column, void* out) {
    VARIANT result;
    VariantInit(&result);
    if (!MakeVariant(v, column, NaturalVariantType(column.type), &result) &&
        !MakeVariant(v, column, VariantTypeOfScalar(v), &result))
        return {DBSTATUS_E_CANTCONVERTVALUE, 0};
    if (out)
        *static_cast<VARIANT*>(out) = result;
    else
        VariantClear(&result);
    return {DBSTATUS_S_OK, sizeof(VARIANT)};
}

// A storage object over the value's bytes.
ConversionResult ConvertToStorage(const Scalar& v, const ColumnType& column, const BindingTarget& target, void* out) {
    auto data = std::make_shared<const Bytes>(ValueAsBytes(v, column));
    DBLENGTH length = data->size();
    if (out) {
        void* object = nullptr;
        if (!target.makeStorage || FAILED(target.makeStorage(std::move(data), target.storageIid, &object)))
            return {DBSTATUS_E_CANTCREATE, 0};
        *static_cast<void**>(out) = object;
    }
    return {DBSTATUS_S_OK, length};
}

}  // namespace

ConversionResult ConvertForBinding(const Scalar& v, const ColumnType& column, const BindingTarget& target, void* out) {
    const bool byRef = (target.type & DBTYPE_BYREF) != 0;
    const DBTYPE type = static_cast<DBTYPE>(target.type & ~DBTYPE_BYREF);
    if (v.kind == ScalarKind::Null) {
        if (out && type == DBTYPE_VARIANT) {
            VariantInit(static_cast<VARIANT*>(out));
            V_VT(static_cast<VARIANT*>(out)) = VT_NULL;
        }
        return {DBSTATUS_S_ISNULL, 0};
    }
    switch (FamilyOf(type)) {
    case TypeFamily::Number: return ConvertToNumber(v, type, target, out);
    case TypeFamily::DateTimeOrGuid: return ConvertToDateOrGuid(v, type, out);
    case TypeFamily::Text: return ConvertToText(v, column, type, byRef, target, out);
    case TypeFamily::Bytes: return ConvertToBytes(v, column, byRef, target, out);
    case TypeFamily::Variant: return ConvertToVariant(v, column, out);
    case TypeFamily::Storage: return ConvertToStorage(v, column, target, out);
    case TypeFamily::Other: break;
    }
    return {DBSTATUS_E_CANTCONVERTVALUE, 0};
}

void WriteEmptyValue(const BindingTarget& target, void* out) noexcept {
    if (!out) return;
    if (target.type & DBTYPE_BYREF) {
        *static_cast<void**>(out) = nullptr;
        return;
    }
    size_t size = 0;
    switch (target.type & ~DBTYPE_ARRAY & ~DBTYPE_VECTOR) {
    case DBTYPE_STR:
    case DBTYPE_BYTES: size = target.maxLength > 0 ? 1 : 0; break;
    case DBTYPE_WSTR: size = target.maxLength >= sizeof(wchar_t) ? sizeof(wchar_t) : 0; break;
    case DBTYPE_VARIANT: VariantInit(static_cast<VARIANT*>(out)); return;
    case DBTYPE_I1:
    case DBTYPE_UI1: size = 1; break;
    case DBTYPE_I2:
    case DBTYPE_UI2:
    case DBTYPE_BOOL: size = 2; break;
    case DBTYPE_I4:
    case DBTYPE_UI4:
    case DBTYPE_R4:
    case DBTYPE_ERROR: size = 4; break;
    case DBTYPE_I8:
    case DBTYPE_UI8:
    case DBTYPE_R8:
    case DBTYPE_CY:
    case DBTYPE_DATE:
    case DBTYPE_FILETIME: size = 8; break;
    case DBTYPE_DBDATE: size = sizeof(DBDATE); break;
    case DBTYPE_DBTIME: size = sizeof(DBTIME); break;
    case DBTYPE_DBTIMESTAMP: size = sizeof(DBTIMESTAMP); break;
    case DBTYPE_GUID: size = sizeof(GUID); break;
    case DBTYPE_DECIMAL: size = sizeof(DECIMAL); break;
    case DBTYPE_NUMERIC: size = sizeof(DB_NUMERIC); break;
    case DBTYPE_BSTR:
    case DBTYPE_IUNKNOWN:
    case DBTYPE_IDISPATCH: size = sizeof(void*); break;
    default: size = 0; break;
    }
    if (size) std::memset(out, 0, size);
}

}  // namespace zel::provider
