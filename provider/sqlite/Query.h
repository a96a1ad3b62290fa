// One prepared statement of the provider's own catalog work, with its parameters and the
// columns of the row it is on. Failures publish SQLite's error (with the statement) and throw.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "provider/sqlite/Database.h"

namespace zel::provider {

class Query {
public:
    Query(Database& database, std::wstring_view sql);

    // Parameters are numbered from 1.
    Query& Bind(int index, std::wstring_view text);
    Query& Bind(int index, const std::wstring& text) { return Bind(index, std::wstring_view(text)); }
    Query& Bind(int index, std::int64_t value);
    Query& Bind(int index, const std::optional<std::wstring>& text);
    Query& Bind(int index, const std::optional<std::int64_t>& value);

    // Moves to the next row; false at the end.
    bool Step();
    // Runs a statement that returns no rows.
    void Run() {
        while (Step()) {
        }
    }

    bool IsNull(int column) const;
    std::wstring Text(int column) const;
    std::optional<std::wstring> OptionalText(int column) const;
    std::int64_t Integer(int column) const;
    std::optional<std::int64_t> OptionalInteger(int column) const;

private:
    Database& m_database;
    std::wstring m_sql;
    SqliteStatement m_statement;
};

}  // namespace zel::provider
