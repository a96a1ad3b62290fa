// ZelLite's own data conversions from stored values to the types a consumer binds (the system
// conversion library under Wine lacks several of them). The rules follow OLE DB's: numbers
// round half to even into integers, text is ISO for dates and plain decimal notation for
// numbers, binary data becomes hexadecimal text, and the status says what happened
// (DBSTATUS_S_OK, _S_ISNULL, _S_TRUNCATED, _E_CANTCONVERTVALUE, _E_DATAOVERFLOW).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>

#include "provider/values/ValueReader.h"

namespace zel::provider {

// Whether a value of type `from` can be delivered as (or taken from) type `to`; `to` may carry
// DBTYPE_BYREF for STR, WSTR and BYTES. Used for accessor validation and IConvertType.
bool CanConvert(DBTYPE from, DBTYPE to) noexcept;

// Whether IConvertType::CanConvert accepts `flags` for a conversion from `from`: only the known
// flags, DBCONVERTFLAGS_PARAMETER only where the object takes parameters (a command), and
// DBCONVERTFLAGS_ISLONG only from STR, WSTR and BYTES.
bool ValidConvertFlags(DBTYPE from, DBCONVERTFLAGS flags, bool takesParameters) noexcept;

// The families of bound types: each family's values are converted by code of their own, both
// to the consumer (ConvertForBinding) and from it (IRowsetChange).
enum class TypeFamily { Number, DateTimeOrGuid, Text, Bytes, Variant, Storage, Other };

// The family of `type` (DBTYPE_BYREF removed). Booleans count as numbers, GUIDs with dates
// (both are fixed-size values parsed from their stored text).
constexpr TypeFamily FamilyOf(DBTYPE type) noexcept {
    switch (type) {
    case DBTYPE_I1:
    case DBTYPE_I2:
    case DBTYPE_I4:
    case DBTYPE_I8:
    case DBTYPE_UI1:
    case DBTYPE_UI2:
    case DBTYPE_UI4:
    case DBTYPE_UI8:
    case DBTYPE_R4:
    case DBTYPE_R8:
    case DBTYPE_CY:
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC:
    case DBTYPE_BOOL: return TypeFamily::Number;
    case DBTYPE_DATE:
    case DBTYPE_DBTIMESTAMP:
    case DBTYPE_DBDATE:
    case DBTYPE_DBTIME:
    case DBTYPE_GUID: return TypeFamily::DateTimeOrGuid;
    case DBTYPE_WSTR:
    case DBTYPE_STR:
    case DBTYPE_BSTR: return TypeFamily::Text;
    case DBTYPE_BYTES: return TypeFamily::Bytes;
    case DBTYPE_VARIANT: return TypeFamily::Variant;
    case DBTYPE_IUNKNOWN: return TypeFamily::Storage;
    default: return TypeFamily::Other;
    }
}

// Makes the storage object a DBTYPE_IUNKNOWN binding hands out over a long value's bytes and
// queries it for `iid` into `object`. Throws only when memory runs out.
using StorageMaker = HRESULT (*)(std::shared_ptr<const Bytes> data, REFIID iid, void** object);

struct BindingTarget {
    DBTYPE type = DBTYPE_WSTR;      // may include DBTYPE_BYREF
    DBLENGTH maxLength = 0;         // for STR, WSTR and BYTES bound in place
    BYTE precision = 0;             // for NUMERIC
    BYTE scale = 0;
    IID storageIid = IID_ISequentialStream;  // for DBTYPE_IUNKNOWN
    StorageMaker makeStorage = nullptr;      // for DBTYPE_IUNKNOWN; without one: DBSTATUS_E_CANTCREATE
};

struct ConversionResult {
    DBSTATUS status = DBSTATUS_S_OK;
    DBLENGTH length = 0;
};

// Converts `value` (read from a column of type `column`) for `target`. Writes the value to `out`
// when it is not null; with a null `out` only the length and status are worked out. Memory
// handed to the consumer (BSTR, BYREF blocks, VARIANT contents, storage objects) is the
// consumer's. Throws only when memory runs out.
ConversionResult ConvertForBinding(const Scalar& value, const ColumnType& column, const BindingTarget& target,
                                   void* out);

// Writes the empty value of the bound type at `out`: zero for numbers, dates and GUIDs, an empty
// string for text bound in place, a null pointer, BSTR or interface, VT_EMPTY for a VARIANT.
// Used where a NULL is read through a binding without status.
void WriteEmptyValue(const BindingTarget& target, void* out) noexcept;

// The text form of a value, as WSTR conversions deliver it.
std::wstring ValueAsText(const Scalar& value, const ColumnType& column);

}  // namespace zel::provider
