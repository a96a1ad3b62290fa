// The database service object behind IZelOleDb. It owns at most one connection and four
// registries that map 32-bit handles to the command, table, column and index objects living
// in the server; hosts only ever hold the handles. Every method returns an HRESULT and lets
// no exception out. String results are fresh BSTRs owned by the caller.
#pragma once

#include <windows.h>
#include <ocidl.h>

#include <map>
#include <memory>
#include <new>
#include <string>

#include "ZelPmDb32.h"
#include "common/ComObject.h"
#include "oledb/KobOleDbColumns.h"
#include "oledb/KobOleDbCommand.h"
#include "oledb/KobOleDbConnection.h"
#include "oledb/KobOleDbIndexes.h"
#include "oledb/KobOleDbTables.h"
#include "service/OutParams.h"
#include "service/ZelOleDbRows.h"

namespace zel {

class ZelOleDbImpl final : public ComObject<ZelOleDbImpl, IZelOleDb, IProvideClassInfo> {
public:
    ZelOleDbImpl() = default;
    ~ZelOleDbImpl() override;

    // IDispatch answers for the main interface; IZelOleDbRows is the batch part m_rows.
    HRESULT QueryExtra(REFIID riid, void** found) noexcept;
    // A plain count: the object lives in a single-threaded apartment. The final release
    // keeps ComObject's guard (the count is kFinalReleaseGuard while the object is destroyed).
    ULONG NonDelegatingAddRef() noexcept;
    ULONG NonDelegatingRelease() noexcept;

    // IDispatch
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID member, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* excepInfo, UINT* argErr) override;

    // IProvideClassInfo
    STDMETHODIMP GetClassInfo(ITypeInfo** info) override;

