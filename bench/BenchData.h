// The data sets of the benchmarks, written straight into SQLite files in one transaction:
// a table of N rows with a column of each common type, and a catalog of many small tables
// plus one table of many columns.
#pragma once

#include <string>

namespace zel::bench {

// The measured table and the one query every row figure runs.
inline constexpr const wchar_t* kRowTable = L"BenchRows";
inline constexpr const wchar_t* kRowQuery = L"SELECT * FROM BenchRows";
inline constexpr unsigned kRowColumns = 6;
// The table of many columns in the catalog file.
inline constexpr const wchar_t* kWideTable = L"WideTable";

// Creates `path` (replacing it) holding BenchRows with `rows` rows:
// Id INTEGER PRIMARY KEY (I4), Name TEXT(50) (WSTR, 14 to 30 characters), Amount DOUBLE (R8),
// Created DATETIME (DATE, ISO text), Active BIT (BOOL), Notes TEXT(200) (WSTR, 200 characters).
// Returns an empty string on success, otherwise what failed.
std::string GenerateRowTable(const std::wstring& path, unsigned long long rows);

// Creates `path` (replacing it) with `tables` tables CatTable0001... of two columns each and
// WideTable with `columns` columns of mixed types. Empty string on success.
std::string GenerateCatalog(const std::wstring& path, unsigned tables, unsigned columns);

}  // namespace zel::bench
