// ZelOdbc in process, in both bitnesses, on the throwaway PostgreSQL cluster of the ODBC tests
// (its connection string in ZEL_PG_DIR/connection.txt): what a consumer sees through OLE DB
// alone, beyond what the server shows: property values, error records with the driver's
// SQLSTATE, accessors and conversions, scrolling, long values, transactions, schema rowsets and
// table definitions. Each test works in tables of its own, dropped first.
#include <windows.h>
#include <oledb.h>
#include <oledberr.h>
#include <transact.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "common/CoTaskMem.h"
#include "common/IJetCompact.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"
#include "tests/provider/ProviderTestSupport.h"
#include "tests/provider/SchemaRowsetReader.h"

namespace zel::test {
namespace {

constexpr CLSID kOdbcClsid = {0x84ac49c0, 0xb098, 0x45fd, {0xb0, 0x26, 0x21, 0xc5, 0xa5, 0x6f, 0x5f, 0xa9}};

// Registers the ZelOdbc.dll beside the test program, as the suite's first step.
class OdbcProviderEnvironment : public testing::Environment {
public:
    void SetUp() override { RegisterProviderBesideProgram(L"ZelOdbc.dll"); }
};

const testing::Environment* const g_environment = testing::AddGlobalTestEnvironment(new OdbcProviderEnvironment);

// The cluster's ODBC connection string; empty (and the test fails) when the cluster is missing.
std::wstring ClusterConnectionString() {
    wchar_t dir[1024];
    DWORD n = GetEnvironmentVariableW(L"ZEL_PG_DIR", dir, static_cast<DWORD>(std::size(dir)));
    if (n == 0 || n >= std::size(dir)) return L"";
    std::wstring file = L"Z:" + std::wstring(dir, n) + L"/connection.txt";
    for (wchar_t& c : file)
        if (c == L'/') c = L'\\';
    HANDLE h = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return L"";
    char buffer[2048];
    DWORD read = 0;
    ReadFile(h, buffer, sizeof buffer - 1, &read, nullptr);
    CloseHandle(h);
    std::wstring text(buffer, buffer + read);
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r')) text.pop_back();
    return text;
}

std::wstring InitString(const std::wstring& odbc) {
    return L"Provider=ZelOdbc.OLEDB.1;Extended Properties=\"" + odbc + L"\"";
}

class OdbcProviderTest : public testing::Test {
protected:
    void SetUp() override {
        m_odbc = ClusterConnectionString();
        ASSERT_FALSE(m_odbc.empty()) << "no cluster: ZEL_PG_DIR/connection.txt is missing (fixture pg_cluster)";
        m_c = Connection::Open(InitString(m_odbc));
        ASSERT_TRUE(m_c.session);
    }

    // Runs a statement that may fail (DROP TABLE IF EXISTS gives a notice, not an error).
    void Drop(const std::wstring& table) { m_c.Run(L"DROP TABLE IF EXISTS " + table); }

