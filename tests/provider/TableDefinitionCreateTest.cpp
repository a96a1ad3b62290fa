// ITableDefinition::CreateTable and DropTable: existing and unknown tables, refused
// descriptions, generated names, rowsets opened on the new table, and property statuses.
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- Create and drop -----------------------------------------------------------------------

TEST_F(TableDefinitionTest, CreatingAnExistingTableGivesDuplicateTableId) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4);
    ASSERT_EQ(S_OK, Create(L"twice", columns));
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"twice", columns));
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"TWICE", columns));  // names compare without regard to case
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"42S01", errors[0].sqlState);
}

TEST_F(TableDefinitionTest, DroppingAnUnknownTableGivesNoTable) {
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"missing"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"42S02", errors[0].sqlState);
    EXPECT_EQ(E_INVALIDARG, definition->DropTable(nullptr));
    c.Run(L"CREATE VIEW v AS SELECT 1 AS x");
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"v"));  // a view is not a table
}

TEST_F(TableDefinitionTest, DropTableTakesTheMetadataAndTriggersWithIt) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(5, 5);
    columns.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"code"));
    ASSERT_EQ(S_OK, Create(L"gone", columns));
    EXPECT_EQ(L"2", Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'gone'"));
    EXPECT_NE(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'trigger' AND tbl_name = 'gone'"));
    ASSERT_EQ(S_OK, Drop(L"gone"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'gone'"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE tbl_name = 'gone'"));
    // A table of the same name made without properties has none of the old ones.
    ColumnList plain;
    plain.Add(L"ID", DBTYPE_I4);
    plain.Add(L"Code", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"gone", plain));
    c.Run(L"INSERT INTO gone (Code) VALUES ('')");
    EXPECT_EQ(L"<null>", Scalar(L"SELECT ID FROM gone"));
    auto got = Get(L"gone");
    EXPECT_EQ(L"empty", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"ID"), DBPROP_COL_AUTOINCREMENT));
}

TEST_F(TableDefinitionTest, TheMetadataTableIsMadeOnlyWhenAColumnNeedsIt) {
    ColumnList plain;
    plain.Add(L"a", DBTYPE_I4);
    plain.Add(L"b", DBTYPE_WSTR).Size(5);
    ASSERT_EQ(S_OK, Create(L"plain", plain));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'zel_lite_columns'"));
    auto got = Get(L"plain");  // reading copes with its absence
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:-1", PropertyText(got->Column(L"b"), kJetColumnSet, kAllowZeroLength));
    ColumnList described;
    described.Add(L"a", DBTYPE_I4).Prop(DBPROP_COL_DESCRIPTION, Text(L"an a"));
    ASSERT_EQ(S_OK, Create(L"described", described));
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'zel_lite_columns'"));
    // The provider's own table is not a table a consumer can define or drop.
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"zel_lite_columns"));
    EXPECT_EQ(DB_E_NOTABLE, Get(L"zel_lite_columns")->hr);
    EXPECT_EQ(DB_E_BADTABLEID, Create(L"ZEL_LITE_COLUMNS", plain));
}

TEST_F(TableDefinitionTest, BadColumnDescriptionsAreRefusedAndNothingIsCreated) {
    {
        ColumnList columns;
        columns.Add(L"", DBTYPE_I4);
        EXPECT_EQ(DB_E_BADCOLUMNID, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_IUNKNOWN);
        EXPECT_EQ(DB_E_BADTYPE, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_DECIMAL).Digits(40, 2);
        EXPECT_EQ(DB_E_BADPRECISION, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_DECIMAL).Digits(5, 7);
        EXPECT_EQ(DB_E_BADSCALE, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"Same", DBTYPE_I4);
        columns.Add(L"SAME", DBTYPE_WSTR);
        EXPECT_EQ(DB_E_DUPLICATECOLUMNID, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_I4);
        EXPECT_EQ(DB_E_BADTABLEID, Create(L"", columns));
        EXPECT_EQ(DB_E_BADTABLEID, Create(L"sqlite_mine", columns));
        EXPECT_EQ(E_INVALIDARG, definition->CreateTable(nullptr, nullptr, 1, columns.get(), IID_NULL, 0, nullptr,
                                                        nullptr, nullptr));
        Name id(L"bad");
        EXPECT_EQ(E_INVALIDARG, definition->CreateTable(nullptr, id.get(), 0, nullptr, IID_NULL, 0, nullptr, nullptr,
                                                        nullptr));
    }
    {
        ColumnList columns;
        DBCOLUMNDESC* d = nullptr;
        columns.Add(L"x", DBTYPE_I4);
        d = columns.get();
        d[0].dbcid.eKind = DBKIND_GUID_PROPID;
        Name id(L"bad");
        EXPECT_EQ(DB_E_BADCOLUMNID, definition->CreateTable(nullptr, id.get(), 1, d, IID_NULL, 0, nullptr, nullptr,
                                                            nullptr));
    }
    EXPECT_FALSE(TableExists(L"bad"));
}

