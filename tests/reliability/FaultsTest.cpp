// Processes that die and files that cannot be replaced. A server killed in the middle of a
// transaction loses that transaction and nothing else; a host killed while it holds handles
// and a transaction lets the server end on its own, and the database is whole; a compaction
// whose result cannot be moved over the database fails without touching the database.
#include <windows.h>
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/Bstr.h"
#include "tests/reliability/LockHolder.h"
#include "tests/reliability/ServerFixture.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::Bstr;

namespace {

constexpr DWORD kServerEndWait = 10000;
// COM's rundown of a dead client's references, then the server's own end.
constexpr DWORD kRundownWait = 20000;

std::wstring Label(int id) { return L"label " + std::to_wstring(id); }

// About 800 characters that differ from row to row (a VARCHAR(1000) value, read as text).
std::wstring Payload(int id) {
    std::wstring text;
    while (text.size() < 800) text += L"payload-" + std::to_wstring(id) + L"-" + std::to_wstring(text.size()) + L";";
    return text;
}

Row ExpectedRow(int id) { return Row{std::to_wstring(id), Label(id), Payload(id)}; }

std::wstring InsertRows(int first, int last) {
    std::wstring sql = L"INSERT INTO items VALUES ";
    for (int id = first; id <= last; ++id) {
        if (id != first) sql += L", ";
        sql += L"(" + std::to_wstring(id) + L", '" + Label(id) + L"', '" + Payload(id) + L"')";
    }
    return sql;
}

bool FileExists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// Wine 8.0 keeps handing out the class object of a local server that was killed: every
// activation fails with RPC_S_SERVER_UNAVAILABLE until the prefix's rpcss.exe, which holds the
// registration, ends (it does after a minute without any COM traffic). The tests end it
// themselves once they have killed a server; COM starts it again with the next activation.
void ForgetKilledServers() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (_wcsicmp(entry.szExeFile, L"rpcss.exe") != 0) continue;
        HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, entry.th32ProcessID);
        if (!process) continue;
        TerminateProcess(process, 1);
        WaitForSingleObject(process, kServerEndWait);
        CloseHandle(process);
    }
    CloseHandle(snapshot);
}

bool Kill(DWORD id) {
    HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
    if (!process) return false;
    const bool ended = TerminateProcess(process, 9) && WaitForSingleObject(process, kServerEndWait) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
}

class FaultsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { RegisterServerAndProviderOnce(); }

    void SetUp() override {
        // Each test needs a server process of its own.
        for (DWORD id : ServerProcessIds()) ASSERT_TRUE(WaitForProcessExit(id, kServerEndWait)) << "server " << id;
    }

    // A new service object, in a new server process whose id goes to `server`; on failure
    // the client is empty.
    ServiceClient Activate(DWORD* server) {
        const std::vector<DWORD> before = ServerProcessIds();
        ServiceClient client;
        HRESULT hr = client.Create();
        EXPECT_EQ(S_OK, hr) << "activation failed with " << std::hex << hr;
        *server = WaitForNewServerProcess(before, 5000).value_or(0);
        EXPECT_NE(0u, *server) << "no server process of its own";
        if (!*server) client.Release();
        return client;
    }

    // `ids` of table items, row by row, as the committed inserts wrote them.
    void ExpectRows(ServiceClient& client, const std::vector<int>& ids) {
        std::optional<Rows> rows = client.Query(L"SELECT id, label, payload FROM items ORDER BY id");
        ASSERT_TRUE(rows);
        ASSERT_EQ(ids.size(), rows->size());
        for (size_t i = 0; i < ids.size(); ++i) ASSERT_EQ(ExpectedRow(ids[i]), (*rows)[i]) << "row " << i;
        EXPECT_EQ(L"ok", client.Scalar(L"PRAGMA integrity_check"));
    }

    ScratchDatabase m_database;
};

