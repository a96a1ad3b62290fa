// ITableDefinition, ITableCreation and IIndexDefinition of the session.
#include <oledberr.h>

#include "provider/Errors.h"
#include "provider/Session.h"

namespace zel::lite {

STDMETHODIMP Session::CreateTable(IUnknown*, DBID*, DBORDINAL, const DBCOLUMNDESC[], REFIID, ULONG, DBPROPSET[],
                                  DBID**, IUnknown**) {
    return E_NOTIMPL;
}

STDMETHODIMP Session::DropTable(DBID*) { return E_NOTIMPL; }

STDMETHODIMP Session::AddColumn(DBID*, DBCOLUMNDESC*, DBID**) { return E_NOTIMPL; }

STDMETHODIMP Session::DropColumn(DBID*, DBID*) { return E_NOTIMPL; }

STDMETHODIMP Session::GetTableDefinition(DBID*, DBORDINAL*, DBCOLUMNDESC**, ULONG*, DBPROPSET**, ULONG*,
                                         DBCONSTRAINTDESC**, OLECHAR**) {
    return E_NOTIMPL;
}

STDMETHODIMP Session::CreateIndex(DBID*, DBID*, DBORDINAL, const DBINDEXCOLUMNDESC[], ULONG, DBPROPSET[], DBID**) {
    return E_NOTIMPL;
}

STDMETHODIMP Session::DropIndex(DBID*, DBID*) { return E_NOTIMPL; }

}  // namespace zel::lite
