// IOpenRowset::OpenRowset's arguments as every provider checks them: a table named by a
// DBKIND_NAME id, no index, and the rowset properties asked for.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

struct OpenRowsetRequest {
    std::wstring table;
    PropertyStore properties;   // the rowset properties, set as asked (statuses written)
    HRESULT propertiesResult;   // S_OK, or DB_S_ERRORSOCCURRED when optional ones were not set
};

// Clears *rowset and checks the arguments. Fails (error published) with E_INVALIDARG when
// neither a table nor an index is named, DB_E_NOAGGREGATION for an outer object with an IID
// other than IUnknown, DB_E_NOINDEX for an index id, DB_E_NOTABLE for a table id that is not a
// non-empty name, or the properties' failure when a required one cannot be set.
OpenRowsetRequest CheckOpenRowset(IUnknown* outer, const DBID* tableId, const DBID* indexId, REFIID riid,
                                  ULONG setCount, DBPROPSET sets[], IUnknown** rowset);

}  // namespace zel::provider
