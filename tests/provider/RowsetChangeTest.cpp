// IRowsetChange on a rowset over one table (SetData, InsertRow, DeleteRows) and its refusal on
// a join.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

// A buffer row for (name WSTR(40), qty I4) with length and status parts.
struct Values {
    wchar_t name[41];
    DBLENGTH nameLength;
    DBSTATUS nameStatus;
    LONG qty;
    DBSTATUS qtyStatus;
};

class RowsetChangeTest : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE stock (id INTEGER PRIMARY KEY, name TEXT(40) NOT NULL, qty INTEGER DEFAULT 5 CHECK (qty >= 0))");
        c.Run(L"INSERT INTO stock (name, qty) VALUES ('apple', 1), ('pear', 2), ('plum', 3)");
        c.Run(L"CREATE TABLE origin (name TEXT(40), country TEXT(40))");
        c.Run(L"INSERT INTO origin VALUES ('apple', 'NZ')");
    }
    ComPtr<IRowset> Open(const std::wstring& sql) {
        ServerRowsetProperties server;
        return c.Query(sql, &server.set, 1);
    }
    HACCESSOR MakeAccessor(IRowset* rowset, DBORDINAL nameOrdinal, DBORDINAL qtyOrdinal) {
        DBBINDING b[2] = {
            Binding::Make(nameOrdinal, DBTYPE_WSTR, sizeof(Values::name), offsetof(Values, name),
                          offsetof(Values, nameLength), offsetof(Values, nameStatus)),
            Binding::Make(qtyOrdinal, DBTYPE_I4, 0, offsetof(Values, qty), 0, offsetof(Values, qtyStatus))};
        b[1].dwPart = DBPART_VALUE | DBPART_STATUS;
        HACCESSOR handle = DB_NULL_HACCESSOR;
        ComPtr<IRowset> r(rowset);
        EXPECT_EQ(S_OK, r.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, 2, b, sizeof(Values), &handle, nullptr));
        return handle;
    }
    HROW First(IRowset* rowset) {
        DBCOUNTITEM obtained = 0;
        HROW row = DB_NULL_HROW;
        HROW* rows = &row;
        EXPECT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
        return row;
    }
    static Values Make(const wchar_t* name, LONG qty) {
        Values v{};
        wcscpy(v.name, name);
        v.nameLength = wcslen(name) * sizeof(wchar_t);
        v.nameStatus = DBSTATUS_S_OK;
        v.qty = qty;
        v.qtyStatus = DBSTATUS_S_OK;
        return v;
    }
    std::vector<std::vector<std::wstring>> Table() {
        return ReadAllAsText(c.Query(L"SELECT name, qty FROM stock ORDER BY id").get());
    }
    TempDatabase db;
    Connection c;
};

TEST_F(RowsetChangeTest, ARowsetOverATableOffersRowsetChangeWhenAskedForIt) {
    auto rowset = Open(L"SELECT name, qty FROM stock");
    EXPECT_TRUE(rowset.try_as<IRowsetChange>());
    auto plain = c.Query(L"SELECT name, qty FROM stock");
    EXPECT_FALSE(plain.try_as<IRowsetChange>());
}

TEST_F(RowsetChangeTest, WritableColumnsCarryTheWriteFlag) {
    auto columns = ColumnsOf(Open(L"SELECT name, qty FROM stock").get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_NE(0u, columns[0].flags & DBCOLUMNFLAGS_WRITE);
    auto joined = ColumnsOf(Open(L"SELECT s.name, o.country FROM stock s JOIN origin o ON o.name = s.name").get());
    EXPECT_EQ(0u, joined[0].flags & DBCOLUMNFLAGS_WRITE);
}

TEST_F(RowsetChangeTest, SetDataChangesTheRowInTheTableAndInTheRowset) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    HROW row = First(rowset.get());
    Values v = Make(L"green apple", 9);
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    auto table = Table();
    EXPECT_EQ(L"green apple", table[0][0]);
    EXPECT_EQ(L"9", table[0][1]);
    EXPECT_EQ(L"pear", table[1][0]);
    Values back{};
    ASSERT_EQ(S_OK, rowset->GetData(row, accessor, &back));
    EXPECT_STREQ(L"green apple", back.name);
    EXPECT_EQ(9, back.qty);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, SetDataWorksOnATableOpenedByName) {
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<LPOLESTR>(L"stock");
    ServerRowsetProperties server;
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 1, &server.set, rowset.put_unknown()));
    HACCESSOR accessor = MakeAccessor(rowset.get(), 2, 3);
    HROW row = First(rowset.get());
    Values v = Make(L"quince", 0);
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    EXPECT_EQ(L"quince", Table()[0][0]);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, SetDataOnARowsetWithoutTheKeyFindsTheRowByItsValues) {
    auto rowset = Open(L"SELECT qty FROM stock ORDER BY id");
    DBBINDING b = Binding::Make(1, DBTYPE_I4, 0, offsetof(Values, qty), 0, offsetof(Values, qtyStatus));
    b.dwPart = DBPART_VALUE | DBPART_STATUS;
    HACCESSOR accessor = DB_NULL_HACCESSOR;
    ASSERT_EQ(S_OK, rowset.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, 1, &b, 0, &accessor, nullptr));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 1, 1, &obtained, &rows));  // the second row
    Values v = Make(L"", 20);
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    auto table = Table();
    EXPECT_EQ(L"1", table[0][1]);
    EXPECT_EQ(L"20", table[1][1]);
    EXPECT_EQ(L"3", table[2][1]);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, AValueTheColumnCannotHoldIsRefusedWithItsStatus) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    HROW row = First(rowset.get());
    Values v = Make(L"this name is far too long for a column of forty characters", 1);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, v.nameStatus);
    EXPECT_EQ(DBSTATUS_S_OK, v.qtyStatus);
    EXPECT_EQ(L"apple", Table()[0][0]);  // nothing was written
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, AConstraintViolationIsReportedWithSqlState) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    HROW row = First(rowset.get());
    Values v = Make(L"apple", -1);
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"23000", errors[0].sqlState);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, NullIsWrittenThroughTheStatus) {
    c.Run(L"CREATE TABLE opt (id INTEGER PRIMARY KEY, note TEXT(40), qty INTEGER)");
    c.Run(L"INSERT INTO opt VALUES (1, 'x', 4)");
    auto rowset = Open(L"SELECT note, qty FROM opt");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    HROW row = First(rowset.get());
    Values v = Make(L"", 0);
    v.nameStatus = DBSTATUS_S_ISNULL;
    v.qtyStatus = DBSTATUS_S_IGNORE;
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    auto rows = ReadAllAsText(c.Query(L"SELECT note, qty FROM opt").get());
    EXPECT_EQ(L"<null>", rows[0][0]);
    EXPECT_EQ(L"4", rows[0][1]);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, InsertRowAddsARowThatTheRowsetAlsoShows) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    Values v = Make(L"fig", 7);
    HROW inserted = DB_NULL_HROW;
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->InsertRow(DB_NULL_HCHAPTER, accessor, &v, &inserted));
    ASSERT_NE(DB_NULL_HROW, inserted);
    Values back{};
    ASSERT_EQ(S_OK, rowset->GetData(inserted, accessor, &back));
    EXPECT_STREQ(L"fig", back.name);
    auto table = Table();
    ASSERT_EQ(4u, table.size());
    EXPECT_EQ(L"fig", table[3][0]);
    rowset->ReleaseRows(1, &inserted, nullptr, nullptr, nullptr);
    EXPECT_EQ(4u, ReadAllAsText(rowset.get()).size());
}

