// A consumer's DBCOLUMNDESC, as CreateTable and AddColumn take it: the column id, the type
// (DeclaredType.h) and the column properties, each property's dwStatus written on the way.
//
// Properties honoured, in DBPROPSET_COLUMN: AUTOINCREMENT, SEED, INCREMENT, NULLABLE,
// FIXEDLENGTH, ISLONG, DEFAULT, DESCRIPTION, PRIMARYKEY and UNIQUE (CreateTable only); in
// DBPROPSET_JETOLEDB_COLUMN: ALLOWZEROLENGTH (kept for text columns, accepted and ignored for
// others). A VT_BOOL value counts as true when it is not zero; VT_EMPTY means the default.
// Any other property or set is DBPROPSTATUS_NOTSUPPORTED; a value of the wrong type or out of
// range DBPROPSTATUS_BADVALUE; a value that contradicts the column (an identity column that is
// not an integer, nullable, or has a default; a seed without AUTOINCREMENT; a fixed-length long
// column) DBPROPSTATUS_CONFLICTING, reported as DBPROPSTATUS_NOTSET for an optional property.
// A property that fails is ignored.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <vector>

#include "provider/ddl/ColumnDefinition.h"

namespace zel::provider {

enum class ColumnPurpose { CreateTable, AddColumn };

struct ColumnDescResult {
    ColumnDefinition definition;
    HRESULT error = S_OK;         // DB_E_BADCOLUMNID, DB_E_BADTYPE, DB_E_BADPRECISION or DB_E_BADSCALE
    std::wstring message;         // why, for the error object
    bool requiredFailed = false;  // a required property cannot be honoured
    bool optionalFailed = false;  // an optional one cannot
    std::wstring propertyMessage; // the first property that failed, and why
};

// False when the description's arrays do not match their counts (E_INVALIDARG).
bool HasValidShape(const DBCOLUMNDESC& desc) noexcept;

// Reads one description. Never throws for a bad description: the result says what is wrong.
ColumnDescResult ReadColumnDesc(const DBCOLUMNDESC& desc, ColumnPurpose purpose);

struct NewTableColumns {
    std::vector<ColumnDefinition> columns;
    bool optionalFailed = false;  // an optional property was not honoured
    std::wstring warning;         // the first such property, and why
};

// Reads the descriptions of a new table's columns; every property's status is written first.
// Fails (error published) with the first column's DB_E_BADCOLUMNID, DB_E_BADTYPE,
// DB_E_BADPRECISION or DB_E_BADSCALE, then with DB_E_DUPLICATECOLUMNID for two columns of one
// name (without regard to case), then with DB_E_ERRORSOCCURRED when a required property cannot
// be honoured.
NewTableColumns ReadNewTableColumns(DBORDINAL count, const DBCOLUMNDESC descs[]);

// Marks a property of the description that cannot be honoured after all (for a reason found
// later, in the table): DBPROPSTATUS_CONFLICTING, or DBPROPSTATUS_NOTSET when it is optional.
// Returns whether it was required.
bool MarkConflicting(const DBCOLUMNDESC& desc, const GUID& set, DBPROPID id);

}  // namespace zel::provider
