// IDBSchemaRowset: the TABLES, COLUMNS, INDEXES, PRIMARY_KEYS and PROVIDER_TYPES rowsets, read
// by ordinal with their standard column types, their restrictions alone and combined, their
// order, and the answers to bad requests.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "ProviderTestSupport.h"
#include "SchemaRowsetReader.h"
#include "provider/sqlite/MetadataTable.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

class SchemaRowsets : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        schemas = c.session.as<IDBSchemaRowset>();
    }
    std::vector<SchemaRow> Rows(REFGUID schema, const std::vector<Variant>& restrictions = {}) {
        return ReadSchema(schemas.get(), schema, restrictions);
    }
    // One text column of every row.
    std::vector<std::wstring> Texts(REFGUID schema, DBORDINAL ordinal, const std::vector<Variant>& restrictions = {}) {
        std::vector<std::wstring> texts;
        for (const SchemaRow& row : Rows(schema, restrictions)) texts.push_back(row.Text(ordinal));
        return texts;
    }
    TempDatabase db;
    Connection c;
    ComPtr<IDBSchemaRowset> schemas;
};

// TABLES

TEST_F(SchemaRowsets, TablesListsTablesViewsAndSystemTablesByTypeThenName) {
    c.Run(L"CREATE TABLE people (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT(40))");  // makes sqlite_sequence
    c.Run(L"CREATE TABLE Animals (name TEXT(40))");
    c.Run(L"CREATE INDEX ix_name ON people (name)");
    c.Run(L"INSERT INTO people (name) VALUES ('a')");
    c.Run(L"ANALYZE");  // makes sqlite_stat1
    c.Run(L"CREATE VIEW names AS SELECT name FROM people");
    auto rows = Rows(DBSCHEMA_TABLES);
    std::vector<std::pair<std::wstring, std::wstring>> got;
    for (const auto& row : rows) {
        got.emplace_back(row.Text(4), row.Text(3));
        EXPECT_TRUE(row.IsNull(1));  // TABLE_CATALOG
        EXPECT_TRUE(row.IsNull(2));  // TABLE_SCHEMA
        EXPECT_TRUE(row.IsNull(5));  // TABLE_GUID
    }
    std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"SYSTEM TABLE", L"sqlite_master"}, {L"SYSTEM TABLE", L"sqlite_sequence"},
        {L"SYSTEM TABLE", L"sqlite_stat1"},  {L"TABLE", L"Animals"},
        {L"TABLE", L"people"},               {L"VIEW", L"names"},
    };
    EXPECT_EQ(expected, got);
}

TEST_F(SchemaRowsets, TablesOfAnEmptyDatabaseIsSqliteMasterAlone) {
    EXPECT_EQ(std::vector<std::wstring>{L"sqlite_master"}, Texts(DBSCHEMA_TABLES, 3));
    EXPECT_TRUE(Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"TABLE"})).empty());
}

TEST_F(SchemaRowsets, TablesRestrictedByTypeAlone) {
    c.Run(L"CREATE TABLE t (a INTEGER)");
    c.Run(L"CREATE VIEW v AS SELECT a FROM t");
    EXPECT_EQ(std::vector<std::wstring>{L"t"}, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"TABLE"})));
    EXPECT_EQ(std::vector<std::wstring>{L"v"}, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"VIEW"})));
    EXPECT_EQ(std::vector<std::wstring>{L"sqlite_master"},
              Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"SYSTEM TABLE"})));
    EXPECT_TRUE(Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"ALIAS"})).empty());
}

TEST_F(SchemaRowsets, TablesRestrictedByNameMatchesWithoutRegardToCase) {
    c.Run(L"CREATE TABLE Orders (a INTEGER)");
    c.Run(L"CREATE TABLE other (a INTEGER)");
    EXPECT_EQ(std::vector<std::wstring>{L"Orders"}, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, L"ORDERS"})));
    EXPECT_EQ(std::vector<std::wstring>{L"Orders"}, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, L"orders"})));
    EXPECT_TRUE(Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, L"order"})).empty());
}

TEST_F(SchemaRowsets, TablesRestrictedByNameAndTypeTogether) {
    c.Run(L"CREATE TABLE t (a INTEGER)");
    c.Run(L"CREATE VIEW v AS SELECT a FROM t");
    EXPECT_TRUE(Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, L"v", L"TABLE"})).empty());
    EXPECT_EQ(std::vector<std::wstring>{L"v"}, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, L"V", L"VIEW"})));
}

TEST_F(SchemaRowsets, EmptyStringAndEmptyRestrictionsDoNotRestrict) {
    c.Run(L"CREATE TABLE t (a INTEGER PRIMARY KEY)");
    c.Run(L"CREATE VIEW v AS SELECT a FROM t");
    const std::vector<std::wstring> all = {L"sqlite_master", L"t", L"v"};
    EXPECT_EQ(all, Texts(DBSCHEMA_TABLES, 3));
    EXPECT_EQ(all, Texts(DBSCHEMA_TABLES, 3, Restrict({L"", L"", L"", L""})));
    EXPECT_EQ(all, Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L""})));  // the server's form
    std::vector<Variant> nulls(4);
    for (auto& v : nulls) V_VT(v.get()) = VT_NULL;
    EXPECT_EQ(all, Texts(DBSCHEMA_TABLES, 3, nulls));
    EXPECT_EQ(Rows(DBSCHEMA_COLUMNS).size(), Rows(DBSCHEMA_COLUMNS, Restrict({L"", L"", L"", L""})).size());
    EXPECT_EQ(Rows(DBSCHEMA_PRIMARY_KEYS).size(), Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({L"", L"", L""})).size());
}

