// The data source object (CLSID of ZelLite): initialization properties, opening the database
// file, data-source information, the factory of sessions, and creating, destroying and
// compacting its database file. Creatable with IID_IUnknown or IID_IDBInitialize, aggregatable.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <span>

#include "common/IJetCompact.h"
#include "common/OleDbIids.h"
#include "provider/ProviderIdentity.h"
#include "provider/objects/DataSourceObject.h"
#include "provider/properties/ConnectionOptions.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

class DataSource final : public DataSourceObject<DataSource, IDBInfo, IDBDataSourceAdmin, IJetCompact> {
public:
    static constexpr const CLSID& kClassId = kProviderClsid;

    DataSource();

    // IDBInitialize. Initialize opens the file named by DBPROP_INIT_DATASOURCE: it never creates
    // one (STG_E_FILENOTFOUND), opens it read-only when DBPROP_INIT_MODE has access bits but no
    // write bit, and waits "Busy Timeout" ms for locks held by others. DB_E_ALREADYINITIALIZED
    // when called twice. Uninitialize fails with DB_E_OBJECTOPEN while sessions are open.
    STDMETHODIMP Initialize() override;
    STDMETHODIMP Uninitialize() override;

    // IDBProperties (DataSourceObject.h). Unknown keywords arrive as several PROVIDERSTRING
    // entries in one call: each is parsed, all are kept.
    bool Initialized() const noexcept { return m_database != nullptr; }
    HRESULT ApplyProperties(ULONG setCount, DBPROPSET sets[]);

    // IDBCreateSession: E_UNEXPECTED before Initialize; DB_E_NOAGGREGATION when aggregated with
    // an IID other than IUnknown. Each session has its own connection to the file.
    STDMETHODIMP CreateSession(IUnknown* outer, REFIID riid, IUnknown** session) override;

    // IDBInfo (after Initialize).
    STDMETHODIMP GetKeywords(LPOLESTR* keywords) override;
    STDMETHODIMP GetLiteralInfo(ULONG count, const DBLITERAL literals[], ULONG* infoCount,
                                DBLITERALINFO** info, OLECHAR** buffer) override;

