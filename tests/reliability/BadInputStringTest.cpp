// Strings a host passes on from its users: empty ones, 1 MB ones, ones with an embedded NUL,
// characters outside the basic plane, and table names longer than 128 characters, in
// statements, in table names and in initialization strings. Each either works exactly (the
// value comes back as it went in) or fails with a clear error, and the server goes on.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "common/Bstr.h"
#include "common/Variant.h"
#include "tests/reliability/ServerFixture.h"

using namespace zel::test;
using zel::Bstr;
using zel::Variant;
using namespace std::string_literals;

namespace {

constexpr size_t kMegabyte = 1 << 20;
const std::wstring kSmile = L"\xD83D\xDE00";  // U+1F600, a surrogate pair

// A text of `length` characters that is not one repeated character (so that a shifted or
// cut copy cannot compare equal).
std::wstring Varied(size_t length) {
    std::wstring text(length, L'x');
    for (size_t i = 0; i < length; i += 997) text[i] = static_cast<wchar_t>(L'a' + (i / 997) % 26);
    return text;
}

std::wstring Quoted(const std::wstring& name) { return L"\"" + name + L"\""; }

// The bytes of `text` as UTF-16 little-endian, as GetBlobData hands out a long text.
std::wstring TextBlob(const std::wstring& text) {
    std::vector<BYTE> bytes(reinterpret_cast<const BYTE*>(text.data()),
                            reinterpret_cast<const BYTE*>(text.data()) + text.size() * sizeof(wchar_t));
    return L"x'" + HexBytes(bytes) + L"'";
}

class BadInputStringTest : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        if (HasFatalFailure()) return;
        Client().Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40), note TEXT)");
        Client().Run(L"INSERT INTO parts VALUES (1, 'bolt', NULL)");
        m_before = DatabaseSnapshot(Client());
    }

    std::string m_before;
};

TEST_F(BadInputStringTest, AnEmptyStatementIsNotApplicableAndBlanksRunAsNothing) {
    Outcome empty = Client().Execute(L"");
    EXPECT_EQ(S_OK, empty.hr);
    EXPECT_EQ(2, empty.result);
    EXPECT_EQ(L"", empty.errorText);
    EXPECT_FALSE(empty.xmlWritten);
    for (const wchar_t* nothing : {L"   ", L";", L" ; ;\r\n\t", L"-- a comment only"}) {
        Outcome outcome = Client().Execute(nothing);
        EXPECT_EQ(1, outcome.result) << ToUtf8(nothing);
        EXPECT_FALSE(outcome.xmlWritten);
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AnEmptyTableNameIsAName) {
    ASSERT_TRUE(Client().Run(L"CREATE TABLE \"\" (a INTEGER)"));
    ASSERT_TRUE(Client().Run(L"INSERT INTO \"\" VALUES (7)"));
    EXPECT_EQ(L"7", Client().Scalar(L"SELECT a FROM \"\""));
    ASSERT_TRUE(Client().Run(L"DROP TABLE \"\""));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, EmptyAndNullTextsInEveryOtherStringArgument) {
    ULONG handle = 0;
    ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
    Bstr sql(L"SELECT id, name FROM parts");
    ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, sql.get()));
    SHORT result = 0;
    Bstr xml, errorText, errorStmt;
    ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put()));
    ULONGLONG index = 99;
    Bstr empty(L"");
    EXPECT_EQ(S_OK, Client()->CmdGetColumnIndex(handle, empty.get(), &index));
    EXPECT_EQ(0u, index);
    index = 99;
    EXPECT_EQ(S_OK, Client()->CmdGetColumnIndex(handle, nullptr, &index));
    EXPECT_EQ(0u, index);
    // A null command text is an empty one.
    ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, nullptr));
    ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put()));
    EXPECT_EQ(2, result);
    EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, EmptyAndNullInitializationStringsFailAndTheServerOpensTheNextOne) {
    for (BSTR init : {Bstr(L"").release(), static_cast<BSTR>(nullptr), Bstr(L";;;").release(),
                      Bstr(L"Provider=").release(), Bstr(L"=").release()}) {
        Bstr owned = Bstr::Attach(init), errorText, errorStmt;
        EXPECT_EQ(E_FAIL, Client()->ConOpenFromInitializationString(owned.get(), VARIANT_FALSE, errorText.put(),
                                                                     errorStmt.put()))
            << ToUtf8(owned.str());
        VARIANT_BOOL connected = VARIANT_TRUE;
        ASSERT_EQ(S_OK, Client()->ConIsConnected(&connected));
        EXPECT_EQ(VARIANT_FALSE, connected);
    }
    OpenOrFail(Database().ConnectionString());
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AOneMegabyteStatementAndValueComeBackWhole) {
    const std::wstring value = Varied(kMegabyte);
    const std::wstring insert = L"INSERT INTO parts VALUES (2, 'big', '" + value + L"')";
    ASSERT_TRUE(Client().Run(insert));
    std::optional<Rows> rows = Client().Query(L"SELECT note, length(note) FROM parts WHERE id = 2");
    ASSERT_TRUE(rows);
    ASSERT_EQ(1u, rows->size());
    // A long text is a blob: its UTF-16 bytes.
    EXPECT_TRUE((*rows)[0][0] == TextBlob(value)) << "the 1 MB value changed on the way";
    EXPECT_EQ(std::to_wstring(kMegabyte), (*rows)[0][1].value_or(L""));
    // The query-result document carries it too.
    Outcome outcome = Client().Execute(L"SELECT note FROM parts WHERE id = 2");
    ASSERT_EQ(1, outcome.result);
    EXPECT_NE(std::wstring::npos, outcome.xml.find(L"C1=\"" + value + L"\""));
}

