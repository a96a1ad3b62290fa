// ITableDefinition::AddColumn and DropColumn, IIndexDefinition, and the keys and
// constraints a definition reports.
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- Columns -------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, AddColumnKeepsAndEnforcesItsProperties) {
    c.Run(L"CREATE TABLE grow (Name TEXT(20))");
    c.Run(L"INSERT INTO grow VALUES ('a'), ('b'), ('c')");
    Name table(L"grow");
    {
        ColumnList column;
        column.Add(L"Num", DBTYPE_I4).Identity(5, 5);
        DBID* made = nullptr;
        ASSERT_EQ(S_OK, definition->AddColumn(table.get(), column.get(), &made));
        ASSERT_NE(nullptr, made);
        EXPECT_STREQ(L"Num", made->uName.pwszName);
        FreeId(made);
    }
    {
        ColumnList column;
        column.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"a code"));
        ASSERT_EQ(S_OK, definition->AddColumn(table.get(), column.get(), nullptr));
    }
    // The rows already there are numbered, and numbering goes on after them.
    c.Run(L"INSERT INTO grow (Name, Code) VALUES ('d', 'x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"a", L"5"}, {L"b", L"10"}, {L"c", L"15"}, {L"d", L"20"}}),
              Rows(L"SELECT Name, Num FROM grow ORDER BY rowid"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO grow (Code) VALUES ('')"));
    auto got = Get(L"grow");
    EXPECT_EQ(L"bstr:a code", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Code"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"i4:25", ColumnText(got->Column(L"Num"), DBPROP_COL_SEED));

    ColumnList again;
    again.Add(L"NAME", DBTYPE_I4);
    EXPECT_EQ(DB_E_DUPLICATECOLUMNID, definition->AddColumn(table.get(), again.get(), nullptr));
    ColumnList required;
    required.Add(L"Must", DBTYPE_I4).Flag(DBPROP_COL_NULLABLE, false);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, definition->AddColumn(table.get(), required.get(), nullptr));
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, required.Property(0, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    ColumnList keyed;
    keyed.Add(L"Key", DBTYPE_I4).Flag(DBPROP_COL_PRIMARYKEY, true);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, definition->AddColumn(table.get(), keyed.get(), nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, keyed.Property(0, DBPROPSET_COLUMN, DBPROP_COL_PRIMARYKEY).dwStatus);
    Name missing(L"missing");
    EXPECT_EQ(DB_E_NOTABLE, definition->AddColumn(missing.get(), again.get(), nullptr));
    EXPECT_EQ(3u, Get(L"grow")->count);
}

TEST_F(TableDefinitionTest, DropColumnTakesItsMetadataAndKeepsTheOtherColumnsEnforced) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false);
    columns.Add(L"Note", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"note"));
    ASSERT_EQ(S_OK, Create(L"shrink", columns));
    Name table(L"shrink");
    Name note(L"note");  // columns are matched without regard to case
    ASSERT_EQ(S_OK, definition->DropColumn(table.get(), note.get()));
    EXPECT_EQ(L"0",
              Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'shrink' AND column_name = 'Note'"));
    c.Run(L"INSERT INTO shrink (Code) VALUES ('a')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO shrink (Code) VALUES ('')"));
    Name id(L"ID");
    ASSERT_EQ(S_OK, definition->DropColumn(table.get(), id.get()));
    c.Run(L"INSERT INTO shrink (Code) VALUES ('b')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO shrink (Code) VALUES ('')"));
    auto got = Get(L"shrink");
    ASSERT_EQ(1u, got->count);
    EXPECT_STREQ(L"Code", got->columns[0].dbcid.uName.pwszName);
    // An added column of a dropped one's name starts without its properties.
    ColumnList readded;
    readded.Add(L"Note", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, definition->AddColumn(table.get(), readded.get(), nullptr));
    c.Run(L"INSERT INTO shrink (Code, Note) VALUES ('c', '')");
    EXPECT_EQ(L"empty", ColumnText(Get(L"shrink")->Column(L"Note"), DBPROP_COL_DESCRIPTION));

    Name unknown(L"nothere");
    EXPECT_EQ(DB_E_NOCOLUMN, definition->DropColumn(table.get(), unknown.get()));
}

TEST_F(TableDefinitionTest, DropColumnRefusesColumnsTheTableDependsOn) {
    c.Run(L"CREATE TABLE deps (k INTEGER PRIMARY KEY, a TEXT, b TEXT)");
    c.Run(L"CREATE INDEX deps_a ON deps (a)");
    c.Run(L"CREATE TABLE solo (only TEXT)");
    Name deps(L"deps"), solo(L"solo"), k(L"k"), a(L"a"), b(L"b"), only(L"only");
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(deps.get(), k.get()));
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(deps.get(), a.get()));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"deps_a"));
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(solo.get(), only.get()));
    EXPECT_EQ(S_OK, definition->DropColumn(deps.get(), b.get()));
}

// --- Indexes and keys ----------------------------------------------------------------------

