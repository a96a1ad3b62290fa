// The schema rowsets over SQLite's catalog: TABLES, COLUMNS, INDEXES and PRIMARY_KEYS.
#include <algorithm>

#include "provider/schema/SchemaRowsetBuilders.h"
#include "provider/schema/SqliteCatalog.h"
#include "provider/text/Utf.h"

namespace zel::lite {

namespace {

constexpr bool kNull = true;
constexpr bool kNotNull = false;

// TABLES, sorted by TABLE_TYPE, TABLE_CATALOG, TABLE_SCHEMA, TABLE_NAME.
enum TablesColumn : size_t { kTablesName = 2, kTablesType = 3 };
const SchemaColumn kTablesColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR, kNull},  {L"TABLE_SCHEMA", DBTYPE_WSTR, kNull},
    {L"TABLE_NAME", DBTYPE_WSTR, kNotNull},  {L"TABLE_TYPE", DBTYPE_WSTR, kNotNull},
    {L"TABLE_GUID", DBTYPE_GUID, kNull},     {L"DESCRIPTION", DBTYPE_WSTR, kNull},
    {L"TABLE_PROPID", DBTYPE_UI4, kNull},    {L"DATE_CREATED", DBTYPE_DATE, kNull},
    {L"DATE_MODIFIED", DBTYPE_DATE, kNull},
};

// COLUMNS, sorted by TABLE_CATALOG, TABLE_SCHEMA, TABLE_NAME and within a table by ordinal.
enum ColumnsColumn : size_t {
    kColumnsTable = 2,
    kColumnsName = 3,
    kColumnsOrdinal = 6,
    kColumnsHasDefault = 7,
    kColumnsDefault = 8,
    kColumnsFlags = 9,
    kColumnsIsNullable = 10,
    kColumnsDataType = 11,
    kColumnsMaximumLength = 13,
    kColumnsOctetLength = 14,
    kColumnsPrecision = 15,
    kColumnsScale = 16,
    kColumnsDatetimePrecision = 17,
    kColumnsDescription = 27,
};
const SchemaColumn kColumnsColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR, kNull},
    {L"TABLE_SCHEMA", DBTYPE_WSTR, kNull},
    {L"TABLE_NAME", DBTYPE_WSTR, kNotNull},
    {L"COLUMN_NAME", DBTYPE_WSTR, kNull},
    {L"COLUMN_GUID", DBTYPE_GUID, kNull},
    {L"COLUMN_PROPID", DBTYPE_UI4, kNull},
    {L"ORDINAL_POSITION", DBTYPE_UI4, kNull},
    {L"COLUMN_HASDEFAULT", DBTYPE_BOOL, kNotNull},
    {L"COLUMN_DEFAULT", DBTYPE_WSTR, kNull},
    {L"COLUMN_FLAGS", DBTYPE_UI4, kNotNull},
    {L"IS_NULLABLE", DBTYPE_BOOL, kNotNull},
    {L"DATA_TYPE", DBTYPE_UI2, kNotNull},
    {L"TYPE_GUID", DBTYPE_GUID, kNull},
    {L"CHARACTER_MAXIMUM_LENGTH", DBTYPE_UI4, kNull},
    {L"CHARACTER_OCTET_LENGTH", DBTYPE_UI4, kNull},
    {L"NUMERIC_PRECISION", DBTYPE_UI2, kNull},
    {L"NUMERIC_SCALE", DBTYPE_I2, kNull},
    {L"DATETIME_PRECISION", DBTYPE_UI4, kNull},
    {L"CHARACTER_SET_CATALOG", DBTYPE_WSTR, kNull},
    {L"CHARACTER_SET_SCHEMA", DBTYPE_WSTR, kNull},
    {L"CHARACTER_SET_NAME", DBTYPE_WSTR, kNull},
    {L"COLLATION_CATALOG", DBTYPE_WSTR, kNull},
    {L"COLLATION_SCHEMA", DBTYPE_WSTR, kNull},
    {L"COLLATION_NAME", DBTYPE_WSTR, kNull},
    {L"DOMAIN_CATALOG", DBTYPE_WSTR, kNull},
    {L"DOMAIN_SCHEMA", DBTYPE_WSTR, kNull},
    {L"DOMAIN_NAME", DBTYPE_WSTR, kNull},
    {L"DESCRIPTION", DBTYPE_WSTR, kNull},
};