    // Connection (ZelOleDbConnectionMethods.cpp)
    STDMETHODIMP ConOpenFromInitializationString(BSTR initString, VARIANT_BOOL promptForInfo, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP ConClose() override;
    STDMETHODIMP ConCreateMdbFile(BSTR initString, BSTR mdbFile, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP ConGetDatasource(BSTR* source) override;
    STDMETHODIMP ConIsConnected(VARIANT_BOOL* result) override;
    STDMETHODIMP ConIsReadOnly(VARIANT_BOOL* result) override;
    STDMETHODIMP ConGetCurrentCatalog(BSTR* catalog) override;
    STDMETHODIMP ConStartTransaction(VARIANT_BOOL* result) override;
    STDMETHODIMP ConCommit(VARIANT_BOOL* result) override;
    STDMETHODIMP ConRollback(VARIANT_BOOL* result) override;
    STDMETHODIMP ConCompactMdb() override;

    // Commands and result rows (ZelOleDbCommandMethods.cpp)
    STDMETHODIMP CmdSetConnection(ULONG* client) override;
    STDMETHODIMP CmdExecute(ULONG client, short* result, BSTR* xml, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP CmdSetCommandText(ULONG client, BSTR cmd) override;
    STDMETHODIMP CmdGetColumnCount(ULONG client, UINT64* result) override;
    STDMETHODIMP CmdGetRowsAffected(ULONG client, INT64* result) override;
    STDMETHODIMP CmdFetchNext(ULONG client, short* result) override;
    STDMETHODIMP CmdFetchPrev(ULONG client, short* result) override;
    STDMETHODIMP CmdFetchFirst(ULONG client, short* result) override;
    STDMETHODIMP CmdFetchLast(ULONG client, short* result) override;
    STDMETHODIMP CmdFieldAsStringEx(ULONG client, UINT64 colpos, BSTR* result) override;
    STDMETHODIMP CmdFieldAsString(ULONG client, UINT64 colpos, BSTR* result) override;
    STDMETHODIMP CmdFieldAsLong(ULONG client, UINT64 colpos, LONG* result) override;
    STDMETHODIMP CmdIsBlob(ULONG client, UINT64 colpos, short* result) override;
    STDMETHODIMP CmdIsNull(ULONG client, UINT64 colpos, short* result) override;
    STDMETHODIMP CmdGetRawType(ULONG client, UINT64 colpos, ULONG* result) override;
    STDMETHODIMP CmdIsIntegral(ULONG client, UINT64 colpos, short* result) override;
    STDMETHODIMP CmdIsNumeric(ULONG client, UINT64 colpos, short* result) override;
    STDMETHODIMP CmdGetColumnName(ULONG client, UINT64 colpos, BSTR* result) override;
    STDMETHODIMP CmdGetColumnIndex(ULONG client, BSTR colName, UINT64* result) override;
    STDMETHODIMP CmdGetColumnSize(ULONG client, UINT64 colpos, UINT64* result) override;
    STDMETHODIMP CmdHasResults(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP CmdGetBlobData(ULONG client, UINT64 colpos, VARIANT* result) override;
    STDMETHODIMP CmdClose(ULONG client) override;
    STDMETHODIMP CmdDestroy(ULONG client) override;
    STDMETHODIMP CmdFieldAsVariant(ULONG client, VARIANT* column, VARIANT* result) override;

    // Tables, columns and indexes (ZelOleDbTableMethods.cpp, ZelOleDbColumnMethods.cpp,
    // ZelOleDbIndexMethods.cpp)
    STDMETHODIMP TblOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR name, BSTR type, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP TblDestroy(ULONG client) override;
    STDMETHODIMP TblFetchNext(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP TblClose(ULONG client) override;
    STDMETHODIMP TblGetName(ULONG client, BSTR* result) override;
    STDMETHODIMP TblGetCatalog(ULONG client, BSTR* result) override;
    STDMETHODIMP TblGetSchema(ULONG client, BSTR* result) override;
    STDMETHODIMP TblGetDescription(ULONG client, BSTR* result) override;
    STDMETHODIMP TblGetType(ULONG client, BSTR* result) override;
    STDMETHODIMP TblGetTableList(ULONG client, VARIANT* result) override;
    STDMETHODIMP TblGetList(ULONG client, VARIANT* result) override;
    STDMETHODIMP TblDelete(BSTR tableName) override;
    STDMETHODIMP TblCreate(BSTR tableXmlSchema) override;
    STDMETHODIMP TblGetDef(BSTR tableName, BSTR* tableXmlSchema) override;
    STDMETHODIMP ColOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR table, BSTR column, VARIANT_BOOL inclExtendedData, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP ColDestroy(ULONG client) override;
    STDMETHODIMP ColClose(ULONG client) override;
    STDMETHODIMP ColFetchNext(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP ColGetName(ULONG client, BSTR* result) override;
    STDMETHODIMP ColGetCatalog(ULONG client, BSTR* result) override;
    STDMETHODIMP ColGetSchema(ULONG client, BSTR* result) override;
    STDMETHODIMP ColGetTableName(ULONG client, BSTR* result) override;
    STDMETHODIMP ColOrdinalPosition(ULONG client, LONG* result) override;
    STDMETHODIMP ColHasDefault(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP ColGetDefault(ULONG client, BSTR* result) override;
    STDMETHODIMP ColFlags(ULONG client, LONG* result) override;
    STDMETHODIMP ColIsNullable(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP ColDataType(ULONG client, LONG* result) override;
    STDMETHODIMP ColIsDataType(ULONG client, LONG dataType, VARIANT_BOOL* result) override;
    STDMETHODIMP ColMaxLength(ULONG client, LONG* result) override;
    STDMETHODIMP ColNumericPrecision(ULONG client, LONG* result) override;
    STDMETHODIMP ColNumericScale(ULONG client, LONG* result) override;
    STDMETHODIMP ColPrecision(ULONG client, LONG* result) override;
    STDMETHODIMP ColDateTimePrecision(ULONG client, LONG* result) override;
    STDMETHODIMP ColGetDescription(ULONG client, BSTR* result) override;
    STDMETHODIMP ColIsIdentity(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP ColSeed(ULONG client, LONG* result) override;
    STDMETHODIMP ColIncrement(ULONG client, LONG* result) override;
    STDMETHODIMP IdxOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR table, BSTR index, BSTR* errorText, BSTR* errorStmt) override;
    STDMETHODIMP IdxDestroy(ULONG client) override;
    STDMETHODIMP IdxClose(ULONG client) override;
    STDMETHODIMP IdxFetchNext(ULONG client, VARIANT_BOOL* result) override;
    STDMETHODIMP IdxGetName(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetCatalog(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetSchema(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetTableName(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetTableCatalog(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetTableSchema(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetColumnName(ULONG client, BSTR* result) override;
    STDMETHODIMP IdxGetIndexList(ULONG client, VARIANT_BOOL incPrimaryKey, VARIANT* result) override;

private:
    friend class ZelOleDbRows;  // works on the command registry, answers to the controlling unknown

    template <typename T>
    using Registry = std::map<ULONG, std::unique_ptr<T>>;

    // Exact-key lookup; null when the handle is unknown or names no object.
    template <typename T>
    static T* Find(const Registry<T>& registry, ULONG client) {
        auto it = registry.find(client);
        return it == registry.end() ? nullptr : it->second.get();
    }
    KobOleDbCommand* FindCommand(ULONG client) const { return Find(m_commands, client); }

    // The handle issue of CmdSetConnection, TblOpen, ColOpen and IdxOpen: reuses the object
    // registered under a known non-zero *client, otherwise writes the tick count to *client
    // and creates a new object (E_FAIL when it cannot be made). Runs `work` on the object,
    // then registers a new object under *client if no entry has that key (insert-if-absent:
    // a second object made within the same tick is unreachable and freed). Returns what
    // `work` returned; E_FAIL for a null `client`.
    template <typename T, typename Work>
    HRESULT IssueHandle(Registry<T>& registry, ULONG* client, Work&& work);
    // ...Destroy: E_FAIL for an unknown handle; otherwise the object and its entry go.
    template <typename T>
    static HRESULT DestroyHandle(Registry<T>& registry, ULONG client);
    // TblOpen, ColOpen, IdxOpen: issues the handle, runs `open` on the enumeration, and hands
    // out its error text and statement whether or not the open succeeded. S_OK or E_FAIL.
    template <typename T, typename Open>
    HRESULT OpenEnumeration(Registry<T>& registry, ULONG* client, BSTR* errorText, BSTR* errorStmt, Open&& open);
    // ...Close: E_FAIL for an unknown handle; otherwise the enumeration's rowset is closed.
    template <typename T>
    static HRESULT CloseEnumeration(Registry<T>& registry, ULONG client);

    std::unique_ptr<KobOleDbConnection> m_connection;
    Registry<KobOleDbCommand> m_commands;
    Registry<KobOleDbTables> m_tables;
    Registry<KobOleDbColumns> m_columns;
    Registry<KobOleDbIndexes> m_indexes;
    ZelOleDbRows m_rows{*this};
};

template <typename T, typename Work>
HRESULT ZelOleDbImpl::IssueHandle(Registry<T>& registry, ULONG* client, Work&& work) {
    if (!client) return E_FAIL;
    T* object = *client != 0 ? Find(registry, *client) : nullptr;
    std::unique_ptr<T> created;
    if (!object) {
        // The new handle is written before the creation, so it stays even when that fails.
        *client = GetTickCount();
        created.reset(new (std::nothrow) T());
        if (!created) return E_FAIL;
        object = created.get();
    }
    HRESULT hr = work(*object);
    if (created) registry.try_emplace(*client, std::move(created));
    return hr;
}

template <typename T, typename Open>
HRESULT ZelOleDbImpl::OpenEnumeration(Registry<T>& registry, ULONG* client, BSTR* errorText, BSTR* errorStmt,
                                      Open&& open) {
    return IssueHandle(registry, client, [&](T& enumeration) {
        bool ok = open(enumeration);
        PutString(errorText, enumeration.GetErrorText());
        PutString(errorStmt, enumeration.GetErrorStatement());
        return ok ? S_OK : E_FAIL;
    });
}

template <typename T>
HRESULT ZelOleDbImpl::CloseEnumeration(Registry<T>& registry, ULONG client) {
    T* enumeration = Find(registry, client);
    if (!enumeration) return E_FAIL;
    enumeration->Close();
    return S_OK;
}

template <typename T>
HRESULT ZelOleDbImpl::DestroyHandle(Registry<T>& registry, ULONG client) {
    auto it = registry.find(client);
    if (it == registry.end()) return E_FAIL;
    registry.erase(it);  // the object's destructor closes whatever it still holds
    return S_OK;
}

}  // namespace zel
