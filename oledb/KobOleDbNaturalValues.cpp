// Whole-row reading of KobOleDbCommand for batches: every field of the current row in its
// natural automation type (no text formatting, nothing lost), and the result's column
// descriptions. Unlike the field readers, long text and binary values are read from their
// storage objects here, so a batch carries every value whatever its length.
#include <oaidl.h>
#include <oleauto.h>

#include <cstring>

#include "common/ComError.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "oledb/FieldText.h"
#include "oledb/KobOleDbCommand.h"

namespace zel {
namespace {

template <typename T>
T Read(const BYTE* value) {
    T result;
    std::memcpy(&result, value, sizeof result);
    return result;
}

void SetText(VARIANT& value, const wchar_t* text, size_t length) {
    V_VT(&value) = VT_BSTR;
    V_BSTR(&value) = SysAllocStringLen(text, static_cast<UINT>(length));
    if (!V_BSTR(&value)) ThrowHr(E_OUTOFMEMORY);
}

// 8-bit text converted with the thread's code page, as FieldAsVariant does.
void SetNarrowText(VARIANT& value, const char* text, size_t bytes) {
    const int length = static_cast<int>(bytes);
    const int chars = length ? MultiByteToWideChar(CP_THREAD_ACP, 0, text, length, nullptr, 0) : 0;
    V_VT(&value) = VT_BSTR;
    V_BSTR(&value) = SysAllocStringLen(nullptr, static_cast<UINT>(chars));
    if (!V_BSTR(&value)) ThrowHr(E_OUTOFMEMORY);
    if (chars) MultiByteToWideChar(CP_THREAD_ACP, 0, text, length, V_BSTR(&value), chars);
}

void SetBytes(VARIANT& value, const BYTE* bytes, size_t count) {
    SafeArray array(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(count)));
    if (!array) ThrowHr(E_OUTOFMEMORY);
    if (count) {
        SafeArrayData data(array.get());
        std::memcpy(data.as<BYTE>(), bytes, count);
    }
    V_VT(&value) = VT_ARRAY | VT_UI1;
    V_ARRAY(&value) = array.release();
}

void SetDate(VARIANT& value, const SYSTEMTIME& time) {
    DATE date = 0;
    if (!SystemTimeToVariantTime(const_cast<SYSTEMTIME*>(&time), &date)) return;  // stays VT_EMPTY
    V_VT(&value) = VT_DATE;
    V_DATE(&value) = date;
}

// A DB_NUMERIC whose digits fit 96 bits becomes a DECIMAL; a wider one stays VT_EMPTY.
void SetNumeric(VARIANT& value, const DB_NUMERIC& numeric) {
    for (int i = 12; i < 16; ++i)
        if (numeric.val[i] != 0) return;
    if (numeric.scale > 28) return;
    DECIMAL d{};
    ULONGLONG low = 0;
    ULONG high = 0;
    std::memcpy(&low, numeric.val, 8);
    std::memcpy(&high, numeric.val + 8, 4);
    d.Lo64 = low;
    d.Hi32 = high;
    d.scale = static_cast<BYTE>(numeric.scale);
    d.sign = numeric.sign ? 0 : DECIMAL_NEG;  // DB_NUMERIC's sign is 1 for positive
    V_DECIMAL(&value) = d;
    V_VT(&value) = VT_DECIMAL;  // after the DECIMAL: its first bytes overlay the type
}

}  // namespace

