#include "provider/schema/SchemaLayouts.h"

#include <algorithm>

namespace zel::provider {

namespace {

// A text column is never reported narrower than this.
constexpr DBLENGTH kMinimumTextWidth = 128;

}  // namespace

std::unique_ptr<RowSource> MakeSchemaRowSource(std::span<const SchemaColumn> columns, std::vector<SourceRow> rows) {
    std::vector<ColumnDesc> descs;
    for (size_t i = 0; i < columns.size(); ++i) {
        const SchemaColumn& column = columns[i];
        ColumnDesc desc;
        desc.name = column.name;
        if (column.type == DBTYPE_WSTR) {
            DBLENGTH width = kMinimumTextWidth;
            for (const SourceRow& row : rows) width = std::max<DBLENGTH>(width, CellText(row.cells[i]).size());
            desc.type = ColumnType{};
            desc.type.type = DBTYPE_WSTR;
            desc.type.size = width;
        } else {
            desc.type = FixedType(column.type);
        }
        desc.flags = desc.type.flags;
        if (column.nullable) desc.flags |= DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE;
        descs.push_back(std::move(desc));
    }
    return std::make_unique<MemoryRowSource>(std::move(descs), std::move(rows));
}

SourceRow EmptyRow(size_t count) {
    SourceRow row;
    row.cells.resize(count);
    return row;
}

int CompareNames(std::wstring_view a, std::wstring_view b) {
    auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; };
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        wchar_t x = fold(a[i]), y = fold(b[i]);
        if (x != y) return x < y ? -1 : 1;
    }
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

bool HasNumericPrecision(DBTYPE type) noexcept {
    switch (type) {
    case DBTYPE_I1: case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_I8:
    case DBTYPE_UI1: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_UI8:
    case DBTYPE_R4: case DBTYPE_R8: case DBTYPE_CY: case DBTYPE_DECIMAL: case DBTYPE_NUMERIC: return true;
    default: return false;
    }
}

std::wstring_view CellText(const Cell& cell) {
    if (const auto* text = std::get_if<std::wstring>(&cell)) return *text;
    return {};
}

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

}  // namespace zel::provider