TEST_F(BadInputStringTest, AOneMegabyteStatementThatFailsComesBackWholeInTheErrorStatement) {
    const std::wstring sql = L"SELECT '" + Varied(kMegabyte) + L"' FROM nowhere";
    Outcome outcome = Client().Execute(sql);
    EXPECT_EQ(2, outcome.result);
    EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"no such table: nowhere"));
    EXPECT_TRUE(outcome.errorStmt == sql) << "errorStmt has " << outcome.errorStmt.size() << " characters";
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AOneMegabyteTableNameIsAName) {
    const std::wstring name = Varied(kMegabyte);
    ASSERT_TRUE(Client().Run(L"CREATE TABLE " + Quoted(name) + L" (a INTEGER)"));
    ASSERT_TRUE(Client().Run(L"INSERT INTO " + Quoted(name) + L" VALUES (42)"));
    EXPECT_EQ(L"42", Client().Scalar(L"SELECT a FROM " + Quoted(name)));
    EXPECT_EQ(std::to_wstring(kMegabyte), Client().Scalar(L"SELECT length(name) FROM sqlite_master WHERE type = 'table' AND name <> 'parts'"));
    ASSERT_TRUE(Client().Run(L"DROP TABLE " + Quoted(name)));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AOneMegabyteInitializationStringFailsClearly) {
    // A path of 1 MB names no file.
    std::wstring errorText;
    EXPECT_EQ(E_FAIL, Client().Open(ProviderConnection(Database().Directory() + L"\\" + Varied(kMegabyte)), &errorText));
    EXPECT_NE(std::wstring::npos, errorText.find(L"does not exist")) << ToUtf8(errorText.substr(0, 300));
    // A keyword of another provider with a 1 MB value is ignored.
    EXPECT_EQ(S_OK, Client().Open(Database().ConnectionString(L";Jet OLEDB:Database Password=" + Varied(kMegabyte)), &errorText))
        << ToUtf8(errorText.substr(0, 300));
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AnEmbeddedNulEndsTheStatement) {
    // Everything after the NUL is dropped: the second statement never runs.
    Outcome outcome = Client().Execute(L"SELECT name FROM parts\0; DROP TABLE parts"s);
    EXPECT_EQ(1, outcome.result);
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    // Cut inside a quoted text, the statement no longer parses; errorStmt shows what ran.
    outcome = Client().Execute(L"INSERT INTO parts VALUES (2, 'ab\0cd', NULL)"s);
    EXPECT_EQ(2, outcome.result);
    EXPECT_EQ(L"INSERT INTO parts VALUES (2, 'ab", outcome.errorStmt);
    EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"unrecognized token")) << ToUtf8(outcome.errorText);
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, AnEmbeddedNulEndsTheInitializationStringAndTheColumnName) {
    std::wstring errorText;
    EXPECT_EQ(S_OK, Client().Open(Database().ConnectionString() + L"\0;Data Source=C:\\nowhere\\x.db"s, &errorText))
        << ToUtf8(errorText);
    ULONG handle = 0;
    ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
    Bstr sql(L"SELECT id, name FROM parts"), xml, text, stmt;
    ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, sql.get()));
    SHORT result = 0;
    ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), text.put(), stmt.put()));
    Bstr column(L"name\0id"s);
    ULONGLONG index = 0;
    ASSERT_EQ(S_OK, Client()->CmdGetColumnIndex(handle, column.get(), &index));
    EXPECT_EQ(2u, index);
    EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
}

