// The catalog path of the service object end to end in process, on real databases of the
// embedded provider: database files, table definitions, enumerations, name lists and
// compaction.
#include "service/ZelOleDbImpl.h"

#include <shlwapi.h>

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel;
using zel::test::ScratchDatabase;

namespace {

const wchar_t* const kProvider = L"Provider=ZelLite.OLEDB.1;";

const wchar_t* const kPartsDef =
    L"<?xml version=\"1.0\" encoding=\"utf-16\"?>"
    L"<TableDef Name=\"parts\">"
    L"<ColumnDef Name=\"ID\" Type=\"3\" DBPROP_COL_AUTOINCREMENT=\"-1\" DBPROP_COL_NULLABLE=\"0\"/>"
    L"<ColumnDef Name=\"Title\" TypeName=\"TEXT\" Type=\"130\" DBPROP_COL_NULLABLE=\"-1\""
    L" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"0\"/>"
    L"<ColumnDef Name=\"Price\" Type=\"14\" Precision=\"10\" Scale=\"2\"/>"
    L"</TableDef>";

class CatalogPathTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, zel::test::RegisterEmbeddedProvider()); }

    void SetUp() override {
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
        Open(database.ConnectionString());
    }

    void Open(const std::wstring& initString) {
        Bstr errorText, errorStmt;
        ASSERT_EQ(S_OK, db->ConOpenFromInitializationString(Bstr(initString.c_str()).get(), VARIANT_FALSE,
                                                            errorText.put(), errorStmt.put()))
            << testing::PrintToString(errorText.str());
    }

    void Run(const std::wstring& sql) {
        ULONG handle = 0;
        ASSERT_EQ(S_OK, db->CmdSetConnection(&handle));
        ASSERT_EQ(S_OK, db->CmdSetCommandText(handle, Bstr(sql.c_str()).get()));
        SHORT result = -1;
        Bstr errorText;
        ASSERT_EQ(S_OK, db->CmdExecute(handle, &result, nullptr, errorText.put(), nullptr));
        EXPECT_EQ(1, result) << testing::PrintToString(sql) << testing::PrintToString(errorText.str());
        db->CmdDestroy(handle);
    }

    std::vector<std::wstring> Strings(const VARIANT& list) {
        std::vector<std::wstring> out;
        EXPECT_EQ(VT_ARRAY | VT_BSTR, V_VT(&list));
        if (V_VT(&list) != (VT_ARRAY | VT_BSTR)) return out;
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(V_ARRAY(&list), 1, &lower);
        SafeArrayGetUBound(V_ARRAY(&list), 1, &upper);
        EXPECT_EQ(0, lower);
        for (LONG i = lower; i <= upper; ++i) {
            BSTR item = nullptr;
            SafeArrayGetElement(V_ARRAY(&list), &i, &item);
            out.push_back(item ? item : L"");
            SysFreeString(item);  // SafeArrayGetElement hands out a copy
        }
        return out;
    }

    std::vector<std::wstring> TableNames(const wchar_t* type = L"TABLE") {
        ULONG handle = 0;
        Bstr errorText, errorStmt;
        EXPECT_EQ(S_OK, db->TblOpen(&handle, nullptr, nullptr, nullptr, Bstr(type).get(), errorText.put(),
                                    errorStmt.put()));
        Variant list;
        HRESULT hr = db->TblGetTableList(handle, list.get());
        db->TblDestroy(handle);
        if (hr != S_OK) return {};
        return Strings(*list.get());
    }

    std::vector<std::wstring> IndexNames(const wchar_t* table) {
        ULONG handle = 0;
        Bstr errorText, errorStmt;
        EXPECT_EQ(S_OK, db->IdxOpen(&handle, nullptr, nullptr, Bstr(table).get(), nullptr, errorText.put(),
                                    errorStmt.put()));
        Variant list;
        HRESULT hr = db->IdxGetIndexList(handle, VARIANT_TRUE, list.get());
        db->IdxDestroy(handle);
        return hr == S_OK ? Strings(*list.get()) : std::vector<std::wstring>{};
    }

    ScratchDatabase database;
    ComPtr<IZelOleDb> db;
};

}  // namespace

