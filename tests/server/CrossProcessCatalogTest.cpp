// The catalog path end to end across the process boundary: table, column and index
// enumerations, the name lists as SAFEARRAYs, table definitions both ways, dropping a table,
// new database files and compaction, early- and late-bound, on the embedded provider.
#include <windows.h>

#include <gtest/gtest.h>

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

std::wstring TempPath(const wchar_t* prefix, bool create) {
    wchar_t folder[MAX_PATH], file[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    if (!GetTempFileNameW(folder, prefix, 0, file)) return L"";
    if (!create) DeleteFileW(file);
    return file;
}

std::vector<std::wstring> Strings(const VARIANT& value) {
    std::vector<std::wstring> out;
    if (V_VT(&value) != (VT_ARRAY | VT_BSTR) || !V_ARRAY(&value)) return out;
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
    zel::SafeArrayData data(V_ARRAY(&value));
    for (LONG i = 0; i <= upper - lower; ++i) out.push_back(BstrText(data.as<BSTR>()[i]));
    return out;
}

class CrossProcessCatalogTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
        ASSERT_TRUE(RegisterProvider());
    }

    void SetUp() override {
        m_path = TempPath(L"zcp", true);
        ASSERT_FALSE(m_path.empty());
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, m_db, CLSCTX_LOCAL_SERVER));
        Bstr errorText, errorStmt, init(L"Provider=ZelLite.OLEDB.1;Data Source=" + m_path);
        ASSERT_EQ(S_OK, m_db->ConOpenFromInitializationString(init.get(), VARIANT_FALSE, errorText.put(),
                                                              errorStmt.put()));
        Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40) NOT NULL, price REAL)");
        Run(L"CREATE INDEX parts_name ON parts (name, price)");
        Run(L"CREATE TABLE orders (id INTEGER PRIMARY KEY, part INTEGER)");
    }

    void TearDown() override {
        if (m_db) m_db->ConClose();
        m_db.reset();
        Sleep(200);
        DeleteFileW(m_path.c_str());
    }

    void Run(const wchar_t* sql) {
        ULONG h = 0;
        ASSERT_EQ(S_OK, m_db->CmdSetConnection(&h));
        Bstr text(sql);
        ASSERT_EQ(S_OK, m_db->CmdSetCommandText(h, text.get()));
        SHORT result = 0;
        Bstr xml, errorText, errorStmt;
        ASSERT_EQ(S_OK, m_db->CmdExecute(h, &result, xml.put(), errorText.put(), errorStmt.put()));
        EXPECT_EQ(1, result) << testing::PrintToString(errorText.str());
        m_db->CmdDestroy(h);
    }

    ULONG OpenTables() {
        ULONG h = 0;
        Bstr empty(L""), type(L"TABLE"), errorText, errorStmt;
        EXPECT_EQ(S_OK, m_db->TblOpen(&h, empty.get(), empty.get(), empty.get(), type.get(), errorText.put(),
                                      errorStmt.put()))
            << testing::PrintToString(errorText.str());
        return h;
    }

    // The rows an enumeration lists, read through the interface: table names; column names;
    // table, index and column names as "table.index.column".
    std::vector<std::wstring> TableRows(ULONG h) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (SUCCEEDED(m_db->TblFetchNext(h, &more)) && more == VARIANT_TRUE) {
            Bstr name;
            EXPECT_EQ(S_OK, m_db->TblGetName(h, name.put()));
            rows.push_back(name.str());
        }
        return rows;
    }
    std::vector<std::wstring> ColumnRows(ULONG c) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (SUCCEEDED(m_db->ColFetchNext(c, &more)) && more == VARIANT_TRUE) {
            Bstr name;
            EXPECT_EQ(S_OK, m_db->ColGetName(c, name.put()));
            rows.push_back(name.str());
        }
        return rows;
    }
    std::vector<std::wstring> IndexRows(ULONG i) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (SUCCEEDED(m_db->IdxFetchNext(i, &more)) && more == VARIANT_TRUE) {
            Bstr table, index, column;
            EXPECT_EQ(S_OK, m_db->IdxGetTableName(i, table.put()));
            EXPECT_EQ(S_OK, m_db->IdxGetName(i, index.put()));
            EXPECT_EQ(S_OK, m_db->IdxGetColumnName(i, column.put()));
            rows.push_back(table.str() + L"." + index.str() + L"." + column.str());
        }
        return rows;
    }

    // A late-bound call of `method` on the server object.
    HRESULT Call(const wchar_t* method, DispArgs& args, Variant& result) {
        ComPtr<IDispatch> dispatch;
        HRESULT hr = m_db.query(dispatch);
        if (FAILED(hr)) return hr;
        std::wstring name = method;
        LPOLESTR names[] = {name.data()};
        DISPID id = 0;
        hr = dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(hr)) return hr;
        return dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), result.put(), nullptr,
                                nullptr);
    }

    std::wstring m_path;
    ComPtr<IZelOleDb> m_db;
};

