#include "oledb/KobOleDbConnection.h"

#include <msdaguid.h>
#include <msdasc.h>
#include <transact.h>

#include "common/CoTaskMem.h"
#include "common/Variant.h"

namespace zel {

HRESULT KobOleDbConnection::OpenDataSource(BSTR initString, bool prompt) {
    ComPtr<IDataInitialize> init;
    HRESULT hr = TryCreateInstance(CLSID_MSDAINITIALIZE, init);
    if (FAILED(hr)) return hr;
    hr = init->GetDataSource(nullptr, CLSCTX_INPROC_SERVER, initString, IID_IDBInitialize,
                             m_dataSource.put_unknown());
    if (FAILED(hr)) return hr;
    if (prompt) {
        ComPtr<IDBProperties> properties;
        hr = m_dataSource.query(properties);
        if (FAILED(hr)) return hr;
        DBPROP prop = {};
        prop.dwPropertyID = DBPROP_INIT_PROMPT;
        prop.dwOptions = DBPROPOPTIONS_REQUIRED;
        prop.colid = DB_NULLID;
        V_VT(&prop.vValue) = VT_I2;
        V_I2(&prop.vValue) = DBPROMPT_COMPLETEREQUIRED;
        DBPROPSET set = {&prop, 1, DBPROPSET_DBINIT};
        hr = properties->SetProperties(1, &set);
        if (FAILED(hr)) return hr;
    }
    return m_dataSource->Initialize();
}

HRESULT KobOleDbConnection::Open(BSTR initString, bool prompt) {
    m_dataSource.reset();
    m_session.reset();
    if (!CheckResult(OpenDataSource(initString, prompt))) return E_FAIL;

    if (initString != m_initString.get()) m_initString = Bstr::Copy(initString);

    ComPtr<IDBCreateSession> createSession;
    HRESULT hr = m_dataSource.query(createSession);
    if (SUCCEEDED(hr)) hr = createSession->CreateSession(nullptr, IID_IOpenRowset, m_session.put_unknown());
    CheckResult(hr);
    return hr;
}

void KobOleDbConnection::Close() noexcept {
    m_dataSource.reset();
    m_session.reset();
}

bool KobOleDbConnection::IsConnected() {
    if (!m_dataSource || !m_session) return false;
    Variant status;
    // A provider that cannot report its status is taken as connected.
    if (FAILED(GetProperty(DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS, status.get()))) return true;
    return V_I4(status.get()) == DBPROPVAL_CS_INITIALIZED;
}

bool KobOleDbConnection::IsReadOnly() {
    if (!m_dataSource) return true;
    Variant value;
    // A missing answer counts as read-only.
    if (!CheckResult(GetProperty(DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY, value.get()))) return true;
    return static_cast<USHORT>(V_BOOL(value.get())) == 0xFFFF;
}

HRESULT KobOleDbConnection::GetProperty(REFGUID propertySet, DBPROPID propertyId, VARIANT* value) {
    if (!value) return E_FAIL;
    ComPtr<IDBProperties> properties;
    HRESULT hr = m_dataSource.query(properties);
    if (FAILED(hr)) return hr;
    DBPROPID ids[1] = {propertyId};
    DBPROPIDSET idSet = {ids, 1, propertySet};
    ULONG setCount = 0;
    CoTaskMem<DBPROPSET> sets;
    hr = properties->GetProperties(1, &idSet, &setCount, sets.put());
    // The provider's arrays are freed whatever the outcome; its values are cleared.
    for (ULONG s = 0; sets && s < setCount; ++s) {
        CoTaskMem<DBPROP> props(sets[s].rgProperties);
        if (s == 0 && SUCCEEDED(hr) && props && sets[s].cProperties > 0) hr = VariantCopy(value, &props[0].vValue);
        for (ULONG i = 0; props && i < sets[s].cProperties; ++i) VariantClear(&props[i].vValue);
    }
    return hr;
}

bool KobOleDbConnection::GetDataSourceName(std::wstring& text) {
    text.clear();
    if (m_dataSource) {
        Variant value;
        if (CheckResult(GetProperty(DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME, value.get())) &&
            value.vt() == VT_BSTR && V_BSTR(value.get()))
            text = V_BSTR(value.get());
    }
    return !text.empty();
}

bool KobOleDbConnection::GetCurrentCatalog(std::wstring& text) {
    text.clear();
    if (m_dataSource) {
        Variant value;
        if (CheckResult(GetProperty(DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG, value.get())) &&
            value.vt() == VT_BSTR && V_BSTR(value.get()))
            text = V_BSTR(value.get());
    }
    return !text.empty();
}

bool KobOleDbConnection::StartTransaction() {
    if (!m_session) return false;
    ComPtr<ITransactionLocal> transaction;
    HRESULT hr = m_session.query(transaction);
    if (SUCCEEDED(hr)) hr = transaction->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr);
    return CheckResult(hr);
}

bool KobOleDbConnection::Commit() {
    if (!m_session) return false;
    ComPtr<ITransaction> transaction;
    HRESULT hr = m_session.query(transaction);
    if (SUCCEEDED(hr)) hr = transaction->Commit(FALSE, XACTTC_SYNC, 0);
    return CheckResult(hr);
}

bool KobOleDbConnection::Rollback() {
    if (!m_session) return false;
    ComPtr<ITransaction> transaction;
    HRESULT hr = m_session.query(transaction);
    if (SUCCEEDED(hr)) hr = transaction->Abort(nullptr, FALSE, FALSE);
    return CheckResult(hr);
}

IDataConvert* KobOleDbConnection::GetDataConvert() {
    if (!m_dataConvert) {
        // A failure is not an error: callers treat a missing converter as "cannot convert";
        // the next request tries again.
        TryCreateInstance(CLSID_OLEDB_CONVERSIONLIBRARY, m_dataConvert);
    }
    return m_dataConvert.get();
}

}  // namespace zel