    std::wstring m_odbc;
    Connection m_c;
};

TEST_F(OdbcProviderTest, DataSourceReportsTheServerAndRefusesWhatIsNotAFile) {
    Variant dbms = GetDataSourceProperty(m_c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DBMSNAME);
    ASSERT_EQ(VT_BSTR, dbms.vt());
    EXPECT_EQ(L"PostgreSQL", std::wstring(V_BSTR(dbms.get())));
    Variant catalog = GetDataSourceProperty(m_c.dataSource.get(), DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG);
    ASSERT_EQ(VT_BSTR, catalog.vt());
    EXPECT_EQ(L"zeltest", std::wstring(V_BSTR(catalog.get())));
    Variant file = GetDataSourceProperty(m_c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERFILENAME);
    ASSERT_EQ(VT_BSTR, file.vt());
    EXPECT_EQ(L"ZelOdbc.dll", std::wstring(V_BSTR(file.get())));

    CLSID clsid{};
    EXPECT_EQ(S_OK, m_c.dataSource.as<IPersist>()->GetClassID(&clsid));
    EXPECT_TRUE(clsid == kOdbcClsid);

    EXPECT_EQ(DB_E_ALREADYINITIALIZED, m_c.dataSource->Initialize());
    EXPECT_EQ(DB_E_OBJECTOPEN, m_c.dataSource->Uninitialize());

    auto admin = m_c.dataSource.as<IDBDataSourceAdmin>();
    ASSERT_TRUE(admin);
    EXPECT_EQ(DB_E_NOTSUPPORTED, admin->DestroyDataSource());
    auto records = TakeErrorRecords();
    ASSERT_EQ(1u, records.size());
    EXPECT_NE(std::wstring::npos, records[0].description.find(L"does not create, delete or change databases"));
    EXPECT_EQ(L"ZelOdbc OLE DB Provider", records[0].source);
    EXPECT_FALSE(m_c.dataSource.try_as<IJetCompact>());
}

TEST_F(OdbcProviderTest, ConnectionFailuresCarryTheDriversSqlState) {
    // Nothing listens on port 1 of the loopback address.
    ComPtr<IDBInitialize> noServer =
        GetDataSource(InitString(L"DRIVER={PostgreSQL Unicode};SERVER=127.0.0.1;PORT=1;DATABASE=zeltest;UID=postgres;"));
    ASSERT_TRUE(noServer);
    EXPECT_EQ(DB_E_CANNOTCONNECT, noServer->Initialize());
    auto records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(L"08001", records[0].sqlState);
    EXPECT_FALSE(records[0].description.empty());

    ComPtr<IDBInitialize> noDsn = GetDataSource(L"Provider=ZelOdbc.OLEDB.1;Data Source=ZelNoSuchDsn");
    ASSERT_TRUE(noDsn);
    EXPECT_EQ(DB_E_CANNOTCONNECT, noDsn->Initialize());
    records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(L"IM002", records[0].sqlState);

    ComPtr<IDBInitialize> nothing = GetDataSource(L"Provider=ZelOdbc.OLEDB.1");
    ASSERT_TRUE(nothing);
    EXPECT_EQ(DB_E_CANNOTCONNECT, nothing->Initialize());
    records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_NE(std::wstring::npos, records[0].description.find(L"No ODBC data source was given"));
}

TEST_F(OdbcProviderTest, StatementErrorsMapToOleDbResultsWithSqlState) {
    struct Case {
        const wchar_t* sql;
        HRESULT hr;
        const wchar_t* state;
    };
    Drop(L"op_dup");
    m_c.Run(L"CREATE TABLE op_dup (id integer PRIMARY KEY)");
    m_c.Run(L"INSERT INTO op_dup VALUES (1)");
    const Case cases[] = {
        {L"SELECT * FROM op_no_such_table", DB_E_NOTABLE, L"42P01"},
        {L"SELEKT 1", DB_E_ERRORSINCOMMAND, L"42601"},
        {L"INSERT INTO op_dup VALUES (1)", DB_E_INTEGRITYVIOLATION, L"23505"},
        {L"SELECT 1/0", DB_E_DATAOVERFLOW, L"22012"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.sql)));
        ComPtr<IRowset> rowset;
        EXPECT_EQ(c.hr, m_c.TryExecute(c.sql, &rowset));
        EXPECT_FALSE(rowset);
        auto records = TakeErrorRecords();
        ASSERT_FALSE(records.empty());
        EXPECT_EQ(c.state, records[0].sqlState);
        EXPECT_NE(std::wstring::npos, records[0].description.find(L"Statement: ")) << "the statement is named";
    }
    // The connection keeps working after every failure.
    EXPECT_EQ(1, m_c.Run(L"INSERT INTO op_dup VALUES (2)"));
    Drop(L"op_dup");
}

