// The schema rowsets over SQLite's catalog: TABLES, COLUMNS, INDEXES and PRIMARY_KEYS.
#include <algorithm>

#include "provider/schema/SchemaRowsetBuilders.h"
#include "provider/schema/SqliteCatalog.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

const wchar_t* TypeName(TableKind kind) {
    switch (kind) {
    case TableKind::View: return L"VIEW";
    case TableKind::System: return L"SYSTEM TABLE";
    default: return L"TABLE";
    }
}

std::int64_t Number(const Cell& cell) {
    const auto* value = std::get_if<std::int64_t>(&cell);
    return value ? *value : 0;
}

// The tables passing a name restriction, in name order.
std::vector<CatalogTable> TablesNamed(SqliteCatalog& catalog, const Restriction& name) {
    std::vector<CatalogTable> tables;
    for (CatalogTable& table : catalog.Tables())
        if (NameMatches(name, table.name)) tables.push_back(std::move(table));
    std::sort(tables.begin(), tables.end(),
              [](const CatalogTable& a, const CatalogTable& b) { return CompareNames(a.name, b.name) < 0; });
    return tables;
}

}  // namespace

bool NameMatches(const Restriction& restriction, std::wstring_view name) {
    return !restriction.present || EqualsNoCase(restriction.text, name);
}

bool RestrictsCatalog(const Restriction& catalog, const Restriction& schema) {
    return catalog.present || schema.present;
}

std::unique_ptr<RowSource> TablesRowset(const std::shared_ptr<Database>& database, const Restrictions& r) {
    std::vector<SourceRow> rows;
    if (!RestrictsCatalog(r[0], r[1])) {
        SqliteCatalog catalog(database);
        for (const CatalogTable& table : TablesNamed(catalog, r[2])) {
            const wchar_t* type = TypeName(table.kind);
            if (r[3].present && !EqualsNoCase(r[3].text, type)) continue;
            SourceRow row = EmptyRow(std::size(kTablesColumns));
            row.cells[kTablesName] = table.name;
            row.cells[kTablesType] = std::wstring(type);
            rows.push_back(std::move(row));
        }
        // Already in name order: a stable sort by type completes the order.
        std::stable_sort(rows.begin(), rows.end(), [](const SourceRow& a, const SourceRow& b) {
            return CellText(a.cells[kTablesType]) < CellText(b.cells[kTablesType]);
        });
    }
    return MakeSchemaRowSource(kTablesColumns, std::move(rows));
}

std::unique_ptr<RowSource> ColumnsRowset(const std::shared_ptr<Database>& database, const Restrictions& r) {
    std::vector<SourceRow> rows;
    if (!RestrictsCatalog(r[0], r[1])) {
        SqliteCatalog catalog(database);
        for (const CatalogTable& table : TablesNamed(catalog, r[2])) {
            std::int64_t ordinal = 0;
            for (const CatalogColumn& column : catalog.Columns(table)) {
                ++ordinal;
                if (!NameMatches(r[3], column.desc.name)) continue;
                SourceRow row = EmptyRow(std::size(kColumnsColumns));
                row.cells[kColumnsTable] = table.name;
                row.cells[kColumnsName] = column.desc.name;
                row.cells[kColumnsOrdinal] = NumberCell(ordinal);
                row.cells[kColumnsHasDefault] = BoolCell(column.defaultText.has_value());
                if (column.defaultText) row.cells[kColumnsDefault] = *column.defaultText;
                row.cells[kColumnsFlags] = NumberCell(column.flags);
                row.cells[kColumnsIsNullable] = BoolCell((column.flags & DBCOLUMNFLAGS_ISNULLABLE) != 0);
                FillTypeCells(column.desc.type, row);
                if (column.description) row.cells[kColumnsDescription] = *column.description;
                rows.push_back(std::move(row));
            }
        }
    }
    return MakeSchemaRowSource(kColumnsColumns, std::move(rows));
}

