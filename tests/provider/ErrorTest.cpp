// The provider's error objects: one record per failure with source, description, and an
// ISQLErrorInfo carrying an SQLSTATE and SQLite's extended result code; the OLE DB result codes
// of bad SQL, missing tables, constraint violations and a locked file.
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class ErrorReporting : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE parent (id INTEGER PRIMARY KEY)");
        c.Run(L"CREATE TABLE child (id INTEGER PRIMARY KEY, code TEXT(5) UNIQUE NOT NULL, "
              L"qty INTEGER CHECK (qty >= 0), parent INTEGER REFERENCES parent(id))");
        c.Run(L"INSERT INTO parent VALUES (1)");
        c.Run(L"INSERT INTO child VALUES (1, 'a', 1, 1)");
        SetErrorInfo(0, nullptr);
    }
    ErrorRecordText OnlyRecord() {
        auto records = TakeErrorRecords();
        EXPECT_EQ(1u, records.size());
        return records.empty() ? ErrorRecordText{} : records[0];
    }
    TempDatabase db;
    Connection c;
};

TEST_F(ErrorReporting, BadSqlGivesErrorsInCommandWithSqlState42000) {
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, c.TryExecute(L"SELEC 1"));
    ErrorRecordText e = OnlyRecord();
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, e.hr);
    EXPECT_EQ(L"ZelLite OLE DB Provider", e.source);
    EXPECT_NE(std::wstring::npos, e.description.find(L"syntax error")) << testing::PrintToString(e.description);
    EXPECT_NE(std::wstring::npos, e.description.find(L"SELEC 1"));
    EXPECT_EQ(L"42000", e.sqlState);
    EXPECT_EQ(1, e.nativeError);
}

TEST_F(ErrorReporting, AnUnpairedSurrogateInTheStatementIsRefusedBeforeAnythingRuns) {
    // A lone high surrogate before a letter, a lone low one before the closing quote, and a
    // valid statement ahead of a broken one in the same command text.
    for (const std::wstring& sql : {std::wstring(L"INSERT INTO parent VALUES (2); SELECT 'a\xD800" L"b'"),
                                    std::wstring(L"INSERT INTO child VALUES (2, 'b\xDC00', 1, 1)"),
                                    std::wstring(L"INSERT INTO parent VALUES (3); INSERT INTO child VALUES (3, '\xD800', 1, 1)")}) {
        EXPECT_EQ(DB_E_ERRORSINCOMMAND, c.TryExecute(sql));
        ErrorRecordText e = OnlyRecord();
        EXPECT_EQ(L"22021", e.sqlState);
        EXPECT_NE(std::wstring::npos, e.description.find(L"not valid UTF-16")) << testing::PrintToString(e.description);
    }
    ComPtr<IRowset> rows = c.Query(L"SELECT (SELECT COUNT(*) FROM parent) || '/' || (SELECT COUNT(*) FROM child)");
    EXPECT_EQ(L"1/1", ReadAllAsText(rows.get()).at(0).at(0)) << "a row was written";
    // A pair is a character like any other.
    c.Run(L"INSERT INTO child VALUES (2, '\xD83D\xDE00', 1, 1)");
}

TEST_F(ErrorReporting, AMissingTableGivesNoTableWithSqlState42S02) {
    EXPECT_EQ(DB_E_NOTABLE, c.TryExecute(L"SELECT * FROM nowhere"));
    ErrorRecordText e = OnlyRecord();
    EXPECT_NE(std::wstring::npos, e.description.find(L"no such table: nowhere"));
    EXPECT_EQ(L"42S02", e.sqlState);
}

TEST_F(ErrorReporting, AMissingColumnIsAnErrorInTheCommand) {
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, c.TryExecute(L"SELECT missing_column FROM child"));
    EXPECT_EQ(L"42S22", OnlyRecord().sqlState);
}

TEST_F(ErrorReporting, ConstraintViolationsGiveIntegrityViolationWithSqlState23000) {
    struct Case {
        const wchar_t* sql;
        LONG extended;
    } cases[] = {
        {L"INSERT INTO child VALUES (2, 'a', 1, 1)", 2067},      // UNIQUE
        {L"INSERT INTO child VALUES (1, 'b', 1, 1)", 1555},      // PRIMARY KEY
        {L"INSERT INTO child VALUES (3, NULL, 1, 1)", 1299},     // NOT NULL
        {L"INSERT INTO child VALUES (4, 'c', -1, 1)", 275},      // CHECK
        {L"INSERT INTO child VALUES (5, 'd', 1, 99)", 787},      // FOREIGN KEY
    };
    for (const auto& k : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(k.sql)));
        EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(k.sql));
        ErrorRecordText e = OnlyRecord();
        EXPECT_EQ(L"23000", e.sqlState);
        EXPECT_EQ(k.extended, e.nativeError);
        EXPECT_NE(std::wstring::npos, e.description.find(L"constraint failed")) << testing::PrintToString(e.description);
    }
}

