// zeldb.exe (64-bit) against the 32-bit server and the embedded provider: statements, the
// three output formats, NULLs and blobs, long results, the shell on a pipe, and errors.
#include <gtest/gtest.h>

#include "host/TextStreams.h"
#include "tests/host/ZelDbServerFixture.h"

namespace zel::zeldb::test {
namespace {

using Row = std::vector<std::wstring>;

class ZelDbQueryTest : public ZelDbServerTest {
protected:
    // A small parts table: row 1 has a NULL note and a 5-byte picture, row 2 an empty note
    // and no picture, row 3 no quantity and a 10,000-byte picture.
    static std::wstring PartsDatabase(const std::wstring& name) {
        const std::wstring db = EmptyDatabase(name);
        EXPECT_EQ(ZelDbOk({L"exec", db,
                           L"CREATE TABLE Parts (Id INTEGER PRIMARY KEY, Name VARCHAR(40), Qty INTEGER, "
                           L"Price DOUBLE, Note VARCHAR(20), Pic BLOB)"}),
                  L"0 rows affected\n");
        EXPECT_EQ(ZelDbOk({L"exec", db,
                           L"INSERT INTO Parts VALUES (1, 'Bolt', 10, 0.25, NULL, X'0102030405'), "
                           L"(2, 'Hex nut, M6', 5, 0.1, '', NULL), "
                           L"(3, 'Washer \"big\"', NULL, 1.5, 'x', zeroblob(10000))"}),
                  L"3 rows affected\n");
        return db;
    }
};

TEST_F(ZelDbQueryTest, FormatsListsTheHelpersAnswerForAllElevenFormats) {
    // Whether a format's drivers are installed depends on the machine's registry, so each
    // row is checked against its own answer: a template and flags exactly when installed.
    const Row expectedNames = {L"kAccess",   L"kAccess97",  L"kExcel8_0",  L"kExcel5_0",
                               L"kdBASE5_0", L"kdBASEIV",   L"kdBASEIII",  L"kFoxPro3_0",
                               L"kFoxPro2_6", L"kFoxPro2_5", L"kHTMLExport"};
    const std::vector<std::wstring> lines = Lines(ZelDbOk({L"formats"}));
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_EQ(lines[0], L" value |   format    | installed | connFlags | template");
    EXPECT_EQ(lines[1].substr(0, 52), L"-------+-------------+-----------+-----------+------");
    for (size_t i = 0; i < 11; ++i) {
        const std::wstring& line = lines[i + 2];
        const std::wstring value = std::to_wstring(i);
        EXPECT_EQ(line.substr(0, 7), std::wstring(6 - value.size(), L' ') + value + L" ") << ToUtf8(line);
        EXPECT_EQ(line.substr(9, expectedNames[i].size()), expectedNames[i]) << ToUtf8(line);
        const std::wstring installed = line.substr(23, 3);
        if (installed == L"yes") {
            EXPECT_NE(line.find(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!"), std::wstring::npos);
        } else {
            EXPECT_EQ(installed, L"no ") << ToUtf8(line);
            EXPECT_EQ(line.size(), 46u) << "no flags or template when not installed: " << ToUtf8(line);
        }
    }
}

TEST_F(ZelDbQueryTest, ExecPrintsTheRowsAffected) {
    const std::wstring db = PartsDatabase(L"exec.db");
    EXPECT_EQ(ZelDbOk({L"exec", db, L"UPDATE Parts SET Price = Price * 2 WHERE Id < 3"}), L"2 rows affected\n");
    EXPECT_EQ(ZelDbOk({L"exec", db, L"DELETE FROM Parts WHERE Id = 3"}), L"1 row affected\n");
    EXPECT_EQ(ZelDbOk({L"exec", db, L"DELETE FROM Parts WHERE Id = 3"}), L"0 rows affected\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Price FROM Parts"}),
              L" Id | Price\n"
              L"----+-------\n"
              L"  1 | 0.5\n"
              L"  2 | 0.2\n"
              L"(2 rows)\n");
}

TEST_F(ZelDbQueryTest, QueryPrintsAnAlignedTableWithNullsEmptyAndBlobsBySize) {
    const std::wstring db = PartsDatabase(L"table.db");
    // Integer columns are right-aligned; NULL and the empty text both show as empty cells.
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Parts ORDER BY Id"}),
              L" Id |     Name     | Qty | Price | Note |        Pic\n"
              L"----+--------------+-----+-------+------+--------------------\n"
              L"  1 | Bolt         |  10 | 0.25  |      | <blob 5 bytes>\n"
              L"  2 | Hex nut, M6  |   5 | 0.1   |      |\n"
              L"  3 | Washer \"big\" |     | 1.5   | x    | <blob 10000 bytes>\n"
              L"(3 rows)\n");
}

TEST_F(ZelDbQueryTest, CsvQuotesFieldsAndTellsNullFromEmptyText) {
    const std::wstring db = PartsDatabase(L"csv.db");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Parts ORDER BY Id", L"--csv"}),
              L"Id,Name,Qty,Price,Note,Pic\n"
              L"1,Bolt,10,0.25,,<blob 5 bytes>\n"
              L"2,\"Hex nut, M6\",5,0.1,\"\",\n"
              L"3,\"Washer \"\"big\"\"\",,1.5,x,<blob 10000 bytes>\n");
}