TEST_F(TableDefinitionTest, AThreeColumnIndexKeepsItsColumnOrderAndDirections) {
    c.Run(L"CREATE TABLE parts (a TEXT, b INTEGER, c TEXT, d TEXT)");
    Name table(L"parts"), index(L"ix_abc"), a(L"a"), b(L"B"), cc(L"c");
    DBINDEXCOLUMNDESC keys[3] = {{a.get(), DBINDEX_COL_ORDER_ASC}, {b.get(), DBINDEX_COL_ORDER_DESC},
                                 {cc.get(), DBINDEX_COL_ORDER_ASC}};
    DBPROP unique = BoolProperty(DBPROP_INDEX_UNIQUE);
    DBPROPSET set{&unique, 1, DBPROPSET_INDEX};
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), index.get(), 3, keys, 1, &set, &made));
    EXPECT_EQ(DBPROPSTATUS_OK, unique.dwStatus);
    ASSERT_NE(nullptr, made);
    EXPECT_STREQ(L"ix_abc", made->uName.pwszName);
    FreeId(made);
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"a", L"0"}, {L"b", L"1"}, {L"c", L"0"}}),
              Rows(L"SELECT name, \"desc\" FROM pragma_index_xinfo('ix_abc') WHERE key = 1 ORDER BY seqno"));
    c.Run(L"INSERT INTO parts VALUES ('x', 1, 'y', 'first')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO parts VALUES ('x', 1, 'y', 'second')"));
    EXPECT_EQ(DB_E_DUPLICATEINDEXID, indexes->CreateIndex(table.get(), index.get(), 3, keys, 0, nullptr, nullptr));
    Name nothere(L"nothere");
    DBINDEXCOLUMNDESC bad = {nothere.get(), DBINDEX_COL_ORDER_ASC};
    EXPECT_EQ(DB_E_NOCOLUMN, indexes->CreateIndex(table.get(), nullptr, 1, &bad, 0, nullptr, nullptr));
}

TEST_F(TableDefinitionTest, AnIndexWithoutAnIdGetsAGeneratedName) {
    c.Run(L"CREATE TABLE parts (a TEXT, b TEXT)");
    Name table(L"parts"), a(L"a");
    DBINDEXCOLUMNDESC key = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), nullptr, 1, &key, 0, nullptr, &made));
    ASSERT_NE(nullptr, made);
    EXPECT_STREQ(L"IX_parts_a", made->uName.pwszName);
    FreeId(made);
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), nullptr, 1, &key, 0, nullptr, &made));
    EXPECT_STREQ(L"IX_parts_a_2", made->uName.pwszName);
    FreeId(made);
    EXPECT_EQ(L"2", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'parts'"));
}

TEST_F(TableDefinitionTest, APrimaryKeyIsDeclaredWithTheTableAndRefusedOnAnExistingOne) {
    ColumnList columns;
    columns.Add(L"Region", DBTYPE_WSTR).Size(4).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Number", DBTYPE_I4).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Label", DBTYPE_WSTR).Size(20).Flag(DBPROP_COL_UNIQUE, true);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    c.Run(L"INSERT INTO keyed VALUES ('N', 1, 'one')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES ('N', 1, 'other')"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES ('S', 1, 'one')"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES (NULL, 2, 'two')"));
    auto got = Get(L"keyed");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"Region"), DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"bool:-1", ColumnText(got->Column(L"Number"), DBPROP_COL_PRIMARYKEY));
    EXPECT_EQ(L"bool:-1", ColumnText(got->Column(L"Label"), DBPROP_COL_UNIQUE));
    ASSERT_EQ(2u, got->constraintCount);
    const DBCONSTRAINTDESC& key = got->constraints[0];
    EXPECT_EQ(DBCONSTRAINTTYPE_PRIMARYKEY, key.ConstraintType);
    ASSERT_EQ(2u, key.cColumns);
    EXPECT_STREQ(L"Region", key.rgColumnList[0].uName.pwszName);
    EXPECT_STREQ(L"Number", key.rgColumnList[1].uName.pwszName);
    EXPECT_EQ(DBCONSTRAINTTYPE_UNIQUE, got->constraints[1].ConstraintType);
    ASSERT_EQ(1u, got->constraints[1].cColumns);
    EXPECT_STREQ(L"Label", got->constraints[1].rgColumnList[0].uName.pwszName);

    // On an existing table SQLite cannot add a primary key.
    c.Run(L"CREATE TABLE loose (a INTEGER)");
    Name table(L"loose"), a(L"a");
    DBINDEXCOLUMNDESC column = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBPROP primary = BoolProperty(DBPROP_INDEX_PRIMARYKEY);
    DBPROPSET set{&primary, 1, DBPROPSET_INDEX};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, indexes->CreateIndex(table.get(), nullptr, 1, &column, 1, &set, nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, primary.dwStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"primary key"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'loose'"));
    // Asked for as optional, the index is made without being a key.
    primary.dwOptions = DBPROPOPTIONS_OPTIONAL;
    EXPECT_EQ(DB_S_ERRORSOCCURRED, indexes->CreateIndex(table.get(), nullptr, 1, &column, 1, &set, nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, primary.dwStatus);
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'loose'"));
}

TEST_F(TableDefinitionTest, IndexNullsPropertyMakesAPartialIndex) {
    c.Run(L"CREATE TABLE sparse (a TEXT, b TEXT)");
    Name table(L"sparse"), a(L"a"), index(L"ix_sparse");
    DBINDEXCOLUMNDESC column = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBPROP props[2] = {};
    props[0].dwPropertyID = DBPROP_INDEX_UNIQUE;
    V_VT(&props[0].vValue) = VT_BOOL;
    V_BOOL(&props[0].vValue) = VARIANT_TRUE;
    props[1].dwPropertyID = DBPROP_INDEX_NULLS;
    V_VT(&props[1].vValue) = VT_I4;
    V_I4(&props[1].vValue) = DBPROPVAL_IN_IGNORENULL;
    DBPROPSET set{props, 2, DBPROPSET_INDEX};
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), index.get(), 1, &column, 1, &set, nullptr));
    EXPECT_EQ(L"1", Scalar(L"SELECT partial FROM pragma_index_list('sparse')"));
    c.Run(L"INSERT INTO sparse VALUES (NULL, 'x'), (NULL, 'y'), ('k', 'z')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO sparse VALUES ('k', 'w')"));
}

