// Identity columns (seed, increment, numbering by SQL and by IRowsetChange) and columns that
// refuse zero-length strings, enforced for every way of inserting.
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- Identity ------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, IdentitySeedAndIncrementNumberRowsInsertedBySql) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");
    c.Run(L"INSERT INTO items (Name) VALUES ('b'), ('c')");
    c.Run(L"INSERT INTO items (ID, Name) VALUES (NULL, 'd')");  // NULL asks for the next value too
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"110", L"b"}, {L"120", L"c"}, {L"130", L"d"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY rowid"));
    // DBPROP_COL_SEED reads back as the value the next row gets.
    auto got = Get(L"items");
    EXPECT_EQ(L"i4:140", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
    EXPECT_EQ(L"i4:10", ColumnText(got->Column(L"ID"), DBPROP_COL_INCREMENT));
}

TEST_F(TableDefinitionTest, InsertRowShowsTheIdentityValueTheRowWasGiven) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    auto rowset = OpenChangeable(L"items");
    ASSERT_TRUE(rowset);
    HROW first = DB_NULL_HROW, second = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"first", &first));
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"second", &second));
    EXPECT_EQ(100, ReadI4(rowset.get(), first, 1));
    EXPECT_EQ(110, ReadI4(rowset.get(), second, 1));
    rowset->ReleaseRows(1, &first, nullptr, nullptr, nullptr);
    rowset->ReleaseRows(1, &second, nullptr, nullptr, nullptr);
    rowset.reset();
    // Read again from the table.
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"first"}, {L"110", L"second"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY ID"));
    auto again = OpenChangeable(L"items");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"first"}, {L"110", L"second"}}),
              ReadAllAsText(again.get()));
}

TEST_F(TableDefinitionTest, AnExplicitIdentityValueIsKeptAndNumberingContinuesPastIt) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");        // 100
    c.Run(L"INSERT INTO items (ID, Name) VALUES (500, 'b')");  // kept; the counter moves past it
    c.Run(L"INSERT INTO items (Name) VALUES ('c')");        // 510
    c.Run(L"INSERT INTO items (ID, Name) VALUES (7, 'd')");    // kept; below the counter, which stays
    c.Run(L"INSERT INTO items (Name) VALUES ('e')");        // 520
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"500", L"b"}, {L"510", L"c"}, {L"7", L"d"},
                                                      {L"520", L"e"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY rowid"));
}

TEST_F(TableDefinitionTest, ANegativeIncrementCountsDown) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I8).Identity(-1, -2);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"down", columns));
    c.Run(L"INSERT INTO down (Name) VALUES ('a'), ('b'), ('c')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"-1"}, {L"-3"}, {L"-5"}}),
              Rows(L"SELECT ID FROM down ORDER BY rowid"));
}

TEST_F(TableDefinitionTest, AnIdentityColumnIsNotNullableAndRefusesNull) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Flag(DBPROP_COL_AUTOINCREMENT, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    auto got = Get(L"items");
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"ID"), DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"i4:1", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));  // seed and increment 1 by default
    EXPECT_EQ(L"i4:1", ColumnText(got->Column(L"ID"), DBPROP_COL_INCREMENT));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"UPDATE items SET ID = NULL"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"identity column"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_EQ(L"1", Scalar(L"SELECT ID FROM items"));
}

TEST_F(TableDefinitionTest, AnIdentityPrimaryKeyCountingByOneIsNumberedBySqlite) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1000, 1).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    EXPECT_NE(std::wstring::npos, Scalar(L"SELECT sql FROM sqlite_master WHERE name = 'keyed'").find(L"AUTOINCREMENT"));
    c.Run(L"INSERT INTO keyed (Name) VALUES ('a'), ('b')");
    auto rowset = OpenChangeable(L"keyed");
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"c", &row));
    EXPECT_EQ(1002, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    c.Run(L"DELETE FROM keyed WHERE ID = 1002");  // SQLite's AUTOINCREMENT never gives a number again
    c.Run(L"INSERT INTO keyed (Name) VALUES ('d')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"1000"}, {L"1001"}, {L"1003"}}),
              Rows(L"SELECT ID FROM keyed ORDER BY ID"));
    auto got = Get(L"keyed");
    const DBCOLUMNDESC* id = got->Column(L"ID");
    EXPECT_STREQ(L"INTEGER", id->pwszTypeName);
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"i4:1004", ColumnText(id, DBPROP_COL_SEED));
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_PRIMARYKEY));
    EXPECT_EQ(L"bool:0", ColumnText(id, DBPROP_COL_NULLABLE));
}