TEST_F(SchemaRowsets, CatalogOrSchemaRestrictionGivesNoRowsForSqliteHasNeither) {
    c.Run(L"CREATE TABLE t (id INTEGER PRIMARY KEY, a INTEGER)");
    c.Run(L"CREATE INDEX ix ON t (a)");
    for (const GUID* schema : {&DBSCHEMA_TABLES, &DBSCHEMA_COLUMNS, &DBSCHEMA_INDEXES, &DBSCHEMA_PRIMARY_KEYS}) {
        EXPECT_FALSE(Rows(*schema).empty());
        EXPECT_TRUE(Rows(*schema, Restrict({L"main"})).empty());
        EXPECT_TRUE(Rows(*schema, Restrict({{}, L"main"})).empty());
        EXPECT_TRUE(Rows(*schema, Restrict({L"main", L"main"})).empty());
    }
    // Together with a name that matches on its own.
    EXPECT_FALSE(Rows(DBSCHEMA_TABLES, Restrict({{}, {}, L"t"})).empty());
    EXPECT_TRUE(Rows(DBSCHEMA_TABLES, Restrict({L"main", {}, L"t"})).empty());
    EXPECT_TRUE(Rows(DBSCHEMA_COLUMNS, Restrict({{}, L"dbo", L"t", L"a"})).empty());
    EXPECT_TRUE(Rows(DBSCHEMA_INDEXES, Restrict({L"main", {}, L"ix", {}, L"t"})).empty());
    EXPECT_TRUE(Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({{}, L"main", L"t"})).empty());
}

TEST_F(SchemaRowsets, ATableNameLongerThan128CharactersIsReturnedWhole) {
    const std::wstring name(200, L'n');
    c.Run(L"CREATE TABLE " + name + L" (v INTEGER)");
    auto rowset = OpenSchema(schemas.get(), DBSCHEMA_TABLES, Restrict({{}, {}, {}, L"TABLE"}));
    auto rows = ReadRows(rowset.get(), StandardColumnsOf(DBSCHEMA_TABLES));
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(name, rows[0].Text(3));
    // The column is reported wide enough for it.
    auto columns = ColumnsOf(rowset.get());
    EXPECT_GE(columns[2].size, 200u);
    EXPECT_EQ(name, Texts(DBSCHEMA_COLUMNS, 3)[0]);
}

// COLUMNS

struct ColumnExpectation {
    const wchar_t* name;
    DBTYPE type;
    long long maximumLength;  // -1: NULL
    long long octetLength;    // -1: NULL
    long long precision;      // -1: NULL
    long long scale;          // -1: NULL
    long long datetimePrecision;  // -1: NULL
    bool nullable;
};

TEST_F(SchemaRowsets, ColumnsOfEveryMappedTypeReportTypeSizesPrecisionAndNullability) {
    c.Run(L"CREATE TABLE typed (i INTEGER NOT NULL, s SMALLINT, b TINYINT, g BIGINT, r REAL, d DOUBLE, "
          L"m CURRENCY, n DECIMAL(10,2), f BIT, t DATETIME, u GUID, v VARCHAR(40), ch CHAR(8), tx TEXT, "
          L"mm MEMO, vb VARBINARY(16), bl BLOB)");
    const ColumnExpectation expected[] = {
        {L"i", DBTYPE_I4, -1, -1, 10, -1, -1, false},        {L"s", DBTYPE_I2, -1, -1, 5, -1, -1, true},
        {L"b", DBTYPE_UI1, -1, -1, 3, -1, -1, true},         {L"g", DBTYPE_I8, -1, -1, 19, -1, -1, true},
        {L"r", DBTYPE_R4, -1, -1, 7, -1, -1, true},          {L"d", DBTYPE_R8, -1, -1, 15, -1, -1, true},
        {L"m", DBTYPE_CY, -1, -1, 19, -1, -1, true},         {L"n", DBTYPE_DECIMAL, -1, -1, 10, 2, -1, true},
        {L"f", DBTYPE_BOOL, -1, -1, -1, -1, -1, true},       {L"t", DBTYPE_DATE, -1, -1, -1, -1, 0, true},
        {L"u", DBTYPE_GUID, -1, -1, -1, -1, -1, true},       {L"v", DBTYPE_WSTR, 40, 80, -1, -1, -1, true},
        {L"ch", DBTYPE_WSTR, 8, 16, -1, -1, -1, true},       {L"tx", DBTYPE_WSTR, 0, 0, -1, -1, -1, true},
        {L"mm", DBTYPE_WSTR, 0, 0, -1, -1, -1, true},        {L"vb", DBTYPE_BYTES, 16, 16, -1, -1, -1, true},
        {L"bl", DBTYPE_BYTES, 0, 0, -1, -1, -1, true},
    };
    auto rows = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"typed"}));
    ASSERT_EQ(std::size(expected), rows.size());
    auto optional = [](const SchemaRow& row, DBORDINAL ordinal) {
        return row.IsNull(ordinal) ? -1 : row.Number(ordinal);
    };
    for (size_t i = 0; i < rows.size(); ++i) {
        const ColumnExpectation& e = expected[i];
        const SchemaRow& row = rows[i];
        SCOPED_TRACE(testing::PrintToString(std::wstring(e.name)));
        EXPECT_EQ(L"typed", row.Text(3));
        EXPECT_EQ(e.name, row.Text(4));
        EXPECT_EQ(static_cast<long long>(i + 1), row.Number(7));  // ORDINAL_POSITION
        EXPECT_EQ(e.type, row.Number(12));                         // DATA_TYPE
        EXPECT_EQ(e.maximumLength, optional(row, 14));
        EXPECT_EQ(e.octetLength, optional(row, 15));
        EXPECT_EQ(e.precision, optional(row, 16));
        EXPECT_EQ(e.scale, optional(row, 17));
        EXPECT_EQ(e.datetimePrecision, optional(row, 18));
        EXPECT_EQ(e.nullable, row.Flag(11));                       // IS_NULLABLE
        EXPECT_EQ(e.nullable, (row.Number(10) & DBCOLUMNFLAGS_ISNULLABLE) != 0);
        EXPECT_FALSE(row.Flag(8));                                 // COLUMN_HASDEFAULT
        EXPECT_TRUE(row.IsNull(9));
        EXPECT_TRUE(row.IsNull(1));
        EXPECT_TRUE(row.IsNull(28));
    }
}