TEST_F(CatalogPathTest, FullFlowCreateOpenDefineListDescribeCompactReopen) {
    ScratchDatabase folder;
    std::wstring file = folder.Directory() + L"\\inventory.db";
    DeleteFileW(file.c_str());
    Bstr errorText, errorStmt;
    ASSERT_EQ(S_OK, db->ConCreateMdbFile(Bstr(kProvider).get(), Bstr(file.c_str()).get(), errorText.put(),
                                         errorStmt.put()))
        << testing::PrintToString(errorText.str());
    EXPECT_TRUE(PathFileExistsW(file.c_str()));
    Open(std::wstring(kProvider) + L"Data Source=" + file);
    ASSERT_EQ(S_OK, db->TblCreate(Bstr(kPartsDef).get()));
    Run(L"CREATE INDEX ix_title ON parts (Title)");
    EXPECT_EQ(std::vector<std::wstring>{L"parts"}, TableNames());

    ULONG columns = 0;
    ASSERT_EQ(S_OK, db->ColOpen(&columns, nullptr, nullptr, Bstr(L"parts").get(), nullptr, VARIANT_TRUE,
                                errorText.put(), errorStmt.put()));
    std::vector<std::wstring> names;
    VARIANT_BOOL more = VARIANT_FALSE;
    while (db->ColFetchNext(columns, &more) == S_OK && more == VARIANT_TRUE) {
        Bstr name;
        ASSERT_EQ(S_OK, db->ColGetName(columns, name.put()));
        names.push_back(name.str());
        if (name.str() == L"ID") {
            VARIANT_BOOL identity = VARIANT_FALSE;
            EXPECT_EQ(S_OK, db->ColIsIdentity(columns, &identity));
            EXPECT_EQ(VARIANT_TRUE, identity);
            LONG increment = 0;
            EXPECT_EQ(S_OK, db->ColIncrement(columns, &increment));
            EXPECT_EQ(1, increment);
        }
    }
    db->ColDestroy(columns);
    EXPECT_EQ((std::vector<std::wstring>{L"ID", L"Title", L"Price"}), names);
    EXPECT_EQ(std::vector<std::wstring>{L"ix_title"}, IndexNames(L"parts"));

    Bstr definition;
    ASSERT_EQ(S_OK, db->TblGetDef(Bstr(L"parts").get(), definition.put()));
    EXPECT_EQ(0u, definition.str().find(L"<?xml version=\"1.0\" encoding=\"utf-16\"?>"));
    EXPECT_NE(std::wstring::npos, definition.str().find(L"<TableDef Name=\"parts\">"));

    Run(L"INSERT INTO parts (Title, Price) VALUES ('Shaft', 2.5)");
    ASSERT_EQ(S_OK, db->ConCompactMdb());
    VARIANT_BOOL connected = VARIANT_TRUE;
    EXPECT_EQ(S_OK, db->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected);
    Bstr source;
    EXPECT_EQ(E_FAIL, db->ConGetDatasource(source.put()));
    Open(std::wstring(kProvider) + L"Data Source=" + file);
    EXPECT_EQ(std::vector<std::wstring>{L"parts"}, TableNames());
}

