// IIndexDefinition's work on SQLite: CREATE [UNIQUE] INDEX from index column descriptions and
// DBPROPSET_INDEX properties, and DROP INDEX.
//
// Index properties honoured: UNIQUE; NULLS as DBPROPVAL_IN_ALLOWNULL (SQLite's own behaviour),
// DBPROPVAL_IN_IGNORENULL (a partial index leaving out rows whose key columns are all NULL) and
// DBPROPVAL_IN_IGNOREANYNULL (leaving out rows with any NULL key column); and the values SQLite
// always has: PRIMARYKEY false, CLUSTERED false, TYPE DBPROPVAL_IT_BTREE, TEMPINDEX false,
// AUTOUPDATE true, SORTBOOKMARKS false. PRIMARYKEY true is DBPROPSTATUS_NOTSUPPORTED: SQLite
// cannot add a primary key to an existing table, which would have to be rebuilt; a primary key
// is declared with the table (DBPROP_COL_PRIMARYKEY in CreateTable). Anything else is
// DBPROPSTATUS_NOTSUPPORTED, or DBPROPSTATUS_BADVALUE for a value of the wrong type.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <optional>
#include <string>

#include "provider/sqlite/Database.h"

namespace zel::provider {

struct CreatedIndex {
    HRESULT result = S_OK;  // S_OK, or DB_S_ERRORSOCCURRED when optional properties failed
    std::wstring name;
};

// Creates an index on `table` (its stored name). `name`: the index's name, or nothing for a
// name the provider makes up ("IX_<table>_<columns>", numbered when taken). Writes every
// property's status. Fails (error published) with DB_E_DUPLICATEINDEXID for a name in use,
// DB_E_NOCOLUMN for a column the table does not have, E_INVALIDARG for a bad column order and
// DB_E_ERRORSOCCURRED when a required property cannot be honoured (nothing created).
CreatedIndex CreateIndexOn(Database& database, const std::wstring& table, const std::optional<std::wstring>& name,
                           DBORDINAL columnCount, const DBINDEXCOLUMNDESC columns[], ULONG setCount, DBPROPSET sets[]);

// Drops the index `name` of `table`, or every index of the table made by CREATE INDEX when no
// name is given (the indexes of UNIQUE and PRIMARY KEY constraints go only with the table).
// Fails with DB_E_NOINDEX when the table has no such index, DB_E_INDEXINUSE for a constraint's
// index.
void DropIndexOf(Database& database, const std::wstring& table, const std::optional<std::wstring>& name);

}  // namespace zel::provider
