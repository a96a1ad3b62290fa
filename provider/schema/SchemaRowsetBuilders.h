// ZelLite's schema rowsets over SQLite's catalog: one builder per schema rowset
// (SchemaCatalogRowsets.cpp, ProviderTypesRowset.cpp) and the SQLite rules they share.
//
// SQLite has no catalogs or schemas: TABLE_CATALOG, TABLE_SCHEMA and their kin are NULL, and a
// non-empty catalog or schema restriction matches nothing. An empty-string, VT_EMPTY or VT_NULL
// restriction does not restrict. Names, and the table types "TABLE", "VIEW" and "SYSTEM TABLE",
// match as SQLite matches names (ASCII letters without regard to case).
//
// SQLite's own tables are SYSTEM TABLEs: sqlite_master always, sqlite_sequence and sqlite_stat*
// when the database has them. A primary key appears among the indexes with PRIMARY_KEY true:
// SQLite's automatic index for a declared key, or, for an INTEGER PRIMARY KEY (the rowid, which
// has no index), a clustered unique index named "PrimaryKey".
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <string_view>

#include "provider/schema/SchemaLayouts.h"
#include "provider/schema/SchemaRowsets.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

// Whether a name passes a name restriction (SQLite's comparison: ASCII case ignored).
bool NameMatches(const Restriction& restriction, std::wstring_view name);
// Whether any catalog or schema restriction is present: SQLite has neither, so such a
// restriction matches nothing.
bool RestrictsCatalog(const Restriction& catalog, const Restriction& schema);
// The rows of a checked request over SQLite's catalog, sorted in the schema's standard order.
// Throws (error published) on a database error. The caller holds the session's lock.
std::unique_ptr<RowSource> SqliteSchemaRows(const SchemaRequest& request, const std::shared_ptr<Database>& database);

// The builders. `restrictions` has one entry per restriction column of the schema.
std::unique_ptr<RowSource> TablesRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> ColumnsRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> IndexesRowset(const std::shared_ptr<Database>& database, const Restrictions& restrictions);
std::unique_ptr<RowSource> PrimaryKeysRowset(const std::shared_ptr<Database>& database,
                                             const Restrictions& restrictions);
std::unique_ptr<RowSource> ProviderTypesRowset(const std::shared_ptr<Database>& database,
                                               const Restrictions& restrictions);

}  // namespace zel::provider