// A null table fails the open at once, with or without identity data asked for; the handle is
// still issued and registered, and it has no reader to fetch from.
TEST_F(CatalogPathTest, ColumnOpenWithANullTableFailsAndRegistersAHandleWithoutRows) {
    Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
    for (VARIANT_BOOL extended : {VARIANT_FALSE, VARIANT_TRUE}) {
        ULONG columns = 0;
        Bstr errorText, errorStmt;
        EXPECT_EQ(E_FAIL, db->ColOpen(&columns, nullptr, nullptr, nullptr, nullptr, extended, errorText.put(),
                                      errorStmt.put()));
        EXPECT_NE(0u, columns);
        ASSERT_NE(nullptr, errorText.get());
        EXPECT_EQ(L"", errorText.str());
        VARIANT_BOOL more = VARIANT_TRUE;
        EXPECT_EQ(S_OK, db->ColFetchNext(columns, &more));  // registered: the handle is known
        EXPECT_EQ(VARIANT_FALSE, more);
        EXPECT_EQ(S_OK, db->ColDestroy(columns));
    }
}

// The same late-bound, through the service object's own IDispatch: a null table given as a
// VT_BSTR reaches ColOpen as null.
TEST_F(CatalogPathTest, ColumnOpenWithANullTableFailsLateBound) {
    Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, db.query(dispatch));
    for (bool extended : {false, true}) {
        Variant handle = Variant::FromI4(0), errorText, errorStmt;
        // rgvarg holds the arguments reversed: errorStmt, errorText, inclExtendedData, column,
        // table, schema, catalog, handle.
        std::vector<Variant> args(8);
        V_VT(args[0].get()) = VT_BYREF | VT_VARIANT;
        V_VARIANTREF(args[0].get()) = errorStmt.get();
        V_VT(args[1].get()) = VT_BYREF | VT_VARIANT;
        V_VARIANTREF(args[1].get()) = errorText.get();
        args[2] = Variant::FromBool(extended);
        for (size_t i : {3u, 4u, 5u, 6u}) V_VT(args[i].get()) = VT_BSTR;  // null BSTRs, table (4) among them
        V_VT(args[7].get()) = VT_BYREF | VT_VARIANT;
        V_VARIANTREF(args[7].get()) = handle.get();
        DISPPARAMS params{reinterpret_cast<VARIANT*>(args.data()), nullptr, 8, 0};
        Variant result;
        EXPECT_EQ(E_FAIL, dispatch->Invoke(47, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, nullptr));
        ASSERT_EQ(VT_I4, handle.vt());
        const ULONG columns = static_cast<ULONG>(V_I4(handle.get()));
        EXPECT_NE(0u, columns);
        ASSERT_EQ(VT_BSTR, errorText.vt());
        ASSERT_NE(nullptr, V_BSTR(errorText.get()));
        EXPECT_EQ(0u, SysStringLen(V_BSTR(errorText.get())));
        VARIANT_BOOL more = VARIANT_TRUE;
        EXPECT_EQ(S_OK, db->ColFetchNext(columns, &more));
        EXPECT_EQ(VARIANT_FALSE, more);
        EXPECT_EQ(S_OK, db->ColDestroy(columns));
    }
}