TEST_F(OdbcProviderTest, RowsReadInEveryTypeAndScrollBack) {
    Drop(L"op_types");
    m_c.Run(L"CREATE TABLE op_types (id integer, big bigint, r double precision, d numeric(10,2), "
            L"v varchar(20), t text, b bytea, dt date, ts timestamp)");
    EXPECT_EQ(2, m_c.Run(L"INSERT INTO op_types VALUES (1, 9000000000, 2.5, 1234.56, 'Grüße', 'long', "
                         L"'\\x00ff10', '2024-02-29', '2024-02-29 13:45:30'), "
                         L"(2, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)"));
    ComPtr<IRowset> rowset = m_c.Query(L"SELECT * FROM op_types ORDER BY id");
    ASSERT_TRUE(rowset);

    const auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(9u, columns.size());
    EXPECT_EQ(DBTYPE_I4, columns[0].type);
    EXPECT_EQ(DBTYPE_I8, columns[1].type);
    EXPECT_EQ(DBTYPE_R8, columns[2].type);
    EXPECT_EQ(DBTYPE_DECIMAL, columns[3].type);
    EXPECT_EQ(10, columns[3].precision);
    EXPECT_EQ(2, columns[3].scale);
    EXPECT_EQ(DBTYPE_WSTR, columns[4].type);
    EXPECT_EQ(20u, columns[4].size);
    EXPECT_EQ(DBTYPE_BYTES, columns[6].type);
    EXPECT_EQ(DBTYPE_DATE, columns[7].type);
    EXPECT_EQ(DBTYPE_DATE, columns[8].type);

    const auto rows = ReadAllAsText(rowset.get());
    ASSERT_EQ(2u, rows.size());
    const std::vector<std::wstring> first = {L"1",         L"9000000000", L"2.5",  L"1234.56",  L"Grüße",
                                             L"long",      L"00FF10",     L"2024-02-29", L"2024-02-29 13:45:30"};
    EXPECT_EQ(first, rows[0]);
    for (size_t i = 1; i < rows[1].size(); ++i) EXPECT_EQ(L"<null>", rows[1][i]) << "column " << i + 1;

    // The forward-only cursor was read into the row cache: the rowset scrolls back.
    HRESULT hr = E_FAIL;
    EXPECT_EQ(L"2", FetchFirstColumn(rowset.get(), -1, 1, &hr));
    EXPECT_EQ(S_OK, hr);
    EXPECT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"1", FetchFirstColumn(rowset.get(), 0, 1, &hr));

    // Natural bindings: the decimal, the date and the 64-bit integer.
    EXPECT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rowsOut = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rowsOut));
    ValueRead big = ReadValue(rowset.get(), row, 2, DBTYPE_I8);
    EXPECT_EQ(DBSTATUS_S_OK, big.status);
    EXPECT_EQ(9000000000LL, big.as<LONGLONG>());
    ValueRead decimal = ReadValue(rowset.get(), row, 4, DBTYPE_DECIMAL);
    EXPECT_EQ(DBSTATUS_S_OK, decimal.status);
    DECIMAL expected{};
    ASSERT_EQ(S_OK, VarDecFromStr(const_cast<OLECHAR*>(L"1234.56"), 0x0409, 0, &expected));
    const DECIMAL got = decimal.as<DECIMAL>();
    EXPECT_EQ(VARCMP_EQ, VarDecCmp(const_cast<DECIMAL*>(&got), &expected));
    ValueRead date = ReadValue(rowset.get(), row, 9, DBTYPE_DATE);
    EXPECT_EQ(DBSTATUS_S_OK, date.status);
    EXPECT_NEAR(45351.573263888889, date.as<DATE>(), 1e-6);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    Drop(L"op_types");
}

