// Database files that are not what the host expects: a missing directory or file, a
// read-only file, a file that is not a database, a truncated database, a path with
// characters outside ASCII, and a file whose write lock another process holds. Each gives a
// clear error (or works, where it can), never a hang; the file is not changed by a failure,
// and the server goes on serving.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/Bstr.h"
#include "tests/reliability/LockHolder.h"
#include "tests/reliability/ServerFixture.h"

using namespace zel::test;
using zel::Bstr;

namespace {

std::vector<char> FileBytes(const std::wstring& path) {
    std::vector<char> bytes;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return bytes;
    LARGE_INTEGER size{};
    GetFileSizeEx(file, &size);
    bytes.resize(static_cast<size_t>(size.QuadPart));
    DWORD read = 0;
    if (!bytes.empty()) ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    CloseHandle(file);
    bytes.resize(read);
    return bytes;
}

bool WriteBytes(const std::wstring& path, const std::vector<char>& bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    BOOL ok = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    return ok && written == bytes.size();
}

class BadInputFileTest : public ServerFixture {
protected:
    // A database with `rows` rows of about 200 bytes in table "items", closed again.
    void MakeItems(int rows) {
        Client().Run(L"CREATE TABLE items (id INTEGER PRIMARY KEY, label VARCHAR(250))");
        Client().Run(L"CREATE TABLE locks (what VARCHAR(40))");
        Client().Run(
            L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_wstring(rows) +
            L") INSERT INTO items SELECT i, printf('item %05d ', i) || substr(hex(randomblob(100)), 1, 180) FROM n");
        m_items = DatabaseSnapshot(Client());
        ASSERT_EQ(S_OK, Client()->ConClose());
    }

    // The server's answer to opening `initString`: the HRESULT and the error text, and then
    // proof that it still opens the test's own database.
    HRESULT OpenExpectingFailure(const std::wstring& initString, std::wstring* errorText) {
        HRESULT hr = Client().Open(initString, errorText);
        VARIANT_BOOL connected = VARIANT_TRUE;
        EXPECT_EQ(S_OK, Client()->ConIsConnected(&connected));
        EXPECT_EQ(hr == S_OK ? VARIANT_TRUE : VARIANT_FALSE, connected);
        return hr;
    }

    void ExpectStillServing() {
        OpenOrFail(Database().ConnectionString());
        EXPECT_EQ(L"1", Client().Scalar(L"SELECT 1"));
    }

    std::string m_items;
};

TEST_F(BadInputFileTest, AMissingDirectoryOrFileIsReportedAsNotExisting) {
    for (const std::wstring& path : {Database().Directory() + L"\\no\\such\\folder\\x.db",
                                     Database().Directory() + L"\\missing.db", Database().Directory(),
                                     std::wstring(L"Q:\\no-drive\\x.db")}) {
        SCOPED_TRACE(ToUtf8(path));
        std::wstring errorText;
        EXPECT_EQ(E_FAIL, OpenExpectingFailure(ProviderConnection(path), &errorText));
        EXPECT_NE(std::wstring::npos, errorText.find(L"does not exist")) << ToUtf8(errorText);
        EXPECT_NE(std::wstring::npos, errorText.find(L"SQLState: 08001")) << ToUtf8(errorText);
        EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW((Database().Directory() + L"\\missing.db").c_str()))
            << "opening must not create the file";
    }
    ExpectStillServing();
}

