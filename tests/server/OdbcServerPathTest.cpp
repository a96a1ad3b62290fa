// Every path of the server on PostgreSQL through ZelOdbc, from a host of this tree's bitness
// across the process boundary: the three ways to name the data source, statements with their
// rows affected, the row walk with texts and natural values of each common column type, the
// query-result document, rows in batches, transactions, the catalog and table definitions,
// and the driver's SQLSTATEs in the error text.
#include "tests/server/OdbcServerSupport.h"

#include <algorithm>
#include <cstring>

using namespace zel::test;
using namespace zel::test::odbc;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

std::wstring g_connection;

class OdbcPgTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(RegisterServerAndProviders());
        g_connection = ReadConnectionText();
        ASSERT_TRUE(Contains(g_connection, L"PostgreSQL")) << "no connection.txt under ZEL_PG_DIR="
                                                            << testing::PrintToString(ClusterDir());
    }

    void SetUp() override {
        ASSERT_EQ(S_OK, m_client.created());
        std::wstring error;
        ASSERT_EQ(S_OK, m_client.Open(L"Provider=ZelOdbc.OLEDB.1;Extended Properties=\"" + g_connection + L"\"", &error))
            << testing::PrintToString(error);
    }

    Client m_client;
};

TEST_F(OdbcPgTest, TheDataSourceIsNamedByAConnectionStringEitherWay) {
    // The ODBC keywords straight in the initialization string.
    {
        Client other;
        std::wstring error;
        ASSERT_EQ(S_OK, other.Open(L"Provider=ZelOdbc.OLEDB.1;" + g_connection, &error)) << testing::PrintToString(error);
        EXPECT_EQ((std::vector<std::wstring>{L"?column?", L"7"}), other.Texts(L"SELECT 3 + 4"));
    }
    VARIANT_BOOL connected = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_client->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_TRUE, connected);
}

// A DSN of the DSN file that ODBCINI names in the environment the host started with. The host
// that starts a server process hands it its environment: so the host waits until no server of
// another host (a script test's, started without ODBCINI) is left, and its activation starts
// the server that serves it.
TEST(OdbcPgDsnTest, ADsnOfTheHostsDsnFileReachesTheServerItStarts) {
    ASSERT_TRUE(RegisterServerAndProviders());
    for (DWORD id : ServerProcessIds())
        ASSERT_TRUE(WaitForProcessExit(id, 30000).has_value()) << "server " << id << " of another host still runs";
    Client other;
    std::wstring error;
    ASSERT_EQ(S_OK, other.Open(L"Provider=ZelOdbc.OLEDB.1;Data Source=ZelPg", &error)) << testing::PrintToString(error);
    EXPECT_EQ((std::vector<std::wstring>{L"db", L"zeltest"}), other.Texts(L"SELECT current_database() AS db"));
}

TEST_F(OdbcPgTest, StatementsReportTheirRowsAffected) {
    m_client.Run(L"DROP TABLE IF EXISTS zt_affected");
    m_client.Run(L"CREATE TABLE zt_affected (id integer PRIMARY KEY, name varchar(20))");
    EXPECT_EQ(3, m_client.Run(L"INSERT INTO zt_affected VALUES (1, 'a'), (2, 'b'), (3, 'c')"));
    EXPECT_EQ(2, m_client.Run(L"UPDATE zt_affected SET name = 'x' WHERE id >= 2"));
    EXPECT_EQ(0, m_client.Run(L"UPDATE zt_affected SET name = 'y' WHERE id > 100"));
    EXPECT_EQ(1, m_client.Run(L"DELETE FROM zt_affected WHERE id = 1"));
    EXPECT_EQ((std::vector<std::wstring>{L"id|name", L"2|x", L"3|x"}),
              m_client.Texts(L"SELECT id, name FROM zt_affected ORDER BY id"));
    m_client.Run(L"DROP TABLE zt_affected");
}

