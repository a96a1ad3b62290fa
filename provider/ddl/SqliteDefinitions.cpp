#include "provider/ddl/SqliteDefinitions.h"

#include "provider/sqlite/ColumnMetadata.h"
#include "provider/sqlite/TableCatalog.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

bool DeclaredInteger(const ColumnDefinition& column) { return EqualsNoCase(Trim(column.declaredType), L"INTEGER"); }

size_t KeyColumnCount(const std::vector<ColumnDefinition>& columns) {
    size_t count = 0;
    for (const auto& c : columns) count += c.primaryKey ? 1 : 0;
    return count;
}

DBUPDELRULE Rule(const std::wstring& action) {
    if (EqualsNoCase(action, L"CASCADE")) return DBUPDELRULE_CASCADE;
    if (EqualsNoCase(action, L"SET NULL")) return DBUPDELRULE_SETNULL;
    if (EqualsNoCase(action, L"SET DEFAULT")) return DBUPDELRULE_SETDEFAULT;
    return DBUPDELRULE_NOACTION;  // NO ACTION and RESTRICT
}

}  // namespace

void ChooseIdentityNumbering(std::vector<ColumnDefinition>& columns) {
    const bool singleKey = KeyColumnCount(columns) == 1;
    for (auto& column : columns) {
        if (column.identity == Identity::None) continue;
        const bool rowid = singleKey && column.primaryKey && DeclaredInteger(column);
        if (rowid && column.increment == 1 && column.seed >= 1) {
            column.identity = Identity::SqliteAutoIncrement;
            continue;
        }
        column.identity = Identity::Counter;
        if (rowid) {
            // An INTEGER primary key would be the rowid, which the numbering trigger must not move.
            column.declaredType = L"COUNTER";
            column.type = MapDeclaredType(column.declaredType);
        }
    }
}

std::wstring ColumnDeclarationSql(const ColumnDefinition& column, bool inlineKey) {
    std::wstring sql = QuoteName(column.name) + L" " + column.declaredType;
    if (column.identity == Identity::SqliteAutoIncrement) return sql + L" NOT NULL PRIMARY KEY AUTOINCREMENT";
    if (!column.nullable && column.identity != Identity::Counter) sql += L" NOT NULL";
    if (inlineKey) sql += L" PRIMARY KEY";
    if (column.unique && !column.primaryKey) sql += L" UNIQUE";
    if (column.defaultSql) sql += L" DEFAULT " + *column.defaultSql;
    return sql;
}

std::wstring PrimaryKeyClause(const std::vector<ColumnDefinition>& columns) {
    std::wstring names;
    for (const auto& c : columns) {
        if (!c.primaryKey) continue;
        if (c.identity == Identity::SqliteAutoIncrement) return {};  // declared with the column
        names += (names.empty() ? L"" : L", ") + QuoteName(c.name);
    }
    return names.empty() ? std::wstring() : L", PRIMARY KEY (" + names + L")";
}

std::vector<ColumnDefinition> ReadColumnDefinitions(Database& database, const std::wstring& table) {
    const std::vector<StoredColumn> stored = ReadStoredColumns(database, table);
    const std::vector<ColumnMetadata> metadata = ReadColumnMetadata(database, table);
    const std::vector<StoredIndex> indexes = ReadIndexes(database, table);
    const std::optional<size_t> rowid = RowidColumn(database, table, stored);

    std::vector<ColumnDefinition> columns;
    for (size_t i = 0; i < stored.size(); ++i) {
        const StoredColumn& s = stored[i];
        ColumnDefinition d;
        d.name = s.name;
        d.declaredType = s.declaredType;
        d.type = MapDeclaredType(s.declaredType);
        d.primaryKey = s.primaryKeyPosition > 0;
        // The rowid column never holds NULL: SQLite numbers a row inserted with NULL.
        d.nullable = !s.notNull && rowid != i;
        d.defaultSql = s.defaultSql;
        for (const auto& index : indexes)
            if (index.origin == L"u" && index.columns.size() == 1 && EqualsNoCase(index.columns[0], s.name))
                d.unique = true;
        if (std::optional<ColumnMetadata> row = FindColumnMetadata(metadata, s.name)) {
            d.description = row->description;
            d.fixedLength = row->fixedLength;
            if (d.IsText()) d.allowZeroLength = row->allowZeroLength;
            if (row->IsCounter()) {
                d.identity = Identity::Counter;
                d.seed = *row->seed;
                d.increment = *row->increment;
                d.nullable = false;
            }
        }
        if (d.identity == Identity::None && rowid == i && HasSqliteAutoIncrement(database, table, s.name)) {
            d.identity = Identity::SqliteAutoIncrement;
            d.seed = NextSqliteAutoIncrementValue(database, table);
            d.increment = 1;
        }
        columns.push_back(std::move(d));
    }
    return columns;
}

std::vector<TableConstraint> ReadConstraints(Database& database, const std::wstring& table) {
    std::vector<TableConstraint> constraints;
    std::vector<StoredColumn> columns = ReadStoredColumns(database, table);
    TableConstraint key;
    key.type = DBCONSTRAINTTYPE_PRIMARYKEY;
    key.name = L"PrimaryKey";
    for (int position = 1;; ++position) {
        size_t before = key.columns.size();
        for (const auto& c : columns)
            if (c.primaryKeyPosition == position) key.columns.push_back(c.name);
        if (key.columns.size() == before) break;
    }
    if (!key.columns.empty()) constraints.push_back(std::move(key));

    for (const auto& index : ReadIndexes(database, table)) {
        if (index.origin != L"u") continue;
        TableConstraint unique;
        unique.type = DBCONSTRAINTTYPE_UNIQUE;
        unique.name = index.name;
        unique.columns = index.columns;
        constraints.push_back(std::move(unique));
    }

    std::vector<StoredForeignKey> keys = ReadForeignKeys(database, table);
    for (size_t i = 0; i < keys.size(); ++i) {
        TableConstraint foreign;
        foreign.type = DBCONSTRAINTTYPE_FOREIGNKEY;
        foreign.name = L"ForeignKey" + std::to_wstring(i + 1);
        foreign.columns = keys[i].referencedColumns;
        foreign.referencedTable = keys[i].referencedTable;
        foreign.foreignKeyColumns = keys[i].columns;
        foreign.updateRule = Rule(keys[i].onUpdate);
        foreign.deleteRule = Rule(keys[i].onDelete);
        foreign.matchType = EqualsNoCase(keys[i].match, L"FULL")      ? DBMATCHTYPE_FULL
                            : EqualsNoCase(keys[i].match, L"PARTIAL") ? DBMATCHTYPE_PARTIAL
                                                                     : DBMATCHTYPE_NONE;
        constraints.push_back(std::move(foreign));
    }
    return constraints;
}

}  // namespace zel::provider
