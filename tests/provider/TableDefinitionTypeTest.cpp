// The types a column is declared with, and a definition read back creating the same table
// again (ITableDefinition::CreateTable, ITableCreation::GetTableDefinition).
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- Types -------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, EveryMappedTypeIsDeclaredAndReadBackAsColumnsInfoReportsIt) {
    ColumnList columns;
    columns.Add(L"i2", DBTYPE_I2);
    columns.Add(L"i4", DBTYPE_I4);
    columns.Add(L"i8", DBTYPE_I8);
    columns.Add(L"ui1", DBTYPE_UI1);
    columns.Add(L"r4", DBTYPE_R4);
    columns.Add(L"r8", DBTYPE_R8);
    columns.Add(L"cy", DBTYPE_CY);
    columns.Add(L"dec", DBTYPE_DECIMAL).Digits(12, 3);
    columns.Add(L"num", DBTYPE_NUMERIC).Digits(0, 0);
    columns.Add(L"yes", DBTYPE_BOOL);
    columns.Add(L"date", DBTYPE_DATE);
    columns.Add(L"stamp", DBTYPE_DBTIMESTAMP);
    columns.Add(L"guid", DBTYPE_GUID);
    columns.Add(L"text50", DBTYPE_WSTR).Size(50);
    columns.Add(L"text0", DBTYPE_WSTR);
    columns.Add(L"ansi", DBTYPE_STR).Size(20);
    columns.Add(L"memo", DBTYPE_WSTR).Size(kLong);
    columns.Add(L"char10", DBTYPE_WSTR).Size(10).Flag(DBPROP_COL_FIXEDLENGTH, true);
    columns.Add(L"bytes16", DBTYPE_BYTES).Size(16);
    columns.Add(L"blob", DBTYPE_BYTES).Size(kLong);
    columns.Add(L"named", DBTYPE_WSTR).TypeName(L"VARCHAR").Size(30);
    ASSERT_EQ(S_OK, Create(L"types", columns));

    auto got = Get(L"types");
    ASSERT_EQ(S_OK, got->hr);
    ASSERT_EQ(columns.count(), got->count);
    const wchar_t* const declared[] = {L"SMALLINT", L"INTEGER", L"BIGINT", L"BYTE", L"REAL", L"DOUBLE", L"CURRENCY",
                                       L"DECIMAL(12,3)", L"DECIMAL(18,0)", L"BIT", L"DATETIME", L"DATETIME", L"GUID",
                                       L"TEXT(50)", L"TEXT(255)", L"TEXT(20)", L"LONGTEXT", L"CHAR(10)",
                                       L"VARBINARY(16)", L"LONGBINARY", L"VARCHAR(30)"};
    const DBTYPE reported[] = {DBTYPE_I2, DBTYPE_I4, DBTYPE_I8, DBTYPE_UI1, DBTYPE_R4, DBTYPE_R8, DBTYPE_CY,
                               DBTYPE_DECIMAL, DBTYPE_DECIMAL, DBTYPE_BOOL, DBTYPE_DATE, DBTYPE_DATE, DBTYPE_GUID,
                               DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_BYTES,
                               DBTYPE_BYTES, DBTYPE_WSTR};

    Name table(L"types");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK,
              c.session->OpenRowset(nullptr, table.get(), nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    auto info = ColumnsOf(rowset.get());
    ASSERT_EQ(got->count, info.size());
    for (DBORDINAL i = 0; i < got->count; ++i) {
        const DBCOLUMNDESC& d = got->columns[i];
        SCOPED_TRACE(testing::PrintToString(info[i].name));
        EXPECT_EQ(info[i].name, d.dbcid.uName.pwszName);
        EXPECT_EQ(DBKIND_NAME, d.dbcid.eKind);
        ASSERT_NE(nullptr, d.pwszTypeName);
        EXPECT_STREQ(declared[i], d.pwszTypeName);
        EXPECT_EQ(reported[i], d.wType);
        EXPECT_EQ(info[i].type, d.wType);
        EXPECT_EQ(info[i].size, d.ulColumnSize);
        // Column information says ~0 where precision or scale does not apply; the definition 0.
        EXPECT_EQ(info[i].precision == 0xFF ? 0 : info[i].precision, d.bPrecision);
        EXPECT_EQ(info[i].scale == 0xFF ? 0 : info[i].scale, d.bScale);
        EXPECT_EQ((info[i].flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) ? L"bool:-1" : L"bool:0",
                  ColumnText(&d, DBPROP_COL_FIXEDLENGTH));
    }
    EXPECT_EQ(50u, got->Column(L"text50")->ulColumnSize);
    EXPECT_EQ(255u, got->Column(L"text0")->ulColumnSize);  // size 0: the provider's default
    EXPECT_EQ(kLong, got->Column(L"memo")->ulColumnSize);
    EXPECT_EQ(12, got->Column(L"dec")->bPrecision);
    EXPECT_EQ(3, got->Column(L"dec")->bScale);

    // Each type comes back the same from a table made from the definition read.
    rowset.reset();
    ASSERT_EQ(S_OK, Drop(L"types"));
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, table.get(), got->count, got->columns, IID_NULL, 0, nullptr,
                                            nullptr, nullptr));
    auto again = Get(L"types");
    ASSERT_EQ(got->count, again->count);
    for (DBORDINAL i = 0; i < got->count; ++i) EXPECT_EQ(Describe(got->columns[i]), Describe(again->columns[i]));
}

