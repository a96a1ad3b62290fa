// The data source object (CLSID of ZelLite): initialization properties, opening the database
// file, data-source information and the factory of sessions. Creatable with IID_IUnknown or
// IID_IDBInitialize, aggregatable.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <atomic>
#include <memory>
#include <mutex>

#include "common/ComObject.h"
#include "common/IJetCompact.h"
#include "common/OleDbIids.h"
#include "provider/ConnectionOptions.h"
#include "provider/Database.h"
#include "provider/PropertyStore.h"

namespace zel::lite {

class DataSource final
    : public ComObject<DataSource, IDBInitialize, IDBProperties, IPersist, IDBCreateSession, IDBInfo,
                       IDBDataSourceAdmin, IJetCompact, ISupportErrorInfo> {
public:
    DataSource();

    // The object clients see (the outer object when aggregated).
    IUnknown* Identity() noexcept { return ControllingUnknown(); }
    // Sessions count themselves, so that Uninitialize can refuse while one is open.
    void SessionOpened() noexcept { ++m_sessions; }
    void SessionClosed() noexcept { --m_sessions; }

    // IDBInitialize. Initialize opens the file named by DBPROP_INIT_DATASOURCE: it never creates
    // one (STG_E_FILENOTFOUND), opens it read-only when DBPROP_INIT_MODE has access bits but no
    // write bit, and waits "Busy Timeout" ms for locks held by others. DB_E_ALREADYINITIALIZED
    // when called twice. Uninitialize fails with DB_E_OBJECTOPEN while sessions are open.
    STDMETHODIMP Initialize() override;
    STDMETHODIMP Uninitialize() override;

    // IDBProperties. DBINIT is readable and settable before Initialize; DATASOURCEINFO and
    // DATASOURCE appear after it. Unknown keywords arrive as several PROVIDERSTRING entries in
    // one call: each is parsed, all are kept. Arrays returned are the caller's (CoTaskMemFree).
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override;
    STDMETHODIMP GetPropertyInfo(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                 DBPROPINFOSET** infoSets, OLECHAR** descriptions) override;
    STDMETHODIMP SetProperties(ULONG setCount, DBPROPSET sets[]) override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* clsid) override;

    // IDBCreateSession: E_UNEXPECTED before Initialize; DB_E_NOAGGREGATION when aggregated with
    // an IID other than IUnknown. Each session has its own connection to the file.
    STDMETHODIMP CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) override;

    // IDBInfo (after Initialize).
    STDMETHODIMP GetKeywords(LPOLESTR* keywords) override;
    STDMETHODIMP GetLiteralInfo(ULONG count, const DBLITERAL literals[], ULONG* infoCount,
                                DBLITERALINFO** info, OLECHAR** buffer) override;

    // IDBDataSourceAdmin (DataSourceAdmin.cpp). CreateDataSource makes a new, empty database
    // file at DBPROP_INIT_DATASOURCE and leaves the data source initialized on it; a file that
    // already exists is refused (DB_E_ERRORSOCCURRED, the property's status DBPROPSTATUS_BADVALUE
    // and an error object naming the file) and left untouched.
    STDMETHODIMP CreateDataSource(ULONG setCount, DBPROPSET sets[], IUnknown* outer, REFIID riid,
                                  IUnknown** session) override;
    STDMETHODIMP DestroyDataSource() override;
    STDMETHODIMP GetCreationProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                       DBPROPINFOSET** infoSets, OLECHAR** descriptions) override;
    STDMETHODIMP ModifyDataSource(ULONG setCount, DBPROPSET sets[]) override;

    // IJetCompact (DataSourceAdmin.cpp): writes a compacted copy of the open database to the
    // DBPROP_INIT_DATASOURCE path of the DBINIT set given. The target must not exist; the open
    // database, which may be read-only, is left as it was.
    STDMETHODIMP Compact(ULONG setCount, DBPROPSET sets[]) override;

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

private:
    std::shared_ptr<Database> RequireInitialized() const;

    mutable std::mutex m_lock;
    PropertyStore m_properties;
    ConnectionOptions m_options;
    std::shared_ptr<Database> m_database;
    std::atomic<LONG> m_sessions{0};
};

}  // namespace zel::lite
