#include "provider/odbc/OdbcCatalog.h"

#include <algorithm>
#include <map>
#include <vector>

#include "provider/odbc/OdbcTypes.h"
#include "provider/schema/SchemaLayouts.h"

namespace zel::provider::odbc {

namespace {

constexpr size_t kCatalogColumn = 0;  // TABLE_CATALOG in TABLES, COLUMNS, INDEXES, PRIMARY_KEYS
constexpr size_t kSchemaColumn = 1;   // TABLE_SCHEMA

// An argument of a catalog function: null when the restriction is absent, else the name with
// the search pattern's special characters escaped.
class PatternArgument {
public:
    PatternArgument(const Restriction& restriction, const std::wstring& escape) {
        if (!restriction.present) return;
        m_present = true;
        for (wchar_t c : restriction.text) {
            if (!escape.empty() && (c == L'_' || c == L'%' || c == escape[0])) m_text += escape;
            m_text += c;
        }
    }
    SQLWCHAR* data() { return m_present ? reinterpret_cast<SQLWCHAR*>(m_text.data()) : nullptr; }
    SQLSMALLINT length() const { return m_present ? static_cast<SQLSMALLINT>(m_text.size()) : 0; }

private:
    bool m_present = false;
    std::wstring m_text;
};

// An exact argument (catalog functions that take no pattern): null when absent.
class ExactArgument {
public:
    explicit ExactArgument(const std::wstring* text) : m_present(text != nullptr), m_text(text ? *text : L"") {}
    SQLWCHAR* data() { return m_present ? reinterpret_cast<SQLWCHAR*>(m_text.data()) : nullptr; }
    SQLSMALLINT length() const { return m_present ? static_cast<SQLSMALLINT>(m_text.size()) : 0; }

private:
    bool m_present;
    std::wstring m_text;
};

// Reads the rows of a catalog function's result, calling `take` for each.
template <typename Take>
void EachRow(SQLHSTMT statement, Take take) {
    for (;;) {
        SQLRETURN rc = SQLFetch(statement);
        if (rc == SQL_NO_DATA) return;
        CheckOdbc(rc, SQL_HANDLE_STMT, statement);
        take();
    }
}

Cell TextCell(SQLHSTMT statement, SQLUSMALLINT ordinal) {
    std::wstring text;
    if (!ReadText(statement, ordinal, text)) return std::monostate{};
    return text;
}

std::int64_t Integer(SQLHSTMT statement, SQLUSMALLINT ordinal, std::int64_t otherwise = 0) {
    SQLBIGINT value = 0;
    return ReadInteger(statement, ordinal, value) ? static_cast<std::int64_t>(value) : otherwise;
}

std::wstring SearchEscape(Connection& c) { return c.InfoText(SQL_SEARCH_PATTERN_ESCAPE); }

struct TableName {
    Cell catalog, schema;
    std::wstring name;
};

// The base tables passing the catalog, schema and name restrictions (SQLTables).
std::vector<TableName> ListTables(Connection& c, const Restriction& catalog, const Restriction& schema,
                                  const Restriction& name) {
    const std::wstring escape = SearchEscape(c);
    StatementHandle s = c.NewStatement();
    PatternArgument cat(catalog, L""), sch(schema, escape), tab(name, escape);
    std::wstring types = L"TABLE";
    CheckOdbc(SQLTablesW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length(),
                         reinterpret_cast<SQLWCHAR*>(types.data()), static_cast<SQLSMALLINT>(types.size())),
              SQL_HANDLE_STMT, s.get());
    std::vector<TableName> tables;
    EachRow(s.get(), [&] {
        TableName t;
        t.catalog = TextCell(s.get(), 1);
        t.schema = TextCell(s.get(), 2);
        ReadText(s.get(), 3, t.name);
        tables.push_back(std::move(t));
    });
    return tables;
}

const std::wstring* TextOf(const Cell& cell) { return std::get_if<std::wstring>(&cell); }

std::unique_ptr<RowSource> Tables(Connection& c, const Restrictions& r) {
    const std::wstring escape = SearchEscape(c);
    StatementHandle s = c.NewStatement();
    PatternArgument cat(r[0], L""), sch(r[1], escape), tab(r[2], escape), type(r[3], L"");
    CheckOdbc(SQLTablesW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length(),
                         type.data(), type.length()),
              SQL_HANDLE_STMT, s.get());
    std::vector<SourceRow> rows;
    EachRow(s.get(), [&] {
        SourceRow row = EmptyRow(std::size(kTablesColumns));
        row.cells[kCatalogColumn] = TextCell(s.get(), 1);
        row.cells[kSchemaColumn] = TextCell(s.get(), 2);
        row.cells[kTablesName] = TextCell(s.get(), 3);
        row.cells[kTablesType] = TextCell(s.get(), 4);
        row.cells[5] = TextCell(s.get(), 5);  // DESCRIPTION from REMARKS
        rows.push_back(std::move(row));
    });
    return MakeSchemaRowSource(kTablesColumns, std::move(rows));
}