class OdbcPgTypesTest : public OdbcPgTest {
protected:
    void SetUp() override {
        OdbcPgTest::SetUp();
        if (HasFatalFailure()) return;
        m_client.Run(L"DROP TABLE IF EXISTS zt_types");
        m_client.Run(
            L"CREATE TABLE zt_types (i integer, b bigint, d double precision, n numeric(10,2), v varchar(30), "
            L"t text, y bytea, dt date, ts timestamp, f boolean)");
        m_client.Run(
            L"INSERT INTO zt_types VALUES (42, 9000000000, 2.5, 1234.56, 'Grüße', repeat('abcdefghij', 1000), "
            L"'\\x00ff10'::bytea, '2024-02-29', '2024-02-29 13:45:30', true)");
        m_client.Run(L"INSERT INTO zt_types VALUES (-7, -1, -0.125, -0.5, '', 'short', '', '1999-12-31', "
                     L"'1999-12-31 23:59:59', false)");
        m_client.Run(L"INSERT INTO zt_types VALUES (NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
    }
    void TearDown() override { m_client.Run(L"DROP TABLE IF EXISTS zt_types"); }

    static constexpr const wchar_t* kSelect = L"SELECT i, b, d, n, v, t, y, dt, ts, f FROM zt_types ORDER BY i NULLS LAST";
};

TEST_F(OdbcPgTypesTest, TheRowWalkGivesTextsOfEveryType) {
    Execution e = m_client.Execute(kSelect);
    ASSERT_EQ(1, e.result) << testing::PrintToString(e.errorText);
    ULONGLONG columns = 0;
    ASSERT_EQ(S_OK, m_client->CmdGetColumnCount(e.handle, &columns));
    ASSERT_EQ(10u, columns);
    SHORT moved = 0;
    ASSERT_EQ(S_OK, m_client->CmdFetchFirst(e.handle, &moved));
    ASSERT_EQ(1, moved);
    // Row 1: -7.
    EXPECT_EQ(L"-7", m_client.Text(e.handle, 1));
    EXPECT_EQ(L"-1", m_client.Text(e.handle, 2));
    EXPECT_EQ(L"-0.125", m_client.Text(e.handle, 3));
    EXPECT_EQ(L"-0.50", m_client.Text(e.handle, 4));
    EXPECT_EQ(L"", m_client.Text(e.handle, 5));
    // Dates and times in the server's own text forms (as for every provider).
    EXPECT_EQ(L"12/31/1999", m_client.Text(e.handle, 8));
    EXPECT_EQ(L"12/31/1999 11:59:59 PM", m_client.Text(e.handle, 9));
    // psqlODBC hands booleans over as text "0"/"1" (its BoolsAsChar option, on by default).
    EXPECT_EQ(L"0", m_client.Text(e.handle, 10));

    ASSERT_EQ(S_OK, m_client->CmdFetchNext(e.handle, &moved));
    ASSERT_EQ(1, moved);
    EXPECT_EQ(L"42", m_client.Text(e.handle, 1));
    // The server's text of an 8-byte integer is its low 32 bits, whatever the provider: hosts
    // have always received that. The natural value (FieldsHaveTheirNaturalTypes) is whole.
    EXPECT_EQ(L"410065408", m_client.Text(e.handle, 2));
    EXPECT_EQ(L"2.5", m_client.Text(e.handle, 3));
    EXPECT_EQ(L"1234.56", m_client.Text(e.handle, 4));
    EXPECT_EQ(L"Grüße", m_client.Text(e.handle, 5));
    // PostgreSQL's text is a long column to psqlODBC, so to the server a blob: its field text
    // is empty and its bytes are the UTF-16 text, all 10000 characters (the batch interface
    // gives it as one BSTR, RowsInBatchesHaveNaturalTypes).
    std::wstring longText;
    for (int i = 0; i < 1000; ++i) longText += L"abcdefghij";
    SHORT isBlob = 0;
    ASSERT_EQ(S_OK, m_client->CmdIsBlob(e.handle, 6, &isBlob));
    EXPECT_EQ(1, isBlob);
    Variant whole;
    ASSERT_EQ(S_OK, m_client->CmdGetBlobData(e.handle, 6, whole.get()));
    ASSERT_EQ(VT_ARRAY | VT_UI1, whole.vt());
    {
        LONG upper = -1;
        SafeArrayGetUBound(V_ARRAY(whole.get()), 1, &upper);
        ASSERT_EQ(static_cast<LONG>(longText.size() * sizeof(wchar_t)) - 1, upper);
        zel::SafeArrayData data(V_ARRAY(whole.get()));
        EXPECT_EQ(0, std::memcmp(data.as<BYTE>(), longText.data(), longText.size() * sizeof(wchar_t)));
    }
    EXPECT_EQ(L"2/29/2024", m_client.Text(e.handle, 8));
    EXPECT_EQ(L"2/29/2024 1:45:30 PM", m_client.Text(e.handle, 9));
    EXPECT_EQ(L"1", m_client.Text(e.handle, 10));
    SHORT blob = 0;
    ASSERT_EQ(S_OK, m_client->CmdIsBlob(e.handle, 7, &blob));
    Variant bytes;
    ASSERT_EQ(S_OK, m_client->CmdGetBlobData(e.handle, 7, bytes.get()));
    ASSERT_EQ(VT_ARRAY | VT_UI1, bytes.vt());
    {
        zel::SafeArrayData data(V_ARRAY(bytes.get()));
        LONG upper = -1;
        SafeArrayGetUBound(V_ARRAY(bytes.get()), 1, &upper);
        ASSERT_EQ(2, upper);
        EXPECT_EQ(0x00, data.as<BYTE>()[0]);
        EXPECT_EQ(0xFF, data.as<BYTE>()[1]);
        EXPECT_EQ(0x10, data.as<BYTE>()[2]);
    }

    ASSERT_EQ(S_OK, m_client->CmdFetchLast(e.handle, &moved));
    ASSERT_EQ(1, moved);
    for (ULONGLONG c = 1; c <= 10; ++c) {
        SHORT isNull = 0;
        ASSERT_EQ(S_OK, m_client->CmdIsNull(e.handle, c, &isNull));
        EXPECT_EQ(1, isNull) << "column " << c;
        EXPECT_EQ(VT_NULL, m_client.Value(e.handle, c).vt()) << "column " << c;
    }
    ASSERT_EQ(S_OK, m_client->CmdFetchPrev(e.handle, &moved));
    ASSERT_EQ(1, moved);
    EXPECT_EQ(L"42", m_client.Text(e.handle, 1));
    ASSERT_EQ(S_OK, m_client->CmdFetchNext(e.handle, &moved));
    ASSERT_EQ(S_OK, m_client->CmdFetchNext(e.handle, &moved));
    EXPECT_EQ(0, moved);
}

TEST_F(OdbcPgTypesTest, FieldsHaveTheirNaturalTypes) {
    Execution e = m_client.Execute(kSelect);
    ASSERT_EQ(1, e.result) << testing::PrintToString(e.errorText);
    SHORT moved = 0;
    ASSERT_EQ(S_OK, m_client->CmdFetchFirst(e.handle, &moved));
    ASSERT_EQ(S_OK, m_client->CmdFetchNext(e.handle, &moved));
    ASSERT_EQ(1, moved);
    Variant v = m_client.Value(e.handle, 1);
    ASSERT_EQ(VT_I4, v.vt());
    EXPECT_EQ(42, V_I4(v.get()));
    v = m_client.Value(e.handle, 2);
    ASSERT_EQ(VT_I8, v.vt());
    EXPECT_EQ(9000000000LL, V_I8(v.get()));
    v = m_client.Value(e.handle, 3);
    ASSERT_EQ(VT_R8, v.vt());
    EXPECT_EQ(2.5, V_R8(v.get()));
    // CmdFieldAsVariant has no decimals (for any provider); the batch interface has them.
    v = m_client.Value(e.handle, 5);
    ASSERT_EQ(VT_BSTR, v.vt());
    EXPECT_EQ(L"Grüße", BstrText(V_BSTR(v.get())));
    // Nor dates: the batch interface has them as VT_DATE.
    v = m_client.Value(e.handle, 10);
    ASSERT_EQ(VT_BSTR, v.vt());  // BoolsAsChar: see TheRowWalkGivesTextsOfEveryType
    EXPECT_EQ(L"1", BstrText(V_BSTR(v.get())));
}

// With psqlODBC's BoolsAsChar=0 a boolean is a boolean.
TEST_F(OdbcPgTypesTest, BooleansAreBooleansWithoutBoolsAsChar) {
    Client other;
    std::wstring error;
    ASSERT_EQ(S_OK, other.Open(L"Provider=ZelOdbc.OLEDB.1;" + g_connection + L"BoolsAsChar=0;", &error))
        << testing::PrintToString(error);
    Execution e = other.Execute(L"SELECT f FROM zt_types ORDER BY i NULLS LAST");
    ASSERT_EQ(1, e.result) << testing::PrintToString(e.errorText);
    SHORT moved = 0;
    ASSERT_EQ(S_OK, other->CmdFetchFirst(e.handle, &moved));
    Variant v = other.Value(e.handle, 1);
    ASSERT_EQ(VT_BOOL, v.vt());
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(v.get()));
    ASSERT_EQ(S_OK, other->CmdFetchNext(e.handle, &moved));
    v = other.Value(e.handle, 1);
    ASSERT_EQ(VT_BOOL, v.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(v.get()));
    // (The server's field text of a boolean is its own odd "%f" form, whatever the provider.)
}