TEST_F(SchemaRowsets, ColumnTypesAndFlagsAgreeWithIColumnsInfoOfARowsetOnTheTable) {
    c.Run(L"CREATE TABLE typed (id INTEGER PRIMARY KEY, v VARCHAR(40) NOT NULL, tx TEXT, n DECIMAL(12,3), "
          L"t DATETIME, bl BLOB, ch CHAR(3))");
    // A rowset on the table that can change it, as IOpenRowset gives it.
    DBPROP change{};
    change.dwPropertyID = DBPROP_IRowsetChange;
    change.dwOptions = DBPROPOPTIONS_REQUIRED;
    change.colid = DB_NULLID;
    V_VT(&change.vValue) = VT_BOOL;
    V_BOOL(&change.vValue) = VARIANT_TRUE;
    DBPROPSET set{&change, 1, DBPROPSET_ROWSET};
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<LPOLESTR>(L"typed");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 1, &set, rowset.put_unknown()));
    auto columns = ColumnsOf(rowset.get());
    auto rows = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"TYPED"}));
    ASSERT_EQ(columns.size(), rows.size());
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(testing::PrintToString(columns[i].name));
        EXPECT_EQ(columns[i].name, rows[i].Text(4));
        EXPECT_EQ(static_cast<long long>(columns[i].ordinal), rows[i].Number(7));
        EXPECT_EQ(columns[i].type, rows[i].Number(12));
        EXPECT_EQ(static_cast<long long>(columns[i].flags), rows[i].Number(10));  // COLUMN_FLAGS
        EXPECT_NE(0, rows[i].Number(10) & DBCOLUMNFLAGS_WRITE);
        if (columns[i].precision != 255 && columns[i].type != DBTYPE_BOOL) {
            EXPECT_EQ(columns[i].precision, rows[i].Number(16));
        }
        if (columns[i].type == DBTYPE_WSTR && !(columns[i].flags & DBCOLUMNFLAGS_ISLONG)) {
            EXPECT_EQ(static_cast<long long>(columns[i].size), rows[i].Number(14));
        }
    }
}

TEST_F(SchemaRowsets, DefaultsAreReportedAsDeclared) {
    c.Run(L"CREATE TABLE d (a TEXT(10) DEFAULT 'abc', b INTEGER DEFAULT 5, c DATETIME DEFAULT CURRENT_TIMESTAMP, "
          L"e INTEGER, f REAL DEFAULT (1.5 * 2))");
    auto rows = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"d"}));
    ASSERT_EQ(5u, rows.size());
    const wchar_t* defaults[] = {L"'abc'", L"5", L"CURRENT_TIMESTAMP", nullptr, L"1.5 * 2"};
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(defaults[i] != nullptr, rows[i].Flag(8));
        if (defaults[i])
            EXPECT_EQ(defaults[i], rows[i].Text(9));
        else
            EXPECT_TRUE(rows[i].IsNull(9));
    }
}

TEST_F(SchemaRowsets, ColumnsRestrictedByTableAndColumnAloneAndTogether) {
    c.Run(L"CREATE TABLE a (x INTEGER, y INTEGER)");
    c.Run(L"CREATE TABLE b (y INTEGER, z INTEGER)");
    auto named = [&](const std::vector<Variant>& restrictions) {
        std::vector<std::wstring> names;
        for (const auto& row : Rows(DBSCHEMA_COLUMNS, restrictions)) names.push_back(row.Text(3) + L"." + row.Text(4));
        return names;
    };
    EXPECT_EQ((std::vector<std::wstring>{L"a.x", L"a.y"}), named(Restrict({{}, {}, L"A"})));
    EXPECT_EQ((std::vector<std::wstring>{L"a.y", L"b.y"}), named(Restrict({{}, {}, {}, L"Y"})));
    EXPECT_EQ((std::vector<std::wstring>{L"b.y"}), named(Restrict({{}, {}, L"b", L"y"})));
    EXPECT_TRUE(named(Restrict({{}, {}, L"a", L"z"})).empty());
}

