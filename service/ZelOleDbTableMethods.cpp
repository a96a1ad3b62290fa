// The table methods of IZelOleDb: the table enumeration, the name lists built from it, and
// table creation, deletion and definition through table-definition documents.
#include "common/SafeArray.h"
#include "service/CatalogResults.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"
#include "xml/TableDefXml.h"

namespace zel {

STDMETHODIMP ZelOleDbImpl::TblOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR name, BSTR type, BSTR* errorText,
                                   BSTR* errorStmt) {
    try {
        return OpenEnumeration(m_tables, client, errorText, errorStmt, [&](KobOleDbTables& tables) {
            return tables.Open(m_connection.get(), catalog, schema, name, type);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblDestroy(ULONG client) {
    try {
        return DestroyHandle(m_tables, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblFetchNext(ULONG client, VARIANT_BOOL* result) {
    try {
        KobOleDbTables* tables = Find(m_tables, client);
        if (!tables || !result) return E_FAIL;
        *result = ToVariantBool(tables->FetchNext());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblClose(ULONG client) {
    try {
        return CloseEnumeration(m_tables, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_tables, client), kFieldTableName, result, false);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetCatalog(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_tables, client), kFieldCatalog, result, false);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetSchema(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_tables, client), kFieldSchema, result, false);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetDescription(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_tables, client), kFieldDescription, result, false);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetType(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_tables, client), kFieldTableType, result, false);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetTableList(ULONG client, VARIANT* result) {
    try {
        KobOleDbTables* tables = Find(m_tables, client);
        if (!tables || !result || !tables->HasReader()) return E_FAIL;
        std::vector<std::wstring> names;
        ReadAllRows(*tables, [&] {
            std::wstring name = tables->GetField(kFieldTableName);
            if (!name.empty()) names.push_back(std::move(name));  // duplicates kept
        });
        SafeArray array(MakeStringArray(names));
        VariantClear(result);
        V_VT(result) = VT_ARRAY | VT_BSTR;
        V_ARRAY(result) = array.release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetList(ULONG client, VARIANT* result) {
    try {
        KobOleDbTables* tables = Find(m_tables, client);
        if (!tables || !result || !tables->HasReader()) return E_FAIL;
        std::vector<std::vector<std::wstring>> rows;
        ReadAllRows(*tables, [&] {
            rows.push_back({tables->GetField(kFieldTableName), tables->GetField(kFieldTableType),
                            tables->GetField(kFieldTableSchema), tables->GetField(kFieldTableCatalog),
                            tables->GetField(kFieldDescription)});
        });
        if (rows.empty()) ThrowHr(E_INVALIDARG);
        SafeArray outer(SafeArrayCreateVector(VT_VARIANT, 0, static_cast<ULONG>(rows.size())));
        if (!outer) ThrowHr(E_OUTOFMEMORY);
        {
            SafeArrayData data(outer.get());
            VARIANT* elements = data.as<VARIANT>();
            for (size_t i = 0; i < rows.size(); ++i) {
                // Each row is a VARIANT holding a BSTR array of its five strings.
                V_ARRAY(&elements[i]) = MakeStringArray(rows[i]);
                V_VT(&elements[i]) = VT_ARRAY | VT_BSTR;
            }
        }
        VariantClear(result);
        V_VT(result) = VT_ARRAY | VT_VARIANT;
        V_ARRAY(result) = outer.release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblDelete(BSTR tableName) {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        Bstr name(tableName);
        return m_connection->DropTable(name.get());
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblCreate(BSTR tableXmlSchema) {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        Bstr text(tableXmlSchema);
        TableDefXml document;
        if (!document.LoadTableDef(text.c_str())) return E_FAIL;
        Bstr name;
        TableDefColumns columns;
        if (!document.ReadTableDef(name, columns) || !columns.get()) return E_FAIL;
        // The provider's own code comes back, for a table that exists already too.
        return m_connection->CreateTable(name.get(), columns.count(), columns.get());
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::TblGetDef(BSTR tableName, BSTR* tableXmlSchema) {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        Bstr name(tableName);
        TableDefXml document;
        if (!document.BeginTableDef(name.c_str())) return E_FAIL;
        ProviderColumnDescs columns;
        HRESULT hr = m_connection->GetTableDefinition(name.c_str(), columns, true);
        if (FAILED(hr)) return hr;
        for (DBORDINAL i = 0; i < columns.count(); ++i) {
            if (!document.AddColumnDef(columns[i])) return E_FAIL;
        }
        Bstr text = document.Xml();
        if (tableXmlSchema) *tableXmlSchema = text.release();
        return hr;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
