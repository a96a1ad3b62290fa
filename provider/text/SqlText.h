// Quoting for the SQL that the provider writes itself (table definitions, indexes, triggers):
// any name and any text can be embedded, quotes included.
#pragma once

#include <string>
#include <string_view>

namespace zel::provider {

namespace detail {

// Text between two `quote` characters, each quote inside it doubled.
inline std::wstring Enclose(std::wstring_view text, wchar_t quote) {
    std::wstring quoted(1, quote);
    for (wchar_t c : text) {
        if (c == quote) quoted += quote;
        quoted += c;
    }
    return quoted + quote;
}

}  // namespace detail

// A name as a quoted SQL identifier: "na""me".
inline std::wstring QuoteName(std::wstring_view name) { return detail::Enclose(name, L'"'); }

// Text as an SQL string literal: 'it''s'.
inline std::wstring QuoteText(std::wstring_view text) { return detail::Enclose(text, L'\''); }

}  // namespace zel::provider
