// Command execution, binding and row movement, against the in-memory test provider so that
// every call the command makes can be watched.
#include "oledb/KobOleDbCommand.h"

#include <gtest/gtest.h>

#include "tests/oledb/FakeRowset.h"

using namespace zel;
using namespace zel::test;

namespace {

std::shared_ptr<FakeResult> NumbersResult(int rows) {
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"ID", DBTYPE_I4, 4}, {L"Title", DBTYPE_WSTR, 50}};
    for (int i = 1; i <= rows; ++i) result->rows.push_back({Value<LONG>(i), Text(L"row " + std::to_wstring(i))});
    return result;
}

class CommandTest : public testing::Test {
protected:
    void Open(std::shared_ptr<FakeResult> result) {
        connection = std::make_unique<FakeConnection>(result, log);
        command.SetConnection(connection.get());
        command.SetCommandText(L"SELECT * FROM parts");
    }
    LONG CurrentId() { return command.FieldAsLong(1); }

    std::shared_ptr<FakeLog> log = std::make_shared<FakeLog>();
    std::unique_ptr<FakeConnection> connection;
    KobOleDbCommand command;
};

}  // namespace

TEST_F(CommandTest, ExecuteWithEmptyTextIsNotApplicableAndKeepsPreviousErrorText) {
    Open(NumbersResult(1));
    command.SetErrors(L"earlier failure", L"earlier statement");
    command.SetCommandText(L"");
    EXPECT_EQ(kTriNotApplicable, command.Execute());
    EXPECT_EQ(L"earlier failure", command.GetErrorText());
    EXPECT_TRUE(log->commandTexts.empty());
}

TEST_F(CommandTest, ExecuteWithoutConnectionIsNotApplicable) {
    command.SetCommandText(L"SELECT 1");
    EXPECT_EQ(kTriNotApplicable, command.Execute());
    EXPECT_FALSE(command.IsConnected());
}

TEST_F(CommandTest, ExecuteAsksForTheScrollableUpdatableRowsetPropertiesInOrder) {
    Open(NumbersResult(1));
    ASSERT_EQ(kTriTrue, command.Execute());
    const std::vector<DBPROPID> ids = {DBPROP_IRowsetChange, DBPROP_UPDATABILITY, DBPROP_CANSCROLLBACKWARDS,
                                       DBPROP_ISequentialStream, DBPROP_IStream};
    const std::vector<DBPROPOPTIONS> options = {DBPROPOPTIONS_OPTIONAL, DBPROPOPTIONS_REQUIRED, DBPROPOPTIONS_REQUIRED,
                                                DBPROPOPTIONS_OPTIONAL, DBPROPOPTIONS_OPTIONAL};
    EXPECT_EQ(ids, log->rowsetProperties);
    EXPECT_EQ(options, log->rowsetOptions);
    EXPECT_EQ(std::vector<std::wstring>{L"SELECT * FROM parts"}, log->commandTexts);
}

TEST_F(CommandTest, StatementWithoutRowsSucceedsReportsCountAndFetchesNothing) {
    auto result = std::make_shared<FakeResult>();
    result->returnsRowset = false;
    result->rowsAffected = 3;
    Open(result);
    EXPECT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(3, command.GetRowsAffected());
    EXPECT_EQ(kTriFalse, command.FetchNext());
    EXPECT_EQ(0u, command.GetColumnCount());
}

TEST_F(CommandTest, FailedExecutionReportsNotApplicableWithStatement) {
    auto result = NumbersResult(1);
    result->executeResult = DB_E_ERRORSINCOMMAND;
    Open(result);
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(kTriNotApplicable, command.Execute());
    EXPECT_EQ(L"SELECT * FROM parts", command.GetErrorStatement());
    EXPECT_EQ(kTriNotApplicable, command.FetchNext());
}

TEST_F(CommandTest, FreshResultFetchPrevIsFalseThenFetchNextGivesFirstRow) {
    Open(NumbersResult(3));
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(kTriFalse, command.FetchPrev());
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(1, CurrentId());
}

TEST_F(CommandTest, FetchNextPastEndStaysAtEndWithoutAskingTheProvider) {
    Open(NumbersResult(2));
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(2, CurrentId());
    EXPECT_EQ(kTriFalse, command.FetchNext());
    int calls = log->getNextRows;
    EXPECT_EQ(kTriFalse, command.FetchNext());
    EXPECT_EQ(kTriFalse, command.FetchNext());
    EXPECT_EQ(calls, log->getNextRows);
    EXPECT_EQ(kTriTrue, command.FetchFirst());
    EXPECT_EQ(1, CurrentId());
}

