// How declared column types (Jet's names and the usual SQL names) and untyped expressions are
// reported through IColumnsInfo: type, size, precision, scale and column flags.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using namespace zel::test;

struct Expectation {
    const wchar_t* declared;
    DBTYPE type;
    DBLENGTH size;
    BYTE precision;
    BYTE scale;
    bool isLong;
    bool fixed;
};

class TypeMapping : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
    }
    ColumnMeta Describe(const std::wstring& declared) {
        c.Run(L"DROP TABLE IF EXISTS t");
        c.Run(L"CREATE TABLE t (c " + declared + L")");
        auto columns = ColumnsOf(c.Query(L"SELECT c FROM t").get());
        EXPECT_EQ(1u, columns.size());
        return columns.empty() ? ColumnMeta{} : columns[0];
    }
    TempDatabase db;
    Connection c;
};

constexpr DBLENGTH kLong = ~DBLENGTH{0};

const Expectation kExpectations[] = {
    {L"INTEGER", DBTYPE_I4, 4, 10, 255, false, true},
    {L"LONG", DBTYPE_I4, 4, 10, 255, false, true},
    {L"INT", DBTYPE_I4, 4, 10, 255, false, true},
    {L"SHORT", DBTYPE_I2, 2, 5, 255, false, true},
    {L"SMALLINT", DBTYPE_I2, 2, 5, 255, false, true},
    {L"BYTE", DBTYPE_UI1, 1, 3, 255, false, true},
    {L"TINYINT", DBTYPE_UI1, 1, 3, 255, false, true},
    {L"BIGINT", DBTYPE_I8, 8, 19, 255, false, true},
    {L"SINGLE", DBTYPE_R4, 4, 7, 255, false, true},
    {L"REAL", DBTYPE_R4, 4, 7, 255, false, true},
    {L"DOUBLE", DBTYPE_R8, 8, 15, 255, false, true},
    {L"FLOAT", DBTYPE_R8, 8, 15, 255, false, true},
    {L"CURRENCY", DBTYPE_CY, 8, 19, 4, false, true},
    {L"MONEY", DBTYPE_CY, 8, 19, 4, false, true},
    {L"DECIMAL(10,2)", DBTYPE_DECIMAL, 16, 10, 2, false, true},
    {L"NUMERIC(18, 4)", DBTYPE_DECIMAL, 16, 18, 4, false, true},
    {L"BIT", DBTYPE_BOOL, 2, 255, 255, false, true},
    {L"YESNO", DBTYPE_BOOL, 2, 255, 255, false, true},
    {L"BOOLEAN", DBTYPE_BOOL, 2, 255, 255, false, true},
    {L"DATETIME", DBTYPE_DATE, 8, 255, 255, false, true},
    {L"DATE", DBTYPE_DATE, 8, 255, 255, false, true},
    {L"TIME", DBTYPE_DATE, 8, 255, 255, false, true},
    {L"GUID", DBTYPE_GUID, 16, 255, 255, false, true},
    {L"UNIQUEIDENTIFIER", DBTYPE_GUID, 16, 255, 255, false, true},
    {L"TEXT(50)", DBTYPE_WSTR, 50, 255, 255, false, false},
    {L"VARCHAR(120)", DBTYPE_WSTR, 120, 255, 255, false, false},
    {L"CHAR(8)", DBTYPE_WSTR, 8, 255, 255, false, true},
    {L"TEXT", DBTYPE_WSTR, kLong, 255, 255, true, false},
    {L"MEMO", DBTYPE_WSTR, kLong, 255, 255, true, false},
    {L"LONGTEXT", DBTYPE_WSTR, kLong, 255, 255, true, false},
    {L"BINARY(16)", DBTYPE_BYTES, 16, 255, 255, false, false},
    {L"VARBINARY(200)", DBTYPE_BYTES, 200, 255, 255, false, false},
    {L"BLOB", DBTYPE_BYTES, kLong, 255, 255, true, false},
    {L"LONGBINARY", DBTYPE_BYTES, kLong, 255, 255, true, false},
    {L"IMAGE", DBTYPE_BYTES, kLong, 255, 255, true, false},
};

TEST_F(TypeMapping, EveryDeclaredTypeMapsToItsOleDbType) {
    for (const auto& e : kExpectations) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(e.declared)));
        ColumnMeta m = Describe(e.declared);
        EXPECT_EQ(e.type, m.type);
        EXPECT_EQ(e.size, m.size);
        EXPECT_EQ(e.precision, m.precision);
        EXPECT_EQ(e.scale, m.scale);
        EXPECT_EQ(e.isLong, (m.flags & DBCOLUMNFLAGS_ISLONG) != 0);
        EXPECT_EQ(e.fixed, (m.flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) != 0);
    }
}

TEST_F(TypeMapping, TypeNamesAreMatchedWithoutRegardToCase) {
    EXPECT_EQ(DBTYPE_I4, Describe(L"integer").type);
    EXPECT_EQ(DBTYPE_BOOL, Describe(L"YesNo").type);
}

