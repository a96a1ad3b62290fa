// ZelOdbc's session: its own ODBC connection, commands, tables opened by name, transactions
// (manual commit), the schema rowsets from ODBC's catalog functions, and table definitions.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <mutex>

#include "provider/objects/SessionObject.h"
#include "provider/odbc/OdbcConnection.h"
#include "provider/odbc/OdbcDataSource.h"

namespace zel::provider::odbc {

class OdbcSession final : public SessionObject<OdbcSession, OdbcDataSource> {
public:
    OdbcSession(ComPtr<OdbcDataSource> dataSource, std::shared_ptr<Connection> connection);
    ~OdbcSession() override;

    const std::shared_ptr<Connection>& connection() const noexcept { return m_connection; }

    // IOpenRowset: SELECT * from a table or view named by a DBKIND_NAME id (quoted with the
    // driver's identifier quote); DB_E_NOTABLE when the driver says there is none, DB_E_NOINDEX
    // for index ids. Rowset properties as for commands; the rowset is read-only.
    STDMETHODIMP OpenRowset(IUnknown* outer, DBID* tableId, DBID* indexId, REFIID riid, ULONG setCount,
                            DBPROPSET sets[], IUnknown** rowset) override;

    // IDBCreateCommand
    STDMETHODIMP CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) override;

    // ITransactionLocal / ITransaction over ODBC's manual-commit mode. One level: a second
    // StartTransaction fails with XACT_E_XTIONEXISTS; Commit and Abort without one with
    // XACT_E_NOTRANSACTION. The isolation level asked for is passed to the driver. A commit the
    // server refuses (its connection lost...) fails with the driver's SQLSTATE.
    STDMETHODIMP Commit(BOOL retaining, DWORD commitType, DWORD resourceManagerFlags) override;
    STDMETHODIMP Abort(BOID* reason, BOOL retaining, BOOL async) override;
    STDMETHODIMP GetTransactionInfo(XACTTRANSINFO* info) override;
    STDMETHODIMP StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions* options,
                                  ULONG* transactionLevel) override;

    // IDBSchemaRowset (OdbcCatalog.h): TABLES, COLUMNS, INDEXES, PRIMARY_KEYS and PROVIDER_TYPES
    // from SQLTables, SQLColumns, SQLStatistics, SQLPrimaryKeys and SQLGetTypeInfo.
    STDMETHODIMP GetRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[],
                           REFIID riid, ULONG setCount, DBPROPSET sets[], IUnknown** rowset) override;

    // ITableDefinition and ITableCreation (OdbcTableDefinition.cpp). CreateTable writes CREATE
    // TABLE with the driver's own type names (SQLGetTypeInfo; a column's pwszTypeName when
    // given), NOT NULL, DEFAULT and the primary key; DB_E_BADTABLEID for a null or empty
    // name, DB_E_BADTYPE for a type the driver has no name for, the driver's failure
    // otherwise (DB_E_DUPLICATETABLEID for a name in use). DropTable: DROP TABLE
    // (DB_E_NOTABLE). AddColumn and DropColumn: DB_E_NOTSUPPORTED. GetTableDefinition reads
    // SQLColumns and SQLPrimaryKeys; out-parameters as TableDefinitionOutput.h says.
    STDMETHODIMP CreateTable(IUnknown* outer, DBID* tableId, DBORDINAL columnCount, const DBCOLUMNDESC columnDescs[],
                             REFIID riid, ULONG setCount, DBPROPSET sets[], DBID** newTableId,
                             IUnknown** rowset) override;
    STDMETHODIMP DropTable(DBID* tableId) override;
    STDMETHODIMP AddColumn(DBID* tableId, DBCOLUMNDESC* columnDesc, DBID** newColumnId) override;
    STDMETHODIMP DropColumn(DBID* tableId, DBID* columnId) override;
    STDMETHODIMP GetTableDefinition(DBID* tableId, DBORDINAL* columnCount, DBCOLUMNDESC** columnDescs,
                                    ULONG* propertySetCount, DBPROPSET** propertySets, ULONG* constraintCount,
                                    DBCONSTRAINTDESC** constraints, OLECHAR** stringBuffer) override;

    // The name quoted with the driver's identifier quote character.
    std::wstring QuoteName(const std::wstring& name) const;

private:
    std::shared_ptr<Connection> m_connection;
    std::wstring m_quote;
    ISOLEVEL m_isolation = ISOLATIONLEVEL_READCOMMITTED;
};

}  // namespace zel::provider::odbc
