#include "provider/values/ValueWriter.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "provider/text/Utf.h"
#include "provider/values/DataConversion.h"
#include "provider/values/DateTime.h"
#include "provider/values/DecimalText.h"
#include "provider/values/ValueReader.h"

namespace zel::provider {

namespace {

template <typename T>
T Get(const void* p) {
    T t;
    memcpy(&t, p, sizeof(T));
    return t;
}

std::wstring GuidText(const GUID& g) {
    wchar_t buffer[40];
    StringFromGUID2(g, buffer, 40);
    return buffer;
}

bool IsIntegerType(DBTYPE t) {
    switch (t) {
    case DBTYPE_I1: case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_I8:
    case DBTYPE_UI1: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_UI8: return true;
    default: return false;
    }
}

bool InRange(DBTYPE t, std::int64_t v) {
    switch (t) {
    case DBTYPE_I1: return v >= -128 && v <= 127;
    case DBTYPE_I2: return v >= -32768 && v <= 32767;
    case DBTYPE_I4: return v >= INT32_MIN && v <= INT32_MAX;
    case DBTYPE_UI1: return v >= 0 && v <= 255;
    case DBTYPE_UI2: return v >= 0 && v <= 65535;
    case DBTYPE_UI4: return v >= 0 && v <= 0xFFFFFFFFLL;
    case DBTYPE_UI8: return v >= 0;
    default: return true;
    }
}

Bytes ReadStream(IUnknown* object) {
    Bytes bytes;
    if (!object) return bytes;
    ISequentialStream* stream = nullptr;
    if (SUCCEEDED(object->QueryInterface(IID_ISequentialStream, reinterpret_cast<void**>(&stream))) && stream) {
        BYTE chunk[8192];
        for (;;) {
            ULONG got = 0;
            if (FAILED(stream->Read(chunk, sizeof(chunk), &got)) || got == 0) break;
            bytes.insert(bytes.end(), chunk, chunk + got);
        }
        stream->Release();  // the reference this function took
    }
    object->Release();  // the consumer's storage object is the provider's to release
    return bytes;
}

bool RawCell(DBTYPE type, const void* p, DBLENGTH length, bool lengthBound, DBLENGTH maxLength, Cell& out);

// Numbers and booleans: integers stay integers, floating point stays REAL, CY, DECIMAL and
// NUMERIC become their decimal text.
bool RawNumber(DBTYPE base, const void* p, Cell& out) {
    switch (base) {
    case DBTYPE_I1: out = static_cast<std::int64_t>(Get<signed char>(p)); return true;
    case DBTYPE_I2: out = static_cast<std::int64_t>(Get<SHORT>(p)); return true;
    case DBTYPE_I4: out = static_cast<std::int64_t>(Get<LONG>(p)); return true;
    case DBTYPE_I8: out = static_cast<std::int64_t>(Get<LONGLONG>(p)); return true;
    case DBTYPE_UI1: out = static_cast<std::int64_t>(Get<BYTE>(p)); return true;
    case DBTYPE_UI2: out = static_cast<std::int64_t>(Get<USHORT>(p)); return true;
    case DBTYPE_UI4: out = static_cast<std::int64_t>(Get<ULONG>(p)); return true;
    case DBTYPE_UI8: {
        ULONGLONG v = Get<ULONGLONG>(p);
        if (v > static_cast<ULONGLONG>(INT64_MAX)) return false;
        out = static_cast<std::int64_t>(v);
        return true;
    }
    case DBTYPE_R4: out = static_cast<double>(Get<float>(p)); return true;
    case DBTYPE_R8: out = Get<double>(p); return true;
    case DBTYPE_CY: {
        DECIMAL d;
        DecimalFromCurrency(Get<CY>(p), &d);
        out = FormatDecimal(d);
        return true;
    }
    case DBTYPE_DECIMAL: out = FormatDecimal(Get<DECIMAL>(p)); return true;
    case DBTYPE_NUMERIC: {
        DECIMAL d;
        if (!NumericToDecimal(Get<DB_NUMERIC>(p), &d)) return false;
        out = FormatDecimal(d);
        return true;
    }
    case DBTYPE_BOOL: out = static_cast<std::int64_t>(Get<VARIANT_BOOL>(p) ? 1 : 0); return true;
    default: return false;
    }
}

// Dates and times as ISO text, GUIDs as "{...}" text.
bool RawDateTimeOrGuid(DBTYPE base, const void* p, Cell& out) {
    switch (base) {
    case DBTYPE_DATE: {
        Timestamp t;
        if (!OleDateToTimestamp(Get<DATE>(p), &t)) return false;
        out = FormatIsoDateTime(t);
        return true;
    }
    case DBTYPE_DBDATE: {
        auto d = Get<DBDATE>(p);
        Timestamp t{d.year, d.month, d.day, 0, 0, 0, 0};
        if (!IsValidTimestamp(t)) return false;
        out = FormatIsoDateTime(t);
        return true;
    }
    case DBTYPE_DBTIME: {
        auto d = Get<DBTIME>(p);
        Timestamp t{1899, 12, 30, d.hour, d.minute, d.second, 0};
        if (!IsValidTimestamp(t)) return false;
        wchar_t text[16];
        swprintf(text, 16, L"%02d:%02d:%02d", t.hour, t.minute, t.second);
        out = std::wstring(text);
        return true;
    }
    case DBTYPE_DBTIMESTAMP: {
        auto d = Get<DBTIMESTAMP>(p);
        Timestamp t{d.year, d.month, d.day, d.hour, d.minute, d.second, d.fraction};
        if (!IsValidTimestamp(t)) return false;
        out = FormatIsoDateTime(t);
        return true;
    }
    case DBTYPE_GUID: out = GuidText(Get<GUID>(p)); return true;
    default: return false;
    }
}

// Text of a length the binding gives, or up to its terminator within the buffer.
bool RawText(DBTYPE base, const void* p, DBLENGTH length, bool lengthBound, DBLENGTH maxLength, bool byRef,
             Cell& out) {
    switch (base) {
    case DBTYPE_WSTR: {
        auto text = static_cast<const wchar_t*>(p);
        size_t n = lengthBound ? static_cast<size_t>(length) / sizeof(wchar_t)
                               : wcsnlen(text, byRef ? SIZE_MAX / 2 : static_cast<size_t>(maxLength) / sizeof(wchar_t));
        out = std::wstring(text, n);
        return true;
    }
    case DBTYPE_STR: {
        auto text = static_cast<const char*>(p);
        size_t n = lengthBound ? static_cast<size_t>(length) : strnlen(text, byRef ? SIZE_MAX : static_cast<size_t>(maxLength));
        std::wstring wide;
        if (n) {
            int size = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(n), nullptr, 0);
            wide.resize(static_cast<size_t>(size));
            MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(n), wide.data(), size);
        }
        out = wide;
        return true;
    }
    case DBTYPE_BSTR: {
        BSTR b = Get<BSTR>(p);
        out = std::wstring(b ? b : L"", SysStringLen(b));
        return true;
    }
    default: return false;
    }
}

