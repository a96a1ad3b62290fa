// The query path of the service object end to end in process, on real databases of the
// embedded provider: open, commands, row movement, field readers, the query-result document,
// transactions and the connection questions.
#include "service/ZelOleDbImpl.h"

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel;
using zel::test::ScratchDatabase;

namespace {

class QueryPathTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, zel::test::RegisterEmbeddedProvider()); }

    void SetUp() override {
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
        Open(database.ConnectionString());
    }

    void Open(const std::wstring& initString) {
        Bstr errorText, errorStmt;
        HRESULT hr = db->ConOpenFromInitializationString(Bstr(initString.c_str()).get(), VARIANT_TRUE,
                                                         errorText.put(), errorStmt.put());
        ASSERT_EQ(S_OK, hr) << testing::PrintToString(errorText.str());
    }

    ULONG Command(const wchar_t* sql) {
        ULONG handle = 0;
        EXPECT_EQ(S_OK, db->CmdSetConnection(&handle));
        EXPECT_EQ(S_OK, db->CmdSetCommandText(handle, Bstr(sql).get()));
        return handle;
    }

    // Runs a statement; returns the tri-state result.
    SHORT Execute(ULONG handle, Bstr* xml = nullptr, Bstr* errorText = nullptr, Bstr* errorStmt = nullptr) {
        SHORT result = -1;
        Bstr text, stmt, document;
        EXPECT_EQ(S_OK, db->CmdExecute(handle, &result, document.put(), text.put(), stmt.put()));
        if (xml) *xml = std::move(document);
        if (errorText) *errorText = std::move(text);
        if (errorStmt) *errorStmt = std::move(stmt);
        return result;
    }

    void Run(const wchar_t* sql) {
        ULONG handle = Command(sql);
        Bstr errorText;
        EXPECT_EQ(1, Execute(handle, nullptr, &errorText)) << testing::PrintToString(std::wstring(sql)) << " "
                                                             << testing::PrintToString(errorText.str());
        db->CmdDestroy(handle);
    }

    void MakeParts() {
        Run(L"CREATE TABLE parts (ID INTEGER PRIMARY KEY, Title TEXT(50), Price DOUBLE, Notes MEMO)");
        Run(L"INSERT INTO parts VALUES (1, 'Shaft', 2.75, NULL)");
        Run(L"INSERT INTO parts VALUES (2, NULL, -2.75, 'n')");
        Run(L"INSERT INTO parts VALUES (3, 'Gear   ', 10, NULL)");
    }

    std::wstring Text(ULONG handle, ULONGLONG column) {
        Bstr value;
        EXPECT_EQ(S_OK, db->CmdFieldAsStringEx(handle, column, value.put()));
        return value.str();
    }

    SHORT Move(HRESULT (STDMETHODCALLTYPE IZelOleDb::*move)(ULONG, SHORT*), ULONG handle) {
        SHORT result = -1;
        EXPECT_EQ(S_OK, (db.get()->*move)(handle, &result));
        return result;
    }

    ScratchDatabase database;
    ComPtr<IZelOleDb> db;
};

}  // namespace

TEST_F(QueryPathTest, QueryRunsEndToEndWithXmlThenRowByRow) {
    MakeParts();
    ULONG handle = Command(L"SELECT ID, Title FROM parts ORDER BY ID");
    Bstr xml;
    ASSERT_EQ(1, Execute(handle, &xml));
    ASSERT_NE(nullptr, xml.get());
    std::wstring document = xml.str();
    EXPECT_EQ(0u, document.find(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<QueryData Version=\"5.0\">"));
    EXPECT_NE(std::wstring::npos, document.find(L"<Rowset C1=\"1\" C2=\"Shaft\"/>"));
    EXPECT_NE(std::wstring::npos, document.find(L"<Rowset C1=\"2\"/>"));
    EXPECT_NE(std::wstring::npos, document.find(L"<ColumnDef Name=\"ID\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\""));
    // The document left the command after its last row.
    EXPECT_EQ(0, Move(&IZelOleDb::CmdFetchNext, handle));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    EXPECT_EQ(L"1", Text(handle, 1));
    EXPECT_EQ(L"Shaft", Text(handle, 2));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchNext, handle));
    SHORT isNull = -1;
    EXPECT_EQ(S_OK, db->CmdIsNull(handle, 2, &isNull));
    EXPECT_EQ(1, isNull);
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchLast, handle));
    EXPECT_EQ(L"Gear", Text(handle, 2));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchPrev, handle));
    EXPECT_EQ(L"2", Text(handle, 1));
    EXPECT_EQ(S_OK, db->CmdDestroy(handle));
    EXPECT_EQ(S_OK, db->ConClose());
}

