// The provider's metadata table (MetadataTable.h) and the triggers that enforce what it holds.
//
// One row per column that has something SQLite cannot keep in its declaration:
//   seed, increment    an identity column numbered by the provider: `seed` is the value the next
//                      row gets (it advances with every insert), `increment` the step;
//   allow_zero_length  0 when a text column refuses the empty string;
//   fixed_length       the column's DBPROP_COL_FIXEDLENGTH as it was given;
//   description        DBPROP_COL_DESCRIPTION.
// The table is created, in the transaction of the change that first needs it, only then; every
// reader copes with its absence. Rows go with their table and column.
//
// Triggers, stored in the database file and so in force for every writer (SQL through commands,
// IRowsetChange, other connections), all named "zel_lite_..." after their table:
//   AFTER INSERT       gives an identity column that received NULL the next value, found by the
//                      row's rowid (which it leaves alone, so the inserter finds its row), and
//                      advances the counter; an explicit value is kept and moves the counter past
//                      it when it lies beyond;
//   BEFORE INSERT      refuses a zero-length string in a column that does not allow one;
//   BEFORE UPDATE OF   the same for updates, and refuses NULL in an identity column.
// Refusals are RAISE(ABORT) with a message naming the table and column; SQLite reports them as
// constraint failures (DB_E_INTEGRITYVIOLATION, SQLSTATE 23000).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "provider/sqlite/Database.h"

namespace zel::provider {

struct ColumnMetadata {
    std::wstring column;
    std::optional<std::int64_t> seed;
    std::optional<std::int64_t> increment;
    std::optional<bool> allowZeroLength;
    std::optional<bool> fixedLength;
    std::optional<std::wstring> description;

    // An identity column numbered by the provider's trigger.
    bool IsCounter() const noexcept { return seed.has_value() && increment.has_value(); }
    bool Empty() const noexcept {
        return !seed && !increment && !allowZeroLength && !fixedLength && !description;
    }
};

bool MetadataTableExists(Database& database);
// The rows of one table (names as stored in the metadata table); none without the table.
std::vector<ColumnMetadata> ReadColumnMetadata(Database& database, std::wstring_view table);
// The row of one column, if it has one.
std::optional<ColumnMetadata> FindColumnMetadata(const std::vector<ColumnMetadata>& rows, std::wstring_view column);

// Writes (replaces) the row of one column, creating the metadata table first when it is not
// there. A row with nothing in it is not written.
void StoreColumnMetadata(Database& database, std::wstring_view table, const ColumnMetadata& row);
// Removes the rows of a table, or of one of its columns.
void DeleteColumnMetadata(Database& database, std::wstring_view table,
                          std::optional<std::wstring_view> column = std::nullopt);
// Sets the value the next row of an identity column numbered by the provider gets.
void SetIdentityCounter(Database& database, std::wstring_view table, std::wstring_view column, std::int64_t next);

// Drops the provider's triggers of a table.
void DropTriggers(Database& database, std::wstring_view table);
// Replaces the provider's triggers of a table by ones made from its current columns and
// metadata (none when nothing needs enforcing).
void RebuildTriggers(Database& database, std::wstring_view table);

}  // namespace zel::provider