TEST_F(OdbcProviderTest, LongValuesComeWholeWhateverTheirLength) {
    Drop(L"op_long");
    m_c.Run(L"CREATE TABLE op_long (t text, b bytea)");
    m_c.Run(L"INSERT INTO op_long VALUES (repeat('abcdefghij', 3000) || 'é', decode(repeat('00ff', 9000), 'hex'))");
    ComPtr<IRowset> rowset = m_c.Query(L"SELECT t, b, length(t) AS n FROM op_long");
    ASSERT_TRUE(rowset);
    const auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(3u, columns.size());
    EXPECT_TRUE(columns[0].flags & DBCOLUMNFLAGS_ISLONG);
    EXPECT_TRUE(columns[1].flags & DBCOLUMNFLAGS_ISLONG);

    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rowsOut = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rowsOut));
    ValueRead text = ReadValue(rowset.get(), row, 1, DBTYPE_WSTR, 80000);
    EXPECT_EQ(DBSTATUS_S_OK, text.status);
    ASSERT_EQ(30001u * sizeof(wchar_t), text.length);
    const auto* chars = reinterpret_cast<const wchar_t*>(text.value.data());
    EXPECT_EQ(L'a', chars[0]);
    EXPECT_EQ(L'j', chars[29999]);
    EXPECT_EQ(L'é', chars[30000]);
    ValueRead bytes = ReadValue(rowset.get(), row, 2, DBTYPE_BYTES, 20000);
    EXPECT_EQ(DBSTATUS_S_OK, bytes.status);
    ASSERT_EQ(18000u, bytes.length);
    EXPECT_EQ(0x00, bytes.value[0]);
    EXPECT_EQ(0xFF, bytes.value[17999]);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    Drop(L"op_long");
}

// psqlODBC gives a varchar without a length its MaxVarcharSize; sessions connect with the
// driver's largest, so such a value is long text read whole, and varchar(300) keeps its length.
TEST_F(OdbcProviderTest, VarcharsWithoutALengthAreNotCut) {
    Drop(L"op_varchar");
    m_c.Run(L"CREATE TABLE op_varchar (free varchar, sized varchar(300))");
    m_c.Run(L"INSERT INTO op_varchar VALUES (repeat('f', 5000), repeat('s', 300))");
    ComPtr<IRowset> rowset = m_c.Query(L"SELECT free, sized FROM op_varchar");
    ASSERT_TRUE(rowset);
    const auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(DBTYPE_WSTR, columns[0].type);
    EXPECT_TRUE(columns[0].flags & DBCOLUMNFLAGS_ISLONG);
    EXPECT_EQ(DBTYPE_WSTR, columns[1].type);
    EXPECT_FALSE(columns[1].flags & DBCOLUMNFLAGS_ISLONG);
    EXPECT_EQ(300u, columns[1].size);

    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rowsOut = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rowsOut));
    ValueRead free = ReadValue(rowset.get(), row, 1, DBTYPE_WSTR, 20000);
    EXPECT_EQ(DBSTATUS_S_OK, free.status);
    EXPECT_EQ(5000u * sizeof(wchar_t), free.length);
    ValueRead sized = ReadValue(rowset.get(), row, 2, DBTYPE_WSTR, 2000);
    EXPECT_EQ(DBSTATUS_S_OK, sized.status);
    EXPECT_EQ(300u * sizeof(wchar_t), sized.length);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    Drop(L"op_varchar");
}

