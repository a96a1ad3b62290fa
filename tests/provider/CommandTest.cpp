// Commands: Execute returns a rowset for statements with rows and the change count for others,
// the rowset properties the automation server asks for, preparation and column information.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class CommandTest : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE people (id INTEGER PRIMARY KEY, name TEXT(50), city TEXT(30))");
        c.Run(L"INSERT INTO people VALUES (1, 'Ann', 'Oslo'), (2, 'Bob', 'Rome'), (3, 'Cid', 'Oslo')");
        c.Run(L"CREATE TABLE cities (name TEXT(30), country TEXT(30))");
        c.Run(L"INSERT INTO cities VALUES ('Oslo', 'Norway'), ('Rome', 'Italy')");
    }
    TempDatabase db;
    Connection c;
};

TEST_F(CommandTest, SelectReturnsARowsetWithItsRows) {
    auto rows = ReadAllAsText(c.Query(L"SELECT name FROM people ORDER BY id").get());
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ(L"Ann", rows[0][0]);
    EXPECT_EQ(L"Cid", rows[2][0]);
}

TEST_F(CommandTest, SelectReportsTheRowCountAsUnavailable) {
    ComPtr<IRowset> rowset;
    DBROWCOUNT affected = 0;
    ASSERT_EQ(S_OK, c.TryExecute(L"SELECT * FROM people", &rowset, &affected));
    EXPECT_EQ(DB_COUNTUNAVAILABLE, affected);
    EXPECT_TRUE(rowset);
}

TEST_F(CommandTest, UpdateReturnsTheChangeCountAndNoRowset) {
    ComPtr<IRowset> rowset;
    DBROWCOUNT affected = 0;
    ASSERT_EQ(S_OK, c.TryExecute(L"UPDATE people SET city = 'Bergen' WHERE city = 'Oslo'", &rowset, &affected));
    EXPECT_EQ(2, affected);
    EXPECT_FALSE(rowset);
}

TEST_F(CommandTest, DeleteAndInsertCountTheirRows) {
    EXPECT_EQ(1, c.Run(L"DELETE FROM people WHERE id = 2"));
    EXPECT_EQ(2, c.Run(L"INSERT INTO people (name) VALUES ('Dan'), ('Eve')"));
}

TEST_F(CommandTest, CreateTableChangesNoRows) { EXPECT_EQ(0, c.Run(L"CREATE TABLE empty_one (a INTEGER)")); }

TEST_F(CommandTest, RowsChangedByTriggersAreNotCounted) {
    c.Run(L"CREATE TABLE people_log (name TEXT)");
    c.Run(L"CREATE TRIGGER people_logged AFTER INSERT ON people BEGIN "
          L"INSERT INTO people_log VALUES (NEW.name); INSERT INTO people_log VALUES (NEW.name); END");
    EXPECT_EQ(2, c.Run(L"INSERT INTO people (name) VALUES ('Dan'), ('Eve')"));
    EXPECT_EQ(4, c.Run(L"DELETE FROM people_log"));
    // A statement that changes nothing counts none, whatever the statement before it changed.
    EXPECT_EQ(0, c.Run(L"CREATE TABLE after_changes (a INTEGER)"));
    EXPECT_EQ(0, c.Run(L"UPDATE people SET city = 'x' WHERE id > 100"));
}

TEST_F(CommandTest, SelectWithoutRowsGivesAnEmptyRowset) {
    auto rowset = c.Query(L"SELECT * FROM people WHERE id > 100");
    ASSERT_TRUE(rowset);
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", FetchFirstColumn(rowset.get(), 0, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
}

TEST_F(CommandTest, SeveralStatementsRunInOrderAndTheLastOneGivesTheRows) {
    auto rows = ReadAllAsText(
        c.Query(L"CREATE TABLE s (x INTEGER); INSERT INTO s VALUES (5); INSERT INTO s VALUES (6); SELECT sum(x) FROM s;")
            .get());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"11", rows[0][0]);
}

TEST_F(CommandTest, ExecuteWithoutTextFailsWithNoCommand) {
    auto create = c.session.as<IDBCreateCommand>();
    ComPtr<ICommand> command;
    ASSERT_EQ(S_OK, create->CreateCommand(nullptr, IID_ICommand, command.put_unknown()));
    ComPtr<IRowset> rowset;
    EXPECT_EQ(DB_E_NOCOMMAND, command->Execute(nullptr, IID_IRowset, nullptr, nullptr, rowset.put_unknown()));
}

