// IDBSchemaRowset of the session: the rows come from SQLite's catalog (SchemaRowsetBuilders.h),
// the rest is every provider's (SchemaRowsetOpening.h).
#include "provider/objects/SchemaRowsetOpening.h"
#include "provider/objects/Session.h"
#include "provider/schema/SchemaRowsetBuilders.h"

namespace zel::provider {

STDMETHODIMP Session::GetRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[],
                                REFIID riid, ULONG setCount, DBPROPSET sets[], IUnknown** rowset) {
    try {
        return OpenSchemaRowset(outer, schema, restrictionCount, restrictions, riid, setCount, sets, rowset, Identity(),
                                [&](const SchemaRequest& request) {
                                    std::lock_guard guard(m_lock);
                                    return SqliteSchemaRows(request, m_database);
                                });
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
