#include "provider/text/Utf.h"

#include <windows.h>

#include <cwctype>

#include "common/ComError.h"

namespace zel::provider {

std::string ToUtf8(std::wstring_view text) {
    if (text.empty()) return {};
    int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    if (size <= 0) ThrowHr(HRESULT_FROM_WIN32(GetLastError()));
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size, nullptr, nullptr);
    return out;
}

std::wstring FromUtf8(std::string_view text) {
    if (text.empty()) return {};
    int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (size <= 0) ThrowHr(HRESULT_FROM_WIN32(GetLastError()));
    std::wstring out(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size);
    return out;
}

bool EqualsNoCase(std::wstring_view a, std::wstring_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        wchar_t x = a[i], y = b[i];
        if (x >= L'A' && x <= L'Z') x = static_cast<wchar_t>(x - L'A' + L'a');
        if (y >= L'A' && y <= L'Z') y = static_cast<wchar_t>(y - L'A' + L'a');
        if (x != y) return false;
    }
    return true;
}

std::wstring Trim(std::wstring_view text) {
    size_t begin = 0, end = text.size();
    while (begin < end && std::iswspace(text[begin])) ++begin;
    while (end > begin && std::iswspace(text[end - 1])) --end;
    return std::wstring(text.substr(begin, end - begin));
}

size_t FindUnpairedSurrogate(std::wstring_view text) noexcept {
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        if (c < 0xD800 || c > 0xDFFF) continue;
        if (c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            ++i;  // a high surrogate followed by a low one: a pair
            continue;
        }
        return i;
    }
    return std::wstring_view::npos;
}

}  // namespace zel::provider