// Makes the argument at declaration `position` a missing string: a VT_BSTR holding a null BSTR
// when `storage` is null, else a VT_BYREF|VT_BSTR to `storage`, which holds a null BSTR. Set in
// place: copying a VARIANT makes a null BSTR an empty one.
void PassNullText(DispArgs& args, UINT position, BSTR* storage) {
    VARIANT& arg = args.at(args.count() - 1 - position);
    VariantClear(&arg);
    if (storage) {
        *storage = nullptr;
        V_VT(&arg) = VT_BYREF | VT_BSTR;
        V_BSTRREF(&arg) = storage;
    } else {
        V_VT(&arg) = VT_BSTR;
        V_BSTR(&arg) = nullptr;
    }
}

// Every index column of the fixture's database, in the provider's order (unique indexes first).
const std::vector<std::wstring> kEveryIndexColumn = {L"orders.PrimaryKey.id", L"parts.PrimaryKey.id",
                                                     L"parts.parts_name.name", L"parts.parts_name.price"};

TEST_F(CrossProcessCatalogTest, TableEnumerationAndTheTableListCrossTheBoundary) {
    ULONG h = OpenTables();
    std::vector<std::wstring> fetched;
    VARIANT_BOOL more = VARIANT_FALSE;
    while (SUCCEEDED(m_db->TblFetchNext(h, &more)) && more == VARIANT_TRUE) {
        Bstr name;
        ASSERT_EQ(S_OK, m_db->TblGetName(h, name.put()));
        fetched.push_back(name.str());
    }
    EXPECT_EQ((std::vector<std::wstring>{L"orders", L"parts"}), fetched);

    Variant list;
    ASSERT_EQ(S_OK, m_db->TblGetTableList(h, list.get()));
    ASSERT_EQ(VT_ARRAY | VT_BSTR, list.vt());
    EXPECT_EQ(fetched, Strings(*list.get()));
    ASSERT_EQ(S_OK, m_db->TblFetchNext(h, &more));
    EXPECT_EQ(VARIANT_FALSE, more);

    Variant rows;
    ASSERT_EQ(S_OK, m_db->TblGetList(h, rows.get()));
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, rows.vt());
    EXPECT_EQ(S_OK, m_db->TblDestroy(h));
}