TEST_F(OdbcPgTypesTest, TheQueryResultDocumentHoldsEveryRow) {
    Execution e = m_client.Execute(L"SELECT i, v, n FROM zt_types ORDER BY i NULLS LAST");
    ASSERT_EQ(1, e.result) << testing::PrintToString(e.errorText);
    ASSERT_FALSE(e.xmlNull);
    EXPECT_TRUE(Contains(e.xml, L"Grüße")) << testing::PrintToString(e.xml);
    EXPECT_TRUE(Contains(e.xml, L"1234.56")) << testing::PrintToString(e.xml);
    EXPECT_TRUE(Contains(e.xml, L"-7")) << testing::PrintToString(e.xml);
    // A query without rows writes no document.
    Execution none = m_client.Execute(L"SELECT i FROM zt_types WHERE i > 1000");
    EXPECT_EQ(1, none.result);
    EXPECT_TRUE(none.xmlNull);
}

TEST_F(OdbcPgTypesTest, RowsInBatchesHaveNaturalTypes) {
    ComPtr<IZelOleDbRows> rows;
    ASSERT_EQ(S_OK, ComPtr<IZelOleDb>(m_client.get()).query(rows));
    ULONG h = 0;
    ASSERT_EQ(S_OK, m_client->CmdSetConnection(&h));
    Bstr sql(kSelect);
    ASSERT_EQ(S_OK, m_client->CmdSetCommandText(h, sql.get()));
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant batch;
    ASSERT_EQ(S_OK, rows->RowsExecute(h, 2, &result, errorText.put(), errorStmt.put(), batch.put()));
    ASSERT_EQ(1, result) << testing::PrintToString(errorText.str());
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, batch.vt());
    SAFEARRAY* array = V_ARRAY(batch.get());
    ASSERT_EQ(2u, SafeArrayGetDim(array));
    LONG upperColumn = -1, upperRow = -1, lowerColumn = 0, lowerRow = 0;
    SafeArrayGetLBound(array, 1, &lowerColumn);
    SafeArrayGetUBound(array, 1, &upperColumn);
    SafeArrayGetLBound(array, 2, &lowerRow);
    SafeArrayGetUBound(array, 2, &upperRow);
    ASSERT_EQ(10, upperColumn - lowerColumn + 1);
    ASSERT_EQ(2, upperRow - lowerRow + 1);
    auto at = [&](LONG column, LONG row) {
        Variant value;
        LONG indices[2] = {lowerColumn + column, lowerRow + row};
        EXPECT_EQ(S_OK, SafeArrayGetElement(array, indices, value.get()));
        return value;
    };
    EXPECT_EQ(VT_I4, at(0, 1).vt());
    EXPECT_EQ(42, V_I4(at(0, 1).get()));
    EXPECT_EQ(VT_I8, at(1, 1).vt());
    EXPECT_EQ(VT_R8, at(2, 1).vt());
    ASSERT_EQ(VT_DECIMAL, at(3, 1).vt());
    EXPECT_EQ(2, at(3, 1).get()->decVal.scale);
    EXPECT_EQ(123456u, at(3, 1).get()->decVal.Lo32);
    EXPECT_EQ(VT_BSTR, at(4, 1).vt());
    EXPECT_EQ(L"Grüße", BstrText(V_BSTR(at(4, 1).get())));
    ASSERT_EQ(VT_BSTR, at(5, 1).vt());
    EXPECT_EQ(10000u, SysStringLen(V_BSTR(at(5, 1).get())));
    EXPECT_EQ(VT_ARRAY | VT_UI1, at(6, 1).vt());
    ASSERT_EQ(VT_DATE, at(7, 1).vt());
    ASSERT_EQ(VT_DATE, at(8, 1).vt());
    SYSTEMTIME st{};
    VariantTimeToSystemTime(V_DATE(at(7, 1).get()), &st);
    EXPECT_EQ(2024, st.wYear);
    EXPECT_EQ(2, st.wMonth);
    EXPECT_EQ(29, st.wDay);
    VariantTimeToSystemTime(V_DATE(at(8, 1).get()), &st);
    EXPECT_EQ(13, st.wHour);
    EXPECT_EQ(45, st.wMinute);
    EXPECT_EQ(30, st.wSecond);
    EXPECT_EQ(9000000000LL, V_I8(at(1, 1).get()));
    EXPECT_EQ(VT_BSTR, at(9, 1).vt());  // BoolsAsChar
    // The third row, all NULL, in the next batch.
    Variant next;
    ASSERT_EQ(S_OK, rows->RowsFetch(h, 2, next.put()));
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, next.vt());
    LONG nextRows = -1;
    SafeArrayGetUBound(V_ARRAY(next.get()), 2, &nextRows);
    EXPECT_EQ(lowerRow, nextRows);
    for (LONG c = 0; c < 10; ++c) {
        Variant value;
        LONG indices[2] = {lowerColumn + c, lowerRow};
        ASSERT_EQ(S_OK, SafeArrayGetElement(V_ARRAY(next.get()), indices, value.get()));
        EXPECT_EQ(VT_NULL, value.vt()) << "column " << c;
    }
    m_client->CmdDestroy(h);
}

