// UTF-8 and UTF-16 conversions for text that crosses into files, pipes and the console.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace zel {

// UTF-16 to UTF-8; unpaired surrogates become U+FFFD, as WideCharToMultiByte makes them.
inline std::string ToUtf8(std::wstring_view text) {
    if (text.empty()) return {};
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr, nullptr);
    return bytes;
}

// UTF-8 to UTF-16; invalid sequences become U+FFFD.
inline std::wstring FromUtf8(std::string_view bytes) {
    if (bytes.empty()) return {};
    const int size = MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
    std::wstring text(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()), text.data(), size);
    return text;
}

}  // namespace zel