TEST_F(SchemaRowsets, ColumnsAreSortedByTableThenOrdinalAndKeepTheirOrdinalUnderRestriction) {
    c.Run(L"CREATE TABLE zeta (c3 INTEGER, c1 INTEGER, c2 INTEGER)");
    c.Run(L"CREATE TABLE Alpha (k INTEGER)");
    auto rows = Rows(DBSCHEMA_COLUMNS);
    std::vector<std::wstring> order;
    for (const auto& row : rows)
        if (row.Text(3) != L"sqlite_master") order.push_back(row.Text(3) + L"." + row.Text(4));
    EXPECT_EQ((std::vector<std::wstring>{L"Alpha.k", L"zeta.c3", L"zeta.c1", L"zeta.c2"}), order);
    auto one = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"zeta", L"c2"}));
    ASSERT_EQ(1u, one.size());
    EXPECT_EQ(3, one[0].Number(7));
}

TEST_F(SchemaRowsets, ViewsAndSystemTablesHaveTheirColumnsListed) {
    c.Run(L"CREATE TABLE base (id INTEGER, label VARCHAR(20) NOT NULL)");
    c.Run(L"CREATE VIEW shown AS SELECT label, id FROM base");
    auto rows = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"shown"}));
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ(L"label", rows[0].Text(4));
    EXPECT_EQ(DBTYPE_WSTR, rows[0].Number(12));
    EXPECT_EQ(20, rows[0].Number(14));
    EXPECT_FALSE(rows[0].Flag(11));
    EXPECT_EQ(L"id", rows[1].Text(4));
    EXPECT_EQ(2, rows[1].Number(7));
    EXPECT_EQ(DBTYPE_I4, rows[1].Number(12));
    std::vector<std::wstring> master;
    for (const auto& row : Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"sqlite_master"}))) master.push_back(row.Text(4));
    EXPECT_EQ((std::vector<std::wstring>{L"type", L"name", L"tbl_name", L"rootpage", L"sql"}), master);
}

TEST_F(SchemaRowsets, AViewOverADroppedTableHasNoColumnsButIsStillListed) {
    c.Run(L"CREATE TABLE gone (a INTEGER)");
    c.Run(L"CREATE VIEW orphan AS SELECT a FROM gone");
    c.Run(L"DROP TABLE gone");
    EXPECT_EQ((std::vector<std::wstring>{L"orphan"}), Texts(DBSCHEMA_TABLES, 3, Restrict({{}, {}, {}, L"VIEW"})));
    EXPECT_TRUE(Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"orphan"})).empty());
}

TEST_F(SchemaRowsets, TheMetadataTableNeverAppearsAndItsDescriptionsDo) {
    c.Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, title TEXT(40))");
    c.Run(std::wstring(zel::provider::kMetadataTableDdl, zel::provider::kMetadataTableDdl +
                                                          strlen(zel::provider::kMetadataTableDdl)));
    c.Run(L"INSERT INTO zel_lite_columns (table_name, column_name, description) VALUES ('PARTS', 'Title', "
          L"'What the part is called')");
    for (const auto& name : Texts(DBSCHEMA_TABLES, 3)) EXPECT_NE(std::wstring(zel::provider::kMetadataTable), name);
    EXPECT_TRUE(Rows(DBSCHEMA_TABLES, Restrict({{}, {}, L"zel_lite_columns"})).empty());
    EXPECT_TRUE(Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"ZEL_LITE_COLUMNS"})).empty());
    for (const auto& row : Rows(DBSCHEMA_COLUMNS)) EXPECT_NE(L"zel_lite_columns", row.Text(3));
    for (const auto& row : Rows(DBSCHEMA_INDEXES)) EXPECT_NE(L"zel_lite_columns", row.Text(3));
    for (const auto& row : Rows(DBSCHEMA_PRIMARY_KEYS)) EXPECT_NE(L"zel_lite_columns", row.Text(3));

    auto columns = Rows(DBSCHEMA_COLUMNS, Restrict({{}, {}, L"parts"}));
    ASSERT_EQ(2u, columns.size());
    EXPECT_TRUE(columns[0].IsNull(28));
    EXPECT_EQ(L"What the part is called", columns[1].Text(28));
}

// INDEXES

TEST_F(SchemaRowsets, AThreeColumnIndexGivesOneRowPerColumnInKeyOrder) {
    c.Run(L"CREATE TABLE t (a INTEGER, b INTEGER, c INTEGER)");
    c.Run(L"CREATE INDEX ix3 ON t (c, a DESC, b)");
    auto rows = Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, L"ix3"}));
    ASSERT_EQ(3u, rows.size());
    const wchar_t* columns[] = {L"c", L"a", L"b"};
    const int collations[] = {DB_COLLATION_ASC, DB_COLLATION_DESC, DB_COLLATION_ASC};
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(L"t", rows[i].Text(3));
        EXPECT_EQ(L"ix3", rows[i].Text(6));
        EXPECT_FALSE(rows[i].Flag(7));  // PRIMARY_KEY
        EXPECT_FALSE(rows[i].Flag(8));  // UNIQUE
        EXPECT_FALSE(rows[i].Flag(9));  // CLUSTERED
        EXPECT_EQ(DBPROPVAL_IT_BTREE, rows[i].Number(10));
        EXPECT_EQ(DBPROPVAL_IN_ALLOWNULL, rows[i].Number(13));
        EXPECT_EQ(static_cast<long long>(i + 1), rows[i].Number(17));
        EXPECT_EQ(columns[i], rows[i].Text(18));
        EXPECT_EQ(collations[i], rows[i].Number(21));
        EXPECT_TRUE(rows[i].IsNull(1));
        EXPECT_TRUE(rows[i].IsNull(4));
    }
}