TEST_F(FaultsTest, AServerKilledInTheMiddleOfATransactionLosesOnlyThatTransaction) {
    DWORD server = 0;
    ServiceClient client = Activate(&server);
    ASSERT_TRUE(client);
    ASSERT_EQ(S_OK, client.Open(m_database.ConnectionString()));
    ASSERT_TRUE(client.Run(L"CREATE TABLE items (id INTEGER PRIMARY KEY, label VARCHAR(40), payload VARCHAR(1000))"));
    std::vector<int> committed;
    for (int batch = 0; batch < 3; ++batch) {
        VARIANT_BOOL ok = VARIANT_FALSE;
        ASSERT_EQ(S_OK, client->ConStartTransaction(&ok));
        ASSERT_EQ(VARIANT_TRUE, ok);
        ASSERT_TRUE(client.Run(InsertRows(batch * 100 + 1, batch * 100 + 100)));
        ASSERT_EQ(S_OK, client->ConCommit(&ok));
        ASSERT_EQ(VARIANT_TRUE, ok);
        for (int id = batch * 100 + 1; id <= batch * 100 + 100; ++id) committed.push_back(id);
    }

    // A transaction that changes every page: with a small page cache its changes go into the
    // database file before the commit, and the journal holds the pages as they were.
    ASSERT_TRUE(client.Run(L"PRAGMA cache_size = 4"));
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(S_OK, client->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    ASSERT_TRUE(client.Run(L"UPDATE items SET payload = upper(payload) || ' changed', label = 'changed'"));
    ASSERT_TRUE(client.Run(L"DELETE FROM items WHERE id % 3 = 0"));
    ASSERT_TRUE(client.Run(InsertRows(1001, 1100)));
    EXPECT_TRUE(FileExists(m_database.Path() + L"-journal")) << "no journal while the transaction runs";

    ASSERT_TRUE(Kill(server));

    // The client learns it at its next call, without waiting long.
    const DWORD start = GetTickCount();
    VARIANT_BOOL connected = VARIANT_TRUE;
    EXPECT_TRUE(FAILED(client->ConIsConnected(&connected)));
    EXPECT_LT(GetTickCount() - start, 10000u);
    client.Release();
    EXPECT_TRUE(FileExists(m_database.Path() + L"-journal")) << "the journal of the killed transaction";
    ForgetKilledServers();

    // A new server rolls the transaction back when it opens the file: every committed row is
    // there as it was committed, nothing of the killed transaction is.
    DWORD next = 0;
    ServiceClient again = Activate(&next);
    ASSERT_TRUE(again);
    ASSERT_EQ(S_OK, again.Open(m_database.ConnectionString()));
    ExpectRows(again, committed);
    EXPECT_FALSE(FileExists(m_database.Path() + L"-journal")) << "the journal was not played back";
    ASSERT_TRUE(again.Run(InsertRows(301, 301)));
    again->ConClose();
}

TEST_F(FaultsTest, AHostKilledWhileHoldingHandlesLetsTheServerEndAndLeavesTheDatabaseWhole) {
    std::vector<int> committed;
    {
        DWORD server = 0;
        ServiceClient client = Activate(&server);
        ASSERT_TRUE(client);
        ASSERT_EQ(S_OK, client.Open(m_database.ConnectionString()));
        ASSERT_TRUE(client.Run(L"CREATE TABLE items (id INTEGER PRIMARY KEY, label VARCHAR(40), payload VARCHAR(1000))"));
        ASSERT_TRUE(client.Run(InsertRows(1, 50)));
        for (int id = 1; id <= 50; ++id) committed.push_back(id);
        client->ConClose();
        client.Release();
        ASSERT_TRUE(WaitForProcessExit(server, kServerEndWait));
    }

    const std::wstring readyName = L"Local\\ZelReliabilityHost-" + std::to_wstring(GetCurrentProcessId());
    HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, readyName.c_str());
    ASSERT_NE(nullptr, ready);
    const std::vector<DWORD> before = ServerProcessIds();
    ChildProcess host(L"\"" + HostPath() + L"\" hold \"" + m_database.Path() + L"\" " + readyName);
    ASSERT_TRUE(host.started());
    DWORD waited = WaitForSingleObject(ready, 30000);
    CloseHandle(ready);
    ASSERT_EQ(WAIT_OBJECT_0, waited) << "the host did not get its handles; exit code " << host.ExitCode();
    std::optional<DWORD> server = WaitForNewServerProcess(before, 1000);
    ASSERT_TRUE(server.has_value());

    ASSERT_TRUE(Kill(host.id()));

    std::optional<DWORD> took = WaitForProcessExit(*server, kRundownWait);
    EXPECT_TRUE(took.has_value()) << "the server kept running " << kRundownWait << " ms after its only host died";
    if (took) {
        std::printf("the server ended %lu ms after its host was killed\n", static_cast<unsigned long>(*took));
    } else {
        // It would hold the dead host's transaction for ever; end it to check the file.
        ASSERT_TRUE(Kill(*server));
        ForgetKilledServers();
    }

    DWORD next = 0;
    ServiceClient again = Activate(&next);
    ASSERT_TRUE(again);
    ASSERT_EQ(S_OK, again.Open(m_database.ConnectionString()));
    ExpectRows(again, committed);
    // No lock of the dead host is left behind.
    ASSERT_TRUE(again.Run(InsertRows(51, 51)));
    again->ConClose();
}

TEST_F(FaultsTest, ACompactionThatCannotReplaceTheDatabaseFailsAndLeavesItWhole) {
    DWORD server = 0;
    ServiceClient client = Activate(&server);
    ASSERT_TRUE(client);
    ASSERT_EQ(S_OK, client.Open(m_database.ConnectionString()));
    ASSERT_TRUE(client.Run(L"CREATE TABLE items (id INTEGER PRIMARY KEY, label VARCHAR(40), payload VARCHAR(1000))"));
    ASSERT_TRUE(client.Run(L"CREATE TABLE locks (what VARCHAR(40))"));
    ASSERT_TRUE(client.Run(InsertRows(1, 200)));
    ASSERT_TRUE(client.Run(L"DELETE FROM items WHERE id > 100"));
    std::vector<int> committed;
    for (int id = 1; id <= 100; ++id) committed.push_back(id);

    // Another process keeps the database file open, so it cannot be replaced.
    LockHolder holder(L"open", m_database.Path());
    ASSERT_TRUE(holder.Holding());
    const std::wstring temporary = m_database.Directory() + L"\\test_TMP_.mdb";
    EXPECT_EQ(E_FAIL, client->ConCompactMdb());
    EXPECT_TRUE(FileExists(temporary)) << "the compacted copy stays on disk";
    VARIANT_BOOL connected = VARIANT_TRUE;
    ASSERT_EQ(S_OK, client->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected) << "the compaction leaves the connection closed";
    ASSERT_EQ(0u, holder.Release().value_or(99));

    ASSERT_EQ(S_OK, client.Open(m_database.ConnectionString()));
    ExpectRows(client, committed);
    // The compacted copy is a whole database with the same rows.
    ASSERT_EQ(S_OK, client.Open(ProviderConnection(temporary)));
    ExpectRows(client, committed);
    client->ConClose();
    DeleteFileW(temporary.c_str());
}

}  // namespace