std::unique_ptr<RowSource> IndexesRowset(const std::shared_ptr<Database>& database, const Restrictions& r) {
    // Restrictions: TABLE_CATALOG, TABLE_SCHEMA, INDEX_NAME, TYPE, TABLE_NAME. Every SQLite
    // index is a B-tree.
    std::vector<SourceRow> rows;
    if (!RestrictsCatalog(r[0], r[1]) && (!r[3].present || r[3].number == DBPROPVAL_IT_BTREE)) {
        SqliteCatalog catalog(database);
        for (const CatalogTable& table : TablesNamed(catalog, r[4])) {
            for (const CatalogIndex& index : catalog.Indexes(table)) {
                if (!NameMatches(r[2], index.name)) continue;
                std::int64_t ordinal = 0;
                for (const CatalogIndexColumn& column : index.columns) {
                    SourceRow row = EmptyRow(std::size(kIndexesColumns));
                    row.cells[kIndexesTable] = table.name;
                    row.cells[kIndexesName] = index.name;
                    row.cells[kIndexesPrimaryKey] = BoolCell(index.primaryKey);
                    row.cells[kIndexesUnique] = BoolCell(index.unique);
                    row.cells[kIndexesClustered] = BoolCell(index.clustered);
                    row.cells[kIndexesType] = NumberCell(DBPROPVAL_IT_BTREE);
                    // SQLite indexes hold NULL keys, except where the key is the row's own.
                    row.cells[kIndexesNulls] =
                        NumberCell(index.clustered ? DBPROPVAL_IN_DISALLOWNULL : DBPROPVAL_IN_ALLOWNULL);
                    row.cells[kIndexesSortBookmarks] = BoolCell(false);
                    row.cells[kIndexesAutoUpdate] = BoolCell(true);
                    row.cells[kIndexesNullCollation] = NumberCell(DBPROPVAL_NC_LOW);  // NULL sorts first
                    row.cells[kIndexesOrdinal] = NumberCell(++ordinal);
                    if (column.name) row.cells[kIndexesColumnName] = *column.name;
                    row.cells[kIndexesCollation] = NumberCell(column.descending ? DB_COLLATION_DESC : DB_COLLATION_ASC);
                    row.cells[kIndexesIntegrated] = BoolCell(index.clustered);
                    rows.push_back(std::move(row));
                }
            }
        }
        std::stable_sort(rows.begin(), rows.end(), [](const SourceRow& a, const SourceRow& b) {
            const std::int64_t uniqueA = Number(a.cells[kIndexesUnique]), uniqueB = Number(b.cells[kIndexesUnique]);
            if (uniqueA != uniqueB) return uniqueA > uniqueB;
            if (int c = CompareNames(CellText(a.cells[kIndexesName]), CellText(b.cells[kIndexesName]))) return c < 0;
            if (int c = CompareNames(CellText(a.cells[kIndexesTable]), CellText(b.cells[kIndexesTable]))) return c < 0;
            return Number(a.cells[kIndexesOrdinal]) < Number(b.cells[kIndexesOrdinal]);
        });
    }
    return MakeSchemaRowSource(kIndexesColumns, std::move(rows));
}

std::unique_ptr<RowSource> PrimaryKeysRowset(const std::shared_ptr<Database>& database, const Restrictions& r) {
    std::vector<SourceRow> rows;
    if (!RestrictsCatalog(r[0], r[1])) {
        SqliteCatalog catalog(database);
        for (const CatalogTable& table : TablesNamed(catalog, r[2])) {
            for (const CatalogIndex& index : catalog.Indexes(table)) {
                if (!index.primaryKey) continue;
                std::int64_t ordinal = 0;
                for (const CatalogIndexColumn& column : index.columns) {
                    SourceRow row = EmptyRow(std::size(kPrimaryKeysColumns));
                    row.cells[kKeysTable] = table.name;
                    row.cells[kKeysColumn] = column.name.value_or(L"");
                    row.cells[kKeysOrdinal] = NumberCell(++ordinal);
                    row.cells[kKeysName] = index.name;
                    rows.push_back(std::move(row));
                }
            }
        }
    }
    return MakeSchemaRowSource(kPrimaryKeysColumns, std::move(rows));
}

std::unique_ptr<RowSource> SqliteSchemaRows(const SchemaRequest& request, const std::shared_ptr<Database>& database) {
    const GUID& schema = request.schema();
    const Restrictions& r = request.restrictions();
    if (schema == DBSCHEMA_TABLES) return TablesRowset(database, r);
    if (schema == DBSCHEMA_COLUMNS) return ColumnsRowset(database, r);
    if (schema == DBSCHEMA_INDEXES) return IndexesRowset(database, r);
    if (schema == DBSCHEMA_PRIMARY_KEYS) return PrimaryKeysRowset(database, r);
    return ProviderTypesRowset(database, r);
}

}  // namespace zel::provider
