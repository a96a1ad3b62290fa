// ZelLite's schema rowsets (IDBSchemaRowset): TABLES, COLUMNS, INDEXES, PRIMARY_KEYS and
// PROVIDER_TYPES, each with every standard column in its standard ordinal and type, so that a
// consumer binding by ordinal reads the right values. Rows are built in memory from SQLite's
// catalog when the rowset is asked for.
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
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/sqlite/Database.h"

namespace zel::lite {

struct SchemaSupport {
    const GUID* schema;
    ULONG restrictionMask;  // bit n: the (n+1)th restriction column is applied
};

// The schema rowsets offered, in IDBSchemaRowset::GetSchemas order.
std::vector<SchemaSupport> SupportedSchemas();

struct SchemaEntry;
struct SchemaRestrictionValues;

// One IDBSchemaRowset::GetRowset request, checked: the schema and its restriction values.
class SchemaRequest {
public:
    // Fails (error published) with E_INVALIDARG for a schema ZelLite does not offer, more
    // restrictions than the schema defines, or a restriction that is not of its column's type
    // (text: VT_BSTR; DATA_TYPE and TYPE: an integer type holding an unsigned 16-bit value;
    // BEST_MATCH: VT_BOOL).
    SchemaRequest(REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[]);
    ~SchemaRequest();
    SchemaRequest(const SchemaRequest&) = delete;
    SchemaRequest& operator=(const SchemaRequest&) = delete;

    // The rows, sorted in the schema's standard order. Throws (error published) on a database
    // error. The caller holds the session's lock.
    std::unique_ptr<RowSource> Rows(const std::shared_ptr<Database>& database) const;

private:
    const SchemaEntry* m_entry;
    std::unique_ptr<SchemaRestrictionValues> m_values;
};

}  // namespace zel::lite