TEST_F(ZelDbQueryTest, XmlPrintsTheServersDocumentWithNullFieldsLeftOut) {
    const std::wstring db = PartsDatabase(L"xml.db");
    // Row 1: no C4 (NULL note); row 2: C4 is the empty text; row 3: no C3 (NULL quantity).
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Name, Qty, Note FROM Parts ORDER BY Id", L"--xml"}),
              L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
              L"<QueryData Version=\"5.0\">\r\n"
              L"\t<Metadata>\r\n"
              L"\t\t<ColumnDef Name=\"Id\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\" ColSize=\"4\"/>\r\n"
              L"\t\t<ColumnDef Name=\"Name\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"130\" "
              L"ColSize=\"8\"/>\r\n"
              L"\t\t<ColumnDef Name=\"Qty\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\" ColSize=\"4\"/>\r\n"
              L"\t\t<ColumnDef Name=\"Note\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"130\" "
              L"ColSize=\"0\"/>\r\n"
              L"\t</Metadata>\r\n"
              L"\t<Resultset>\r\n"
              L"\t\t<Rowset C1=\"1\" C2=\"Bolt\" C3=\"10\"/>\r\n"
              L"\t\t<Rowset C1=\"2\" C2=\"Hex nut, M6\" C3=\"5\" C4=\"\"/>\r\n"
              L"\t\t<Rowset C1=\"3\" C2=\"Washer &quot;big&quot;\" C4=\"x\"/>\r\n"
              L"\t</Resultset>\r\n"
              L"</QueryData>\r\n");
}

TEST_F(ZelDbQueryTest, MaxRowsStopsTheListingAndSaysSo) {
    const std::wstring db = PartsDatabase(L"maxrows.db");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Name FROM Parts ORDER BY Id", L"--max-rows", L"2"}),
              L" Id |    Name\n"
              L"----+-------------\n"
              L"  1 | Bolt\n"
              L"  2 | Hex nut, M6\n"
              L"(2 rows; more rows not shown)\n");
    // A limit the result does not reach changes nothing.
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id FROM Parts ORDER BY Id", L"--max-rows=3"}),
              L" Id\n----\n  1\n  2\n  3\n(3 rows)\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Name FROM Parts ORDER BY Id", L"--csv", L"--max-rows", L"1"}),
              L"Id,Name\n1,Bolt\n");
}