TEST_F(TableDefinitionTest, DropIndexDropsOneOrEveryIndexOfTheTable) {
    c.Run(L"CREATE TABLE parts (a TEXT UNIQUE, b TEXT, c TEXT)");
    c.Run(L"CREATE INDEX ix_b ON parts (b)");
    c.Run(L"CREATE INDEX ix_c ON parts (c)");
    c.Run(L"CREATE TABLE other (x TEXT)");
    c.Run(L"CREATE INDEX ix_x ON other (x)");
    Name table(L"parts"), ixb(L"IX_B"), ixx(L"ix_x"), nothere(L"nothere");
    EXPECT_EQ(DB_E_NOINDEX, indexes->DropIndex(table.get(), nothere.get()));
    EXPECT_EQ(DB_E_NOINDEX, indexes->DropIndex(table.get(), ixx.get()));  // another table's index
    ASSERT_EQ(S_OK, indexes->DropIndex(table.get(), ixb.get()));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'ix_b'"));
    ASSERT_EQ(S_OK, indexes->DropIndex(table.get(), nullptr));
    // Every index made by CREATE INDEX is gone; the UNIQUE constraint's stays with the table.
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"sqlite_autoindex_parts_1"}}),
              Rows(L"SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'parts'"));
    Name constraint(L"sqlite_autoindex_parts_1");
    EXPECT_EQ(DB_E_INDEXINUSE, indexes->DropIndex(table.get(), constraint.get()));
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'ix_x'"));
    Name missing(L"missing");
    EXPECT_EQ(DB_E_NOTABLE, indexes->DropIndex(missing.get(), nullptr));
}

TEST_F(TableDefinitionTest, ForeignKeysAndUniqueConstraintsAreReported) {
    c.Run(L"CREATE TABLE parent (id INTEGER PRIMARY KEY, code TEXT UNIQUE)");
    c.Run(L"CREATE TABLE child (n INTEGER, pid INTEGER REFERENCES parent (id) ON DELETE CASCADE, "
          L"pcode TEXT REFERENCES parent (code))");
    auto got = Get(L"child");
    ASSERT_EQ(S_OK, got->hr);
    ASSERT_EQ(2u, got->constraintCount);
    const DBCONSTRAINTDESC* byId = nullptr;
    for (ULONG i = 0; i < got->constraintCount; ++i)
        if (got->constraints[i].cForeignKeyColumns == 1 &&
            std::wstring(got->constraints[i].rgForeignKeyColumnList[0].uName.pwszName) == L"pid")
            byId = &got->constraints[i];
    ASSERT_NE(nullptr, byId);
    EXPECT_EQ(DBCONSTRAINTTYPE_FOREIGNKEY, byId->ConstraintType);
    ASSERT_NE(nullptr, byId->pReferencedTableID);
    EXPECT_STREQ(L"parent", byId->pReferencedTableID->uName.pwszName);
    ASSERT_EQ(1u, byId->cColumns);
    EXPECT_STREQ(L"id", byId->rgColumnList[0].uName.pwszName);
    EXPECT_EQ(DBUPDELRULE_CASCADE, byId->DeleteRule);
    EXPECT_EQ(DBUPDELRULE_NOACTION, byId->UpdateRule);
    ASSERT_NE(nullptr, byId->pConstraintID);
    auto parent = Get(L"parent");
    ASSERT_EQ(2u, parent->constraintCount);
    EXPECT_EQ(DBCONSTRAINTTYPE_PRIMARYKEY, parent->constraints[0].ConstraintType);
    EXPECT_EQ(DBCONSTRAINTTYPE_UNIQUE, parent->constraints[1].ConstraintType);
    // The rowid column never holds NULL.
    EXPECT_EQ(L"bool:0", ColumnText(parent->Column(L"id"), DBPROP_COL_NULLABLE));
}

}  // namespace
