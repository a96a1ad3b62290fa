// Table, column and index enumerations over schema rowsets of the in-memory test provider:
// the restrictions they pass, the records they bind and the rows they read.
#include <windows.h>
#include <oledberr.h>

#include <gtest/gtest.h>

#include "oledb/KobOleDbColumns.h"
#include "oledb/KobOleDbIndexes.h"
#include "oledb/KobOleDbTables.h"
#include "tests/oledb/FakeRowset.h"

using namespace zel;
using namespace zel::test;

namespace {


// The tables schema rowset with its six standard columns.
std::shared_ptr<FakeResult> TablesRowset(std::vector<std::vector<FakeValue>> rows) {
    auto r = std::make_shared<FakeResult>();
    r->columns = {{L"TABLE_CATALOG", DBTYPE_WSTR, 128}, {L"TABLE_SCHEMA", DBTYPE_WSTR, 128},
                  {L"TABLE_NAME", DBTYPE_WSTR, 128},    {L"TABLE_TYPE", DBTYPE_WSTR, 128},
                  {L"TABLE_GUID", DBTYPE_GUID, 16},     {L"DESCRIPTION", DBTYPE_WSTR, 128}};
    r->rows = std::move(rows);
    return r;
}

std::vector<FakeValue> TableRow(const std::wstring& name, const std::wstring& type, FakeValue catalog = Null()) {
    return {catalog, Null(), Text(name), Text(type), Value(GUID_NULL), Text(L"")};
}

// The 28 columns of the columns schema rowset.
std::shared_ptr<FakeResult> ColumnsRowset() {
    auto r = std::make_shared<FakeResult>();
    const DBTYPE types[28] = {DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_GUID, DBTYPE_UI4, DBTYPE_UI4,
                              DBTYPE_BOOL, DBTYPE_WSTR, DBTYPE_UI4,  DBTYPE_BOOL, DBTYPE_UI2, DBTYPE_GUID, DBTYPE_UI4,
                              DBTYPE_UI4,  DBTYPE_UI2,  DBTYPE_I2,   DBTYPE_UI4,  DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR,
                              DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR};
    for (int i = 0; i < 28; ++i) r->columns.push_back({L"c" + std::to_wstring(i + 1), types[i], 128});
    return r;
}

struct ColumnRowSpec {
    std::wstring name;
    ULONG ordinal;
    USHORT type;
    ULONG maxLength = 0;
    ULONG octetLength = 0;
    USHORT precision = 0;
    SHORT scale = 0;
    ULONG datetimePrecision = 0;
    std::wstring defaultText;
    bool nullable = true;
};

ColumnRowSpec MakeColumnRow(std::wstring name, ULONG ordinal, USHORT type, ULONG maxLength = 0, ULONG octetLength = 0,
                   USHORT precision = 0, SHORT scale = 0, ULONG datetimePrecision = 0) {
    ColumnRowSpec row;
    row.name = std::move(name);
    row.ordinal = ordinal;
    row.type = type;
    row.maxLength = maxLength;
    row.octetLength = octetLength;
    row.precision = precision;
    row.scale = scale;
    row.datetimePrecision = datetimePrecision;
    return row;
}

FakeColumnDesc Desc(std::wstring name, DBTYPE type, DBLENGTH size = 0) {
    FakeColumnDesc desc;
    desc.name = std::move(name);
    desc.type = type;
    desc.size = size;
    return desc;
}

std::vector<FakeValue> ColumnRow(const ColumnRowSpec& c) {
    std::vector<FakeValue> row = {Null(), Null(), Text(L"parts"), Text(c.name), Null(), Null(), Value(c.ordinal),
                                  Value<VARIANT_BOOL>(c.defaultText.empty() ? VARIANT_FALSE : VARIANT_TRUE),
                                  c.defaultText.empty() ? Null() : Text(c.defaultText), Value<ULONG>(0x60),
                                  Value<VARIANT_BOOL>(c.nullable ? VARIANT_TRUE : VARIANT_FALSE), Value(c.type), Null(),
                                  Value(c.maxLength), Value(c.octetLength), Value(c.precision), Value(c.scale),
                                  Value(c.datetimePrecision)};
    for (int i = 19; i <= 27; ++i) row.push_back(Null());
    row.push_back(Text(L"desc of " + c.name));
    return row;
}

std::shared_ptr<FakeResult> IndexesRowset() {
    auto r = std::make_shared<FakeResult>();
    const DBTYPE types[25] = {DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_BOOL,
                              DBTYPE_BOOL, DBTYPE_BOOL, DBTYPE_UI2,  DBTYPE_I4,   DBTYPE_I4,   DBTYPE_I4,   DBTYPE_BOOL,
                              DBTYPE_BOOL, DBTYPE_I4,   DBTYPE_UI4,  DBTYPE_WSTR, DBTYPE_GUID, DBTYPE_UI4,  DBTYPE_I2,
                              DBTYPE_I4,   DBTYPE_I4,   DBTYPE_WSTR, DBTYPE_WSTR};
    for (int i = 0; i < 25; ++i) r->columns.push_back({L"i" + std::to_wstring(i + 1), types[i], 128});
    return r;
}

std::vector<FakeValue> IndexRow(const std::wstring& table, const std::wstring& index, const std::wstring& column,
                                ULONG position, bool primary = false) {
    return {Text(L"tcat"), Text(L"tschema"), Text(table), Text(L"icat"), Null(), Text(index),
            Value<VARIANT_BOOL>(primary ? VARIANT_TRUE : VARIANT_FALSE), Value<VARIANT_BOOL>(VARIANT_FALSE),
            Value<VARIANT_BOOL>(VARIANT_FALSE), Value<USHORT>(1), Value<LONG>(0), Value<LONG>(0), Value<LONG>(0),
            Value<VARIANT_BOOL>(VARIANT_FALSE), Value<VARIANT_BOOL>(VARIANT_FALSE), Value<LONG>(0), Value(position),
            Text(column), Null(), Null(), Value<SHORT>(1), Value<LONG>(0), Value<LONG>(0), Text(L"ordinal 24"),
            Text(L"ordinal 25")};
}

class CatalogTest : public testing::Test {
protected:
    std::shared_ptr<FakeCatalog> catalog = std::make_shared<FakeCatalog>();
    std::unique_ptr<FakeConnection> connection =
        std::make_unique<FakeConnection>(std::make_shared<FakeResult>(), std::make_shared<FakeLog>(), catalog);
};

}  // namespace

