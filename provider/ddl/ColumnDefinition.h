// One column of a table definition as the catalog methods handle it: what CreateTable and
// AddColumn make from a DBCOLUMNDESC (ColumnDescReader), what GetTableDefinition reads back from
// SQLite and the provider's metadata table, and the SQL that declares it.
//
// Identity columns are numbered in one of two ways:
//   SQLite's own AUTOINCREMENT when the column is the table's only primary-key column, declared
//   INTEGER, with increment 1 and a seed of at least 1: "INTEGER NOT NULL PRIMARY KEY
//   AUTOINCREMENT", its seed set through SQLite's sqlite_sequence;
//   otherwise the provider's trigger and counter (ColumnMetadata.h). Such a column cannot be the
//   rowid, so an INTEGER primary key numbered this way is declared COUNTER (the same OLE DB type),
//   and it is not declared NOT NULL (the trigger fills the NULL in after the insert).
// Either way DBPROP_COL_SEED reads back as the value the next row gets.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "provider/values/TypeMapping.h"

namespace zel::provider {

// The Jet provider's column property set, whose DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH ZelLite
// keeps and enforces for text columns.
extern const GUID DBPROPSET_JETOLEDB_COLUMN;  // {820BF922-6AC8-11D1-9F02-00C04FC2C2E0}
inline constexpr DBPROPID DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH = 0xE0;

enum class Identity { None, SqliteAutoIncrement, Counter };

struct ColumnDefinition {
    std::wstring name;
    std::wstring declaredType;
    ColumnType type;                         // the declared type as TypeMapping reads it
    bool nullable = true;
    bool primaryKey = false;
    bool unique = false;                     // a UNIQUE constraint on this column alone
    Identity identity = Identity::None;
    std::int64_t seed = 1;                   // for identity columns: the next value
    std::int64_t increment = 1;
    std::optional<std::wstring> defaultSql;  // the DEFAULT clause's SQL
    std::optional<std::wstring> description;
    std::optional<bool> fixedLength;         // as given, when given
    std::optional<bool> allowZeroLength;     // text columns; as given, when given

    bool IsText() const noexcept { return type.type == DBTYPE_WSTR; }
    // DBPROP_COL_FIXEDLENGTH: as given, else what the declared type says.
    bool FixedLength() const noexcept {
        return fixedLength.value_or((type.flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) != 0);
    }
    // DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH: a column created without the property accepts
    // zero-length strings, as every column made by SQL does.
    bool AllowsZeroLength() const noexcept { return allowZeroLength.value_or(true); }
};

}  // namespace zel::provider