// Null restrictions restrict nothing: null catalog, schema and name with a type list every table
// of that type, a null column name every column of the table, four nulls every index column.
// Late-bound in process, the nulls reach the methods as null: the same rows.
TEST_F(CatalogPathTest, NullRestrictionsRestrictNothingThroughTheInterfaceAndLateBound) {
    Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40), price REAL)");
    Run(L"CREATE INDEX parts_name ON parts (name, price)");
    Run(L"CREATE TABLE orders (id INTEGER PRIMARY KEY, part INTEGER)");
    auto tableRows = [&](ULONG h) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (db->TblFetchNext(h, &more) == S_OK && more == VARIANT_TRUE) {
            Bstr name;
            EXPECT_EQ(S_OK, db->TblGetName(h, name.put()));
            rows.push_back(name.str());
        }
        db->TblDestroy(h);
        return rows;
    };
    auto columnRows = [&](ULONG h) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (db->ColFetchNext(h, &more) == S_OK && more == VARIANT_TRUE) {
            Bstr name;
            EXPECT_EQ(S_OK, db->ColGetName(h, name.put()));
            rows.push_back(name.str());
        }
        db->ColDestroy(h);
        return rows;
    };
    auto indexRows = [&](ULONG h) {
        std::vector<std::wstring> rows;
        VARIANT_BOOL more = VARIANT_FALSE;
        while (db->IdxFetchNext(h, &more) == S_OK && more == VARIANT_TRUE) {
            Bstr table, index, column;
            EXPECT_EQ(S_OK, db->IdxGetTableName(h, table.put()));
            EXPECT_EQ(S_OK, db->IdxGetName(h, index.put()));
            EXPECT_EQ(S_OK, db->IdxGetColumnName(h, column.put()));
            rows.push_back(table.str() + L"." + index.str() + L"." + column.str());
        }
        db->IdxDestroy(h);
        return rows;
    };
    const std::vector<std::wstring> everyTable = {L"orders", L"parts"};
    const std::vector<std::wstring> everyColumn = {L"id", L"name", L"price"};
    const std::vector<std::wstring> everyIndexColumn = {L"orders.PrimaryKey.id", L"parts.PrimaryKey.id",
                                                        L"parts.parts_name.name", L"parts.parts_name.price"};

    Bstr errorText, errorStmt;
    ULONG tables = 0, columns = 0, indexes = 0;
    ASSERT_EQ(S_OK, db->TblOpen(&tables, nullptr, nullptr, nullptr, Bstr(L"TABLE").get(), errorText.put(),
                                errorStmt.put()));
    EXPECT_EQ(everyTable, tableRows(tables));
    ASSERT_EQ(S_OK, db->ColOpen(&columns, nullptr, nullptr, Bstr(L"parts").get(), nullptr, VARIANT_FALSE,
                                errorText.put(), errorStmt.put()));
    EXPECT_EQ(everyColumn, columnRows(columns));
    ASSERT_EQ(S_OK, db->IdxOpen(&indexes, nullptr, nullptr, nullptr, nullptr, errorText.put(), errorStmt.put()));
    EXPECT_EQ(everyIndexColumn, indexRows(indexes));

    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, db.query(dispatch));
    using test::DispArgs;
    using test::RefVariant;
    // Null BSTRs are set in place: copying a VARIANT makes a null BSTR an empty one.
    auto makeNull = [](DispArgs& args, std::initializer_list<UINT> positions) {
        for (UINT position : positions) {
            VARIANT& arg = args.at(args.count() - 1 - position);
            VariantClear(&arg);
            V_VT(&arg) = VT_BSTR;
        }
    };
    auto invoke = [&](DISPID id, DispArgs& args) {
        Variant result;
        return dispatch->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, args.get(), result.put(), nullptr, nullptr);
    };
    auto handle = [](const Variant& v) { return static_cast<ULONG>(V_I4(v.get())); };
    Variant handleVariant = test::I4(0), textVariant, stmtVariant;
    DispArgs tblOpen{RefVariant(handleVariant.get()), Variant(), Variant(), Variant(), test::Str(L"TABLE"),
                     RefVariant(textVariant.get()), RefVariant(stmtVariant.get())};
    makeNull(tblOpen, {1, 2, 3});
    ASSERT_EQ(S_OK, invoke(36, tblOpen));
    EXPECT_EQ(everyTable, tableRows(handle(handleVariant)));

    handleVariant = test::I4(0);
    DispArgs colOpen{RefVariant(handleVariant.get()), Variant(), Variant(), test::Str(L"parts"), Variant(),
                     test::Bool(false), RefVariant(textVariant.get()), RefVariant(stmtVariant.get())};
    makeNull(colOpen, {1, 2, 4});
    ASSERT_EQ(S_OK, invoke(47, colOpen));
    EXPECT_EQ(everyColumn, columnRows(handle(handleVariant)));

    handleVariant = test::I4(0);
    DispArgs idxOpen{RefVariant(handleVariant.get()), Variant(), Variant(), Variant(), Variant(),
                     RefVariant(textVariant.get()), RefVariant(stmtVariant.get())};
    makeNull(idxOpen, {1, 2, 3, 4});
    ASSERT_EQ(S_OK, invoke(71, idxOpen));
    EXPECT_EQ(everyIndexColumn, indexRows(handle(handleVariant)));
}