TEST_F(QueryPathTest, InvalidStatementReportsThroughResultAndTextsNotHresult) {
    ULONG handle = Command(L"SELEC nothing");
    Bstr xml(L"untouched"), errorText, errorStmt;
    SHORT result = -1;
    BSTR document = xml.get();
    EXPECT_EQ(S_OK, db->CmdExecute(handle, &result, &document, errorText.put(), errorStmt.put()));
    EXPECT_EQ(2, result);
    EXPECT_EQ(xml.get(), document);  // not written
    EXPECT_NE(std::wstring::npos, errorText.str().find(L"Description: \"")) << testing::PrintToString(errorText.str());
    EXPECT_NE(std::wstring::npos, errorText.str().find(L"SQLState: ")) << testing::PrintToString(errorText.str());
    EXPECT_EQ(L"SELEC nothing", errorStmt.str());
}

TEST_F(QueryPathTest, SelectWithoutRowsSucceedsWithoutDocument) {
    MakeParts();
    ULONG handle = Command(L"SELECT * FROM parts WHERE ID > 100");
    SHORT result = -1;
    BSTR document = nullptr;
    EXPECT_EQ(S_OK, db->CmdExecute(handle, &result, &document, nullptr, nullptr));
    EXPECT_EQ(1, result);
    EXPECT_EQ(nullptr, document);
}

TEST_F(QueryPathTest, ExecuteWithoutXmlPointerWalksTheRowsToTheEndWithoutDocument) {
    MakeParts();
    ULONG handle = Command(L"SELECT ID, Title FROM parts ORDER BY ID");
    SHORT result = -1;
    Bstr errorText, errorStmt;
    EXPECT_EQ(S_OK, db->CmdExecute(handle, &result, nullptr, errorText.put(), errorStmt.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(L"", errorText.str());
    // The command stands after its last row, as after a document.
    EXPECT_EQ(0, Move(&IZelOleDb::CmdFetchNext, handle));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    EXPECT_EQ(L"1", Text(handle, 1));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchLast, handle));
    EXPECT_EQ(L"3", Text(handle, 1));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchPrev, handle));
    EXPECT_EQ(L"2", Text(handle, 1));
}

// A null command text sets an empty text: it replaces the statement set before, and executing
// it runs nothing. Late-bound in process the null reaches the method as null, with the same effect.
TEST_F(QueryPathTest, NullCommandTextReplacesTheStatementThroughTheInterfaceAndLateBound) {
    ULONG handle = Command(L"SELECT 1 AS one");
    ASSERT_EQ(1, Execute(handle));
    ASSERT_EQ(S_OK, db->CmdSetCommandText(handle, nullptr));
    Bstr xml, errorText, errorStmt;
    EXPECT_EQ(2, Execute(handle, &xml, &errorText, &errorStmt));
    EXPECT_EQ(nullptr, xml.get());
    EXPECT_EQ(L"", errorText.str());
    EXPECT_EQ(L"", errorStmt.str());

    ASSERT_EQ(S_OK, db->CmdSetCommandText(handle, Bstr(L"SELECT 1 AS one").get()));
    ASSERT_EQ(1, Execute(handle));
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, db.query(dispatch));
    test::DispArgs setText{test::I4(static_cast<LONG>(handle)), Variant()};
    V_VT(&setText.at(0)) = VT_BSTR;  // a null BSTR, set in place (a copy would be an empty one)
    Variant result;
    ASSERT_EQ(S_OK, dispatch->Invoke(14, IID_NULL, 0, DISPATCH_METHOD, setText.get(), result.put(), nullptr, nullptr));
    EXPECT_EQ(2, Execute(handle, &xml));
    EXPECT_EQ(nullptr, xml.get());
    EXPECT_EQ(S_OK, db->CmdDestroy(handle));
}