TEST_F(CrossProcessCatalogTest, ColumnsAndIndexesOfATable) {
    ULONG c = 0;
    Bstr empty(L""), table(L"parts"), errorText, errorStmt;
    ASSERT_EQ(S_OK, m_db->ColOpen(&c, empty.get(), empty.get(), table.get(), empty.get(), VARIANT_TRUE,
                                  errorText.put(), errorStmt.put()));
    std::vector<std::wstring> columns;
    VARIANT_BOOL more = VARIANT_FALSE;
    while (SUCCEEDED(m_db->ColFetchNext(c, &more)) && more == VARIANT_TRUE) {
        Bstr name;
        ASSERT_EQ(S_OK, m_db->ColGetName(c, name.put()));
        columns.push_back(name.str());
    }
    EXPECT_EQ((std::vector<std::wstring>{L"id", L"name", L"price"}), columns);
    EXPECT_EQ(S_OK, m_db->ColDestroy(c));

    ULONG i = 0;
    ASSERT_EQ(S_OK, m_db->IdxOpen(&i, empty.get(), empty.get(), table.get(), empty.get(), errorText.put(),
                                  errorStmt.put()));
    Variant indexes;
    ASSERT_EQ(S_OK, m_db->IdxGetIndexList(i, VARIANT_TRUE, indexes.get()));
    ASSERT_EQ(VT_ARRAY | VT_BSTR, indexes.vt());
    // The index over two columns appears once; the primary key never does.
    EXPECT_EQ((std::vector<std::wstring>{L"parts_name"}), Strings(*indexes.get()));
    EXPECT_EQ(S_OK, m_db->IdxDestroy(i));
}

TEST_F(CrossProcessCatalogTest, ATableDefinitionMakesANewTableAndTheTableCanBeDropped) {
    Bstr name(L"parts"), xml;
    ASSERT_EQ(S_OK, m_db->TblGetDef(name.get(), xml.put()));
    std::wstring def = xml.str();
    const std::wstring from = L"Name=\"parts\"";
    size_t at = def.find(from);
    ASSERT_NE(std::wstring::npos, at) << testing::PrintToString(def);
    def.replace(at, from.size(), L"Name=\"parts_copy\"");
    Bstr copy(def);
    ASSERT_EQ(S_OK, m_db->TblCreate(copy.get()));
    Bstr copyName(L"parts_copy"), copyXml;
    ASSERT_EQ(S_OK, m_db->TblGetDef(copyName.get(), copyXml.put()));
    EXPECT_NE(std::wstring::npos, copyXml.str().find(L"ColumnDef"));
    ASSERT_EQ(S_OK, m_db->TblDelete(copyName.get()));
    EXPECT_NE(S_OK, m_db->TblGetDef(copyName.get(), copyXml.put()));
}

TEST_F(CrossProcessCatalogTest, NewDatabaseFilesAndCompaction) {
    const std::wstring file = TempPath(L"zcn", false);
    Bstr init(L"Provider=ZelLite.OLEDB.1"), target(file), errorText, errorStmt;
    ASSERT_EQ(S_OK, m_db->ConCreateMdbFile(init.get(), target.get(), errorText.put(), errorStmt.put()))
        << testing::PrintToString(errorText.str());
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(file.c_str()));
    DeleteFileW(file.c_str());
    EXPECT_EQ(S_OK, m_db->ConCompactMdb());
}

// A null table crosses the boundary as null, not as an empty string: the open fails at once
// (E_FAIL, no error text), the new handle is registered and fetches no column.
TEST_F(CrossProcessCatalogTest, ColumnOpenWithANullTableFailsThroughTheInterface) {
    for (VARIANT_BOOL extended : {VARIANT_FALSE, VARIANT_TRUE}) {
        ULONG c = 0;
        Bstr empty(L""), errorText, errorStmt;
        EXPECT_EQ(E_FAIL, m_db->ColOpen(&c, empty.get(), empty.get(), nullptr, empty.get(), extended,
                                        errorText.put(), errorStmt.put()));
        EXPECT_NE(0u, c);
        EXPECT_EQ(L"", errorText.str());
        VARIANT_BOOL more = VARIANT_TRUE;
        EXPECT_EQ(S_OK, m_db->ColFetchNext(c, &more));
        EXPECT_EQ(VARIANT_FALSE, more);
        EXPECT_EQ(S_OK, m_db->ColDestroy(c));
    }
}

