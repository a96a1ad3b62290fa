// SQLite's result codes as OLE DB failures: the HRESULT and SQLSTATE of each code, and the
// failure published with SQLite's own message.
#pragma once

#include <windows.h>

#include <sqlite3.h>

#include <source_location>
#include <string_view>

namespace zel::provider {

struct SqliteFailure {
    HRESULT hr;
    const wchar_t* sqlState;
};

// The OLE DB result and the SQLSTATE for an SQLite result code (extended codes accepted) and
// the message SQLite gave with it.
SqliteFailure ClassifySqliteError(int extendedCode, std::string_view message) noexcept;

// Fails with SQLite's last error on `db` (whose mutex the caller holds); the description is
// SQLite's message followed by the statement when one is given.
[[noreturn]] void FailSqlite(sqlite3* db, int rc, std::wstring_view statement = {},
                             const std::source_location& where = std::source_location::current());

}  // namespace zel::provider