TEST_F(BadInputStringTest, ANulInsideAStoredValueEndsItsText) {
    // SQLite keeps the whole value; a field's text ends at its first NUL, as every string
    // the server hands out does.
    ASSERT_TRUE(Client().Run(L"INSERT INTO parts VALUES (2, 'ab' || char(0) || 'cd', NULL)"));
    std::optional<Rows> rows = Client().Query(L"SELECT name, length(CAST(name AS BLOB)) FROM parts WHERE id = 2");
    ASSERT_TRUE(rows);
    ASSERT_EQ(1u, rows->size());
    EXPECT_EQ(L"ab", (*rows)[0][0].value_or(L"(null)"));
    EXPECT_EQ(L"5", (*rows)[0][1].value_or(L"(null)"));
}

TEST_F(BadInputStringTest, CharactersOutsideTheBasicPlaneSurviveInValuesNamesAndDocuments) {
    const std::wstring table = L"t" + kSmile, column = L"c" + kSmile + L"\xD834\xDD1E";  // U+1D11E
    const std::wstring value = L"x" + kSmile + L"y\xD801\xDC37z";                      // U+10437
    const std::wstring longValue = Varied(5000) + kSmile;
    ASSERT_TRUE(Client().Run(L"CREATE TABLE " + Quoted(table) + L" (" + Quoted(column) + L" VARCHAR(40), memo TEXT)"));
    ASSERT_TRUE(Client().Run(L"INSERT INTO " + Quoted(table) + L" VALUES ('" + value + L"', '" + longValue + L"')"));
    std::optional<Rows> rows =
        Client().Query(L"SELECT " + Quoted(column) + L", memo, length(" + Quoted(column) + L") FROM " + Quoted(table));
    ASSERT_TRUE(rows);
    ASSERT_EQ(1u, rows->size());
    EXPECT_TRUE((*rows)[0][0] == value) << Describe(*rows);
    EXPECT_TRUE((*rows)[0][1] == TextBlob(longValue));
    EXPECT_EQ(L"5", (*rows)[0][2].value_or(L""));  // SQLite counts characters, not UTF-16 units

    ULONG handle = 0;
    ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
    Bstr sql(L"SELECT * FROM " + Quoted(table)), xml, text, stmt;
    ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, sql.get()));
    SHORT result = 0;
    ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), text.put(), stmt.put()));
    ASSERT_EQ(1, result);
    EXPECT_NE(std::wstring::npos, xml.str().find(L"Name=\"" + column + L"\""));
    EXPECT_NE(std::wstring::npos, xml.str().find(L"C1=\"" + value + L"\""));
    Bstr name;
    ASSERT_EQ(S_OK, Client()->CmdGetColumnName(handle, 1, name.put()));
    EXPECT_EQ(column, name.str());
    Bstr upper(L"C" + kSmile + L"\xD834\xDD1E");
    ULONGLONG index = 0;
    ASSERT_EQ(S_OK, Client()->CmdGetColumnIndex(handle, upper.get(), &index));
    EXPECT_EQ(1u, index);
    EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
}

