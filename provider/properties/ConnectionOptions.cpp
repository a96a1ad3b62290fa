#include "provider/properties/ConnectionOptions.h"

#include <cwchar>

#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

constexpr wchar_t kBusyTimeout[] = L"Busy Timeout";

bool ParseTimeout(const std::wstring& text, int* out) {
    if (text.empty() || text.size() > 9) return false;
    int value = 0;
    for (wchar_t c : text) {
        if (c < L'0' || c > L'9') return false;
        value = value * 10 + (c - L'0');
    }
    *out = value;
    return true;
}

}  // namespace

bool ConnectionOptions::Add(std::wstring_view entry) {
    std::vector<std::pair<std::wstring, std::wstring>> parsed;
    size_t pos = 0;
    while (pos < entry.size()) {
        size_t end = entry.find(L';', pos);
        if (end == std::wstring_view::npos) end = entry.size();
        std::wstring_view part = entry.substr(pos, end - pos);
        pos = end + 1;
        if (Trim(part).empty()) continue;
        size_t equals = part.find(L'=');
        if (equals == std::wstring_view::npos) return false;
        std::wstring key = Trim(part.substr(0, equals));
        std::wstring value = Trim(part.substr(equals + 1));
        if (key.empty()) return false;
        if (value.size() >= 2 && (value.front() == L'"' || value.front() == L'\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        int timeout;
        if (EqualsNoCase(key, kBusyTimeout) && !ParseTimeout(value, &timeout)) return false;
        parsed.emplace_back(std::move(key), std::move(value));
    }
    m_pairs.insert(m_pairs.end(), parsed.begin(), parsed.end());
    return true;
}

int ConnectionOptions::busyTimeoutMs() const {
    int timeout = kDefaultBusyTimeoutMs;
    for (const auto& [key, value] : m_pairs)
        if (EqualsNoCase(key, kBusyTimeout)) ParseTimeout(value, &timeout);  // the last one wins
    return timeout;
}

std::wstring ConnectionOptions::Text() const {
    std::wstring text;
    for (const auto& [key, value] : m_pairs) {
        if (!text.empty()) text += L';';
        text += key + L"=" + value;
    }
    return text;
}

}  // namespace zel::provider
