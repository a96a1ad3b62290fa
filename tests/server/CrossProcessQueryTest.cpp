// The query path end to end across the process boundary: this client (of either bitness)
// activates the 32-bit server, which opens a database of the embedded provider, runs
// statements and hands rows, fields, blobs and the query-result document back, through the
// interface (early-bound, marshalled by the type library) and through IDispatch.
#include <windows.h>

#include <gtest/gtest.h>

#include <cwctype>
#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

// A zero-length file in the temporary folder, which the provider opens as an empty database.
class TempDatabaseFile {
public:
    TempDatabaseFile() {
        wchar_t folder[MAX_PATH], file[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        if (GetTempFileNameW(folder, L"zqp", 0, file)) m_path = file;
    }
    ~TempDatabaseFile() {
        if (!m_path.empty()) DeleteFileW(m_path.c_str());
    }
    const std::wstring& path() const { return m_path; }
    std::wstring ConnectionString() const { return L"Provider=ZelLite.OLEDB.1;Data Source=" + m_path; }

private:
    std::wstring m_path;
};

std::wstring Lower(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(c));
    return text;
}

std::vector<BYTE> Bytes(const VARIANT& value) {
    std::vector<BYTE> bytes;
    if (V_VT(&value) != (VT_ARRAY | VT_UI1) || !V_ARRAY(&value)) return bytes;
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
    zel::SafeArrayData data(V_ARRAY(&value));
    bytes.assign(data.as<BYTE>(), data.as<BYTE>() + (upper - lower + 1));
    return bytes;
}

class CrossProcessQueryTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
        ASSERT_TRUE(RegisterProvider());
    }

    void SetUp() override {
        ASSERT_FALSE(m_file.path().empty());
        const std::vector<DWORD> before = ServerProcessIds();
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, m_db, CLSCTX_LOCAL_SERVER));
        m_server = WaitForNewServerProcess(before, 2000).value_or(0);
        Bstr errorText, errorStmt;
        Bstr init(m_file.ConnectionString());
        ASSERT_EQ(S_OK, m_db->ConOpenFromInitializationString(init.get(), VARIANT_FALSE, errorText.put(),
                                                              errorStmt.put()))
            << testing::PrintToString(errorText.str());
        EXPECT_EQ(L"", errorText.str());
    }

    void TearDown() override {
        if (m_db) m_db->ConClose();
        m_db.reset();
        // The server ends with its last client, and lets go of the file.
        if (m_server) {
            EXPECT_TRUE(WaitForProcessExit(m_server, 5000));
        }
    }

    // Runs `sql` on a new command; returns the handle, the tri-state result and the document.
    ULONG Execute(const wchar_t* sql, SHORT* result, Bstr* xml = nullptr, Bstr* errorText = nullptr,
                  Bstr* errorStmt = nullptr) {
        ULONG handle = 0;
        EXPECT_EQ(S_OK, m_db->CmdSetConnection(&handle));
        Bstr text(sql);
        EXPECT_EQ(S_OK, m_db->CmdSetCommandText(handle, text.get()));
        Bstr localXml, localText, localStmt;
        EXPECT_EQ(S_OK, m_db->CmdExecute(handle, result, (xml ? xml : &localXml)->put(),
                                         (errorText ? errorText : &localText)->put(),
                                         (errorStmt ? errorStmt : &localStmt)->put()));
        return handle;
    }

    void Run(const wchar_t* sql) {
        SHORT result = 0;
        Bstr errorText;
        ULONG handle = Execute(sql, &result, nullptr, &errorText);
        EXPECT_EQ(1, result) << testing::PrintToString(std::wstring(sql)) << " " << testing::PrintToString(errorText.str());
        EXPECT_EQ(S_OK, m_db->CmdDestroy(handle));
    }

    void MakeParts() {
        Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40), price REAL, data BLOB)");
        Run(L"INSERT INTO parts VALUES (1, 'bolt', 0.25, X'00FF10')");
        Run(L"INSERT INTO parts VALUES (2, 'nut', 0.5, NULL)");
        Run(L"INSERT INTO parts VALUES (3, 'washer', 1.5, X'7F')");
    }

    std::wstring FieldText(ULONG handle, ULONGLONG colpos) {
        Bstr text;
        EXPECT_EQ(S_OK, m_db->CmdFieldAsString(handle, colpos, text.put()));
        return text.str();
    }

    TempDatabaseFile m_file;
    ComPtr<IZelOleDb> m_db;
    DWORD m_server = 0;
};