TEST_F(CatalogTest, TableOpenPassesFourRestrictionsWithTypeAlwaysPresent) {
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({TableRow(L"parts", L"TABLE")})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, nullptr));
    ASSERT_EQ(1u, catalog->requests.size());
    EXPECT_TRUE(catalog->requests[0].first == DBSCHEMA_TABLES);
    EXPECT_EQ((std::vector<std::wstring>{L"<empty>", L"<empty>", L"<empty>", L""}), catalog->requests[0].second);
    ASSERT_TRUE(tables.Open(connection.get(), L"cat", L"sch", L"parts", L"VIEW"));
    EXPECT_EQ((std::vector<std::wstring>{L"cat", L"sch", L"parts", L"VIEW"}), catalog->requests[1].second);
}

// An empty string is a restriction of its own, passed on as an empty string; only a null one
// leaves its restriction empty.
TEST_F(CatalogTest, TableOpenPassesEmptyRestrictionsAsEmptyStrings) {
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), L"", L"", L"", L""));
    ASSERT_EQ(1u, catalog->requests.size());
    EXPECT_EQ((std::vector<std::wstring>{L"", L"", L"", L""}), catalog->requests[0].second);
}

TEST_F(CatalogTest, TableTypeLongerThan127CharactersFailsTheOpen) {
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({})});
    KobOleDbTables tables;
    std::wstring type(128, L'T');
    EXPECT_FALSE(tables.Open(connection.get(), nullptr, nullptr, nullptr, type.c_str()));
    EXPECT_FALSE(tables.HasReader());
    EXPECT_TRUE(catalog->requests.empty());
}

TEST_F(CatalogTest, TableFieldsOfCurrentRowFollowTheCatalogFieldIndex) {
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({TableRow(L"parts", L"TABLE", Text(L"main"))})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    EXPECT_EQ(L"", tables.GetField(kFieldTableName));  // the cleared record before the first fetch
    ASSERT_TRUE(tables.FetchNext());
    EXPECT_EQ(L"parts", tables.GetField(kFieldTableName));
    EXPECT_EQ(L"main", tables.GetField(kFieldCatalog));
    EXPECT_EQ(L"main", tables.GetField(kFieldTableCatalog));
    EXPECT_EQ(L"TABLE", tables.GetField(kFieldTableType));
    EXPECT_EQ(L"", tables.GetField(kFieldColumnName));
    EXPECT_EQ(L"", tables.GetField(kFieldIndexName));
    EXPECT_FALSE(tables.FetchNext());
}

