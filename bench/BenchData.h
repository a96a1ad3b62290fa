// The data sets of the benchmarks, written straight into SQLite files in one transaction:
// a table of N rows with a column of each common type, and a catalog of many small tables
// plus one table of many columns.
#pragma once

#include <cstdio>
#include <string>

namespace zel::bench {

// The measured table and the one query every row figure runs.
inline constexpr const wchar_t* kRowTable = L"BenchRows";
inline constexpr const wchar_t* kRowQuery = L"SELECT * FROM BenchRows";
inline constexpr unsigned kRowColumns = 6;
// The table of many columns in the catalog file.
inline constexpr const wchar_t* kWideTable = L"WideTable";

// The statements that make BenchRows, in SQLite's SQL (which the embedded provider runs as
// it is, so tests can make the same table through the server). Values vary with the row
// number so that no two rows format alike: names of 14 to 30 characters, amounts with
// decimals, dates over about five years with times of day, and 200-character notes that
// start with the row number.
inline constexpr const char* kRowTableCreate =
    "CREATE TABLE BenchRows (Id INTEGER PRIMARY KEY, Name TEXT(50), Amount DOUBLE, "
    "Created DATETIME, Active BIT, Notes TEXT(200))";
inline std::string RowTableInsert(unsigned long long rows) {
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
    return sql;
}

// Creates `path` (replacing it) holding BenchRows with `rows` rows:
// Id INTEGER PRIMARY KEY (I4), Name TEXT(50) (WSTR, 14 to 30 characters), Amount DOUBLE (R8),
// Created DATETIME (DATE, ISO text), Active BIT (BOOL), Notes TEXT(200) (WSTR, 200 characters).
// Returns an empty string on success, otherwise what failed.
std::string GenerateRowTable(const std::wstring& path, unsigned long long rows);

// Creates `path` (replacing it) with `tables` tables CatTable0001... of two columns each and
// WideTable with `columns` columns of mixed types. Empty string on success.
std::string GenerateCatalog(const std::wstring& path, unsigned tables, unsigned columns);

}  // namespace zel::bench
