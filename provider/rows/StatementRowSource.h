// Rows of a prepared SQLite statement, read as the rowset asks for them. The first row is read
// when the source is made, so that expression columns can be typed from their values and the
// statement's run-time errors surface in ICommand::Execute. Once the last row is read the
// statement is reset, which releases SQLite's read lock on the file.
#pragma once

#include <memory>

#include "provider/rows/RowSource.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

// The value in column `column` of the row `statement` is on, in the storage class SQLite gives it.
Cell ColumnCell(sqlite3_stmt* statement, int column);
// The same into an existing cell, keeping its text or blob buffer when it holds one.
void ReadColumnCell(sqlite3_stmt* statement, int column, Cell& cell);

class StatementRowSource final : public RowSource {
public:
    // `hiddenRowid`: the statement's first result column is the base table's rowid, which
    // becomes SourceRow::rowid instead of a column. `text` is the statement for error texts.
    StatementRowSource(std::shared_ptr<Database> database, SqliteStatement statement, bool hiddenRowid,
                       std::wstring text);
    bool Next(SourceRow& row) override;

private:
    bool Step(SourceRow& row);
    void DescribeColumns();
    void FindUpdateTarget();

    std::shared_ptr<Database> m_database;
    SqliteStatement m_statement;
    bool m_hiddenRowid;
    std::wstring m_text;
    std::optional<SourceRow> m_first;
    bool m_done = false;
    bool m_onRow = false;  // the statement stands on a row whose cells are not read yet
};

}  // namespace zel::provider