TEST_F(CatalogPathTest, CreatingAFileNeedsNoConnectionAndLeavesConnectionAsItWas) {
    ComPtr<IZelOleDb> fresh;
    ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, fresh.put_void()));
    ScratchDatabase folder;
    std::wstring file = folder.Directory() + L"\\new.db";
    DeleteFileW(file.c_str());
    Bstr errorText, errorStmt;
    EXPECT_EQ(S_OK, fresh->ConCreateMdbFile(Bstr(kProvider).get(), Bstr(file.c_str()).get(), errorText.put(),
                                            errorStmt.put()));
    VARIANT_BOOL connected = VARIANT_TRUE;
    EXPECT_EQ(S_OK, fresh->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected);
    // An existing file is refused by the provider and left untouched.
    EXPECT_NE(S_OK, fresh->ConCreateMdbFile(Bstr(kProvider).get(), Bstr(file.c_str()).get(), errorText.put(),
                                            errorStmt.put()));
    EXPECT_FALSE(errorText.empty());
}

TEST_F(CatalogPathTest, DefinitionRoundTripRecreatesTheTable) {
    ASSERT_EQ(S_OK, db->TblCreate(Bstr(kPartsDef).get()));
    Bstr first;
    ASSERT_EQ(S_OK, db->TblGetDef(Bstr(L"parts").get(), first.put()));
    ASSERT_EQ(S_OK, db->TblDelete(Bstr(L"parts").get()));
    EXPECT_TRUE(TableNames().empty());
    ASSERT_EQ(S_OK, db->TblCreate(first.get()));
    Bstr second;
    ASSERT_EQ(S_OK, db->TblGetDef(Bstr(L"parts").get(), second.put()));
    EXPECT_EQ(first.str(), second.str());
}

TEST_F(CatalogPathTest, CreatingAnExistingTableGivesTheProvidersDuplicateError) {
    ASSERT_EQ(S_OK, db->TblCreate(Bstr(kPartsDef).get()));
    EXPECT_EQ(DB_E_DUPLICATETABLEID, db->TblCreate(Bstr(kPartsDef).get()));
}

TEST_F(CatalogPathTest, TextThatIsNotATableDefinitionFailsWithoutCallingTheProvider) {
    EXPECT_EQ(E_FAIL, db->TblCreate(Bstr(L"not xml").get()));
    EXPECT_EQ(E_FAIL, db->TblCreate(Bstr(L"<tabledef Name=\"x\"/>").get()));
    EXPECT_TRUE(TableNames().empty());
}

TEST_F(CatalogPathTest, TableMethodsOnClosedConnectionFail) {
    ASSERT_EQ(S_OK, db->ConClose());
    Bstr definition;
    EXPECT_EQ(E_FAIL, db->TblDelete(Bstr(L"parts").get()));
    EXPECT_EQ(E_FAIL, db->TblGetDef(Bstr(L"parts").get(), definition.put()));
    EXPECT_EQ(E_FAIL, db->TblCreate(Bstr(kPartsDef).get()));
}

TEST_F(CatalogPathTest, UnknownTableDropGivesTheProvidersCode) {
    EXPECT_EQ(DB_E_NOTABLE, db->TblDelete(Bstr(L"missing").get()));
}

