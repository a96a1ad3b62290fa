// What the builders of the schema rowsets share: the restriction values as checked, the
// description of a standard column, and helpers to fill, order and hand over the rows. One
// builder per schema rowset (SchemaCatalogRowsets.cpp, ProviderTypesRowset.cpp).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/sqlite/Database.h"

namespace zel::lite {

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

// Hands the rows over as a row source. Text columns are reported as wide as their longest
// value and at least 128 characters (names are not limited in SQLite).
std::unique_ptr<RowSource> MakeSchemaRowSource(std::span<const SchemaColumn> columns, std::vector<SourceRow> rows);

// A row of `count` NULL cells.
SourceRow EmptyRow(size_t count);
inline Cell BoolCell(bool value) { return static_cast<std::int64_t>(value ? 1 : 0); }
inline Cell NumberCell(std::int64_t value) { return value; }

// Whether a name passes a name restriction (SQLite's comparison: ASCII case ignored).
bool NameMatches(const Restriction& restriction, std::wstring_view name);
// Whether any catalog or schema restriction is present: SQLite has neither, so such a
// restriction matches nothing.
bool RestrictsCatalog(const Restriction& catalog, const Restriction& schema);
// Orders names without regard to ASCII case, then by code unit (so that names differing only
// in case keep a fixed order). Negative, zero or positive.
int CompareNames(std::wstring_view a, std::wstring_view b);
// The text of a cell, empty for NULL.
std::wstring_view CellText(const Cell& cell);
// Whether NUMERIC_PRECISION applies to the type (the numbers, not BOOL).
bool HasNumericPrecision(DBTYPE type) noexcept;

// The builders. `restrictions` has one entry per restriction column of the schema.
std::unique_ptr<RowSource> TablesRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> ColumnsRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> IndexesRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> PrimaryKeysRowset(const std::shared_ptr<Database>& database,
                                             const Restrictions& restrictions);
std::unique_ptr<RowSource> ProviderTypesRowset(const std::shared_ptr<Database>& database,
                                               const Restrictions& restrictions);

}  // namespace zel::lite