TEST_F(ZelDbQueryTest, AResultWithoutRowsShowsItsColumns) {
    const std::wstring db = PartsDatabase(L"norows.db");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Name FROM Parts WHERE Id > 99"}),
              L" Id | Name\n----+------\n(0 rows)\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id, Name FROM Parts WHERE Id > 99", L"--csv"}), L"Id,Name\n");
    // The server makes no document for a result without rows: nothing on stdout, a note on stderr.
    const ProcessResult r = RunZelDb({L"query", db, L"SELECT Id FROM Parts WHERE Id > 99", L"--xml"});
    EXPECT_EQ(r.exitCode, 0u);
    EXPECT_EQ(r.out, L"");
    EXPECT_EQ(r.err, L"zeldb: the result has no rows, and the server makes no document for it\n");
}

TEST_F(ZelDbQueryTest, QueryOfAStatementWithoutRowsPrintsTheRowsAffected) {
    const std::wstring db = PartsDatabase(L"queryupdate.db");
    EXPECT_EQ(ZelDbOk({L"query", db, L"UPDATE Parts SET Qty = 1"}), L"3 rows affected\n");
}

TEST_F(ZelDbQueryTest, NullsAndBlobsOfEveryKind) {
    const std::wstring db = EmptyDatabase(L"blobs.db");
    ZelDbOk({L"exec", db, L"CREATE TABLE Kinds (I INTEGER, R DOUBLE, S VARCHAR(10), B VARBINARY(16), M TEXT, L BLOB)"});
    ZelDbOk({L"exec", db,
             L"INSERT INTO Kinds VALUES (1, 2.5, 'abc', X'00112233445566778899AABBCCDDEEFF', 'memo', X'CAFE'), "
             L"(NULL, NULL, NULL, NULL, NULL, NULL), (0, 0, '', X'01', '', X'')"});
    // Binary values show their size; a long text (M) is text like any other.
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Kinds"}),
              L" I |  R  |  S  |        B        |  M   |       L\n"
              L"---+-----+-----+-----------------+------+----------------\n"
              L" 1 | 2.5 | abc | <blob 16 bytes> | memo | <blob 2 bytes>\n"
              L"   |     |     |                 |      |\n"
              L" 0 | 0   |     | <blob 1 bytes>  |      | <blob 0 bytes>\n"
              L"(3 rows)\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Kinds", L"--csv"}),
              L"I,R,S,B,M,L\n"
              L"1,2.5,abc,<blob 16 bytes>,memo,<blob 2 bytes>\n"
              L",,,,,\n"
              L"0,0,\"\",<blob 1 bytes>,\"\",<blob 0 bytes>\n");
    // With the server's texts, short binary (kept in the row), long text and long binary
    // (read as streams) are all blobs; a long text's size is its UTF-16 byte count.
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Kinds", L"--server-text"}),
              L" I |  R  |  S  |        B        |       M        |       L\n"
              L"---+-----+-----+-----------------+----------------+----------------\n"
              L" 1 | 2.5 | abc | <blob 16 bytes> | <blob 8 bytes> | <blob 2 bytes>\n"
              L"   |     |     |                 |                |\n"
              L" 0 | 0   |     | <blob 1 bytes>  | <blob 0 bytes> | <blob 0 bytes>\n"
              L"(3 rows)\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Kinds", L"--csv", L"--server-text"}),
              L"I,R,S,B,M,L\n"
              L"1,2.5,abc,<blob 16 bytes>,<blob 8 bytes>,<blob 2 bytes>\n"
              L",,,,,\n"
              L"0,0,\"\",<blob 1 bytes>,<blob 0 bytes>,<blob 0 bytes>\n");
    // In the document a NULL field has no attribute at all: the second row is empty.
    const std::wstring xml = ZelDbOk({L"query", db, L"SELECT I, R, S FROM Kinds", L"--xml"});
    EXPECT_NE(xml.find(L"\t\t<Rowset C1=\"1\" C2=\"2.5\" C3=\"abc\"/>\r\n\t\t<Rowset/>\r\n"
                       L"\t\t<Rowset C1=\"0\" C2=\"0\" C3=\"\"/>\r\n"),
              std::wstring::npos)
        << ToUtf8(xml);
}

