// The provider's own table inside each database file. It holds what SQLite cannot keep in a
// column's declaration: identity seed and increment, whether a text column accepts a zero-length
// string, whether it is fixed-length, and descriptions. The schema rowsets never show it.
#pragma once

namespace zel::provider {

// Name of the metadata table; compared without regard to case, as SQLite compares names.
inline constexpr wchar_t kMetadataTable[] = L"zel_lite_columns";

// Its definition. One row per described column; table and column names as declared.
inline constexpr char kMetadataTableDdl[] =
    "CREATE TABLE IF NOT EXISTS zel_lite_columns ("
    "table_name TEXT NOT NULL COLLATE NOCASE, "
    "column_name TEXT NOT NULL COLLATE NOCASE, "
    "seed INTEGER, "
    "increment INTEGER, "
    "allow_zero_length INTEGER, "
    "fixed_length INTEGER, "
    "description TEXT, "
    "PRIMARY KEY (table_name, column_name))";

}  // namespace zel::provider