TEST_F(CrossProcessQueryTest, ConnectionReportsItsStateAndDataSource) {
    VARIANT_BOOL connected = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_db->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_TRUE, connected);
    Bstr source;
    ASSERT_EQ(S_OK, m_db->ConGetDatasource(source.put()));
    const std::wstring file = m_file.path().substr(m_file.path().find_last_of(L'\\') + 1);
    EXPECT_NE(std::wstring::npos, Lower(source.str()).find(Lower(file))) << testing::PrintToString(source.str());
    ASSERT_EQ(S_OK, m_db->ConClose());
    ASSERT_EQ(S_OK, m_db->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected);
}

TEST_F(CrossProcessQueryTest, SelectGivesTheDocumentThenRowsFieldsAndBlobsEarlyBound) {
    MakeParts();
    SHORT result = 0;
    Bstr xml, errorText, errorStmt;
    ULONG h = Execute(L"SELECT id, name, price, data FROM parts ORDER BY id", &result, &xml, &errorText, &errorStmt);
    ASSERT_EQ(1, result) << testing::PrintToString(errorText.str());
    EXPECT_EQ(L"", errorText.str());
    EXPECT_EQ(L"", errorStmt.str());
    EXPECT_NE(std::wstring::npos, xml.str().find(L"bolt")) << testing::PrintToString(xml.str());
    EXPECT_NE(std::wstring::npos, xml.str().find(L"washer"));

    ULONGLONG columns = 0;
    ASSERT_EQ(S_OK, m_db->CmdGetColumnCount(h, &columns));
    EXPECT_EQ(4u, columns);
    Bstr name;
    ASSERT_EQ(S_OK, m_db->CmdGetColumnName(h, 2, name.put()));
    EXPECT_EQ(L"name", name.str());
    Bstr price(L"price");
    ULONGLONG index = 0;
    ASSERT_EQ(S_OK, m_db->CmdGetColumnIndex(h, price.get(), &index));
    EXPECT_EQ(3u, index);

    // The document read every row: the command stands at the end.
    SHORT moved = -1;
    ASSERT_EQ(S_OK, m_db->CmdFetchNext(h, &moved));
    EXPECT_EQ(0, moved);
    ASSERT_EQ(S_OK, m_db->CmdFetchFirst(h, &moved));
    EXPECT_EQ(1, moved);
    LONG id = 0;
    ASSERT_EQ(S_OK, m_db->CmdFieldAsLong(h, 1, &id));
    EXPECT_EQ(1, id);
    EXPECT_EQ(L"bolt", FieldText(h, 2));
    SHORT flag = -1;
    ASSERT_EQ(S_OK, m_db->CmdIsBlob(h, 4, &flag));
    EXPECT_EQ(1, flag);
    Variant blob;
    ASSERT_EQ(S_OK, m_db->CmdGetBlobData(h, 4, blob.get()));
    ASSERT_EQ(VT_ARRAY | VT_UI1, blob.vt());
    EXPECT_EQ((std::vector<BYTE>{0x00, 0xFF, 0x10}), Bytes(*blob.get()));

    ASSERT_EQ(S_OK, m_db->CmdFetchNext(h, &moved));
    EXPECT_EQ(1, moved);
    ASSERT_EQ(S_OK, m_db->CmdIsNull(h, 4, &flag));
    EXPECT_EQ(1, flag);
    // Only the low 32 bits of a column position count.
    EXPECT_EQ(L"nut", FieldText(h, (1ull << 32) + 2));

    ASSERT_EQ(S_OK, m_db->CmdFetchLast(h, &moved));
    EXPECT_EQ(1, moved);
    EXPECT_EQ(L"washer", FieldText(h, 2));
    ASSERT_EQ(S_OK, m_db->CmdFetchPrev(h, &moved));
    EXPECT_EQ(1, moved);
    EXPECT_EQ(L"nut", FieldText(h, 2));

    // A column by unsigned position or by name; a signed position is refused.
    Variant column = UI4(2), value;
    ASSERT_EQ(S_OK, m_db->CmdFieldAsVariant(h, column.get(), value.put()));
    ASSERT_EQ(S_OK, value.change_type(VT_BSTR));
    EXPECT_EQ(L"nut", BstrText(V_BSTR(value.get())));
    Variant byName = Str(L"id");
    ASSERT_EQ(S_OK, m_db->CmdFieldAsVariant(h, byName.get(), value.put()));
    ASSERT_EQ(S_OK, value.change_type(VT_I4));
    EXPECT_EQ(2, V_I4(value.get()));
    Variant signedPosition = I4(2);
    EXPECT_EQ(E_INVALIDARG, m_db->CmdFieldAsVariant(h, signedPosition.get(), value.put()));

    EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
}

