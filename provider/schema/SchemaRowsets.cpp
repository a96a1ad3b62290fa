#include "provider/schema/SchemaRowsets.h"

#include <algorithm>
#include <span>
#include <string>

#include "provider/errors/Errors.h"
#include "provider/schema/SchemaLayouts.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

enum class RestrictionType { Text, UnsignedShort, Boolean };

constexpr RestrictionType kText = RestrictionType::Text;
const RestrictionType kTablesRestrictions[] = {kText, kText, kText, kText};     // catalog, schema, name, type
const RestrictionType kColumnsRestrictions[] = {kText, kText, kText, kText};    // catalog, schema, table, column
const RestrictionType kIndexesRestrictions[] = {kText, kText, kText,            // catalog, schema, index name,
                                                RestrictionType::UnsignedShort,  // type,
                                                kText};                          // table
const RestrictionType kPrimaryKeysRestrictions[] = {kText, kText, kText};       // catalog, schema, table
const RestrictionType kProviderTypesRestrictions[] = {RestrictionType::UnsignedShort,  // data type
                                                      RestrictionType::Boolean};       // best match

}  // namespace

struct SchemaEntry {
    const GUID* schema;
    std::span<const RestrictionType> restrictions;
};

struct SchemaRestrictionValues {
    Restrictions restrictions;
};

namespace {

using Entry = SchemaEntry;

// Every restriction column of every schema is applied, so each mask has all its bits set.
const Entry kEntries[] = {
    {&DBSCHEMA_TABLES, kTablesRestrictions},
    {&DBSCHEMA_COLUMNS, kColumnsRestrictions},
    {&DBSCHEMA_INDEXES, kIndexesRestrictions},
    {&DBSCHEMA_PRIMARY_KEYS, kPrimaryKeysRestrictions},
    {&DBSCHEMA_PROVIDER_TYPES, kProviderTypesRestrictions},
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
    if (!m_entry) Fail(E_INVALIDARG, L"The provider does not offer the schema rowset asked for.");
    if (restrictionCount > m_entry->restrictions.size())
        Fail(E_INVALIDARG, L"The schema rowset has " + std::to_wstring(m_entry->restrictions.size()) +
                               L" restriction columns; " + std::to_wstring(restrictionCount) + L" values were given.");
    if (restrictionCount && !restrictions) Fail(E_INVALIDARG, L"No restriction values were given.");
    m_values->restrictions.resize(m_entry->restrictions.size());
    for (ULONG i = 0; i < restrictionCount; ++i)
        m_values->restrictions[i] = ReadRestriction(restrictions[i], m_entry->restrictions[i], i + 1);
}

SchemaRequest::~SchemaRequest() = default;

const GUID& SchemaRequest::schema() const noexcept { return *m_entry->schema; }

const Restrictions& SchemaRequest::restrictions() const noexcept { return m_values->restrictions; }

}  // namespace zel::provider
