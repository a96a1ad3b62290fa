// Field readers and classification of KobOleDbCommand: one column of the current row taken
// out of the row buffer as text, integer, VARIANT or bytes. The text forms are what hosts
// have always received, odd ones included: DBTYPE_UI8 prints with a trailing "d", DBTYPE_I8
// shows its low 32 bits only, DBTYPE_STR is read as UTF-16, decimals join their digit
// groups. None of the readers fails loudly: a bad position or a closed command gives the
// empty answer.
#include <oaidl.h>
#include <oleauto.h>

#include <cstdlib>
#include <cstring>
#include <cwctype>

#include "common/ComError.h"
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

bool IsConvertible(DBSTATUS status) { return status == DBSTATUS_S_OK || status == DBSTATUS_S_TRUNCATED; }

}  // namespace

std::wstring_view KobOleDbCommand::FieldText(ULONG position, std::wstring& scratch) {
    long index = ColumnIndex(position);
    if (index < 0) return {};
    const DBSTATUS status = m_accessor.Status(index);
    if (status == DBSTATUS_S_ISNULL || !IsConvertible(status)) return {};
    const BYTE* v = m_accessor.Value(index);
    const DBTYPE type = m_accessor.Column(index).wType;
    switch (type) {
        case DBTYPE_BSTR: {
            // The text up to its first NUL.
            BSTR text = Read<BSTR>(v);
            return text ? std::wstring_view(text) : std::wstring_view();
        }
        case DBTYPE_WSTR:
        case DBTYPE_STR:
            // DBTYPE_STR is read as UTF-16 as well: no 8-bit conversion is made.
            return WideTextView(v, m_accessor.BoundSize(index));
        case DBTYPE_NUMERIC:
        case DBTYPE_VARNUMERIC: {
            IDataConvert* convert = m_connection ? m_connection->GetDataConvert() : nullptr;
            if (!convert) return {};
            // The 8-bit text is written into the wide buffer and left there as it is, two
            // characters to a unit.
            scratch.assign(201, L'\0');
            DBLENGTH written = 0;
            DBSTATUS convertStatus = DBSTATUS_S_OK;
            HRESULT hr = convert->DataConvert(type, DBTYPE_STR, type == DBTYPE_NUMERIC ? 19 : 4, &written,
                                              const_cast<BYTE*>(v), scratch.data(), 200, DBSTATUS_S_OK,
                                              &convertStatus, 0, 0, 0);
            if (FAILED(hr) || written + 1 > 200) return {};
            scratch.resize(static_cast<size_t>(written + 1));
            return scratch;
        }
        // The two common formatted types are written into the scratch string's own buffer.
        case DBTYPE_R8:
            RealTextTo(Read<double>(v), scratch);
            return scratch;
        case DBTYPE_DATE:
            if (!DateTextFormat::UserDefault().DateText(Read<DATE>(v), 0, scratch)) scratch = L"Invalid DateTime";
            return scratch;
        default:
            scratch = ValueText(type, v);
            return scratch;
    }
}

std::wstring KobOleDbCommand::FieldAsString(ULONG position) {
    std::wstring scratch;
    const std::wstring_view text = FieldText(position, scratch);
    // A text made in the scratch string is handed out as it is, without a copy.
    if (!text.empty() && text.data() == scratch.data()) return scratch;
    return std::wstring(text);
}

namespace {

// FieldAsStringEx's trimming: trailing white space goes.
std::wstring_view TrimEnd(std::wstring_view text) {
    size_t end = text.size();
    while (end > 0 && iswspace(text[end - 1])) --end;
    return text.substr(0, end);
}

}  // namespace

std::wstring KobOleDbCommand::FieldAsStringEx(ULONG position) {
    std::wstring text = FieldAsString(position);
    text.resize(TrimEnd(text).size());
    return text;
}

std::wstring_view KobOleDbCommand::FieldTextView(ULONG position, std::wstring& scratch) {
    return TrimEnd(FieldText(position, scratch));
}

LONG KobOleDbCommand::FieldAsLong(ULONG position) {
    long index = ColumnIndex(position);
    if (index < 0) return 0;
    const DBSTATUS status = m_accessor.Status(index);
    if (!IsConvertible(status)) return 0;
    const DBTYPE type = m_accessor.Column(index).wType;
    // Types above DBTYPE_STR, wide text included, never convert.
    if (type > DBTYPE_STR) return 0;
    const BYTE* v = m_accessor.Value(index);
    switch (type) {
        case DBTYPE_I2:
        case DBTYPE_BOOL: return Read<SHORT>(v);
        case DBTYPE_I4:
        case DBTYPE_ERROR:
        case DBTYPE_UI4:
        case DBTYPE_I8:
        case DBTYPE_UI8: return static_cast<LONG>(Read<ULONG>(v));
        case DBTYPE_R4: return static_cast<LONG>(Read<float>(v));
        case DBTYPE_R8: return static_cast<LONG>(Read<double>(v));
        case DBTYPE_CY: return static_cast<LONG>(Read<CY>(v).int64 / 10000);
        case DBTYPE_DATE: {
            LONG result = 0;
            return SUCCEEDED(VarI4FromDate(Read<DATE>(v), &result)) ? result : 0;
        }
        case DBTYPE_BSTR: {
            BSTR text = Read<BSTR>(v);
            return text ? _wtol(text) : 0;
        }
        case DBTYPE_DECIMAL: {
            DECIMAL d = Read<DECIMAL>(v);
            LONG result = 0;
            return SUCCEEDED(VarI4FromDec(&d, &result)) ? result : 0;
        }
        case DBTYPE_I1: return Read<signed char>(v);
        case DBTYPE_UI1: return Read<BYTE>(v);
        case DBTYPE_UI2: return Read<USHORT>(v);
        case DBTYPE_STR: return _wtol(WideText(v, m_accessor.BoundSize(index)).c_str());
        default: return 0;
    }
}

