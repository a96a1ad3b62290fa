#include "bench/BenchData.h"

#include <windows.h>

#include <sqlite3.h>

#include <cstdio>

#include "bench/BenchHarness.h"

namespace zel::bench {
namespace {

// Owns an open database; every statement runs through Exec.
class Database {
public:
    explicit Database(const std::wstring& path) {
        if (sqlite3_open16(path.c_str(), &m_db) != SQLITE_OK) m_error = "open: " + Message();
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() { sqlite3_close(m_db); }

    bool Exec(const std::string& sql) {
        if (!m_error.empty()) return false;
        char* message = nullptr;
        if (sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return true;
        m_error = sql.substr(0, 80) + ": " + (message ? message : "failed");
        sqlite3_free(message);
        return false;
    }
    const std::string& Error() const { return m_error; }

private:
    std::string Message() const { return m_db ? sqlite3_errmsg(m_db) : "out of memory"; }

    sqlite3* m_db = nullptr;
    std::string m_error;
};

// Writes into a scratch file next to `path` and moves it over `path` only when complete, so
// an interrupted run never leaves a half-filled data set that a later run would reuse.
template <typename Fill>
std::string WriteAtomically(const std::wstring& path, Fill&& fill) {
    const std::wstring scratch = path + L".part";
    DeleteFileW(scratch.c_str());
    std::string error;
    {
        Database db(scratch);
        // The scratch file is thrown away on failure, so there is nothing to journal.
        if (db.Exec("PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN") && fill(db)) db.Exec("COMMIT");
        error = db.Error();
    }
    if (error.empty() && !MoveFileExW(scratch.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING))
        error = "cannot move the generated file into place (error " + std::to_string(GetLastError()) + ")";
    if (!error.empty()) DeleteFileW(scratch.c_str());
    return error;
}

}  // namespace

std::string GenerateRowTable(const std::wstring& path, unsigned long long rows) {
    return WriteAtomically(path, [rows](Database& db) {
        return db.Exec(kRowTableCreate) && db.Exec(RowTableInsert(rows).c_str());
    });
}

std::string GenerateCatalog(const std::wstring& path, unsigned tables, unsigned columns) {
    return WriteAtomically(path, [tables, columns](Database& db) {
        char sql[256];
        for (unsigned t = 1; t <= tables; ++t) {
            std::snprintf(sql, sizeof sql, "CREATE TABLE CatTable%04u (Id INTEGER PRIMARY KEY, Name TEXT(50))", t);
            if (!db.Exec(sql)) return false;
        }
        static const char* const kTypes[] = {"INTEGER", "TEXT(50)", "DOUBLE", "DATETIME", "BIT", "TEXT(200)"};
        std::string wide = "CREATE TABLE WideTable (";
        for (unsigned c = 1; c <= columns; ++c) {
            std::snprintf(sql, sizeof sql, "%sCol%03u %s", c == 1 ? "" : ", ", c, kTypes[(c - 1) % 6]);
            wide += sql;
        }
        return db.Exec(wide + ")");
    });
}

}  // namespace zel::bench