TEST_F(QueryPathTest, UpdateReportsRowsAffectedAndFetchesNothing) {
    MakeParts();
    ULONG handle = Command(L"UPDATE parts SET Price = Price + 1 WHERE ID < 3");
    ASSERT_EQ(1, Execute(handle));
    LONGLONG affected = 0;
    EXPECT_EQ(S_OK, db->CmdGetRowsAffected(handle, &affected));
    EXPECT_EQ(2, affected);
    EXPECT_EQ(0, Move(&IZelOleDb::CmdFetchNext, handle));
}

TEST_F(QueryPathTest, NeverExecutedCommandOnOpenConnectionAnswersNotApplicable) {
    ULONG handle = Command(L"SELECT 1");
    EXPECT_EQ(2, Move(&IZelOleDb::CmdFetchNext, handle));
}

TEST_F(QueryPathTest, FetchNextPastLastRowAnswersZero) {
    MakeParts();
    ULONG handle = Command(L"SELECT ID FROM parts WHERE ID = 1");
    ASSERT_EQ(1, Execute(handle));
    EXPECT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    EXPECT_EQ(0, Move(&IZelOleDb::CmdFetchNext, handle));
    EXPECT_EQ(0, Move(&IZelOleDb::CmdFetchNext, handle));
}

TEST_F(QueryPathTest, ColumnPositionUsesOnlyTheLow32Bits) {
    MakeParts();
    ULONG handle = Command(L"SELECT ID, Title FROM parts ORDER BY ID");
    ASSERT_EQ(1, Execute(handle));
    ASSERT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    EXPECT_EQ(L"1", Text(handle, (1ULL << 32) + 1));
}

TEST_F(QueryPathTest, FieldAsVariantTakesUnsignedPositionOrName) {
    MakeParts();
    ULONG handle = Command(L"SELECT ID, Title, Price FROM parts ORDER BY ID");
    ASSERT_EQ(1, Execute(handle));
    ASSERT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    Variant column;
    V_VT(column.get()) = VT_UI4;
    V_UI4(column.get()) = 3;
    Variant value;
    ASSERT_EQ(S_OK, db->CmdFieldAsVariant(handle, column.get(), value.get()));
    EXPECT_EQ(VT_R8, value.vt());
    EXPECT_EQ(2.75, V_R8(value.get()));
    Variant name(std::wstring_view(L"title"));
    ASSERT_EQ(S_OK, db->CmdFieldAsVariant(handle, name.get(), value.get()));
    ASSERT_EQ(VT_BSTR, value.vt());
    EXPECT_STREQ(L"Shaft", V_BSTR(value.get()));
    Variant i4 = Variant::FromI4(1);
    EXPECT_EQ(E_INVALIDARG, db->CmdFieldAsVariant(handle, i4.get(), value.get()));
}

TEST_F(QueryPathTest, LongTextComesBackAsByteArray) {
    Run(L"CREATE TABLE memos (ID INTEGER, Body MEMO)");
    std::wstring body(10000, L'x');
    Run((L"INSERT INTO memos VALUES (1, '" + body + L"')").c_str());
    ULONG handle = Command(L"SELECT Body FROM memos");
    ASSERT_EQ(1, Execute(handle));
    ASSERT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    SHORT blob = -1;
    EXPECT_EQ(S_OK, db->CmdIsBlob(handle, 1, &blob));
    EXPECT_EQ(1, blob);
    Variant bytes;
    ASSERT_EQ(S_OK, db->CmdGetBlobData(handle, 1, bytes.get()));
    ASSERT_EQ(VT_ARRAY | VT_UI1, bytes.vt());
    LONG upper = -1;
    SafeArrayGetUBound(V_ARRAY(bytes.get()), 1, &upper);
    EXPECT_EQ(20000 - 1, upper);
}

