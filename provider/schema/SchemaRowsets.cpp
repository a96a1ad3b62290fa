#include "provider/schema/SchemaRowsets.h"

#include <algorithm>
#include <span>
#include <string>

#include "provider/errors/Errors.h"
#include "provider/schema/SchemaRowsetBuilders.h"
#include "provider/text/Utf.h"

namespace zel::lite {

namespace {

enum class RestrictionType { Text, UnsignedShort, Boolean };

using Builder = std::unique_ptr<RowSource> (*)(const std::shared_ptr<Database>&, const Restrictions&);

constexpr RestrictionType kText = RestrictionType::Text;
const RestrictionType kTablesRestrictions[] = {kText, kText, kText, kText};     // catalog, schema, name, type
const RestrictionType kColumnsRestrictions[] = {kText, kText, kText, kText};    // catalog, schema, table, column
const RestrictionType kIndexesRestrictions[] = {kText, kText, kText,            // catalog, schema, index name,
                                                RestrictionType::UnsignedShort,  // type,
                                                kText};                          // table
const RestrictionType kPrimaryKeysRestrictions[] = {kText, kText, kText};       // catalog, schema, table
const RestrictionType kProviderTypesRestrictions[] = {RestrictionType::UnsignedShort,  // data type
                                                      RestrictionType::Boolean};       // best match

// A text column is never reported narrower than this.
constexpr DBLENGTH kMinimumTextWidth = 128;

}  // namespace

struct SchemaEntry {
    const GUID* schema;
    std::span<const RestrictionType> restrictions;
    Builder build;
};

struct SchemaRestrictionValues {
    Restrictions restrictions;
};

namespace {

using Entry = SchemaEntry;

// Every restriction column of every schema is applied, so each mask has all its bits set.
const Entry kEntries[] = {
    {&DBSCHEMA_TABLES, kTablesRestrictions, &TablesRowset},
    {&DBSCHEMA_COLUMNS, kColumnsRestrictions, &ColumnsRowset},
    {&DBSCHEMA_INDEXES, kIndexesRestrictions, &IndexesRowset},
    {&DBSCHEMA_PRIMARY_KEYS, kPrimaryKeysRestrictions, &PrimaryKeysRowset},
    {&DBSCHEMA_PROVIDER_TYPES, kProviderTypesRestrictions, &ProviderTypesRowset},
};

bool IntegerValue(const VARIANT& value, long long* out) {
    switch (V_VT(&value)) {
    case VT_I1: *out = V_I1(&value); return true;
    case VT_UI1: *out = V_UI1(&value); return true;
    case VT_I2: *out = V_I2(&value); return true;
    case VT_UI2: *out = V_UI2(&value); return true;
    case VT_I4: *out = V_I4(&value); return true;
    case VT_UI4: *out = V_UI4(&value); return true;
    case VT_INT: *out = V_INT(&value); return true;
    case VT_UINT: *out = V_UINT(&value); return true;
    case VT_I8: *out = V_I8(&value); return true;
    case VT_UI8:
        if (V_UI8(&value) > 0xFFFF) return false;
        *out = static_cast<long long>(V_UI8(&value));
        return true;
    default: return false;
    }
}

Restriction ReadRestriction(const VARIANT& value, RestrictionType type, ULONG position) {
    Restriction r;
    if (V_VT(&value) == VT_EMPTY || V_VT(&value) == VT_NULL) return r;
    const std::wstring where = L"Restriction " + std::to_wstring(position);
    switch (type) {
    case RestrictionType::Text: {
        if (V_VT(&value) != VT_BSTR) Fail(E_INVALIDARG, where + L" must be a string (VT_BSTR).");
        BSTR text = V_BSTR(&value);
        UINT length = text ? SysStringLen(text) : 0;
        if (length == 0) return r;  // an empty name restricts nothing
        r.present = true;
        r.text.assign(text, length);
        return r;
    }
    case RestrictionType::UnsignedShort: {
        long long number = 0;
        if (!IntegerValue(value, &number) || number < 0 || number > 0xFFFF)
            Fail(E_INVALIDARG, where + L" must be an unsigned 16-bit integer (VT_UI2).");
        r.present = true;
        r.number = static_cast<unsigned>(number);
        return r;
    }
    case RestrictionType::Boolean:
        if (V_VT(&value) != VT_BOOL) Fail(E_INVALIDARG, where + L" must be a boolean (VT_BOOL).");
        r.present = true;
        r.flag = V_BOOL(&value) != VARIANT_FALSE;
        return r;
    }
    return r;
}

}  // namespace

std::vector<SchemaSupport> SupportedSchemas() {
    std::vector<SchemaSupport> supported;
    for (const Entry& entry : kEntries)
        supported.push_back({entry.schema, (1UL << entry.restrictions.size()) - 1});
    return supported;
}

SchemaRequest::SchemaRequest(REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[])
    : m_entry(nullptr), m_values(std::make_unique<SchemaRestrictionValues>()) {
    for (const Entry& entry : kEntries)
        if (*entry.schema == schema) m_entry = &entry;
    if (!m_entry) Fail(E_INVALIDARG, L"ZelLite does not offer the schema rowset asked for.");
    if (restrictionCount > m_entry->restrictions.size())
        Fail(E_INVALIDARG, L"The schema rowset has " + std::to_wstring(m_entry->restrictions.size()) +
                               L" restriction columns; " + std::to_wstring(restrictionCount) + L" values were given.");
    if (restrictionCount && !restrictions) Fail(E_INVALIDARG, L"No restriction values were given.");
    m_values->restrictions.resize(m_entry->restrictions.size());
    for (ULONG i = 0; i < restrictionCount; ++i)
        m_values->restrictions[i] = ReadRestriction(restrictions[i], m_entry->restrictions[i], i + 1);
}

SchemaRequest::~SchemaRequest() = default;

std::unique_ptr<RowSource> SchemaRequest::Rows(const std::shared_ptr<Database>& database) const {
    return m_entry->build(database, m_values->restrictions);
}

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

bool NameMatches(const Restriction& restriction, std::wstring_view name) {
    return !restriction.present || EqualsNoCase(restriction.text, name);
}

bool RestrictsCatalog(const Restriction& catalog, const Restriction& schema) {
    return catalog.present || schema.present;
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

}  // namespace zel::lite