TEST_F(OdbcProviderTest, TransactionsCommitAndRollBack) {
    Drop(L"op_tx");
    m_c.Run(L"CREATE TABLE op_tx (id integer)");
    auto tx = m_c.session.as<ITransactionLocal>();
    ASSERT_TRUE(tx);
    EXPECT_EQ(XACT_E_NOTRANSACTION, tx->Commit(FALSE, XACTTC_SYNC, 0));
    ULONG level = 0;
    ASSERT_EQ(S_OK, tx->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, &level));
    EXPECT_EQ(1u, level);
    EXPECT_EQ(XACT_E_XTIONEXISTS, tx->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    m_c.Run(L"INSERT INTO op_tx VALUES (1)");
    EXPECT_EQ(S_OK, tx->Abort(nullptr, FALSE, FALSE));
    ASSERT_EQ(S_OK, tx->StartTransaction(ISOLATIONLEVEL_SERIALIZABLE, 0, nullptr, nullptr));
    XACTTRANSINFO info{};
    EXPECT_EQ(S_OK, tx->GetTransactionInfo(&info));
    EXPECT_EQ(ISOLATIONLEVEL_SERIALIZABLE, info.isoLevel);
    m_c.Run(L"INSERT INTO op_tx VALUES (2)");
    EXPECT_EQ(S_OK, tx->Commit(FALSE, XACTTC_SYNC, 0));
    const auto rows = ReadAllAsText(m_c.Query(L"SELECT id FROM op_tx").get());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"2", rows[0][0]);
    Drop(L"op_tx");
}

TEST_F(OdbcProviderTest, CommandsPrepareDescribeAndRefuseParameters) {
    auto command = m_c.NewCommand(L"SELECT 1 AS one, 'x'::varchar(5) AS letter");
    ASSERT_TRUE(command);
    DBORDINAL count = 0;
    CoTaskMem<DBCOLUMNINFO> info;
    CoTaskMem<OLECHAR> names;
    EXPECT_EQ(DB_E_NOTPREPARED, command.as<IColumnsInfo>()->GetColumnInfo(&count, info.put(), names.put()));
    ASSERT_EQ(S_OK, command.as<ICommandPrepare>()->Prepare(1));
    const auto columns = ColumnsOf(command.get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_EQ(L"one", columns[0].name);
    EXPECT_EQ(DBTYPE_I4, columns[0].type);
    EXPECT_EQ(L"letter", columns[1].name);

    auto bad = m_c.NewCommand(L"SELEKT");
    EXPECT_EQ(DB_E_ERRORSINCOMMAND, bad.as<ICommandPrepare>()->Prepare(1));
    TakeErrorRecords();

    DBPARAMS params{};
    int value = 1;
    params.pData = &value;
    params.cParamSets = 1;
    DBROWCOUNT affected = 0;
    ComPtr<IUnknown> rowset;
    EXPECT_EQ(DB_E_PARAMNOTOPTIONAL, command->Execute(nullptr, IID_IRowset, &params, &affected, rowset.put()));
    auto records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(L"07002", records[0].sqlState);
}

TEST_F(OdbcProviderTest, SchemaRowsetsComeFromTheCatalogFunctions) {
    Drop(L"op_cat_child");
    Drop(L"op_cat");
    m_c.Run(L"CREATE TABLE op_cat (id integer PRIMARY KEY, name varchar(30) NOT NULL, price numeric(8,2))");
    m_c.Run(L"CREATE INDEX op_cat_name ON op_cat (name)");
    auto schemas = m_c.session.as<IDBSchemaRowset>();
    ASSERT_TRUE(schemas);

    auto tables = ReadSchema(schemas.get(), DBSCHEMA_TABLES, Restrict({{}, {}, L"op_cat"}));
    ASSERT_EQ(1u, tables.size());
    EXPECT_EQ(L"public", tables[0].Text(2));
    EXPECT_EQ(L"op_cat", tables[0].Text(3));
    EXPECT_EQ(L"TABLE", tables[0].Text(4));

    auto columns = ReadSchema(schemas.get(), DBSCHEMA_COLUMNS, Restrict({{}, {}, L"op_cat"}));
    ASSERT_EQ(3u, columns.size());
    EXPECT_EQ(L"id", columns[0].Text(4));
    EXPECT_EQ(1, columns[0].Number(7));
    EXPECT_EQ(DBTYPE_I4, columns[0].Number(12));
    EXPECT_EQ(L"name", columns[1].Text(4));
    EXPECT_FALSE(columns[1].Flag(11)) << "NOT NULL";
    EXPECT_EQ(30, columns[1].Number(14));
    EXPECT_EQ(DBTYPE_DECIMAL, columns[2].Number(12));
    EXPECT_EQ(8, columns[2].Number(16));
    EXPECT_EQ(2, columns[2].Number(17));

    auto keys = ReadSchema(schemas.get(), DBSCHEMA_PRIMARY_KEYS, Restrict({{}, {}, L"op_cat"}));
    ASSERT_EQ(1u, keys.size());
    EXPECT_EQ(L"id", keys[0].Text(4));
    EXPECT_EQ(L"op_cat_pkey", keys[0].Text(8));

    auto indexes = ReadSchema(schemas.get(), DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"op_cat"}));
    ASSERT_EQ(2u, indexes.size());
    EXPECT_EQ(L"op_cat_pkey", indexes[0].Text(6)) << "unique indexes first";
    EXPECT_TRUE(indexes[0].Flag(7));
    EXPECT_TRUE(indexes[0].Flag(8));
    EXPECT_EQ(L"op_cat_name", indexes[1].Text(6));
    EXPECT_FALSE(indexes[1].Flag(7));
    EXPECT_EQ(L"name", indexes[1].Text(18));

    auto types = ReadSchema(schemas.get(), DBSCHEMA_PROVIDER_TYPES, Restrict({UnsignedShort(DBTYPE_I4)}));
    bool int4 = false;
    for (const auto& t : types) int4 = int4 || t.Text(1) == L"int4";
    EXPECT_TRUE(int4) << "PostgreSQL's int4 is among the I4 types";
    Drop(L"op_cat");
}

