// Command-line parsing of zeldb: subcommands, positional arguments, options and help.
#include <gtest/gtest.h>

#include "ZelVersion.h"
#include "host/Arguments.h"

namespace zel::zeldb {
namespace {

Invocation Parse(std::vector<std::wstring> args) { return ParseArguments(args); }

// The usage error's message and the command whose usage it shows.
std::pair<std::wstring, std::wstring> UsageOf(std::vector<std::wstring> args) {
    try {
        ParseArguments(args);
    } catch (const UsageError& e) {
        return {e.message(), e.command()};
    }
    return {L"(no usage error)", L""};
}

TEST(ZelDbArguments, QueryTakesConnectionAndStatementWithTableFormatByDefault) {
    const Invocation inv = Parse({L"query", L"parts.db", L"SELECT 1"});
    EXPECT_EQ(inv.command, L"query");
    ASSERT_EQ(inv.args.size(), 2u);
    EXPECT_EQ(inv.args[0], L"parts.db");
    EXPECT_EQ(inv.args[1], L"SELECT 1");
    EXPECT_EQ(inv.format, OutputFormat::Table);
    EXPECT_FALSE(inv.maxRows.has_value());
    EXPECT_FALSE(inv.help);
}

TEST(ZelDbArguments, OptionsMayStandBeforeBetweenOrAfterArguments) {
    EXPECT_EQ(Parse({L"--csv", L"query", L"db", L"SELECT 1"}).format, OutputFormat::Csv);
    EXPECT_EQ(Parse({L"query", L"db", L"--xml", L"SELECT 1"}).format, OutputFormat::Xml);
    const Invocation inv = Parse({L"query", L"db", L"SELECT 1", L"--max-rows", L"25"});
    ASSERT_TRUE(inv.maxRows.has_value());
    EXPECT_EQ(*inv.maxRows, 25u);
    EXPECT_EQ(*Parse({L"query", L"--max-rows=7", L"db", L"x"}).maxRows, 7u);
}

TEST(ZelDbArguments, DoubleDashLetsAStatementStartWithADash) {
    const Invocation inv = Parse({L"exec", L"db", L"--", L"-- comment\nDELETE FROM t"});
    ASSERT_EQ(inv.args.size(), 2u);
    EXPECT_EQ(inv.args[1], L"-- comment\nDELETE FROM t");
}

TEST(ZelDbArguments, TableDefTakesAnActionWord) {
    Invocation inv = Parse({L"tabledef", L"get", L"db", L"Parts"});
    EXPECT_EQ(inv.command, L"tabledef get");
    EXPECT_EQ(inv.args, (std::vector<std::wstring>{L"db", L"Parts"}));
    inv = Parse({L"tabledef", L"create", L"db", L"parts.xml"});
    EXPECT_EQ(inv.command, L"tabledef create");
    EXPECT_EQ(UsageOf({L"tabledef", L"put", L"db", L"x"}).second, L"tabledef");
    EXPECT_EQ(UsageOf({L"tabledef"}).second, L"tabledef");
}

TEST(ZelDbArguments, TablesAcceptsATypeAndIndexesAnOptionalTable) {
    const Invocation inv = Parse({L"tables", L"db", L"--type", L"VIEW"});
    ASSERT_TRUE(inv.tableType.has_value());
    EXPECT_EQ(*inv.tableType, L"VIEW");
    EXPECT_EQ(Parse({L"indexes", L"db"}).args.size(), 1u);
    EXPECT_EQ(Parse({L"indexes", L"db", L"Parts"}).args.size(), 2u);
}

TEST(ZelDbArguments, WrongArgumentCountsNameTheCommand) {
    EXPECT_EQ(UsageOf({L"query", L"db"}), std::make_pair(std::wstring(L"too few arguments for query"),
                                                         std::wstring(L"query")));
    EXPECT_EQ(UsageOf({L"drop", L"db", L"a", L"b"}).first, L"too many arguments for drop");
    EXPECT_EQ(UsageOf({L"formats", L"extra"}).second, L"formats");
}

TEST(ZelDbArguments, RejectsUnknownCommandsAndOptions) {
    EXPECT_EQ(UsageOf({L"frobnicate"}).first, L"unknown command 'frobnicate'");
    EXPECT_EQ(UsageOf({L"frobnicate"}).second, L"");
    EXPECT_EQ(UsageOf({}).first, L"no command given");
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--fast"}), std::make_pair(std::wstring(L"unknown option --fast"),
                                                                          std::wstring(L"query")));
}

TEST(ZelDbArguments, RejectsOptionsThatDoNotApply) {
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--csv", L"--xml"}).first, L"--csv, --json and --xml cannot be combined");
    EXPECT_EQ(UsageOf({L"exec", L"db", L"x", L"--csv"}).first, L"--csv, --json, --xml and --server-text apply to query only");
    EXPECT_EQ(UsageOf({L"tables", L"db", L"--max-rows", L"3"}).first, L"--max-rows applies to query only");
    EXPECT_EQ(UsageOf({L"columns", L"db", L"t", L"--type", L"TABLE"}).first, L"--type applies to tables only");
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--xml", L"--max-rows", L"3"}).first,
              L"--max-rows does not apply to --xml: the server's document holds every row");
}