TEST_F(BadInputStringTest, AStatementWithAnUnpairedSurrogateIsRefusedWhole) {
    // SQLite would read a lone surrogate together with the character after it (here the
    // letter, the closing quote) and run another statement than the one given.
    for (const std::wstring& sql : {std::wstring(L"INSERT INTO parts VALUES (2, 'a\xD800" L"b', NULL)"),
                                    std::wstring(L"INSERT INTO parts VALUES (2, 'a\xDC00', NULL)"),
                                    std::wstring(L"DELETE FROM parts; SELECT '\xDBFF'")}) {
        Outcome outcome = Client().Execute(sql);
        EXPECT_EQ(2, outcome.result);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"not valid UTF-16")) << ToUtf8(outcome.errorText);
        EXPECT_NE(std::wstring::npos, outcome.errorText.find(L"SQLState: 22021")) << ToUtf8(outcome.errorText);
        EXPECT_TRUE(outcome.errorStmt == sql);
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, TableNamesLongerThan128CharactersWorkInStatements) {
    for (size_t length : {128u, 129u, 300u, 5000u}) {
        const std::wstring name = Varied(length), columnName = L"c" + Varied(length);
        SCOPED_TRACE(length);
        ASSERT_TRUE(Client().Run(L"CREATE TABLE " + Quoted(name) + L" (" + Quoted(columnName) + L" INTEGER)"));
        ASSERT_TRUE(Client().Run(L"INSERT INTO " + Quoted(name) + L" VALUES (" + std::to_wstring(length) + L")"));
        EXPECT_EQ(std::to_wstring(length), Client().Scalar(L"SELECT " + Quoted(columnName) + L" FROM " + Quoted(name)));
        ULONG handle = 0;
        ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
        Bstr sql(L"SELECT * FROM " + Quoted(name)), xml, text, stmt;
        ASSERT_EQ(S_OK, Client()->CmdSetCommandText(handle, sql.get()));
        SHORT result = 0;
        ASSERT_EQ(S_OK, Client()->CmdExecute(handle, &result, xml.put(), text.put(), stmt.put()));
        Bstr column;
        ASSERT_EQ(S_OK, Client()->CmdGetColumnName(handle, 1, column.put()));
        EXPECT_TRUE(columnName == column.str());
        EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
        ASSERT_TRUE(Client().Run(L"DROP TABLE " + Quoted(name)));
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadInputStringTest, TheTableEnumerationCutsNamesAt128CharactersAndTheDefinitionDoesNot) {
    const std::wstring name = Varied(300);
    ASSERT_TRUE(Client().Run(L"CREATE TABLE " + Quoted(name) + L" (a INTEGER)"));
    ULONG handle = 0;
    Bstr empty(L""), type(L"TABLE"), errorText, errorStmt;
    ASSERT_EQ(S_OK, Client()->TblOpen(&handle, empty.get(), empty.get(), empty.get(), type.get(), errorText.put(),
                                      errorStmt.put()))
        << ToUtf8(errorText.str());
    std::vector<std::wstring> names;
    VARIANT_BOOL more = VARIANT_FALSE;
    while (SUCCEEDED(Client()->TblFetchNext(handle, &more)) && more == VARIANT_TRUE) {
        Bstr fetched;
        ASSERT_EQ(S_OK, Client()->TblGetName(handle, fetched.put()));
        names.push_back(fetched.str());
    }
    EXPECT_EQ(S_OK, Client()->TblDestroy(handle));
    EXPECT_EQ((std::vector<std::wstring>{name.substr(0, 128), L"parts"}), names);
    Bstr fullName(name), definition;
    ASSERT_EQ(S_OK, Client()->TblGetDef(fullName.get(), definition.put()));
    EXPECT_NE(std::wstring::npos, definition.str().find(L"Name=\"" + name + L"\""));
}

}  // namespace
