// UTF-8 / UTF-16 conversions between SQLite's text and COM's wide strings.
#pragma once

#include <string>
#include <string_view>

namespace zel::provider {

std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view text);
// Case-insensitive comparison of ASCII letters (SQL identifiers and keywords).
bool EqualsNoCase(std::wstring_view a, std::wstring_view b) noexcept;
std::wstring Trim(std::wstring_view text);
// Position of the first surrogate that is not half of a pair; npos when the text is valid UTF-16.
size_t FindUnpairedSurrogate(std::wstring_view text) noexcept;

}  // namespace zel::provider
