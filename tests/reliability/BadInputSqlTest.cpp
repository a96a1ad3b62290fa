// Statements that fail in the provider: each comes back as a clear error (the tri-state 2,
// the provider's message with its SQLSTATE line in errorText, the statement in errorStmt, no
// document), the server goes on serving the same connection, and the database is unchanged.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/Bstr.h"
#include "tests/reliability/ServerFixture.h"

using namespace zel::test;
using zel::Bstr;

namespace {

class BadInputSqlTest : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        if (HasFatalFailure()) return;
        Client().Run(
            L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40) NOT NULL UNIQUE, "
            L"qty INTEGER CHECK (qty >= 0))");
        Client().Run(L"INSERT INTO parts VALUES (1, 'bolt', 10), (2, 'nut', 20), (3, 'washer', 0)");
        m_before = DatabaseSnapshot(Client());
    }

    // Runs `sql`, which must fail in the provider with `message` and SQLSTATE `sqlState`,
    // and checks that the database did not change.
    void ExpectRefused(const std::wstring& sql, const std::wstring& message, const std::wstring& sqlState) {
        SCOPED_TRACE(ToUtf8(sql));
        Outcome outcome = Client().Execute(sql);
        EXPECT_EQ(S_OK, outcome.hr) << "a failed statement is told by the result, not the HRESULT";
        EXPECT_EQ(2, outcome.result);
        EXPECT_FALSE(outcome.xmlWritten);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(message)) << ToUtf8(outcome.errorText);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: " + sqlState + L", NativeError: "))
            << ToUtf8(outcome.errorText);
        // The last, innermost record only: one block, numbered from 0.
        EXPECT_EQ(0u, outcome.errorText.find(L"Row #:    0 Source: ")) << ToUtf8(outcome.errorText);
        EXPECT_EQ(sql, outcome.errorStmt);
        EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    }

    std::string m_before;
};

TEST_F(BadInputSqlTest, StatementsThatDoNotParseAreRefusedWithTheProvidersMessage) {
    // SQLite names the token it stopped at; a statement cut short is "incomplete input".
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"SELEKT * FROM parts", L"near \"SELEKT\": syntax error"},
        {L"UPDATE parts SET qty = WHERE id = 1", L"near \"WHERE\": syntax error"},
        {L"DELETE parts", L"near \"parts\": syntax error"},
        {L"CREATE TABLE (a INTEGER)", L"near \"(\": syntax error"},
        {L")))", L"near \")\": syntax error"},
        {L"SELECT * FROM parts WHERE", L"incomplete input"},
        {L"INSERT INTO parts VALUES (4, 'x', 1", L"incomplete input"},
        {L"SELECT 'unterminated FROM parts", L"unrecognized token: \"'unterminated FROM parts\""},
    };
    for (const auto& [sql, message] : cases) ExpectRefused(sql, message, L"42000");
}

TEST_F(BadInputSqlTest, UnknownTablesAndColumnsAreRefusedWithTheirSqlStates) {
    for (const wchar_t* sql : {L"SELECT * FROM nowhere", L"INSERT INTO nowhere VALUES (1)", L"DELETE FROM nowhere",
                               L"UPDATE nowhere SET a = 1", L"DROP TABLE nowhere",
                               L"SELECT p.id FROM parts p JOIN nowhere n ON n.id = p.id"})
        ExpectRefused(sql, L"no such table: nowhere", L"42S02");
    ExpectRefused(L"SELECT nosuch FROM parts", L"no such column: nosuch", L"42S22");
    ExpectRefused(L"UPDATE parts SET nosuch = 1", L"no such column: nosuch", L"42S22");
    ExpectRefused(L"CREATE TABLE parts (a INTEGER)", L"table parts already exists", L"42S01");
}

TEST_F(BadInputSqlTest, ConstraintViolationsAreRefusedAndTheWholeStatementIsUndone) {
    ExpectRefused(L"INSERT INTO parts VALUES (1, 'again', 1)", L"UNIQUE constraint failed: parts.id", L"23000");
    ExpectRefused(L"INSERT INTO parts VALUES (4, 'bolt', 1)", L"UNIQUE constraint failed: parts.name", L"23000");
    ExpectRefused(L"INSERT INTO parts (id, name, qty) VALUES (4, NULL, 1)", L"NOT NULL constraint failed: parts.name",
                  L"23000");
    ExpectRefused(L"INSERT INTO parts VALUES (4, 'gear', -1)", L"CHECK constraint failed", L"23000");
    // The third row breaks the key: none of the three stays.
    ExpectRefused(L"INSERT INTO parts VALUES (5, 'a', 1), (6, 'b', 1), (1, 'c', 1)", L"UNIQUE constraint failed",
                  L"23000");
    // Every row would break the check; not one is changed.
    ExpectRefused(L"UPDATE parts SET qty = qty - 15", L"CHECK constraint failed", L"23000");
    ExpectRefused(L"UPDATE parts SET name = 'same'", L"UNIQUE constraint failed: parts.name", L"23000");
}