TEST_F(CrossProcessQueryTest, AnInvalidStatementReportsTheProvidersMessageAndTheStatement) {
    SHORT result = 0;
    Bstr xml, errorText, errorStmt;
    const wchar_t* sql = L"SELEKT * FROM nowhere";
    ULONG h = Execute(sql, &result, &xml, &errorText, &errorStmt);
    EXPECT_EQ(2, result);
    EXPECT_FALSE(errorText.empty());
    EXPECT_EQ(sql, errorStmt.str());
    EXPECT_EQ(nullptr, xml.get());
    EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
}

TEST_F(CrossProcessQueryTest, ASelectWithoutRowsLeavesTheDocumentUnwritten) {
    MakeParts();
    SHORT result = 0;
    Bstr xml;
    ULONG h = Execute(L"SELECT * FROM parts WHERE id > 100", &result, &xml);
    EXPECT_EQ(1, result);
    EXPECT_EQ(nullptr, xml.get());
    SHORT moved = -1;
    ASSERT_EQ(S_OK, m_db->CmdFetchFirst(h, &moved));
    EXPECT_EQ(0, moved);
    EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
}

// A null command text sets an empty text, as an empty one does: it replaces the statement set
// before, and executing an empty text runs nothing (not applicable, no error, no document).
TEST_F(CrossProcessQueryTest, ANullCommandTextReplacesTheStatementWithAnEmptyOne) {
    const std::vector<const wchar_t*> replacements = {nullptr, L""};
    for (const wchar_t* replacement : replacements) {
        SCOPED_TRACE(replacement ? "an empty text" : "a null text");
        ULONG h = 0;
        ASSERT_EQ(S_OK, m_db->CmdSetConnection(&h));
        Bstr select(L"SELECT 1 AS one"), replacementText(replacement ? replacement : L"");
        ASSERT_EQ(S_OK, m_db->CmdSetCommandText(h, select.get()));
        SHORT result = 0;
        Bstr xml, errorText, errorStmt;
        ASSERT_EQ(S_OK, m_db->CmdExecute(h, &result, xml.put(), errorText.put(), errorStmt.put()));
        ASSERT_EQ(1, result) << testing::PrintToString(errorText.str());

        ASSERT_EQ(S_OK, m_db->CmdSetCommandText(h, replacement ? replacementText.get() : nullptr));
        result = 0;
        ASSERT_EQ(S_OK, m_db->CmdExecute(h, &result, xml.put(), errorText.put(), errorStmt.put()));
        EXPECT_EQ(2, result);
        EXPECT_EQ(nullptr, xml.get());
        EXPECT_EQ(L"", errorText.str());
        EXPECT_EQ(L"", errorStmt.str());
        EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
    }
}

TEST_F(CrossProcessQueryTest, ADestroyedHandleIsUnknownToEveryMethod) {
    SHORT result = 0;
    ULONG h = Execute(L"CREATE TABLE t (a INTEGER)", &result);
    ASSERT_EQ(S_OK, m_db->CmdDestroy(h));
    SHORT moved = 0;
    EXPECT_EQ(E_FAIL, m_db->CmdFetchNext(h, &moved));
    Bstr text;
    EXPECT_EQ(E_FAIL, m_db->CmdFieldAsString(h, 1, text.put()));
    EXPECT_EQ(E_FAIL, m_db->CmdDestroy(h));
}

TEST_F(CrossProcessQueryTest, ANeverExecutedCommandAnswersNotApplicable) {
    ULONG h = 0;
    ASSERT_EQ(S_OK, m_db->CmdSetConnection(&h));
    SHORT moved = 0;
    ASSERT_EQ(S_OK, m_db->CmdFetchNext(h, &moved));
    EXPECT_EQ(2, moved);
    EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
}

