// Table definitions in SQLite: the SQL that declares a column, how identity columns are
// numbered, and the definitions and constraints read back from SQLite's catalog and the
// provider's metadata rows.
#pragma once

#include <string>
#include <vector>

#include "provider/ddl/ColumnDefinition.h"
#include "provider/ddl/TableDefinitionOutput.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

// Decides how each identity column is numbered and adjusts its declared type for it (see above).
void ChooseIdentityNumbering(std::vector<ColumnDefinition>& columns);

// The column's definition inside CREATE TABLE or ALTER TABLE ADD COLUMN. `inlineKey`: the
// column is the table's only primary-key column and carries PRIMARY KEY itself (SQLite's
// AUTOINCREMENT needs that); other keys are a table constraint (PrimaryKeyClause).
std::wstring ColumnDeclarationSql(const ColumnDefinition& column, bool inlineKey);
// ", PRIMARY KEY (...)" for the key columns in column order, or nothing.
std::wstring PrimaryKeyClause(const std::vector<ColumnDefinition>& columns);

// The definitions of a table's columns in ordinal order, from SQLite's catalog and the provider's
// metadata rows.
std::vector<ColumnDefinition> ReadColumnDefinitions(Database& database, const std::wstring& table);

// The primary key, the UNIQUE constraints and the foreign keys of a table.
std::vector<TableConstraint> ReadConstraints(Database& database, const std::wstring& table);

}  // namespace zel::provider
