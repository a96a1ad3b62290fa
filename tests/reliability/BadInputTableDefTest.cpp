// Table-definition documents that are not what TblCreate expects. A document the server
// cannot use (not XML, another root, a root named in another case, a missing Name on the root
// or on a ColumnDef, an unpaired surrogate) is refused with E_FAIL before the provider is
// asked. A usable one reaches the provider with its numbers cut to their low bits, text read
// as its leading digits, nested ColumnDefs ignored; the provider's answer comes back unchanged,
// and the database holds exactly what that answer says: a table that was refused is not there.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "common/Bstr.h"
#include "tests/reliability/ServerFixture.h"

using namespace zel::test;
using zel::Bstr;

namespace {

const std::wstring kSmile = L"\xD83D\xDE00";

std::wstring Column(const std::wstring& name, const std::wstring& attributes = L"Type=\"3\"") {
    return L"<ColumnDef Name=\"" + name + L"\" " + attributes + L"/>";
}

std::wstring Table(const std::wstring& name, const std::wstring& columns) {
    return L"<TableDef Name=\"" + name + L"\">" + columns + L"</TableDef>";
}

class BadInputTableDefTest : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        if (HasFatalFailure()) return;
        Client().Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
        Client().Run(L"INSERT INTO parts VALUES (1, 'bolt')");
        m_before = DatabaseSnapshot(Client());
    }

    HRESULT Create(const std::wstring& document) {
        Bstr text(document);
        return Client()->TblCreate(text.get());
    }

    // The document must be refused by the server itself, leaving the database as it was.
    void ExpectUnusable(const std::wstring& document) {
        SCOPED_TRACE(ToUtf8(document.substr(0, 200)));
        EXPECT_EQ(E_FAIL, Create(document));
        EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    }

    bool TableExists(const std::wstring& name) {
        std::wstring quoted;
        for (wchar_t c : name) quoted += c == L'\'' ? std::wstring(L"''") : std::wstring(1, c);
        return Client().Scalar(L"SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = '" + quoted + L"'") ==
               L"1";
    }

    // The definition TblGetDef gives for `name`; empty when it fails.
    std::wstring Definition(const std::wstring& name) {
        Bstr table(name), xml;
        HRESULT hr = Client()->TblGetDef(table.get(), xml.put());
        EXPECT_EQ(S_OK, hr) << ToUtf8(name.substr(0, 100));
        return xml.str();
    }

    std::string m_before;
};

TEST_F(BadInputTableDefTest, TextThatIsNotXmlIsRefused) {
    for (const std::wstring& text :
         {std::wstring(L""), std::wstring(L"not xml at all"), std::wstring(L"<TableDef Name=\"t\">"),
          L"<TableDef Name=\"t\">" + Column(L"a") + L"</ColumnDef></TableDef>", std::wstring(L"<TableDef Name=\"t\"/><x/>"),
          std::wstring(L"<TableDef Name=\"t\" Name=\"u\"/>"), std::wstring(L"<TableDef Name=t/>"),
          std::wstring(L"<?xml version=\"1.0\"?>"), std::wstring(1 << 20, L'<')})
        ExpectUnusable(text);
    EXPECT_EQ(E_FAIL, Client()->TblCreate(nullptr));
}

TEST_F(BadInputTableDefTest, AnotherRootIsRefusedAlsoTableDefInAnotherCase) {
    for (const wchar_t* root : {L"Table", L"QueryData", L"tabledef", L"TABLEDEF", L"Tabledef", L"TableDefs"})
        ExpectUnusable(std::wstring(L"<") + root + L" Name=\"t\">" + Column(L"a") + L"</" + root + L">");
    ExpectUnusable(L"<Wrapper>" + Table(L"t", Column(L"a")) + L"</Wrapper>");
}

