// Bad input and faults on the way from the server through ZelOdbc to PostgreSQL, from a host
// of this tree's bitness: no server on the port, a wrong password, an unknown DSN or driver,
// the connection's backend ended during a query and during a transaction, a statement the
// server cancels. Each ends with the server process still serving and nothing committed lost.
#include "tests/server/OdbcServerSupport.h"

using namespace zel::test;
using namespace zel::test::odbc;
using zel::Bstr;

namespace {

std::wstring g_connection;
std::wstring g_port;

constexpr wchar_t kProvider[] = L"Provider=ZelOdbc.OLEDB.1;";

std::wstring PgConnection(const std::wstring& port, const std::wstring& user, const std::wstring& password = L"") {
    std::wstring out = L"DRIVER={PostgreSQL Unicode};SERVER=127.0.0.1;PORT=" + port + L";DATABASE=zeltest;UID=" + user + L";";
    if (!password.empty()) out += L"PWD=" + password + L";";
    return out;
}

class OdbcFaultTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(RegisterServerAndProviders());
        g_connection = ReadConnectionText();
        const size_t at = g_connection.find(L"PORT=");
        ASSERT_NE(std::wstring::npos, at) << testing::PrintToString(g_connection);
        g_port = g_connection.substr(at + 5, g_connection.find(L';', at) - at - 5);
        ASSERT_FALSE(g_port.empty());
    }

    void SetUp() override { ASSERT_EQ(S_OK, m_client.created()); }

    // The object serves a good connection after whatever went before.
    static void ExpectServes(Client& client) {
        std::wstring error;
        client->ConClose();
        ASSERT_EQ(S_OK, client.Open(kProvider + g_connection, &error)) << testing::PrintToString(error);
        EXPECT_EQ((std::vector<std::wstring>{L"?column?", L"1"}), client.Texts(L"SELECT 1"));
    }

    Client m_client;
};

TEST_F(OdbcFaultTest, NoServerOnThePortIs08001AndTheNextConnectWorks) {
    std::wstring error;
    // Port 1 on loopback: nothing listens, the connection is refused at once.
    EXPECT_NE(S_OK, m_client.Open(kProvider + PgConnection(L"1", L"postgres"), &error));
    EXPECT_TRUE(Contains(error, L"SQLState: 08001")) << testing::PrintToString(error);
    VARIANT_BOOL connected = VARIANT_TRUE;
    ASSERT_EQ(S_OK, m_client->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected);
    ExpectServes(m_client);
}

TEST_F(OdbcFaultTest, AnUnknownDsnOrDriverIsIM002) {
    std::wstring error;
    EXPECT_NE(S_OK, m_client.Open(L"Provider=ZelOdbc.OLEDB.1;Data Source=ZelNoSuchDsn", &error));
    EXPECT_TRUE(Contains(error, L"SQLState: IM002")) << testing::PrintToString(error);
    // An unknown driver name: unixODBC has no IM002 for it, it tries the name as a library
    // and fails with "Can't open lib" under SQLSTATE 01000 (its only record).
    EXPECT_NE(S_OK, m_client.Open(L"Provider=ZelOdbc.OLEDB.1;Extended Properties=\"DRIVER={Zel No Such Driver};\"", &error));
    EXPECT_TRUE(Contains(error, L"Can't open lib 'Zel No Such Driver'")) << testing::PrintToString(error);
    EXPECT_TRUE(Contains(error, L"SQLState: 01000")) << testing::PrintToString(error);
    ExpectServes(m_client);
}

TEST_F(OdbcFaultTest, AWrongPasswordFailsTheConnectAndTheRightOneWorks) {
    // A role that must give its password: the cluster trusts everyone on loopback, so a line
    // before the others asks this role alone for SCRAM, and the server reloads its rules.
    {
        Client admin;
        ASSERT_EQ(S_OK, admin.Open(kProvider + g_connection));
        admin.Run(L"DROP ROLE IF EXISTS zel_pw");
        admin.Run(L"CREATE ROLE zel_pw LOGIN PASSWORD 'right-pw'");
        // (SHOW answers in text, and psqlODBC reports text and any varchar longer than its
        // MaxVarcharSize, 255 by default, as long columns, whose field text is empty.)
        const std::vector<std::wstring> hba =
            admin.Texts(L"SELECT setting::varchar(200) AS f FROM pg_settings WHERE name = 'hba_file'");
        ASSERT_EQ(2u, hba.size());
        admin.Run(L"COPY (SELECT line FROM (VALUES (1, 'host all zel_pw 127.0.0.1/32 scram-sha-256'), "
                  L"(2, 'local all all trust'), (3, 'host all all 127.0.0.1/32 trust')) AS v (n, line) ORDER BY n) "
                  L"TO '" + hba[1] + L"'");
        EXPECT_EQ((std::vector<std::wstring>{L"pg_reload_conf", L"1"}), admin.Texts(L"SELECT pg_reload_conf()"));
        Sleep(500);  // the postmaster rereads the file on its signal
    }
    std::wstring error;
    EXPECT_NE(S_OK, m_client.Open(kProvider + PgConnection(g_port, L"zel_pw", L"wrong-pw"), &error));
    // psqlODBC reports the server's 28P01 as a failed connection, 08001, with libpq's message.
    EXPECT_TRUE(Contains(error, L"password authentication failed for user \"zel_pw\"")) << testing::PrintToString(error);
    EXPECT_TRUE(Contains(error, L"SQLState: 08001")) << testing::PrintToString(error);
    m_client->ConClose();
    ASSERT_EQ(S_OK, m_client.Open(kProvider + PgConnection(g_port, L"zel_pw", L"right-pw"), &error))
        << testing::PrintToString(error);
    EXPECT_EQ((std::vector<std::wstring>{L"current_user", L"zel_pw"}), m_client.Texts(L"SELECT current_user"));
    ExpectServes(m_client);
}

