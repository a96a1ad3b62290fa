// Quoting for the SQL that the provider writes itself (table definitions, indexes, triggers):
// any name and any text can be embedded, quotes included.
#pragma once

#include <string>
#include <string_view>

namespace zel::lite {

// A name as a quoted SQL identifier: "na""me".
inline std::wstring QuoteName(std::wstring_view name) {
    std::wstring quoted = L"\"";
    for (wchar_t c : name) {
        if (c == L'"') quoted += L'"';
        quoted += c;
    }
    return quoted + L"\"";
}

// Text as an SQL string literal: 'it''s'.
inline std::wstring QuoteText(std::wstring_view text) {
    std::wstring quoted = L"'";
    for (wchar_t c : text) {
        if (c == L'\'') quoted += L'\'';
        quoted += c;
    }
    return quoted + L"'";
}

}  // namespace zel::lite