TEST_F(TableDefinitionTest, WithoutATableIdTheProviderNamesTheTable) {
    ColumnList columns;
    columns.Add(L"x", DBTYPE_I4);
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, nullptr, columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(DBKIND_NAME, made->eKind);
    EXPECT_STREQ(L"Table1", made->uName.pwszName);
    EXPECT_TRUE(TableExists(L"Table1"));
    FreeId(made);
    made = nullptr;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, nullptr, columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    EXPECT_STREQ(L"Table2", made->uName.pwszName);
    FreeId(made);
    // With a name, ppTableID returns it.
    Name id(L"given");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, id.get(), columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    EXPECT_STREQ(L"given", made->uName.pwszName);
    FreeId(made);
}

TEST_F(TableDefinitionTest, ARowsetAskedForOpensOnTheNewTable) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ServerRowsetProperties server;
    Name id(L"fresh");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, id.get(), columns.count(), columns.get(), IID_IRowset, 1,
                                            &server.set, nullptr, rowset.put_unknown()));
    ASSERT_TRUE(rowset);
    auto info = ColumnsOf(rowset.get());
    ASSERT_EQ(2u, info.size());
    EXPECT_EQ(L"ID", info[0].name);
    EXPECT_EQ(L"Name", info[1].name);
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"made", &row));
    EXPECT_EQ(1, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ(L"made", Scalar(L"SELECT Name FROM fresh WHERE ID = 1"));
    // An interface a table's rowset does not offer is refused before the table is made.
    Name other(L"other");
    ComPtr<IUnknown> nothing;
    EXPECT_EQ(E_NOINTERFACE, definition->CreateTable(nullptr, other.get(), columns.count(), columns.get(),
                                                     IID_ITableDefinition, 0, nullptr, nullptr, nothing.put()));
    EXPECT_FALSE(TableExists(L"other"));
}

// --- Property statuses ---------------------------------------------------------------------

TEST_F(TableDefinitionTest, ARequiredPropertyThatCannotBeHonouredFailsTheCreateWithItsStatus) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_WSTR).Size(5).Flag(DBPROP_COL_AUTOINCREMENT, true).Flag(DBPROP_COL_NULLABLE, false);
    columns.Add(L"b", DBTYPE_I4).Prop(DBPROP_COLUMNLCID, Number(1033)).Prop(DBPROP_COL_NULLABLE, Number(1));
    columns.Add(L"c", DBTYPE_I4).Prop(DBPROP_COL_SEED, Number(3));
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create(L"refused", columns));
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COLUMNLCID).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_BADVALUE, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, columns.Property(2, DBPROPSET_COLUMN, DBPROP_COL_SEED).dwStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_ERRORSOCCURRED, errors[0].hr);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"DBPROP_COL_AUTOINCREMENT"))
        << testing::PrintToString(errors[0].description);
    EXPECT_FALSE(TableExists(L"refused"));
}

TEST_F(TableDefinitionTest, OptionalPropertiesThatFailLeaveTheTableMadeWithAWarning) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_WSTR).Size(5).Flag(DBPROP_COL_AUTOINCREMENT, true, DBPROPOPTIONS_OPTIONAL);
    columns.Add(L"b", DBTYPE_I4).Prop(DBPROP_COLUMNLCID, Number(1033), DBPROPOPTIONS_OPTIONAL)
        .Flag(DBPROP_COL_NULLABLE, false);
    columns.Add(L"c", DBTYPE_I4).In(GUID_NULL, 1, Number(1), DBPROPOPTIONS_OPTIONAL);
    EXPECT_EQ(DB_S_ERRORSOCCURRED, Create(L"warned", columns));
    EXPECT_EQ(DBPROPSTATUS_NOTSET, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COLUMNLCID).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(2, GUID_NULL, 1).dwStatus);
    auto got = Get(L"warned");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"a"), DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"b"), DBPROP_COL_NULLABLE));
}

TEST_F(TableDefinitionTest, TablePropertiesAreCheckedToo) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4);
    DBPROP temp = BoolProperty(DBPROP_TBL_TEMPTABLE);
    DBPROPSET set{&temp, 1, DBPROPSET_TABLE};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create(L"temp", columns, 1, &set));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, temp.dwStatus);
    EXPECT_FALSE(TableExists(L"temp"));
    V_BOOL(&temp.vValue) = VARIANT_FALSE;
    EXPECT_EQ(S_OK, Create(L"temp", columns, 1, &set));
    EXPECT_EQ(DBPROPSTATUS_OK, temp.dwStatus);
}

}  // namespace
