// ITableDefinition, ITableCreation and IIndexDefinition of the session: arguments, the
// session's lock and the all-or-nothing transaction around each change. The work itself is in
// TableDdl (tables and columns), IndexDdl (indexes), ColumnDescReader (column descriptions in)
// and TableDefinitionOutput (definitions out).
#include <oledberr.h>

#include <utility>

#include "provider/ddl/ColumnDescReader.h"
#include "provider/ddl/IndexDdl.h"
#include "provider/ddl/NameIds.h"
#include "provider/ddl/TableDdl.h"
#include "provider/ddl/SqliteDefinitions.h"
#include "provider/ddl/TableDefinitionOutput.h"
#include "provider/errors/Errors.h"
#include "provider/objects/Session.h"
#include "provider/properties/TableCreationProperties.h"
#include "provider/sqlite/MetadataTable.h"
#include "provider/sqlite/SchemaTransaction.h"
#include "provider/sqlite/TableCatalog.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// The index `id` names; nothing for a null id (every index, or a generated name). An id that
// names nothing fails with `hr`.
std::optional<std::wstring> IndexNameOrFail(const DBID* id, HRESULT hr, const wchar_t* message,
                                            const wchar_t* sqlState) {
    if (!id) return std::nullopt;
    std::optional<std::wstring> name = NameOf(id);
    if (!name) Fail(hr, message, sqlState);
    return name;
}

void CheckSets(ULONG setCount, const DBPROPSET sets[]) {
    if (setCount && !sets) Fail(E_INVALIDARG, L"cPropertySets is not zero and rgPropertySets is null.");
    for (ULONG i = 0; i < setCount; ++i)
        if (sets[i].cProperties && !sets[i].rgProperties)
            Fail(E_INVALIDARG, L"A property set has cProperties but no rgProperties.");
}

void RequireWritable(const Database& database) {
    if (database.options().readOnly)
        Fail(DB_E_READONLY, L"The data source was opened read-only; its tables cannot be changed.", L"25006");
}

std::wstring TableNameOrFail(DBID* tableId) {
    if (!tableId) Fail(E_INVALIDARG, L"No table id was given.");
    std::optional<std::wstring> name = NameOf(tableId);
    if (!name) Fail(DB_E_NOTABLE, L"Tables are named by DBKIND_NAME ids with a non-empty name.", L"42S02");
    return *name;
}

std::wstring ExistingTable(Database& database, const std::wstring& name) {
    std::optional<std::wstring> stored = FindTable(database, name);
    if (!stored) Fail(DB_E_NOTABLE, L"no such table: " + name, L"42S02");
    return *stored;
}

// The stored name of an existing table that may be changed (the data source is not read-only).
std::wstring WritableTable(Database& database, const std::wstring& name) {
    std::wstring table = ExistingTable(database, name);
    RequireWritable(database);
    return table;
}

bool IsReservedTableName(const std::wstring& name) {
    return EqualsNoCase(name, kMetadataTable) || EqualsNoCase(name.substr(0, 7), L"sqlite_");
}

// The interfaces a rowset over a table offers.
bool RowsetOffers(REFIID riid, bool rowsetChange) {
    return riid == IID_IUnknown || riid == IID_IRowset || riid == IID_IAccessor || riid == IID_IColumnsInfo ||
           riid == IID_IRowsetInfo || riid == IID_IConvertType || riid == IID_ISupportErrorInfo ||
           (riid == IID_IRowsetChange && rowsetChange);
}

HRESULT WarnOrSucceed(bool optionalFailed, const std::wstring& message) {
    if (!optionalFailed) return ClearErrorAndReturn(S_OK);
    PublishError(DB_S_ERRORSOCCURRED, message.empty() ? L"An optional property was not honoured; see each "
                                                        L"property's status."
                                                      : message);
    return DB_S_ERRORSOCCURRED;
}

}  // namespace