TEST_F(OdbcProviderTest, TablesAreCreatedWithTheDriversTypesAndReadBack) {
    Drop(L"op_made");
    auto definition = m_c.session.as<ITableDefinition>();
    ASSERT_TRUE(definition);

    DBPROP notNull[1] = {BoolProperty(DBPROP_COL_NULLABLE, false)};
    DBPROP key[2] = {BoolProperty(DBPROP_COL_NULLABLE, false), BoolProperty(DBPROP_COL_PRIMARYKEY, true)};
    DBPROPSET keySet{key, 2, DBPROPSET_COLUMN};
    DBPROPSET notNullSet{notNull, 1, DBPROPSET_COLUMN};
    DBCOLUMNDESC descs[3]{};
    const wchar_t* names[3] = {L"id", L"label", L"amount"};
    for (int i = 0; i < 3; ++i) {
        descs[i].dbcid.eKind = DBKIND_NAME;
        descs[i].dbcid.uName.pwszName = const_cast<wchar_t*>(names[i]);
    }
    descs[0].wType = DBTYPE_I4;
    descs[0].cPropertySets = 1;
    descs[0].rgPropertySets = &keySet;
    descs[1].wType = DBTYPE_WSTR;
    descs[1].ulColumnSize = 30;
    descs[1].cPropertySets = 1;
    descs[1].rgPropertySets = &notNullSet;
    descs[2].wType = DBTYPE_NUMERIC;
    descs[2].bPrecision = 10;
    descs[2].bScale = 2;
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<wchar_t*>(L"op_made");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, &table, 3, descs, IID_NULL, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(DB_E_DUPLICATETABLEID,
              definition->CreateTable(nullptr, &table, 3, descs, IID_NULL, 0, nullptr, nullptr, nullptr));
    TakeErrorRecords();

    // PostgreSQL itself says what was made.
    const auto made = ReadAllAsText(
        m_c.Query(L"SELECT column_name, data_type, coalesce(character_maximum_length, numeric_precision), "
                  L"is_nullable FROM information_schema.columns WHERE table_name = 'op_made' ORDER BY ordinal_position")
            .get());
    ASSERT_EQ(3u, made.size());
    EXPECT_EQ((std::vector<std::wstring>{L"id", L"integer", L"32", L"NO"}), made[0]);
    EXPECT_EQ((std::vector<std::wstring>{L"label", L"character varying", L"30", L"NO"}), made[1]);
    EXPECT_EQ((std::vector<std::wstring>{L"amount", L"numeric", L"10", L"YES"}), made[2]);

    auto creation = m_c.session.as<ITableCreation>();
    DBORDINAL count = 0;
    DBCOLUMNDESC* read = nullptr;
    ULONG constraintCount = 0;
    DBCONSTRAINTDESC* constraints = nullptr;
    OLECHAR* strings = nullptr;
    ASSERT_EQ(S_OK, creation->GetTableDefinition(&table, &count, &read, nullptr, nullptr, &constraintCount,
                                                  &constraints, &strings));
    ASSERT_EQ(3u, count);
    EXPECT_EQ(std::wstring(L"id"), read[0].dbcid.uName.pwszName);
    EXPECT_EQ(DBTYPE_I4, read[0].wType);
    EXPECT_EQ(DBTYPE_WSTR, read[1].wType);
    EXPECT_EQ(DBTYPE_DECIMAL, read[2].wType);
    EXPECT_EQ(10, read[2].bPrecision);
    EXPECT_EQ(2, read[2].bScale);
    ASSERT_EQ(1u, constraintCount);
    EXPECT_EQ(DBCONSTRAINTTYPE_PRIMARYKEY, constraints[0].ConstraintType);
    ASSERT_EQ(1u, constraints[0].cColumns);
    EXPECT_EQ(std::wstring(L"id"), constraints[0].rgColumnList[0].uName.pwszName);
    // The definition's memory is the caller's, as TableDefinitionOutput says.
    for (DBORDINAL i = 0; i < count; ++i) {
        for (ULONG s = 0; s < read[i].cPropertySets; ++s) {
            for (ULONG p = 0; p < read[i].rgPropertySets[s].cProperties; ++p)
                VariantClear(&read[i].rgPropertySets[s].rgProperties[p].vValue);
            CoTaskMemFree(read[i].rgPropertySets[s].rgProperties);
        }
        CoTaskMemFree(read[i].rgPropertySets);
    }
    CoTaskMemFree(read);
    for (ULONG i = 0; i < constraintCount; ++i) {
        CoTaskMemFree(constraints[i].pConstraintID);
        CoTaskMemFree(constraints[i].pReferencedTableID);
        CoTaskMemFree(constraints[i].rgColumnList);
        CoTaskMemFree(constraints[i].rgForeignKeyColumnList);
    }
    CoTaskMemFree(constraints);
    CoTaskMemFree(strings);

    DBCOLUMNDESC extra = descs[2];
    EXPECT_EQ(DB_E_NOTSUPPORTED, definition->AddColumn(&table, &extra, nullptr));
    TakeErrorRecords();
    EXPECT_EQ(S_OK, definition->DropTable(&table));
    EXPECT_EQ(DB_E_NOTABLE, definition->DropTable(&table));
    auto records = TakeErrorRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(L"42P01", records[0].sqlState);
}

TEST_F(OdbcProviderTest, OpenRowsetReadsATableByName) {
    Drop(L"op_open");
    m_c.Run(L"CREATE TABLE op_open (id integer, name varchar(10))");
    m_c.Run(L"INSERT INTO op_open VALUES (1, 'one'), (2, 'two')");
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<wchar_t*>(L"op_open");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, m_c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    EXPECT_EQ(2u, ReadAllAsText(rowset.get()).size());
    EXPECT_FALSE(rowset.try_as<IRowsetChange>()) << "ZelOdbc's rowsets are read-only";
    rowset.reset();
    table.uName.pwszName = const_cast<wchar_t*>(L"op_missing");
    EXPECT_EQ(DB_E_NOTABLE,
              m_c.session->OpenRowset(nullptr, &table, nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    TakeErrorRecords();
    Drop(L"op_open");
}

}  // namespace
}  // namespace zel::test