TEST_F(TableDefinitionTest, AnIdentityPrimaryKeyWithAnotherIncrementIsNumberedByTheProvider) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(10, 2).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    c.Run(L"INSERT INTO keyed (Name) VALUES ('a'), ('b')");
    auto rowset = OpenChangeable(L"keyed");
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"c", &row));
    EXPECT_EQ(14, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"10", L"a"}, {L"12", L"b"}, {L"14", L"c"}}),
              Rows(L"SELECT ID, Name FROM keyed ORDER BY ID"));
    // The key is enforced: an explicit duplicate is refused.
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed (ID, Name) VALUES (12, 'x')"));
    auto got = Get(L"keyed");
    EXPECT_STREQ(L"COUNTER", got->Column(L"ID")->pwszTypeName);
    EXPECT_EQ(DBTYPE_I4, got->Column(L"ID")->wType);
    EXPECT_EQ(L"i4:16", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
}

// --- Zero-length strings -----------------------------------------------------------------

class ZeroLengthTest : public TableDefinitionTest {
protected:
    void SetUp() override {
        TableDefinitionTest::SetUp();
        ColumnList columns;
        columns.Add(L"Strict", DBTYPE_WSTR).Size(20).AllowZeroLength(false);
        columns.Add(L"Lenient", DBTYPE_WSTR).Size(20).AllowZeroLength(true);
        columns.Add(L"Unsaid", DBTYPE_WSTR).Size(20);
        ASSERT_EQ(S_OK, Create(L"words", columns));
    }
};

TEST_F(ZeroLengthTest, SqlInsertOfAZeroLengthStringIsRefusedWithAClearError) {
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO words (Strict) VALUES ('')"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, errors[0].hr);
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_NE(std::wstring::npos,
              errors[0].description.find(L"'Strict' in table 'words' cannot be a zero-length string"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM words"));
}

TEST_F(ZeroLengthTest, NullAndColumnsThatAllowItAcceptWhatTheStrictColumnRefuses) {
    c.Run(L"INSERT INTO words (Strict, Lenient, Unsaid) VALUES (NULL, '', '')");
    c.Run(L"INSERT INTO words (Strict) VALUES ('x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"<null>", L"", L""}, {L"x", L"<null>", L"<null>"}}),
              Rows(L"SELECT Strict, Lenient, Unsaid FROM words ORDER BY rowid"));
    // A column created without the property allows zero-length strings.
    auto got = Get(L"words");
    EXPECT_EQ(L"bool:-1", PropertyText(got->Column(L"Unsaid"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Strict"), kJetColumnSet, kAllowZeroLength));
}

TEST_F(ZeroLengthTest, UpdatingToAZeroLengthStringIsRefused) {
    c.Run(L"INSERT INTO words (Strict) VALUES ('x')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"UPDATE words SET Strict = ''"));
    EXPECT_EQ(L"x", Scalar(L"SELECT Strict FROM words"));
}

TEST_F(ZeroLengthTest, InsertRowOfAZeroLengthStringIsRefusedWithTheSameError) {
    auto rowset = OpenChangeable(L"words");
    HROW row = DB_NULL_HROW;
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, InsertText(rowset.get(), 1, L"", &row));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"zero-length"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(S_OK, InsertText(rowset.get(), 2, L"", &row));  // the lenient column takes one
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM words"));
}

}  // namespace