std::unique_ptr<RowSource> Columns(Connection& c, const Restrictions& r) {
    const std::wstring escape = SearchEscape(c);
    StatementHandle s = c.NewStatement();
    PatternArgument cat(r[0], L""), sch(r[1], escape), tab(r[2], escape), col(r[3], escape);
    CheckOdbc(SQLColumnsW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length(),
                          col.data(), col.length()),
              SQL_HANDLE_STMT, s.get());
    std::vector<SourceRow> rows;
    EachRow(s.get(), [&] {
        SourceRow row = EmptyRow(std::size(kColumnsColumns));
        row.cells[kCatalogColumn] = TextCell(s.get(), 1);
        row.cells[kSchemaColumn] = TextCell(s.get(), 2);
        row.cells[kColumnsTable] = TextCell(s.get(), 3);
        row.cells[kColumnsName] = TextCell(s.get(), 4);
        const auto sqlType = static_cast<SQLSMALLINT>(Integer(s.get(), 5));
        const auto size = static_cast<SQLULEN>(std::max<std::int64_t>(0, Integer(s.get(), 7)));
        const auto digits = static_cast<SQLSMALLINT>(Integer(s.get(), 9));
        const bool nullable = Integer(s.get(), 11, SQL_NULLABLE_UNKNOWN) != SQL_NO_NULLS;
        Cell remarks = TextCell(s.get(), 12);
        Cell defaultText = TextCell(s.get(), 13);
        // The word NULL, unquoted, is a default of NULL: the same as none (the SQLite3 driver
        // gives it for every column declared without a default).
        if (const auto* text = std::get_if<std::wstring>(&defaultText); text && _wcsicmp(text->c_str(), L"NULL") == 0)
            defaultText = std::monostate{};
        const std::int64_t ordinal = Integer(s.get(), 17);
        OdbcColumnType mapped = MapSqlType(sqlType, size, digits, false);
        if (c.IsSqlite()) {
            std::wstring typeName;
            ReadText(s.get(), 6, typeName);
            mapped = SqliteColumnType(mapped, sqlType, size, typeName, false, -1);
        }
        const ColumnType type = mapped.type;
        DBCOLUMNFLAGS flags = type.flags;
        if (nullable) flags |= DBCOLUMNFLAGS_ISNULLABLE | DBCOLUMNFLAGS_MAYBENULL;
        row.cells[kColumnsOrdinal] = NumberCell(ordinal);
        row.cells[kColumnsHasDefault] = BoolCell(!IsNull(defaultText));
        row.cells[kColumnsDefault] = std::move(defaultText);
        row.cells[kColumnsFlags] = NumberCell(flags);
        row.cells[kColumnsIsNullable] = BoolCell(nullable);
        FillTypeCells(type, row);
        row.cells[kColumnsDescription] = std::move(remarks);
        rows.push_back(std::move(row));
    });
    return MakeSchemaRowSource(kColumnsColumns, std::move(rows));
}

