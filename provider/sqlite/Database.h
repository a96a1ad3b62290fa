// One SQLite connection to the database file, shared by a session and the commands and rowsets
// made from it. Every session opens its own connection, so sessions have their own transactions
// and SQLite's file locks (with the busy timeout) keep them, and other processes, apart.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>

#include "provider/sqlite/SqliteHandles.h"

namespace zel::provider {

struct OpenOptions {
    std::wstring path;        // full path of an existing database file
    bool readOnly = false;
    int busyTimeoutMs = 5000;
};

class Database {
public:
    // Opens an existing file (never creates one) and checks that it is an SQLite database.
    // Fails (error object published) with STG_E_FILENOTFOUND for a missing file and with
    // SQLite's error otherwise.
    static std::shared_ptr<Database> Open(const OpenOptions& options);

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    sqlite3* handle() const noexcept { return m_db.get(); }
    const OpenOptions& options() const noexcept { return m_options; }

    // Runs statements that return no rows (transaction control, pragmas). Throws on failure.
    void Execute(std::string_view sql);
    // Prepares one statement from the start of `sql`; `tail` receives the unused rest.
    // Throws on a syntax error; the statement is null for text without a statement.
    SqliteStatement Prepare(std::wstring_view sql, std::wstring_view* tail = nullptr);
    // Prepares a statement whose refusal is an answer, not an error (whether a table has a
    // rowid, whether an optional table exists): null when SQLite refuses it. Publishes nothing.
    SqliteStatement TryPrepare(std::wstring_view sql);

    // Whether a transaction is open on the connection (begun through ITransactionLocal or by a
    // BEGIN statement of the consumer's own).
    bool InTransaction() const noexcept { return sqlite3_get_autocommit(m_db.get()) == 0; }

private:
    explicit Database(OpenOptions options) : m_options(std::move(options)) {}

    OpenOptions m_options;
    SqliteConnection m_db;
};

}  // namespace zel::provider