// A VARIANT by its own type.
bool RawVariant(const void* p, Cell& out) {
    VARIANT v = Get<VARIANT>(p);
    switch (V_VT(&v)) {
    case VT_EMPTY:
    case VT_NULL: out = std::monostate{}; return true;
    case VT_BSTR: out = std::wstring(V_BSTR(&v) ? V_BSTR(&v) : L"", SysStringLen(V_BSTR(&v))); return true;
    case VT_ARRAY | VT_UI1: {
        SAFEARRAY* a = V_ARRAY(&v);
        auto bytes = static_cast<const BYTE*>(a->pvData);
        out = Bytes(bytes, bytes + a->rgsabound[0].cElements);
        return true;
    }
    case VT_I1: return RawCell(DBTYPE_I1, &V_I1(&v), 0, false, 0, out);
    case VT_I2: return RawCell(DBTYPE_I2, &V_I2(&v), 0, false, 0, out);
    case VT_I4: return RawCell(DBTYPE_I4, &V_I4(&v), 0, false, 0, out);
    case VT_INT: out = static_cast<std::int64_t>(V_INT(&v)); return true;
    case VT_I8: return RawCell(DBTYPE_I8, &V_I8(&v), 0, false, 0, out);
    case VT_UI1: return RawCell(DBTYPE_UI1, &V_UI1(&v), 0, false, 0, out);
    case VT_UI2: return RawCell(DBTYPE_UI2, &V_UI2(&v), 0, false, 0, out);
    case VT_UI4: return RawCell(DBTYPE_UI4, &V_UI4(&v), 0, false, 0, out);
    case VT_UI8: return RawCell(DBTYPE_UI8, &V_UI8(&v), 0, false, 0, out);
    case VT_R4: return RawCell(DBTYPE_R4, &V_R4(&v), 0, false, 0, out);
    case VT_R8: return RawCell(DBTYPE_R8, &V_R8(&v), 0, false, 0, out);
    case VT_CY: return RawCell(DBTYPE_CY, &V_CY(&v), 0, false, 0, out);
    case VT_DECIMAL: return RawCell(DBTYPE_DECIMAL, &V_DECIMAL(&v), 0, false, 0, out);
    case VT_BOOL: return RawCell(DBTYPE_BOOL, &V_BOOL(&v), 0, false, 0, out);
    case VT_DATE: return RawCell(DBTYPE_DATE, &V_DATE(&v), 0, false, 0, out);
    default: return false;
    }
}

