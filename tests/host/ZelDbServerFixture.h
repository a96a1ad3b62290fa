// Shared set-up of the tests that run zeldb.exe against the 32-bit server: the server and
// the embedded provider registered in the test prefix, and a scratch folder of databases.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/ZelDbProcess.h"

namespace zel::zeldb::test {

class ZelDbServerTest : public ::testing::Test {
protected:
    // Registers ZelPmDb32.exe (ZEL_SERVER_EXE) and ZelLite.dll (ZEL_PROVIDER_DLL) of this
    // build, and makes an empty scratch folder.
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    // Full path of a file in the scratch folder.
    static std::wstring PathOf(const std::wstring& name);
    // A new database file made with `zeldb create` (any older one of that name removed).
    static std::wstring NewDatabase(const std::wstring& name);
    // A new, empty file, which the embedded provider opens as an empty database.
    static std::wstring EmptyDatabase(const std::wstring& name);
    // Runs zeldb and expects exit status 0 and nothing on standard error; returns stdout.
    static std::wstring ZelDbOk(const std::vector<std::wstring>& args, const std::string& input = {});
    // Writes a UTF-8 text file in the scratch folder and returns its path.
    static std::wstring WriteFile(const std::wstring& name, const std::string& text);

    static std::wstring s_dir;
};

}  // namespace zel::zeldb::test