// Many rows, read a block at a time: every value arrives whole and in its row, NULLs in their
// places, text beyond the basic plane (surrogate pairs: five UTF-16 code units in a
// varchar(5) of three characters), text of a varchar without length (long text, as ZelOdbc
// has psqlODBC report it: its values come whole through the batch interface, and the server
// shows a long column's field text as empty), and long columns standing before the bound ones.
TEST_F(OdbcPgTest, ManyRowsKeepEveryValue) {
    m_client.Run(L"DROP TABLE IF EXISTS zt_many");
    m_client.Run(L"CREATE TABLE zt_many (id integer, v varchar(5), u varchar, t text, n numeric(12,3), ts timestamp)");
    m_client.Run(
        L"INSERT INTO zt_many SELECT i, CASE i % 4 WHEN 0 THEN NULL WHEN 1 THEN U&'\\+01F600\\00E9\\+01F600' "
        L"WHEN 2 THEN 'abc' ELSE '' END, CASE WHEN i % 5 = 0 THEN NULL ELSE repeat(U&'\\00FC', 200 + i % 156) END, "
        L"CASE WHEN i % 7 = 0 THEN NULL ELSE 'x' || i END, CASE WHEN i % 6 = 0 THEN NULL ELSE i * 1.125 END, "
        L"CASE WHEN i % 11 = 0 THEN NULL WHEN i % 10 = 0 THEN timestamp '2020-01-01' + i * interval '1 day' "
        L"ELSE timestamp '2020-01-01' + i * interval '3600.25 seconds' END "
        L"FROM generate_series(1, 1500) i");
    const std::vector<std::wstring> got = m_client.Texts(L"SELECT t, id, v, u, n FROM zt_many ORDER BY id");
    ASSERT_EQ(1501u, got.size());
    EXPECT_EQ(L"t|id|v|u|n", got[0]);
    int mismatches = 0;
    for (int i = 1; i <= 1500; ++i) {
        // The text column is long to psqlODBC: the server shows a blob's field text as empty.
        std::wstring expected = i % 7 == 0 ? L"<null>" : L"";
        expected += L"|" + std::to_wstring(i) + L"|";
        switch (i % 4) {
        case 0: expected += L"<null>"; break;
        case 1: expected += L"\U0001F600\u00E9\U0001F600"; break;
        case 2: expected += L"abc"; break;
        default: break;
        }
        expected += L"|" + (i % 5 == 0 ? std::wstring(L"<null>") : std::wstring());
        wchar_t number[32];
        swprintf(number, 32, L"%d.%03d", i * 1125 / 1000, i * 1125 % 1000);
        expected += L"|" + (i % 6 == 0 ? std::wstring(L"<null>") : std::wstring(number));
        EXPECT_EQ(expected, got[static_cast<size_t>(i)]) << "row " << i;
        if (expected != got[static_cast<size_t>(i)] && ++mismatches == 3) break;
    }
    // The long column's values and the timestamps (midnights, fractions of a second) as
    // natural values, through the batch interface.
    ComPtr<IZelOleDbRows> rows;
    ASSERT_EQ(S_OK, ComPtr<IZelOleDb>(m_client.get()).query(rows));
    ULONG h = 0;
    ASSERT_EQ(S_OK, m_client->CmdSetConnection(&h));
    Bstr sql(L"SELECT t, id, v, ts, u FROM zt_many ORDER BY id");
    ASSERT_EQ(S_OK, m_client->CmdSetCommandText(h, sql.get()));
    SHORT result = 0;
    Bstr errorText, errorStmt;
    Variant batch;
    ASSERT_EQ(S_OK, rows->RowsExecute(h, 1500, &result, errorText.put(), errorStmt.put(), batch.put()));
    ASSERT_EQ(1, result) << testing::PrintToString(errorText.str());
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, batch.vt());
    SAFEARRAY* array = V_ARRAY(batch.get());
    LONG lowerColumn = 0, lowerRow = 0, upperRow = -1;
    SafeArrayGetLBound(array, 1, &lowerColumn);
    SafeArrayGetLBound(array, 2, &lowerRow);
    SafeArrayGetUBound(array, 2, &upperRow);
    ASSERT_EQ(1500, upperRow - lowerRow + 1);
    for (LONG r = 0; r < 1500; ++r) {
        Variant value;
        LONG indices[2] = {lowerColumn, lowerRow + r};
        ASSERT_EQ(S_OK, SafeArrayGetElement(array, indices, value.get()));
        const int i = static_cast<int>(r) + 1;
        if (i % 7 == 0) {
            EXPECT_EQ(VT_NULL, value.vt()) << "row " << i;
        } else {
            ASSERT_EQ(VT_BSTR, value.vt()) << "row " << i;
            EXPECT_EQ(L"x" + std::to_wstring(i), BstrText(V_BSTR(value.get()))) << "row " << i;
        }
        Variant v;
        LONG at[2] = {lowerColumn + 2, lowerRow + r};
        ASSERT_EQ(S_OK, SafeArrayGetElement(array, at, v.get()));
        if (i % 4 == 1) {
            ASSERT_EQ(VT_BSTR, v.vt()) << "row " << i;
            EXPECT_EQ(L"\U0001F600\u00E9\U0001F600", BstrText(V_BSTR(v.get()))) << "row " << i;
        }
        Variant ts;
        LONG tsAt[2] = {lowerColumn + 3, lowerRow + r};
        ASSERT_EQ(S_OK, SafeArrayGetElement(array, tsAt, ts.get()));
        if (i % 11 == 0) {
            EXPECT_EQ(VT_NULL, ts.vt()) << "row " << i;
        } else {
            ASSERT_EQ(VT_DATE, ts.vt()) << "row " << i;
            const double day2020 = 43831;  // 2020-01-01 as DATE
            const double expected = i % 10 == 0 ? day2020 + i : day2020 + i * 3600.25 / 86400.0;
            EXPECT_NEAR(expected, V_DATE(ts.get()), 1e-9) << "row " << i;
        }
        Variant u;
        LONG uAt[2] = {lowerColumn + 4, lowerRow + r};
        ASSERT_EQ(S_OK, SafeArrayGetElement(array, uAt, u.get()));
        if (i % 5 == 0) {
            EXPECT_EQ(VT_NULL, u.vt()) << "row " << i;
        } else {
            ASSERT_EQ(VT_BSTR, u.vt()) << "row " << i;
            EXPECT_EQ(std::wstring(200 + i % 156, L'\u00FC'), BstrText(V_BSTR(u.get()))) << "row " << i;
        }
    }
    m_client->CmdDestroy(h);
    m_client.Run(L"DROP TABLE zt_many");
}