// The consumer's value as a stored value, before it is fitted to the column.
bool RawCell(DBTYPE type, const void* p, DBLENGTH length, bool lengthBound, DBLENGTH maxLength, Cell& out) {
    const bool byRef = (type & DBTYPE_BYREF) != 0;
    const DBTYPE base = static_cast<DBTYPE>(type & ~DBTYPE_BYREF);
    if (byRef) p = Get<const void*>(p);
    if (!p && base != DBTYPE_IUNKNOWN) return false;
    switch (FamilyOf(base)) {
    case TypeFamily::Number: return RawNumber(base, p, out);
    case TypeFamily::DateTimeOrGuid: return RawDateTimeOrGuid(base, p, out);
    case TypeFamily::Text: return RawText(base, p, length, lengthBound, maxLength, byRef, out);
    case TypeFamily::Bytes: {
        auto bytes = static_cast<const BYTE*>(p);
        size_t n = static_cast<size_t>(lengthBound ? length : maxLength);
        out = Bytes(bytes, bytes + n);
        return true;
    }
    case TypeFamily::Variant: return RawVariant(p, out);
    case TypeFamily::Storage: out = ReadStream(Get<IUnknown*>(p)); return true;
    case TypeFamily::Other: break;
    }
    return false;
}

// Fits a value to its column's declared type; returns an error status when it does not fit.
DBSTATUS FitToColumn(Cell& cell, const ColumnType& column) {
    if (IsNull(cell)) return DBSTATUS_S_OK;
    const DBTYPE t = column.type;
    Scalar s = ReadValue(cell, column);
    if (IsIntegerType(t) || t == DBTYPE_BOOL) {
        if (t == DBTYPE_BOOL) {
            if (s.kind != ScalarKind::Boolean) return DBSTATUS_E_CANTCONVERTVALUE;
            cell = static_cast<std::int64_t>(s.boolean ? 1 : 0);
            return DBSTATUS_S_OK;
        }
        std::int64_t v;
        if (s.kind == ScalarKind::Integer) {
            v = s.integer;
        } else if (s.kind == ScalarKind::Real) {
            double r = std::nearbyint(s.real);
            if (!(r >= -9.2e18 && r <= 9.2e18)) return DBSTATUS_E_DATAOVERFLOW;
            v = static_cast<std::int64_t>(r);
        } else {
            return DBSTATUS_E_CANTCONVERTVALUE;
        }
        if (!InRange(t, v)) return DBSTATUS_E_DATAOVERFLOW;
        cell = v;
        return DBSTATUS_S_OK;
    }
    switch (t) {
    case DBTYPE_R4:
    case DBTYPE_R8:
        if (s.kind != ScalarKind::Real) return DBSTATUS_E_CANTCONVERTVALUE;
        if (t == DBTYPE_R4 && std::fabs(s.real) > 3.4028234663852886e38) return DBSTATUS_E_DATAOVERFLOW;
        cell = s.real;
        return DBSTATUS_S_OK;
    case DBTYPE_CY:
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC: {
        if (s.kind != ScalarKind::Decimal) return DBSTATUS_E_CANTCONVERTVALUE;
        DECIMAL d = s.decimal;
        if (t == DBTYPE_CY) {
            CY cy;
            if (!DecimalToCurrency(d, &cy)) return DBSTATUS_E_DATAOVERFLOW;
        } else if (DecimalDigits(d) - d.scale > column.precision - column.scale) {
            return DBSTATUS_E_DATAOVERFLOW;
        }
        std::int64_t whole;
        if (d.scale == 0 && DecimalToInt64(d, &whole))
            cell = whole;
        else
            cell = DecimalToDouble(d);
        return DBSTATUS_S_OK;
    }
    case DBTYPE_DATE:
        if (s.kind != ScalarKind::DateTime) return DBSTATUS_E_CANTCONVERTVALUE;
        cell = FormatIsoDateTime(s.timestamp);
        return DBSTATUS_S_OK;
    case DBTYPE_GUID:
        if (s.kind != ScalarKind::Guid) return DBSTATUS_E_CANTCONVERTVALUE;
        cell = GuidText(s.guid);
        return DBSTATUS_S_OK;
    case DBTYPE_WSTR: {
        if (!std::holds_alternative<std::wstring>(cell)) cell = ValueAsText(s, column);
        const auto& text = std::get<std::wstring>(cell);
        if (!(column.flags & DBCOLUMNFLAGS_ISLONG) && column.size != kLongColumnSize && text.size() > column.size)
            return DBSTATUS_E_DATAOVERFLOW;
        return DBSTATUS_S_OK;
    }
    case DBTYPE_BYTES: {
        if (std::holds_alternative<Bytes>(cell)) {
            if (!(column.flags & DBCOLUMNFLAGS_ISLONG) && column.size != kLongColumnSize &&
                std::get<Bytes>(cell).size() > column.size)
                return DBSTATUS_E_DATAOVERFLOW;
            return DBSTATUS_S_OK;
        }
        return DBSTATUS_E_CANTCONVERTVALUE;
    }
    default: return DBSTATUS_S_OK;
    }
}

}  // namespace