TEST_F(ErrorReporting, TheTopLevelErrorInfoDescribesTheFirstRecord) {
    EXPECT_EQ(DB_E_NOTABLE, c.TryExecute(L"DELETE FROM nowhere"));
    ComPtr<IErrorInfo> info;
    ASSERT_EQ(S_OK, GetErrorInfo(0, info.put()));
    zel::Bstr source, description;
    ASSERT_EQ(S_OK, info->GetSource(source.put()));
    ASSERT_EQ(S_OK, info->GetDescription(description.put()));
    EXPECT_EQ(L"ZelLite OLE DB Provider", source.str());
    EXPECT_NE(std::wstring::npos, description.str().find(L"nowhere"));
    zel::Bstr helpFile;
    EXPECT_EQ(S_OK, info->GetHelpFile(helpFile.put()));
    DWORD context = 1;
    EXPECT_EQ(S_OK, info->GetHelpContext(&context));
    EXPECT_EQ(0u, context);
}

TEST_F(ErrorReporting, ObjectsDeclareThatTheyPublishErrorInfo) {
    auto command = c.NewCommand(L"SELECT 1");
    EXPECT_EQ(S_OK, command.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(IID_ICommand));
    EXPECT_EQ(S_OK, c.session.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(IID_IOpenRowset));
    EXPECT_EQ(S_OK, c.dataSource.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(IID_IDBInitialize));
    EXPECT_EQ(S_FALSE, c.dataSource.as<ISupportErrorInfo>()->InterfaceSupportsErrorInfo(IID_IDispatch));
}

TEST_F(ErrorReporting, AWarningCarriesNoStaleErrorObject) {
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, c.TryExecute(L"SELEC 1"));  // leaves an error object behind
    auto rowset = c.Query(L"SELECT id FROM parent");
    HRESULT hr = S_OK;
    FetchFirstColumn(rowset.get(), 0, 1, &hr);
    FetchFirstColumn(rowset.get(), 0, 1, &hr);
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
    ComPtr<IErrorInfo> info;
    EXPECT_EQ(S_FALSE, GetErrorInfo(0, info.put()));
}

TEST_F(ErrorReporting, ALockedFileMakesAWriterWaitThenFailWithTimeout) {
    auto holder = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(holder.session);
    ASSERT_EQ(S_OK, holder.session.as<ITransactionLocal>()->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr,
                                                                              nullptr));
    holder.Run(L"INSERT INTO parent VALUES (2)");

    auto waiter = Connection::Open(db.ConnectionString(L"Busy Timeout=300"));
    ASSERT_TRUE(waiter.session);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(DB_E_TIMEOUT, waiter.TryExecute(L"INSERT INTO parent VALUES (3)"));
    auto waited = std::chrono::steady_clock::now() - start;
    ErrorRecordText e = OnlyRecord();
    EXPECT_EQ(L"HYT00", e.sqlState);
    EXPECT_EQ(5, e.nativeError & 0xFF);  // SQLite's "busy"
    EXPECT_NE(std::wstring::npos, e.description.find(L"locked")) << testing::PrintToString(e.description);
    EXPECT_GE(waited, std::chrono::milliseconds(250));
    EXPECT_LT(waited, std::chrono::seconds(10));

    ASSERT_EQ(S_OK, holder.session.as<ITransaction>()->Commit(FALSE, XACTTC_SYNC, 0));
    EXPECT_EQ(1, waiter.Run(L"INSERT INTO parent VALUES (3)"));
}

TEST_F(ErrorReporting, AWriterWaitsForALockThatIsReleasedInTime) {
    HANDLE locked = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const std::wstring connection = db.ConnectionString();
    std::thread holder([&] {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        {
            auto other = Connection::Open(connection);
            other.session.as<ITransactionLocal>()->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr);
            other.Run(L"INSERT INTO parent VALUES (10)");
            SetEvent(locked);
            Sleep(400);
            other.session.as<ITransaction>()->Commit(FALSE, XACTTC_SYNC, 0);
        }
        CoUninitialize();
    });
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(locked, 10000));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(1, c.Run(L"INSERT INTO parent VALUES (11)"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    holder.join();
    CloseHandle(locked);
    auto rows = ReadAllAsText(c.Query(L"SELECT count(*) FROM parent").get());
    EXPECT_EQ(L"3", rows[0][0]);
}

}  // namespace