TEST_F(BadInputTableDefTest, AMissingNameOnTheRootOrOnAnyColumnDefIsRefused) {
    ExpectUnusable(L"<TableDef>" + Column(L"a") + L"</TableDef>");
    ExpectUnusable(L"<TableDef name=\"t\">" + Column(L"a") + L"</TableDef>");  // names are case-sensitive
    ExpectUnusable(Table(L"t", Column(L"a") + L"<ColumnDef Type=\"3\"/>"));
    ExpectUnusable(Table(L"t", L"<ColumnDef NAME=\"a\" Type=\"3\"/>" + Column(L"b")));
    std::wstring many;
    for (int i = 0; i < 500; ++i) many += Column(L"c" + std::to_wstring(i));
    ExpectUnusable(Table(L"t", many + L"<ColumnDef/>"));
}

TEST_F(BadInputTableDefTest, AnUnpairedSurrogateMakesTheDocumentUnusable) {
    ExpectUnusable(Table(L"a\xD800" L"b", Column(L"a")));
    ExpectUnusable(Table(L"t", Column(L"a\xDC00")));
    ExpectUnusable(Table(L"t&#xD800;", Column(L"a")));
    ExpectUnusable(Table(L"t", Column(L"&#xDFFF;")));
}

TEST_F(BadInputTableDefTest, WithoutAnOpenConnectionEveryDocumentIsRefused) {
    ASSERT_EQ(S_OK, Client()->ConClose());
    EXPECT_EQ(E_FAIL, Create(Table(L"t", Column(L"a"))));
    EXPECT_EQ(E_FAIL, Create(L"not xml"));
    OpenOrFail(Database().ConnectionString());
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

// ---- documents that reach the provider ----

TEST_F(BadInputTableDefTest, NestedColumnDefsAreIgnored) {
    ASSERT_EQ(S_OK, Create(Table(L"nested", L"<ColumnDef Name=\"a\" Type=\"3\">" + Column(L"b") + L"</ColumnDef>" +
                                                L"<Other>" + Column(L"c") + L"</Other>")));
    std::optional<Rows> rows = Client().Query(L"SELECT * FROM nested");
    ASSERT_TRUE(rows);
    Outcome outcome = Client().Execute(L"INSERT INTO nested VALUES (1)");
    EXPECT_EQ(1, outcome.result) << "the table has one column: " << ToUtf8(outcome.errorText);
    const std::wstring definition = Definition(L"nested");
    EXPECT_NE(std::wstring::npos, definition.find(L"Name=\"a\""));
    EXPECT_EQ(std::wstring::npos, definition.find(L"Name=\"b\""));
    EXPECT_EQ(std::wstring::npos, definition.find(L"Name=\"c\""));
}

TEST_F(BadInputTableDefTest, NumbersOutOfRangeKeepTheirLowBits) {
    // 65539 and -65533 are 3 (a 4-byte integer) in 16 bits; 266 and 258 are 10 and 2 in 8.
    ASSERT_EQ(S_OK, Create(Table(L"cut", Column(L"a", L"Type=\"65539\"") + Column(L"b", L"Type=\"-65533\"") +
                                             Column(L"d", L"Type=\"14\" Precision=\"266\" Scale=\"258\""))));
    const std::wstring definition = Definition(L"cut");
    for (const wchar_t* column : {L"a", L"b"}) {
        const size_t at = definition.find(L"Name=\"" + std::wstring(column) + L"\"");
        ASSERT_NE(std::wstring::npos, at);
        EXPECT_NE(std::wstring::npos, definition.substr(at, definition.find(L"/>", at) - at).find(L"Type=\"3\""))
            << ToUtf8(definition);
    }
    const size_t decimal = definition.find(L"Name=\"d\"");
    ASSERT_NE(std::wstring::npos, decimal);
    const std::wstring d = definition.substr(decimal, definition.find(L"/>", decimal) - decimal);
    EXPECT_NE(std::wstring::npos, d.find(L"Type=\"14\"")) << ToUtf8(d);
    EXPECT_NE(std::wstring::npos, d.find(L"Precision=\"10\"")) << ToUtf8(d);
    EXPECT_NE(std::wstring::npos, d.find(L"Scale=\"2\"")) << ToUtf8(d);
}

TEST_F(BadInputTableDefTest, TextWhereNumbersBelongReadsAsItsLeadingDigits) {
    // " +3 apples" is 3; "ten" is 0, and a precision of 0 is no precision.
    ASSERT_EQ(S_OK, Create(Table(L"texts", Column(L"a", L"Type=\" +3 apples\" Precision=\"ten\" Scale=\"x\""))));
    const std::wstring definition = Definition(L"texts");
    EXPECT_NE(std::wstring::npos, definition.find(L"Type=\"3\"")) << ToUtf8(definition);
    Outcome outcome = Client().Execute(L"INSERT INTO texts VALUES (12)");
    EXPECT_EQ(1, outcome.result) << ToUtf8(outcome.errorText);
    // A type that reads as 0 is the provider's to judge; whatever it answers, the database
    // agrees with the answer.
    HRESULT hr = Create(Table(L"typeless", Column(L"a", L"Type=\"three\"")));
    EXPECT_EQ(SUCCEEDED(hr), TableExists(L"typeless")) << std::hex << hr;
}

TEST_F(BadInputTableDefTest, TenThousandColumnsAreRefusedByTheProviderAndNothingIsCreated) {
    std::wstring columns;
    for (int i = 0; i < 10000; ++i) columns += Column(L"c" + std::to_wstring(i));
    HRESULT hr = Create(Table(L"wide", columns));
    EXPECT_TRUE(FAILED(hr)) << "SQLite allows at most 2000 columns";
    EXPECT_NE(E_FAIL, hr) << "the provider's own code comes back";
    EXPECT_FALSE(TableExists(L"wide"));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    // At the limit it works, and the definition comes back whole.
    columns.clear();
    for (int i = 0; i < 2000; ++i) columns += Column(L"c" + std::to_wstring(i));
    ASSERT_EQ(S_OK, Create(Table(L"wide", columns)));
    const std::wstring definition = Definition(L"wide");
    size_t count = 0;
    for (size_t at = definition.find(L"<ColumnDef"); at != std::wstring::npos; at = definition.find(L"<ColumnDef", at + 1))
        ++count;
    EXPECT_EQ(2000u, count);
}

TEST_F(BadInputTableDefTest, AOneMegabyteTableNameGetsTheProvidersAnswerAndNothingHalfMade) {
    std::wstring name(1 << 20, L'n');
    for (size_t i = 0; i < name.size(); i += 1000) name[i] = static_cast<wchar_t>(L'a' + (i / 1000) % 26);
    HRESULT hr = Create(Table(name, Column(L"a")));
    EXPECT_EQ(SUCCEEDED(hr), TableExists(name)) << std::hex << hr;
    if (SUCCEEDED(hr)) {
        EXPECT_EQ(1, Client().Execute(L"INSERT INTO \"" + name + L"\" VALUES (1)").result);
        EXPECT_EQ(S_OK, Client()->TblDelete(Bstr(name).get()));
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputTableDefTest, NamesOutsideTheBasicPlaneAndAnExistingTable) {
    ASSERT_EQ(S_OK, Create(Table(L"t" + kSmile, Column(L"c" + kSmile))));
    EXPECT_EQ(1, Client().Execute(L"INSERT INTO \"t" + kSmile + L"\" (\"c" + kSmile + L"\") VALUES (5)").result);
    EXPECT_EQ(L"5", Client().Scalar(L"SELECT \"c" + kSmile + L"\" FROM \"t" + kSmile + L"\""));
    // A table that exists already: the provider's own duplicate-table code, nothing replaced.
    const std::string before = DatabaseSnapshot(Client());
    HRESULT hr = Create(Table(L"parts", Column(L"other")));
    EXPECT_TRUE(FAILED(hr));
    EXPECT_NE(E_FAIL, hr);
    EXPECT_EQ(before, DatabaseSnapshot(Client()));
}

}  // namespace
