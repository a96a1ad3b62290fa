// The schema rowsets a provider offers (IDBSchemaRowset): TABLES, COLUMNS, INDEXES,
// PRIMARY_KEYS and PROVIDER_TYPES, each with every standard column in its standard ordinal and
// type (SchemaLayouts.h), so that a consumer binding by ordinal reads the right values. This
// file checks a request; each provider builds the rows from its own catalog.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <vector>

#include "provider/schema/SchemaLayouts.h"

namespace zel::provider {

struct SchemaSupport {
    const GUID* schema;
    ULONG restrictionMask;  // bit n: the (n+1)th restriction column is applied
};

// The schema rowsets offered, in IDBSchemaRowset::GetSchemas order.
std::vector<SchemaSupport> SupportedSchemas();

struct SchemaEntry;
struct SchemaRestrictionValues;

// One IDBSchemaRowset::GetRowset request, checked: the schema and its restriction values.
class SchemaRequest {
public:
    // Fails (error published) with E_INVALIDARG for a schema the provider does not offer, more
    // restrictions than the schema defines, or a restriction that is not of its column's type
    // (text: VT_BSTR; DATA_TYPE and TYPE: an integer type holding an unsigned 16-bit value;
    // BEST_MATCH: VT_BOOL).
    SchemaRequest(REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[]);
    ~SchemaRequest();
    SchemaRequest(const SchemaRequest&) = delete;
    SchemaRequest& operator=(const SchemaRequest&) = delete;

    const GUID& schema() const noexcept;
    // One entry per restriction column of the schema, absent beyond those the consumer gave.
    const Restrictions& restrictions() const noexcept;

private:
    const SchemaEntry* m_entry;
    std::unique_ptr<SchemaRestrictionValues> m_values;
};

}  // namespace zel::provider
