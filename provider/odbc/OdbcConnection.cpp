#include "provider/odbc/OdbcConnection.h"

#include <oledberr.h>
#include <transact.h>

#include <vector>

#include "common/ComError.h"
#include "provider/errors/Errors.h"

namespace zel::provider::odbc {

namespace {

bool StartsWith(std::wstring_view text, std::wstring_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

HRESULT ResultForSqlState(std::wstring_view s) noexcept {
    if (s == L"42S02" || s == L"42P01") return DB_E_NOTABLE;  // 42P01: PostgreSQL's undefined table
    if (s == L"42S01" || s == L"42P07") return DB_E_DUPLICATETABLEID;
    if (s == L"57014" || s == L"HY008") return DB_E_CANCELED;
    if (s == L"HYT00" || s == L"HYT01") return DB_E_TIMEOUT;
    if (s == L"HY001") return E_OUTOFMEMORY;
    if (StartsWith(s, L"08") || StartsWith(s, L"IM") || StartsWith(s, L"57P")) return DB_E_CANNOTCONNECT;
    if (StartsWith(s, L"28")) return DB_SEC_E_AUTH_FAILED;
    if (StartsWith(s, L"42") || StartsWith(s, L"37")) return DB_E_ERRORSINCOMMAND;
    if (StartsWith(s, L"23")) return DB_E_INTEGRITYVIOLATION;
    if (StartsWith(s, L"22")) return DB_E_DATAOVERFLOW;
    if (StartsWith(s, L"40")) return XACT_E_ABORTED;
    return E_FAIL;
}

void FailOdbc(SQLSMALLINT kind, SQLHANDLE handle, std::wstring_view statement, const std::source_location& where) {
    std::wstring description;
    std::wstring firstState;
    SQLINTEGER firstNative = 0;
    for (SQLSMALLINT record = 1; handle != nullptr; ++record) {
        SQLWCHAR state[6] = {};
        SQLINTEGER native = 0;
        std::vector<SQLWCHAR> message(1024);
        SQLSMALLINT length = 0;
        SQLRETURN rc = SQLGetDiagRecW(kind, handle, record, state, &native, message.data(),
                                      static_cast<SQLSMALLINT>(message.size()), &length);
        if (rc == SQL_SUCCESS_WITH_INFO && length >= static_cast<SQLSMALLINT>(message.size())) {
            message.resize(static_cast<size_t>(length) + 1);
            rc = SQLGetDiagRecW(kind, handle, record, state, &native, message.data(),
                                static_cast<SQLSMALLINT>(message.size()), &length);
        }
        if (!Succeeded(rc)) break;
        std::wstring text(reinterpret_cast<const wchar_t*>(message.data()),
                          std::min<size_t>(static_cast<size_t>(length), message.size() - 1));
        while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r' || text.back() == L' ')) text.pop_back();
        if (record == 1) {
            firstState.assign(reinterpret_cast<const wchar_t*>(state), 5);
            firstNative = native;
        } else {
            description += L"\n";
        }
        description += text;
    }
    if (firstState.empty()) {
        firstState = L"HY000";
        description = L"The ODBC driver reported a failure without a diagnostic record.";
    }
    if (!statement.empty()) {
        description += L"\nStatement: ";
        description += statement;
    }
    Fail(ResultForSqlState(firstState), description, firstState, firstNative, where);
}

std::shared_ptr<Connection> Connection::Open(const std::wstring& connectionString, SQLUINTEGER loginTimeout) {
    std::shared_ptr<Connection> c(new Connection());
    c->m_connectionString = connectionString;
    if (!Succeeded(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, c->m_env.put())))
        Fail(DB_E_CANNOTCONNECT, L"The ODBC driver manager could not be loaded or refused an environment.", L"IM004");
    CheckOdbc(SQLSetEnvAttr(c->m_env.get(), SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0),
              SQL_HANDLE_ENV, c->m_env.get());
    CheckOdbc(SQLAllocHandle(SQL_HANDLE_DBC, c->m_env.get(), c->m_dbc.put()), SQL_HANDLE_ENV, c->m_env.get());
    if (loginTimeout)
        SQLSetConnectAttrW(c->m_dbc.get(), SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(
                                                                       static_cast<SQLULEN>(loginTimeout)), 0);
    std::vector<SQLWCHAR> text(connectionString.begin(), connectionString.end());
    text.push_back(0);
    SQLWCHAR completed[1024];
    SQLSMALLINT completedLength = 0;
    SQLRETURN rc = SQLDriverConnectW(c->m_dbc.get(), nullptr, text.data(), SQL_NTS, completed,
                                     static_cast<SQLSMALLINT>(std::size(completed)), &completedLength,
                                     SQL_DRIVER_NOPROMPT);
    if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_DBC, c->m_dbc.get());
    c->m_connected = true;
    c->m_sqlite = _wcsicmp(c->InfoText(SQL_DBMS_NAME).c_str(), L"SQLite") == 0;
    return c;
}

Connection::~Connection() {
    if (!m_connected) return;
    if (m_inTransaction) SQLEndTran(SQL_HANDLE_DBC, m_dbc.get(), SQL_ROLLBACK);
    SQLDisconnect(m_dbc.get());
}

StatementHandle Connection::NewStatement() {
    StatementHandle statement;
    CheckOdbc(SQLAllocHandle(SQL_HANDLE_STMT, m_dbc.get(), statement.put()), SQL_HANDLE_DBC, m_dbc.get());
    return statement;
}

std::wstring Connection::InfoText(SQLUSMALLINT type) {
    SQLWCHAR buffer[512];
    SQLSMALLINT length = 0;
    if (!Succeeded(SQLGetInfoW(m_dbc.get(), type, buffer, sizeof(buffer), &length))) return {};
    const size_t characters = std::min<size_t>(static_cast<size_t>(length) / sizeof(SQLWCHAR), std::size(buffer) - 1);
    return std::wstring(reinterpret_cast<const wchar_t*>(buffer), characters);
}

SQLUINTEGER Connection::InfoNumber(SQLUSMALLINT type) {
    SQLUINTEGER value = 0;
    if (!Succeeded(SQLGetInfoW(m_dbc.get(), type, &value, sizeof(value), nullptr))) return 0;
    return value;
}

void Connection::Begin(SQLUINTEGER isolation) {
    if (isolation)
        SQLSetConnectAttrW(m_dbc.get(), SQL_ATTR_TXN_ISOLATION,
                           reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(isolation)), 0);
    CheckOdbc(SQLSetConnectAttrW(m_dbc.get(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0),
              SQL_HANDLE_DBC, m_dbc.get());
    m_inTransaction = true;
}

void Connection::EndTransaction(SQLSMALLINT completion, bool retaining) {
    SQLRETURN rc = SQLEndTran(SQL_HANDLE_DBC, m_dbc.get(), completion);
    if (!Succeeded(rc)) {
        // The transaction is over either way when the connection is gone; keep the state true
        // to the driver's: still in a transaction only if the driver says the call may be retried.
        FailOdbc(SQL_HANDLE_DBC, m_dbc.get());
    }
    if (completion == SQL_COMMIT) {
        // A driver that lost its connection during the transaction may answer the commit with
        // success (psqlODBC does: the transaction ended with the connection, so there is
        // nothing left to end). Nothing after the loss was committed: say so.
        SQLUINTEGER dead = SQL_CD_FALSE;
        if (Succeeded(SQLGetConnectAttrW(m_dbc.get(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)) &&
            dead == SQL_CD_TRUE) {
            m_inTransaction = false;
            Fail(XACT_E_ABORTED,
                 L"The connection to the data source was lost during the transaction: it was not committed.", L"08S01");
        }
    }
    if (!retaining) {
        m_inTransaction = false;
        CheckOdbc(SQLSetConnectAttrW(m_dbc.get(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0),
                  SQL_HANDLE_DBC, m_dbc.get());
    }
}

void Connection::Commit(bool retaining) { EndTransaction(SQL_COMMIT, retaining); }

void Connection::Rollback(bool retaining) { EndTransaction(SQL_ROLLBACK, retaining); }

bool ReadText(SQLHSTMT statement, SQLUSMALLINT ordinal, std::wstring& text) {
    text.clear();
    SQLWCHAR buffer[256];
    for (;;) {
        SQLLEN indicator = 0;
        SQLRETURN rc = SQLGetData(statement, ordinal, SQL_C_WCHAR, buffer, sizeof(buffer), &indicator);
        if (rc == SQL_NO_DATA) return true;
        if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement);
        if (indicator == SQL_NULL_DATA) return false;
        const size_t capacity = std::size(buffer) - 1;
        size_t got = indicator == SQL_NO_TOTAL || static_cast<size_t>(indicator) / sizeof(SQLWCHAR) > capacity
                         ? capacity
                         : static_cast<size_t>(indicator) / sizeof(SQLWCHAR);
        text.append(reinterpret_cast<const wchar_t*>(buffer), got);
        if (rc == SQL_SUCCESS) return true;
    }
}

bool ReadInteger(SQLHSTMT statement, SQLUSMALLINT ordinal, SQLBIGINT& value) {
    SQLLEN indicator = 0;
    value = 0;
    CheckOdbc(SQLGetData(statement, ordinal, SQL_C_SBIGINT, &value, sizeof(value), &indicator), SQL_HANDLE_STMT,
              statement);
    return indicator != SQL_NULL_DATA;
}

}  // namespace zel::provider::odbc