// INDEXES: one row per key column, sorted by UNIQUE (unique indexes first), TYPE,
// INDEX_CATALOG, INDEX_SCHEMA, INDEX_NAME and ORDINAL_POSITION (and by table where the
// synthesized name of rowid keys repeats).
enum IndexesColumn : size_t {
    kIndexesTable = 2,
    kIndexesName = 5,
    kIndexesPrimaryKey = 6,
    kIndexesUnique = 7,
    kIndexesClustered = 8,
    kIndexesType = 9,
    kIndexesNulls = 12,
    kIndexesSortBookmarks = 13,
    kIndexesAutoUpdate = 14,
    kIndexesNullCollation = 15,
    kIndexesOrdinal = 16,
    kIndexesColumnName = 17,
    kIndexesCollation = 20,
    kIndexesIntegrated = 24,
};
const SchemaColumn kIndexesColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR, kNull},
    {L"TABLE_SCHEMA", DBTYPE_WSTR, kNull},
    {L"TABLE_NAME", DBTYPE_WSTR, kNotNull},
    {L"INDEX_CATALOG", DBTYPE_WSTR, kNull},
    {L"INDEX_SCHEMA", DBTYPE_WSTR, kNull},
    {L"INDEX_NAME", DBTYPE_WSTR, kNotNull},
    {L"PRIMARY_KEY", DBTYPE_BOOL, kNotNull},
    {L"UNIQUE", DBTYPE_BOOL, kNotNull},
    {L"CLUSTERED", DBTYPE_BOOL, kNotNull},
    {L"TYPE", DBTYPE_UI2, kNotNull},
    {L"FILL_FACTOR", DBTYPE_I4, kNull},
    {L"INITIAL_SIZE", DBTYPE_I4, kNull},
    {L"NULLS", DBTYPE_I4, kNotNull},
    {L"SORT_BOOKMARKS", DBTYPE_BOOL, kNotNull},
    {L"AUTO_UPDATE", DBTYPE_BOOL, kNotNull},
    {L"NULL_COLLATION", DBTYPE_I4, kNotNull},
    {L"ORDINAL_POSITION", DBTYPE_UI4, kNotNull},
    {L"COLUMN_NAME", DBTYPE_WSTR, kNull},
    {L"COLUMN_GUID", DBTYPE_GUID, kNull},
    {L"COLUMN_PROPID", DBTYPE_UI4, kNull},
    {L"COLLATION", DBTYPE_I2, kNotNull},
    {L"CARDINALITY", DBTYPE_UI8, kNull},
    {L"PAGES", DBTYPE_I4, kNull},
    {L"FILTER_CONDITION", DBTYPE_WSTR, kNull},
    {L"INTEGRATED", DBTYPE_BOOL, kNotNull},
};

// PRIMARY_KEYS: one row per key column, sorted by TABLE_CATALOG, TABLE_SCHEMA, TABLE_NAME
// (and by ORDINAL within a key).
enum PrimaryKeysColumn : size_t { kKeysTable = 2, kKeysColumn = 3, kKeysOrdinal = 6, kKeysName = 7 };
const SchemaColumn kPrimaryKeysColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR, kNull}, {L"TABLE_SCHEMA", DBTYPE_WSTR, kNull},
    {L"TABLE_NAME", DBTYPE_WSTR, kNotNull}, {L"COLUMN_NAME", DBTYPE_WSTR, kNotNull},
    {L"COLUMN_GUID", DBTYPE_GUID, kNull},   {L"COLUMN_PROPID", DBTYPE_UI4, kNull},
    {L"ORDINAL", DBTYPE_UI4, kNotNull},     {L"PK_NAME", DBTYPE_WSTR, kNotNull},
};

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

// Sizes, precision and scale of a column as the COLUMNS rowset gives them, from the same
// type the column's rowsets report.
void FillTypeCells(const ColumnType& type, SourceRow& row) {
    row.cells[kColumnsDataType] = NumberCell(type.type);
    const bool isLong = (type.flags & DBCOLUMNFLAGS_ISLONG) || type.size == kLongColumnSize;
    if (type.type == DBTYPE_WSTR || type.type == DBTYPE_STR || type.type == DBTYPE_BYTES) {
        // Long columns have no maximum length: zero.
        const std::int64_t characters = isLong ? 0 : static_cast<std::int64_t>(type.size);
        row.cells[kColumnsMaximumLength] = NumberCell(characters);
        row.cells[kColumnsOctetLength] = NumberCell(type.type == DBTYPE_WSTR ? characters * 2 : characters);
    }
    if (HasNumericPrecision(type.type) && type.precision != kNoPrecision)
        row.cells[kColumnsPrecision] = NumberCell(type.precision);
    if ((type.type == DBTYPE_DECIMAL || type.type == DBTYPE_NUMERIC) && type.scale != kNoPrecision)
        row.cells[kColumnsScale] = NumberCell(type.scale);
    // Dates are kept to the second.
    if (type.type == DBTYPE_DATE || type.type == DBTYPE_DBDATE || type.type == DBTYPE_DBTIME ||
        type.type == DBTYPE_DBTIMESTAMP)
        row.cells[kColumnsDatetimePrecision] = NumberCell(0);
}

}  // namespace

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

}  // namespace zel::lite
