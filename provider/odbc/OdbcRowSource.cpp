#include "provider/odbc/OdbcRowSource.h"

#include <algorithm>

namespace zel::provider::odbc {

namespace {

// A text attribute of a result column (SQLColAttribute); empty when the driver has none.
std::wstring TextAttribute(SQLHSTMT statement, SQLUSMALLINT column, SQLUSMALLINT field) {
    SQLWCHAR text[256];
    SQLSMALLINT length = 0;
    if (!Succeeded(SQLColAttributeW(statement, column, field, text, sizeof(text), &length, nullptr))) return {};
    return std::wstring(reinterpret_cast<const wchar_t*>(text),
                        std::min<size_t>(static_cast<size_t>(length) / sizeof(SQLWCHAR), std::size(text) - 1));
}

// Gives a decimal's text as many fraction digits as its column's scale: the SQLite3 driver hands
// over SQLite's own text of the value ("-0.5" in a DECIMAL(10,2) column), which would otherwise
// become a DECIMAL of scale 1 and the text "-0.5" where the column says "-0.50". Texts that
// already have the digits (every PostgreSQL numeric) or are not plain decimals stay as they are.
void PadToScale(Cell& cell, BYTE scale) {
    auto* text = std::get_if<std::wstring>(&cell);
    if (!text || text->empty() || scale == 0 || scale == kNoPrecision) return;
    size_t digits = 0;
    bool point = false;
    for (size_t i = 0; i < text->size(); ++i) {
        const wchar_t c = (*text)[i];
        if (c == L'-' && i == 0) continue;
        if (c == L'.' && !point) {
            point = true;
            continue;
        }
        if (c < L'0' || c > L'9') return;
        if (point) ++digits;
    }
    if (digits >= scale) return;
    if (!point) *text += L'.';
    text->append(scale - digits, L'0');
}

}  // namespace

std::vector<ColumnDesc> DescribeColumns(const Connection& connection, SQLHSTMT statement, std::vector<ReadAs>* readAs,
                                        std::wstring_view text, std::vector<OdbcColumnType>* types) {
    SQLSMALLINT count = 0;
    CheckOdbc(SQLNumResultCols(statement, &count), SQL_HANDLE_STMT, statement, text);
    std::vector<ColumnDesc> columns;
    columns.reserve(static_cast<size_t>(count));
    for (SQLUSMALLINT i = 1; i <= static_cast<SQLUSMALLINT>(count); ++i) {
        SQLWCHAR name[256];
        SQLSMALLINT nameLength = 0, sqlType = 0, digits = 0, nullable = SQL_NULLABLE_UNKNOWN;
        SQLULEN size = 0;
        CheckOdbc(SQLDescribeColW(statement, i, name, static_cast<SQLSMALLINT>(std::size(name)), &nameLength, &sqlType,
                                  &size, &digits, &nullable),
                  SQL_HANDLE_STMT, statement, text);
        SQLLEN isUnsigned = SQL_FALSE;
        SQLColAttributeW(statement, i, SQL_DESC_UNSIGNED, nullptr, 0, nullptr, &isUnsigned);
        OdbcColumnType mapped = MapSqlType(sqlType, size, digits, isUnsigned == SQL_TRUE);

        ColumnDesc desc;
        desc.name.assign(reinterpret_cast<const wchar_t*>(name),
                         std::min<size_t>(static_cast<size_t>(nameLength), std::size(name) - 1));
        desc.baseTable = TextAttribute(statement, i, SQL_DESC_BASE_TABLE_NAME);
        desc.baseColumn = TextAttribute(statement, i, SQL_DESC_BASE_COLUMN_NAME);
        if (connection.IsSqlite()) {
            SQLLEN scale = -1;
            SQLColAttributeW(statement, i, SQL_DESC_PRECISION, nullptr, 0, nullptr, &scale);
            mapped = SqliteColumnType(mapped, sqlType, size, TextAttribute(statement, i, SQL_DESC_TYPE_NAME),
                                      desc.baseTable.empty(), scale >= 0 && scale <= 28 ? static_cast<int>(scale) : 0);
        }
        desc.type = mapped.type;
        desc.flags = mapped.type.flags;
        if (nullable != SQL_NO_NULLS) desc.flags |= DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE;
        columns.push_back(std::move(desc));
        if (readAs) readAs->push_back(mapped.readAs);
        if (types) types->push_back(mapped);
    }
    return columns;
}

namespace {

// A block holds at most this many rows, and its buffers about this many bytes.
constexpr SQLULEN kBlockRows = 256;
constexpr size_t kBlockBytes = 512 * 1024;

}  // namespace

OdbcRowSource::OdbcRowSource(std::shared_ptr<Connection> connection, StatementHandle statement, std::wstring text)
    : m_connection(std::move(connection)), m_statement(std::move(statement)), m_text(std::move(text)) {
    m_columns = DescribeColumns(*m_connection, m_statement.get(), nullptr, m_text, &m_types);
    Bind();
    if (m_connection->IsSqlite()) TypeTextExpressionsByFirstRow();
}

void OdbcRowSource::TypeTextExpressionsByFirstRow() {
    std::vector<size_t> expressions;
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const ColumnDesc& c = m_columns[i];
        if (c.baseTable.empty() && m_types[i].readAs == ReadAs::Text && c.type.type == DBTYPE_WSTR &&
            !(c.type.flags & DBCOLUMNFLAGS_ISLONG))
            expressions.push_back(i);
    }
    if (expressions.empty()) return;
    SourceRow first;
    const bool any = Fetch(first);  // the caller (RunStatement) holds the lock
    for (size_t i : expressions) {
        const ColumnType type = TypeFromValue(any ? first.cells[i] : Cell{});
        // A first value that is not text (SQLite gives any column any value) keeps the text type.
        m_columns[i].type = type.type == DBTYPE_WSTR ? type : TextType(kExpressionTextSize, false);
        m_columns[i].flags = (m_columns[i].flags & ~(DBCOLUMNFLAGS_ISLONG | DBCOLUMNFLAGS_ISFIXEDLENGTH)) |
                             m_columns[i].type.flags;
    }
    if (any) m_first = std::move(first);
}

