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
        if (!db.Exec("CREATE TABLE BenchRows (Id INTEGER PRIMARY KEY, Name TEXT(50), Amount DOUBLE, "
                     "Created DATETIME, Active BIT, Notes TEXT(200))"))
            return false;
        // Values vary with the row number so that no two rows format alike: names of 14 to
        // 30 characters, amounts with decimals, dates over about five years with times of
        // day, and 200-character notes that start with the row number.
        char sql[1024];
        std::snprintf(sql, sizeof sql,
                      "WITH RECURSIVE seq(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM seq WHERE i < %llu) "
                      "INSERT INTO BenchRows SELECT i, "
                      "printf('Customer %%07d %%s', i, substr('abcdefghijklmnop', 1, i %% 17)), "
                      "i * 1.25 + (i %% 100) / 7.0, "
                      "datetime('2020-01-01', '+' || (i %% 1900) || ' days', '+' || ((i * 7919) %% 86400) || ' seconds'), "
                      "i %% 2, "
                      "substr(printf('Note %%07d ', i) || "
                      "'The quick brown fox jumps over the lazy dog while the five boxing wizards jump quickly; "
                      "pack my box with five dozen liquor jugs, and how vexingly quick daft zebras jump over "
                      "the sphinx of black quartz judging my vow.', 1, 200) "
                      "FROM seq",
                      rows);
        return db.Exec(sql);
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