TEST_F(CatalogPathTest, LongTableNameIsCutTo128Characters) {
    std::wstring name(140, L'n');
    Run(L"CREATE TABLE " + name + L" (v INTEGER)");
    ULONG handle = 0;
    Bstr errorText, errorStmt;
    ASSERT_EQ(S_OK, db->TblOpen(&handle, nullptr, nullptr, nullptr, Bstr(L"TABLE").get(), errorText.put(),
                                errorStmt.put()));
    VARIANT_BOOL row = VARIANT_FALSE;
    ASSERT_EQ(S_OK, db->TblFetchNext(handle, &row));
    ASSERT_EQ(VARIANT_TRUE, row);
    Bstr got;
    ASSERT_EQ(S_OK, db->TblGetName(handle, got.put()));
    EXPECT_EQ(name.substr(0, 128), got.str());
}

TEST_F(CatalogPathTest, IndexesDifferingOnlyInCaseAreBothListedAndPrimaryKeysNever) {
    Run(L"CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT(10), b TEXT(10), c TEXT(10))");
    // SQLite folds only ASCII letters when it compares names, so two indexes whose names differ
    // in the case of an accented letter can both exist.
    Run(L"CREATE INDEX \x00C9x ON t (a)");
    Run(L"CREATE INDEX \x00E9x ON t (b)");
    Run(L"CREATE INDEX ix_abc ON t (a, b, c)");
    std::vector<std::wstring> names = IndexNames(L"t");
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::wstring>{L"ix_abc", L"\x00C9x", L"\x00E9x"}), names);
}

TEST_F(CatalogPathTest, NameListOfFailedOpenFailsAndFetchAfterListIsAtEnd) {
    Run(L"CREATE TABLE t (v INTEGER)");
    ULONG handle = 0;
    Bstr errorText, errorStmt;
    ASSERT_EQ(S_OK, db->TblOpen(&handle, nullptr, nullptr, nullptr, Bstr(L"").get(), errorText.put(),
                                errorStmt.put()));
    Variant list;
    ASSERT_EQ(S_OK, db->TblGetTableList(handle, list.get()));
    VARIANT_BOOL row = VARIANT_TRUE;
    EXPECT_EQ(S_OK, db->TblFetchNext(handle, &row));
    EXPECT_EQ(VARIANT_FALSE, row);
    ASSERT_EQ(S_OK, db->ConClose());
    // Handles are millisecond ticks and the first object registered under a tick keeps it:
    // destroying the first enumeration lets the failed one be registered even within its tick.
    ASSERT_EQ(S_OK, db->TblDestroy(handle));
    ULONG failed = 0;
    EXPECT_EQ(E_FAIL, db->TblOpen(&failed, nullptr, nullptr, nullptr, Bstr(L"").get(), errorText.put(),
                                  errorStmt.put()));
    EXPECT_NE(0u, failed);  // the new handle is issued and registered all the same
    EXPECT_EQ(E_FAIL, db->TblGetTableList(failed, list.get()));
}

TEST_F(CatalogPathTest, CompactionOfDottedPathsUsesTheLastDotOfTheWholePath) {
    ScratchDatabase folder;
    std::wstring dir = folder.Directory() + L"\\v1.0";
    CreateDirectoryW(dir.c_str(), nullptr);
    std::wstring file = dir + L"\\b.db";
    Bstr errorText, errorStmt;
    ASSERT_EQ(S_OK, db->ConCreateMdbFile(Bstr(kProvider).get(), Bstr(file.c_str()).get(), errorText.put(),
                                         errorStmt.put()));
    // A leftover temporary file is replaced.
    HANDLE stale = CreateFileW((dir + L"\\b_TMP_.mdb").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    CloseHandle(stale);
    Open(std::wstring(kProvider) + L"Data Source=" + file);
    Run(L"CREATE TABLE t (v INTEGER)");
    Run(L"INSERT INTO t VALUES (1)");
    ASSERT_EQ(S_OK, db->ConCompactMdb());
    EXPECT_FALSE(PathFileExistsW((dir + L"\\b_TMP_.mdb").c_str()));
    Open(std::wstring(kProvider) + L"Data Source=" + file);
    EXPECT_EQ(std::vector<std::wstring>{L"t"}, TableNames());
}