    // IDBDataSourceAdmin (DataSourceAdmin.cpp).
    //
    // CreateDataSource applies the properties given as SetProperties does before Initialize
    // (with no sets, the DBINIT properties already set, e.g. from the initialization string,
    // are used), creates a new, empty database file at DBPROP_INIT_DATASOURCE and leaves the
    // data source initialized on it exactly as Initialize does. The file is created
    // exclusively: an existing file, or one a racing creator makes first, is never opened for
    // writing. With `session` null no session is made and `outer` and `riid` are ignored;
    // otherwise `*session` receives a new session's `riid` (the caller's reference), made as
    // CreateSession makes it, and DBPROPSET_SESSION properties go to it (without a session they
    // are ignored, status DBPROPSTATUS_OK). Results:
    //   S_OK; DB_S_ERRORSOCCURRED   created; some OPTIONAL property was not set (see statuses)
    //   STG_E_FILEALREADYEXISTS     a file (or directory) of that name exists; it is left
    //                               untouched, byte for byte
    //   STG_E_PATHNOTFOUND          the file's directory does not exist
    //   E_INVALIDARG                no file was named (DBPROP_INIT_DATASOURCE missing or
    //                               blank), or a count came without its array
    //   DB_E_ERRORSOCCURRED         a REQUIRED property could not be set (see statuses)
    //   DB_E_ALREADYINITIALIZED     the data source is initialized
    //   DB_E_NOAGGREGATION          `outer` with a `riid` other than IID_IUnknown
    //   STG_E_ACCESSDENIED, STG_E_INVALIDNAME, E_NOINTERFACE, SQLite's error for the rest.
    // Never E_UNEXPECTED: that code is read by callers as "the file exists now". Every failure
    // publishes an error object (naming the file when the file is the cause) and leaves no
    // file behind; apart from DB_E_ALREADYINITIALIZED, the data source stays uninitialized
    // with the property values it had before the call.
    STDMETHODIMP CreateDataSource(ULONG setCount, DBPROPSET sets[], IUnknown* outer, REFIID riid,
                                  IUnknown** session) override;
    // Closes the data source's hold on its file, deletes the file (and any journal SQLite left
    // beside it) and returns the data source to uninitialized, its DBINIT properties kept.
    // E_UNEXPECTED before Initialize; DB_E_OBJECTOPEN while sessions are open. When the file
    // cannot be deleted (STG_E_SHAREVIOLATION while another connection has it open,
    // STG_E_ACCESSDENIED, ...) the data source stays initialized on it.
    STDMETHODIMP DestroyDataSource() override;
    // The creation properties are the DBINIT properties: the same information as
    // GetPropertyInfo gives for DBPROPSET_DBINIT, in any state. Other sets are reported as not
    // supported (DB_S_/DB_E_ERRORSOCCURRED). Arrays and the description buffer are the
    // caller's (CoTaskMemFree).
    STDMETHODIMP GetCreationProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                       DBPROPINFOSET** infoSets, OLECHAR** descriptions) override;
    // Nothing about an existing database file can be modified: every property given is refused
    // (DBPROPSTATUS_NOTSETTABLE, DBPROPSTATUS_NOTSET when OPTIONAL, DBPROPSTATUS_NOTSUPPORTED
    // for one ZelLite does not know) and the result is DB_E_ERRORSOCCURRED; with no properties,
    // S_OK. E_UNEXPECTED before Initialize; E_INVALIDARG for a count without its array.
    STDMETHODIMP ModifyDataSource(ULONG setCount, DBPROPSET sets[]) override;

    // IJetCompact (DataSourceAdmin.cpp): writes a compacted copy of the open database (every
    // table, index, view and trigger, the provider's metadata table included, without free
    // pages) to the DBPROP_INIT_DATASOURCE path of the DBINIT set given. The database is read
    // through a read-only connection of its own, so its file is left as it was whether the data
    // source opened it read-only or not, and the data source stays usable. The target is
    // created exclusively. No other property applies (status DBPROPSTATUS_NOTSUPPORTED).
    // Results:
    //   S_OK; DB_S_ERRORSOCCURRED   written; an OPTIONAL property was not supported
    //   STG_E_FILEALREADYEXISTS     the target exists (it is left untouched)
    //   STG_E_PATHNOTFOUND          the target's directory does not exist
    //   E_UNEXPECTED                the data source is not initialized
    //   E_INVALIDARG                no target was named, or a count came without its array
    //   DB_E_ERRORSOCCURRED         a REQUIRED property was not supported or not a string
    //   SQLite's error              e.g. DB_E_TIMEOUT while another connection holds an
    //                               exclusive lock on the database
    // Every failure publishes an error object (naming the target when it is the cause) and
    // leaves no target behind.
    STDMETHODIMP Compact(ULONG setCount, DBPROPSET sets[]) override;

private:
    std::shared_ptr<Database> RequireInitialized() const;
    // The file, mode and busy timeout the DBINIT properties name (an empty path when no file
    // is named). The caller holds m_lock.
    OpenOptions InitOptions() const;
    // The data-source information an initialized data source reports, and back.
    void MarkInitialized(const OpenOptions& options);
    void MarkUninitialized();
    // CreateDataSource's work, under m_lock: applies `sourceSets`, creates and opens the file
    // and, when `session` is given, makes the session into it. On failure everything is put
    // back (no file, uninitialized, property values as before) and the failure rethrown.
    void CreateAndOpen(std::span<DBPROPSET> sourceSets, std::span<DBPROPSET> sessionSets, IUnknown* outer,
                       REFIID riid, ComPtr<IUnknown>* session);

    ConnectionOptions m_options;
    std::shared_ptr<Database> m_database;
};

}  // namespace zel::provider
