// The connection methods of IZelOleDb: open, close, state questions and local transactions.
#include <new>

#include "oledb/DatabaseFiles.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"

namespace zel {

STDMETHODIMP ZelOleDbImpl::ConOpenFromInitializationString(BSTR initString, VARIANT_BOOL promptForInfo,
                                                           BSTR* errorText, BSTR* errorStmt) {
    try {
        if (!m_connection) {
            m_connection.reset(new (std::nothrow) KobOleDbConnection());
            if (!m_connection) return E_FAIL;
        }
        Bstr copy(initString);
        // A second open simply re-opens the same connection object.
        HRESULT hr = m_connection->Open(copy.get(), IsTrueFlag(promptForInfo));
        copy.reset();
        PutString(errorText, m_connection->GetErrorText());
        PutString(errorStmt, m_connection->GetErrorStatement());
        return hr;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConClose() {
    try {
        if (m_connection && m_connection->IsConnected()) m_connection->Close();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConGetDatasource(BSTR* source) {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        std::wstring text;
        if (!m_connection->GetDataSourceName(text)) return E_FAIL;
        PutString(source, text);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConGetCurrentCatalog(BSTR* catalog) {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        std::wstring text;
        if (!m_connection->GetCurrentCatalog(text)) return E_FAIL;
        PutString(catalog, text);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConIsConnected(VARIANT_BOOL* result) {
    try {
        if (!result) return E_FAIL;
        *result = ToVariantBool(m_connection && m_connection->IsConnected());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConIsReadOnly(VARIANT_BOOL* result) {
    try {
        if (!result) return E_FAIL;
        // Without a connection object the answer is false; a closed one counts as read-only.
        *result = ToVariantBool(m_connection && m_connection->IsReadOnly());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConStartTransaction(VARIANT_BOOL* result) {
    try {
        if (!result) return E_FAIL;
        *result = ToVariantBool(m_connection && m_connection->StartTransaction());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConCommit(VARIANT_BOOL* result) {
    try {
        if (!result) return E_FAIL;
        *result = ToVariantBool(m_connection && m_connection->Commit());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConRollback(VARIANT_BOOL* result) {
    try {
        if (!result) return E_FAIL;
        *result = ToVariantBool(m_connection && m_connection->Rollback());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConCreateMdbFile(BSTR initString, BSTR mdbFile, BSTR* errorText, BSTR* errorStmt) {
    try {
        // A file can be created before any connection exists; the service object's own
        // connection is not touched. The errors go to a record of their own.
        KobOleDbErrorInfo errors;
        Bstr file(mdbFile);
        Bstr init(initString);
        HRESULT hr = CreateDatabaseFile(init.get(), file.get(), errors);
        PutString(errorText, errors.GetErrorText());
        PutString(errorStmt, errors.GetErrorStatement());
        return hr;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ConCompactMdb() {
    try {
        if (!m_connection || !m_connection->IsConnected()) return E_FAIL;
        return m_connection->CompactDatabase();
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