TEST_F(ZelDbQueryTest, ValuesPrintExactlyWhileServerTextKeepsTheServersTexts) {
    const std::wstring db = EmptyDatabase(L"exact.db");
    ZelDbOk({L"exec", db,
             L"CREATE TABLE Exact (R DOUBLE, F REAL, B BIT, D DATETIME, C CURRENCY, M DECIMAL(12,4), Big BIGINT)"});
    ZelDbOk({L"exec", db,
             L"INSERT INTO Exact VALUES (1.3928571428571428, 0.1, 1, '2020-01-02 02:11:59', 12.3456, -1234.5670, "
             L"5000000000), (1e300, -2.5, 0, '2020-01-02 02:11:59.25', -0.0001, 0.0001, -1)"});
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM Exact", L"--csv"}),
              L"R,F,B,D,C,M,Big\n"
              L"1.3928571428571428,0.1,1,2020-01-02 02:11:59,12.3456,-1234.5670,5000000000\n"
              L"1e+300,-2.5,0,2020-01-02 02:11:59.25,-0.0001,0.0001,-1\n");
    // The server's own texts: R8 through "%lg", BOOL through "%f", BIGINT's low half.
    const std::vector<std::wstring> texts =
        Lines(ZelDbOk({L"query", db, L"SELECT R, B, Big FROM Exact", L"--csv", L"--server-text"}));
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[1], L"1.39286,0.000000,705032704");
}

TEST_F(ZelDbQueryTest, JsonIsOneArrayOfObjectsWithTypedValues) {
    const std::wstring db = EmptyDatabase(L"json.db");
    ZelDbOk({L"exec", db, L"CREATE TABLE J (Id INTEGER, Name VARCHAR(20), Price DOUBLE, Ok BIT, Pic BLOB)"});
    ZelDbOk({L"exec", db,
             L"INSERT INTO J VALUES (1, 'Bolt \"M6\"', 0.25, 1, X'0102'), (2, NULL, NULL, 0, NULL), "
             L"(3, 'Gr\u00fc\u00dfe\\', 1e-7, 1, NULL)"});
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT * FROM J ORDER BY Id", L"--json"}),
              L"[\n"
              L"{\"Id\":1,\"Name\":\"Bolt \\\"M6\\\"\",\"Price\":0.25,\"Ok\":true,\"Pic\":\"<blob 2 bytes>\"},\n"
              L"{\"Id\":2,\"Name\":null,\"Price\":null,\"Ok\":false,\"Pic\":null},\n"
              L"{\"Id\":3,\"Name\":\"Gr\u00fc\u00dfe\\\\\",\"Price\":1e-07,\"Ok\":true,\"Pic\":null}\n"
              L"]\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id FROM J WHERE Id > 9", L"--json"}), L"[]\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Id FROM J ORDER BY Id", L"--json", L"--max-rows", L"1"}),
              L"[\n{\"Id\":1}\n]\n");
}

TEST_F(ZelDbQueryTest, ResultsLongerThanABatchArriveWhole) {
    const std::wstring db = EmptyDatabase(L"batches.db");
    ZelDbOk({L"exec", db, L"CREATE TABLE N (N INTEGER)"});
    ZelDbOk({L"exec", db,
             L"WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 2500) INSERT INTO N SELECT x FROM c"});
    const std::vector<std::wstring> lines = Lines(ZelDbOk({L"query", db, L"SELECT N FROM N ORDER BY N", L"--csv"}));
    ASSERT_EQ(lines.size(), 2501u);
    for (int n = 1; n <= 2500; ++n) {
        if (lines[static_cast<size_t>(n)] != std::to_wstring(n)) {
            ADD_FAILURE() << "row " << n << ": " << ToUtf8(lines[static_cast<size_t>(n)]);
            break;
        }
    }
    // Exactly a batch, and a limit on a batch's edge.
    EXPECT_EQ(Lines(ZelDbOk({L"query", db, L"SELECT N FROM N WHERE N <= 1000", L"--csv"})).size(), 1001u);
    const std::vector<std::wstring> limited =
        Lines(ZelDbOk({L"query", db, L"SELECT N FROM N ORDER BY N", L"--csv", L"--max-rows", L"1000"}));
    ASSERT_EQ(limited.size(), 1001u);
    EXPECT_EQ(limited.back(), L"1000");
}

