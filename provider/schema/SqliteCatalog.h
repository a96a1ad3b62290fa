// What the schema rowsets read from SQLite's own catalog: the tables and views of the main
// database, their columns as a rowset on them describes them, their indexes and primary keys,
// and the column descriptions kept in the provider's metadata table. The metadata table itself
// is never listed. All names are as SQLite holds them (compared without regard to ASCII case).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

enum class TableKind { Table, View, System };

struct CatalogTable {
    std::wstring name;
    TableKind kind;
};

struct CatalogColumn {
    ColumnDesc desc;                       // as IColumnsInfo of a rowset on the table reports it
    DBCOLUMNFLAGS flags = 0;               // desc.flags, plus DBCOLUMNFLAGS_WRITE where a changeable
                                           // rowset on the table would report it
    std::optional<std::wstring> defaultText;  // the DEFAULT clause as declared
    std::optional<std::wstring> description;  // from the metadata table
};

struct CatalogIndexColumn {
    std::optional<std::wstring> name;  // none for an expression
    bool descending = false;
};

struct CatalogIndex {
    std::wstring name;
    bool unique = false;
    bool primaryKey = false;
    // The table's rows are stored in this index's order: the primary key of a WITHOUT ROWID
    // table and the rowid alias. Such keys never hold NULL.
    bool clustered = false;
    std::vector<CatalogIndexColumn> columns;  // the key columns in key order
};

// Name of the index reported for an INTEGER PRIMARY KEY column: SQLite keeps such a key as the
// rowid and has no index for it, yet it is the table's primary key.
inline constexpr wchar_t kRowidKeyName[] = L"PrimaryKey";

class SqliteCatalog {
public:
    explicit SqliteCatalog(std::shared_ptr<Database> database);

    // Tables, views and SQLite's own tables (sqlite_master always, sqlite_sequence and
    // sqlite_stat* when present), in no particular order. Throws on a database error.
    std::vector<CatalogTable> Tables();

    // The columns of a table or view in ordinal order. A view that SQLite cannot compile (a
    // table it reads was dropped) has no columns. Throws on other database errors.
    std::vector<CatalogColumn> Columns(const CatalogTable& table);

    // The indexes of a table (none for views), the primary key included: SQLite's automatic
    // index for a declared key, or kRowidKeyName for a rowid alias. Throws on a database error.
    std::vector<CatalogIndex> Indexes(const CatalogTable& table);

private:
    struct Description {
        std::wstring table;
        std::wstring column;
        std::wstring text;
    };
    const std::vector<Description>& Descriptions();

    std::shared_ptr<Database> m_database;
    std::optional<std::vector<Description>> m_descriptions;
};

}  // namespace zel::provider