// The primary key of one table: its name (empty when the driver gives none) and its columns
// in key order (none when the table has no key).
struct PrimaryKey {
    std::wstring name;
    std::vector<std::wstring> columns;
};

PrimaryKey PrimaryKeyOf(Connection& c, const TableName& t) {
    StatementHandle s = c.NewStatement();
    ExactArgument cat(TextOf(t.catalog)), sch(TextOf(t.schema)), tab(&t.name);
    CheckOdbc(SQLPrimaryKeysW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length()),
              SQL_HANDLE_STMT, s.get());
    PrimaryKey key;
    std::vector<std::pair<std::int64_t, std::wstring>> columns;
    EachRow(s.get(), [&] {
        if (key.name.empty()) ReadText(s.get(), 6, key.name);
        std::wstring column;
        ReadText(s.get(), 4, column);
        columns.emplace_back(Integer(s.get(), 5), std::move(column));
    });
    std::sort(columns.begin(), columns.end());
    for (auto& [position, column] : columns) key.columns.push_back(std::move(column));
    return key;
}

// Marks the index of a key the driver does not name (the SQLite3 driver gives no PK_NAME and
// lists the key of an INTEGER PRIMARY KEY as "sqlite_autoindex_0"): the unique index whose
// columns, in order, are the key's. `rows` are one table's INDEXES rows.
void MarkUnnamedKeyIndex(const PrimaryKey& key, std::vector<SourceRow>& rows, size_t from) {
    if (!key.name.empty() || key.columns.empty()) return;
    std::map<std::wstring, std::vector<std::pair<std::int64_t, std::wstring>>> indexes;
    for (size_t i = from; i < rows.size(); ++i) {
        const SourceRow& row = rows[i];
        const auto* unique = std::get_if<std::int64_t>(&row.cells[kIndexesUnique]);
        if (!unique || *unique == 0) continue;
        const auto* ordinal = std::get_if<std::int64_t>(&row.cells[kIndexesOrdinal]);
        indexes[std::wstring(CellText(row.cells[kIndexesName]))].emplace_back(
            ordinal ? *ordinal : 0, std::wstring(CellText(row.cells[kIndexesColumnName])));
    }
    for (auto& [name, columns] : indexes) {
        std::sort(columns.begin(), columns.end());
        std::vector<std::wstring> names;
        for (auto& [ordinal, column] : columns) names.push_back(column);
        if (names != key.columns) continue;
        for (size_t i = from; i < rows.size(); ++i)
            if (CellText(rows[i].cells[kIndexesName]) == name) rows[i].cells[kIndexesPrimaryKey] = BoolCell(true);
        return;
    }
}