TEST_F(ZelDbQueryTest, TenThousandRowsArriveInOrderWithoutProgressOnAPipe) {
    const std::wstring db = EmptyDatabase(L"big.db");
    ZelDbOk({L"exec", db, L"CREATE TABLE Big (N INTEGER, Label VARCHAR(30))"});
    EXPECT_EQ(ZelDbOk({L"exec", db,
                       L"WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 10000) "
                       L"INSERT INTO Big SELECT x, 'item ' || x FROM c"}),
              L"10000 rows affected\n");
    // ZelDbOk also checks that standard error stayed empty: no progress line on a pipe.
    const std::vector<std::wstring> lines = Lines(ZelDbOk({L"query", db, L"SELECT N, Label FROM Big ORDER BY N"}));
    ASSERT_EQ(lines.size(), 10003u);
    EXPECT_EQ(lines[0], L"   N   |   Label");
    EXPECT_EQ(lines[1], L"-------+------------");
    for (int n = 1; n <= 10000; ++n) {
        std::wstring number = std::to_wstring(n);
        const std::wstring expected = L" " + std::wstring(5 - number.size(), L' ') + number + L" | item " + number;
        if (lines[static_cast<size_t>(n) + 1] != expected) {
            ADD_FAILURE() << "row " << n << ": " << ToUtf8(lines[static_cast<size_t>(n) + 1]);
            break;
        }
    }
    EXPECT_EQ(lines[10002], L"(10000 rows)");
}

TEST_F(ZelDbQueryTest, TextTravelsAsUnicodeBothWays) {
    const std::wstring db = EmptyDatabase(L"unicode.db");
    ZelDbOk({L"exec", db, L"CREATE TABLE Names (Name VARCHAR(20))"});
    ZelDbOk({L"exec", db, L"INSERT INTO Names VALUES ('Gr\u00fc\u00dfe \u2713'), ('\u65e5\u672c')"});
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Name FROM Names WHERE Name LIKE 'Gr%'", L"--csv"}),
              L"Name\nGr\u00fc\u00dfe \u2713\n");
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT Name FROM Names WHERE Name = '\u65e5\u672c'"}),
              L" Name\n------\n \u65e5\u672c\n(1 row)\n");
}

TEST_F(ZelDbQueryTest, AFullInitializationStringWorksAsTheConnection) {
    const std::wstring db = PartsDatabase(L"initstring.db");
    EXPECT_EQ(ZelDbOk({L"query", L"Provider=ZelLite.OLEDB.1;Data Source=" + db, L"SELECT Name FROM Parts WHERE Id = 1",
                       L"--csv"}),
              L"Name\nBolt\n");
}

TEST_F(ZelDbQueryTest, AFailingStatementPrintsTheServersErrorAndStatementAndExitsOne) {
    const std::wstring db = PartsDatabase(L"badsql.db");
    const ProcessResult r = RunZelDb({L"query", db, L"SELEC * FROM Parts"});
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(r.out, L"");
    EXPECT_EQ(r.err,
              L"zeldb: the statement failed\n"
              L"Row #:    0 Source: \"ZelLite OLE DB Provider\"\n"
              L"Description: \"near \"SELEC\": syntax error\n"
              L"Statement: SELEC * FROM Parts\"\n"
              L"Help File: \"(null)\" Help Context:    0\n"
              L"GUID: {00000000-0000-0000-0000-000000000000}\n"
              L"SQLState: 42000, NativeError: 1\n"
              L"statement: SELEC * FROM Parts\n");

    const ProcessResult dup = RunZelDb({L"exec", db, L"INSERT INTO Parts (Id) VALUES (1)"});
    EXPECT_EQ(dup.exitCode, 1u);
    EXPECT_EQ(Lines(dup.err)[0], L"zeldb: the statement failed");
    EXPECT_NE(dup.err.find(L"UNIQUE constraint failed: Parts.Id"), std::wstring::npos);
    EXPECT_EQ(Lines(dup.err).back(), L"statement: INSERT INTO Parts (Id) VALUES (1)");
}

