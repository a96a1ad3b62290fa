// ITableCreation::GetTableDefinition's out-parameters, made from a table's column definitions
// and constraints.
//
// Memory, all from the COM task allocator and all the caller's:
//   the DBCOLUMNDESC array; in each description the array of property sets and each set's array
//   of properties (CoTaskMemFree), whose VARIANTs the caller clears (VariantClear);
//   the DBCONSTRAINTDESC array; in each constraint the DBIDs pConstraintID and
//   pReferencedTableID and the arrays rgColumnList and rgForeignKeyColumnList (CoTaskMemFree);
//   one string buffer holding every name (column ids, type names, constraint, column and table
//   names in constraints). Without a string buffer asked for, names are null pointers.
//
// Each description carries two property sets, in this order:
//   DBPROPSET_COLUMN: AUTOINCREMENT, SEED, INCREMENT, NULLABLE, FIXEDLENGTH, DEFAULT,
//   DESCRIPTION, PRIMARYKEY, UNIQUE (SEED and INCREMENT VT_EMPTY for other than identity columns,
//   DEFAULT and DESCRIPTION VT_EMPTY when there is none);
//   DBPROPSET_JETOLEDB_COLUMN: ALLOWZEROLENGTH, for text columns only (other columns have the
//   first set alone).
// Booleans are VT_BOOL VARIANT_TRUE / VARIANT_FALSE; every property DBPROPOPTIONS_REQUIRED with
// status DBPROPSTATUS_OK, so a description read can be handed to CreateTable as it is.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <vector>

#include "provider/ddl/ColumnDefinition.h"

namespace zel::provider {

struct TableConstraint {
    DBCONSTRAINTTYPE type = DBCONSTRAINTTYPE_PRIMARYKEY;
    std::wstring name;
    std::vector<std::wstring> columns;            // for a foreign key: the referenced columns
    std::wstring referencedTable;                 // foreign keys only
    std::vector<std::wstring> foreignKeyColumns;  // foreign keys only: the columns of this table
    DBUPDELRULE updateRule = DBUPDELRULE_NOACTION;
    DBUPDELRULE deleteRule = DBUPDELRULE_NOACTION;
    DBMATCHTYPE matchType = DBMATCHTYPE_NONE;
};

struct TableDefinitionOut {
    DBORDINAL* columnCount = nullptr;
    DBCOLUMNDESC** columns = nullptr;
    ULONG* constraintCount = nullptr;
    DBCONSTRAINTDESC** constraints = nullptr;
    OLECHAR** strings = nullptr;
};

// Fills the out-parameters that are not null, all or nothing: on failure (std::bad_alloc)
// nothing is handed out.
void WriteTableDefinition(const std::vector<ColumnDefinition>& columns, const std::vector<TableConstraint>& constraints,
                          const TableDefinitionOut& out);

}  // namespace zel::provider