TEST_F(CrossProcessQueryTest, RolledBackInsertsAreGoneCommittedOnesStay) {
    Run(L"CREATE TABLE t (a INTEGER)");
    VARIANT_BOOL ok = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_db->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    Run(L"INSERT INTO t VALUES (1)");
    ASSERT_EQ(S_OK, m_db->ConRollback(&ok));
    EXPECT_EQ(VARIANT_TRUE, ok);
    ASSERT_EQ(S_OK, m_db->ConStartTransaction(&ok));
    ASSERT_EQ(VARIANT_TRUE, ok);
    Run(L"INSERT INTO t VALUES (2)");
    ASSERT_EQ(S_OK, m_db->ConCommit(&ok));
    EXPECT_EQ(VARIANT_TRUE, ok);
    SHORT result = 0;
    ULONG h = Execute(L"SELECT COUNT(*), SUM(a) FROM t", &result);
    ASSERT_EQ(1, result);
    SHORT moved = 0;
    ASSERT_EQ(S_OK, m_db->CmdFetchFirst(h, &moved));
    EXPECT_EQ(L"1", FieldText(h, 1));
    EXPECT_EQ(L"2", FieldText(h, 2));
    EXPECT_EQ(S_OK, m_db->CmdDestroy(h));
}

// ---- the same path late-bound ----

class CrossProcessQueryLateBoundTest : public CrossProcessQueryTest {
protected:
    void SetUp() override {
        CrossProcessQueryTest::SetUp();
        ASSERT_EQ(S_OK, m_db.query(m_dispatch));
    }
    void TearDown() override {
        m_dispatch.reset();
        CrossProcessQueryTest::TearDown();
    }

    HRESULT Call(const wchar_t* method, DispArgs& args) {
        std::wstring name = method;
        LPOLESTR names[] = {name.data()};
        DISPID id = 0;
        HRESULT hr = m_dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(hr)) return hr;
        m_result.clear();
        return m_dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), m_result.put(),
                                  nullptr, nullptr);
    }

    ComPtr<IDispatch> m_dispatch;
    Variant m_result;
};

TEST_F(CrossProcessQueryLateBoundTest, ScriptStyleArgumentsRunTheQueryPath) {
    MakeParts();
    // Every variable by reference, as a script passes it; literals by value.
    Variant handle = I4(0);
    DispArgs setConnection{RefVariant(handle.get())};
    ASSERT_EQ(S_OK, Call(L"CmdSetConnection", setConnection));
    ASSERT_EQ(VT_I4, handle.vt());
    ASSERT_NE(0, V_I4(handle.get()));

    DispArgs setText{RefVariant(handle.get()), Str(L"SELECT id, name, data FROM parts ORDER BY id")};
    ASSERT_EQ(S_OK, Call(L"CmdSetCommandText", setText));
    Variant result, xml, errorText = Str(L"stale"), errorStmt;
    DispArgs execute{RefVariant(handle.get()), RefVariant(result.get()), RefVariant(xml.get()),
                     RefVariant(errorText.get()), RefVariant(errorStmt.get())};
    ASSERT_EQ(S_OK, Call(L"cmdexecute", execute));
    ASSERT_EQ(VT_I2, result.vt());
    EXPECT_EQ(1, V_I2(result.get()));
    ASSERT_EQ(VT_BSTR, xml.vt());
    EXPECT_NE(std::wstring::npos, BstrText(V_BSTR(xml.get())).find(L"washer"));
    ASSERT_EQ(VT_BSTR, errorText.vt());
    EXPECT_EQ(L"", BstrText(V_BSTR(errorText.get())));

    DispArgs first{RefVariant(handle.get())};
    ASSERT_EQ(S_OK, Call(L"CmdFetchFirst", first));
    ASSERT_EQ(VT_I2, m_result.vt());
    EXPECT_EQ(1, V_I2(m_result.get()));

    // A literal position arrives as VT_I2 and is converted to the declared 64-bit type.
    DispArgs asString{RefVariant(handle.get()), I2(2)};
    ASSERT_EQ(S_OK, Call(L"CmdFieldAsString", asString));
    ASSERT_EQ(VT_BSTR, m_result.vt());
    EXPECT_EQ(L"bolt", BstrText(V_BSTR(m_result.get())));
    DispArgs asLong{RefVariant(handle.get()), Str(L"1")};
    ASSERT_EQ(S_OK, Call(L"CmdFieldAsLong", asLong));
    ASSERT_EQ(VT_I4, m_result.vt());
    EXPECT_EQ(1, V_I4(m_result.get()));

    DispArgs blob{RefVariant(handle.get()), I2(3)};
    ASSERT_EQ(S_OK, Call(L"CmdGetBlobData", blob));
    ASSERT_EQ(VT_ARRAY | VT_UI1, m_result.vt());
    EXPECT_EQ((std::vector<BYTE>{0x00, 0xFF, 0x10}), Bytes(*m_result.get()));

    Variant byName = Str(L"name");
    DispArgs fieldByName{RefVariant(handle.get()), RefVariant(byName.get())};
    ASSERT_EQ(S_OK, Call(L"CmdFieldAsVariant", fieldByName));
    ASSERT_EQ(S_OK, m_result.change_type(VT_BSTR));
    EXPECT_EQ(L"bolt", BstrText(V_BSTR(m_result.get())));
    DispArgs fieldBySignedPosition{RefVariant(handle.get()), I4(2)};
    EXPECT_EQ(E_INVALIDARG, Call(L"CmdFieldAsVariant", fieldBySignedPosition));

    DispArgs destroy{RefVariant(handle.get())};
    EXPECT_EQ(S_OK, Call(L"CmdDestroy", destroy));
    DispArgs again{RefVariant(handle.get())};
    EXPECT_EQ(E_FAIL, Call(L"CmdDestroy", again));
}