TEST_F(CatalogTest, TableNameLongerThan128CharactersIsCutTo128) {
    std::wstring name(200, L'n');
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({TableRow(name, L"TABLE")})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    ASSERT_TRUE(tables.FetchNext());
    EXPECT_EQ(name.substr(0, 128), tables.GetField(kFieldTableName));
}

TEST_F(CatalogTest, ReopeningRestartsTheEnumerationAtItsFirstRow) {
    catalog->schemas.push_back(
        {DBSCHEMA_TABLES, TablesRowset({TableRow(L"a", L"TABLE"), TableRow(L"b", L"TABLE")})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    ASSERT_TRUE(tables.FetchNext());
    ASSERT_TRUE(tables.FetchNext());
    EXPECT_EQ(L"b", tables.GetField(kFieldTableName));
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    ASSERT_TRUE(tables.FetchNext());
    EXPECT_EQ(L"a", tables.GetField(kFieldTableName));
}

TEST_F(CatalogTest, ClosedEnumerationFetchesNothingAndHasNoFields) {
    catalog->schemas.push_back({DBSCHEMA_TABLES, TablesRowset({TableRow(L"a", L"TABLE")})});
    KobOleDbTables tables;
    ASSERT_TRUE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    ASSERT_TRUE(tables.FetchNext());
    tables.Close();
    EXPECT_FALSE(tables.FetchNext());
    EXPECT_EQ(L"", tables.GetField(kFieldTableName));
}

TEST_F(CatalogTest, OpenWithoutOpenConnectionFailsWithoutErrorText) {
    KobOleDbTables tables;
    EXPECT_FALSE(tables.Open(nullptr, nullptr, nullptr, nullptr, L""));
    connection->Disconnect();
    EXPECT_FALSE(tables.Open(connection.get(), nullptr, nullptr, nullptr, L""));
    EXPECT_FALSE(tables.HasError());
}

TEST_F(CatalogTest, ProviderWithoutSchemaRowsetsFailsTheOpen) {
    FakeConnection bare(std::make_shared<FakeResult>());
    KobOleDbTables tables;
    EXPECT_FALSE(tables.Open(&bare, nullptr, nullptr, nullptr, L""));
    EXPECT_FALSE(tables.HasReader());
}

TEST_F(CatalogTest, ColumnOpenRequiresTableAndPassesColumnRestriction) {
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, ColumnsRowset()});
    KobOleDbColumns columns;
    EXPECT_FALSE(columns.Open(connection.get(), nullptr, nullptr, nullptr, nullptr, VARIANT_FALSE));
    EXPECT_TRUE(catalog->requests.empty());
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", L"Name", VARIANT_FALSE));
    EXPECT_EQ((std::vector<std::wstring>{L"<empty>", L"<empty>", L"parts", L"Name"}), catalog->requests[0].second);
}

// Unlike a null table, an empty one opens the enumeration with an empty table restriction; an
// empty column name is passed on too, a null one leaves its restriction empty.
TEST_F(CatalogTest, ColumnOpenPassesEmptyStringsOnAndLeavesNullOnesEmpty) {
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, ColumnsRowset()});
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), L"", L"", L"", L"", VARIANT_FALSE));
    ASSERT_EQ(1u, catalog->requests.size());
    EXPECT_EQ((std::vector<std::wstring>{L"", L"", L"", L""}), catalog->requests[0].second);
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"", nullptr, VARIANT_FALSE));
    EXPECT_EQ((std::vector<std::wstring>{L"<empty>", L"<empty>", L"", L"<empty>"}), catalog->requests[1].second);
}

// A null table fails the open before anything is closed or recorded: an open enumeration on the
// same object stays open and keeps its place.
TEST_F(CatalogTest, ColumnOpenWithANullTableLeavesAnOpenEnumerationAsItWas) {
    auto rowset = ColumnsRowset();
    rowset->rows = {ColumnRow(MakeColumnRow(L"ID", 1, DBTYPE_I4)), ColumnRow(MakeColumnRow(L"Name", 2, DBTYPE_WSTR))};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_FALSE));
    ASSERT_TRUE(columns.FetchNext());
    EXPECT_FALSE(columns.Open(connection.get(), nullptr, nullptr, nullptr, nullptr, VARIANT_TRUE));
    EXPECT_EQ(1u, catalog->requests.size());
    EXPECT_FALSE(columns.HasError());
    ASSERT_TRUE(columns.HasReader());
    ASSERT_TRUE(columns.FetchNext());
    EXPECT_EQ(L"Name", columns.GetField(kFieldColumnName));
}