TEST_F(CommandTest, CommandTextReadsBackWithTheSqlDialect) {
    auto command = c.NewCommand(L"SELECT 1");
    GUID dialect = DBGUID_DEFAULT;
    LPOLESTR text = nullptr;
    ASSERT_EQ(S_OK, command->GetCommandText(&dialect, &text));
    EXPECT_STREQ(L"SELECT 1", text);
    EXPECT_TRUE(dialect == DBGUID_SQL);
    CoTaskMemFree(text);
}

TEST_F(CommandTest, AnUnknownDialectIsRefused) {
    auto command = c.NewCommand(L"SELECT 1");
    const GUID other = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(DB_E_DIALECTNOTSUPPORTED, command->SetCommandText(other, L"SELECT 2"));
}

TEST_F(CommandTest, TheServersRowsetPropertiesAreAcceptedForATable) {
    ServerRowsetProperties server;
    auto command = c.NewCommand(L"SELECT * FROM people");
    EXPECT_EQ(S_OK, command.as<ICommandProperties>()->SetProperties(1, &server.set));
    for (const auto& p : server.props) EXPECT_EQ(DBPROPSTATUS_OK, p.dwStatus);
    ComPtr<IRowset> rowset;
    DBROWCOUNT affected = 0;
    EXPECT_EQ(S_OK, command->Execute(nullptr, IID_IRowset, nullptr, &affected, rowset.put_unknown()));
    EXPECT_TRUE(rowset);
}

TEST_F(CommandTest, TheServersRowsetPropertiesAreAcceptedForAJoinAndForAnUpdate) {
    ServerRowsetProperties server;
    ComPtr<IRowset> rowset;
    EXPECT_EQ(S_OK, c.TryExecute(L"SELECT p.name, c.country FROM people p JOIN cities c ON c.name = p.city", &rowset,
                                 nullptr, &server.set, 1));
    EXPECT_EQ(2u * 1u + 1u, ReadAllAsText(rowset.get()).size());
    DBROWCOUNT affected = 0;
    EXPECT_EQ(S_OK, c.TryExecute(L"UPDATE people SET name = upper(name)", nullptr, &affected, &server.set, 1));
    EXPECT_EQ(3, affected);
}

TEST_F(CommandTest, AnUnsupportedRequiredPropertyFailsWithItsStatus) {
    DBPROP props[2] = {BoolProperty(DBPROP_IRowsetLocate),  // an interface ZelLite does not offer
                       BoolProperty(0x7777)};                // no such property
    DBPROPSET set{props, 2, DBPROPSET_ROWSET};
    auto command = c.NewCommand(L"SELECT * FROM people");
    EXPECT_EQ(DB_E_ERRORSOCCURRED, command.as<ICommandProperties>()->SetProperties(1, &set));
    EXPECT_EQ(DBPROPSTATUS_NOTSETTABLE, props[0].dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, props[1].dwStatus);
}

TEST_F(CommandTest, AnUnsupportedOptionalPropertyIsNotSetAndReported) {
    DBPROP props[2] = {BoolProperty(DBPROP_IRowsetLocate, true, DBPROPOPTIONS_OPTIONAL),
                       BoolProperty(DBPROP_CANFETCHBACKWARDS)};
    DBPROPSET set{props, 2, DBPROPSET_ROWSET};
    auto command = c.NewCommand(L"SELECT * FROM people");
    EXPECT_EQ(DB_S_ERRORSOCCURRED, command.as<ICommandProperties>()->SetProperties(1, &set));
    EXPECT_EQ(DBPROPSTATUS_NOTSET, props[0].dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, props[1].dwStatus);
}

TEST_F(CommandTest, RowsetReportsThePropertiesItWasAskedFor) {
    ServerRowsetProperties server;
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, c.TryExecute(L"SELECT * FROM people", &rowset, nullptr, &server.set, 1));
    DBPROPID ids[2] = {DBPROP_CANSCROLLBACKWARDS, DBPROP_UPDATABILITY};
    DBPROPIDSET idSet{ids, 2, DBPROPSET_ROWSET};
    ULONG count = 0;
    DBPROPSET* sets = nullptr;
    ASSERT_EQ(S_OK, rowset.as<IRowsetInfo>()->GetProperties(1, &idSet, &count, &sets));
    ASSERT_EQ(1u, count);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&sets[0].rgProperties[0].vValue));
    EXPECT_EQ(7, V_I4(&sets[0].rgProperties[1].vValue));
    CoTaskMemFree(sets[0].rgProperties);
    CoTaskMemFree(sets);
}