// Late-bound across the process boundary a null table passed by value cannot reach the server
// under Wine 8.0: oleaut32's IDispatch::Invoke stub copies every by-value argument with
// VariantCopy before the server's Invoke runs, and Wine's VariantCopy makes a null BSTR an empty
// one (the wire itself keeps it null). The server then sees an empty table name, which restricts
// nothing: every column of the database is listed, and with identity data asked for the open
// fails only because no table is named "". The server's own rule for a null table late-bound is
// tested in process (ServiceCatalogTests), where no stub stands between the caller and the
// dispatcher; a null passed by reference does reach the server (the next test).
TEST_F(CrossProcessCatalogTest, LateBoundNullTableArrivesAsAnEmptyNameThroughWinesDispatchStub) {
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, m_db.query(dispatch));
    for (bool extended : {false, true}) {
        Variant handle = I4(0), errorText, errorStmt;
        DispArgs open{RefVariant(handle.get()), Str(L""), Str(L""), Str(L""), Str(L""), Bool(extended),
                      RefVariant(errorText.get()), RefVariant(errorStmt.get())};
        // The table (rgvarg 4) becomes a null BSTR in place: copying a VARIANT would make it empty.
        VariantClear(&open.at(4));
        V_VT(&open.at(4)) = VT_BSTR;
        V_BSTR(&open.at(4)) = nullptr;
        Variant result;
        const HRESULT hr =
            dispatch->Invoke(47, IID_NULL, 0, DISPATCH_METHOD, open.get(), result.put(), nullptr, nullptr);
        EXPECT_EQ(extended ? E_FAIL : S_OK, hr);
        ASSERT_NE(0, V_I4(handle.get()));
        ASSERT_EQ(VT_BSTR, errorText.vt());
        EXPECT_EQ(L"", BstrText(V_BSTR(errorText.get())));
        // The reader is open on the whole database, as for an empty table name given early-bound.
        ULONG emptyNamed = 0;
        Bstr empty(L""), emptyErrorText, emptyErrorStmt;
        m_db->ColOpen(&emptyNamed, empty.get(), empty.get(), empty.get(), empty.get(), VARIANT_FALSE,
                      emptyErrorText.put(), emptyErrorStmt.put());
        int expected = 0;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (SUCCEEDED(m_db->ColFetchNext(emptyNamed, &more)) && more == VARIANT_TRUE) ++expected;
        m_db->ColDestroy(emptyNamed);
        EXPECT_GE(expected, 5);  // parts: id, name, price; orders: id, part; SQLite's own tables
        int rows = 0;
        for (;;) {
            DispArgs fetch{RefVariant(handle.get())};
            ASSERT_EQ(S_OK, dispatch->Invoke(50, IID_NULL, 0, DISPATCH_METHOD, fetch.get(), result.put(), nullptr,
                                             nullptr));
            ASSERT_EQ(VT_BOOL, result.vt());
            if (V_BOOL(result.get()) != VARIANT_TRUE) break;
            ++rows;
        }
        EXPECT_EQ(expected, rows);
        DispArgs destroy{RefVariant(handle.get())};
        EXPECT_EQ(S_OK, dispatch->Invoke(48, IID_NULL, 0, DISPATCH_METHOD, destroy.get(), result.put(), nullptr,
                                         nullptr));
    }
}