TEST_F(SchemaRowsets, ADeclaredPrimaryKeyIsAUniqueIndexMarkedPrimaryKey) {
    c.Run(L"CREATE TABLE k (a TEXT(5), b INTEGER, c INTEGER, PRIMARY KEY (b, a))");
    auto rows = Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"k"}));
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ(L"sqlite_autoindex_k_1", rows[0].Text(6));
    EXPECT_TRUE(rows[0].Flag(7));
    EXPECT_TRUE(rows[0].Flag(8));
    EXPECT_EQ(L"b", rows[0].Text(18));
    EXPECT_EQ(L"a", rows[1].Text(18));
    EXPECT_EQ(2, rows[1].Number(17));

    auto keys = Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({{}, {}, L"K"}));
    ASSERT_EQ(2u, keys.size());
    EXPECT_EQ(L"k", keys[0].Text(3));
    EXPECT_EQ(L"b", keys[0].Text(4));
    EXPECT_EQ(1, keys[0].Number(7));
    EXPECT_EQ(L"a", keys[1].Text(4));
    EXPECT_EQ(2, keys[1].Number(7));
    EXPECT_EQ(L"sqlite_autoindex_k_1", keys[1].Text(8));
    EXPECT_TRUE(keys[0].IsNull(5));  // COLUMN_GUID
    EXPECT_TRUE(keys[0].IsNull(6));  // COLUMN_PROPID
    EXPECT_TRUE(keys[0].IsNull(1));  // TABLE_CATALOG
    EXPECT_EQ(2u, Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({L"", L"", L"k"})).size());
    EXPECT_TRUE(Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({{}, {}, L"missing"})).empty());
}

TEST_F(SchemaRowsets, AnIntegerPrimaryKeyIsReportedAsTheClusteredPrimaryKeyIndex) {
    c.Run(L"CREATE TABLE r (id INTEGER PRIMARY KEY, v TEXT(5))");
    auto rows = Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"r"}));
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"PrimaryKey", rows[0].Text(6));
    EXPECT_TRUE(rows[0].Flag(7));
    EXPECT_TRUE(rows[0].Flag(8));
    EXPECT_TRUE(rows[0].Flag(9));
    EXPECT_EQ(DBPROPVAL_IN_DISALLOWNULL, rows[0].Number(13));
    EXPECT_EQ(L"id", rows[0].Text(18));
    auto keys = Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({{}, {}, L"r"}));
    ASSERT_EQ(1u, keys.size());
    EXPECT_EQ(L"id", keys[0].Text(4));
    EXPECT_EQ(L"PrimaryKey", keys[0].Text(8));
    // The name finds the key like any index's.
    EXPECT_EQ(1u, Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, L"primarykey", {}, L"r"})).size());
}

TEST_F(SchemaRowsets, TheKeyOfAWithoutRowidTableIsClustered) {
    c.Run(L"CREATE TABLE w (code TEXT(4) NOT NULL PRIMARY KEY, v INTEGER) WITHOUT ROWID");
    auto rows = Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"w"}));
    ASSERT_EQ(1u, rows.size());
    EXPECT_TRUE(rows[0].Flag(7));
    EXPECT_TRUE(rows[0].Flag(9));
    EXPECT_EQ(L"code", rows[0].Text(18));
}

TEST_F(SchemaRowsets, UniqueConstraintsAreUniqueIndexesListedBeforeOthers) {
    c.Run(L"CREATE TABLE u (a INTEGER, b TEXT(5) UNIQUE, c INTEGER, UNIQUE (c, a))");
    c.Run(L"CREATE INDEX a_plain ON u (a)");
    auto rows = Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"u"}));
    std::vector<std::wstring> got;
    for (const auto& row : rows)
        got.push_back(row.Text(6) + L":" + row.Text(18) + (row.Flag(8) ? L":unique" : L"") +
                      (row.Flag(7) ? L":pk" : L""));
    EXPECT_EQ((std::vector<std::wstring>{L"sqlite_autoindex_u_1:b:unique", L"sqlite_autoindex_u_2:c:unique",
                                         L"sqlite_autoindex_u_2:a:unique", L"a_plain:a"}),
              got);
    EXPECT_TRUE(Rows(DBSCHEMA_PRIMARY_KEYS, Restrict({{}, {}, L"u"})).empty());
}

TEST_F(SchemaRowsets, IndexesRestrictedByEachRestrictionAloneAndTogether) {
    c.Run(L"CREATE TABLE t1 (a INTEGER, b INTEGER)");
    c.Run(L"CREATE TABLE t2 (a INTEGER)");
    c.Run(L"CREATE INDEX i1 ON t1 (a, b)");
    c.Run(L"CREATE INDEX i2 ON t2 (a)");
    auto names = [&](const std::vector<Variant>& restrictions) {
        std::vector<std::wstring> out;
        for (const auto& row : Rows(DBSCHEMA_INDEXES, restrictions)) out.push_back(row.Text(6) + L"." + row.Text(18));
        return out;
    };
    const std::vector<std::wstring> all = {L"i1.a", L"i1.b", L"i2.a"};
    EXPECT_EQ(all, names({}));
    EXPECT_EQ((std::vector<std::wstring>{L"i2.a"}), names(Restrict({{}, {}, L"I2"})));
    EXPECT_EQ((std::vector<std::wstring>{L"i1.a", L"i1.b"}), names(Restrict({{}, {}, {}, {}, L"T1"})));
    EXPECT_EQ(all, names(Restrict({{}, {}, {}, UnsignedShort(DBPROPVAL_IT_BTREE)})));
    EXPECT_TRUE(names(Restrict({{}, {}, {}, UnsignedShort(DBPROPVAL_IT_HASH)})).empty());
    EXPECT_TRUE(names(Restrict({{}, {}, L"i2", {}, L"t1"})).empty());
    EXPECT_EQ((std::vector<std::wstring>{L"i1.a", L"i1.b"}),
              names(Restrict({L"", L"", L"i1", UnsignedShort(DBPROPVAL_IT_BTREE), L"t1"})));
}

