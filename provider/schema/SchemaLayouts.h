// The standard schema rowsets' columns (names, types, nullability, in ordinal order), the
// restriction values a consumer gives, and helpers to fill, order and hand over the rows. Every
// provider builds its schema rowsets with these, so consumers see one layout.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider {

// One restriction value: absent (VT_EMPTY, VT_NULL or an empty string), or a value of its
// column's type.
struct Restriction {
    bool present = false;
    std::wstring text;        // text restrictions
    unsigned number = 0;      // DATA_TYPE and TYPE
    bool flag = false;        // BEST_MATCH
};
// One entry per restriction column of the schema, absent beyond those the consumer gave.
using Restrictions = std::vector<Restriction>;

// A standard column of a schema rowset: its name, its type, and whether it holds NULLs.
struct SchemaColumn {
    const wchar_t* name;
    DBTYPE type;
    bool nullable;
};

inline constexpr bool kNull = true;
inline constexpr bool kNotNull = false;

// TABLES, sorted by TABLE_TYPE, TABLE_CATALOG, TABLE_SCHEMA, TABLE_NAME.
enum TablesColumn : size_t { kTablesName = 2, kTablesType = 3 };
inline constexpr SchemaColumn kTablesColumns[] = {
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
inline constexpr SchemaColumn kColumnsColumns[] = {
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
inline constexpr SchemaColumn kIndexesColumns[] = {
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
inline constexpr SchemaColumn kPrimaryKeysColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR, kNull}, {L"TABLE_SCHEMA", DBTYPE_WSTR, kNull},
    {L"TABLE_NAME", DBTYPE_WSTR, kNotNull}, {L"COLUMN_NAME", DBTYPE_WSTR, kNotNull},
    {L"COLUMN_GUID", DBTYPE_GUID, kNull},   {L"COLUMN_PROPID", DBTYPE_UI4, kNull},
    {L"ORDINAL", DBTYPE_UI4, kNotNull},     {L"PK_NAME", DBTYPE_WSTR, kNotNull},
};

// PROVIDER_TYPES
enum ProviderTypesColumn : size_t {
    kTypeName = 0,
    kDataType = 1,
    kColumnSize = 2,
    kLiteralPrefix = 3,
    kLiteralSuffix = 4,
    kCreateParams = 5,
    kIsNullable = 6,
    kCaseSensitive = 7,
    kSearchable = 8,
    kUnsigned = 9,
    kFixedPrecScale = 10,
    kAutoUnique = 11,
    kMinimumScale = 13,
    kMaximumScale = 14,
    kIsLong = 18,
    kBestMatch = 19,
    kIsFixedLength = 20,
};

inline constexpr SchemaColumn kProviderTypesColumns[] = {
    {L"TYPE_NAME", DBTYPE_WSTR, kNotNull},
    {L"DATA_TYPE", DBTYPE_UI2, kNotNull},
    {L"COLUMN_SIZE", DBTYPE_UI4, kNull},
    {L"LITERAL_PREFIX", DBTYPE_WSTR, kNull},
    {L"LITERAL_SUFFIX", DBTYPE_WSTR, kNull},
    {L"CREATE_PARAMS", DBTYPE_WSTR, kNull},
    {L"IS_NULLABLE", DBTYPE_BOOL, kNotNull},
    {L"CASE_SENSITIVE", DBTYPE_BOOL, kNotNull},
    {L"SEARCHABLE", DBTYPE_UI4, kNotNull},
    {L"UNSIGNED_ATTRIBUTE", DBTYPE_BOOL, kNull},
    {L"FIXED_PREC_SCALE", DBTYPE_BOOL, kNotNull},
    {L"AUTO_UNIQUE_VALUE", DBTYPE_BOOL, kNotNull},
    {L"LOCAL_TYPE_NAME", DBTYPE_WSTR, kNull},
    {L"MINIMUM_SCALE", DBTYPE_I2, kNull},
    {L"MAXIMUM_SCALE", DBTYPE_I2, kNull},
    {L"GUID", DBTYPE_GUID, kNull},
    {L"TYPELIB", DBTYPE_WSTR, kNull},
    {L"VERSION", DBTYPE_WSTR, kNull},
    {L"IS_LONG", DBTYPE_BOOL, kNotNull},
    {L"BEST_MATCH", DBTYPE_BOOL, kNotNull},
    {L"IS_FIXEDLENGTH", DBTYPE_BOOL, kNotNull},
};

// Hands the rows over as a row source. Text columns are reported as wide as their longest
// value and at least 128 characters (names are not limited).
std::unique_ptr<RowSource> MakeSchemaRowSource(std::span<const SchemaColumn> columns, std::vector<SourceRow> rows);

// A row of `count` NULL cells.
SourceRow EmptyRow(size_t count);
inline Cell BoolCell(bool value) { return static_cast<std::int64_t>(value ? 1 : 0); }
inline Cell NumberCell(std::int64_t value) { return value; }

// Orders names without regard to ASCII case, then by code unit (so that names differing only
// in case keep a fixed order). Negative, zero or positive.
int CompareNames(std::wstring_view a, std::wstring_view b);
// The text of a cell, empty for NULL.
std::wstring_view CellText(const Cell& cell);
// Whether NUMERIC_PRECISION applies to the type (the numbers, not BOOL).
bool HasNumericPrecision(DBTYPE type) noexcept;

// Sizes, precision and scale of a column as the COLUMNS rowset gives them (in `row`, a row of
// kColumnsColumns), from the same type the column's rowsets report.
void FillTypeCells(const ColumnType& type, SourceRow& row);

}  // namespace zel::provider
