// What SQLite itself records about a table, read through its pragmas: the table found by name,
// its columns, indexes and foreign keys, and the counter of SQLite's own AUTOINCREMENT.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "provider/sqlite/Database.h"

namespace zel::provider {

struct StoredColumn {
    std::wstring name;
    std::wstring declaredType;               // as written in CREATE TABLE (may be empty)
    bool notNull = false;
    std::optional<std::wstring> defaultSql;  // the DEFAULT clause's SQL text
    int primaryKeyPosition = 0;              // 1-based place in the primary key, 0 outside it
};

struct StoredIndex {
    std::wstring name;
    bool unique = false;
    std::wstring origin;  // "c" made by CREATE INDEX, "u" a UNIQUE constraint, "pk" the primary key
    bool partial = false;
    std::vector<std::wstring> columns;  // key columns in order; an expression gives an empty name
    std::vector<bool> descending;
};

struct StoredForeignKey {
    std::wstring referencedTable;
    std::vector<std::wstring> columns;            // in this table
    std::vector<std::wstring> referencedColumns;  // in the referenced table
    std::wstring onUpdate, onDelete, match;       // as SQLite spells them ("CASCADE", "NO ACTION"...)
};

// The name of a table as SQLite stores it, matched without regard to case as SQLite matches
// names. Views, SQLite's own tables and the provider's metadata table are not found.
std::optional<std::wstring> FindTable(Database& database, std::wstring_view name);
// Whether the name is taken by any schema object (table, view, index or trigger).
bool SchemaNameExists(Database& database, std::wstring_view name);

std::vector<StoredColumn> ReadStoredColumns(Database& database, std::wstring_view table);
std::vector<StoredIndex> ReadIndexes(Database& database, std::wstring_view table);
std::vector<StoredForeignKey> ReadForeignKeys(Database& database, std::wstring_view table);

// The index named `index` (without regard to case) and the table it belongs to.
struct IndexOwner {
    std::wstring index;
    std::wstring table;
    bool madeByConstraint = false;  // a UNIQUE or PRIMARY KEY constraint's own index
};
std::optional<IndexOwner> FindIndex(Database& database, std::wstring_view index);

// The column that is the table's rowid under another name (a lone INTEGER PRIMARY KEY), if any.
std::optional<size_t> RowidColumn(Database& database, std::wstring_view table,
                                  const std::vector<StoredColumn>& columns);
// Whether that column carries SQLite's AUTOINCREMENT.
bool HasSqliteAutoIncrement(Database& database, std::wstring_view table, std::wstring_view column);
// The value SQLite's AUTOINCREMENT gives the next row of the table.
std::int64_t NextSqliteAutoIncrementValue(Database& database, std::wstring_view table);

bool TableHasRows(Database& database, std::wstring_view table);

}  // namespace zel::provider
