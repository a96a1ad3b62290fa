#include "provider/objects/Session.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/objects/Command.h"
#include "provider/objects/OpenRowsetRequest.h"
#include "provider/objects/Rowset.h"
#include "provider/objects/TransactionChecks.h"
#include "provider/properties/RowsetProperties.h"
#include "provider/properties/SessionProperties.h"
#include "provider/rows/RowWriter.h"
#include "provider/rows/StatementRowSource.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

// SQLite's transactions are serializable, and so is its work outside them.
Session::Session(ComPtr<DataSource> dataSource, std::shared_ptr<Database> database)
    : SessionObject(std::move(dataSource), DBPROPVAL_TI_SERIALIZABLE), m_database(std::move(database)) {}

// An open transaction ends with the session: SQLite rolls it back when the connection closes.
Session::~Session() = default;

STDMETHODIMP Session::OpenRowset(IUnknown* outer, DBID* tableId, DBID* indexId, REFIID riid, ULONG setCount,
                                 DBPROPSET sets[], IUnknown** rowset) {
    try {
        OpenRowsetRequest request = CheckOpenRowset(outer, tableId, indexId, riid, setCount, sets, rowset);
        const std::wstring& table = request.table;
        PropertyStore& properties = request.properties;
        const HRESULT propertiesResult = request.propertiesResult;

        std::lock_guard guard(m_lock);
        // Find the table or view, matching the name as SQLite does (without regard to case).
        std::wstring kind;
        {
            auto lookup = m_database->Prepare(
                L"SELECT type, name FROM sqlite_master WHERE type IN ('table','view') AND name = ?1 COLLATE NOCASE");
            ConnectionLock lock(m_database->handle());
            sqlite3_bind_text16(lookup.get(), 1, table.c_str(), -1, SQLITE_TRANSIENT);
            if (sqlite3_step(lookup.get()) == SQLITE_ROW)
                kind = static_cast<const wchar_t*>(sqlite3_column_text16(lookup.get(), 0));
        }
        if (kind.empty()) Fail(DB_E_NOTABLE, L"no such table: " + table, L"42S02");
        if (!rowset) return ClearErrorAndReturn(propertiesResult);

        // Tables are read with their rowid, which later finds a changed row again.
        SqliteStatement statement;
        bool hiddenRowid = false;
        std::wstring sql;
        if (kind == L"table") {
            sql = L"SELECT rowid, * FROM " + QuoteName(table);
            statement = m_database->TryPrepare(sql);
            hiddenRowid = static_cast<bool>(statement);
        }
        if (!hiddenRowid) {
            sql = L"SELECT * FROM " + QuoteName(table);
            statement = m_database->Prepare(sql);
        }
        auto source = std::make_unique<StatementRowSource>(m_database, std::move(statement), hiddenRowid, sql);
        HRESULT hr = Rowset::CreateInstance(outer, riid, reinterpret_cast<void**>(rowset),
                                            std::make_shared<SqliteRowStore>(m_database),
                                            std::unique_ptr<RowSource>(std::move(source)), std::move(properties),
                                            ComPtr<IUnknown>(Identity()));
        if (FAILED(hr)) Fail(hr);
        return ClearErrorAndReturn(propertiesResult);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) {
    try {
        if (!command) Fail(E_INVALIDARG);
        *command = nullptr;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        HRESULT hr = Command::CreateInstance(outer, riid, reinterpret_cast<void**>(command), ComPtr<Session>(this));
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

void Session::Begin() {
    // A read-write session takes the write lock at once, so that two writers never deadlock
    // upgrading their locks; the busy timeout makes the second one wait.
    m_database->Execute(m_database->options().readOnly ? "BEGIN" : "BEGIN IMMEDIATE");
}

STDMETHODIMP Session::StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions*, ULONG* transactionLevel) {
    try {
        CheckStartTransaction(level, flags);
        std::lock_guard guard(m_lock);
        if (m_database->InTransaction()) Fail(XACT_E_XTIONEXISTS);
        Begin();
        if (transactionLevel) *transactionLevel = 1;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::Commit(BOOL retaining, DWORD commitType, DWORD resourceManagerFlags) {
    try {
        CheckCommit(commitType, resourceManagerFlags);
        std::lock_guard guard(m_lock);
        if (!m_database->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        m_database->Execute("COMMIT");
        if (retaining) Begin();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::Abort(BOID*, BOOL retaining, BOOL async) {
    try {
        CheckAbort(async);
        std::lock_guard guard(m_lock);
        if (!m_database->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        m_database->Execute("ROLLBACK");
        if (retaining) Begin();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Session::GetTransactionInfo(XACTTRANSINFO* info) {
    try {
        if (!info) Fail(E_INVALIDARG);
        std::lock_guard guard(m_lock);
        if (!m_database->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        *info = XACTTRANSINFO{};
        info->isoLevel = ISOLATIONLEVEL_SERIALIZABLE;
        info->isoFlags = 0;
        info->grfTCSupported = XACTTC_SYNC;
        info->grfTCSupportedRetaining = XACTTC_SYNC;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