TEST_F(CommandTest, FetchPrevAfterFetchLastGivesSecondToLastRow) {
    Open(NumbersResult(5));
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(kTriTrue, command.FetchLast());
    EXPECT_EQ(5, CurrentId());
    EXPECT_EQ(kTriTrue, command.FetchPrev());
    EXPECT_EQ(4, CurrentId());
    EXPECT_EQ(kTriTrue, command.FetchPrev());
    EXPECT_EQ(3, CurrentId());
    // The moves ask for one row: restart then skip -1, then skip -2 from after the last row.
    EXPECT_EQ((std::vector<DBROWOFFSET>{-1, -2, -2}), log->skips);
}

TEST_F(CommandTest, FetchNextAfterFailedFetchPrevStartsAgainAtFirstRow) {
    Open(NumbersResult(3));
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(kTriFalse, command.FetchPrev());  // runs off the front
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(1, CurrentId());
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(2, CurrentId());
}

TEST_F(CommandTest, BookmarkColumnIsNotCountedAndPositionOneIsFirstDataColumn) {
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"Bmk", DBTYPE_UI4, 4, DBCOLUMNFLAGS_ISBOOKMARK}, {L"ID", DBTYPE_I4, 4}, {L"Name", DBTYPE_WSTR, 10}};
    result->rows = {{Value<ULONG>(77), Value<LONG>(9), Text(L"nine")}};
    Open(result);
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(2u, command.GetColumnCount());
    ASSERT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(L"ID", command.GetColumnName(1));
    EXPECT_EQ(9, command.FieldAsLong(1));
    EXPECT_EQ(L"nine", command.FieldAsString(2));
    EXPECT_EQ(L"", command.FieldAsString(3));
}

TEST_F(CommandTest, TextColumnOfTenThousandCharactersIsBoundAsStorageObject) {
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"Notes", DBTYPE_WSTR, 10000, DBCOLUMNFLAGS_ISLONG}};
    result->rows = {{Text(std::wstring(10000, L'x'))}};
    Open(result);
    ASSERT_EQ(kTriTrue, command.Execute());
    ASSERT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(DBTYPE_IUNKNOWN, command.GetRawType(1));
    EXPECT_EQ(kTriTrue, command.IsBlob(1));
}

TEST_F(CommandTest, TextOfUpTo8000BytesIsBoundInlineAndLongerTextAsStorageObject) {
    // 4,000 wide characters and 8,000 narrow ones are 8,000 bytes: field text. One more
    // character makes a value longer than the blob threshold.
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"Wide", DBTYPE_WSTR, 4000}, {L"WideLonger", DBTYPE_WSTR, 4001},
                       {L"Narrow", DBTYPE_STR, 8000}, {L"NarrowLonger", DBTYPE_STR, 8001}};
    const std::wstring wide(4000, L'w');
    result->rows = {{Text(wide), Text(L"x"), Bytes(std::vector<BYTE>(8000, 'n')), Bytes({'y'})}};
    Open(result);
    ASSERT_EQ(kTriTrue, command.Execute());
    ASSERT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(DBTYPE_WSTR, command.GetRawType(1));
    EXPECT_EQ(kTriFalse, command.IsBlob(1));
    EXPECT_EQ(wide, command.FieldAsString(1));
    EXPECT_EQ(DBTYPE_IUNKNOWN, command.GetRawType(2));
    EXPECT_EQ(DBTYPE_STR, command.GetRawType(3));
    EXPECT_EQ(DBTYPE_IUNKNOWN, command.GetRawType(4));
}

TEST_F(CommandTest, CloseThenFetchNextIsNotApplicableAndReleasesRowsAndStreams) {
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"Notes", DBTYPE_WSTR, 9000, DBCOLUMNFLAGS_ISLONG}};
    result->rows = {{Text(L"a")}, {Text(L"b")}};
    Open(result);
    ASSERT_EQ(kTriTrue, command.Execute());
    ASSERT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(1, log->liveRows);
    EXPECT_EQ(1, log->liveStreams);
    ASSERT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(1, log->liveRows);
    EXPECT_EQ(1, log->liveStreams);
    command.Close();
    EXPECT_EQ(kTriNotApplicable, command.FetchNext());
    EXPECT_EQ(0, log->liveRows);
    EXPECT_EQ(0, log->liveStreams);
}

TEST_F(CommandTest, NewExecuteDropsPreviousRowsetAndRestartsBeforeFirst) {
    Open(NumbersResult(2));
    ASSERT_EQ(kTriTrue, command.Execute());
    ASSERT_EQ(kTriTrue, command.FetchLast());
    ASSERT_EQ(kTriTrue, command.Execute());
    EXPECT_EQ(0, log->liveRows);
    EXPECT_EQ(kTriTrue, command.FetchNext());
    EXPECT_EQ(1, CurrentId());
}

TEST_F(CommandTest, ClosedConnectionMakesCommandNotConnected) {
    Open(NumbersResult(1));
    EXPECT_TRUE(command.IsConnected());
    connection->Disconnect();
    EXPECT_FALSE(command.IsConnected());
    EXPECT_EQ(kTriNotApplicable, command.Execute());
}
