// IDBSchemaRowset as every provider's session offers it: the request and the rowset
// properties are checked here, the provider builds the rows from its catalog, and they are
// handed out as a read-only rowset. Both functions are a session's method bodies: they publish
// their error objects and return the method's result; they never throw.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <functional>
#include <memory>

#include "provider/rows/RowSource.h"
#include "provider/schema/SchemaRowsets.h"

namespace zel::provider {

// Builds the rows of a checked request, sorted in the schema's standard order; throws (error
// published) on a database error.
using SchemaRowsBuilder = std::function<std::unique_ptr<RowSource>(const SchemaRequest&)>;

// IDBSchemaRowset::GetRowset: E_INVALIDARG for another schema, more restrictions than it
// defines or one of the wrong type; DB_E_NOAGGREGATION; E_NOINTERFACE; DB_E_ERRORSOCCURRED when
// a required rowset property (IRowsetChange among them) cannot be set; DB_S_ERRORSOCCURRED when
// an optional one cannot. `creator` is the session (IRowsetInfo::GetSpecification).
HRESULT OpenSchemaRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[],
                         REFIID riid, ULONG setCount, DBPROPSET sets[], IUnknown** rowset, IUnknown* creator,
                         const SchemaRowsBuilder& build);

// IDBSchemaRowset::GetSchemas: the schemas SupportedSchemas() lists; both arrays are the
// caller's (CoTaskMemFree).
HRESULT WriteSupportedSchemas(ULONG* schemaCount, GUID** schemas, ULONG** restrictionSupport);

}  // namespace zel::provider