TEST_F(ZelDbQueryTest, AMissingDatabaseFileIsReportedByTheProvider) {
    const std::wstring missing = PathOf(L"no-such.db");
    const ProcessResult r = RunZelDb({L"query", missing, L"SELECT 1"});
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(r.out, L"");
    const std::vector<std::wstring> lines = Lines(r.err);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], L"zeldb: cannot open \"Provider=ZelLite.OLEDB.1;Data Source=" + missing + L"\"");
    EXPECT_EQ(lines[1], L"Row #:    0 Source: \"ZelLite OLE DB Provider\"");
    EXPECT_NE(r.err.find(L"does not exist"), std::wstring::npos);
}

TEST_F(ZelDbQueryTest, ShellRunsStatementsFromAPipe) {
    const std::wstring db = PartsDatabase(L"shell.db");
    const std::string script =
        "-- a comment line\n"
        "SELECT Id, Name FROM Parts\n"
        "  WHERE Id < 3\n"
        "  ORDER BY Id;\n"
        "UPDATE Parts SET Qty = 0 WHERE Id = 1; SELECT Qty FROM Parts WHERE Id = 1;\n"
        "\n"
        ".xml on\n"
        "SELECT Id FROM Parts WHERE Id = 2;\n"
        ".xml off\n"
        "SELECT 'it''s; fine' = 'x' AS same\n";  // the last statement may end with the input
    // (The comparison is an integer, so its column is right-aligned.)
    const ProcessResult r = RunZelDb({L"shell", db}, script);
    EXPECT_EQ(r.exitCode, 0u);
    EXPECT_EQ(r.err, L"");
    EXPECT_EQ(r.out,
              L" Id |    Name\n"
              L"----+-------------\n"
              L"  1 | Bolt\n"
              L"  2 | Hex nut, M6\n"
              L"(2 rows)\n"
              L"1 row affected\n"
              L" Qty\n"
              L"-----\n"
              L"   0\n"
              L"(1 row)\n"
              L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
              L"<QueryData Version=\"5.0\">\r\n"
              L"\t<Metadata>\r\n"
              L"\t\t<ColumnDef Name=\"Id\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\" ColSize=\"4\"/>\r\n"
              L"\t</Metadata>\r\n"
              L"\t<Resultset>\r\n"
              L"\t\t<Rowset C1=\"2\"/>\r\n"
              L"\t</Resultset>\r\n"
              L"</QueryData>\r\n"
              L" same\n"
              L"------\n"
              L"    0\n"
              L"(1 row)\n");
}

TEST_F(ZelDbQueryTest, ShellReportsErrorsGoesOnAndExitsOne) {
    const std::wstring db = PartsDatabase(L"shellerr.db");
    const ProcessResult r = RunZelDb({L"shell", db},
                                     "SELECT Nope FROM Parts;\n"
                                     ".frobnicate\n"
                                     ".xml maybe\n"
                                     "SELECT COUNT(*) AS n FROM Parts;\n"
                                     ".quit\n"
                                     "SELECT 'never run';\n");
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(r.out, L" n\n---\n 3\n(1 row)\n");
    const std::vector<std::wstring> err = Lines(r.err);
    ASSERT_GE(err.size(), 4u);
    EXPECT_EQ(err[0], L"zeldb: the statement failed");
    EXPECT_NE(r.err.find(L"no such column: Nope"), std::wstring::npos);
    EXPECT_NE(r.err.find(L"statement: SELECT Nope FROM Parts\n"), std::wstring::npos);
    EXPECT_NE(r.err.find(L"zeldb: unknown command .frobnicate (try .help)\n"), std::wstring::npos);
    EXPECT_NE(r.err.find(L"usage: .xml on|off\n"), std::wstring::npos);
}

}  // namespace
}  // namespace zel::zeldb::test