// A row that fails while psqlODBC receives the rows (a division by zero in row 300) fails
// the statement with the server's SQLSTATE instead of ending the result early.
TEST_F(OdbcPgTest, AFailureWhileReadingIsAnErrorNotAShortResult) {
    Execution e = m_client.Execute(L"SELECT i, 10 / (300 - i) AS q FROM generate_series(1, 1000) i");
    EXPECT_EQ(2, e.result);
    EXPECT_TRUE(Contains(e.errorText, L"SQLState: 22012")) << testing::PrintToString(e.errorText);
}

TEST_F(OdbcPgTest, CommitKeepsAndRollbackUndoes) {
    m_client.Run(L"DROP TABLE IF EXISTS zt_tx");
    m_client.Run(L"CREATE TABLE zt_tx (a integer)");
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_client->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    m_client.Run(L"INSERT INTO zt_tx VALUES (1)");
    ASSERT_EQ(S_OK, m_client->ConCommit(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    ASSERT_EQ(S_OK, m_client->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    m_client.Run(L"INSERT INTO zt_tx VALUES (2)");
    // Not yet visible to another connection.
    {
        Client other;
        ASSERT_EQ(S_OK, other.Open(L"Provider=ZelOdbc.OLEDB.1;" + g_connection));
        EXPECT_EQ((std::vector<std::wstring>{L"a", L"1"}), other.Texts(L"SELECT a FROM zt_tx ORDER BY a"));
    }
    ASSERT_EQ(S_OK, m_client->ConRollback(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"1"}), m_client.Texts(L"SELECT a FROM zt_tx ORDER BY a"));
    // Back in autocommit: a lone insert stays.
    m_client.Run(L"INSERT INTO zt_tx VALUES (3)");
    Client other;
    ASSERT_EQ(S_OK, other.Open(L"Provider=ZelOdbc.OLEDB.1;" + g_connection));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"1", L"3"}), other.Texts(L"SELECT a FROM zt_tx ORDER BY a"));
    m_client.Run(L"DROP TABLE zt_tx");
}