TEST(ZelDbArguments, JsonAndServerTextApplyToQuery) {
    const Invocation json = Parse({L"query", L"db", L"x", L"--json"});
    EXPECT_EQ(json.format, OutputFormat::Json);
    EXPECT_FALSE(json.serverText);
    const Invocation texts = Parse({L"query", L"db", L"x", L"--server-text", L"--csv"});
    EXPECT_EQ(texts.format, OutputFormat::Csv);
    EXPECT_TRUE(texts.serverText);
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--json", L"--csv"}).first, L"--csv, --json and --xml cannot be combined");
    EXPECT_EQ(UsageOf({L"exec", L"db", L"x", L"--server-text"}).first,
              L"--csv, --json, --xml and --server-text apply to query only");
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--xml", L"--server-text"}).first,
              L"--server-text does not apply to --xml: the document holds the server's texts");
}

TEST(ZelDbArguments, MaxRowsNeedsANumber) {
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--max-rows", L"ten"}).first, L"--max-rows needs a number, not 'ten'");
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--max-rows"}).first, L"option --max-rows needs a value");
    EXPECT_EQ(*Parse({L"query", L"db", L"x", L"--max-rows", L"0"}).maxRows, 0u);
}

TEST(ZelDbArguments, HelpWorksForEveryCommandAndSkipsArgumentChecks) {
    for (const wchar_t* command : {L"formats", L"create", L"query", L"exec", L"tables", L"columns", L"indexes",
                                   L"drop", L"compact", L"shell"}) {
        const Invocation inv = Parse({command, L"--help"});
        EXPECT_TRUE(inv.help) << command;
        EXPECT_EQ(inv.command, command);
        EXPECT_EQ(HelpText(inv.command).rfind(std::wstring(L"usage: zeldb ") + command, 0), 0u) << command;
    }
    EXPECT_EQ(Parse({L"tabledef", L"get", L"-h"}).command, L"tabledef get");
    EXPECT_EQ(Parse({L"tabledef", L"--help"}).command, L"tabledef");
    EXPECT_EQ(Parse({L"help", L"query"}).command, L"query");
    EXPECT_TRUE(Parse({L"--help"}).help);
    EXPECT_EQ(Parse({L"--help"}).command, L"");
}

TEST(ZelDbArguments, VersionStandsAlone) {
    const Invocation inv = Parse({L"--version"});
    EXPECT_TRUE(inv.version);
    EXPECT_FALSE(inv.help);
    EXPECT_EQ(inv.command, L"");
    EXPECT_FALSE(Parse({L"query", L"db", L"x"}).version);
    EXPECT_EQ(UsageOf({L"query", L"db", L"x", L"--version"}),
              std::make_pair(std::wstring(L"--version takes no command"), std::wstring(L"")));
    // Help goes first when both are asked for.
    EXPECT_TRUE(Parse({L"--help", L"--version"}).help);
}

TEST(ZelDbArguments, VersionTextIsTheProductVersion) {
    EXPECT_EQ(VersionText(), std::wstring(L"zeldb ") + ZEL_VERSION_WTEXT + L"\n");
    EXPECT_EQ(std::to_wstring(ZEL_VERSION_MAJOR) + L"." + std::to_wstring(ZEL_VERSION_MINOR) + L"." +
                  std::to_wstring(ZEL_VERSION_PATCH),
              ZEL_VERSION_WTEXT);
    EXPECT_NE(HelpText(L"").find(L"zeldb --version"), std::wstring::npos);
}

TEST(ZelDbArguments, HelpTextsShowSynopsisAndConnectionRule) {
    const std::wstring query = HelpText(L"query");
    EXPECT_EQ(query.rfind(L"usage: zeldb query CONN SQL [--csv | --json | --xml] [--server-text] [--max-rows N]\n", 0), 0u);
    EXPECT_NE(query.find(L"CONN is a database file"), std::wstring::npos);
    EXPECT_EQ(HelpText(L"formats").find(L"CONN is"), std::wstring::npos);
    const std::wstring tabledef = HelpText(L"tabledef");
    EXPECT_EQ(tabledef.rfind(L"usage: zeldb tabledef get CONN TABLE\nusage: zeldb tabledef create CONN FILE.xml\n", 0),
              0u);
    const std::wstring general = HelpText(L"");
    for (const wchar_t* line : {L"  formats\n", L"  create FILE\n", L"  shell CONN\n", L"  tabledef get CONN TABLE\n"}) {
        EXPECT_NE(general.find(line), std::wstring::npos) << line;
    }
}

}  // namespace
}  // namespace zel::zeldb