TEST_F(SchemaRowsets, IndexNamesDifferingOnlyInCaseAreTwoIndexes) {
    c.Run(L"CREATE TABLE t (a INTEGER, b INTEGER)");
    // SQLite folds ASCII letters only: these two names differ in case and are two indexes...
    c.Run(L"CREATE INDEX \x00C9x ON t (a)");
    c.Run(L"CREATE INDEX \x00E9x ON t (b)");
    // ...while an ASCII name differing only in case is the same name to SQLite.
    c.Run(L"CREATE INDEX Ix_A ON t (a, b)");
    EXPECT_NE(S_OK, c.TryExecute(L"CREATE INDEX ix_a ON t (b)"));
    std::vector<std::wstring> got;
    for (const auto& row : Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"t"})))
        got.push_back(row.Text(6) + L"." + row.Text(18));
    EXPECT_EQ((std::vector<std::wstring>{L"Ix_A.a", L"Ix_A.b", L"\x00C9x.a", L"\x00E9x.b"}), got);
    EXPECT_EQ(1u, Rows(DBSCHEMA_INDEXES, Restrict({{}, {}, L"\x00E9X"})).size());
}

// PROVIDER_TYPES

TEST_F(SchemaRowsets, ProviderTypesAreTheMappedTypesSortedByDataType) {
    auto rows = Rows(DBSCHEMA_PROVIDER_TYPES);
    ASSERT_FALSE(rows.empty());
    long long previous = -1;
    std::map<long long, int> bestMatches;
    for (const auto& row : rows) {
        const std::wstring name = row.Text(1);
        SCOPED_TRACE(testing::PrintToString(name));
        EXPECT_GE(row.Number(2), previous);
        previous = row.Number(2);
        if (row.Flag(20)) ++bestMatches[row.Number(2)];
        EXPECT_TRUE(row.Flag(7));  // IS_NULLABLE
        // A column declared with the name (and its parameters) has the type the row names.
        std::wstring declared = name;
        if (!row.IsNull(6)) declared += row.Text(6) == L"precision,scale" ? L"(10,2)" : L"(10)";
        c.Run(L"DROP TABLE IF EXISTS probe");
        c.Run(L"CREATE TABLE probe (v " + declared + L")");
        auto columns = ColumnsOf(c.Query(L"SELECT v FROM probe").get());
        ASSERT_EQ(1u, columns.size());
        EXPECT_EQ(columns[0].type, row.Number(2));
        EXPECT_EQ((columns[0].flags & DBCOLUMNFLAGS_ISLONG) != 0, row.Flag(19));        // IS_LONG
        EXPECT_EQ((columns[0].flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) != 0, row.Flag(21));  // IS_FIXEDLENGTH
        if (columns[0].precision != 255 && columns[0].type != DBTYPE_DECIMAL) {
            EXPECT_EQ(columns[0].precision, row.Number(3));  // COLUMN_SIZE of numbers
        }
    }
    for (const auto& [type, count] : bestMatches) EXPECT_EQ(1, count) << type;
    std::map<std::wstring, const SchemaRow*> byName;
    for (const auto& row : rows) byName[row.Text(1)] = &row;
    ASSERT_TRUE(byName.count(L"VARCHAR") && byName.count(L"TEXT") && byName.count(L"DECIMAL"));
    EXPECT_TRUE(byName[L"VARCHAR"]->Flag(20));
    EXPECT_EQ(L"'", byName[L"VARCHAR"]->Text(4));
    EXPECT_EQ(L"'", byName[L"VARCHAR"]->Text(5));
    EXPECT_EQ(L"max length", byName[L"VARCHAR"]->Text(6));
    EXPECT_TRUE(byName[L"VARCHAR"]->Flag(8));  // CASE_SENSITIVE
    EXPECT_EQ(DB_SEARCHABLE, byName[L"VARCHAR"]->Number(9));
    EXPECT_TRUE(byName[L"TEXT"]->Flag(19));
    EXPECT_FALSE(byName[L"TEXT"]->Flag(20));
    EXPECT_EQ(28, byName[L"DECIMAL"]->Number(3));
    EXPECT_EQ(0, byName[L"DECIMAL"]->Number(14));
    EXPECT_EQ(28, byName[L"DECIMAL"]->Number(15));
    EXPECT_TRUE(byName[L"INTEGER"]->Flag(12));  // AUTO_UNIQUE_VALUE
    EXPECT_FALSE(byName[L"INTEGER"]->Flag(10));  // UNSIGNED_ATTRIBUTE
    EXPECT_TRUE(byName[L"TINYINT"]->Flag(10));
    EXPECT_TRUE(byName[L"CURRENCY"]->Flag(11));  // FIXED_PREC_SCALE
}