// A null command text late-bound replaces the statement with an empty text, passed by value
// (under Wine's IDispatch::Invoke stub it arrives as an empty string, with the same effect) or
// by reference (it arrives null).
TEST_F(CrossProcessQueryLateBoundTest, ANullCommandTextReplacesTheStatementWithAnEmptyOne) {
    for (bool byReference : {false, true}) {
        SCOPED_TRACE(byReference ? "by reference" : "by value");
        Variant handle = I4(0);
        DispArgs setConnection{RefVariant(handle.get())};
        ASSERT_EQ(S_OK, Call(L"CmdSetConnection", setConnection));
        DispArgs select{RefVariant(handle.get()), Str(L"SELECT 1 AS one")};
        ASSERT_EQ(S_OK, Call(L"CmdSetCommandText", select));

        BSTR text = nullptr;
        DispArgs setNull{RefVariant(handle.get()), Variant()};
        // Set in place: copying a VARIANT makes a null BSTR an empty one.
        VARIANT& arg = setNull.at(0);
        if (byReference) {
            V_VT(&arg) = VT_BYREF | VT_BSTR;
            V_BSTRREF(&arg) = &text;
        } else {
            V_VT(&arg) = VT_BSTR;
            V_BSTR(&arg) = nullptr;
        }
        ASSERT_EQ(S_OK, Call(L"CmdSetCommandText", setNull));
        EXPECT_EQ(nullptr, text);

        Variant result, xml, errorText, errorStmt;
        DispArgs execute{RefVariant(handle.get()), RefVariant(result.get()), RefVariant(xml.get()),
                         RefVariant(errorText.get()), RefVariant(errorStmt.get())};
        ASSERT_EQ(S_OK, Call(L"CmdExecute", execute));
        ASSERT_EQ(VT_I2, result.vt());
        EXPECT_EQ(2, V_I2(result.get()));
        ASSERT_EQ(VT_BSTR, xml.vt());
        EXPECT_EQ(nullptr, V_BSTR(xml.get()));
        ASSERT_EQ(VT_BSTR, errorText.vt());
        EXPECT_EQ(L"", BstrText(V_BSTR(errorText.get())));
        DispArgs destroy{RefVariant(handle.get())};
        EXPECT_EQ(S_OK, Call(L"CmdDestroy", destroy));
    }
}

TEST_F(CrossProcessQueryLateBoundTest, OutParametersOfAFailedStatementCarryTheError) {
    Variant handle = I4(0);
    DispArgs setConnection{RefVariant(handle.get())};
    ASSERT_EQ(S_OK, Call(L"CmdSetConnection", setConnection));
    DispArgs setText{RefVariant(handle.get()), Str(L"INSERT INTO missing VALUES (1)")};
    ASSERT_EQ(S_OK, Call(L"CmdSetCommandText", setText));
    Variant result, xml = I4(77), errorText, errorStmt;
    DispArgs execute{RefVariant(handle.get()), RefVariant(result.get()), RefVariant(xml.get()),
                     RefVariant(errorText.get()), RefVariant(errorStmt.get())};
    ASSERT_EQ(S_OK, Call(L"CmdExecute", execute));
    EXPECT_EQ(2, V_I2(result.get()));
    ASSERT_EQ(VT_BSTR, errorText.vt());
    EXPECT_NE(L"", BstrText(V_BSTR(errorText.get())));
    ASSERT_EQ(VT_BSTR, errorStmt.vt());
    EXPECT_EQ(L"INSERT INTO missing VALUES (1)", BstrText(V_BSTR(errorStmt.get())));
    DispArgs destroy{RefVariant(handle.get())};
    EXPECT_EQ(S_OK, Call(L"CmdDestroy", destroy));
}

}  // namespace
