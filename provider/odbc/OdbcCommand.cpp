#include "provider/odbc/OdbcCommand.h"

#include <oledberr.h>

#include <vector>

#include "provider/errors/Errors.h"
#include "provider/objects/Rowset.h"
#include "provider/odbc/OdbcRowSource.h"
#include "provider/odbc/OdbcSession.h"
#include "provider/values/DataConversion.h"

namespace zel::provider::odbc {

OdbcCommand::OdbcCommand(ComPtr<OdbcSession> session) : m_session(std::move(session)) {}

HRESULT OdbcCommand::QueryExtra(REFIID riid, void** found) noexcept {
    if (riid != IID_ICommand) return E_NOINTERFACE;
    *found = static_cast<ICommand*>(static_cast<ICommandText*>(this));
    return S_OK;
}

STDMETHODIMP OdbcCommand::Cancel() {
    // SQLCancel is the one ODBC call meant for another thread while a statement executes.
    SQLHSTMT running = m_running.load();
    if (running) SQLCancel(running);
    return S_OK;
}

STDMETHODIMP OdbcCommand::Execute(IUnknown* outer, REFIID riid, DBPARAMS* params, DBROWCOUNT* rowsAffected,
                                  IUnknown** rowset) {
    try {
        if (rowset) *rowset = nullptr;
        if (rowsAffected) *rowsAffected = DB_COUNTUNAVAILABLE;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        std::lock_guard guard(m_state.lock());
        if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
        if (params && params->pData)
            Fail(DB_E_PARAMNOTOPTIONAL, L"ZelOdbc does not take parameter values; write the values into the SQL.",
                 L"07002");
        const VARIANT& timeout = m_state.properties().Value(DBPROPSET_ROWSET, DBPROP_COMMANDTIMEOUT);
        const SQLULEN seconds = V_VT(&timeout) == VT_I4 && V_I4(&timeout) > 0 ? static_cast<SQLULEN>(V_I4(&timeout)) : 0;
        StatementResult result = RunStatement(m_session->connection(), m_state.text(), seconds, &m_running);
        if (rowsAffected) *rowsAffected = result.rowsAffected;
        if (!result.rows || !rowset || riid == IID_NULL) return S_OK;
        HRESULT hr = Rowset::CreateInstance(outer, riid, reinterpret_cast<void**>(rowset), nullptr,
                                            std::move(result.rows), m_state.properties(),
                                            ComPtr<IUnknown>(ControllingUnknown()), m_state.OpenToken());
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::GetDBSession(REFIID riid, IUnknown** session) {
    try {
        if (!session) Fail(E_INVALIDARG);
        *session = nullptr;
        HRESULT hr = m_session->Identity()->QueryInterface(riid, reinterpret_cast<void**>(session));
        if (FAILED(hr)) Fail(hr);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::GetCommandText(GUID* dialect, LPOLESTR* text) {
    try {
        return m_state.GetCommandText(dialect, text);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::SetCommandText(REFGUID dialect, LPCOLESTR text) {
    try {
        return m_state.SetCommandText(dialect, text);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                                        DBPROPSET** sets) {
    try {
        return m_state.GetProperties(idSetCount, idSets, setCount, sets);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::SetProperties(ULONG setCount, DBPROPSET sets[]) {
    try {
        return m_state.SetProperties(setCount, sets);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::Prepare(ULONG) {
    try {
        std::lock_guard guard(m_state.lock());
        if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
        DescribePrepared();  // fails with the driver's diagnostics when the text is wrong
        m_state.SetPrepared(true);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::Unprepare() {
    try {
        std::lock_guard guard(m_state.lock());
        m_state.SetPrepared(false);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

ComPtr<IColumnsInfo> OdbcCommand::DescribePrepared() {
    if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
    const auto& connection = m_session->connection();
    std::vector<ColumnDesc> columns;
    {
        std::lock_guard guard(connection->lock());
        StatementHandle statement = connection->NewStatement();
        const std::wstring& text = m_state.text();
        std::vector<SQLWCHAR> sql(text.begin(), text.end());
        sql.push_back(0);
        CheckOdbc(SQLPrepareW(statement.get(), sql.data(), SQL_NTS), SQL_HANDLE_STMT, statement.get(), text);
        columns = DescribeColumns(*connection, statement.get(), nullptr, text);
    }
    auto source = std::make_unique<MemoryRowSource>(std::move(columns), std::vector<SourceRow>{});
    ComPtr<IColumnsInfo> info;
    ZEL_THROW_IF_FAILED(Rowset::CreateInstance(nullptr, IID_IColumnsInfo, info.put_void(), nullptr, std::move(source),
                                               m_state.properties(), ComPtr<IUnknown>()));
    return info;
}

STDMETHODIMP OdbcCommand::GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** names) {
    try {
        if (!count || !info || !names) Fail(E_INVALIDARG);
        *count = 0;
        *info = nullptr;
        *names = nullptr;
        std::lock_guard guard(m_state.lock());
        if (m_state.hasText() && !m_state.prepared()) Fail(DB_E_NOTPREPARED);
        return DescribePrepared()->GetColumnInfo(count, info, names);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::MapColumnIDs(DBORDINAL count, const DBID ids[], DBORDINAL ordinals[]) {
    try {
        std::lock_guard guard(m_state.lock());
        if (m_state.hasText() && !m_state.prepared()) Fail(DB_E_NOTPREPARED);
        return DescribePrepared()->MapColumnIDs(count, ids, ordinals);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::CanConvert(DBTYPE from, DBTYPE to, DBCONVERTFLAGS flags) {
    try {
        if (!ValidConvertFlags(from, flags, true)) Fail(DB_E_BADCONVERTFLAG);
        return zel::provider::CanConvert(from, to) ? S_OK : S_FALSE;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcCommand::InterfaceSupportsErrorInfo(REFIID riid) {
    return riid == IID_ICommand || riid == IID_ICommandText || riid == IID_ICommandProperties ||
                   riid == IID_ICommandPrepare || riid == IID_IColumnsInfo || riid == IID_IConvertType
               ? S_OK
               : S_FALSE;
}

}  // namespace zel::provider::odbc