TEST_F(OdbcFaultTest, ABackendEndedDuringAQueryFailsThatQueryAndTheNextConnectWorks) {
    ASSERT_EQ(S_OK, m_client.Open(kProvider + g_connection));
    // The backend ends itself while it runs the statement: the server's FATAL 57P01
    // ("terminating connection due to administrator command") or the lost connection (08xxx).
    Execution e = m_client.Execute(L"SELECT pg_terminate_backend(pg_backend_pid()), pg_sleep(1)");
    EXPECT_EQ(2, e.result);
    EXPECT_TRUE(Contains(e.errorText, L"SQLState: 57P01") || Contains(e.errorText, L"SQLState: 08"))
        << testing::PrintToString(e.errorText);
    // The connection is gone: the next statement fails too, with a connection state.
    Execution next = m_client.Execute(L"SELECT 1");
    EXPECT_EQ(2, next.result);
    EXPECT_TRUE(Contains(next.errorText, L"SQLState: 08") || Contains(next.errorText, L"SQLState: 57P01"))
        << testing::PrintToString(next.errorText);
    ExpectServes(m_client);
}

TEST_F(OdbcFaultTest, ABackendEndedDuringATransactionLosesOnlyThatTransaction) {
    Client admin;
    ASSERT_EQ(S_OK, admin.Open(kProvider + g_connection));
    admin.Run(L"DROP TABLE IF EXISTS zt_fault_tx");
    admin.Run(L"CREATE TABLE zt_fault_tx (a integer)");
    admin.Run(L"INSERT INTO zt_fault_tx VALUES (1)");

    ASSERT_EQ(S_OK, m_client.Open(kProvider + g_connection));
    const std::vector<std::wstring> pid = m_client.Texts(L"SELECT pg_backend_pid() AS pid");
    ASSERT_EQ(2u, pid.size());
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_client->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    m_client.Run(L"INSERT INTO zt_fault_tx VALUES (2)");
    // Another connection ends this one's backend while the transaction is open.
    EXPECT_EQ((std::vector<std::wstring>{L"pg_terminate_backend", L"1"}),
              admin.Texts(L"SELECT pg_terminate_backend(" + pid[1] + L")"));
    Sleep(200);
    Execution after = m_client.Execute(L"INSERT INTO zt_fault_tx VALUES (3)");
    EXPECT_EQ(2, after.result);
    EXPECT_TRUE(Contains(after.errorText, L"SQLState: 57P01") || Contains(after.errorText, L"SQLState: 08"))
        << testing::PrintToString(after.errorText);
    // The commit fails: the connection was lost (psqlODBC itself would answer success).
    ok = VARIANT_TRUE;
    m_client->ConCommit(&ok);
    EXPECT_EQ(VARIANT_FALSE, ok);
    // What was committed before is there, nothing of the lost transaction is.
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"1"}), admin.Texts(L"SELECT a FROM zt_fault_tx ORDER BY a"));
    ExpectServes(m_client);
    admin.Run(L"DROP TABLE zt_fault_tx");
}

TEST_F(OdbcFaultTest, AStatementTimeoutCancelsWith57014AndTheConnectionGoesOn) {
    ASSERT_EQ(S_OK, m_client.Open(kProvider + g_connection));
    m_client.Run(L"SET statement_timeout = 100");
    const DWORD start = GetTickCount();
    m_client.Fails(L"SELECT pg_sleep(2)", L"57014");
    EXPECT_LT(GetTickCount() - start, 1900u);
    m_client.Run(L"SET statement_timeout = 0");
    EXPECT_EQ((std::vector<std::wstring>{L"?column?", L"2"}), m_client.Texts(L"SELECT 1 + 1"));
}

}  // namespace
