// ITableDefinition's work on SQLite: each change of a table's shape together with the
// provider's metadata rows and triggers that go with it (ColumnMetadata.h). The caller runs each
// one inside a SchemaTransaction, so that the metadata never disagrees with the table.
#pragma once

#include <string>
#include <vector>

#include "provider/ddl/SqliteDefinitions.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

// CREATE TABLE `name` with the columns (their identity numbering is chosen here), then the
// metadata rows, SQLite's AUTOINCREMENT seed and the triggers. The name must be free.
void CreateTableFrom(Database& database, const std::wstring& name, std::vector<ColumnDefinition> columns);

// ALTER TABLE ADD COLUMN. An identity column numbers the rows already in the table, in rowid
// order, from its seed by its increment, and its counter continues after them. Fails with
// DB_E_DUPLICATECOLUMNID when the table has a column of that name.
void AddColumnTo(Database& database, const std::wstring& table, ColumnDefinition column);

// ALTER TABLE DROP COLUMN, with the column's metadata row. Fails with DB_E_NOCOLUMN for a
// column the table does not have, DB_E_DROPRESTRICTED for the table's only column and for a
// column in the primary key, an index or a foreign key; other refusals are SQLite's own.
void DropColumnFrom(Database& database, const std::wstring& table, const std::wstring& column);

// DROP TABLE; its indexes and triggers go with it, and its metadata rows are removed.
void DropTableWithMetadata(Database& database, const std::wstring& table);

}  // namespace zel::provider