TEST_F(BadInputSqlTest, TheNativeErrorIsSqlitesExtendedCode) {
    Outcome outcome = Client().Execute(L"INSERT INTO parts VALUES (4, 'bolt', 1)");
    EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: 23000, NativeError: 2067\n"))
        << ToUtf8(outcome.errorText);
    outcome = Client().Execute(L"INSERT INTO parts (id, name) VALUES (4, NULL)");
    EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: 23000, NativeError: 1299\n"))
        << ToUtf8(outcome.errorText);
}

TEST_F(BadInputSqlTest, AFailedStatementInATransactionLeavesTheTransactionUsable) {
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(S_OK, Client()->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    Client().Run(L"INSERT INTO parts VALUES (4, 'gear', 4)");
    Outcome refused = Client().Execute(L"INSERT INTO parts VALUES (5, 'gear', 5)");
    EXPECT_EQ(2, refused.result);
    Client().Run(L"INSERT INTO parts VALUES (6, 'shaft', 6)");
    ASSERT_EQ(S_OK, Client()->ConCommit(&ok));
    EXPECT_EQ(VARIANT_TRUE, ok);
    std::optional<Rows> rows = Client().Query(L"SELECT id, name, qty FROM parts WHERE id > 3 ORDER BY id");
    ASSERT_TRUE(rows);
    EXPECT_EQ((Rows{{L"4", L"gear", L"4"}, {L"6", L"shaft", L"6"}}), *rows) << Describe(*rows);

    // The same with a rollback: everything of the transaction goes, nothing before it.
    const std::string committed = DatabaseSnapshot(Client());
    ASSERT_EQ(S_OK, Client()->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    Client().Run(L"DELETE FROM parts WHERE id < 3");
    EXPECT_EQ(2, Client().Execute(L"UPDATE parts SET qty = -1").result);
    ASSERT_EQ(S_OK, Client()->ConRollback(&ok));
    EXPECT_EQ(VARIANT_TRUE, ok);
    EXPECT_EQ(committed, DatabaseSnapshot(Client()));
}

TEST_F(BadInputSqlTest, TheSameCommandRunsAgainAfterAFailureWithItsErrorTextCleared) {
    ULONG handle = 0;
    ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
    const std::vector<std::pair<const wchar_t*, SHORT>> steps = {
        {L"SELECT * FROM nowhere", 2}, {L"SELECT name FROM parts ORDER BY id", 1}, {L"SELEKT", 2}, {L"SELECT 1", 1}};
    for (const auto& [sql, expected] : steps) {
        SCOPED_TRACE(ToUtf8(sql));
        Bstr text(sql), xml, errorText, errorStmt;
        ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, text.get()));
        SHORT result = 0;
        ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put()));
        EXPECT_EQ(expected, result);
        EXPECT_EQ(expected == 1, errorText.empty()) << ToUtf8(errorText.str());
        EXPECT_EQ(expected == 1 ? std::wstring() : std::wstring(sql), errorStmt.str());
        if (expected == 1) {
            EXPECT_NE(nullptr, xml.get());
        }
    }
    SHORT moved = 0;
    ASSERT_EQ(S_OK, Client()->CmdFetchFirst(handle, &moved));
    EXPECT_EQ(1, moved);
    Bstr field;
    ASSERT_EQ(S_OK, Client()->CmdFieldAsString(handle, 1, field.put()));
    EXPECT_EQ(L"1", field.str());
    EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputSqlTest, ThreeHundredFailedStatementsInARowLeaveTheServerServing) {
    for (int i = 0; i < 300; ++i) {
        const wchar_t* sql = i % 3 == 0 ? L"SELEKT 1" : i % 3 == 1 ? L"SELECT * FROM nowhere" : L"INSERT INTO parts VALUES (1, 'x', 1)";
        Outcome outcome = Client().Execute(sql);
        ASSERT_EQ(S_OK, outcome.hr) << i;
        ASSERT_EQ(2, outcome.result) << i;
        ASSERT_FALSE(outcome.errorText.empty()) << i;
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    EXPECT_EQ(L"3", Client().Scalar(L"SELECT COUNT(*) FROM parts"));
}

}  // namespace
