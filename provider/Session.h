// A session: its own SQLite connection to the data source's file, rowsets opened on tables,
// commands, and local transactions.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <transact.h>

#include <memory>
#include <mutex>

#include "common/ComObject.h"
#include "common/OleDbIids.h"
#include "provider/Database.h"
#include "provider/DataSource.h"
#include "provider/PropertyStore.h"

namespace zel::lite {

class Session final : public ComObject<Session, IGetDataSource, IOpenRowset, IDBCreateCommand, ISessionProperties,
                                       ITransactionLocal, ISupportErrorInfo> {
public:
    Session(ComPtr<DataSource> dataSource, std::shared_ptr<Database> database);
    ~Session() override;

    void* QueryExtra(REFIID riid) noexcept;
    IUnknown* Identity() noexcept { return ControllingUnknown(); }
    const std::shared_ptr<Database>& database() const noexcept { return m_database; }

    // IGetDataSource
    STDMETHODIMP GetDataSource(REFIID riid, IUnknown** dataSource) override;

    // IOpenRowset: opens a table or view by name (DBKIND_NAME); DB_E_NOTABLE when there is none,
    // DB_E_NOINDEX for index ids. Rowset properties as for commands.
    STDMETHODIMP OpenRowset(IUnknown* outer, DBID* tableId, DBID* indexId, REFIID riid, ULONG setCount,
                            DBPROPSET sets[], IUnknown** rowset) override;

    // IDBCreateCommand
    STDMETHODIMP CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) override;

    // ISessionProperties (DBPROPSET_SESSION).
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override;
    STDMETHODIMP SetProperties(ULONG setCount, DBPROPSET sets[]) override;

    // ITransactionLocal / ITransaction. One level: a second StartTransaction fails with
    // XACT_E_XTIONEXISTS; Commit and Abort without one with XACT_E_NOTRANSACTION. SQLite
    // transactions are serializable, and that is the level reported.
    STDMETHODIMP Commit(BOOL retaining, DWORD commitType, DWORD resourceManagerFlags) override;
    STDMETHODIMP Abort(BOID* reason, BOOL retaining, BOOL async) override;
    STDMETHODIMP GetTransactionInfo(XACTTRANSINFO* info) override;
    STDMETHODIMP GetOptionsObject(ITransactionOptions** options) override;
    STDMETHODIMP StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions* options,
                                  ULONG* transactionLevel) override;

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

private:
    void Begin();

    std::mutex m_lock;
    ComPtr<DataSource> m_dataSource;
    std::shared_ptr<Database> m_database;
    PropertyStore m_properties;
};

}  // namespace zel::lite
