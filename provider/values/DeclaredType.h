// The SQL type a new column is declared with, from its DBCOLUMNDESC: the provider type name
// (pwszTypeName) when one is given, otherwise the OLE DB type (wType) with its size, precision
// and scale. The declaration is what SQLite keeps and what GetTableDefinition hands back as
// pwszTypeName, so a definition read from a table creates the same declaration again.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>

#include "provider/values/TypeMapping.h"

namespace zel::provider {

// Text and binary sizes above this are long (unbounded) columns.
inline constexpr DBLENGTH kLargestSizedColumn = 100000000;

struct TypeRequest {
    const wchar_t* typeName = nullptr;  // pwszTypeName; null or empty: from wType
    DBTYPE wType = DBTYPE_EMPTY;
    DBLENGTH size = 0;                  // 0: the default (255 characters of text, 510 bytes)
    BYTE precision = 0;                 // 0: the default (18 digits)
    BYTE scale = 0;
    bool fixedLength = false;           // DBPROP_COL_FIXEDLENGTH: CHAR(n) / BINARY(n)
    bool isLong = false;                // DBPROP_COL_ISLONG: LONGTEXT / LONGBINARY
};

struct DeclaredType {
    HRESULT error = S_OK;  // DB_E_BADTYPE, DB_E_BADPRECISION or DB_E_BADSCALE
    std::wstring message;  // why, for the error object
    std::wstring declaration;
    ColumnType type;       // the declaration as TypeMapping reads it
};

// A type name wins over wType: it is used as given (a size or precision without which it would
// take its own default is appended: "VARCHAR" with size 50 becomes "VARCHAR(50)"), and wType,
// when not DBTYPE_EMPTY, must be of the same kind (any text type for a text name, any integer
// type for an integer name, and so on), else DB_E_BADTYPE. Names TypeMapping does not know, and
// text that is not a type name, give DB_E_BADTYPE.
DeclaredType ResolveDeclaredType(const TypeRequest& request);

bool IsIntegerType(DBTYPE type) noexcept;

}  // namespace zel::provider