class OdbcPgCatalogTest : public OdbcPgTest {
protected:
    void SetUp() override {
        OdbcPgTest::SetUp();
        if (HasFatalFailure()) return;
        m_client.Run(L"DROP TABLE IF EXISTS zt_orders");
        m_client.Run(L"DROP TABLE IF EXISTS zt_parts");
        m_client.Run(L"CREATE TABLE zt_parts (id integer PRIMARY KEY, name varchar(40) NOT NULL, "
                     L"price numeric(10,2), note text, made date)");
        m_client.Run(L"CREATE INDEX zt_parts_name ON zt_parts (name, price)");
        m_client.Run(L"CREATE TABLE zt_orders (id integer PRIMARY KEY, part integer)");
    }
    void TearDown() override {
        m_client.Run(L"DROP TABLE IF EXISTS zt_orders");
        m_client.Run(L"DROP TABLE IF EXISTS zt_parts");
        m_client.Run(L"DROP TABLE IF EXISTS zt_parts_copy");
    }
};

TEST_F(OdbcPgCatalogTest, TablesColumnsAndIndexesAreEnumerated) {
    const std::vector<std::wstring> tables = m_client.TableNames();
    EXPECT_NE(tables.end(), std::find(tables.begin(), tables.end(), L"zt_parts")) << testing::PrintToString(tables);
    EXPECT_NE(tables.end(), std::find(tables.begin(), tables.end(), L"zt_orders"));

    ULONG t = 0;
    Bstr empty(L""), name(L"zt_parts"), type(L"TABLE"), errorText, errorStmt;
    ASSERT_EQ(S_OK, m_client->TblOpen(&t, empty.get(), empty.get(), name.get(), type.get(), errorText.put(),
                                      errorStmt.put()));
    VARIANT_BOOL more = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_client->TblFetchNext(t, &more));
    ASSERT_EQ(VARIANT_TRUE, more);
    Bstr got, schema;
    ASSERT_EQ(S_OK, m_client->TblGetName(t, got.put()));
    EXPECT_EQ(L"zt_parts", got.str());
    ASSERT_EQ(S_OK, m_client->TblGetSchema(t, schema.put()));
    EXPECT_EQ(L"public", schema.str());
    ASSERT_EQ(S_OK, m_client->TblFetchNext(t, &more));
    EXPECT_EQ(VARIANT_FALSE, more);
    m_client->TblDestroy(t);

    ULONG c = 0;
    ASSERT_EQ(S_OK, m_client->ColOpen(&c, empty.get(), empty.get(), name.get(), empty.get(), VARIANT_TRUE,
                                      errorText.put(), errorStmt.put()))
        << testing::PrintToString(errorText.str());
    std::vector<std::wstring> columns;
    std::vector<bool> nullable;
    while (SUCCEEDED(m_client->ColFetchNext(c, &more)) && more == VARIANT_TRUE) {
        Bstr column;
        ASSERT_EQ(S_OK, m_client->ColGetName(c, column.put()));
        columns.push_back(column.str());
        VARIANT_BOOL isNullable = VARIANT_FALSE;
        m_client->ColIsNullable(c, &isNullable);
        nullable.push_back(isNullable == VARIANT_TRUE);
    }
    EXPECT_EQ((std::vector<std::wstring>{L"id", L"name", L"price", L"note", L"made"}), columns);
    EXPECT_EQ((std::vector<bool>{false, false, true, true, true}), nullable);
    m_client->ColDestroy(c);

    ULONG i = 0;
    ASSERT_EQ(S_OK, m_client->IdxOpen(&i, empty.get(), empty.get(), name.get(), empty.get(), errorText.put(),
                                      errorStmt.put()))
        << testing::PrintToString(errorText.str());
    // The enumeration has the primary key's index and the two-column index (once per column).
    std::vector<std::wstring> enumerated;
    while (SUCCEEDED(m_client->IdxFetchNext(i, &more)) && more == VARIANT_TRUE) {
        Bstr index, column;
        ASSERT_EQ(S_OK, m_client->IdxGetName(i, index.put()));
        ASSERT_EQ(S_OK, m_client->IdxGetColumnName(i, column.put()));
        enumerated.push_back(index.str() + L"." + column.str());
    }
    std::sort(enumerated.begin(), enumerated.end());
    EXPECT_EQ((std::vector<std::wstring>{L"zt_parts_name.name", L"zt_parts_name.price", L"zt_parts_pkey.id"}),
              enumerated);
    m_client->IdxDestroy(i);
    ASSERT_EQ(S_OK, m_client->IdxOpen(&i, empty.get(), empty.get(), name.get(), empty.get(), errorText.put(),
                                      errorStmt.put()));
    // The name list leaves the primary key out, as it does on every provider.
    Variant list;
    ASSERT_EQ(S_OK, m_client->IdxGetIndexList(i, VARIANT_TRUE, list.get()));
    EXPECT_EQ((std::vector<std::wstring>{L"zt_parts_name"}), Client::Strings(*list.get()));
    m_client->IdxDestroy(i);
}