std::unique_ptr<RowSource> Indexes(Connection& c, const Restrictions& r) {
    // Restrictions: TABLE_CATALOG, TABLE_SCHEMA, INDEX_NAME, TYPE, TABLE_NAME.
    std::vector<SourceRow> rows;
    const bool typeMatches = !r[3].present || r[3].number == DBPROPVAL_IT_BTREE || r[3].number == DBPROPVAL_IT_HASH ||
                             r[3].number == DBPROPVAL_IT_OTHER;
    for (const TableName& t : typeMatches ? ListTables(c, r[0], r[1], r[4]) : std::vector<TableName>{}) {
        const PrimaryKey key = PrimaryKeyOf(c, t);
        const std::wstring& keyName = key.name;
        const size_t tableRows = rows.size();
        StatementHandle s = c.NewStatement();
        ExactArgument cat(TextOf(t.catalog)), sch(TextOf(t.schema)), tab(&t.name);
        CheckOdbc(SQLStatisticsW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length(),
                                 SQL_INDEX_ALL, SQL_QUICK),
                  SQL_HANDLE_STMT, s.get());
        EachRow(s.get(), [&] {
            const std::int64_t kind = Integer(s.get(), 7);
            if (kind == SQL_TABLE_STAT) return;
            std::wstring indexName;
            ReadText(s.get(), 6, indexName);
            if (r[2].present && r[2].text != indexName) return;
            const std::int64_t type = kind == SQL_INDEX_CLUSTERED ? DBPROPVAL_IT_BTREE
                                      : kind == SQL_INDEX_HASHED  ? DBPROPVAL_IT_HASH
                                                                  : DBPROPVAL_IT_OTHER;
            if (r[3].present && static_cast<std::int64_t>(r[3].number) != type) return;
            const bool unique = Integer(s.get(), 4, 1) == SQL_FALSE;
            SourceRow row = EmptyRow(std::size(kIndexesColumns));
            row.cells[kCatalogColumn] = t.catalog;
            row.cells[kSchemaColumn] = t.schema;
            row.cells[kIndexesTable] = t.name;
            row.cells[kIndexesName] = indexName;
            row.cells[kIndexesPrimaryKey] = BoolCell(!keyName.empty() && keyName == indexName);
            row.cells[kIndexesUnique] = BoolCell(unique);
            row.cells[kIndexesClustered] = BoolCell(kind == SQL_INDEX_CLUSTERED);
            row.cells[kIndexesType] = NumberCell(type);
            row.cells[kIndexesNulls] = NumberCell(DBPROPVAL_IN_ALLOWNULL);
            row.cells[kIndexesSortBookmarks] = BoolCell(false);
            row.cells[kIndexesAutoUpdate] = BoolCell(true);
            row.cells[kIndexesNullCollation] = NumberCell(DBPROPVAL_NC_HIGH);
            row.cells[kIndexesOrdinal] = NumberCell(Integer(s.get(), 8));
            row.cells[kIndexesColumnName] = TextCell(s.get(), 9);
            std::wstring order;
            ReadText(s.get(), 10, order);
            row.cells[kIndexesCollation] = NumberCell(order == L"D" ? DB_COLLATION_DESC : DB_COLLATION_ASC);
            SQLBIGINT cardinality = 0;
            if (ReadInteger(s.get(), 11, cardinality)) row.cells[21] = static_cast<std::int64_t>(cardinality);
            row.cells[kIndexesIntegrated] = BoolCell(kind == SQL_INDEX_CLUSTERED);
            rows.push_back(std::move(row));
        });
        MarkUnnamedKeyIndex(key, rows, tableRows);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const SourceRow& a, const SourceRow& b) {
        const auto number = [](const Cell& cell) {
            const auto* v = std::get_if<std::int64_t>(&cell);
            return v ? *v : 0;
        };
        if (number(a.cells[kIndexesUnique]) != number(b.cells[kIndexesUnique]))
            return number(a.cells[kIndexesUnique]) > number(b.cells[kIndexesUnique]);
        if (int d = CompareNames(CellText(a.cells[kIndexesName]), CellText(b.cells[kIndexesName]))) return d < 0;
        if (int d = CompareNames(CellText(a.cells[kIndexesTable]), CellText(b.cells[kIndexesTable]))) return d < 0;
        return number(a.cells[kIndexesOrdinal]) < number(b.cells[kIndexesOrdinal]);
    });
    return MakeSchemaRowSource(kIndexesColumns, std::move(rows));
}

std::unique_ptr<RowSource> PrimaryKeys(Connection& c, const Restrictions& r) {
    std::vector<SourceRow> rows;
    for (const TableName& t : ListTables(c, r[0], r[1], r[2])) {
        StatementHandle s = c.NewStatement();
        ExactArgument cat(TextOf(t.catalog)), sch(TextOf(t.schema)), tab(&t.name);
        CheckOdbc(SQLPrimaryKeysW(s.get(), cat.data(), cat.length(), sch.data(), sch.length(), tab.data(), tab.length()),
                  SQL_HANDLE_STMT, s.get());
        EachRow(s.get(), [&] {
            SourceRow row = EmptyRow(std::size(kPrimaryKeysColumns));
            row.cells[kCatalogColumn] = t.catalog;
            row.cells[kSchemaColumn] = t.schema;
            row.cells[kKeysTable] = t.name;
            row.cells[kKeysColumn] = TextCell(s.get(), 4);
            row.cells[kKeysOrdinal] = NumberCell(Integer(s.get(), 5));
            Cell name = TextCell(s.get(), 6);
            row.cells[kKeysName] = IsNull(name) ? Cell(std::wstring(L"PrimaryKey")) : std::move(name);
            rows.push_back(std::move(row));
        });
    }
    return MakeSchemaRowSource(kPrimaryKeysColumns, std::move(rows));
}

