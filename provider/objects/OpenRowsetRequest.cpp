#include "provider/objects/OpenRowsetRequest.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/properties/RowsetProperties.h"

namespace zel::provider {

OpenRowsetRequest CheckOpenRowset(IUnknown* outer, const DBID* tableId, const DBID* indexId, REFIID riid,
                                  ULONG setCount, DBPROPSET sets[], IUnknown** rowset) {
    if (rowset) *rowset = nullptr;
    if (!tableId && !indexId) Fail(E_INVALIDARG, L"Neither a table nor an index was named.");
    if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
    if (indexId) Fail(DB_E_NOINDEX);
    if (tableId->eKind != DBKIND_NAME || !tableId->uName.pwszName || !*tableId->uName.pwszName)
        Fail(DB_E_NOTABLE, L"Tables are named by DBKIND_NAME ids.");
    OpenRowsetRequest request{tableId->uName.pwszName, MakeRowsetProperties(), S_OK};
    request.propertiesResult =
        request.properties.SetProperties(setCount, sets, RowsetPropertySets(), ValidateRowsetProperty);
    if (FAILED(request.propertiesResult))
        Fail(request.propertiesResult, L"A required rowset property cannot be satisfied; see each property's status.");
    return request;
}

}  // namespace zel::provider