TEST_F(CatalogTest, ColumnRecordReadsEveryBoundField) {
    auto rowset = ColumnsRowset();
    ColumnRowSpec row = MakeColumnRow(L"Price", 3, DBTYPE_NUMERIC, 0, 0, 10, -2);
    row.defaultText = L"0";
    row.nullable = false;
    rowset->rows = {ColumnRow(row)};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_FALSE));
    ASSERT_TRUE(columns.FetchNext());
    const auto& r = columns.Current();
    EXPECT_EQ(L"Price", columns.GetField(kFieldColumnName));
    EXPECT_EQ(L"parts", columns.GetField(kFieldTableName));
    EXPECT_EQ(L"desc of Price", columns.GetField(kFieldDescription));
    EXPECT_EQ(L"", columns.GetField(kFieldTableType));
    EXPECT_EQ(3u, r.ordinalPosition);
    EXPECT_EQ(VARIANT_TRUE, r.hasDefault);
    EXPECT_EQ(L"0", FieldText(r.columnDefault));
    EXPECT_EQ(VARIANT_FALSE, r.isNullable);
    EXPECT_EQ(DBTYPE_NUMERIC, r.dataType);
    EXPECT_EQ(10, r.numericPrecision);
    EXPECT_EQ(-2, r.numericScale);  // sign kept
    EXPECT_EQ(0x60u, r.columnFlags);
    EXPECT_EQ(10, columns.Precision());
}

TEST_F(CatalogTest, TextColumnWithoutMaximumLengthTakesOctetLengthAsPrecision) {
    auto rowset = ColumnsRowset();
    ColumnRowSpec row = MakeColumnRow(L"Name", 1, DBTYPE_WSTR, 0, 510);
    rowset->rows = {ColumnRow(row)};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_FALSE));
    ASSERT_TRUE(columns.FetchNext());
    EXPECT_EQ(510, columns.Precision());
}

TEST_F(CatalogTest, PrecisionFollowsTheDataTypeTable) {
    struct Case {
        USHORT type;
        LONG expected;
    } cases[] = {{DBTYPE_I2, 2}, {DBTYPE_UI4, 4}, {DBTYPE_HCHAPTER, 4}, {DBTYPE_UI1, 1}, {DBTYPE_I8, 8},
                 {DBTYPE_ERROR, 32}, {DBTYPE_DATE, 19}, {DBTYPE_WSTR, 50}, {DBTYPE_DECIMAL, 12}, {DBTYPE_R8, 50}};
    for (const Case& c : cases) {
        auto rowset = ColumnsRowset();
        ColumnRowSpec row = MakeColumnRow(L"x", 1, c.type, 50, 100, 12, 0, 19);
        rowset->rows = {ColumnRow(row)};
        catalog->schemas = {{DBSCHEMA_COLUMNS, rowset}};
        KobOleDbColumns columns;
        ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_FALSE));
        ASSERT_TRUE(columns.FetchNext());
        EXPECT_EQ(c.expected, columns.Precision()) << c.type;
    }
}

TEST_F(CatalogTest, IdentityRecordSeedTakesTheLaterOfSeedAndIncrementAndIncrementStaysOne) {
    auto rowset = ColumnsRowset();
    rowset->rows = {ColumnRow(MakeColumnRow(L"ID", 1, DBTYPE_I4)), ColumnRow(MakeColumnRow(L"Name", 2, DBTYPE_WSTR, 50))};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    FakeColumnDesc id = Desc(L"ID", DBTYPE_I4);
    id.properties.push_back({DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT, Variant::FromBool(true)});
    id.properties.push_back({DBPROPSET_COLUMN, DBPROP_COL_SEED, Variant::FromI4(5)});
    id.properties.push_back({DBPROPSET_COLUMN, DBPROP_COL_INCREMENT, Variant::FromI4(2)});
    catalog->tables[L"parts"] = {id, Desc(L"Name", DBTYPE_WSTR, 50)};
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_TRUE));
    ASSERT_TRUE(columns.FetchNext());
    ASSERT_NE(nullptr, columns.CurrentIdentity());
    EXPECT_TRUE(columns.CurrentIdentity()->isIdentity);
    EXPECT_EQ(2, columns.CurrentIdentity()->seed);
    EXPECT_EQ(1, columns.CurrentIdentity()->increment);
    ASSERT_TRUE(columns.FetchNext());
    EXPECT_FALSE(columns.CurrentIdentity()->isIdentity);
    EXPECT_EQ(0, columns.CurrentIdentity()->seed);
}