// Chooses what to bind and the rows of a block, and binds (caller holds the connection's lock,
// as the constructor runs under RunStatement's).
void OdbcRowSource::Bind() {
    const SQLUINTEGER getData = m_connection->InfoNumber(SQL_GETDATA_EXTENSIONS);
    const bool anyColumn = (getData & SQL_GD_ANY_COLUMN) != 0;  // SQLGetData before a bound column
    const bool ofBound = (getData & SQL_GD_BOUND) != 0;         // SQLGetData of a bound column
    const bool inBlock = (getData & SQL_GD_BLOCK) != 0;         // SQLGetData in a block of rows
    m_bound.resize(m_types.size());
    size_t rowBytes = 0;
    bool unboundSeen = false;
    for (size_t i = 0; i < m_types.size(); ++i) {
        OdbcBinding binding = BindingFor(m_types[i]);
        // A bounded text is bound only where a value longer than the driver said can be read
        // again with SQLGetData.
        if (m_types[i].readAs == ReadAs::Text && !ofBound) binding = {};
        // Without SQL_GD_ANY_COLUMN, SQLGetData reads only columns after the last bound one.
        if (unboundSeen && !anyColumn) binding = {};
        if (binding.bytes == 0) {
            unboundSeen = true;
            m_hasUnbound = true;
            continue;
        }
        m_bound[i].cType = binding.cType;
        m_bound[i].bytes = binding.bytes;
        rowBytes += static_cast<size_t>(binding.bytes) + sizeof(SQLLEN);
    }
    m_blockRows = rowBytes ? std::clamp<SQLULEN>(kBlockBytes / rowBytes, 1, kBlockRows) : 1;
    // Long values and re-read texts need SQLGetData on a row of the block.
    const bool needsGetData = m_hasUnbound || std::any_of(m_types.begin(), m_types.end(), [](const OdbcColumnType& t) {
                                  return t.readAs == ReadAs::Text;
                              });
    if (needsGetData && !inBlock) m_blockRows = 1;
    if (m_blockRows > 1) {
        SQLHSTMT statement = m_statement.get();
        m_rowStatus.resize(m_blockRows);
        if (!Succeeded(SQLSetStmtAttrW(statement, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(m_blockRows), 0)))
            m_blockRows = 1;
        SQLULEN granted = 1;
        if (m_blockRows > 1 && Succeeded(SQLGetStmtAttrW(statement, SQL_ATTR_ROW_ARRAY_SIZE, &granted, 0, nullptr)))
            m_blockRows = std::max<SQLULEN>(1, std::min(granted, m_blockRows));
    }
    SQLHSTMT statement = m_statement.get();
    CheckOdbc(SQLSetStmtAttrW(statement, SQL_ATTR_ROWS_FETCHED_PTR, &m_fetched, 0), SQL_HANDLE_STMT, statement, m_text);
    if (!m_rowStatus.empty())
        CheckOdbc(SQLSetStmtAttrW(statement, SQL_ATTR_ROW_STATUS_PTR, m_rowStatus.data(), 0), SQL_HANDLE_STMT, statement,
                  m_text);
    for (size_t i = 0; i < m_bound.size(); ++i) {
        Bound& b = m_bound[i];
        if (!b.cType) continue;
        b.values.resize(static_cast<size_t>(b.bytes) * m_blockRows);
        b.indicators.resize(m_blockRows);
        CheckOdbc(SQLBindCol(statement, static_cast<SQLUSMALLINT>(i + 1), b.cType, b.values.data(), b.bytes,
                             b.indicators.data()),
                  SQL_HANDLE_STMT, statement, m_text);
    }
}