TEST_F(RowsetChangeTest, InsertRowGivesUnboundColumnsTheirDefaults) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    Values v = Make(L"kiwi", 0);
    v.qtyStatus = DBSTATUS_S_DEFAULT;
    HROW inserted = DB_NULL_HROW;
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->InsertRow(DB_NULL_HCHAPTER, accessor, &v, &inserted));
    Values back{};
    ASSERT_EQ(S_OK, rowset->GetData(inserted, accessor, &back));
    EXPECT_EQ(5, back.qty);  // the column's DEFAULT
    rowset->ReleaseRows(1, &inserted, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, DeleteRowsRemovesRowsFromTheTableAndFromLaterFetches) {
    auto rowset = Open(L"SELECT name, qty FROM stock ORDER BY id");
    HROW row = First(rowset.get());
    DBROWSTATUS status = 99;
    ASSERT_EQ(S_OK, rowset.as<IRowsetChange>()->DeleteRows(DB_NULL_HCHAPTER, 1, &row, &status));
    EXPECT_EQ(DBROWSTATUS_S_OK, status);
    EXPECT_EQ(DB_E_DELETEDROW, ReadValue(rowset.get(), row, 1, DBTYPE_WSTR, 80).hr);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, rowset.as<IRowsetChange>()->DeleteRows(DB_NULL_HCHAPTER, 1, &row, &status));
    EXPECT_EQ(DBROWSTATUS_E_DELETED, status);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    auto table = Table();
    ASSERT_EQ(2u, table.size());
    EXPECT_EQ(L"pear", table[0][0]);
    auto seen = ReadAllAsText(rowset.get());
    ASSERT_EQ(2u, seen.size());
    EXPECT_EQ(L"pear", seen[0][0]);
}

TEST_F(RowsetChangeTest, AJoinRefusesChangesWithAClearError) {
    auto rowset = Open(L"SELECT s.name, o.country FROM stock s JOIN origin o ON o.name = s.name");
    auto change = rowset.try_as<IRowsetChange>();
    ASSERT_TRUE(change);
    HACCESSOR accessor = DB_NULL_HACCESSOR;
    DBBINDING b = Binding::Make(1, DBTYPE_WSTR, sizeof(Values::name), offsetof(Values, name),
                                offsetof(Values, nameLength), offsetof(Values, nameStatus));
    ASSERT_EQ(S_OK, rowset.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, 1, &b, 0, &accessor, nullptr));
    HROW row = First(rowset.get());
    Values v = Make(L"banana", 0);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, change->SetData(row, accessor, &v));
    EXPECT_EQ(DBSTATUS_E_PERMISSIONDENIED, v.nameStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"one base table"));
    HROW inserted = DB_NULL_HROW;
    EXPECT_EQ(DB_E_NOTSUPPORTED, change->InsertRow(DB_NULL_HCHAPTER, accessor, &v, &inserted));
    DBROWSTATUS status = 0;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, change->DeleteRows(DB_NULL_HCHAPTER, 1, &row, &status));
    EXPECT_EQ(DBROWSTATUS_E_PERMISSIONDENIED, status);
    EXPECT_EQ(3u, Table().size());
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(RowsetChangeTest, AReadOnlyDataSourceRefusesChanges) {
    auto reader = Connection::Open(db.ConnectionString(L"Mode=Read"));
    ServerRowsetProperties server;
    auto rowset = reader.Query(L"SELECT name, qty FROM stock ORDER BY id", &server.set, 1);
    HACCESSOR accessor = MakeAccessor(rowset.get(), 1, 2);
    HROW row = First(rowset.get());
    Values v = Make(L"pear", 1);
    EXPECT_EQ(DB_E_READONLY, rowset.as<IRowsetChange>()->SetData(row, accessor, &v));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

}  // namespace