TEST_F(QueryPathTest, ConnectionAnswersDataSourceAndStateAfterClose) {
    VARIANT_BOOL answer = 0;
    EXPECT_EQ(S_OK, db->ConIsConnected(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
    EXPECT_EQ(S_OK, db->ConIsReadOnly(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    Bstr source;
    ASSERT_EQ(S_OK, db->ConGetDatasource(source.put()));
    EXPECT_EQ(0, _wcsicmp(database.Path().c_str(), source.c_str())) << testing::PrintToString(source.str());
    EXPECT_EQ(S_OK, db->ConClose());
    EXPECT_EQ(S_OK, db->ConIsConnected(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    EXPECT_EQ(E_FAIL, db->ConGetDatasource(source.put()));
    EXPECT_EQ(S_OK, db->ConIsReadOnly(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
    // The transaction methods on a closed connection answer false instead of failing.
    EXPECT_EQ(S_OK, db->ConStartTransaction(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
}

TEST_F(QueryPathTest, ReadModeOpensReadOnly) {
    Open(database.ConnectionString(L";Mode=Read"));
    VARIANT_BOOL answer = 0;
    EXPECT_EQ(S_OK, db->ConIsReadOnly(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
}

TEST_F(QueryPathTest, PromptFlagOtherThanVariantTrueDoesNotPrompt) {
    Bstr errorText, errorStmt;
    EXPECT_EQ(S_OK, db->ConOpenFromInitializationString(Bstr(database.ConnectionString().c_str()).get(), 1,
                                                        errorText.put(), errorStmt.put()));
}

TEST_F(QueryPathTest, TransactionsCommitAndRollBack) {
    Run(L"CREATE TABLE t (v INTEGER)");
    VARIANT_BOOL answer = 0;
    EXPECT_EQ(S_OK, db->ConCommit(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);  // no transaction running: the provider refuses
    EXPECT_EQ(S_OK, db->ConStartTransaction(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
    Run(L"INSERT INTO t VALUES (1)");
    EXPECT_EQ(S_OK, db->ConRollback(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
    EXPECT_EQ(S_OK, db->ConStartTransaction(&answer));
    Run(L"INSERT INTO t VALUES (2)");
    EXPECT_EQ(S_OK, db->ConCommit(&answer));
    EXPECT_EQ(VARIANT_TRUE, answer);
    ULONG handle = Command(L"SELECT COUNT(*), MAX(v) FROM t");
    ASSERT_EQ(1, Execute(handle));
    ASSERT_EQ(1, Move(&IZelOleDb::CmdFetchFirst, handle));
    EXPECT_EQ(L"1", Text(handle, 1));
    EXPECT_EQ(L"2", Text(handle, 2));
}

TEST_F(QueryPathTest, TwoCommandsInOneTickShareTheFirstCommandsHandle) {
    // Two creations usually land in the same millisecond; retry until a pair does.
    for (int attempt = 0; attempt < 100; ++attempt) {
        ULONG first = 0;
        ASSERT_EQ(S_OK, db->CmdSetConnection(&first));
        ULONG second = 0;
        ASSERT_EQ(S_OK, db->CmdSetConnection(&second));
        if (second != first) {
            db->CmdDestroy(first);
            db->CmdDestroy(second);
            continue;
        }
        // The handle still names the first command: the text set through it is the one
        // the first command runs, and one destroy removes the only entry.
        ASSERT_EQ(S_OK, db->CmdSetCommandText(first, Bstr(L"SELECT 1").get()));
        EXPECT_EQ(1, Execute(first));
        EXPECT_EQ(S_OK, db->CmdDestroy(first));
        EXPECT_EQ(E_FAIL, db->CmdDestroy(second));
        return;
    }
    FAIL() << "no two command creations fell within one tick";
}

TEST_F(QueryPathTest, ReopeningReplacesTheSessionOfTheSameConnection) {
    Run(L"CREATE TABLE t (v INTEGER)");
    Open(database.ConnectionString());
    ULONG handle = Command(L"SELECT COUNT(*) FROM t");
    EXPECT_EQ(1, Execute(handle));
}