TEST_F(TableDefinitionTest, TheTypeNameWinsOverTheOleDbTypeAndMustBeOfTheSameKind) {
    ColumnList columns;
    columns.Add(L"memo", DBTYPE_WSTR).TypeName(L"TEXT");       // TEXT without a length is long text
    columns.Add(L"sized", DBTYPE_STR).TypeName(L"nvarchar(12)");
    columns.Add(L"big", DBTYPE_I4).TypeName(L"BIGINT");         // any integer type for an integer name
    columns.Add(L"money", DBTYPE_EMPTY).TypeName(L"MONEY");     // no OLE DB type: the name alone
    ASSERT_EQ(S_OK, Create(L"named", columns));
    auto got = Get(L"named");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_STREQ(L"TEXT", got->Column(L"memo")->pwszTypeName);
    EXPECT_EQ(kLong, got->Column(L"memo")->ulColumnSize);
    EXPECT_STREQ(L"nvarchar(12)", got->Column(L"sized")->pwszTypeName);
    EXPECT_EQ(12u, got->Column(L"sized")->ulColumnSize);
    EXPECT_EQ(DBTYPE_I8, got->Column(L"big")->wType);
    EXPECT_EQ(DBTYPE_CY, got->Column(L"money")->wType);

    ColumnList mismatched;
    mismatched.Add(L"x", DBTYPE_WSTR).TypeName(L"INTEGER");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"mismatched", mismatched));
    ColumnList unknown;
    unknown.Add(L"x", DBTYPE_WSTR).TypeName(L"NOSUCHTYPE");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"unknown", unknown));
    ColumnList injected;
    injected.Add(L"x", DBTYPE_WSTR).TypeName(L"TEXT); DROP TABLE named; --");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"injected", injected));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_BADTYPE, errors[0].hr);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"not a type name"));
    EXPECT_TRUE(TableExists(L"named"));
    EXPECT_FALSE(TableExists(L"injected"));
}

// --- Round trip ----------------------------------------------------------------------------