// Fetches the next block; false at the end. A row the driver could not read fails the whole
// block: the reader gets the driver's error, never a short result.
bool OdbcRowSource::FetchBlock() {
    SQLHSTMT statement = m_statement.get();
    m_fetched = 0;
    m_next = 0;
    SQLRETURN rc = SQLFetch(statement);
    if (rc == SQL_NO_DATA) return false;
    if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement, m_text);
    if (m_blockRows == 1) {
        m_fetched = 1;  // some drivers leave the count alone for a single row
        return true;
    }
    if (m_fetched == 0 || m_fetched > m_blockRows) FailOdbc(SQL_HANDLE_STMT, statement, m_text);
    for (SQLULEN r = 0; r < m_fetched; ++r)
        if (m_rowStatus[r] == SQL_ROW_ERROR) FailOdbc(SQL_HANDLE_STMT, statement, m_text);
    return true;
}

void OdbcRowSource::ReadUnbound(size_t index, Cell& cell) {
    ReadCell(m_statement.get(), static_cast<SQLUSMALLINT>(index + 1), m_types[index].readAs, cell, m_text);
}

// Reads the next row (caller holds the lock).
bool OdbcRowSource::Fetch(SourceRow& row) {
    if (m_done) return false;
    if (m_next >= m_fetched && !FetchBlock()) {
        m_done = true;
        SQLCloseCursor(m_statement.get());
        return false;
    }
    const SQLULEN r = m_next++;
    SQLHSTMT statement = m_statement.get();
    row.cells.resize(m_columns.size());
    row.rowid.reset();
    bool positioned = m_blockRows == 1;
    auto position = [&] {
        if (positioned) return;
        CheckOdbc(SQLSetPos(statement, static_cast<SQLSETPOSIROW>(r + 1), SQL_POSITION, SQL_LOCK_NO_CHANGE),
                  SQL_HANDLE_STMT, statement, m_text);
        positioned = true;
    };
    for (size_t i = 0; i < m_columns.size(); ++i) {
        const Bound& b = m_bound[i];
        const bool fromBlock =
            b.cType && CellFromBound(m_types[i].readAs, b.cType, b.values.data() + static_cast<size_t>(b.bytes) * r,
                                     b.bytes, b.indicators[r], row.cells[i]);
        if (!fromBlock) {
            // Not bound, or a text longer than its buffer: read the whole value again.
            position();
            ReadUnbound(i, row.cells[i]);
        }
        if (m_columns[i].type.type == DBTYPE_DECIMAL) PadToScale(row.cells[i], m_columns[i].type.scale);
    }
    return true;
}

OdbcRowSource::~OdbcRowSource() {
    std::lock_guard guard(m_connection->lock());
    if (!m_done) SQLCloseCursor(m_statement.get());
    m_statement.reset();
}

bool OdbcRowSource::Next(SourceRow& row) {
    if (m_first) {
        row = std::move(*m_first);
        m_first.reset();
        return true;
    }
    if (m_done) return false;
    std::lock_guard guard(m_connection->lock());
    return Fetch(row);
}

}  // namespace zel::provider::odbc

namespace zel::provider::odbc {

StatementResult RunStatement(const std::shared_ptr<Connection>& connection, const std::wstring& text,
                             SQLULEN timeoutSeconds, std::atomic<SQLHSTMT>* running) {
    StatementResult result;
    std::lock_guard guard(connection->lock());
    StatementHandle statement = connection->NewStatement();
    if (timeoutSeconds)
        SQLSetStmtAttrW(statement.get(), SQL_ATTR_QUERY_TIMEOUT, reinterpret_cast<SQLPOINTER>(timeoutSeconds), 0);
    std::vector<SQLWCHAR> sql(text.begin(), text.end());
    sql.push_back(0);
    if (running) running->store(statement.get());
    SQLRETURN rc = SQLExecDirectW(statement.get(), sql.data(), SQL_NTS);
    if (running) running->store(nullptr);
    if (rc == SQL_NO_DATA) {  // a searched UPDATE or DELETE that changed nothing
        result.rowsAffected = 0;
        return result;
    }
    if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement.get(), text);
    for (;;) {
        SQLSMALLINT columns = 0;
        CheckOdbc(SQLNumResultCols(statement.get(), &columns), SQL_HANDLE_STMT, statement.get(), text);
        if (columns > 0) {
            result.rows = std::make_unique<OdbcRowSource>(connection, std::move(statement), text);
            result.rowsAffected = DB_COUNTUNAVAILABLE;
            return result;
        }
        SQLLEN count = -1;
        if (Succeeded(SQLRowCount(statement.get(), &count)) && count >= 0) result.rowsAffected = count;
        rc = SQLMoreResults(statement.get());
        if (rc == SQL_NO_DATA) return result;
        if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement.get(), text);
    }
}

}  // namespace zel::provider::odbc
