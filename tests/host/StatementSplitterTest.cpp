// How the shell cuts its input into statements.
#include <gtest/gtest.h>

#include "host/Shell.h"

namespace zel::zeldb {
namespace {

using Statements = std::vector<std::wstring>;

TEST(ZelDbStatementSplitter, EachSemicolonEndsAStatement) {
    StatementSplitter s;
    s.AddLine(L"SELECT 1; SELECT 2;");
    EXPECT_EQ(s.TakeStatements(), (Statements{L"SELECT 1", L"SELECT 2"}));
    EXPECT_FALSE(s.Pending());
    EXPECT_EQ(s.TakeStatements(), Statements{});
}

TEST(ZelDbStatementSplitter, AStatementMaySpanLines) {
    StatementSplitter s;
    s.AddLine(L"SELECT name");
    EXPECT_TRUE(s.Pending());
    EXPECT_EQ(s.TakeStatements(), Statements{});
    s.AddLine(L"  FROM Parts");
    s.AddLine(L"  WHERE qty > 3;");
    EXPECT_EQ(s.TakeStatements(), (Statements{L"SELECT name\n  FROM Parts\n  WHERE qty > 3"}));
}

TEST(ZelDbStatementSplitter, SemicolonsInQuotesAndCommentsDoNotEndAStatement) {
    StatementSplitter s;
    s.AddLine(L"INSERT INTO t VALUES ('a;b', \"c;d\", [e;f]) -- note; here");
    EXPECT_TRUE(s.Pending());
    s.AddLine(L"/* still; the same */ ;");
    const Statements done = s.TakeStatements();
    ASSERT_EQ(done.size(), 1u);
    EXPECT_EQ(done[0], L"INSERT INTO t VALUES ('a;b', \"c;d\", [e;f]) -- note; here\n/* still; the same */");
}

TEST(ZelDbStatementSplitter, QuotedTextMaySpanLines) {
    StatementSplitter s;
    s.AddLine(L"INSERT INTO t VALUES ('line one;");
    s.AddLine(L"line two');");
    EXPECT_EQ(s.TakeStatements(), (Statements{L"INSERT INTO t VALUES ('line one;\nline two')"}));
}

TEST(ZelDbStatementSplitter, DoubledQuotesStayInsideTheString) {
    StatementSplitter s;
    s.AddLine(L"SELECT 'it''s; fine';");
    EXPECT_EQ(s.TakeStatements(), (Statements{L"SELECT 'it''s; fine'"}));
}

TEST(ZelDbStatementSplitter, CommentsAndEmptyStatementsAreDropped) {
    StatementSplitter s;
    s.AddLine(L"-- a comment line");
    EXPECT_FALSE(s.Pending());
    EXPECT_TRUE(s.Idle());
    s.AddLine(L";;  ;");
    EXPECT_EQ(s.TakeStatements(), Statements{});
    s.AddLine(L"/* open");
    EXPECT_FALSE(s.Pending());
    EXPECT_FALSE(s.Idle());
}

TEST(ZelDbStatementSplitter, TheRestAtTheEndOfTheInputIsTheLastStatement) {
    StatementSplitter s;
    s.AddLine(L"SELECT 1; SELECT");
    s.AddLine(L"2  ");
    EXPECT_EQ(s.TakeStatements(), (Statements{L"SELECT 1"}));
    EXPECT_EQ(s.TakeRest(), L"SELECT\n2");
    EXPECT_TRUE(s.Empty());
    EXPECT_EQ(s.TakeRest(), L"");
}

}  // namespace
}  // namespace zel::zeldb