bool KobOleDbCommand::FieldAsVariant(ULONG position, VARIANT* variant) {
    long index = ColumnIndex(position);
    if (index < 0 || !variant) return false;
    const DBSTATUS status = m_accessor.Status(index);
    if (status == DBSTATUS_S_ISNULL) {
        VariantClear(variant);
        V_VT(variant) = VT_NULL;
        return true;
    }
    if (!IsConvertible(status)) return false;
    const BYTE* v = m_accessor.Value(index);
    Variant owner;
    VARIANT& value = *owner.get();
    switch (m_accessor.Column(index).wType) {
        case DBTYPE_I2: V_VT(&value) = VT_I2; V_I2(&value) = Read<SHORT>(v); break;
        case DBTYPE_I4:
        case DBTYPE_ERROR: V_VT(&value) = VT_I4; V_I4(&value) = Read<LONG>(v); break;
        case DBTYPE_R4: V_VT(&value) = VT_R4; V_R4(&value) = Read<float>(v); break;
        case DBTYPE_R8: V_VT(&value) = VT_R8; V_R8(&value) = Read<double>(v); break;
        case DBTYPE_BOOL: V_VT(&value) = VT_BOOL; V_BOOL(&value) = Read<VARIANT_BOOL>(v); break;
        case DBTYPE_I1: V_VT(&value) = VT_INT; V_INT(&value) = Read<signed char>(v); break;
        case DBTYPE_UI1: V_VT(&value) = VT_UI1; V_UI1(&value) = Read<BYTE>(v); break;
        case DBTYPE_UI2: V_VT(&value) = VT_UI2; V_UI2(&value) = Read<USHORT>(v); break;
        case DBTYPE_UI4: V_VT(&value) = VT_UI4; V_UI4(&value) = Read<ULONG>(v); break;
        case DBTYPE_I8: V_VT(&value) = VT_I8; V_I8(&value) = Read<LONGLONG>(v); break;
        case DBTYPE_UI8: V_VT(&value) = VT_UI8; V_UI8(&value) = Read<ULONGLONG>(v); break;
        case DBTYPE_VARIANT:
            if (FAILED(VariantCopy(&value, reinterpret_cast<VARIANT*>(const_cast<BYTE*>(v))))) return false;
            break;
        case DBTYPE_BSTR: {
            BSTR text = Read<BSTR>(v);
            V_VT(&value) = VT_BSTR;
            V_BSTR(&value) = SysAllocStringLen(text, SysStringLen(text));
            if (!V_BSTR(&value)) ThrowHr(E_OUTOFMEMORY);
            break;
        }
        case DBTYPE_WSTR: {
            std::wstring text = WideText(v, m_accessor.BoundSize(index));
            V_VT(&value) = VT_BSTR;
            V_BSTR(&value) = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
            if (!V_BSTR(&value)) ThrowHr(E_OUTOFMEMORY);
            break;
        }
        case DBTYPE_STR: {
            // Unlike the text reader, this one converts 8-bit text with the thread's code page.
            const char* text = reinterpret_cast<const char*>(v);
            int bytes = static_cast<int>(strnlen(text, static_cast<size_t>(m_accessor.BoundSize(index))));
            int chars = MultiByteToWideChar(CP_THREAD_ACP, 0, text, bytes, nullptr, 0);
            V_VT(&value) = VT_BSTR;
            V_BSTR(&value) = SysAllocStringLen(nullptr, static_cast<UINT>(chars));
            if (!V_BSTR(&value)) ThrowHr(E_OUTOFMEMORY);
            MultiByteToWideChar(CP_THREAD_ACP, 0, text, bytes, V_BSTR(&value), chars);
            break;
        }
        default: return false;
    }
    VariantClear(variant);
    owner.detach(variant);  // ownership of the new value moves into the caller's VARIANT
    return true;
}

bool KobOleDbCommand::FieldAsVariantByName(const std::wstring& name, VARIANT* variant) {
    return FieldAsVariant(GetColumnIndex(name), variant);
}

short KobOleDbCommand::IsNull(ULONG position) {
    long index = ColumnIndex(position);
    if (index < 0) return kTriNotApplicable;
    return m_accessor.Status(index) == DBSTATUS_S_ISNULL ? kTriTrue : kTriFalse;
}