TEST_F(CommandTest, ColumnsInfoNeedsAPreparedCommand) {
    auto command = c.NewCommand(L"SELECT id, name FROM people");
    DBORDINAL count = 0;
    DBCOLUMNINFO* info = nullptr;
    OLECHAR* names = nullptr;
    EXPECT_EQ(DB_E_NOTPREPARED, command.as<IColumnsInfo>()->GetColumnInfo(&count, &info, &names));
    ASSERT_EQ(S_OK, command.as<ICommandPrepare>()->Prepare(1));
    auto columns = ColumnsOf(command.get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(L"id", columns[0].name);
    EXPECT_EQ(DBTYPE_I4, columns[0].type);
    EXPECT_EQ(L"name", columns[1].name);
    EXPECT_EQ(DBTYPE_WSTR, columns[1].type);
    EXPECT_EQ(50u, columns[1].size);
}

TEST_F(CommandTest, PrepareRejectsBadSql) {
    auto command = c.NewCommand(L"SELEKT nothing");
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, command.as<ICommandPrepare>()->Prepare(1));
}

TEST_F(CommandTest, CommandKnowsItsSessionAndTheRowsetItsCommand) {
    auto command = c.NewCommand(L"SELECT * FROM people");
    ComPtr<IUnknown> session;
    ASSERT_EQ(S_OK, command->GetDBSession(IID_IUnknown, session.put()));
    EXPECT_EQ(c.session.as<IUnknown>().get(), session.get());
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, command->Execute(nullptr, IID_IRowset, nullptr, nullptr, rowset.put_unknown()));
    ComPtr<IUnknown> creator;
    ASSERT_EQ(S_OK, rowset.as<IRowsetInfo>()->GetSpecification(IID_IUnknown, creator.put()));
    EXPECT_EQ(command.as<IUnknown>().get(), creator.get());
}

TEST_F(CommandTest, ParametersWithoutValuesAreRefused) {
    EXPECT_EQ(DB_E_PARAMNOTOPTIONAL, c.TryExecute(L"SELECT * FROM people WHERE id = ?"));
}

TEST_F(CommandTest, OpenRowsetReadsATableByName) {
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<LPOLESTR>(L"PEOPLE");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(3u, columns.size());  // the rowid used to find rows again stays hidden
    EXPECT_EQ(L"id", columns[0].name);
    EXPECT_EQ(3u, ReadAllAsText(rowset.get()).size());
}

TEST_F(CommandTest, OpenRowsetOfAMissingTableFailsWithNoTable) {
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<LPOLESTR>(L"nobody");
    ComPtr<IRowset> rowset;
    EXPECT_EQ(DB_E_NOTABLE, c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"42S02", errors[0].sqlState);
}

}  // namespace

namespace {

using namespace zel::test;

TEST(CommandDescription, APreparedStatementWithoutRowsDescribesNoColumns) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    c.Run(L"CREATE TABLE t (a INTEGER)");
    auto command = c.NewCommand(L"INSERT INTO t VALUES (1)");
    ASSERT_EQ(S_OK, command.as<ICommandPrepare>()->Prepare(1));
    EXPECT_TRUE(ColumnsOf(command.get()).empty());
    EXPECT_EQ(L"0", ReadAllAsText(c.Query(L"SELECT count(*) FROM t").get())[0][0]);  // describing ran nothing
}

}  // namespace

namespace {

using zel::ComPtr;
using namespace zel::test;

TEST(CommandState, TextAndPropertiesCannotChangeWhileARowsetIsOpen) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    auto command = c.NewCommand(L"SELECT 1");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, command->Execute(nullptr, IID_IRowset, nullptr, nullptr, rowset.put_unknown()));
    EXPECT_EQ(DB_E_OBJECTOPEN, command->SetCommandText(DBGUID_DEFAULT, L"SELECT 2"));
    ServerRowsetProperties server;
    EXPECT_EQ(DB_E_OBJECTOPEN, command.as<ICommandProperties>()->SetProperties(1, &server.set));
    rowset.reset();
    EXPECT_EQ(S_OK, command->SetCommandText(DBGUID_DEFAULT, L"SELECT 2"));
    EXPECT_EQ(S_OK, command.as<ICommandProperties>()->SetProperties(1, &server.set));
}

}  // namespace
