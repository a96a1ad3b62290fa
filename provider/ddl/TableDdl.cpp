#include "provider/ddl/TableDdl.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/sqlite/ColumnMetadata.h"
#include "provider/sqlite/Query.h"
#include "provider/sqlite/TableCatalog.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

ColumnMetadata MetadataOf(const ColumnDefinition& c) {
    ColumnMetadata row;
    row.column = c.name;
    if (c.identity == Identity::Counter) {
        row.seed = c.seed;
        row.increment = c.increment;
    }
    if (c.IsText()) row.allowZeroLength = c.allowZeroLength;
    row.fixedLength = c.fixedLength;
    row.description = c.description;
    return row;
}

const StoredColumn* FindStored(const std::vector<StoredColumn>& columns, const std::wstring& name) {
    for (const auto& c : columns)
        if (EqualsNoCase(c.name, name)) return &c;
    return nullptr;
}

}  // namespace

void CreateTableFrom(Database& database, const std::wstring& name, std::vector<ColumnDefinition> columns) {
    ChooseIdentityNumbering(columns);
    std::wstring sql = L"CREATE TABLE " + QuoteName(name) + L" (";
    for (size_t i = 0; i < columns.size(); ++i) {
        if (i) sql += L", ";
        sql += ColumnDeclarationSql(columns[i], false);
    }
    sql += PrimaryKeyClause(columns) + L")";
    Query(database, sql).Run();

    for (const auto& c : columns) {
        StoreColumnMetadata(database, name, MetadataOf(c));
        if (c.identity == Identity::SqliteAutoIncrement) {
            // SQLite numbers from the counter it keeps, plus one.
            Query seed(database, L"INSERT INTO sqlite_sequence (name, seq) VALUES (?1, ?2)");
            seed.Bind(1, std::wstring_view(name)).Bind(2, c.seed - 1).Run();
        }
    }
    RebuildTriggers(database, name);
}

void AddColumnTo(Database& database, const std::wstring& table, ColumnDefinition column) {
    const std::vector<StoredColumn> stored = ReadStoredColumns(database, table);
    if (FindStored(stored, column.name))
        Fail(DB_E_DUPLICATECOLUMNID, L"The table '" + table + L"' already has a column named '" + column.name + L"'.",
             L"42S21");
    std::vector<ColumnDefinition> one{std::move(column)};
    ChooseIdentityNumbering(one);  // never SQLite's AUTOINCREMENT: an added column is no key
    const ColumnDefinition& c = one[0];
    Query(database, L"ALTER TABLE " + QuoteName(table) + L" ADD COLUMN " + ColumnDeclarationSql(c, false)).Run();
    StoreColumnMetadata(database, table, MetadataOf(c));
    if (c.identity == Identity::Counter) {
        const std::wstring quotedTable = QuoteName(table);
        Query number(database, L"UPDATE " + quotedTable + L" SET " + QuoteName(c.name) +
                                   L" = ?1 + ?2 * (numbered.n - 1) FROM (SELECT rowid AS r, row_number() OVER "
                                   L"(ORDER BY rowid) AS n FROM " +
                                   quotedTable + L") AS numbered WHERE " + quotedTable + L".rowid = numbered.r");
        number.Bind(1, c.seed).Bind(2, c.increment).Run();
        Query count(database, L"SELECT count(*) FROM " + quotedTable);
        count.Step();
        SetIdentityCounter(database, table, c.name, c.seed + c.increment * count.Integer(0));
    }
    RebuildTriggers(database, table);
}

void DropColumnFrom(Database& database, const std::wstring& table, const std::wstring& column) {
    const std::vector<StoredColumn> stored = ReadStoredColumns(database, table);
    const StoredColumn* target = FindStored(stored, column);
    if (!target) Fail(DB_E_NOCOLUMN, L"The table '" + table + L"' has no column named '" + column + L"'.", L"42S22");
    const std::wstring name = target->name;
    auto restricted = [&](const std::wstring& why) {
        Fail(DB_E_DROPRESTRICTED, L"The column '" + name + L"' cannot be dropped: " + why, L"42000");
    };
    if (stored.size() == 1) restricted(L"it is the table's only column.");
    if (target->primaryKeyPosition > 0) restricted(L"it is part of the table's primary key.");
    for (const auto& index : ReadIndexes(database, table))
        for (const auto& key : index.columns)
            if (EqualsNoCase(key, name))
                restricted(L"the index '" + index.name + L"' uses it" +
                           (index.origin == L"u" ? L" (a UNIQUE constraint)." : L"; drop the index first."));
    for (const auto& foreign : ReadForeignKeys(database, table))
        for (const auto& key : foreign.columns)
            if (EqualsNoCase(key, name))
                restricted(L"it is part of a foreign key to '" + foreign.referencedTable + L"'.");

    // SQLite refuses to drop a column that a trigger names; the provider's triggers are made
    // again for the columns that remain.
    DropTriggers(database, table);
    Query(database, L"ALTER TABLE " + QuoteName(table) + L" DROP COLUMN " + QuoteName(name)).Run();
    DeleteColumnMetadata(database, table, name);
    RebuildTriggers(database, table);
}

void DropTableWithMetadata(Database& database, const std::wstring& table) {
    Query(database, L"DROP TABLE " + QuoteName(table)).Run();
    DeleteColumnMetadata(database, table);
}

}  // namespace zel::provider
