#include "provider/odbc/OdbcRowSource.h"

namespace zel::provider::odbc {

std::vector<ColumnDesc> DescribeColumns(SQLHSTMT statement, std::vector<ReadAs>* readAs, std::wstring_view text) {
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
        const OdbcColumnType mapped = MapSqlType(sqlType, size, digits, isUnsigned == SQL_TRUE);

        ColumnDesc desc;
        desc.name.assign(reinterpret_cast<const wchar_t*>(name),
                         std::min<size_t>(static_cast<size_t>(nameLength), std::size(name) - 1));
        desc.type = mapped.type;
        desc.flags = mapped.type.flags;
        if (nullable != SQL_NO_NULLS) desc.flags |= DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE;
        SQLWCHAR base[256];
        SQLSMALLINT baseLength = 0;
        if (Succeeded(SQLColAttributeW(statement, i, SQL_DESC_BASE_TABLE_NAME, base, sizeof(base), &baseLength, nullptr)))
            desc.baseTable.assign(reinterpret_cast<const wchar_t*>(base),
                                  std::min<size_t>(static_cast<size_t>(baseLength) / sizeof(SQLWCHAR), std::size(base) - 1));
        if (Succeeded(SQLColAttributeW(statement, i, SQL_DESC_BASE_COLUMN_NAME, base, sizeof(base), &baseLength, nullptr)))
            desc.baseColumn.assign(reinterpret_cast<const wchar_t*>(base),
                                   std::min<size_t>(static_cast<size_t>(baseLength) / sizeof(SQLWCHAR), std::size(base) - 1));
        columns.push_back(std::move(desc));
        if (readAs) readAs->push_back(mapped.readAs);
    }
    return columns;
}

OdbcRowSource::OdbcRowSource(std::shared_ptr<Connection> connection, StatementHandle statement, std::wstring text)
    : m_connection(std::move(connection)), m_statement(std::move(statement)), m_text(std::move(text)) {
    m_columns = DescribeColumns(m_statement.get(), &m_readAs, m_text);
}

OdbcRowSource::~OdbcRowSource() {
    std::lock_guard guard(m_connection->lock());
    if (!m_done) SQLCloseCursor(m_statement.get());
    m_statement.reset();
}

bool OdbcRowSource::Next(SourceRow& row) {
    if (m_done) return false;
    std::lock_guard guard(m_connection->lock());
    SQLRETURN rc = SQLFetch(m_statement.get());
    if (rc == SQL_NO_DATA) {
        m_done = true;
        SQLCloseCursor(m_statement.get());
        return false;
    }
    if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, m_statement.get(), m_text);
    row.cells.resize(m_columns.size());
    row.rowid.reset();
    for (size_t i = 0; i < m_columns.size(); ++i)
        ReadCell(m_statement.get(), static_cast<SQLUSMALLINT>(i + 1), m_readAs[i], row.cells[i], m_text);
    return true;
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
