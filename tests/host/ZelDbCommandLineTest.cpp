// zeldb.exe as a user runs it, for everything that needs no server: help, usage errors and
// their exit codes.
#include <windows.h>

#include <gtest/gtest.h>

#include <vector>

#include "ZelVersion.h"
#include "tests/host/ZelDbProcess.h"

namespace zel::zeldb::test {
namespace {

TEST(ZelDbCommandLine, HelpPrintsTheCommandListAndExitsZero) {
    const ProcessResult r = RunZelDb({L"--help"});
    EXPECT_EQ(r.exitCode, 0u);
    EXPECT_EQ(r.err, L"");
    const std::vector<std::wstring> lines = Lines(r.out);
    ASSERT_GE(lines.size(), 20u);
    EXPECT_EQ(lines[0], L"zeldb: a 64-bit command-line client of the ZelPmDb32 database server.");
    EXPECT_EQ(lines[2], L"usage: zeldb COMMAND [ARGS...]");
    const std::vector<std::wstring> commands(lines.begin() + 6, lines.begin() + 18);
    EXPECT_EQ(commands, (std::vector<std::wstring>{
                            L"  formats",
                            L"  create FILE",
                            L"  query CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]",
                            L"  exec CONN SQL",
                            L"  tables CONN [--type T]",
                            L"  columns CONN TABLE",
                            L"  indexes CONN [TABLE]",
                            L"  tabledef get CONN TABLE",
                            L"  tabledef create CONN FILE.xml",
                            L"  drop CONN TABLE",
                            L"  compact CONN",
                            L"  shell CONN",
                        }));
}

// The one version of the package: project() in CMake, printed by --version and written into
// zeldb.exe's version resource.
TEST(ZelDbCommandLine, VersionPrintsTheProductVersionAndExitsZero) {
    const ProcessResult r = RunZelDb({L"--version"});
    EXPECT_EQ(r.exitCode, 0u);
    EXPECT_EQ(r.err, L"");
    EXPECT_EQ(r.out, std::wstring(L"zeldb ") + ZEL_VERSION_WTEXT + L"\n");

    const ProcessResult misuse = RunZelDb({L"formats", L"--version"});
    EXPECT_EQ(misuse.exitCode, 2u);
    EXPECT_EQ(misuse.out, L"");
    ASSERT_FALSE(Lines(misuse.err).empty());
    EXPECT_EQ(Lines(misuse.err)[0], L"zeldb: --version takes no command");
}

TEST(ZelDbCommandLine, VersionResourceCarriesTheSameVersion) {
    const std::wstring exe = ProgramDirectory() + L"\\zeldb.exe";
    DWORD handle = 0;
    const DWORD size = GetFileVersionInfoSizeW(exe.c_str(), &handle);
    ASSERT_NE(size, 0u) << GetLastError();
    std::vector<BYTE> data(size);
    ASSERT_TRUE(GetFileVersionInfoW(exe.c_str(), 0, size, data.data()));

    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(data.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(HIWORD(fixed->dwFileVersionMS), ZEL_VERSION_MAJOR);
    EXPECT_EQ(LOWORD(fixed->dwFileVersionMS), ZEL_VERSION_MINOR);
    EXPECT_EQ(HIWORD(fixed->dwFileVersionLS), ZEL_VERSION_PATCH);
    EXPECT_EQ(fixed->dwProductVersionMS, fixed->dwFileVersionMS);

    wchar_t* text = nullptr;
    ASSERT_TRUE(VerQueryValueW(data.data(), L"\\StringFileInfo\\040904B0\\ProductVersion",
                               reinterpret_cast<void**>(&text), &length));
    EXPECT_EQ(std::wstring(text), ZEL_VERSION_WTEXT);
    ASSERT_TRUE(VerQueryValueW(data.data(), L"\\StringFileInfo\\040904B0\\OriginalFilename",
                               reinterpret_cast<void**>(&text), &length));
    EXPECT_EQ(std::wstring(text), L"zeldb.exe");
}

TEST(ZelDbCommandLine, EverySubcommandHasHelp) {
    const std::vector<std::pair<std::vector<std::wstring>, std::wstring>> cases = {
        {{L"formats", L"--help"}, L"usage: zeldb formats"},
        {{L"create", L"--help"}, L"usage: zeldb create FILE"},
        {{L"query", L"-h"}, L"usage: zeldb query CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]"},
        {{L"exec", L"--help"}, L"usage: zeldb exec CONN SQL"},
        {{L"tables", L"--help"}, L"usage: zeldb tables CONN [--type T]"},
        {{L"columns", L"--help"}, L"usage: zeldb columns CONN TABLE"},
        {{L"indexes", L"--help"}, L"usage: zeldb indexes CONN [TABLE]"},
        {{L"tabledef", L"get", L"--help"}, L"usage: zeldb tabledef get CONN TABLE"},
        {{L"tabledef", L"create", L"--help"}, L"usage: zeldb tabledef create CONN FILE.xml"},
        {{L"drop", L"--help"}, L"usage: zeldb drop CONN TABLE"},
        {{L"compact", L"--help"}, L"usage: zeldb compact CONN"},
        {{L"shell", L"--help"}, L"usage: zeldb shell CONN"},
        {{L"help", L"exec"}, L"usage: zeldb exec CONN SQL"},
    };
    for (const auto& [args, firstLine] : cases) {
        const ProcessResult r = RunZelDb(args);
        EXPECT_EQ(r.exitCode, 0u) << firstLine;
        EXPECT_EQ(r.err, L"") << firstLine;
        ASSERT_FALSE(Lines(r.out).empty()) << firstLine;
        EXPECT_EQ(Lines(r.out)[0], firstLine);
    }
}

TEST(ZelDbCommandLine, QueryHelpExplainsFormatsAndTheConnectionArgument) {
    const ProcessResult r = RunZelDb({L"query", L"--help"});
    EXPECT_EQ(r.out,
              L"usage: zeldb query CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]\n"
              L"\n"
              L"Runs a statement and prints its rows: an aligned table by default, CSV with --csv, one\n"
              L"JSON array of objects with --json, or the server's query-result document with --xml.\n"
              L"Rows arrive in batches and print exactly: reals as the shortest text that reads back as\n"
              L"the same number, booleans as 1/0 (true/false in JSON), dates as 2020-01-02 02:11:59\n"
              L"(with a fraction of a second when there is one), decimals and currency digit for digit.\n"
              L"--server-text prints the server's own field texts instead, row by row. --max-rows N\n"
              L"stops after N rows (table, CSV and JSON). NULL prints as an empty cell (null in JSON);\n"
              L"binary values as <blob N bytes>.\n"
              L"\n"
              L"CONN is a database file (opened with the embedded ZelLite provider) or a full OLE DB\n"
              L"initialization string such as \"Provider=ZelLite.OLEDB.1;Data Source=C:\\data\\parts.db\".\n");
}

TEST(ZelDbCommandLine, UsageErrorsExitTwoWithTheCommandsUsageOnStandardError) {
    const ProcessResult r = RunZelDb({L"query", L"parts.db"});
    EXPECT_EQ(r.exitCode, 2u);
    EXPECT_EQ(r.out, L"");
    const std::vector<std::wstring> lines = Lines(r.err);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], L"zeldb: too few arguments for query");
    EXPECT_EQ(lines[1], L"");
    EXPECT_EQ(lines[2], L"usage: zeldb query CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]");
}

TEST(ZelDbCommandLine, UnknownCommandsAndOptionsAreUsageErrors) {
    ProcessResult r = RunZelDb({L"select", L"*"});
    EXPECT_EQ(r.exitCode, 2u);
    EXPECT_EQ(Lines(r.err)[0], L"zeldb: unknown command 'select'");
    EXPECT_NE(r.err.find(L"usage: zeldb COMMAND [ARGS...]"), std::wstring::npos);

    r = RunZelDb({L"tables", L"parts.db", L"--verbose"});
    EXPECT_EQ(r.exitCode, 2u);
    EXPECT_EQ(Lines(r.err)[0], L"zeldb: unknown option --verbose");
    EXPECT_EQ(Lines(r.err)[2], L"usage: zeldb tables CONN [--type T]");

    r = RunZelDb({});
    EXPECT_EQ(r.exitCode, 2u);
    EXPECT_EQ(Lines(r.err)[0], L"zeldb: no command given");

    r = RunZelDb({L"query", L"db", L"SELECT 1", L"--xml", L"--max-rows", L"5"});
    EXPECT_EQ(r.exitCode, 2u);
    EXPECT_EQ(Lines(r.err)[0], L"zeldb: --max-rows does not apply to --xml: the server's document holds every row");
}

}  // namespace
}  // namespace zel::zeldb::test