short KobOleDbCommand::IsBlob(ULONG position) {
    if (!m_isOpen || position == 0 || position > GetColumnCount()) return kTriNotApplicable;
    long index = ColumnIndex(position);
    if (index < 0) return kTriFalse;  // only the position-to-column mapping failed
    DBTYPE type = m_accessor.Column(index).wType;
    return (type == DBTYPE_IUNKNOWN || type == DBTYPE_BYTES || type == DBTYPE_EMPTY) ? kTriTrue : kTriFalse;
}

short KobOleDbCommand::IsIntegral(ULONG position) {
    long index = ColumnIndex(position);
    if (index < 0) return kTriNotApplicable;
    switch (m_accessor.Column(index).wType) {
        case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_I8: case DBTYPE_UI8:
            return kTriTrue;
        default:
            return kTriFalse;
    }
}

short KobOleDbCommand::IsNumeric(ULONG position) {
    long index = ColumnIndex(position);
    if (index < 0) return kTriNotApplicable;
    switch (m_accessor.Column(index).wType) {
        case DBTYPE_DECIMAL: case DBTYPE_NUMERIC: case DBTYPE_VARNUMERIC:
            return kTriTrue;
        default:
            return kTriFalse;
    }
}

DBTYPE KobOleDbCommand::GetRawType(ULONG position) {
    long index = ColumnIndex(position);
    return index < 0 ? DBTYPE(0) : m_accessor.Column(index).wType;
}

std::wstring KobOleDbCommand::GetColumnName(ULONG position) {
    long index = ColumnIndex(position);
    if (index < 0) return {};
    const wchar_t* name = m_accessor.Column(index).pwszName;
    return name ? std::wstring(name) : std::wstring();
}

ULONG KobOleDbCommand::GetColumnIndex(const std::wstring& name) {
    if (name.empty() || !m_isOpen) return 0;
    const ULONG count = GetColumnCount();
    for (ULONG position = 1; position <= count; ++position) {
        // The provider's name in place: no copy of every column's name per look-up.
        const long index = ColumnIndex(position);
        const wchar_t* column = index < 0 ? nullptr : m_accessor.Column(index).pwszName;
        if (_wcsicmp(column ? column : L"", name.c_str()) == 0) return position;
    }
    return 0;
}

ULONG KobOleDbCommand::GetColumnSize(ULONG position) {
    if (!m_isOpen || position == 0 || position > GetColumnCount()) return 0;
    long index = ColumnIndex(position);
    if (index >= 0) return static_cast<ULONG>(m_accessor.Length(index));
    // Only an unmapped position falls back to the provider's declared size.
    ComPtr<IColumnsInfo> info = m_rowset.try_as<IColumnsInfo>();
    if (!info) return 0;
    DBORDINAL count = 0;
    CoTaskMem<DBCOLUMNINFO> columns;
    CoTaskMem<OLECHAR> names;
    if (FAILED(info->GetColumnInfo(&count, columns.put(), names.put()))) return 0;
    DBORDINAL entry = position - 1 + ((count > 0 && columns[0].iOrdinal == 0) ? 1 : 0);
    if (entry >= count) return 0;
    DBLENGTH size = columns[entry].ulColumnSize;
    return size == static_cast<DBLENGTH>(~0ULL) ? 0 : static_cast<ULONG>(size);
}

ULONG KobOleDbCommand::GetBlobData(ULONG position, std::vector<BYTE>& buffer) {
    buffer.clear();
    long index = ColumnIndex(position);
    if (index < 0) return 0;
    const DBSTATUS status = m_accessor.Status(index);
    if (status == DBSTATUS_S_ISNULL) return 3;  // kept as hosts know it: 3, and no bytes
    if (!IsConvertible(status)) return 0;
    const BYTE* v = m_accessor.Value(index);
    switch (m_accessor.Column(index).wType) {
        case DBTYPE_IUNKNOWN: {
            // The declared type decides whether the storage object is read at all.
            const DBTYPE declared = m_accessor.DeclaredType(index);
            if (declared != DBTYPE_BYTES && declared != DBTYPE_STR && declared != DBTYPE_WSTR) return 0;
            return ReadStorage(Read<IUnknown*>(v), buffer);
        }
        case DBTYPE_EMPTY: {
            const wchar_t* text = Read<const wchar_t*>(v);
            if (!text) return 0;
            size_t bytes = wcslen(text) * sizeof(wchar_t);
            buffer.assign(reinterpret_cast<const BYTE*>(text), reinterpret_cast<const BYTE*>(text) + bytes);
            return static_cast<ULONG>(bytes);
        }
        default:
            return 0;
    }
}

ULONG KobOleDbCommand::ReadStreamColumn(ULONG position, std::vector<BYTE>& buffer) {
    buffer.clear();
    long index = ColumnIndex(position);
    if (index < 0 || m_accessor.Column(index).wType != DBTYPE_IUNKNOWN) return 0;
    if (!IsConvertible(m_accessor.Status(index))) return 0;
    return ReadStorage(Read<IUnknown*>(m_accessor.Value(index)), buffer);
}

}  // namespace zel
