// A column's default (DBPROP_COL_DEFAULT) both ways: the consumer's VARIANT to the SQL of a
// DEFAULT clause, and the SQL SQLite keeps for the clause back to a VARIANT of the column's
// type. Constant values round trip exactly; SQLite's CURRENT_TIMESTAMP, CURRENT_DATE and
// CURRENT_TIME, and parenthesized expressions, travel as their SQL text in a VT_BSTR.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <optional>
#include <string>
#include <string_view>

#include "common/Variant.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider {

struct DefaultClause {
    DBPROPSTATUS status = DBPROPSTATUS_OK;  // DBPROPSTATUS_BADVALUE when the value does not fit
    std::optional<std::wstring> sql;        // nothing: no default (VT_EMPTY or VT_NULL)
    bool expression = false;                // the SQL is an expression rather than a constant
    bool zeroLengthText = false;            // the default is the empty string
};

// The value is converted to the column's type as IRowsetChange converts values (a VT_BSTR "42"
// for an integer column is 42; a VT_DATE for a DATETIME column is its ISO text). For a column
// that is not text, a VT_BSTR that does not convert and is one of the three time keywords or is
// enclosed in parentheses is taken as an SQL expression.
DefaultClause DefaultFromVariant(const VARIANT& value, const ColumnType& column);

// The VARIANT for the SQL text of a DEFAULT clause (as PRAGMA table_info reports it): VT_EMPTY
// for none or NULL, the constant in the column's own VARIANT type, or the expression's text.
Variant DefaultToVariant(const std::optional<std::wstring>& sql, const ColumnType& column);

}  // namespace zel::provider
