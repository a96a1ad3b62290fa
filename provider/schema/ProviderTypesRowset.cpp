// The PROVIDER_TYPES schema rowset: the type names a column can be declared with, each as the
// provider maps it (TypeMapping), so that a consumer choosing a type from this list gets the
// OLE DB type it asked for.
#include <algorithm>

#include "provider/schema/SchemaRowsetBuilders.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider {

namespace {

struct ProviderType {
    const wchar_t* name;
    // The declaration whose mapping describes the type: for types with a length, one longer
    // than the mapping keeps (it caps the length); for DECIMAL, the largest precision.
    const wchar_t* widest;
    const wchar_t* createParams;
    const wchar_t* literalPrefix;
    const wchar_t* literalSuffix;
    bool bestMatch;     // the name to declare for this OLE DB type
    bool autoUnique;    // INTEGER PRIMARY KEY numbers new rows itself
};

const ProviderType kTypes[] = {
    {L"SMALLINT", L"SMALLINT", nullptr, nullptr, nullptr, true, false},
    {L"INTEGER", L"INTEGER", nullptr, nullptr, nullptr, true, true},
    {L"REAL", L"REAL", nullptr, nullptr, nullptr, true, false},
    {L"DOUBLE", L"DOUBLE", nullptr, nullptr, nullptr, true, false},
    {L"CURRENCY", L"CURRENCY", nullptr, nullptr, nullptr, true, false},
    {L"DATETIME", L"DATETIME", nullptr, L"'", L"'", true, false},
    {L"BIT", L"BIT", nullptr, nullptr, nullptr, true, false},
    {L"DECIMAL", L"DECIMAL(28)", L"precision,scale", nullptr, nullptr, true, false},
    {L"TINYINT", L"TINYINT", nullptr, nullptr, nullptr, true, false},
    {L"BIGINT", L"BIGINT", nullptr, nullptr, nullptr, true, false},
    {L"GUID", L"GUID", nullptr, L"'", L"'", true, false},
    {L"VARBINARY", L"VARBINARY(2147483647)", L"max length", L"X'", L"'", true, false},
    {L"BLOB", L"BLOB", nullptr, L"X'", L"'", false, false},
    {L"VARCHAR", L"VARCHAR(2147483647)", L"max length", L"'", L"'", true, false},
    {L"CHAR", L"CHAR(2147483647)", L"length", L"'", L"'", false, false},
    {L"TEXT", L"TEXT", nullptr, L"'", L"'", false, false},
};

// COLUMN_SIZE: precision for numbers, characters for text, bytes for binary data, the length
// of the text form for dates ("YYYY-MM-DD HH:MM:SS"). Long values are bounded only by
// SQLite's limit on the length of a value.
std::int64_t ColumnSize(const ColumnType& type, sqlite3* db) {
    if (HasNumericPrecision(type.type)) return type.precision;
    if (type.type == DBTYPE_DATE) return 19;
    if (type.flags & DBCOLUMNFLAGS_ISLONG) return sqlite3_limit(db, SQLITE_LIMIT_LENGTH, -1);
    return static_cast<std::int64_t>(type.size);
}

}  // namespace

std::unique_ptr<RowSource> ProviderTypesRowset(const std::shared_ptr<Database>& database, const Restrictions& r) {
    // Restrictions: DATA_TYPE, BEST_MATCH. Sorted by DATA_TYPE, the best match first.
    std::vector<SourceRow> rows;
    for (const ProviderType& t : kTypes) {
        const ColumnType type = MapDeclaredType(t.widest);
        if (r[0].present && r[0].number != type.type) continue;
        if (r[1].present && r[1].flag != t.bestMatch) continue;
        const bool text = type.type == DBTYPE_WSTR;
        SourceRow row = EmptyRow(std::size(kProviderTypesColumns));
        row.cells[kTypeName] = std::wstring(t.name);
        row.cells[kDataType] = NumberCell(type.type);
        row.cells[kColumnSize] = NumberCell(ColumnSize(type, database->handle()));
        if (t.literalPrefix) row.cells[kLiteralPrefix] = std::wstring(t.literalPrefix);
        if (t.literalSuffix) row.cells[kLiteralSuffix] = std::wstring(t.literalSuffix);
        if (t.createParams) row.cells[kCreateParams] = std::wstring(t.createParams);
        row.cells[kIsNullable] = BoolCell(true);
        row.cells[kCaseSensitive] = BoolCell(text);  // SQLite compares text by code point
        row.cells[kSearchable] = NumberCell(text ? DB_SEARCHABLE : DB_ALL_EXCEPT_LIKE);
        if (HasNumericPrecision(type.type)) row.cells[kUnsigned] = BoolCell(type.type == DBTYPE_UI1);
        row.cells[kFixedPrecScale] = BoolCell(type.type == DBTYPE_CY);
        row.cells[kAutoUnique] = BoolCell(t.autoUnique);
        if (type.type == DBTYPE_DECIMAL) {
            row.cells[kMinimumScale] = NumberCell(0);
            row.cells[kMaximumScale] = NumberCell(type.precision);
        }
        row.cells[kIsLong] = BoolCell((type.flags & DBCOLUMNFLAGS_ISLONG) != 0);
        row.cells[kBestMatch] = BoolCell(t.bestMatch);
        row.cells[kIsFixedLength] = BoolCell((type.flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) != 0);
        rows.push_back(std::move(row));
    }
    std::stable_sort(rows.begin(), rows.end(), [](const SourceRow& a, const SourceRow& b) {
        auto number = [](const Cell& cell) { return std::get<std::int64_t>(cell); };
        if (number(a.cells[kDataType]) != number(b.cells[kDataType]))
            return number(a.cells[kDataType]) < number(b.cells[kDataType]);
        return number(a.cells[kBestMatch]) > number(b.cells[kBestMatch]);
    });
    return MakeSchemaRowSource(kProviderTypesColumns, std::move(rows));
}

}  // namespace zel::provider
