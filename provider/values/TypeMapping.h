// How ZelLite types a column: from its declared SQL type (Jet's names and the usual SQL names)
// or, for expressions without a declared type, from the value SQLite gives. The catalog
// interfaces (schema rowsets, table definitions) use the same mapping.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string_view>

#include "provider/values/Cell.h"

namespace zel::provider {

// Column size of long (unbounded) text and binary columns.
inline constexpr DBLENGTH kLongColumnSize = ~DBLENGTH{0};
// Column size given to text expressions without a declared type.
inline constexpr DBLENGTH kExpressionTextSize = 4000;
inline constexpr BYTE kNoPrecision = 0xFF;  // ~0: not a numeric type

struct ColumnType {
    DBTYPE type = DBTYPE_WSTR;
    DBLENGTH size = kLongColumnSize;   // characters for WSTR, bytes otherwise
    BYTE precision = kNoPrecision;
    BYTE scale = kNoPrecision;
    DBCOLUMNFLAGS flags = 0;           // ISLONG and ISFIXEDLENGTH only
    bool known = true;                 // false: the declared type says nothing (type from values)
};

// Maps a declared type such as "TEXT(50)", "DECIMAL(10,2)", "YESNO" or "LONGBINARY".
// An empty or unknown declaration gives known == false (see TypeFromValue).
ColumnType MapDeclaredType(std::wstring_view declared);

// Types an expression column from one of its values (a NULL gives text).
ColumnType TypeFromValue(const Cell& value);

// The fixed-size types' size, precision for numeric ones, and flags; used by both functions.
ColumnType FixedType(DBTYPE type);

// Text of `size` characters (fixed length or not), long text, binary data of `size` bytes,
// long binary data, and DECIMAL (a precision outside 1..28 becomes 18; the scale is kept
// within 0..precision).
ColumnType TextType(DBLENGTH size, bool fixed);
ColumnType LongTextType();
ColumnType BinaryType(DBLENGTH size);
ColumnType LongBinaryType();
ColumnType DecimalType(int precision, int scale);

}  // namespace zel::provider
