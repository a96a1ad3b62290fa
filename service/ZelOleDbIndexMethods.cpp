// The index methods of IZelOleDb: the index enumeration and the list of index names.
#include <algorithm>

#include "common/SafeArray.h"
#include "service/CatalogResults.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"

namespace zel {

STDMETHODIMP ZelOleDbImpl::IdxOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR table, BSTR index, BSTR* errorText,
                                   BSTR* errorStmt) {
    try {
        return OpenEnumeration(m_indexes, client, errorText, errorStmt, [&](KobOleDbIndexes& indexes) {
            return indexes.Open(m_connection.get(), catalog, schema, table, index);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxDestroy(ULONG client) {
    try {
        return DestroyHandle(m_indexes, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxClose(ULONG client) {
    try {
        return CloseEnumeration(m_indexes, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxFetchNext(ULONG client, VARIANT_BOOL* result) {
    try {
        KobOleDbIndexes* indexes = Find(m_indexes, client);
        if (!indexes || !result) return E_FAIL;
        *result = ToVariantBool(indexes->FetchNext());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldIndexName, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetCatalog(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldCatalog, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetSchema(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldSchema, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetTableName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldTableName, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetTableCatalog(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldTableCatalog, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetTableSchema(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldTableSchema, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetColumnName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_indexes, client), kFieldColumnName, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::IdxGetIndexList(ULONG client, VARIANT_BOOL /*incPrimaryKey*/, VARIANT* result) {
    try {
        KobOleDbIndexes* indexes = Find(m_indexes, client);
        if (!indexes || !result || !indexes->HasReader()) return E_FAIL;
        std::vector<std::wstring> names;
        // Primary-key indexes are always left out, whatever incPrimaryKey says; names are
        // compared code unit by code unit, so names differing in case are both listed.
        ReadAllRows(*indexes, [&] {
            if (indexes->Current().primaryKey != 0) return;
            std::wstring name = indexes->GetField(kFieldIndexName);
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
        });
        SafeArray array(MakeStringArray(names));
        VariantClear(result);
        V_VT(result) = VT_ARRAY | VT_BSTR;
        V_ARRAY(result) = array.release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
