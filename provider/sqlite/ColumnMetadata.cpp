#include "provider/sqlite/ColumnMetadata.h"

#include "provider/sqlite/MetadataTable.h"
#include "provider/sqlite/Query.h"
#include "provider/sqlite/TableCatalog.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider {

namespace {

constexpr wchar_t kTriggerPrefix[] = L"zel_lite_";

std::optional<std::int64_t> Flag(const std::optional<bool>& value) {
    if (!value) return std::nullopt;
    return *value ? 1 : 0;
}

std::optional<bool> FlagOf(const std::optional<std::int64_t>& value) {
    if (!value) return std::nullopt;
    return *value != 0;
}

std::wstring Raise(const std::wstring& message) { return L"SELECT RAISE(ABORT, " + QuoteText(message) + L")"; }

// The lookup of one column's metadata row inside a trigger.
std::wstring RowCondition(std::wstring_view table, std::wstring_view column) {
    return L"table_name = " + QuoteText(table) + L" AND column_name = " + QuoteText(column);
}

}  // namespace

bool MetadataTableExists(Database& database) {
    Query lookup(database, L"SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1 COLLATE NOCASE");
    lookup.Bind(1, std::wstring_view(kMetadataTable));
    return lookup.Step();
}

std::vector<ColumnMetadata> ReadColumnMetadata(Database& database, std::wstring_view table) {
    std::vector<ColumnMetadata> rows;
    if (!MetadataTableExists(database)) return rows;
    Query read(database, std::wstring(L"SELECT column_name, seed, increment, allow_zero_length, fixed_length, "
                                      L"description FROM ") +
                             kMetadataTable + L" WHERE table_name = ?1");
    read.Bind(1, table);
    while (read.Step()) {
        ColumnMetadata row;
        row.column = read.Text(0);
        row.seed = read.OptionalInteger(1);
        row.increment = read.OptionalInteger(2);
        row.allowZeroLength = FlagOf(read.OptionalInteger(3));
        row.fixedLength = FlagOf(read.OptionalInteger(4));
        row.description = read.OptionalText(5);
        rows.push_back(std::move(row));
    }
    return rows;
}

std::optional<ColumnMetadata> FindColumnMetadata(const std::vector<ColumnMetadata>& rows, std::wstring_view column) {
    for (const auto& row : rows)
        if (EqualsNoCase(row.column, column)) return row;
    return std::nullopt;
}

void StoreColumnMetadata(Database& database, std::wstring_view table, const ColumnMetadata& row) {
    if (row.Empty()) return;
    database.Execute(kMetadataTableDdl);
    Query write(database, std::wstring(L"INSERT OR REPLACE INTO ") + kMetadataTable +
                              L" (table_name, column_name, seed, increment, allow_zero_length, fixed_length, "
                              L"description) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    write.Bind(1, table).Bind(2, std::wstring_view(row.column)).Bind(3, row.seed).Bind(4, row.increment);
    write.Bind(5, Flag(row.allowZeroLength)).Bind(6, Flag(row.fixedLength)).Bind(7, row.description);
    write.Run();
}

void DeleteColumnMetadata(Database& database, std::wstring_view table, std::optional<std::wstring_view> column) {
    if (!MetadataTableExists(database)) return;
    std::wstring sql = std::wstring(L"DELETE FROM ") + kMetadataTable + L" WHERE table_name = ?1";
    if (column) sql += L" AND column_name = ?2";
    Query remove(database, sql);
    remove.Bind(1, table);
    if (column) remove.Bind(2, *column);
    remove.Run();
}

void SetIdentityCounter(Database& database, std::wstring_view table, std::wstring_view column, std::int64_t next) {
    Query update(database, std::wstring(L"UPDATE ") + kMetadataTable +
                               L" SET seed = ?3 WHERE table_name = ?1 AND column_name = ?2");
    update.Bind(1, table).Bind(2, column).Bind(3, next);
    update.Run();
}

void DropTriggers(Database& database, std::wstring_view table) {
    std::vector<std::wstring> names;
    {
        Query list(database, L"SELECT name FROM sqlite_master WHERE type = 'trigger' AND tbl_name = ?1 COLLATE NOCASE "
                             L"AND name LIKE 'zel\\_lite\\_%' ESCAPE '\\'");
        list.Bind(1, table);
        while (list.Step()) names.push_back(list.Text(0));
    }
    for (const auto& name : names) Query(database, L"DROP TRIGGER " + QuoteName(name)).Run();
}

void RebuildTriggers(Database& database, std::wstring_view table) {
    DropTriggers(database, table);
    const std::vector<ColumnMetadata> rows = ReadColumnMetadata(database, table);
    if (rows.empty()) return;
    const std::vector<StoredColumn> columns = ReadStoredColumns(database, table);
    const std::wstring quotedTable = QuoteName(table);

    std::wstring insertChecks, updateChecks, updateColumns, numbering;
    for (const auto& column : columns) {
        std::optional<ColumnMetadata> row = FindColumnMetadata(rows, column.name);
        if (!row) continue;
        const std::wstring quoted = QuoteName(column.name);
        const std::wstring described = L"'" + column.name + L"' in table '" + std::wstring(table) + L"'";
        const bool text = MapDeclaredType(column.declaredType).type == DBTYPE_WSTR;
        bool checked = false;
        if (text && row->allowZeroLength == false) {
            std::wstring check = Raise(L"Field " + described +
                                       L" cannot be a zero-length string: the column does not allow zero-length "
                                       L"strings. Store NULL or a non-empty value.") +
                                 L" WHERE NEW." + quoted + L" = '';\n";
            insertChecks += check;
            updateChecks += check;
            checked = true;
        }
        if (row->IsCounter()) {
            const std::wstring condition = RowCondition(table, column.name);
            // The row keeps its rowid, which is how the inserter finds it again; the counter
            // moves on by the increment, or past an explicit value beyond it.
            numbering += L"UPDATE " + quotedTable + L" SET " + quoted + L" = (SELECT seed FROM " + kMetadataTable +
                         L" WHERE " + condition + L") WHERE rowid = NEW.rowid AND NEW." + quoted + L" IS NULL;\n";
            numbering += std::wstring(L"UPDATE ") + kMetadataTable + L" SET seed = CASE WHEN NEW." + quoted +
                         L" IS NULL THEN seed + increment WHEN typeof(NEW." + quoted +
                         L") <> 'integer' THEN seed WHEN increment > 0 THEN max(seed, NEW." + quoted +
                         L" + increment) ELSE min(seed, NEW." + quoted + L" + increment) END WHERE " + condition +
                         L";\n";
            updateChecks += Raise(L"Field " + described + L" is an identity column and cannot be set to NULL.") +
                            L" WHERE NEW." + quoted + L" IS NULL;\n";
            checked = true;
        }
        if (checked) updateColumns += (updateColumns.empty() ? L"" : L", ") + quoted;
    }

    auto create = [&](const wchar_t* kind, const std::wstring& timing, const std::wstring& body) {
        if (body.empty()) return;
        std::wstring name = std::wstring(kTriggerPrefix) + kind + L"_" + std::wstring(table);
        Query(database, L"CREATE TRIGGER " + QuoteName(name) + L" " + timing + L" ON " + quotedTable +
                            L" FOR EACH ROW BEGIN\n" + body + L"END")
            .Run();
    };
    create(L"identity", L"AFTER INSERT", numbering);
    create(L"insert", L"BEFORE INSERT", insertChecks);
    create(L"update", L"BEFORE UPDATE OF " + updateColumns, updateChecks);
}

}  // namespace zel::provider
