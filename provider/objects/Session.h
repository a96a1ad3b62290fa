// A session: its own SQLite connection to the data source's file, rowsets opened on tables,
// commands, and local transactions.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <transact.h>

#include <memory>
#include <mutex>

#include "provider/objects/SessionObject.h"
#include "provider/objects/DataSource.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

class Session final : public SessionObject<Session, DataSource, IIndexDefinition> {
public:
    Session(ComPtr<DataSource> dataSource, std::shared_ptr<Database> database);
    ~Session() override;

    const std::shared_ptr<Database>& database() const noexcept { return m_database; }

    // IOpenRowset: opens a table or view by name (DBKIND_NAME); DB_E_NOTABLE when there is none,
    // DB_E_NOINDEX for index ids. Rowset properties as for commands.
    STDMETHODIMP OpenRowset(IUnknown* outer, DBID* tableId, DBID* indexId, REFIID riid, ULONG setCount,
                            DBPROPSET sets[], IUnknown** rowset) override;

    // IDBCreateCommand
    STDMETHODIMP CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) override;

    // ITransactionLocal / ITransaction. One level: a second StartTransaction fails with
    // XACT_E_XTIONEXISTS; Commit and Abort without one with XACT_E_NOTRANSACTION. SQLite
    // transactions are serializable, and that is the level reported.
    STDMETHODIMP Commit(BOOL retaining, DWORD commitType, DWORD resourceManagerFlags) override;
    STDMETHODIMP Abort(BOID* reason, BOOL retaining, BOOL async) override;
    STDMETHODIMP GetTransactionInfo(XACTTRANSINFO* info) override;
    STDMETHODIMP StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions* options,
                                  ULONG* transactionLevel) override;

    // IDBSchemaRowset (SessionSchemaRowsets.cpp): TABLES, COLUMNS, INDEXES, PRIMARY_KEYS and
    // PROVIDER_TYPES with their standard columns (SchemaRowsets.h), results as
    // SchemaRowsetOpening.h says. An empty or VT_EMPTY restriction does not restrict. The
    // provider's own metadata table never appears.
    STDMETHODIMP GetRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[],
                           REFIID riid, ULONG setCount, DBPROPSET sets[], IUnknown** rowset) override;

    // ITableDefinition and ITableCreation (SessionTableDefinition.cpp). Column properties that
    // SQLite cannot hold itself (identity seed and increment, allow-zero-length, descriptions)
    // are kept in the provider's metadata table and enforced by triggers (ColumnMetadata.h).
    // Each change is all or nothing: in a transaction of its own, or in a savepoint of the
    // session's transaction (so that Abort undoes it).
    // CreateTable: a null tableId makes the provider name the table (Table1, Table2...; then
    // newTableId is required, else E_INVALIDARG); an empty or non-name id is DB_E_BADTABLEID, a
    // name in use DB_E_DUPLICATETABLEID; column descriptions as ColumnDescReader.h says
    // (DB_E_BADCOLUMNID, DB_E_DUPLICATECOLUMNID, DB_E_BADTYPE, DB_E_BADPRECISION,
    // DB_E_BADSCALE; DB_E_ERRORSOCCURRED, nothing made, when a required property fails;
    // DB_S_ERRORSOCCURRED when only optional ones do). *newTableId: a DBID and its name from the
    // COM task allocator, the caller's. A rowset asked for (riid not IID_NULL) is opened on the
    // new table as OpenRowset opens one, with the rowset properties of `sets`; if that fails
    // the table stays.
    // DropTable: DB_E_NOTABLE for a name that is not a table. AddColumn: *newColumnId as for
    // CreateTable. DropColumn: DB_E_NOCOLUMN, DB_E_DROPRESTRICTED (TableDdl.h).
    // GetTableDefinition: DB_E_NOTABLE; out-parameters and their memory as
    // TableDefinitionOutput.h says; no table property sets.
    STDMETHODIMP CreateTable(IUnknown* outer, DBID* tableId, DBORDINAL columnCount, const DBCOLUMNDESC columnDescs[],
                             REFIID riid, ULONG setCount, DBPROPSET sets[], DBID** newTableId,
                             IUnknown** rowset) override;
    STDMETHODIMP DropTable(DBID* tableId) override;
    STDMETHODIMP AddColumn(DBID* tableId, DBCOLUMNDESC* columnDesc, DBID** newColumnId) override;
    STDMETHODIMP DropColumn(DBID* tableId, DBID* columnId) override;
    STDMETHODIMP GetTableDefinition(DBID* tableId, DBORDINAL* columnCount, DBCOLUMNDESC** columnDescs,
                                    ULONG* propertySetCount, DBPROPSET** propertySets, ULONG* constraintCount,
                                    DBCONSTRAINTDESC** constraints, OLECHAR** stringBuffer) override;

    // IIndexDefinition (SessionTableDefinition.cpp), as IndexDdl.h says. A null indexId makes
    // the provider name the index. *newIndexId, when asked for, names the index made: a DBID and
    // its name from the COM task allocator, the caller's. DropIndex with a null indexId drops
    // every index of the table made by CREATE INDEX.
    STDMETHODIMP CreateIndex(DBID* tableId, DBID* indexId, DBORDINAL indexColumnCount,
                             const DBINDEXCOLUMNDESC indexColumnDescs[], ULONG setCount, DBPROPSET sets[],
                             DBID** newIndexId) override;
    STDMETHODIMP DropIndex(DBID* tableId, DBID* indexId) override;

private:
    void Begin();

    std::mutex m_lock;
    std::shared_ptr<Database> m_database;
};

}  // namespace zel::provider
