#include "provider/schema/SqliteCatalog.h"

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/rows/StatementRowSource.h"
#include "provider/sqlite/MetadataTable.h"
#include "provider/sqlite/Query.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

std::optional<std::wstring> TextAt(sqlite3_stmt* statement, int column) {
    if (sqlite3_column_type(statement, column) == SQLITE_NULL) return std::nullopt;
    auto text = static_cast<const wchar_t*>(sqlite3_column_text16(statement, column));
    int bytes = sqlite3_column_bytes16(statement, column);
    return std::wstring(text ? text : L"", static_cast<size_t>(bytes) / sizeof(wchar_t));
}

// Runs a prepared query to its end, handing each row to `row`. Throws on a database error.
template <typename OnRow>
void ForEachRow(Database& database, sqlite3_stmt* statement, std::wstring_view sql, OnRow row) {
    ConnectionLock lock(database.handle());
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) row(statement);
    if (rc != SQLITE_DONE) {
        sqlite3_reset(statement);
        FailSqlite(database.handle(), rc, sql);
    }
}

}  // namespace

SqliteCatalog::SqliteCatalog(std::shared_ptr<Database> database) : m_database(std::move(database)) {}

std::vector<CatalogTable> SqliteCatalog::Tables() {
    // sqlite_master describes the schema and is not listed in itself.
    std::vector<CatalogTable> tables{{L"sqlite_master", TableKind::System}};
    Query list(*m_database, L"SELECT type, name FROM sqlite_master WHERE type IN ('table', 'view')");
    while (list.Step()) {
        std::wstring name = list.Text(1);
        if (name.empty() || EqualsNoCase(name, kMetadataTable)) continue;
        TableKind kind = TableKind::Table;
        if (list.Text(0) == L"view")
            kind = TableKind::View;
        else if (name.size() >= 7 && EqualsNoCase(std::wstring_view(name).substr(0, 7), L"sqlite_"))
            kind = TableKind::System;  // the prefix is reserved to SQLite's own tables
        tables.push_back({std::move(name), kind});
    }
    return tables;
}

std::vector<CatalogColumn> SqliteCatalog::Columns(const CatalogTable& table) {
    // The columns are those of the rowset IOpenRowset gives on the table: the same statement,
    // typed, flagged and found writable by the same code. Tables are read with their rowid
    // where they have one.
    SqliteStatement statement;
    bool hiddenRowid = false;
    std::wstring sql;
    if (table.kind != TableKind::View) {
        sql = L"SELECT rowid, * FROM " + QuoteName(table.name);
        statement = m_database->TryPrepare(sql);
        hiddenRowid = static_cast<bool>(statement);
    }
    if (!hiddenRowid) {
        sql = L"SELECT * FROM " + QuoteName(table.name);
        statement = m_database->TryPrepare(sql);
        // A view over a dropped table, or a virtual table whose module this build lacks, does
        // not compile: it has no columns to describe.
        if (!statement) return {};
    }
    StatementRowSource source(m_database, std::move(statement), hiddenRowid, sql);

    struct Declared {
        std::wstring name;
        std::optional<std::wstring> defaultText;
    };
    std::vector<Declared> declared;
    {
        Query info(*m_database, L"SELECT name, dflt_value FROM pragma_table_xinfo(?1)");
        info.Bind(1, table.name);
        while (info.Step()) declared.push_back({info.Text(0), info.OptionalText(1)});
    }

    const bool readOnly = m_database->options().readOnly;
    std::vector<CatalogColumn> columns;
    for (const ColumnDesc& desc : source.columns()) {
        CatalogColumn column;
        column.desc = desc;
        column.flags = desc.flags;
        // SQLite keeps its own tables itself; a consumer never writes them.
        if (desc.writable && !readOnly && table.kind != TableKind::System) column.flags |= DBCOLUMNFLAGS_WRITE;
        for (const Declared& d : declared)
            if (EqualsNoCase(d.name, desc.name)) {
                column.defaultText = d.defaultText;
                break;
            }
        for (const Description& d : Descriptions())
            if (EqualsNoCase(d.table, table.name) && EqualsNoCase(d.column, desc.name)) {
                column.description = d.text;
                break;
            }
        columns.push_back(std::move(column));
    }
    return columns;
}

std::vector<CatalogIndex> SqliteCatalog::Indexes(const CatalogTable& table) {
    std::vector<CatalogIndex> indexes;
    if (table.kind == TableKind::View) return indexes;

    struct Listed {
        std::wstring name;
        bool unique;
        bool primaryKey;
    };
    std::vector<Listed> listed;
    {
        Query list(*m_database, L"SELECT name, \"unique\", origin FROM pragma_index_list(?1)");
        list.Bind(1, table.name);
        while (list.Step()) listed.push_back({list.Text(0), list.Integer(1) != 0, list.Text(2) == L"pk"});
    }

    bool declaredKey = false;
    for (const Listed& entry : listed) {
        CatalogIndex index;
        index.name = entry.name;
        index.unique = entry.unique;
        index.primaryKey = entry.primaryKey;
        declaredKey = declaredKey || entry.primaryKey;
        bool rowidEntry = false;
        Query info(*m_database, L"SELECT \"desc\", name, key, cid FROM pragma_index_xinfo(?1) ORDER BY seqno");
        info.Bind(1, entry.name);
        while (info.Step()) {
            if (info.Integer(2) != 0)
                index.columns.push_back({info.OptionalText(1), info.Integer(0) != 0});
            else if (info.Integer(3) == -1)
                rowidEntry = true;
        }
        // Entries of a rowid table's index end with the rowid; those of a WITHOUT ROWID
        // table's primary key hold the whole row instead.
        index.clustered = index.primaryKey && !rowidEntry;
        indexes.push_back(std::move(index));
    }

    if (!declaredKey) {
        // A primary key without an index of its own is an INTEGER PRIMARY KEY: the rowid.
        std::optional<std::wstring> keyColumn;
        Query info(*m_database, L"SELECT name FROM pragma_table_xinfo(?1) WHERE pk > 0");
        info.Bind(1, table.name);
        while (info.Step()) keyColumn = info.OptionalText(0);
        if (keyColumn) {
            CatalogIndex key;
            key.name = kRowidKeyName;
            key.unique = true;
            key.primaryKey = true;
            key.clustered = true;
            key.columns.push_back({keyColumn, false});
            indexes.push_back(std::move(key));
        }
    }
    return indexes;
}

const std::vector<SqliteCatalog::Description>& SqliteCatalog::Descriptions() {
    if (m_descriptions) return *m_descriptions;
    m_descriptions.emplace();
    // The metadata table is made when a table definition first needs it; without it no column
    // has a description.
    const std::wstring sql = std::wstring(L"SELECT table_name, column_name, description FROM ") + kMetadataTable +
                             L" WHERE description IS NOT NULL";
    SqliteStatement statement = m_database->TryPrepare(sql);
    if (!statement) return *m_descriptions;
    ForEachRow(*m_database, statement.get(), sql, [&](sqlite3_stmt* s) {
        m_descriptions->push_back({TextAt(s, 0).value_or(L""), TextAt(s, 1).value_or(L""), TextAt(s, 2).value_or(L"")});
    });
    return *m_descriptions;
}

}  // namespace zel::provider
