#include "provider/rows/StatementRowSource.h"

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// Whether a primary-key column declared INTEGER is the table's rowid under another name: it is
// when it is the table's only key column (and the table has a rowid). Such a column never holds
// NULL, although SQLite does not report it NOT NULL. Called with the connection's mutex held.
bool IsRowidAlias(sqlite3* db, const char* schema, const char* table, const char* dataType) {
    if (!dataType || sqlite3_stricmp(dataType, "INTEGER") != 0) return false;
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT (SELECT count(*) FROM pragma_table_info(?1, ?2) WHERE pk > 0) = 1 AND "
                           "NOT EXISTS (SELECT 1 FROM pragma_index_list(?1, ?2) WHERE origin = 'pk')",
                           -1, &raw, nullptr) != SQLITE_OK)
        return false;
    SqliteStatement statement(raw);
    sqlite3_bind_text(raw, 1, table, -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(raw, 2, schema ? schema : "main", -1, SQLITE_TRANSIENT);
    return sqlite3_step(raw) == SQLITE_ROW && sqlite3_column_int(raw, 0) != 0;
}

std::wstring Text16(const void* text) { return text ? static_cast<const wchar_t*>(text) : L""; }

}  // namespace

void ReadColumnCell(sqlite3_stmt* statement, int column, Cell& cell) {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER: cell = static_cast<std::int64_t>(sqlite3_column_int64(statement, column)); return;
    case SQLITE_FLOAT: cell = sqlite3_column_double(statement, column); return;
    case SQLITE_TEXT: {
        auto text = static_cast<const wchar_t*>(sqlite3_column_text16(statement, column));
        const int bytes = sqlite3_column_bytes16(statement, column);
        Holding<std::wstring>(cell).assign(text ? text : L"", static_cast<size_t>(bytes) / sizeof(wchar_t));
        return;
    }
    case SQLITE_BLOB: {
        auto data = static_cast<const BYTE*>(sqlite3_column_blob(statement, column));
        Holding<Bytes>(cell).assign(data, data + sqlite3_column_bytes(statement, column));
        return;
    }
    default: cell = std::monostate{};
    }
}

Cell ColumnCell(sqlite3_stmt* statement, int column) {
    Cell cell;
    ReadColumnCell(statement, column, cell);
    return cell;
}

StatementRowSource::StatementRowSource(std::shared_ptr<Database> database, SqliteStatement statement,
                                       bool hiddenRowid, std::wstring text)
    : m_database(std::move(database)), m_statement(std::move(statement)), m_hiddenRowid(hiddenRowid),
      m_text(std::move(text)) {
    ConnectionLock lock(m_database->handle());
    SourceRow first;
    if (Step(first)) m_first = std::move(first);
    DescribeColumns();
    FindUpdateTarget();
}

bool StatementRowSource::Next(SourceRow& row) {
    if (m_first) {
        row = std::move(*m_first);
        m_first.reset();
        return true;
    }
    ConnectionLock lock(m_database->handle());
    return Step(row);
}

bool StatementRowSource::Step(SourceRow& row) {
    if (m_done) return false;
    sqlite3_stmt* s = m_statement.get();
    // When reading a row's cells failed (memory), the statement still stands on that row: it is
    // read again instead of stepping past it.
    if (!m_onRow) {
        int rc = sqlite3_step(s);
        if (rc == SQLITE_DONE) {
            m_done = true;
            sqlite3_reset(s);
            return false;
        }
        if (rc != SQLITE_ROW) {
            m_done = true;
            sqlite3_reset(s);
            FailSqlite(m_database->handle(), rc, m_text);
        }
        m_onRow = true;
    }
    const int count = sqlite3_column_count(s);
    const int first = m_hiddenRowid ? 1 : 0;
    // The caller's row is reused from row to row: its cells keep their text buffers.
    row.cells.resize(static_cast<size_t>(count - first));
    row.rowid.reset();
    if (m_hiddenRowid && sqlite3_column_type(s, 0) == SQLITE_INTEGER) row.rowid = sqlite3_column_int64(s, 0);
    for (int i = first; i < count; ++i) ReadColumnCell(s, i, row.cells[static_cast<size_t>(i - first)]);
    m_onRow = false;
    return true;
}

