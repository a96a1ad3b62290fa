#include "provider/odbc/OdbcSession.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/objects/OpenRowsetRequest.h"
#include "provider/objects/Rowset.h"
#include "provider/objects/SchemaRowsetOpening.h"
#include "provider/objects/TransactionChecks.h"
#include "provider/odbc/OdbcCatalog.h"
#include "provider/odbc/OdbcCommand.h"
#include "provider/odbc/OdbcRowSource.h"
#include "provider/properties/RowsetProperties.h"

namespace zel::provider::odbc {

namespace {

SQLUINTEGER OdbcIsolation(ISOLEVEL level) {
    switch (static_cast<ULONG>(level)) {
    case ISOLATIONLEVEL_READUNCOMMITTED: return SQL_TXN_READ_UNCOMMITTED;
    case ISOLATIONLEVEL_REPEATABLEREAD: return SQL_TXN_REPEATABLE_READ;
    case ISOLATIONLEVEL_SERIALIZABLE: return SQL_TXN_SERIALIZABLE;
    default: return SQL_TXN_READ_COMMITTED;
    }
}

}  // namespace

// Work outside a transaction is committed statement by statement, read committed.
OdbcSession::OdbcSession(ComPtr<OdbcDataSource> dataSource, std::shared_ptr<Connection> connection)
    : SessionObject(std::move(dataSource), DBPROPVAL_TI_READCOMMITTED), m_connection(std::move(connection)) {
    std::lock_guard guard(m_connection->lock());
    m_quote = m_connection->InfoText(SQL_IDENTIFIER_QUOTE_CHAR);
    if (m_quote == L" ") m_quote.clear();  // the driver does not quote identifiers
}

// A transaction still open ends with the session: the connection rolls it back.
OdbcSession::~OdbcSession() = default;

std::wstring OdbcSession::QuoteName(const std::wstring& name) const {
    if (m_quote.empty()) return name;
    std::wstring out = m_quote;
    for (wchar_t c : name) {
        out += c;
        if (m_quote.size() == 1 && c == m_quote[0]) out += c;
    }
    out += m_quote;
    return out;
}

STDMETHODIMP OdbcSession::OpenRowset(IUnknown* outer, DBID* tableId, DBID* indexId, REFIID riid, ULONG setCount,
                                     DBPROPSET sets[], IUnknown** rowset) {
    try {
        OpenRowsetRequest request = CheckOpenRowset(outer, tableId, indexId, riid, setCount, sets, rowset);
        const std::wstring sql = L"SELECT * FROM " + QuoteName(request.table);
        StatementResult result = RunStatement(m_connection, sql, 0);
        if (!result.rows) Fail(DB_E_NOTABLE, L"The table gave no rows: " + sql, L"42S02");
        if (!rowset) return ClearErrorAndReturn(request.propertiesResult);
        HRESULT hr = Rowset::CreateInstance(outer, riid, reinterpret_cast<void**>(rowset), nullptr,
                                            std::move(result.rows), std::move(request.properties),
                                            ComPtr<IUnknown>(Identity()));
        if (FAILED(hr)) Fail(hr);
        return ClearErrorAndReturn(request.propertiesResult);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::CreateCommand(IUnknown* outer, REFIID riid, IUnknown** command) {
    try {
        if (!command) Fail(E_INVALIDARG);
        *command = nullptr;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        HRESULT hr =
            OdbcCommand::CreateInstance(outer, riid, reinterpret_cast<void**>(command), ComPtr<OdbcSession>(this));
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::StartTransaction(ISOLEVEL level, ULONG flags, ITransactionOptions*,
                                           ULONG* transactionLevel) {
    try {
        CheckStartTransaction(level, flags);
        std::lock_guard guard(m_connection->lock());
        if (m_connection->InTransaction()) Fail(XACT_E_XTIONEXISTS);
        m_connection->Begin(OdbcIsolation(level));
        m_isolation = static_cast<ULONG>(level) == ISOLATIONLEVEL_UNSPECIFIED ? static_cast<ISOLEVEL>(ISOLATIONLEVEL_READCOMMITTED) : level;
        if (transactionLevel) *transactionLevel = 1;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::Commit(BOOL retaining, DWORD commitType, DWORD resourceManagerFlags) {
    try {
        CheckCommit(commitType, resourceManagerFlags);
        std::lock_guard guard(m_connection->lock());
        if (!m_connection->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        m_connection->Commit(retaining != FALSE);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::Abort(BOID*, BOOL retaining, BOOL async) {
    try {
        CheckAbort(async);
        std::lock_guard guard(m_connection->lock());
        if (!m_connection->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        m_connection->Rollback(retaining != FALSE);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::GetTransactionInfo(XACTTRANSINFO* info) {
    try {
        if (!info) Fail(E_INVALIDARG);
        std::lock_guard guard(m_connection->lock());
        if (!m_connection->InTransaction()) Fail(XACT_E_NOTRANSACTION);
        *info = XACTTRANSINFO{};
        info->isoLevel = m_isolation;
        info->grfTCSupported = XACTTC_SYNC;
        info->grfTCSupportedRetaining = XACTTC_SYNC;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::GetRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount,
                                    const VARIANT restrictions[], REFIID riid, ULONG setCount, DBPROPSET sets[],
                                    IUnknown** rowset) {
    return OpenSchemaRowset(outer, schema, restrictionCount, restrictions, riid, setCount, sets, rowset, Identity(),
                            [&](const SchemaRequest& request) { return OdbcSchemaRows(request, *m_connection); });
}

}  // namespace zel::provider::odbc
