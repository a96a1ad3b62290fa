#include "provider/sqlite/Database.h"

#include <windows.h>
#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/text/Utf.h"

namespace zel::provider {

std::shared_ptr<Database> Database::Open(const OpenOptions& options) {
    DWORD attributes = GetFileAttributesW(options.path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        Fail(STG_E_FILENOTFOUND,
             L"The database file '" + options.path +
                 L"' does not exist. ZelLite opens existing files only; an empty file is a valid empty database.",
             L"08001");
    }
    std::shared_ptr<Database> database(new Database(options));
    const int flags = (options.readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_FULLMUTEX;
    // SQLite's Windows file layer takes UTF-8 names and opens them with the wide-character API.
    int rc = sqlite3_open_v2(ToUtf8(options.path).c_str(), database->m_db.put(), flags, nullptr);
    if (rc != SQLITE_OK) {
        std::wstring message = database->m_db ? FromUtf8(sqlite3_errmsg(database->m_db.get())) : L"";
        SqliteFailure failure = ClassifySqliteError(rc, "");
        Fail(failure.hr, L"Cannot open the database file '" + options.path + L"': " + message, failure.sqlState, rc);
    }
    sqlite3* db = database->m_db.get();
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, options.busyTimeoutMs);
    // Reading the schema proves that the file is a database (a zero-length file is an empty one).
    {
        ConnectionLock lock(db);
        rc = sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK) FailSqlite(db, rc, L"(opening '" + options.path + L"')");
    }
    return database;
}

void Database::Execute(std::string_view sql) {
    ConnectionLock lock(handle());
    std::string text(sql);
    int rc = sqlite3_exec(handle(), text.c_str(), nullptr, nullptr, nullptr);
    if (rc != SQLITE_OK) FailSqlite(handle(), rc, FromUtf8(text));
}

SqliteStatement Database::Prepare(std::wstring_view sql, std::wstring_view* tail) {
    // SQLite reads a surrogate as the first half of a pair whatever follows it, so a lone one
    // swallows the next character (a closing quote, say) and the statement SQLite runs is not
    // the one given, nor is the tail it reports where the next statement starts. Such text is
    // refused whole, before any of it runs.
    if (const size_t at = FindUnpairedSurrogate(sql); at != std::wstring_view::npos) {
        Fail(DB_E_ERRORSINCOMMAND,
             L"The statement is not valid UTF-16: character " + std::to_wstring(at + 1) +
                 L" is half of a surrogate pair without its other half.\nStatement: " + std::wstring(sql),
             L"22021");
    }
    ConnectionLock lock(handle());
    SqliteStatement statement;
    const void* rest = nullptr;
    int rc = sqlite3_prepare16_v2(handle(), sql.data(), static_cast<int>(sql.size() * sizeof(wchar_t)),
                                  statement.put(), &rest);
    if (rc != SQLITE_OK) FailSqlite(handle(), rc, sql);
    if (tail) {
        const wchar_t* end = rest ? static_cast<const wchar_t*>(rest) : sql.data() + sql.size();
        *tail = sql.substr(static_cast<size_t>(end - sql.data()));
    }
    return statement;
}

SqliteStatement Database::TryPrepare(std::wstring_view sql) {
    ConnectionLock lock(handle());
    SqliteStatement statement;
    // SQLite leaves the handle null when it refuses the statement.
    sqlite3_prepare16_v2(handle(), sql.data(), static_cast<int>(sql.size() * sizeof(wchar_t)), statement.put(),
                         nullptr);
    return statement;
}

}  // namespace zel::provider