TEST_F(SchemaRowsets, ProviderTypesRestrictedByDataTypeAndBestMatch) {
    auto names = [&](const std::vector<Variant>& restrictions) {
        std::vector<std::wstring> out;
        for (const auto& row : Rows(DBSCHEMA_PROVIDER_TYPES, restrictions)) out.push_back(row.Text(1));
        return out;
    };
    EXPECT_EQ((std::vector<std::wstring>{L"VARCHAR", L"CHAR", L"TEXT"}), names(Restrict({UnsignedShort(DBTYPE_WSTR)})));
    EXPECT_EQ((std::vector<std::wstring>{L"VARCHAR"}),
              names(Restrict({UnsignedShort(DBTYPE_WSTR), Variant::FromBool(true)})));
    EXPECT_EQ((std::vector<std::wstring>{L"CHAR", L"TEXT"}),
              names(Restrict({UnsignedShort(DBTYPE_WSTR), Variant::FromBool(false)})));
    EXPECT_EQ((std::vector<std::wstring>{L"INTEGER"}), names(Restrict({Variant::FromI4(DBTYPE_I4)})));  // VT_I4 too
    const auto best = names(Restrict({{}, Variant::FromBool(true)}));
    EXPECT_EQ(names({}).size(), best.size() + names(Restrict({{}, Variant::FromBool(false)})).size());
    EXPECT_TRUE(names(Restrict({UnsignedShort(DBTYPE_VARIANT)})).empty());
}

// GetSchemas, standard columns and bad requests

TEST_F(SchemaRowsets, GetSchemasListsEachRowsetWithItsRestrictionMask) {
    ULONG count = 0;
    GUID* guids = nullptr;
    ULONG* masks = nullptr;
    ASSERT_EQ(S_OK, schemas->GetSchemas(&count, &guids, &masks));
    std::vector<std::pair<GUID, ULONG>> got;
    for (ULONG i = 0; i < count; ++i) got.emplace_back(guids[i], masks[i]);
    CoTaskMemFree(guids);
    CoTaskMemFree(masks);
    const std::vector<std::pair<GUID, ULONG>> expected = {
        {DBSCHEMA_TABLES, 0xF}, {DBSCHEMA_COLUMNS, 0xF}, {DBSCHEMA_INDEXES, 0x1F},
        {DBSCHEMA_PRIMARY_KEYS, 0x7}, {DBSCHEMA_PROVIDER_TYPES, 0x3}};
    ASSERT_EQ(expected.size(), got.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_TRUE(IsEqualGUID(expected[i].first, got[i].first)) << i;
        EXPECT_EQ(expected[i].second, got[i].second) << i;
    }
    EXPECT_EQ(E_INVALIDARG, schemas->GetSchemas(nullptr, &guids, &masks));
    EXPECT_EQ(nullptr, guids);
    EXPECT_EQ(E_INVALIDARG, schemas->GetSchemas(&count, &guids, nullptr));
    EXPECT_EQ(0u, count);
}

TEST_F(SchemaRowsets, EachRowsetReportsItsStandardColumnsThroughIColumnsInfo) {
    for (const GUID* schema : {&DBSCHEMA_TABLES, &DBSCHEMA_COLUMNS, &DBSCHEMA_INDEXES, &DBSCHEMA_PRIMARY_KEYS,
                               &DBSCHEMA_PROVIDER_TYPES}) {
        auto standard = StandardColumnsOf(*schema);
        auto columns = ColumnsOf(OpenSchema(schemas.get(), *schema, {}).get());
        ASSERT_EQ(standard.size(), columns.size());
        for (size_t i = 0; i < columns.size(); ++i) {
            SCOPED_TRACE(testing::PrintToString(std::wstring(standard[i].name)));
            EXPECT_EQ(standard[i].name, columns[i].name);
            EXPECT_EQ(i + 1, columns[i].ordinal);
            EXPECT_EQ(standard[i].type, columns[i].type);
            EXPECT_EQ(0u, columns[i].flags & DBCOLUMNFLAGS_WRITE);
        }
    }
    EXPECT_EQ(9u, StandardColumnsOf(DBSCHEMA_TABLES).size());
    EXPECT_EQ(28u, StandardColumnsOf(DBSCHEMA_COLUMNS).size());
    EXPECT_EQ(25u, StandardColumnsOf(DBSCHEMA_INDEXES).size());
    EXPECT_EQ(8u, StandardColumnsOf(DBSCHEMA_PRIMARY_KEYS).size());
    EXPECT_EQ(21u, StandardColumnsOf(DBSCHEMA_PROVIDER_TYPES).size());
}