// Under Wine a read-only mark is the file's Unix write permission, which does not stop a
// process running as root: the provider itself opens such a file read-only.
TEST_F(BadInputFileTest, AReadOnlyFileIsReadAndRefusesWritesWithoutChanging) {
    MakeItems(50);
    const std::vector<char> before = FileBytes(Database().Path());
    ASSERT_TRUE(SetFileAttributesW(Database().Path().c_str(), FILE_ATTRIBUTE_READONLY));
    std::wstring errorText;
    ASSERT_EQ(S_OK, Client().Open(Database().ConnectionString(), &errorText)) << ToUtf8(errorText);
    EXPECT_EQ(L"50", Client().Scalar(L"SELECT COUNT(*) FROM items"));
    for (const wchar_t* sql : {L"INSERT INTO items VALUES (51, 'new')", L"DELETE FROM items", L"CREATE TABLE t (a INTEGER)"}) {
        Outcome outcome = Client().Execute(sql);
        EXPECT_EQ(2, outcome.result) << ToUtf8(sql);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"readonly database")) << ToUtf8(outcome.errorText);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: 25006")) << ToUtf8(outcome.errorText);
    }
    VARIANT_BOOL readOnly = VARIANT_FALSE;
    ASSERT_EQ(S_OK, Client()->ConIsReadOnly(&readOnly));
    EXPECT_EQ(VARIANT_TRUE, readOnly);
    EXPECT_EQ(m_items, DatabaseSnapshot(Client()));
    ASSERT_EQ(S_OK, Client()->ConClose());
    EXPECT_TRUE(before == FileBytes(Database().Path())) << "the read-only file changed";
    SetFileAttributesW(Database().Path().c_str(), FILE_ATTRIBUTE_NORMAL);
    ExpectStillServing();
}

TEST_F(BadInputFileTest, AFileThatIsNotADatabaseIsRefusedAndLeftAsItWas) {
    ASSERT_EQ(S_OK, Client()->ConClose());
    std::vector<char> text;
    for (int i = 0; i < 200; ++i) {
        const char line[] = "This is a plain text file, not a database.\r\n";
        text.insert(text.end(), line, line + sizeof line - 1);
    }
    ASSERT_TRUE(WriteBytes(Database().Path(), text));
    std::wstring errorText;
    EXPECT_EQ(E_FAIL, OpenExpectingFailure(Database().ConnectionString(), &errorText));
    EXPECT_NE(std::wstring::npos, errorText.find(L"file is not a database")) << ToUtf8(errorText);
    EXPECT_NE(std::wstring::npos, errorText.find(L"SQLState: 08001")) << ToUtf8(errorText);
    EXPECT_TRUE(text == FileBytes(Database().Path())) << "the file was changed";
    ASSERT_TRUE(WriteBytes(Database().Path(), {}));
    ExpectStillServing();
}

TEST_F(BadInputFileTest, ATruncatedDatabaseGivesClearErrorsAndNoCrash) {
    MakeItems(2000);
    const std::vector<char> whole = FileBytes(Database().Path());
    ASSERT_GT(whole.size(), 100000u);
    // Cut in the middle of the data, and inside the first page (the header stays whole).
    for (size_t size : {whole.size() / 2, size_t{2048}}) {
        SCOPED_TRACE(size);
        const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        ASSERT_TRUE(WriteBytes(Database().Path(), cut));
        std::wstring errorText;
        HRESULT hr = OpenExpectingFailure(Database().ConnectionString(), &errorText);
        if (hr == S_OK) {
            // The schema page survived: reading the lost pages fails.
            Outcome outcome = Client().Execute(L"SELECT COUNT(*), SUM(length(label)) FROM items");
            EXPECT_EQ(2, outcome.result);
            EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"database disk image is malformed"))
                << ToUtf8(outcome.errorText);
            EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: HY000")) << ToUtf8(outcome.errorText);
            Client()->ConClose();
        } else {
            EXPECT_EQ(E_FAIL, hr);
            EXPECT_TRUE(errorText.find(L"malformed") != std::wstring::npos ||
                        errorText.find(L"not a database") != std::wstring::npos)
                << ToUtf8(errorText);
        }
        EXPECT_TRUE(cut == FileBytes(Database().Path())) << "reading changed the truncated file";
    }
    ASSERT_TRUE(WriteBytes(Database().Path(), {}));
    ExpectStillServing();
}