// Late-bound, a null table passed by reference reaches the server as null: the stub copies only
// the reference, and the wire keeps a null BSTR null. So the open fails at once, as through the
// interface, whether the reference is a VT_BYREF|VT_BSTR or a VT_BYREF|VT_VARIANT holding a null
// VT_BSTR, and the reference still holds null afterwards.
TEST_F(CrossProcessCatalogTest, LateBoundNullTableByReferenceFailsTheOpen) {
    for (bool throughVariant : {false, true}) {
        for (bool extended : {false, true}) {
            SCOPED_TRACE(testing::Message() << "through a VARIANT " << throughVariant << ", extended " << extended);
            BSTR table = nullptr;
            Variant tableVariant;
            V_VT(tableVariant.get()) = VT_BSTR;  // holding a null BSTR
            Variant handle = I4(0), errorText, errorStmt, result;
            DispArgs open{RefVariant(handle.get()), Str(L""), Str(L""),
                          throughVariant ? RefVariant(tableVariant.get()) : RefBstr(&table), Str(L""), Bool(extended),
                          RefVariant(errorText.get()), RefVariant(errorStmt.get())};
            EXPECT_EQ(E_FAIL, Call(L"ColOpen", open, result));
            EXPECT_EQ(nullptr, table);
            ASSERT_EQ(VT_BSTR, tableVariant.vt());
            EXPECT_EQ(nullptr, V_BSTR(tableVariant.get()));
            ASSERT_EQ(VT_I4, handle.vt());
            ASSERT_NE(0, V_I4(handle.get()));
            ASSERT_EQ(VT_BSTR, errorText.vt());
            ASSERT_NE(nullptr, V_BSTR(errorText.get()));
            EXPECT_EQ(0u, SysStringLen(V_BSTR(errorText.get())));
            // The handle is registered and has no reader: a fetch answers false, a getter fails.
            DispArgs fetch{RefVariant(handle.get())};
            ASSERT_EQ(S_OK, Call(L"ColFetchNext", fetch, result));
            ASSERT_EQ(VT_BOOL, result.vt());
            EXPECT_EQ(VARIANT_FALSE, V_BOOL(result.get()));
            Bstr name;
            EXPECT_EQ(E_FAIL, m_db->ColGetName(static_cast<ULONG>(V_I4(handle.get())), name.put()));
            DispArgs destroy{RefVariant(handle.get())};
            EXPECT_EQ(S_OK, Call(L"ColDestroy", destroy, result));
        }
    }
}

// A null restriction is no restriction: null catalog, schema and name with a type list every
// table of that type, a null column name lists every column of the table, and four null
// restrictions list every index column of the database.
TEST_F(CrossProcessCatalogTest, NullRestrictionsRestrictNothingThroughTheInterface) {
    Bstr type(L"TABLE"), table(L"parts"), errorText, errorStmt;
    ULONG t = 0;
    ASSERT_EQ(S_OK, m_db->TblOpen(&t, nullptr, nullptr, nullptr, type.get(), errorText.put(), errorStmt.put()))
        << testing::PrintToString(errorText.str());
    EXPECT_EQ((std::vector<std::wstring>{L"orders", L"parts"}), TableRows(t));
    EXPECT_EQ(S_OK, m_db->TblDestroy(t));
    ULONG c = 0;
    ASSERT_EQ(S_OK, m_db->ColOpen(&c, nullptr, nullptr, table.get(), nullptr, VARIANT_TRUE, errorText.put(),
                                  errorStmt.put()))
        << testing::PrintToString(errorText.str());
    EXPECT_EQ((std::vector<std::wstring>{L"id", L"name", L"price"}), ColumnRows(c));
    EXPECT_EQ(S_OK, m_db->ColDestroy(c));
    ULONG i = 0;
    ASSERT_EQ(S_OK, m_db->IdxOpen(&i, nullptr, nullptr, nullptr, nullptr, errorText.put(), errorStmt.put()))
        << testing::PrintToString(errorText.str());
    EXPECT_EQ(kEveryIndexColumn, IndexRows(i));
    EXPECT_EQ(S_OK, m_db->IdxDestroy(i));
}

