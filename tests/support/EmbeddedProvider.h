// Test support for suites that run on the embedded provider: registration of the ZelLite.dll
// that sits next to the test program, and scratch database files.
#pragma once

#include <windows.h>

#include <string>

namespace zel::test {

// Loads the ZelLite.dll beside the running test program and calls its DllRegisterServer, so
// the suite uses the provider of its own build tree. Returns the HRESULT.
HRESULT RegisterEmbeddedProvider();

// A fresh directory under the temporary folder holding one empty database file (a zero-length
// file is an empty SQLite database); both are removed with the object.
class ScratchDatabase {
public:
    explicit ScratchDatabase(const wchar_t* fileName = L"test.db");
    ScratchDatabase(const ScratchDatabase&) = delete;
    ScratchDatabase& operator=(const ScratchDatabase&) = delete;
    ~ScratchDatabase();

    const std::wstring& Directory() const { return m_directory; }
    const std::wstring& Path() const { return m_path; }
    // "Provider=ZelLite.OLEDB.1;Data Source=<path>" plus `extra`.
    std::wstring ConnectionString(const std::wstring& extra = L"") const;

private:
    std::wstring m_directory;
    std::wstring m_path;
};

}  // namespace zel::test
