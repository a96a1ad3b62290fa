// Long and quoted names, table definitions inside transactions, after the file is opened
// again, and on a read-only data source.
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- Names ---------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, NamesOfTwoHundredCharactersWork) {
    const std::wstring table(200, L'T');
    const std::wstring column = std::wstring(199, L'c') + L"1";
    ColumnList columns;
    columns.Add(column, DBTYPE_WSTR).Size(10).AllowZeroLength(false);
    columns.Add(L"ID", DBTYPE_I4).Identity(7, 1);
    ASSERT_EQ(S_OK, Create(table, columns));
    auto got = Get(table);
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(column, got->columns[0].dbcid.uName.pwszName);
    c.Run(L"INSERT INTO " + table + L" (" + column + L") VALUES ('x')");
    EXPECT_EQ(L"7", Scalar(L"SELECT ID FROM " + table));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO " + table + L" (" + column + L") VALUES ('')"));
    Name tableId(table), columnId(column), index(std::wstring(210, L'i'));
    DBINDEXCOLUMNDESC key = {columnId.get(), DBINDEX_COL_ORDER_DESC};
    ASSERT_EQ(S_OK, indexes->CreateIndex(tableId.get(), index.get(), 1, &key, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, indexes->DropIndex(tableId.get(), index.get()));
    ASSERT_EQ(S_OK, Drop(table));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM zel_lite_columns"));
}

TEST_F(TableDefinitionTest, NamesWithQuotesOfBothKindsWork) {
    const std::wstring table = L"say \"hi\" it's";
    ColumnList columns;
    columns.Add(L"a\"b", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"c'd", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DEFAULT, Text(L"o'k"));
    ASSERT_EQ(S_OK, Create(table, columns));
    const std::wstring quoted = L"\"say \"\"hi\"\" it's\"";
    c.Run(L"INSERT INTO " + quoted + L" DEFAULT VALUES");
    c.Run(L"INSERT INTO " + quoted + L" (\"c'd\") VALUES ('x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"1", L"o'k"}, {L"2", L"x"}}),
              Rows(L"SELECT \"a\"\"b\", \"c'd\" FROM " + quoted + L" ORDER BY 1"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO " + quoted + L" (\"c'd\") VALUES ('')"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"'c'd' in table 'say \"hi\" it's'"))
        << testing::PrintToString(errors[0].description);
    auto got = Get(table);
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bstr:o'k", ColumnText(got->Column(L"c'd"), DBPROP_COL_DEFAULT));
    Name tableId(table), column(L"c'd"), index(L"ix \"q\" 'x'");
    DBINDEXCOLUMNDESC key = {column.get(), DBINDEX_COL_ORDER_ASC};
    ASSERT_EQ(S_OK, indexes->CreateIndex(tableId.get(), index.get(), 1, &key, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, indexes->DropIndex(tableId.get(), index.get()));
    Name dropped(L"a\"b");
    ASSERT_EQ(S_OK, definition->DropColumn(tableId.get(), dropped.get()));
    ASSERT_EQ(S_OK, Drop(table));
}

// --- Transactions and persistence ----------------------------------------------------------

TEST_F(TableDefinitionTest, AbortUndoesACreateTableMadeInsideTheTransaction) {
    auto local = c.session.as<ITransactionLocal>();
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Code", DBTYPE_WSTR).Size(5).AllowZeroLength(false);
    ASSERT_EQ(S_OK, Create(L"undone", columns));
    EXPECT_EQ(S_OK, Get(L"undone")->hr);
    // A failed change inside the transaction leaves the transaction and the table as they were.
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"undone", columns));
    ColumnList bad;
    bad.Add(L"Code", DBTYPE_I4);
    Name table(L"undone");
    EXPECT_EQ(DB_E_DUPLICATECOLUMNID, definition->AddColumn(table.get(), bad.get(), nullptr));
    EXPECT_EQ(S_OK, Get(L"undone")->hr);
    ASSERT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
    EXPECT_EQ(DB_E_NOTABLE, Get(L"undone")->hr);
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master"));  // the metadata table went too

    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, Create(L"kept", columns));
    ASSERT_EQ(S_OK, local->Commit(FALSE, XACTTC_SYNC, 0));
    auto other = Connection::Open(db.ConnectionString());
    Name kept(L"kept");
    Definition fromOther;
    EXPECT_EQ(S_OK, other.session.as<ITableCreation>()->GetTableDefinition(kept.get(), &fromOther.count,
                                                                            &fromOther.columns, nullptr, nullptr,
                                                                            nullptr, nullptr, &fromOther.strings));
    EXPECT_EQ(2u, fromOther.count);
}

TEST_F(TableDefinitionTest, PropertiesAreStillEnforcedAfterTheFileIsOpenedAgain) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Code", DBTYPE_WSTR).Size(5).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"kept"));
    ASSERT_EQ(S_OK, Create(L"durable", columns));
    c.Run(L"INSERT INTO durable (Code) VALUES ('a')");
    definition.reset();
    creation.reset();
    indexes.reset();
    c = Connection{};

    c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    creation = c.session.as<ITableCreation>();
    c.Run(L"INSERT INTO durable (Code) VALUES ('b')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO durable (Code) VALUES ('')"));
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"110", L"b"}}),
              Rows(L"SELECT ID, Code FROM durable ORDER BY ID"));
    auto got = Get(L"durable");
    EXPECT_EQ(L"i4:120", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
    EXPECT_EQ(L"bstr:kept", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Code"), kJetColumnSet, kAllowZeroLength));
}

TEST_F(TableDefinitionTest, AReadOnlyDataSourceRefusesChangesButDescribesTables) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4).Prop(DBPROP_COL_DESCRIPTION, Text(L"kept"));
    ASSERT_EQ(S_OK, Create(L"fixed", columns));
    auto reader = Connection::Open(db.ConnectionString(L"Mode=Read"));
    ASSERT_TRUE(reader.session);
    auto readOnly = reader.session.as<ITableDefinition>();
    Name other(L"other"), fixed(L"fixed");
    EXPECT_EQ(DB_E_READONLY, readOnly->CreateTable(nullptr, other.get(), columns.count(), columns.get(), IID_NULL, 0,
                                                   nullptr, nullptr, nullptr));
    EXPECT_EQ(DB_E_READONLY, readOnly->DropTable(fixed.get()));
    Definition got;
    ASSERT_EQ(S_OK, reader.session.as<ITableCreation>()->GetTableDefinition(fixed.get(), &got.count, &got.columns,
                                                                             nullptr, nullptr, nullptr, nullptr,
                                                                             &got.strings));
    EXPECT_EQ(L"bstr:kept", ColumnText(got.Column(L"a"), DBPROP_COL_DESCRIPTION));
    EXPECT_TRUE(TableExists(L"fixed"));
}

}  // namespace