WriteValue ReadConsumerValue(const DBBINDING& b, void* data, const ColumnDesc& column) {
    WriteValue result;
    auto base = static_cast<BYTE*>(data);
    DBSTATUS given = (b.dwPart & DBPART_STATUS) ? Get<DBSTATUS>(base + b.obStatus) : static_cast<DBSTATUS>(DBSTATUS_S_OK);
    switch (given) {
    case DBSTATUS_S_OK: break;
    case DBSTATUS_S_ISNULL: result.cell = std::monostate{}; result.status = DBSTATUS_S_ISNULL; return result;
    case DBSTATUS_S_IGNORE: result.action = WriteAction::Skip; result.status = DBSTATUS_S_IGNORE; return result;
    case DBSTATUS_S_DEFAULT: result.action = WriteAction::UseDefault; result.status = DBSTATUS_S_DEFAULT; return result;
    default: result.status = DBSTATUS_E_BADSTATUS; return result;
    }
    if (!(b.dwPart & DBPART_VALUE)) {
        result.status = DBSTATUS_E_UNAVAILABLE;
        return result;
    }
    const bool lengthBound = (b.dwPart & DBPART_LENGTH) != 0;
    const DBLENGTH length = lengthBound ? Get<DBLENGTH>(base + b.obLength) : 0;
    if (!RawCell(b.wType, base + b.obValue, length, lengthBound, b.cbMaxLen, result.cell)) {
        result.status = DBSTATUS_E_CANTCONVERTVALUE;
        return result;
    }
    result.status = FitToColumn(result.cell, column.type);
    return result;
}

}  // namespace zel::provider
