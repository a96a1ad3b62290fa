// The rows of an executed ODBC statement, read forwards with SQLFetch; the rowset's row cache
// keeps what was read, so consumers scroll over a forward-only cursor.
//
// Columns of a fixed size and text of a bounded length are bound (SQLBindCol) to buffers of
// a block of rows, so that one SQLFetch brings many rows; long values are read with SQLGetData
// after the block's cursor is positioned on the row. What the driver cannot do (SQLGetData in a
// block, or of a bound or an earlier column; SQLGETDATA_EXTENSIONS) narrows this down to one
// row a fetch, or to fewer bound columns.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/odbc/OdbcConnection.h"
#include "provider/odbc/OdbcTypes.h"
#include "provider/rows/RowSource.h"

namespace zel::provider::odbc {

class OdbcRowSource final : public RowSource {
public:
    // Takes an executed statement that has a result set (SQLNumResultCols > 0) and describes its
    // columns. `connection` is held for the statement's life; calls are made under its lock.
    // Fails (error published) with the driver's diagnostics.
    OdbcRowSource(std::shared_ptr<Connection> connection, StatementHandle statement, std::wstring text);
    ~OdbcRowSource() override;

    bool Next(SourceRow& row) override;

private:
    // One column bound to the block: `bytes` per value in `values`, an indicator per row.
    struct Bound {
        SQLSMALLINT cType = 0;
        SQLLEN bytes = 0;
        std::vector<unsigned char> values;
        std::vector<SQLLEN> indicators;
    };

    void Bind();
    bool FetchBlock();
    // Reads column `index` of the current row with SQLGetData (the cursor positioned on it).
    void ReadUnbound(size_t index, Cell& cell);

    std::shared_ptr<Connection> m_connection;
    StatementHandle m_statement;
    std::wstring m_text;
    std::vector<OdbcColumnType> m_types;
    std::vector<Bound> m_bound;  // one per column; cType 0: read with SQLGetData
    bool m_hasUnbound = false;
    SQLULEN m_blockRows = 1;
    SQLULEN m_fetched = 0;  // rows of the current block
    SQLULEN m_next = 0;     // the next of them to hand out
    std::vector<SQLUSMALLINT> m_rowStatus;
    bool m_done = false;
    // SQLite: the first row, read ahead to type the text expressions by their first value.
    std::optional<SourceRow> m_first;

    // Fetches the next row into `row` (caller holds the lock); false at the end.
    bool Fetch(SourceRow& row);
    // SQLite: the SQLite3 driver gives every text expression a nominal VARCHAR(255) that the
    // values are not held to; such columns are typed from the first row's value, as ZelLite
    // types expressions (TypeFromValue), so longer values are neither cut nor typed otherwise.
    void TypeTextExpressionsByFirstRow();
};

// Describes the result columns of a prepared or executed statement (caller holds the lock).
std::vector<ColumnDesc> DescribeColumns(const Connection& connection, SQLHSTMT statement, std::vector<ReadAs>* readAs,
                                        std::wstring_view text, std::vector<OdbcColumnType>* types = nullptr);

}  // namespace zel::provider::odbc

namespace zel::provider::odbc {

// What running a statement gave: the rows of its first result that has columns, or (for
// statements without rows) the number of rows changed.
struct StatementResult {
    std::unique_ptr<RowSource> rows;
    DBROWCOUNT rowsAffected = DB_COUNTUNAVAILABLE;
};

// Runs `text` (SQLExecDirect) on `connection`. `timeoutSeconds` (0: none) becomes the
// statement's query timeout; `running`, when given, holds the statement while it executes so
// that another thread can cancel it (SQLCancel). Fails (error published) with the driver's
// diagnostics, the statement named in the description.
StatementResult RunStatement(const std::shared_ptr<Connection>& connection, const std::wstring& text,
                             SQLULEN timeoutSeconds, std::atomic<SQLHSTMT>* running = nullptr);

}  // namespace zel::provider::odbc
