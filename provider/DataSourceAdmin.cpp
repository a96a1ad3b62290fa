// IDBDataSourceAdmin and IJetCompact of the data source.
#include <oledberr.h>

#include "provider/DataSource.h"
#include "provider/Errors.h"

namespace zel::lite {

STDMETHODIMP DataSource::CreateDataSource(ULONG, DBPROPSET[], IUnknown*, REFIID, IUnknown** session) {
    if (session) *session = nullptr;
    return E_NOTIMPL;
}

STDMETHODIMP DataSource::DestroyDataSource() { return E_NOTIMPL; }

STDMETHODIMP DataSource::GetCreationProperties(ULONG, const DBPROPIDSET[], ULONG*, DBPROPINFOSET**, OLECHAR**) {
    return E_NOTIMPL;
}

STDMETHODIMP DataSource::ModifyDataSource(ULONG, DBPROPSET[]) { return E_NOTIMPL; }

STDMETHODIMP DataSource::Compact(ULONG, DBPROPSET[]) { return E_NOTIMPL; }

}  // namespace zel::lite
