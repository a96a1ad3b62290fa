// ZelOdbc's data source object: the initialization properties, the ODBC connection they name,
// data-source information, and the factory of sessions. Creatable with IID_IUnknown or
// IID_IDBInitialize, aggregatable.
//
// The ODBC connection string is made from the initialization properties, in this order:
//   "Data Source" -> DSN=...;   "User ID" -> UID=...;   "Password" -> PWD=...;
//   "Initial Catalog" -> DATABASE=...;   then "Extended Properties" as given (a full ODBC
//   connection string such as "DRIVER={PostgreSQL Unicode};SERVER=...;PORT=...").
// Keywords of the initialization string that are not OLE DB's arrive as provider-string entries
// and are passed on too, so "Provider=ZelOdbc.OLEDB.1;DRIVER={...};SERVER=..." also works.
// Values holding ';' are braced as ODBC wants. Sessions connect with the same string, plus the
// defaults a driver needs so that no value is cut (WithDriverDefaults in the .cpp).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/OleDbIids.h"
#include "provider/objects/DataSourceObject.h"
#include "provider/odbc/OdbcConnection.h"
#include "provider/odbc/OdbcIdentity.h"

namespace zel::provider::odbc {

class OdbcDataSource final : public DataSourceObject<OdbcDataSource, IDBDataSourceAdmin> {
public:
    static constexpr const CLSID& kClassId = kProviderClsid;

    // IDBInitialize. Initialize connects (SQLDriverConnect, never prompting) and keeps the
    // connection for data-source information; each session opens its own. Failures carry the
    // driver's message, SQLSTATE and native error: DB_E_CANNOTCONNECT (08xxx, IMxxx),
    // DB_SEC_E_AUTH_FAILED (28xxx). DB_E_ALREADYINITIALIZED when called twice; Uninitialize
    // fails with DB_E_OBJECTOPEN while sessions are open.
    STDMETHODIMP Initialize() override;
    STDMETHODIMP Uninitialize() override;

    // IDBProperties (DataSourceObject.h): provider-string entries are kept as given.
    bool Initialized() const noexcept { return m_connection != nullptr; }
    HRESULT ApplyProperties(ULONG setCount, DBPROPSET sets[]);

    // IDBCreateSession: E_UNEXPECTED before Initialize; DB_E_NOAGGREGATION when aggregated with
    // an IID other than IUnknown.
    STDMETHODIMP CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) override;

    // IDBDataSourceAdmin: a database server's databases are not files the provider makes or
    // deletes. CreateDataSource and DestroyDataSource fail with DB_E_NOTSUPPORTED (error
    // published); GetCreationProperties gives no sets; ModifyDataSource DB_E_NOTSUPPORTED.
    STDMETHODIMP CreateDataSource(ULONG setCount, DBPROPSET sets[], IUnknown* outer, REFIID riid,
                                  IUnknown** session) override;
    STDMETHODIMP DestroyDataSource() override;
    STDMETHODIMP GetCreationProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                       DBPROPINFOSET** infoSets, OLECHAR** descriptions) override;
    STDMETHODIMP ModifyDataSource(ULONG setCount, DBPROPSET sets[]) override;

    // The connection string the DBINIT properties make (see above). The caller holds m_lock
    // or the data source is initialized (the properties no longer change).
    std::wstring ConnectionString() const;
    SQLUINTEGER LoginTimeout() const;

private:
    void MarkInitialized();

    std::vector<std::wstring> m_providerStrings;
    std::shared_ptr<Connection> m_connection;
    std::wstring m_sessionConnectionString;  // what each session connects with
};

}  // namespace zel::provider::odbc
