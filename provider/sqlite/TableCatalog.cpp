#include "provider/sqlite/TableCatalog.h"

#include "provider/sqlite/MetadataTable.h"
#include "provider/sqlite/Query.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

std::optional<std::wstring> FindTable(Database& database, std::wstring_view name) {
    if (EqualsNoCase(name, kMetadataTable)) return std::nullopt;
    Query lookup(database,
                 L"SELECT name FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE "
                 L"AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'");
    lookup.Bind(1, name);
    if (!lookup.Step()) return std::nullopt;
    return lookup.Text(0);
}

bool SchemaNameExists(Database& database, std::wstring_view name) {
    Query lookup(database, L"SELECT 1 FROM sqlite_master WHERE name = ?1 COLLATE NOCASE");
    lookup.Bind(1, name);
    return lookup.Step();
}

std::vector<StoredColumn> ReadStoredColumns(Database& database, std::wstring_view table) {
    Query info(database, L"SELECT name, type, \"notnull\", dflt_value, pk FROM pragma_table_info(?1) ORDER BY cid");
    info.Bind(1, table);
    std::vector<StoredColumn> columns;
    while (info.Step()) {
        StoredColumn c;
        c.name = info.Text(0);
        c.declaredType = info.Text(1);
        c.notNull = info.Integer(2) != 0;
        c.defaultSql = info.OptionalText(3);
        c.primaryKeyPosition = static_cast<int>(info.Integer(4));
        columns.push_back(std::move(c));
    }
    return columns;
}

std::vector<StoredIndex> ReadIndexes(Database& database, std::wstring_view table) {
    std::vector<StoredIndex> indexes;
    {
        Query list(database, L"SELECT name, \"unique\", origin, partial FROM pragma_index_list(?1) ORDER BY seq DESC");
        list.Bind(1, table);
        while (list.Step()) {
            StoredIndex index;
            index.name = list.Text(0);
            index.unique = list.Integer(1) != 0;
            index.origin = list.Text(2);
            index.partial = list.Integer(3) != 0;
            indexes.push_back(std::move(index));
        }
    }
    for (auto& index : indexes) {
        Query columns(database, L"SELECT name, \"desc\" FROM pragma_index_xinfo(?1) WHERE key = 1 ORDER BY seqno");
        columns.Bind(1, index.name);
        while (columns.Step()) {
            index.columns.push_back(columns.Text(0));
            index.descending.push_back(columns.Integer(1) != 0);
        }
    }
    return indexes;
}

std::vector<StoredForeignKey> ReadForeignKeys(Database& database, std::wstring_view table) {
    std::vector<StoredForeignKey> keys;
    Query list(database,
               L"SELECT id, \"table\", \"from\", \"to\", on_update, on_delete, \"match\" "
               L"FROM pragma_foreign_key_list(?1) ORDER BY id, seq");
    list.Bind(1, table);
    std::int64_t current = -1;
    bool implicitKey = false;
    while (list.Step()) {
        if (list.Integer(0) != current) {
            current = list.Integer(0);
            StoredForeignKey key;
            key.referencedTable = list.Text(1);
            key.onUpdate = list.Text(4);
            key.onDelete = list.Text(5);
            key.match = list.Text(6);
            keys.push_back(std::move(key));
        }
        keys.back().columns.push_back(list.Text(2));
        if (list.IsNull(3)) implicitKey = true;
        keys.back().referencedColumns.push_back(list.Text(3));
    }
    // "REFERENCES parent" without columns means the parent's primary key.
    if (implicitKey) {
        for (auto& key : keys) {
            bool missing = false;
            for (const auto& c : key.referencedColumns) missing = missing || c.empty();
            if (!missing) continue;
            std::vector<StoredColumn> parent = ReadStoredColumns(database, key.referencedTable);
            std::vector<std::wstring> primary;
            for (int position = 1;; ++position) {
                size_t before = primary.size();
                for (const auto& c : parent)
                    if (c.primaryKeyPosition == position) primary.push_back(c.name);
                if (primary.size() == before) break;
            }
            if (primary.size() == key.columns.size()) key.referencedColumns = primary;
        }
    }
    return keys;
}

std::optional<IndexOwner> FindIndex(Database& database, std::wstring_view index) {
    Query lookup(
        database,
        L"SELECT name, tbl_name, sql IS NULL FROM sqlite_master WHERE type = 'index' AND name = ?1 COLLATE NOCASE");
    lookup.Bind(1, index);
    if (!lookup.Step()) return std::nullopt;
    return IndexOwner{lookup.Text(0), lookup.Text(1), lookup.Integer(2) != 0};
}

std::optional<size_t> RowidColumn(Database& database, std::wstring_view table,
                                  const std::vector<StoredColumn>& columns) {
    std::optional<size_t> key;
    for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].primaryKeyPosition == 0) continue;
        if (key) return std::nullopt;  // a key of several columns
        key = i;
    }
    if (!key || !EqualsNoCase(Trim(columns[*key].declaredType), L"INTEGER")) return std::nullopt;
    // A table WITHOUT ROWID has no rowid to alias.
    if (!database.TryPrepare(L"SELECT rowid FROM " + QuoteName(table) + L" LIMIT 0")) return std::nullopt;
    return key;
}

bool HasSqliteAutoIncrement(Database& database, std::wstring_view table, std::wstring_view column) {
    int notNull = 0, primaryKey = 0, autoIncrement = 0;
    ConnectionLock lock(database.handle());
    return sqlite3_table_column_metadata(database.handle(), "main", ToUtf8(table).c_str(), ToUtf8(column).c_str(),
                                         nullptr, nullptr, &notNull, &primaryKey, &autoIncrement) == SQLITE_OK &&
           autoIncrement != 0;
}

std::int64_t NextSqliteAutoIncrementValue(Database& database, std::wstring_view table) {
    // SQLite numbers past both the counter it keeps and the largest rowid in the table.
    Query next(database, L"SELECT max(coalesce((SELECT seq FROM sqlite_sequence WHERE name = ?1), 0), "
                         L"coalesce((SELECT max(rowid) FROM " +
                             QuoteName(table) + L"), 0)) + 1");
    next.Bind(1, table);
    next.Step();
    return next.Integer(0);
}

bool TableHasRows(Database& database, std::wstring_view table) {
    Query rows(database, L"SELECT 1 FROM " + QuoteName(table) + L" LIMIT 1");
    return rows.Step();
}

}  // namespace zel::provider