TEST_F(SchemaRowsets, BadRequestsAreRefusedWithTheirCodes) {
    ComPtr<IUnknown> rowset;
    const std::vector<Variant> five = Restrict({{}, {}, {}, {}, {}});
    std::vector<VARIANT> raw(five.size());
    for (size_t i = 0; i < five.size(); ++i) raw[i] = *five[i].get();
    auto get = [&](REFGUID schema, ULONG count, const VARIANT* values, REFIID riid = IID_IRowset) {
        rowset.reset();
        return schemas->GetRowset(nullptr, schema, count, values, riid, 0, nullptr, rowset.put());
    };
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_CATALOGS, 0, nullptr));
    EXPECT_FALSE(rowset);
    auto records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_FALSE(records[0].description.empty());
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_TABLES, 5, raw.data()));      // TABLES has four
    EXPECT_EQ(S_OK, get(DBSCHEMA_INDEXES, 5, raw.data()));             // INDEXES has five
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_PROVIDER_TYPES, 3, raw.data()));
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_TABLES, 2, nullptr));
    EXPECT_EQ(E_NOINTERFACE, get(DBSCHEMA_TABLES, 0, nullptr, IID_IRowsetChange));
    EXPECT_EQ(E_INVALIDARG, schemas->GetRowset(nullptr, DBSCHEMA_TABLES, 0, nullptr, IID_IRowset, 0, nullptr, nullptr));

    // Restrictions of the wrong type.
    VARIANT number;
    V_VT(&number) = VT_I4;
    V_I4(&number) = 3;
    const VARIANT nameAsNumber[] = {raw[0], raw[0], number};
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_TABLES, 3, nameAsNumber));
    Variant text(std::wstring_view(L"130"));
    const VARIANT typeAsText[] = {*text.get()};
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_PROVIDER_TYPES, 1, typeAsText));
    const VARIANT bestAsNumber[] = {raw[0], number};
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_PROVIDER_TYPES, 2, bestAsNumber));
    VARIANT negative;
    V_VT(&negative) = VT_I4;
    V_I4(&negative) = -1;
    const VARIANT indexTypeNegative[] = {raw[0], raw[0], raw[0], negative};
    EXPECT_EQ(E_INVALIDARG, get(DBSCHEMA_INDEXES, 4, indexTypeNegative));
}

// A minimal outer object aggregating a schema rowset.
class Outer final : public IUnknown {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IUnknown) {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return inner->QueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs)); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(InterlockedDecrement(&refs)); }
    LONG refs = 1;
    ComPtr<IUnknown> inner;
};

TEST_F(SchemaRowsets, TheRowsetCanBeAggregatedWhenIUnknownIsAskedFor) {
    Outer outer;
    EXPECT_EQ(DB_E_NOAGGREGATION, schemas->GetRowset(&outer, DBSCHEMA_TABLES, 0, nullptr, IID_IRowset, 0, nullptr,
                                                     outer.inner.put()));
    EXPECT_FALSE(outer.inner);
    ASSERT_EQ(S_OK,
              schemas->GetRowset(&outer, DBSCHEMA_TABLES, 0, nullptr, IID_IUnknown, 0, nullptr, outer.inner.put()));
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, outer.QueryInterface(IID_IRowset, rowset.put_void()));
    ComPtr<IUnknown> identity;
    ASSERT_EQ(S_OK, rowset->QueryInterface(IID_IUnknown, identity.put_void()));
    EXPECT_EQ(static_cast<IUnknown*>(&outer), identity.get());
    EXPECT_EQ(1u, ReadRows(rowset.get(), StandardColumnsOf(DBSCHEMA_TABLES)).size());
    identity.reset();
    rowset.reset();
    EXPECT_EQ(1, outer.refs);
    outer.inner.reset();
}

TEST_F(SchemaRowsets, TheRowsetIsReadOnlyAndTakesRowsetProperties) {
    c.Run(L"CREATE TABLE t (a INTEGER)");
    DBPROP props[2] = {BoolProperty(DBPROP_IRowsetChange), BoolProperty(DBPROP_BOOKMARKS)};
    DBPROPSET set{props, 2, DBPROPSET_ROWSET};
    ComPtr<IRowset> rowset;
    EXPECT_EQ(DB_E_ERRORSOCCURRED,
              schemas->GetRowset(nullptr, DBSCHEMA_TABLES, 0, nullptr, IID_IRowset, 1, &set, rowset.put_unknown()));
    EXPECT_EQ(static_cast<DBPROPSTATUS>(DBPROPSTATUS_NOTSETTABLE), props[0].dwStatus);
    EXPECT_FALSE(rowset);

    // Asked for as optional, change is not granted and the rest is.
    props[0].dwOptions = DBPROPOPTIONS_OPTIONAL;
    ASSERT_EQ(DB_S_ERRORSOCCURRED,
              schemas->GetRowset(nullptr, DBSCHEMA_TABLES, 0, nullptr, IID_IRowset, 1, &set, rowset.put_unknown()));
    EXPECT_EQ(static_cast<DBPROPSTATUS>(DBPROPSTATUS_NOTSET), props[0].dwStatus);
    EXPECT_EQ(static_cast<DBPROPSTATUS>(DBPROPSTATUS_OK), props[1].dwStatus);
    EXPECT_FALSE(rowset.try_as<IRowsetChange>());
    auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(10u, columns.size());
    EXPECT_EQ(0u, columns[0].ordinal);  // the bookmark
    // The rowset answers for the session that made it, and reads again after a restart.
    ComPtr<IUnknown> creator;
    ASSERT_EQ(S_OK, rowset.as<IRowsetInfo>()->GetSpecification(IID_IUnknown, creator.put()));
    EXPECT_EQ(c.session.as<IUnknown>().get(), creator.get());
    auto first = ReadRows(rowset.get(), StandardColumnsOf(DBSCHEMA_TABLES));
    auto second = ReadRows(rowset.get(), StandardColumnsOf(DBSCHEMA_TABLES));
    ASSERT_EQ(2u, first.size());
    ASSERT_EQ(first.size(), second.size());
    EXPECT_EQ(first[1].Text(3), second[1].Text(3));
    VariantClear(&props[0].vValue);
    VariantClear(&props[1].vValue);
}

}  // namespace