struct TypeInfoRow {
    SourceRow row;
    SQLSMALLINT sqlType;
};

// Every type of SQLGetTypeInfo(SQL_ALL_TYPES), as PROVIDER_TYPES rows.
std::vector<TypeInfoRow> TypeInfo(Connection& c, SQLSMALLINT which) {
    StatementHandle s = c.NewStatement();
    CheckOdbc(SQLGetTypeInfoW(s.get(), which), SQL_HANDLE_STMT, s.get());
    std::vector<TypeInfoRow> types;
    EachRow(s.get(), [&] {
        SourceRow row = EmptyRow(std::size(kProviderTypesColumns));
        row.cells[kTypeName] = TextCell(s.get(), 1);
        const auto sqlType = static_cast<SQLSMALLINT>(Integer(s.get(), 2));
        const std::int64_t size = Integer(s.get(), 3);
        const ColumnType type = MapSqlType(sqlType, static_cast<SQLULEN>(std::max<std::int64_t>(0, size)), 0,
                                           Integer(s.get(), 10) == SQL_TRUE)
                                    .type;
        row.cells[kDataType] = NumberCell(type.type);
        if (size > 0) row.cells[kColumnSize] = NumberCell(size);
        row.cells[kLiteralPrefix] = TextCell(s.get(), 4);
        row.cells[kLiteralSuffix] = TextCell(s.get(), 5);
        row.cells[kCreateParams] = TextCell(s.get(), 6);
        row.cells[kIsNullable] = BoolCell(Integer(s.get(), 7) != SQL_NO_NULLS);
        row.cells[kCaseSensitive] = BoolCell(Integer(s.get(), 8) == SQL_TRUE);
        row.cells[kSearchable] = NumberCell(Integer(s.get(), 9));
        row.cells[kUnsigned] = BoolCell(Integer(s.get(), 10) == SQL_TRUE);
        row.cells[kFixedPrecScale] = BoolCell(Integer(s.get(), 11) == SQL_TRUE);
        row.cells[kAutoUnique] = BoolCell(Integer(s.get(), 12) == SQL_TRUE);
        row.cells[12] = TextCell(s.get(), 13);  // LOCAL_TYPE_NAME
        SQLBIGINT scale = 0;
        if (ReadInteger(s.get(), 14, scale)) row.cells[kMinimumScale] = static_cast<std::int64_t>(scale);
        if (ReadInteger(s.get(), 15, scale)) row.cells[kMaximumScale] = static_cast<std::int64_t>(scale);
        row.cells[kIsLong] = BoolCell((type.flags & DBCOLUMNFLAGS_ISLONG) != 0);
        row.cells[kIsFixedLength] = BoolCell((type.flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) != 0);
        types.push_back({std::move(row), sqlType});
    });
    return types;
}

std::unique_ptr<RowSource> ProviderTypes(Connection& c, const Restrictions& r) {
    std::vector<SourceRow> rows;
    std::vector<std::int64_t> seen;  // the first type of each OLE DB type is its best match
    for (TypeInfoRow& t : TypeInfo(c, SQL_ALL_TYPES)) {
        const auto* dataType = std::get_if<std::int64_t>(&t.row.cells[kDataType]);
        const std::int64_t oleType = dataType ? *dataType : 0;
        const bool best = std::find(seen.begin(), seen.end(), oleType) == seen.end();
        if (best) seen.push_back(oleType);
        t.row.cells[kBestMatch] = BoolCell(best);
        if (r[0].present && static_cast<std::int64_t>(r[0].number) != oleType) continue;
        if (r[1].present && r[1].flag != best) continue;
        rows.push_back(std::move(t.row));
    }
    return MakeSchemaRowSource(kProviderTypesColumns, std::move(rows));
}

