// One connection to an OLE DB data source: the initialized data-source object, the session
// opened on it, the initialization string it was opened with, and a lazily created
// data-conversion object for the command layer.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <msdadc.h>

#include <string>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "oledb/KobOleDbErrorInfo.h"
#include "oledb/ProviderColumnDescs.h"

namespace zel {

class KobOleDbConnection : public KobOleDbErrorInfo {
public:
    KobOleDbConnection() = default;
    KobOleDbConnection(const KobOleDbConnection&) = delete;
    KobOleDbConnection& operator=(const KobOleDbConnection&) = delete;

    // Opens the data source through the OLE DB service components and a session on it.
    // Returns E_FAIL when the data-source step fails (the provider's error is in the error
    // text), otherwise the HRESULT of the session step. Starts from closed in every case.
    HRESULT Open(BSTR initString, bool prompt);
    // Drops the data source and the session (no Uninitialize); keeps the init string.
    void Close() noexcept;
    // Open, and the provider reports DBPROPVAL_CS_INITIALIZED (or cannot report).
    bool IsConnected();
    // True without a data source, when the property cannot be read, or when it says so.
    bool IsReadOnly();
    // DBPROP_DATASOURCENAME / DBPROP_CURRENTCATALOG; true when the text is not empty.
    bool GetDataSourceName(std::wstring& text);
    bool GetCurrentCatalog(std::wstring& text);
    // Reads one property of the data source into `value` (VariantCopy of the first property
    // returned). E_FAIL for a null `value`; otherwise the provider's HRESULT.
    HRESULT GetProperty(REFGUID propertySet, DBPROPID propertyId, VARIANT* value);

    // Compacts the open database in place: reopens it read-only, compacts it into the
    // "_TMP_.mdb" path beside it through the data source's compaction interface and moves
    // the result over the original. The connection is left without a session whatever the
    // outcome, and without the read-mode data source once the compaction ran. Returns the provider's HRESULT, or E_FAIL when the path is unknown or the
    // final move fails (the compacted file then stays on disk).
    HRESULT CompactDatabase();

    // Local transactions on the session; true when the provider answered exactly S_OK.
    bool StartTransaction();
    bool Commit();
    bool Rollback();

    // Schema changes on the session; each returns the provider's HRESULT (0x80040004 when
    // there is no session).
    HRESULT DropTable(BSTR tableName);
    HRESULT CreateTable(BSTR tableName, DBORDINAL columnCount, DBCOLUMNDESC* columns);
    // The provider's column descriptions of `tableName`, with or without its string buffer.
    HRESULT GetTableDefinition(const wchar_t* tableName, ProviderColumnDescs& columns, bool withStrings);

    // The session (IOpenRowset) that commands and enumerations borrow; may be null.
    const ComPtr<IOpenRowset>& GetSession() const noexcept { return m_session; }
    // The data-conversion object, created on first request; null when it cannot be created.
    IDataConvert* GetDataConvert();

protected:
    // The data-source step of Open: IDataInitialize::GetDataSource, the optional prompt
    // property, IDBInitialize::Initialize. Leaves the data source in m_dataSource.
    HRESULT OpenDataSource(BSTR initString, bool prompt);

    ComPtr<IDBInitialize> m_dataSource;
    ComPtr<IOpenRowset> m_session;
    ComPtr<IDataConvert> m_dataConvert;
    Bstr m_initString;
};

}  // namespace zel
