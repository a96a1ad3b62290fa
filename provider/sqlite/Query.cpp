#include "provider/sqlite/Query.h"

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"

namespace zel::provider {

Query::Query(Database& database, std::wstring_view sql)
    : m_database(database), m_sql(sql), m_statement(database.Prepare(sql)) {}

Query& Query::Bind(int index, std::wstring_view text) {
    sqlite3_bind_text16(m_statement.get(), index, text.data(), static_cast<int>(text.size() * sizeof(wchar_t)),
                        SQLITE_TRANSIENT);
    return *this;
}

Query& Query::Bind(int index, std::int64_t value) {
    sqlite3_bind_int64(m_statement.get(), index, value);
    return *this;
}

Query& Query::Bind(int index, const std::optional<std::wstring>& text) {
    if (!text) {
        sqlite3_bind_null(m_statement.get(), index);
        return *this;
    }
    return Bind(index, std::wstring_view(*text));
}

Query& Query::Bind(int index, const std::optional<std::int64_t>& value) {
    if (!value) {
        sqlite3_bind_null(m_statement.get(), index);
        return *this;
    }
    return Bind(index, *value);
}

bool Query::Step() {
    ConnectionLock lock(m_database.handle());
    int rc = sqlite3_step(m_statement.get());
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    FailSqlite(m_database.handle(), rc, m_sql);
}

bool Query::IsNull(int column) const { return sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL; }

std::wstring Query::Text(int column) const {
    auto text = static_cast<const wchar_t*>(sqlite3_column_text16(m_statement.get(), column));
    if (!text) return {};
    return std::wstring(text, static_cast<size_t>(sqlite3_column_bytes16(m_statement.get(), column)) / sizeof(wchar_t));
}

std::optional<std::wstring> Query::OptionalText(int column) const {
    if (IsNull(column)) return std::nullopt;
    return Text(column);
}

std::int64_t Query::Integer(int column) const { return sqlite3_column_int64(m_statement.get(), column); }

std::optional<std::int64_t> Query::OptionalInteger(int column) const {
    if (IsNull(column)) return std::nullopt;
    return Integer(column);
}

}  // namespace zel::provider
