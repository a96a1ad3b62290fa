#include "provider/sqlite/SqliteErrors.h"

#include <oledb.h>
#include <oledberr.h>
#include <transact.h>

#include <string>

#include "provider/errors/Errors.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

SqliteFailure ClassifySqliteError(int extendedCode, std::string_view message) noexcept {
    switch (extendedCode & 0xFF) {
    case SQLITE_ERROR:
        if (StartsWith(message, "no such table") || StartsWith(message, "no such view"))
            return {DB_E_NOTABLE, L"42S02"};
        if (StartsWith(message, "no such column")) return {DB_E_ERRORSINCOMMAND, L"42S22"};
        if (message.find("already exists") != std::string_view::npos) {
            if (StartsWith(message, "index")) return {DB_E_DUPLICATEINDEXID, L"42S11"};
            return {DB_E_DUPLICATETABLEID, L"42S01"};
        }
        return {DB_E_ERRORSINCOMMAND, L"42000"};
    case SQLITE_CONSTRAINT: return {DB_E_INTEGRITYVIOLATION, L"23000"};
    case SQLITE_BUSY: return {DB_E_TIMEOUT, L"HYT00"};
    case SQLITE_LOCKED: return {DB_E_TABLEINUSE, L"HY000"};
    case SQLITE_READONLY: return {DB_E_READONLY, L"25006"};
    case SQLITE_PERM:
    case SQLITE_AUTH: return {DB_SEC_E_PERMISSIONDENIED, L"42000"};
    case SQLITE_NOMEM: return {E_OUTOFMEMORY, L"HY001"};
    case SQLITE_INTERRUPT: return {DB_E_CANCELED, L"HY008"};
    case SQLITE_FULL: return {DB_E_OUTOFSPACE, L"HY000"};
    case SQLITE_CANTOPEN:
    case SQLITE_NOTADB: return {DB_E_CANNOTCONNECT, L"08001"};
    case SQLITE_CORRUPT: return {DB_E_CANNOTCONNECT, L"HY000"};
    case SQLITE_TOOBIG: return {DB_E_DATAOVERFLOW, L"22001"};
    case SQLITE_MISMATCH: return {DB_E_CANTCONVERTVALUE, L"22018"};
    case SQLITE_RANGE: return {DB_E_BADORDINAL, L"07009"};
    case SQLITE_ABORT: return {XACT_E_ABORTED, L"40001"};
    case SQLITE_SCHEMA: return {DB_E_ERRORSINCOMMAND, L"HY000"};
    default: return {E_FAIL, L"HY000"};
    }
}

void FailSqlite(sqlite3* db, int rc, std::wstring_view statement, const std::source_location& where) {
    int extended = db ? sqlite3_extended_errcode(db) : rc;
    if ((extended & 0xFF) != (rc & 0xFF)) extended = rc;
    std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    SqliteFailure failure = ClassifySqliteError(extended, message);
    std::wstring description = FromUtf8(message);
    if ((extended & 0xFF) == SQLITE_BUSY && db)
        description += L" (another connection is writing to the database; the wait for it timed out)";
    if (!statement.empty()) {
        description += L"\nStatement: ";
        description += statement;
    }
    Fail(failure.hr, description, failure.sqlState, extended, where);
}

}  // namespace zel::provider