TEST_F(CatalogTest, ExtendedDataOnlyForExactlyVariantTrue) {
    auto rowset = ColumnsRowset();
    rowset->rows = {ColumnRow(MakeColumnRow(L"ID", 1, DBTYPE_I4))};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    catalog->tables[L"parts"] = {Desc(L"ID", DBTYPE_I4)};
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, 1));
    ASSERT_TRUE(columns.FetchNext());
    EXPECT_EQ(nullptr, columns.CurrentIdentity());
}

TEST_F(CatalogTest, IdentityListAccumulatesAcrossReopensOfTheSameObject) {
    auto rowset = ColumnsRowset();
    rowset->rows = {ColumnRow(MakeColumnRow(L"A", 1, DBTYPE_I4))};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    FakeColumnDesc first = Desc(L"A", DBTYPE_I4);
    first.properties.push_back({DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT, Variant::FromBool(true)});
    catalog->tables[L"first"] = {first};
    catalog->tables[L"second"] = {Desc(L"A", DBTYPE_I4)};
    KobOleDbColumns columns;
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"first", nullptr, VARIANT_TRUE));
    ASSERT_TRUE(columns.Open(connection.get(), nullptr, nullptr, L"second", nullptr, VARIANT_TRUE));
    ASSERT_TRUE(columns.FetchNext());
    // Lookups index from the start: the answers still come from the first table read.
    EXPECT_TRUE(columns.CurrentIdentity()->isIdentity);
}

TEST_F(CatalogTest, ExtendedDataFailureFailsTheOpenWithoutErrorTextButKeepsTheReader) {
    auto rowset = ColumnsRowset();
    rowset->rows = {ColumnRow(MakeColumnRow(L"A", 1, DBTYPE_I4))};
    catalog->schemas.push_back({DBSCHEMA_COLUMNS, rowset});
    catalog->offersTableCreation = false;
    KobOleDbColumns columns;
    EXPECT_FALSE(columns.Open(connection.get(), nullptr, nullptr, L"parts", nullptr, VARIANT_TRUE));
    EXPECT_FALSE(columns.HasError());
    EXPECT_TRUE(columns.HasReader());
    EXPECT_TRUE(columns.FetchNext());
}

TEST_F(CatalogTest, IndexOpenPassesFiveRestrictionsWithTypeAlwaysEmpty) {
    catalog->schemas.push_back({DBSCHEMA_INDEXES, IndexesRowset()});
    KobOleDbIndexes indexes;
    ASSERT_TRUE(indexes.Open(connection.get(), L"c", L"s", L"parts", L"ix"));
    EXPECT_EQ((std::vector<std::wstring>{L"c", L"s", L"ix", L"<empty>", L"parts"}), catalog->requests[0].second);
    ASSERT_TRUE(indexes.Open(connection.get(), nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ((std::vector<std::wstring>(5, L"<empty>")), catalog->requests[1].second);
}

TEST_F(CatalogTest, IndexOpenPassesEmptyRestrictionsAsEmptyStrings) {
    catalog->schemas.push_back({DBSCHEMA_INDEXES, IndexesRowset()});
    KobOleDbIndexes indexes;
    ASSERT_TRUE(indexes.Open(connection.get(), L"", L"", L"", L""));
    EXPECT_EQ((std::vector<std::wstring>{L"", L"", L"", L"<empty>", L""}), catalog->requests[0].second);
}

TEST_F(CatalogTest, IndexRecordSeparatesIndexAndTableCatalogsAndSkipsOrdinal24) {
    auto rowset = IndexesRowset();
    rowset->rows = {IndexRow(L"parts", L"ix_name", L"Name", 1)};
    catalog->schemas.push_back({DBSCHEMA_INDEXES, rowset});
    KobOleDbIndexes indexes;
    ASSERT_TRUE(indexes.Open(connection.get(), nullptr, nullptr, nullptr, nullptr));
    ASSERT_TRUE(indexes.FetchNext());
    EXPECT_EQ(L"ix_name", indexes.GetField(kFieldIndexName));
    EXPECT_EQ(L"icat", indexes.GetField(kFieldCatalog));
    EXPECT_EQ(L"tcat", indexes.GetField(kFieldTableCatalog));
    EXPECT_EQ(L"", indexes.GetField(kFieldSchema));
    EXPECT_EQ(L"tschema", indexes.GetField(kFieldTableSchema));
    EXPECT_EQ(L"parts", indexes.GetField(kFieldTableName));
    EXPECT_EQ(L"Name", indexes.GetField(kFieldColumnName));
    EXPECT_EQ(L"", indexes.GetField(kFieldDescription));
    EXPECT_EQ(L"ordinal 25", FieldText(indexes.Current().filterCondition));
}
