#include "provider/odbc/OdbcDataSource.h"

#include <oledberr.h>

#include <cwctype>

#include "provider/errors/Errors.h"
#include "provider/odbc/OdbcIdentity.h"
#include "provider/odbc/OdbcSession.h"
#include "provider/properties/DataSourceProperties.h"
#include "provider/text/Utf.h"

namespace zel::provider::odbc {

namespace {

constexpr wchar_t kNotAFile[] =
    L"ZelOdbc does not create, delete or change databases: an ODBC data source is made with the database "
    L"server's own tools.";

// Appends "key=value;" with the value braced when ODBC would otherwise split it.
void AppendPair(std::wstring& out, const wchar_t* key, const std::wstring& value) {
    out += key;
    out += L'=';
    if (value.find_first_of(L";{}") != std::wstring::npos || (!value.empty() && value.front() == L' ')) {
        out += L'{';
        for (wchar_t c : value) {
            out += c;
            if (c == L'}') out += L'}';
        }
        out += L'}';
    } else {
        out += value;
    }
    out += L';';
}

// psqlODBC reports a varchar without a length with its MaxVarcharSize (255 by default), so the
// consumer, binding by the column's size, would cut longer values; and every varchar longer than
// that size as long text. At 8190, the largest the driver takes, a varchar without a length is
// long text (read whole, whatever its length) and varchar(n) keeps its length up to 8190.
// A MaxVarcharSize the user gave stays. Other drivers get the string as it was.
std::wstring WithDriverDefaults(Connection& connection, const std::wstring& connectionString) {
    std::wstring driver = connection.InfoText(SQL_DRIVER_NAME);
    for (wchar_t& c : driver) c = static_cast<wchar_t>(towlower(c));
    if (driver.find(L"psqlodbc") == std::wstring::npos) return connectionString;
    std::wstring lower = connectionString;
    for (wchar_t& c : lower) c = static_cast<wchar_t>(towlower(c));
    if (lower.find(L"maxvarcharsize") != std::wstring::npos) return connectionString;
    std::wstring out = connectionString;
    if (!out.empty() && out.back() != L';') out += L';';
    return out + L"MaxVarcharSize=8190;";
}

}  // namespace

std::wstring OdbcDataSource::ConnectionString() const {
    std::wstring out;
    auto text = [&](DBPROPID id) { return Trim(m_properties.GetString(DBPROPSET_DBINIT, id)); };
    if (std::wstring dsn = text(DBPROP_INIT_DATASOURCE); !dsn.empty()) AppendPair(out, L"DSN", dsn);
    if (std::wstring user = text(DBPROP_AUTH_USERID); !user.empty()) AppendPair(out, L"UID", user);
    if (std::wstring password = m_properties.GetString(DBPROPSET_DBINIT, DBPROP_AUTH_PASSWORD); !password.empty())
        AppendPair(out, L"PWD", password);
    if (std::wstring catalog = text(DBPROP_INIT_CATALOG); !catalog.empty()) AppendPair(out, L"DATABASE", catalog);
    for (const std::wstring& entry : m_providerStrings) {
        std::wstring e = Trim(entry);
        if (e.empty()) continue;
        out += e;
        if (e.back() != L';') out += L';';
    }
    return out;
}

SQLUINTEGER OdbcDataSource::LoginTimeout() const {
    const VARIANT& timeout = m_properties.Value(DBPROPSET_DBINIT, DBPROP_INIT_TIMEOUT);
    return V_VT(&timeout) == VT_I4 && V_I4(&timeout) > 0 ? static_cast<SQLUINTEGER>(V_I4(&timeout)) : 0;
}

STDMETHODIMP OdbcDataSource::Initialize() {
    try {
        std::lock_guard guard(m_lock);
        if (m_connection) Fail(DB_E_ALREADYINITIALIZED);
        const std::wstring connectionString = ConnectionString();
        if (connectionString.empty())
            Fail(DB_E_CANNOTCONNECT,
                 L"No ODBC data source was given: set \"Data Source\" to a DSN, or \"Extended Properties\" to an "
                 L"ODBC connection string (DRIVER={...};SERVER=...).",
                 L"08001");
        m_connection = Connection::Open(connectionString, LoginTimeout());
        m_sessionConnectionString = WithDriverDefaults(*m_connection, connectionString);
        MarkInitialized();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

void OdbcDataSource::MarkInitialized() {
    const auto& set = DBPROPSET_DATASOURCEINFO;
    Connection& c = *m_connection;
    std::wstring name = c.InfoText(SQL_DATA_SOURCE_NAME);
    if (name.empty()) name = c.InfoText(SQL_DATABASE_NAME);
    m_properties.PutString(set, DBPROP_DATASOURCENAME, name);
    m_properties.PutBool(set, DBPROP_DATASOURCEREADONLY, c.InfoText(SQL_DATA_SOURCE_READ_ONLY) == L"Y");
    PutProviderInfo(m_properties, kProviderFileName, kProviderName, kProviderVersion);
    m_properties.PutString(set, DBPROP_DBMSNAME, c.InfoText(SQL_DBMS_NAME));
    m_properties.PutString(set, DBPROP_DBMSVER, c.InfoText(SQL_DBMS_VER));
    m_properties.PutI4(set, DBPROP_IDENTIFIERCASE, DBPROPVAL_IC_MIXED);
    m_properties.PutI4(set, DBPROP_QUOTEDIDENTIFIERCASE, DBPROPVAL_IC_SENSITIVE);
    m_properties.PutI4(set, DBPROP_NULLCOLLATION, DBPROPVAL_NC_HIGH);
    m_properties.PutI4(set, DBPROP_SUPPORTEDTXNISOLEVELS,
                       DBPROPVAL_TI_READCOMMITTED | DBPROPVAL_TI_REPEATABLEREAD | DBPROPVAL_TI_SERIALIZABLE);
    std::wstring catalog = c.InfoText(SQL_DATABASE_NAME);
    m_properties.PutString(DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG, catalog);
}

STDMETHODIMP OdbcDataSource::Uninitialize() {
    try {
        std::lock_guard guard(m_lock);
        if (m_sessions > 0) Fail(DB_E_OBJECTOPEN, L"Sessions of this data source are still open.");
        m_connection.reset();
        m_properties.PutI4(DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS, DBPROPVAL_CS_UNINITIALIZED);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

HRESULT OdbcDataSource::ApplyProperties(ULONG setCount, DBPROPSET sets[]) {
    const bool initialized = m_connection != nullptr;
    std::vector<std::wstring> providerStrings;
    bool providerStringGiven = false;
    auto validate = [&](const PropertyDefinition& def, const VARIANT& value, bool& handled) -> DBPROPSTATUS {
        if (*def.set == DBPROPSET_DATASOURCE) {
            // The catalog is the connection's database; it is not switched here.
            const std::wstring current = m_properties.GetString(DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG);
            if (V_VT(&value) == VT_BSTR && !EqualsNoCase(V_BSTR(&value) ? V_BSTR(&value) : L"", current))
                return DBPROPSTATUS_BADVALUE;
            return DBPROPSTATUS_OK;
        }
        if (initialized) return DBPROPSTATUS_NOTSETTABLE;
        switch (def.id) {
        case DBPROP_INIT_PROVIDERSTRING:
            providerStringGiven = true;
            handled = true;
            if (V_VT(&value) == VT_BSTR && V_BSTR(&value)) providerStrings.emplace_back(V_BSTR(&value));
            return DBPROPSTATUS_OK;
        default: return CheckInitProperty(def, value, m_properties);
        }
    };
    const GUID* const settable[] = {&DBPROPSET_DBINIT, &DBPROPSET_DATASOURCE};
    std::span<const GUID* const> sets_ = initialized ? std::span<const GUID* const>(settable)
                                                     : std::span<const GUID* const>(settable, 1);
    HRESULT hr = m_properties.SetProperties(setCount, sets, sets_, validate);
    if (providerStringGiven) {
        m_providerStrings = std::move(providerStrings);
        std::wstring joined;
        for (const std::wstring& entry : m_providerStrings) {
            if (!joined.empty() && joined.back() != L';') joined += L';';
            joined += entry;
        }
        m_properties.PutString(DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING, joined);
    }
    return hr;
}

STDMETHODIMP OdbcDataSource::CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) {
    try {
        if (!session) Fail(E_INVALIDARG);
        *session = nullptr;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        std::wstring connectionString;
        SQLUINTEGER timeout = 0;
        {
            std::lock_guard guard(m_lock);
            if (!m_connection) Fail(E_UNEXPECTED, L"The data source is not initialized.");
            connectionString = m_sessionConnectionString;
            timeout = LoginTimeout();
        }
        auto connection = Connection::Open(connectionString, timeout);
        HRESULT hr = OdbcSession::CreateInstance(outer, riid, reinterpret_cast<void**>(session),
                                                 ComPtr<OdbcDataSource>(this), std::move(connection));
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcDataSource::CreateDataSource(ULONG, DBPROPSET[], IUnknown*, REFIID, IUnknown** session) {
    try {
        if (session) *session = nullptr;
        Fail(DB_E_NOTSUPPORTED, kNotAFile);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcDataSource::DestroyDataSource() {
    try {
        Fail(DB_E_NOTSUPPORTED, kNotAFile);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcDataSource::GetCreationProperties(ULONG, const DBPROPIDSET[], ULONG* infoSetCount,
                                                   DBPROPINFOSET** infoSets, OLECHAR** descriptions) {
    if (!infoSetCount || !infoSets) return E_INVALIDARG;
    *infoSetCount = 0;
    *infoSets = nullptr;
    if (descriptions) *descriptions = nullptr;
    return S_OK;
}

STDMETHODIMP OdbcDataSource::ModifyDataSource(ULONG, DBPROPSET[]) {
    try {
        Fail(DB_E_NOTSUPPORTED, kNotAFile);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider::odbc