STDMETHODIMP Session::CreateTable(IUnknown* outer, DBID* tableId, DBORDINAL columnCount,
                                  const DBCOLUMNDESC columnDescs[], REFIID riid, ULONG setCount, DBPROPSET sets[],
                                  DBID** newTableId, IUnknown** rowset) {
    try {
        if (newTableId) *newTableId = nullptr;
        if (rowset) *rowset = nullptr;
        if (columnCount && !columnDescs) Fail(E_INVALIDARG, L"cColumnDescs is not zero and rgColumnDescs is null.");
        CheckSets(setCount, sets);
        for (DBORDINAL i = 0; i < columnCount; ++i)
            if (!HasValidShape(columnDescs[i]))
                Fail(E_INVALIDARG, L"A column's property sets do not match their counts.");
        if (!tableId && !newTableId)
            Fail(E_INVALIDARG, L"Without a table id, ppTableID must receive the name the provider gives the table.");
        if (columnCount == 0) Fail(E_INVALIDARG, L"A table needs at least one column.");
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        const bool wantRowset = rowset && riid != GUID_NULL;

        std::optional<std::wstring> name;
        if (tableId) {
            name = NameOf(tableId);
            if (!name) Fail(DB_E_BADTABLEID, L"A table id must be a DBKIND_NAME id with a non-empty name.", L"42000");
            if (IsReservedTableName(*name))
                Fail(DB_E_BADTABLEID,
                     L"The name '" + *name + L"' is reserved for the provider's and SQLite's own tables.", L"42000");
        }

        // Every property's status is written before anything can fail on it.
        TableCreationProperties tableProperties = CheckTableCreationProperties(setCount, sets);
        NewTableColumns read = ReadNewTableColumns(columnCount, columnDescs);
        const bool optionalFailed = tableProperties.optionalFailed || read.optionalFailed;
        const std::wstring warning = read.warning.empty() ? tableProperties.message : read.warning;
        if (tableProperties.requiredFailed) Fail(DB_E_ERRORSOCCURRED, tableProperties.message);
        if (wantRowset && !RowsetOffers(riid, tableProperties.wantsRowsetChange))
            Fail(E_NOINTERFACE, L"A rowset over a table does not offer the interface asked for.");

        NameId id;
        {
            std::lock_guard guard(m_lock);
            RequireWritable(*m_database);
            if (!name) {
                // A name of the provider's choosing: the first of Table1, Table2... that is free.
                for (int n = 1; !name || SchemaNameExists(*m_database, *name); ++n)
                    name = L"Table" + std::to_wstring(n);
            }
            if (SchemaNameExists(*m_database, *name))
                Fail(DB_E_DUPLICATETABLEID, L"table " + *name + L" already exists (or another object has its name)",
                     L"42S01");
            if (newTableId || wantRowset) id = NewNameId(*name);
            SchemaTransaction transaction(*m_database);
            CreateTableFrom(*m_database, *name, std::move(read.columns));
            transaction.Commit();
        }
        HRESULT opened = S_OK;
        if (wantRowset) {
            // The table exists from here on; a rowset that cannot be opened leaves it in place.
            opened = OpenRowset(outer, id.get(), nullptr, riid, static_cast<ULONG>(tableProperties.rowsetSets.size()),
                                tableProperties.rowsetSets.data(), rowset);
            if (FAILED(opened)) return opened;
        }
        if (newTableId) *newTableId = id.release();
        return WarnOrSucceed(optionalFailed || opened == DB_S_ERRORSOCCURRED, warning);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::DropTable(DBID* tableId) {
    try {
        const std::wstring name = TableNameOrFail(tableId);
        std::lock_guard guard(m_lock);
        const std::wstring table = WritableTable(*m_database, name);
        SchemaTransaction transaction(*m_database);
        DropTableWithMetadata(*m_database, table);
        transaction.Commit();
        return ClearErrorAndReturn(S_OK);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::AddColumn(DBID* tableId, DBCOLUMNDESC* columnDesc, DBID** newColumnId) {
    try {
        if (newColumnId) *newColumnId = nullptr;
        if (!columnDesc) Fail(E_INVALIDARG, L"No column description was given.");
        if (!HasValidShape(*columnDesc)) Fail(E_INVALIDARG, L"The column's property sets do not match their counts.");
        const std::wstring name = TableNameOrFail(tableId);
        ColumnDescResult read = ReadColumnDesc(*columnDesc, ColumnPurpose::AddColumn);
        if (read.error != S_OK) Fail(read.error, read.message, L"42000");
        if (read.requiredFailed) Fail(DB_E_ERRORSOCCURRED, read.propertyMessage);

        std::lock_guard guard(m_lock);
        const std::wstring table = WritableTable(*m_database, name);
        ColumnDefinition& c = read.definition;
        if (!c.nullable && !c.defaultSql && c.identity == Identity::None && TableHasRows(*m_database, table)) {
            // The rows already there would hold NULL in a column that refuses it.
            const std::wstring why = L"DBPROP_COL_NULLABLE of column '" + c.name +
                                     L"': the table has rows, which would hold NULL in the new column; give the "
                                     L"column a default.";
            if (MarkConflicting(*columnDesc, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE)) Fail(DB_E_ERRORSOCCURRED, why);
            c.nullable = true;
            if (!read.optionalFailed) read.propertyMessage = why;
            read.optionalFailed = true;
        }
        NameId id;
        if (newColumnId) id = NewNameId(c.name);
        SchemaTransaction transaction(*m_database);
        AddColumnTo(*m_database, table, std::move(read.definition));
        transaction.Commit();
        if (newColumnId) *newColumnId = id.release();
        return WarnOrSucceed(read.optionalFailed, read.propertyMessage);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::DropColumn(DBID* tableId, DBID* columnId) {
    try {
        const std::wstring name = TableNameOrFail(tableId);
        if (!columnId) Fail(E_INVALIDARG, L"No column id was given.");
        std::optional<std::wstring> column = NameOf(columnId);
        if (!column) Fail(DB_E_NOCOLUMN, L"Columns are named by DBKIND_NAME ids with a non-empty name.", L"42S22");
        std::lock_guard guard(m_lock);
        const std::wstring table = WritableTable(*m_database, name);
        SchemaTransaction transaction(*m_database);
        DropColumnFrom(*m_database, table, *column);
        transaction.Commit();
        return ClearErrorAndReturn(S_OK);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::GetTableDefinition(DBID* tableId, DBORDINAL* columnCount, DBCOLUMNDESC** columnDescs,
                                         ULONG* propertySetCount, DBPROPSET** propertySets, ULONG* constraintCount,
                                         DBCONSTRAINTDESC** constraints, OLECHAR** stringBuffer) {
    try {
        if (columnCount) *columnCount = 0;
        if (columnDescs) *columnDescs = nullptr;
        if (propertySetCount) *propertySetCount = 0;
        if (propertySets) *propertySets = nullptr;
        if (constraintCount) *constraintCount = 0;
        if (constraints) *constraints = nullptr;
        if (stringBuffer) *stringBuffer = nullptr;
        const std::wstring name = TableNameOrFail(tableId);
        std::lock_guard guard(m_lock);
        const std::wstring table = ExistingTable(*m_database, name);
        // The table was made with no table properties that differ from the defaults, so none
        // are returned.
        TableDefinitionOut out{columnCount, columnDescs, constraintCount, constraints, stringBuffer};
        std::vector<ColumnDefinition> definitions;
        if (columnCount && columnDescs) definitions = ReadColumnDefinitions(*m_database, table);
        std::vector<TableConstraint> keys;
        if (constraintCount && constraints) keys = ReadConstraints(*m_database, table);
        WriteTableDefinition(definitions, keys, out);
        return ClearErrorAndReturn(S_OK);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::CreateIndex(DBID* tableId, DBID* indexId, DBORDINAL indexColumnCount,
                                  const DBINDEXCOLUMNDESC indexColumnDescs[], ULONG setCount, DBPROPSET sets[],
                                  DBID** newIndexId) {
    try {
        if (newIndexId) *newIndexId = nullptr;
        if (indexColumnCount == 0 || !indexColumnDescs) Fail(E_INVALIDARG, L"An index needs at least one column.");
        CheckSets(setCount, sets);
        const std::wstring name = TableNameOrFail(tableId);
        const std::optional<std::wstring> index = IndexNameOrFail(
            indexId, DB_E_BADINDEXID, L"An index id must be a DBKIND_NAME id with a non-empty name.", L"42000");
        std::lock_guard guard(m_lock);
        const std::wstring table = WritableTable(*m_database, name);
        SchemaTransaction transaction(*m_database);
        CreatedIndex created =
            CreateIndexOn(*m_database, table, index, indexColumnCount, indexColumnDescs, setCount, sets);
        NameId id;
        if (newIndexId) id = NewNameId(created.name);
        transaction.Commit();
        if (newIndexId) *newIndexId = id.release();
        return WarnOrSucceed(created.result == DB_S_ERRORSOCCURRED, L"");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::DropIndex(DBID* tableId, DBID* indexId) {
    try {
        const std::wstring name = TableNameOrFail(tableId);
        const std::optional<std::wstring> index = IndexNameOrFail(
            indexId, DB_E_NOINDEX, L"Indexes are named by DBKIND_NAME ids with a non-empty name.", L"42S12");
        std::lock_guard guard(m_lock);
        const std::wstring table = WritableTable(*m_database, name);
        SchemaTransaction transaction(*m_database);
        DropIndexOf(*m_database, table, index);
        transaction.Commit();
        return ClearErrorAndReturn(S_OK);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
