#include "host/ConnectionArgument.h"

#include <windows.h>

#include <cwctype>

#include "common/Utf8.h"

namespace zel::zeldb {

namespace {

bool SystemFileExists(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Under Wine, kernel32 exports wine_get_dos_file_name, which maps a Unix path to the
// drive that shows it. Elsewhere the function does not exist and paths pass unchanged.
std::wstring FromUnixPath(const std::wstring& path) {
    if (path.empty() || path[0] != L'/' || (path.size() > 1 && path[1] == L'/')) return path;
    using DosNameFn = WCHAR*(CDECL*)(LPCSTR);
    static const auto toDos = reinterpret_cast<DosNameFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_dos_file_name")));
    if (!toDos) return path;
    const std::string unixPath = ToUtf8(path);
    WCHAR* dos = toDos(unixPath.c_str());
    if (!dos) return path;
    std::wstring result(dos);
    HeapFree(GetProcessHeap(), 0, dos);
    return result;
}

std::wstring SystemFullPath(const std::wstring& path) {
    const std::wstring input = FromUnixPath(path);
    const DWORD size = GetFullPathNameW(input.c_str(), 0, nullptr, nullptr);
    if (size == 0) return input;
    std::wstring full(size, L'\0');
    const DWORD length = GetFullPathNameW(input.c_str(), size, full.data(), nullptr);
    if (length == 0 || length >= size) return input;
    full.resize(length);
    return full;
}

}  // namespace

const PathServices& SystemPaths() {
    static const PathServices services{
        [](const std::wstring& p) { return SystemFileExists(SystemFullPath(p)); },
        SystemFullPath,
    };
    return services;
}

bool IsInitializationString(const std::wstring& arg, const PathServices& paths) {
    if (paths.fileExists(arg)) return false;
    const size_t eq = arg.find(L'=');
    if (eq == std::wstring::npos || eq == 0) return false;
    if (!std::iswalpha(arg[0])) return false;
    for (size_t i = 0; i < eq; ++i) {
        const wchar_t c = arg[i];
        if (c == L'\\' || c == L'/' || c == L'.') return false;
    }
    return true;
}

std::wstring EmbeddedInitString(const std::wstring& fullPath) {
    std::wstring value = fullPath;
    if (value.find(L';') != std::wstring::npos || (!value.empty() && (value[0] == L'"' || value[0] == L'\''))) {
        value = L"\"" + value + L"\"";
    }
    return std::wstring(L"Provider=") + kEmbeddedProvider + L";Data Source=" + value;
}

std::wstring ConnectionInitString(const std::wstring& arg, const PathServices& paths) {
    if (IsInitializationString(arg, paths)) return arg;
    return EmbeddedInitString(paths.fullPath(arg));
}

}  // namespace zel::zeldb
