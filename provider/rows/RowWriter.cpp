#include "provider/rows/RowWriter.h"

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/rows/StatementRowSource.h"
#include "provider/text/SqlText.h"

namespace zel::provider {

namespace {

void Bind(sqlite3_stmt* s, int index, const Cell& cell) {
    switch (cell.index()) {
    case 1: sqlite3_bind_int64(s, index, std::get<std::int64_t>(cell)); break;
    case 2: sqlite3_bind_double(s, index, std::get<double>(cell)); break;
    case 3: {
        const auto& text = std::get<std::wstring>(cell);
        sqlite3_bind_text16(s, index, text.data(), static_cast<int>(text.size() * sizeof(wchar_t)), SQLITE_TRANSIENT);
        break;
    }
    case 4: {
        const auto& bytes = std::get<Bytes>(cell);
        sqlite3_bind_blob(s, index, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
        break;
    }
    default: sqlite3_bind_null(s, index); break;
    }
}

// Runs a statement that returns no rows; returns the number of rows it changed.
int Run(Database& database, const std::wstring& sql, const std::vector<const Cell*>& parameters) {
    SqliteStatement statement = database.Prepare(sql);
    ConnectionLock lock(database.handle());
    for (size_t i = 0; i < parameters.size(); ++i) Bind(statement.get(), static_cast<int>(i + 1), *parameters[i]);
    int rc = sqlite3_step(statement.get());
    if (rc != SQLITE_DONE) FailSqlite(database.handle(), rc, sql);
    return sqlite3_changes(database.handle());
}

}  // namespace

std::wstring RowWriter::SelectList() const {
    std::wstring list = m_target.useRowid ? L"rowid" : L"";
    for (const auto& column : m_columns) {
        if (!list.empty()) list += L", ";
        list += QuoteName(column.baseColumn);
    }
    return list;
}

std::wstring RowWriter::Locator(const SourceRow& row, std::vector<const Cell*>& parameters, Cell& rowidValue) const {
    if (m_target.useRowid) {
        rowidValue = row.rowid.value_or(0);
        parameters.push_back(&rowidValue);
        return L"rowid = ?";
    }
    std::wstring condition;
    for (size_t key : m_target.keyColumns) {
        if (!condition.empty()) condition += L" AND ";
        condition += QuoteName(m_columns[key].baseColumn) + L" IS ?";
        parameters.push_back(&row.cells[key]);
    }
    if (m_target.uniqueKey) return condition;
    return L"rowid = (SELECT rowid FROM " + QuoteName(m_target.table) + L" WHERE " + condition + L" LIMIT 1)";
}

bool RowWriter::Update(const SourceRow& row, const std::vector<std::pair<size_t, Cell>>& changes) {
    if (changes.empty()) return true;
    std::vector<const Cell*> parameters;
    std::wstring sql = L"UPDATE " + QuoteName(m_target.table) + L" SET ";
    for (size_t i = 0; i < changes.size(); ++i) {
        if (i) sql += L", ";
        sql += QuoteName(m_columns[changes[i].first].baseColumn) + L" = ?";
        parameters.push_back(&changes[i].second);
    }
    Cell rowid;
    sql += L" WHERE " + Locator(row, parameters, rowid);
    return Run(m_database, sql, parameters) > 0;
}

SourceRow RowWriter::Insert(const std::vector<std::pair<size_t, Cell>>& values) {
    std::vector<const Cell*> parameters;
    std::wstring sql = L"INSERT INTO " + QuoteName(m_target.table);
    if (values.empty()) {
        sql += L" DEFAULT VALUES";
    } else {
        std::wstring names, marks;
        for (const auto& [index, cell] : values) {
            if (!names.empty()) names += L", ", marks += L", ";
            names += QuoteName(m_columns[index].baseColumn);
            marks += L"?";
            parameters.push_back(&cell);
        }
        sql += L" (" + names + L") VALUES (" + marks + L")";
    }
    Run(m_database, sql, parameters);

    SourceRow inserted;
    inserted.cells.assign(m_columns.size(), Cell{});
    for (const auto& [index, cell] : values) inserted.cells[index] = cell;
    inserted.rowid = sqlite3_last_insert_rowid(m_database.handle());
    // Read the row back by its rowid, so that defaults and generated keys show.
    std::wstring select = L"SELECT " + SelectList() + L" FROM " + QuoteName(m_target.table) + L" WHERE rowid = ?";
    if (!m_target.useRowid)
        select = L"SELECT rowid, " + SelectList() + L" FROM " + QuoteName(m_target.table) + L" WHERE rowid = ?";
    SqliteStatement statement = m_database.TryPrepare(select);
    ConnectionLock lock(m_database.handle());
    if (statement) {
        sqlite3_bind_int64(statement.get(), 1, *inserted.rowid);
        if (sqlite3_step(statement.get()) == SQLITE_ROW)
            for (size_t i = 0; i < m_columns.size(); ++i)
                inserted.cells[i] = ColumnCell(statement.get(), static_cast<int>(i + 1));
    }
    if (!m_target.useRowid) inserted.rowid.reset();
    return inserted;
}

bool RowWriter::Delete(const SourceRow& row) {
    std::vector<const Cell*> parameters;
    Cell rowid;
    std::wstring sql = L"DELETE FROM " + QuoteName(m_target.table) + L" WHERE " + Locator(row, parameters, rowid);
    return Run(m_database, sql, parameters) > 0;
}

std::optional<SourceRow> RowWriter::Reload(const SourceRow& row) {
    std::vector<const Cell*> parameters;
    Cell rowid;
    std::wstring select = L"SELECT " + SelectList() + L" FROM " + QuoteName(m_target.table) + L" WHERE " +
                          Locator(row, parameters, rowid);
    SqliteStatement statement = m_database.Prepare(select);
    ConnectionLock lock(m_database.handle());
    for (size_t i = 0; i < parameters.size(); ++i) Bind(statement.get(), static_cast<int>(i + 1), *parameters[i]);
    if (sqlite3_step(statement.get()) != SQLITE_ROW) return std::nullopt;
    SourceRow fresh;
    fresh.rowid = row.rowid;
    const int offset = m_target.useRowid ? 1 : 0;
    for (size_t i = 0; i < m_columns.size(); ++i)
        fresh.cells.push_back(ColumnCell(statement.get(), static_cast<int>(i) + offset));
    return fresh;
}

}  // namespace zel::provider