TEST_F(TypeMapping, NullabilityFollowsNotNull) {
    c.Run(L"CREATE TABLE n (a INTEGER NOT NULL, b INTEGER)");
    auto columns = ColumnsOf(c.Query(L"SELECT a, b FROM n").get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(0u, columns[0].flags & (DBCOLUMNFLAGS_MAYBENULL | DBCOLUMNFLAGS_ISNULLABLE));
    EXPECT_NE(0u, columns[1].flags & DBCOLUMNFLAGS_MAYBENULL);
    EXPECT_NE(0u, columns[1].flags & DBCOLUMNFLAGS_ISNULLABLE);
}

TEST_F(TypeMapping, ExpressionsAreTypedFromTheirValues) {
    auto columns = ColumnsOf(c.Query(L"SELECT 1 + 1, 2.5, 'abc', x'0102', NULL").get());
    ASSERT_EQ(5u, columns.size());
    EXPECT_EQ(DBTYPE_I8, columns[0].type);
    EXPECT_EQ(DBTYPE_R8, columns[1].type);
    EXPECT_EQ(DBTYPE_WSTR, columns[2].type);
    EXPECT_EQ(0u, columns[2].flags & DBCOLUMNFLAGS_ISLONG);
    EXPECT_EQ(DBTYPE_BYTES, columns[3].type);
    EXPECT_EQ(DBTYPE_WSTR, columns[4].type);  // a NULL-only column reads as text
}

TEST_F(TypeMapping, ColumnNamesAndOrdinalsComeFromTheStatement) {
    c.Run(L"CREATE TABLE p (first INTEGER, second TEXT(5))");
    auto columns = ColumnsOf(c.Query(L"SELECT second AS renamed, first FROM p").get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(L"renamed", columns[0].name);
    EXPECT_EQ(1u, columns[0].ordinal);
    EXPECT_EQ(L"first", columns[1].name);
    EXPECT_EQ(2u, columns[1].ordinal);
}

TEST_F(TypeMapping, BookmarkColumnComesFirstWhenBookmarksAreAskedFor) {
    c.Run(L"CREATE TABLE b (a INTEGER)");
    DBPROP prop = BoolProperty(DBPROP_BOOKMARKS);
    DBPROPSET set{&prop, 1, DBPROPSET_ROWSET};
    auto columns = ColumnsOf(c.Query(L"SELECT a FROM b", &set, 1).get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(0u, columns[0].ordinal);
    EXPECT_NE(0u, columns[0].flags & DBCOLUMNFLAGS_ISBOOKMARK);
    EXPECT_EQ(1u, columns[1].ordinal);
    EXPECT_EQ(L"a", columns[1].name);
}

TEST_F(TypeMapping, MapColumnIdsFindsColumnsByName) {
    c.Run(L"CREATE TABLE m (alpha INTEGER, beta INTEGER)");
    auto rowset = c.Query(L"SELECT alpha, beta FROM m");
    DBID ids[2]{};
    ids[0].eKind = DBKIND_NAME;
    ids[0].uName.pwszName = const_cast<LPOLESTR>(L"BETA");
    ids[1].eKind = DBKIND_NAME;
    ids[1].uName.pwszName = const_cast<LPOLESTR>(L"gamma");
    DBORDINAL ordinals[2] = {};
    EXPECT_EQ(DB_S_ERRORSOCCURRED, rowset.as<IColumnsInfo>()->MapColumnIDs(2, ids, ordinals));
    EXPECT_EQ(2u, ordinals[0]);
    EXPECT_EQ(DB_INVALIDCOLUMN, ordinals[1]);
}

}  // namespace

namespace {

using namespace zel::test;

TEST(Bookmarks, TheBookmarkColumnReadsAsTheRowsPosition) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    c.Run(L"CREATE TABLE b (a TEXT(5))");
    c.Run(L"INSERT INTO b VALUES ('x'), ('y')");
    DBPROP prop = BoolProperty(DBPROP_BOOKMARKS);
    DBPROPSET set{&prop, 1, DBPROPSET_ROWSET};
    auto rowset = c.Query(L"SELECT a FROM b ORDER BY a", &set, 1);
    DBCOUNTITEM obtained = 0;
    HROW rows[2] = {};
    HROW* out = rows;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 2, &obtained, &out));
    EXPECT_EQ(1, ReadValue(rowset.get(), rows[0], 0, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(2, ReadValue(rowset.get(), rows[1], 0, DBTYPE_I4).as<LONG>());
    EXPECT_STREQ(L"y", reinterpret_cast<const wchar_t*>(ReadValue(rowset.get(), rows[1], 1, DBTYPE_WSTR, 20).value.data()));
    rowset->ReleaseRows(2, rows, nullptr, nullptr, nullptr);
}

}  // namespace
