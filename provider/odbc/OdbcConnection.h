// The ODBC side of ZelOdbc: handles owned by RAII, one connection to a data source, and the
// driver's diagnostics turned into the provider's error objects.
//
// Only the wide-character (W) ODBC functions are called: the driver manager converts for ANSI
// drivers, and some driver managers implement nothing else.
#pragma once

#include <windows.h>
#include <sql.h>
#include <sqlext.h>

#include <memory>
#include <mutex>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>

namespace zel::provider::odbc {

inline bool Succeeded(SQLRETURN rc) noexcept { return rc == SQL_SUCCESS || rc == SQL_SUCCESS_WITH_INFO; }

// One ODBC handle of kind `Kind`, freed with its owner.
template <SQLSMALLINT Kind>
class OdbcHandle {
public:
    OdbcHandle() = default;
    ~OdbcHandle() { reset(); }
    OdbcHandle(OdbcHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    OdbcHandle& operator=(OdbcHandle&& other) noexcept {
        if (this != &other) {
            reset();
            m_handle = std::exchange(other.m_handle, nullptr);
        }
        return *this;
    }
    OdbcHandle(const OdbcHandle&) = delete;
    OdbcHandle& operator=(const OdbcHandle&) = delete;

    SQLHANDLE get() const noexcept { return m_handle; }
    SQLHANDLE* put() noexcept {
        reset();
        return &m_handle;
    }
    void reset() noexcept {
        if (m_handle) SQLFreeHandle(Kind, std::exchange(m_handle, nullptr));
    }
    explicit operator bool() const noexcept { return m_handle != nullptr; }

private:
    SQLHANDLE m_handle = nullptr;
};

using StatementHandle = OdbcHandle<SQL_HANDLE_STMT>;

// The OLE DB result for an SQLSTATE: 08 (connection) DB_E_CANNOTCONNECT, 28 (authorization)
// DB_SEC_E_AUTH_FAILED, 42S02 and PostgreSQL's 42P01 DB_E_NOTABLE, 42S01 and 42P07
// DB_E_DUPLICATETABLEID, 42 and 37 (syntax, access) DB_E_ERRORSINCOMMAND, 23 (constraints)
// DB_E_INTEGRITYVIOLATION, 22 (data) DB_E_DATAOVERFLOW, 40 (rollback) XACT_E_ABORTED, 57014
// and HY008 (cancelled) DB_E_CANCELED, HYT00/HYT01 DB_E_TIMEOUT, IM (driver manager: unknown
// DSN or driver) and 57P (server shutting down) DB_E_CANNOTCONNECT, HY001 E_OUTOFMEMORY,
// E_FAIL otherwise.
HRESULT ResultForSqlState(std::wstring_view sqlState) noexcept;

// Publishes the diagnostic records of `handle` (the driver's messages, the first record's
// SQLSTATE and native error) as the provider's error object and throws ComError. The
// description ends with the statement when one is given.
[[noreturn]] void FailOdbc(SQLSMALLINT kind, SQLHANDLE handle, std::wstring_view statement = {},
                           const std::source_location& where = std::source_location::current());

// Fails as FailOdbc does when `rc` is neither SQL_SUCCESS nor SQL_SUCCESS_WITH_INFO.
inline void CheckOdbc(SQLRETURN rc, SQLSMALLINT kind, SQLHANDLE handle, std::wstring_view statement = {},
                      const std::source_location& where = std::source_location::current()) {
    if (!Succeeded(rc)) FailOdbc(kind, handle, statement, where);
}

// One ODBC connection: an environment (ODBC 3) and a connected connection handle. Each session
// has its own, so that transactions are per session as OLE DB wants them. Calls on the
// connection and its statements are made under lock().
class Connection {
public:
    // Connects with a complete ODBC connection string, without any prompt. `loginTimeout` in
    // seconds, 0 for the driver's default. Fails (error published) with the driver manager's or
    // the driver's diagnostics.
    static std::shared_ptr<Connection> Open(const std::wstring& connectionString, SQLUINTEGER loginTimeout);
    // Disconnects; a transaction still open is rolled back.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::mutex& lock() noexcept { return m_lock; }
    SQLHDBC handle() const noexcept { return m_dbc.get(); }
    // The string the connection was opened with (it may hold a password).
    const std::wstring& connectionString() const noexcept { return m_connectionString; }

    // A new statement handle (caller holds lock()).
    StatementHandle NewStatement();
    // A text answer of SQLGetInfo; empty when the driver has none.
    std::wstring InfoText(SQLUSMALLINT type);
    // A 32-bit answer of SQLGetInfo; 0 when the driver has none.
    SQLUINTEGER InfoNumber(SQLUSMALLINT type);

    // The database is SQLite (SQL_DBMS_NAME): its declared types are affinities, not limits
    // (see SqliteColumnType).
    bool IsSqlite() const noexcept { return m_sqlite; }

    // Manual-commit transactions (caller holds lock()). Begin switches autocommit off; Commit
    // and Rollback end the transaction and switch it back on unless `retaining`.
    bool InTransaction() const noexcept { return m_inTransaction; }
    void Begin(SQLUINTEGER isolation);
    void Commit(bool retaining);
    void Rollback(bool retaining);

private:
    Connection() = default;
    void EndTransaction(SQLSMALLINT completion, bool retaining);

    std::mutex m_lock;
    OdbcHandle<SQL_HANDLE_ENV> m_env;
    OdbcHandle<SQL_HANDLE_DBC> m_dbc;
    std::wstring m_connectionString;
    bool m_connected = false;
    bool m_inTransaction = false;
    bool m_sqlite = false;
};

// Reads one column of a catalog or statement result as text (SQL_C_WCHAR); nothing for NULL.
// Used for the short texts of catalog functions and SQLGetInfo-like queries.
bool ReadText(SQLHSTMT statement, SQLUSMALLINT ordinal, std::wstring& text);
// Reads one integer column; nothing for NULL.
bool ReadInteger(SQLHSTMT statement, SQLUSMALLINT ordinal, SQLBIGINT& value);

}  // namespace zel::provider::odbc
