#include "provider/odbc/OdbcCommand.h"

#include <oledberr.h>

#include <vector>

#include "provider/errors/Errors.h"
#include "provider/objects/Rowset.h"
#include "provider/odbc/OdbcRowSource.h"
#include "provider/odbc/OdbcSession.h"
#include "provider/values/DataConversion.h"

namespace zel::provider::odbc {

OdbcCommand::OdbcCommand(ComPtr<OdbcSession> session) : CommandObject(std::move(session)) {}

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

void OdbcCommand::PrepareText() { DescribePrepared(); }  // fails with the driver's diagnostics

ComPtr<IColumnsInfo> OdbcCommand::DescribePrepared() {
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

}  // namespace zel::provider::odbc
