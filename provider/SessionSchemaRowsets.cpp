// IDBSchemaRowset of the session.
#include <oledberr.h>

#include "provider/Errors.h"
#include "provider/Session.h"

namespace zel::lite {

STDMETHODIMP Session::GetRowset(IUnknown*, REFGUID, ULONG, const VARIANT[], REFIID, ULONG, DBPROPSET[],
                                IUnknown** rowset) {
    if (rowset) *rowset = nullptr;
    return E_NOTIMPL;
}

STDMETHODIMP Session::GetSchemas(ULONG* schemaCount, GUID** schemas, ULONG** restrictionSupport) {
    if (schemaCount) *schemaCount = 0;
    if (schemas) *schemas = nullptr;
    if (restrictionSupport) *restrictionSupport = nullptr;
    return E_NOTIMPL;
}

}  // namespace zel::lite