// The same late-bound, with the null restrictions passed by reference (they reach the server
// null) and by value (under Wine they arrive as empty strings, see above; the embedded provider
// takes an empty name as no restriction either): the same rows either way.
TEST_F(CrossProcessCatalogTest, LateBoundNullRestrictionsRestrictNothing) {
    for (bool byReference : {false, true}) {
        SCOPED_TRACE(testing::Message() << "by reference " << byReference);
        BSTR nulls[4] = {};
        auto storage = [&](int k) { return byReference ? &nulls[k] : nullptr; };
        Variant result;

        Variant t = I4(0), errorText, errorStmt;
        DispArgs tables{RefVariant(t.get()), Variant(), Variant(), Variant(), Str(L"TABLE"),
                        RefVariant(errorText.get()), RefVariant(errorStmt.get())};
        for (UINT position = 1; position <= 3; ++position) PassNullText(tables, position, storage(position - 1));
        ASSERT_EQ(S_OK, Call(L"TblOpen", tables, result)) << testing::PrintToString(BstrText(V_BSTR(errorText.get())));
        EXPECT_EQ((std::vector<std::wstring>{L"orders", L"parts"}), TableRows(static_cast<ULONG>(V_I4(t.get()))));
        EXPECT_EQ(S_OK, m_db->TblDestroy(static_cast<ULONG>(V_I4(t.get()))));

        Variant c = I4(0);
        DispArgs columns{RefVariant(c.get()), Variant(), Variant(), Str(L"parts"), Variant(), Bool(true),
                         RefVariant(errorText.get()), RefVariant(errorStmt.get())};
        PassNullText(columns, 1, storage(0));
        PassNullText(columns, 2, storage(1));
        PassNullText(columns, 4, storage(2));
        ASSERT_EQ(S_OK, Call(L"ColOpen", columns, result)) << testing::PrintToString(BstrText(V_BSTR(errorText.get())));
        EXPECT_EQ((std::vector<std::wstring>{L"id", L"name", L"price"}), ColumnRows(static_cast<ULONG>(V_I4(c.get()))));
        EXPECT_EQ(S_OK, m_db->ColDestroy(static_cast<ULONG>(V_I4(c.get()))));

        Variant i = I4(0);
        DispArgs indexes{RefVariant(i.get()), Variant(), Variant(), Variant(), Variant(), RefVariant(errorText.get()),
                         RefVariant(errorStmt.get())};
        for (UINT position = 1; position <= 4; ++position) PassNullText(indexes, position, storage(position - 1));
        ASSERT_EQ(S_OK, Call(L"IdxOpen", indexes, result)) << testing::PrintToString(BstrText(V_BSTR(errorText.get())));
        EXPECT_EQ(kEveryIndexColumn, IndexRows(static_cast<ULONG>(V_I4(i.get()))));
        EXPECT_EQ(S_OK, m_db->IdxDestroy(static_cast<ULONG>(V_I4(i.get()))));
        for (BSTR text : nulls) EXPECT_EQ(nullptr, text);
    }
}

TEST_F(CrossProcessCatalogTest, TheTableListLateBound) {
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, m_db.query(dispatch));
    Variant handle = I4(0), errorText, errorStmt;
    DispArgs open{RefVariant(handle.get()), Str(L""), Str(L""), Str(L""), Str(L"TABLE"), RefVariant(errorText.get()),
                  RefVariant(errorStmt.get())};
    Variant result;
    ASSERT_EQ(S_OK, dispatch->Invoke(36, IID_NULL, 0, DISPATCH_METHOD, open.get(), result.put(), nullptr, nullptr));
    ASSERT_NE(0, V_I4(handle.get()));
    DispArgs list{RefVariant(handle.get())};
    ASSERT_EQ(S_OK, dispatch->Invoke(45, IID_NULL, 0, DISPATCH_METHOD, list.get(), result.put(), nullptr, nullptr));
    ASSERT_EQ(VT_ARRAY | VT_BSTR, result.vt());
    EXPECT_EQ((std::vector<std::wstring>{L"orders", L"parts"}), Strings(*result.get()));
    DispArgs destroy{RefVariant(handle.get())};
    EXPECT_EQ(S_OK, dispatch->Invoke(37, IID_NULL, 0, DISPATCH_METHOD, destroy.get(), result.put(), nullptr, nullptr));
}

}  // namespace