TEST_F(OdbcPgCatalogTest, ATableDefinitionSurvivesDeleteAndCreate) {
    Bstr name(L"zt_parts"), before;
    ASSERT_EQ(S_OK, m_client->TblGetDef(name.get(), before.put()));
    EXPECT_TRUE(Contains(before.str(), L"ColumnDef")) << testing::PrintToString(before.str());
    m_client.Run(L"DROP TABLE zt_orders");
    ASSERT_EQ(S_OK, m_client->TblDelete(name.get()));
    EXPECT_NE(S_OK, m_client->TblGetDef(name.get(), Bstr().put()));
    ASSERT_EQ(S_OK, m_client->TblCreate(before.get()));
    Bstr after;
    ASSERT_EQ(S_OK, m_client->TblGetDef(name.get(), after.put()));
    EXPECT_EQ(before.str(), after.str());
    // The column's declared size is not part of the document: name is varchar without a limit
    // now, on every provider. Precision and scale are, and survive.
    EXPECT_EQ((std::vector<std::wstring>{L"p|s", L"10|2"}),
              m_client.Texts(L"SELECT numeric_precision AS p, numeric_scale AS s FROM information_schema.columns "
                             L"WHERE table_name = 'zt_parts' AND column_name = 'price'"));
    // The new table works.
    EXPECT_EQ(1, m_client.Run(L"INSERT INTO zt_parts (id, name, price) VALUES (1, 'bolt', 0.25)"));
    EXPECT_EQ((std::vector<std::wstring>{L"price", L"0.25"}), m_client.Texts(L"SELECT price FROM zt_parts"));
}

TEST_F(OdbcPgTest, ErrorsCarryTheSqlState) {
    m_client.Fails(L"SELECT * FROM zt_no_such_table", L"42P01");
    m_client.Fails(L"SELEKT 1", L"42601");
    m_client.Run(L"DROP TABLE IF EXISTS zt_unique");
    m_client.Run(L"CREATE TABLE zt_unique (id integer PRIMARY KEY)");
    m_client.Run(L"INSERT INTO zt_unique VALUES (1)");
    m_client.Fails(L"INSERT INTO zt_unique VALUES (1)", L"23505");
    // The connection goes on.
    EXPECT_EQ((std::vector<std::wstring>{L"count", L"1"}), m_client.Texts(L"SELECT count(*) FROM zt_unique"));
    m_client.Run(L"DROP TABLE zt_unique");
}

}  // namespace
