// The CONN argument: a full OLE DB initialization string, or a database file path that
// stands for the embedded provider's string for that file.
#pragma once

#include <functional>
#include <string>

namespace zel::zeldb {

inline constexpr wchar_t kEmbeddedProvider[] = L"ZelLite.OLEDB.1";

// Tells how the environment sees file paths: whether one names an existing file, and its
// full Windows form.
struct PathServices {
    std::function<bool(const std::wstring&)> fileExists;
    std::function<std::wstring(const std::wstring&)> fullPath;
};

// The services of the running process: GetFileAttributesW, and GetFullPathNameW (under Wine,
// an absolute Unix path such as /home/me/parts.db is first turned into its drive form).
const PathServices& SystemPaths();

// The rule: an existing file is a path. Otherwise the argument is an initialization string
// when it holds '=' and the text before the first '=' looks like a keyword (starts with a
// letter, no '\', '/' or '.'); anything else is a path.
bool IsInitializationString(const std::wstring& arg, const PathServices& paths);

// The embedded provider's initialization string for a database file (full path; quoted
// when it holds ';' or starts with a quote).
std::wstring EmbeddedInitString(const std::wstring& fullPath);

// The initialization string to open for a CONN argument.
std::wstring ConnectionInitString(const std::wstring& arg, const PathServices& paths);

}  // namespace zel::zeldb