TEST_F(TableDefinitionTest, ADefinitionReadBackCreatesTheSameTableAgain) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Code", DBTYPE_WSTR).Size(8).Flag(DBPROP_COL_FIXEDLENGTH, true).Flag(DBPROP_COL_NULLABLE, false)
        .AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"Stock code, 8 characters"));
    columns.Add(L"Title", DBTYPE_WSTR).Size(60).Prop(DBPROP_COL_DEFAULT, Text(L"it's new")).AllowZeroLength(true);
    columns.Add(L"Notes", DBTYPE_WSTR).Size(kLong).Prop(DBPROP_COL_DESCRIPTION, Text(L"Free text"));
    columns.Add(L"Qty", DBTYPE_I2).Prop(DBPROP_COL_DEFAULT, Number(-5));
    columns.Add(L"Price", DBTYPE_DECIMAL).Digits(10, 2).Prop(DBPROP_COL_DEFAULT, Text(L"2.50"));
    columns.Add(L"Ratio", DBTYPE_R8).Prop(DBPROP_COL_DEFAULT, [] {
        Variant v;
        V_VT(v.get()) = VT_R8;
        V_R8(v.get()) = 0.125;
        return v;
    }());
    columns.Add(L"Active", DBTYPE_BOOL).Prop(DBPROP_COL_DEFAULT, Variant::FromBool(true));
    columns.Add(L"Added", DBTYPE_DATE).Prop(DBPROP_COL_DEFAULT, Text(L"CURRENT_TIMESTAMP"));
    columns.Add(L"Due", DBTYPE_DATE).Prop(DBPROP_COL_DEFAULT, Text(L"2024-02-29 12:30:00"));
    columns.Add(L"Stamp", DBTYPE_BYTES).Size(4).Flag(DBPROP_COL_FIXEDLENGTH, true).Prop(DBPROP_COL_DEFAULT, [] {
        Variant v;
        SAFEARRAY* a = SafeArrayCreateVector(VT_UI1, 0, 2);
        static_cast<BYTE*>(a->pvData)[0] = 0xAB;
        static_cast<BYTE*>(a->pvData)[1] = 0x01;
        V_VT(v.get()) = VT_ARRAY | VT_UI1;
        V_ARRAY(v.get()) = a;
        return v;
    }());
    columns.Add(L"Twice", DBTYPE_I4).Prop(DBPROP_COL_DEFAULT, Text(L"(6 * 7)"));
    columns.Add(L"Plain", DBTYPE_WSTR).Size(20);
    ASSERT_EQ(S_OK, Create(L"stock", columns));

    auto first = Get(L"stock");
    ASSERT_EQ(S_OK, first->hr);
    ASSERT_EQ(13u, first->count);
    // What the first definition says, property by property.
    const DBCOLUMNDESC* id = first->Column(L"ID");
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"i4:100", ColumnText(id, DBPROP_COL_SEED));
    EXPECT_EQ(L"i4:10", ColumnText(id, DBPROP_COL_INCREMENT));
    EXPECT_EQ(L"bool:0", ColumnText(id, DBPROP_COL_NULLABLE));
    const DBCOLUMNDESC* code = first->Column(L"Code");
    EXPECT_STREQ(L"CHAR(8)", code->pwszTypeName);
    EXPECT_EQ(L"bool:-1", ColumnText(code, DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bool:0", ColumnText(code, DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"bool:0", PropertyText(code, kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bstr:Stock code, 8 characters", ColumnText(code, DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"empty", ColumnText(code, DBPROP_COL_SEED));
    const DBCOLUMNDESC* title = first->Column(L"Title");
    EXPECT_EQ(L"bstr:it's new", ColumnText(title, DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", PropertyText(title, kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bool:0", ColumnText(title, DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bool:-1", PropertyText(first->Column(L"Plain"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bstr:Free text", ColumnText(first->Column(L"Notes"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"i2:-5", ColumnText(first->Column(L"Qty"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"vt14:2.5", ColumnText(first->Column(L"Price"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"r8:0.125", ColumnText(first->Column(L"Ratio"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", ColumnText(first->Column(L"Active"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bstr:CURRENT_TIMESTAMP", ColumnText(first->Column(L"Added"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(VT_DATE, FindProperty(*first->Column(L"Due"), DBPROPSET_COLUMN, DBPROP_COL_DEFAULT)->vValue.vt);
    EXPECT_EQ(L"bytes:AB01", ColumnText(first->Column(L"Stamp"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", ColumnText(first->Column(L"Stamp"), DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bstr:(6 * 7)", ColumnText(first->Column(L"Twice"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"empty", ColumnText(first->Column(L"Plain"), DBPROP_COL_DEFAULT));
    // Non-text columns carry the column set alone.
    EXPECT_EQ(1u, first->Column(L"Qty")->cPropertySets);
    EXPECT_EQ(2u, first->Column(L"Plain")->cPropertySets);

    // Drop, then create from the descriptions exactly as they came back.
    ASSERT_EQ(S_OK, Drop(L"stock"));
    Name table(L"stock");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, table.get(), first->count, first->columns, IID_NULL, 0, nullptr,
                                            nullptr, nullptr));
    auto second = Get(L"stock");
    ASSERT_EQ(S_OK, second->hr);
    ASSERT_EQ(first->count, second->count);
    for (DBORDINAL i = 0; i < first->count; ++i) EXPECT_EQ(Describe(first->columns[i]), Describe(second->columns[i]));

    // The defaults are the ones stored: a row inserted with none of the columns gets them.
    c.Run(L"INSERT INTO stock (Code) VALUES ('A-1')");
    auto row =
        Rows(L"SELECT ID, Title, Qty, Price, Ratio, Active, Due, hex(Stamp), Twice, Added IS NOT NULL FROM stock");
    ASSERT_EQ(1u, row.size());
    EXPECT_EQ((std::vector<std::wstring>{L"100", L"it's new", L"-5", L"2.50", L"0.125", L"True", L"2024-02-29 12:30:00",
                                         L"AB01", L"42", L"1"}),
              row[0]);
}

}  // namespace