void StatementRowSource::DescribeColumns() {
    sqlite3_stmt* s = m_statement.get();
    sqlite3* db = m_database->handle();
    const int count = sqlite3_column_count(s);
    for (int i = m_hiddenRowid ? 1 : 0; i < count; ++i) {
        ColumnDesc column;
        column.name = Text16(sqlite3_column_name16(s, i));
        const char* declared = sqlite3_column_decltype(s, i);
        column.type = MapDeclaredType(declared ? FromUtf8(declared) : std::wstring());
        if (!column.type.known) {
            size_t index = static_cast<size_t>(i - (m_hiddenRowid ? 1 : 0));
            column.type = TypeFromValue(m_first ? m_first->cells[index] : Cell{});
        }
        column.flags = column.type.flags | DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE;
        const char* table = sqlite3_column_table_name(s, i);
        const char* origin = sqlite3_column_origin_name(s, i);
        const char* schema = sqlite3_column_database_name(s, i);
        if (table && origin) {
            column.baseTable = FromUtf8(table);
            column.baseColumn = FromUtf8(origin);
            const char* dataType = nullptr;
            int notNull = 0, primaryKey = 0, autoIncrement = 0;
            if (sqlite3_table_column_metadata(db, schema, table, origin, &dataType, nullptr, &notNull, &primaryKey,
                                              &autoIncrement) == SQLITE_OK &&
                (notNull || (primaryKey && IsRowidAlias(db, schema, table, dataType))))
                column.flags &= ~static_cast<DBCOLUMNFLAGS>(DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE);
        }
        m_columns.push_back(std::move(column));
    }
}

void StatementRowSource::FindUpdateTarget() {
    if (m_columns.empty()) return;
    sqlite3_stmt* s = m_statement.get();
    const int offset = m_hiddenRowid ? 1 : 0;
    std::string schema;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const auto& column = m_columns[i];
        if (column.baseTable.empty() || !EqualsNoCase(column.baseTable, m_columns[0].baseTable)) return;
        const char* db = sqlite3_column_database_name(s, static_cast<int>(i) + offset);
        if (!db || (i > 0 && schema != db)) return;
        schema = db;
        for (size_t j = 0; j < i; ++j)
            if (EqualsNoCase(m_columns[j].baseColumn, column.baseColumn)) return;  // a column twice
    }
    if (schema != "main") return;

    UpdateTarget target;
    target.table = m_columns[0].baseTable;
    // The primary key identifies a row when all its columns are in the rowset.
    std::vector<std::wstring> keyNames;
    if (SqliteStatement info = m_database->TryPrepare(L"PRAGMA table_info(" + QuoteName(target.table) + L")")) {
        while (sqlite3_step(info.get()) == SQLITE_ROW)
            if (sqlite3_column_int(info.get(), 5) > 0) keyNames.push_back(Text16(sqlite3_column_text16(info.get(), 1)));
    }
    const bool hasRowid =
        static_cast<bool>(m_database->TryPrepare(L"SELECT rowid FROM " + QuoteName(target.table) + L" LIMIT 0"));
    std::vector<size_t> keyColumns;
    for (const auto& key : keyNames) {
        for (size_t i = 0; i < m_columns.size(); ++i)
            if (EqualsNoCase(m_columns[i].baseColumn, key)) keyColumns.push_back(i);
    }
    if (!keyNames.empty() && keyColumns.size() == keyNames.size()) {
        target.keyColumns = std::move(keyColumns);
        target.uniqueKey = true;
    } else if (m_hiddenRowid) {
        target.useRowid = true;
    } else if (hasRowid) {
        for (size_t i = 0; i < m_columns.size(); ++i) target.keyColumns.push_back(i);
    } else {
        return;  // neither a complete key nor a rowid: rows cannot be found again
    }
    for (auto& column : m_columns) column.writable = true;
    m_target = std::move(target);
}

}  // namespace zel::provider