bool KobOleDbCommand::FieldAsNaturalVariant(ULONG position, VARIANT* variant) {
    long index = ColumnIndex(position);
    if (index < 0 || !variant) return false;
    Variant owner;
    VARIANT& value = *owner.get();
    const DBSTATUS status = m_accessor.Status(index);
    if (status == DBSTATUS_S_ISNULL) {
        V_VT(&value) = VT_NULL;
    } else if (status == DBSTATUS_S_OK || status == DBSTATUS_S_TRUNCATED) {
        const BYTE* v = m_accessor.Value(index);
        switch (m_accessor.Column(index).wType) {
            case DBTYPE_I1: V_VT(&value) = VT_I1; V_I1(&value) = Read<CHAR>(v); break;
            case DBTYPE_UI1: V_VT(&value) = VT_UI1; V_UI1(&value) = Read<BYTE>(v); break;
            case DBTYPE_I2: V_VT(&value) = VT_I2; V_I2(&value) = Read<SHORT>(v); break;
            case DBTYPE_UI2: V_VT(&value) = VT_UI2; V_UI2(&value) = Read<USHORT>(v); break;
            case DBTYPE_I4: V_VT(&value) = VT_I4; V_I4(&value) = Read<LONG>(v); break;
            case DBTYPE_UI4: V_VT(&value) = VT_UI4; V_UI4(&value) = Read<ULONG>(v); break;
            case DBTYPE_I8: V_VT(&value) = VT_I8; V_I8(&value) = Read<LONGLONG>(v); break;
            case DBTYPE_UI8: V_VT(&value) = VT_UI8; V_UI8(&value) = Read<ULONGLONG>(v); break;
            case DBTYPE_R4: V_VT(&value) = VT_R4; V_R4(&value) = Read<float>(v); break;
            case DBTYPE_R8: V_VT(&value) = VT_R8; V_R8(&value) = Read<double>(v); break;
            case DBTYPE_CY: V_VT(&value) = VT_CY; V_CY(&value) = Read<CY>(v); break;
            case DBTYPE_DATE: V_VT(&value) = VT_DATE; V_DATE(&value) = Read<DATE>(v); break;
            case DBTYPE_ERROR: V_VT(&value) = VT_ERROR; V_ERROR(&value) = Read<SCODE>(v); break;
            case DBTYPE_BOOL:
                // Any non-zero value is true; the VARIANT carries the canonical VARIANT_TRUE.
                V_VT(&value) = VT_BOOL;
                V_BOOL(&value) = Read<VARIANT_BOOL>(v) ? VARIANT_TRUE : VARIANT_FALSE;
                break;
            case DBTYPE_DECIMAL:
                V_DECIMAL(&value) = Read<DECIMAL>(v);
                V_VT(&value) = VT_DECIMAL;  // after the DECIMAL: its first bytes overlay the type
                break;
            case DBTYPE_NUMERIC: SetNumeric(value, Read<DB_NUMERIC>(v)); break;
            case DBTYPE_DBDATE: {
                const DBDATE d = Read<DBDATE>(v);
                SYSTEMTIME t{};
                t.wYear = static_cast<WORD>(d.year);
                t.wMonth = d.month;
                t.wDay = d.day;
                SetDate(value, t);
                break;
            }
            case DBTYPE_DBTIME: {
                const DBTIME d = Read<DBTIME>(v);
                SYSTEMTIME t{};
                t.wYear = 1899;
                t.wMonth = 12;
                t.wDay = 30;
                t.wHour = d.hour;
                t.wMinute = d.minute;
                t.wSecond = d.second;
                SetDate(value, t);
                break;
            }
            case DBTYPE_DBTIMESTAMP: {
                const DBTIMESTAMP d = Read<DBTIMESTAMP>(v);
                SYSTEMTIME t{};
                t.wYear = static_cast<WORD>(d.year);
                t.wMonth = d.month;
                t.wDay = d.day;
                t.wHour = d.hour;
                t.wMinute = d.minute;
                t.wSecond = d.second;
                SetDate(value, t);
                // The fraction (nanoseconds) is added to the day fraction: SYSTEMTIME's
                // milliseconds would be dropped by SystemTimeToVariantTime.
                if (V_VT(&value) == VT_DATE) {
                    const double dayFraction = static_cast<double>(d.fraction) / 1e9 / 86400.0;
                    V_DATE(&value) += V_DATE(&value) < 0 ? -dayFraction : dayFraction;
                }
                break;
            }
            case DBTYPE_FILETIME: {
                const FILETIME f = Read<FILETIME>(v);
                SYSTEMTIME t{};
                if (FileTimeToSystemTime(&f, &t)) SetDate(value, t);
                break;
            }
            case DBTYPE_GUID: {
                wchar_t text[40];
                const GUID guid = Read<GUID>(v);
                const int length = StringFromGUID2(guid, text, 40);
                if (length > 0) SetText(value, text, static_cast<size_t>(length - 1));
                break;
            }
            case DBTYPE_BSTR: {
                BSTR text = Read<BSTR>(v);
                SetText(value, text, SysStringLen(text));
                break;
            }
            case DBTYPE_WSTR: {
                const std::wstring text = WideText(v, m_accessor.BoundSize(index));
                SetText(value, text.data(), text.size());
                break;
            }
            case DBTYPE_STR: {
                const char* text = reinterpret_cast<const char*>(v);
                SetNarrowText(value, text, strnlen(text, static_cast<size_t>(m_accessor.BoundSize(index))));
                break;
            }
            case DBTYPE_BYTES: {
                const DBLENGTH length = m_accessor.Length(index);
                const DBLENGTH bound = m_accessor.BoundSize(index);
                SetBytes(value, v, static_cast<size_t>(length < bound ? length : bound));
                break;
            }
            case DBTYPE_VARIANT:
                ZEL_THROW_IF_FAILED(VariantCopy(&value, reinterpret_cast<VARIANT*>(const_cast<BYTE*>(v))));
                break;
            case DBTYPE_EMPTY: {
                const wchar_t* text = Read<const wchar_t*>(v);
                if (text) SetText(value, text, wcslen(text));
                break;
            }
            case DBTYPE_IUNKNOWN: {
                // A long value: its storage object is read to the end, once.
                std::vector<BYTE> bytes;
                const ULONG count = ReadStorage(Read<IUnknown*>(v), bytes);
                switch (m_accessor.DeclaredType(index)) {
                    case DBTYPE_WSTR:
                        SetText(value, reinterpret_cast<const wchar_t*>(bytes.data()), count / sizeof(wchar_t));
                        break;
                    case DBTYPE_STR:
                        SetNarrowText(value, reinterpret_cast<const char*>(bytes.data()), count);
                        break;
                    case DBTYPE_BYTES: SetBytes(value, bytes.data(), count); break;
                    default: break;
                }
                break;
            }
            default: break;  // no automation form: VT_EMPTY
        }
    }
    VariantClear(variant);
    owner.detach(variant);
    return true;
}

std::vector<ColumnDescription> KobOleDbCommand::DescribeColumns() {
    std::vector<ColumnDescription> columns;
    if (!HasRowset()) return columns;
    const ULONG count = GetColumnCount();
    columns.reserve(count);
    for (ULONG position = 1; position <= count; ++position) {
        const long index = ColumnIndex(position);
        if (index < 0) break;
        const DBCOLUMNINFO& info = m_accessor.Column(index);
        ColumnDescription column;
        column.name = info.pwszName ? info.pwszName : L"";
        column.type = m_accessor.DeclaredType(index);
        column.size = info.ulColumnSize;
        column.precision = info.bPrecision;
        column.scale = info.bScale;
        column.nullable = (info.dwFlags & (DBCOLUMNFLAGS_ISNULLABLE | DBCOLUMNFLAGS_MAYBENULL)) != 0;
        columns.push_back(std::move(column));
    }
    return columns;
}

}  // namespace zel