// The SQL types that hold an OLE DB type, most natural first.
std::vector<SQLSMALLINT> SqlTypesFor(DBTYPE type, bool isLong) {
    switch (type) {
    case DBTYPE_BOOL: return {SQL_BIT, SQL_SMALLINT};
    case DBTYPE_I1:
    case DBTYPE_UI1:
    case DBTYPE_I2: return {SQL_SMALLINT, SQL_INTEGER};
    case DBTYPE_UI2:
    case DBTYPE_I4: return {SQL_INTEGER, SQL_BIGINT};
    case DBTYPE_UI4:
    case DBTYPE_I8:
    case DBTYPE_UI8: return {SQL_BIGINT, SQL_NUMERIC, SQL_DECIMAL};
    case DBTYPE_R4: return {SQL_REAL, SQL_FLOAT, SQL_DOUBLE};
    case DBTYPE_R8: return {SQL_DOUBLE, SQL_FLOAT};
    case DBTYPE_CY:
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC: return {SQL_NUMERIC, SQL_DECIMAL};
    case DBTYPE_DATE:
    case DBTYPE_DBTIMESTAMP: return {SQL_TYPE_TIMESTAMP};
    case DBTYPE_DBDATE: return {SQL_TYPE_DATE, SQL_TYPE_TIMESTAMP};
    case DBTYPE_DBTIME: return {SQL_TYPE_TIME, SQL_TYPE_TIMESTAMP};
    case DBTYPE_GUID: return {SQL_GUID, SQL_CHAR};
    case DBTYPE_BYTES:
        return isLong ? std::vector<SQLSMALLINT>{SQL_LONGVARBINARY, SQL_VARBINARY}
                      : std::vector<SQLSMALLINT>{SQL_VARBINARY, SQL_LONGVARBINARY};
    case DBTYPE_STR:
    case DBTYPE_WSTR:
    case DBTYPE_BSTR:
        return isLong ? std::vector<SQLSMALLINT>{SQL_WLONGVARCHAR, SQL_LONGVARCHAR, SQL_WVARCHAR, SQL_VARCHAR}
                      : std::vector<SQLSMALLINT>{SQL_WVARCHAR, SQL_VARCHAR, SQL_WLONGVARCHAR, SQL_LONGVARCHAR};
    default: return {};
    }
}

}  // namespace

std::optional<DriverType> DriverTypeFor(Connection& c, DBTYPE type, bool isLong) {
    for (SQLSMALLINT sqlType : SqlTypesFor(type, isLong)) {
        StatementHandle s = c.NewStatement();
        CheckOdbc(SQLGetTypeInfoW(s.get(), sqlType), SQL_HANDLE_STMT, s.get());
        std::optional<DriverType> found;
        EachRow(s.get(), [&] {
            if (found) return;
            DriverType t;
            ReadText(s.get(), 1, t.name);
            ReadText(s.get(), 6, t.createParams);
            found = std::move(t);
        });
        if (found) return found;
    }
    return std::nullopt;
}

std::unique_ptr<RowSource> OdbcSchemaRows(const SchemaRequest& request, Connection& connection) {
    std::lock_guard guard(connection.lock());
    const GUID& schema = request.schema();
    const Restrictions& r = request.restrictions();
    if (schema == DBSCHEMA_TABLES) return Tables(connection, r);
    if (schema == DBSCHEMA_COLUMNS) return Columns(connection, r);
    if (schema == DBSCHEMA_INDEXES) return Indexes(connection, r);
    if (schema == DBSCHEMA_PRIMARY_KEYS) return PrimaryKeys(connection, r);
    return ProviderTypes(connection, r);
}

}  // namespace zel::provider::odbc