TEST_F(BadInputFileTest, APathWithCharactersOutsideAsciiWorks) {
    ASSERT_EQ(S_OK, Client()->ConClose());
    const std::wstring folder = Database().Directory() + L"\\B\x00E4ume \xD83D\xDE00 \x30C7\x30FC\x30BF";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    const std::wstring path = folder + L"\\donn\x00E9" L"es \x2713.db";
    ASSERT_TRUE(WriteBytes(path, {}));
    std::wstring errorText;
    ASSERT_EQ(S_OK, Client().Open(ProviderConnection(path), &errorText)) << ToUtf8(errorText);
    ASSERT_TRUE(Client().Run(L"CREATE TABLE t (a VARCHAR(20))"));
    ASSERT_TRUE(Client().Run(L"INSERT INTO t VALUES ('\x00E9t\x00E9')"));
    EXPECT_EQ(L"\x00E9t\x00E9", Client().Scalar(L"SELECT a FROM t"));
    Bstr source;
    ASSERT_EQ(S_OK, Client()->ConGetDatasource(source.put()));
    EXPECT_NE(std::wstring::npos, source.str().find(L"donn\x00E9" L"es \x2713.db")) << ToUtf8(source.str());
    ASSERT_EQ(S_OK, Client()->ConClose());
    EXPECT_GT(FileBytes(path).size(), 0u);
    DeleteFileW(path.c_str());
    RemoveDirectoryW(folder.c_str());
}

class LockedFileTest : public BadInputFileTest {
protected:
    // Runs `sql` and returns the outcome and the milliseconds it took.
    std::pair<Outcome, DWORD> Timed(const std::wstring& sql) {
        const DWORD start = GetTickCount();
        Outcome outcome = Client().Execute(sql);
        return {outcome, GetTickCount() - start};
    }

    void ExpectBusy(const std::pair<Outcome, DWORD>& timed, DWORD timeout) {
        EXPECT_EQ(2, timed.first.result);
        EXPECT_NE(std::wstring::npos, timed.first.errorText.find(L"database is locked")) << ToUtf8(timed.first.errorText);
        EXPECT_NE(std::wstring::npos, timed.first.errorText.find(L"SQLState: HYT00")) << ToUtf8(timed.first.errorText);
        EXPECT_GE(timed.second + 100, timeout) << "gave up before the busy timeout";
        EXPECT_LT(timed.second, timeout + 5000) << "waited far beyond the busy timeout";
    }
};

TEST_F(LockedFileTest, AWriteTransactionOfAnotherProcessGivesTheBusyErrorAfterTheTimeout) {
    MakeItems(20);
    LockHolder holder(L"write", Database().Path());
    ASSERT_TRUE(holder.Holding()) << "the lock holder did not start";
    OpenOrFail(Database().ConnectionString(L";Busy Timeout=1000"));

    // Reading goes on; the holder's row is not visible.
    EXPECT_EQ(L"20", Client().Scalar(L"SELECT COUNT(*) FROM items"));
    EXPECT_EQ(L"0", Client().Scalar(L"SELECT COUNT(*) FROM locks"));
    ExpectBusy(Timed(L"INSERT INTO items VALUES (21, 'blocked')"), 1000);
    ExpectBusy(Timed(L"UPDATE items SET label = 'blocked'"), 1000);
    const DWORD start = GetTickCount();
    VARIANT_BOOL started = VARIANT_TRUE;
    ASSERT_EQ(S_OK, Client()->ConStartTransaction(&started));
    EXPECT_EQ(VARIANT_FALSE, started);
    EXPECT_LT(GetTickCount() - start, 6000u);

    // Once the holder rolled back and ended, writing works and nothing of its row is left.
    ASSERT_EQ(0u, holder.Release().value_or(99));
    ASSERT_TRUE(Client().Run(L"INSERT INTO items VALUES (21, 'after')"));
    EXPECT_EQ(L"0", Client().Scalar(L"SELECT COUNT(*) FROM locks"));
    EXPECT_EQ(L"21", Client().Scalar(L"SELECT COUNT(*) FROM items"));
}

TEST_F(LockedFileTest, TheDefaultBusyTimeoutBoundsTheWait) {
    MakeItems(20);
    LockHolder holder(L"write", Database().Path());
    ASSERT_TRUE(holder.Holding()) << "the lock holder did not start";
    OpenOrFail(Database().ConnectionString());
    ExpectBusy(Timed(L"DELETE FROM items"), 5000);
    ASSERT_EQ(0u, holder.Release().value_or(99));
    EXPECT_EQ(m_items, DatabaseSnapshot(Client()));
}

}  // namespace
