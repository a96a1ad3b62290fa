#include "oledb/KobOleDbConnection.h"

#include <msdaguid.h>
#include <msdasc.h>
#include <transact.h>

#include "common/CoTaskMem.h"
#include "common/IJetCompact.h"
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

namespace {

constexpr HRESULT kNoSession = 0x80040004;  // OLE_E_NOCONNECTION: no session to ask

DBID TableId(const wchar_t* name) {
    DBID id = {};
    id.eKind = DBKIND_NAME;
    id.uName.pwszName = const_cast<wchar_t*>(name);
    return id;
}

}  // namespace

HRESULT KobOleDbConnection::DropTable(BSTR tableName) {
    if (!m_session) return kNoSession;
    ComPtr<ITableDefinition> definition;
    HRESULT hr = m_session.query(definition);
    if (FAILED(hr)) return hr;
    DBID id = TableId(tableName);
    return definition->DropTable(&id);
}

HRESULT KobOleDbConnection::CreateTable(BSTR tableName, DBORDINAL columnCount, DBCOLUMNDESC* columns) {
    if (!m_session) return kNoSession;
    ComPtr<ITableCreation> creation;
    HRESULT hr = m_session.query(creation);
    if (FAILED(hr)) return hr;
    DBID id = TableId(tableName);
    return creation->CreateTable(nullptr, &id, columnCount, columns, GUID_NULL, 0, nullptr, nullptr, nullptr);
}

HRESULT KobOleDbConnection::GetTableDefinition(const wchar_t* tableName, ProviderColumnDescs& columns,
                                               bool withStrings) {
    if (!m_session) return kNoSession;
    ComPtr<ITableCreation> creation;
    HRESULT hr = m_session.query(creation);
    if (FAILED(hr)) return hr;
    Bstr name(tableName);
    DBID id = TableId(name.get());
    return creation->GetTableDefinition(&id, columns.put_count(), columns.put(), nullptr, nullptr, nullptr, nullptr,
                                        withStrings ? columns.put_strings() : nullptr);
}

HRESULT KobOleDbConnection::CompactDatabase() {
    Close();
    std::wstring readMode = m_initString.str();
    if (readMode.empty()) ThrowHr(E_INVALIDARG);  // cannot happen after a successful open
    if (readMode.back() != L';') readMode += L';';
    readMode += L"Mode=Read;";
    Bstr readModeString{std::wstring_view(readMode)};

    HRESULT hr = OpenDataSource(readModeString.get(), false);
    if (!CheckResult(hr)) return hr;
    if (!m_dataSource) return E_FAIL;

    ComPtr<IDBCreateSession> createSession;
    hr = m_dataSource.query(createSession);
    if (!CheckResult(hr)) return hr;
    ComPtr<IJetCompact> compact;
    hr = createSession.query(compact);
    if (!CheckResult(hr)) return hr;
    createSession.reset();

    std::wstring source;
    Variant name;
    if (CheckResult(GetProperty(DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME, name.get())) &&
        name.vt() == VT_BSTR && V_BSTR(name.get()))
        source = V_BSTR(name.get());
    if (source.empty()) return E_FAIL;

    // The temporary path cuts at the last '.' of the whole path (a dot in a directory name
    // of an extension-less file included); without any '.', it is the source path itself.
    std::wstring temporary = source;
    size_t dot = source.rfind(L'.');
    if (dot != std::wstring::npos) temporary = source.substr(0, dot) + L"_TMP_.mdb";
    DeleteFileW(temporary.c_str());

    DBPROP prop = {};
    prop.dwPropertyID = DBPROP_INIT_DATASOURCE;
    prop.dwOptions = DBPROPOPTIONS_REQUIRED;
    prop.colid = DB_NULLID;
    Variant target{std::wstring_view(temporary)};
    prop.vValue = *target.get();  // borrowed for the call; `target` frees it
    DBPROPSET set = {&prop, 1, DBPROPSET_DBINIT};
    hr = compact->Compact(1, &set);
    compact.reset();
    // The read-mode data source goes before the move: it holds the source file open.
    m_dataSource.reset();
    if (!CheckResult(hr)) return hr;
    if (!MoveFileExW(temporary.c_str(), source.c_str(), MOVEFILE_REPLACE_EXISTING)) return E_FAIL;
    return hr;
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
