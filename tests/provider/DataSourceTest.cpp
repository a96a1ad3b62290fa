// The data source object as a client obtains it from IDataInitialize: initialization from
// connection strings (Jet keywords, several provider-string entries), read mode, the
// initialization and data-source information properties.
#include <windows.h>
#include <msdasc.h>

#include <cwchar>

#include <gtest/gtest.h>

#include "ProviderTestSupport.h"
#include "ZelVersion.h"
#include "common/CoTaskMem.h"

namespace {

using zel::Bstr;
using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

const CLSID kProviderClsid = {0x6ed3cdc0, 0xcb85, 0x478b, {0x86, 0xc2, 0xac, 0xc4, 0x37, 0xdd, 0xd2, 0x88}};

std::wstring StringProperty(IUnknown* source, REFGUID set, DBPROPID id) {
    Variant v = GetDataSourceProperty(source, set, id);
    return v.vt() == VT_BSTR ? std::wstring(V_BSTR(v.get()), SysStringLen(V_BSTR(v.get()))) : L"<not a string>";
}

DBPROP MakeProperty(DBPROPID id, const Variant& value, DBPROPOPTIONS options = DBPROPOPTIONS_REQUIRED) {
    DBPROP p{};
    p.dwPropertyID = id;
    p.dwOptions = options;
    p.colid = DB_NULLID;
    VariantInit(&p.vValue);
    VariantCopy(&p.vValue, const_cast<VARIANT*>(value.get()));
    return p;
}

TEST(DataSource, ProgIdGivesTheProviderObjectUninitialized) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    CLSID clsid{};
    ASSERT_EQ(S_OK, source.as<IPersist>()->GetClassID(&clsid));
    EXPECT_TRUE(clsid == kProviderClsid);
    ComPtr<IUnknown> session;
    EXPECT_EQ(E_UNEXPECTED, source.as<IDBCreateSession>()->CreateSession(nullptr, IID_IOpenRowset, session.put()));
}

TEST(DataSource, InitializeOpensAnExistingEmptyFileAndReportsIt) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    IUnknown* s = c.dataSource.get();
    EXPECT_EQ(db.path(), StringProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
    Variant status = GetDataSourceProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS);
    EXPECT_EQ(VT_I4, status.vt());
    EXPECT_EQ(DBPROPVAL_CS_INITIALIZED, V_I4(status.get()));
    Variant readOnly = GetDataSourceProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY);
    EXPECT_EQ(VT_BOOL, readOnly.vt());
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(readOnly.get()));
    EXPECT_EQ(L"SQLite", StringProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_DBMSNAME));
    EXPECT_FALSE(StringProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_DBMSVER).empty());
    EXPECT_EQ(L"ZelLite OLE DB Provider for SQLite", StringProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERFRIENDLYNAME));
    // The provider version is the product version in OLE DB's "##.##.####" form.
    wchar_t providerVersion[32];
    swprintf(providerVersion, 32, L"%02d.%02d.%04d", ZEL_VERSION_MAJOR, ZEL_VERSION_MINOR, ZEL_VERSION_PATCH);
    EXPECT_EQ(providerVersion, StringProperty(s, DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERVER));
    EXPECT_EQ(L"main", StringProperty(s, DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG));
}

TEST(DataSource, DataSourceNameIsTheFullPathOfARelativeName) {
    TempDatabase db;
    wchar_t previous[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(db.directory().c_str()));
    auto c = Connection::Open(std::wstring(L"Provider=") + kProgId + L";Data Source=test.db");
    SetCurrentDirectoryW(previous);
    ASSERT_TRUE(c.session);
    EXPECT_EQ(db.path(), StringProperty(c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

TEST(DataSource, InitializeNeverCreatesAMissingFile) {
    TempDatabase db;
    const std::wstring missing = db.directory() + L"\\missing.db";
    auto source = GetDataSource(std::wstring(L"Provider=") + kProgId + L";Data Source=" + missing);
    ASSERT_TRUE(source);
    EXPECT_EQ(STG_E_FILENOTFOUND, source->Initialize());
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"ZelLite OLE DB Provider", errors[0].source);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(missing));
    EXPECT_EQ(L"08001", errors[0].sqlState);
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(missing.c_str()));
}

TEST(DataSource, AFileThatIsNotADatabaseIsRefused) {
    TempDatabase db;
    HANDLE file = CreateFileW(db.path().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    const char junk[] = "this is a plain text file, certainly not an SQLite database; it is long enough to hold a header.";
    DWORD written = 0;
    WriteFile(file, junk, sizeof(junk), &written, nullptr);
    CloseHandle(file);
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    EXPECT_EQ(DB_E_CANNOTCONNECT, source->Initialize());
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(26, errors[0].nativeError & 0xFF);  // SQLite's "not a database"
}

TEST(DataSource, InitializeTwiceFailsWithAlreadyInitialized) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.dataSource);
    EXPECT_EQ(DB_E_ALREADYINITIALIZED, c.dataSource->Initialize());
}

TEST(DataSource, UninitializeWithAnOpenSessionFailsWithObjectOpen) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    EXPECT_EQ(DB_E_OBJECTOPEN, c.dataSource->Uninitialize());
    c.session.reset();
    EXPECT_EQ(S_OK, c.dataSource->Uninitialize());
    EXPECT_EQ(S_OK, c.dataSource->Initialize());
}

TEST(DataSource, ConnectionStringWithJetKeywordsOpens) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString(
        L"Jet OLEDB:Engine Type=5;Jet OLEDB:Database Password=;Persist Security Info=False;User ID=Admin;"
        L"Mode=Share Deny None;Jet OLEDB:System database=;Locale Identifier=1033"));
    ASSERT_TRUE(c.session);
    c.Run(L"CREATE TABLE t (a INTEGER)");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (1)"));
}

TEST(DataSource, EveryUnknownKeywordIsKeptAsAProviderStringEntry) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString(L"Busy Timeout=250;Jet OLEDB:Engine Type=5"));
    ASSERT_TRUE(source);
    std::wstring text = StringProperty(source.get(), DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING);
    EXPECT_NE(std::wstring::npos, text.find(L"Busy Timeout=250")) << testing::PrintToString(text);
    EXPECT_NE(std::wstring::npos, text.find(L"Jet OLEDB:Engine Type=5")) << testing::PrintToString(text);
    EXPECT_EQ(S_OK, source->Initialize());
}

TEST(DataSource, SeveralProviderStringEntriesInOneCallAreAllParsed) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    DBPROP props[2] = {MakeProperty(DBPROP_INIT_PROVIDERSTRING, Variant(std::wstring_view(L"Busy Timeout=100;"))),
                       MakeProperty(DBPROP_INIT_PROVIDERSTRING, Variant(std::wstring_view(L"Other=1;Third=x")))};
    DBPROPSET set{props, 2, DBPROPSET_DBINIT};
    EXPECT_EQ(S_OK, source.as<IDBProperties>()->SetProperties(1, &set));
    EXPECT_EQ(DBPROPSTATUS_OK, props[0].dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, props[1].dwStatus);
    std::wstring text = StringProperty(source.get(), DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING);
    EXPECT_EQ(L"Busy Timeout=100;Other=1;Third=x", text);
    for (auto& p : props) VariantClear(&p.vValue);
}

TEST(DataSource, AnInvalidBusyTimeoutIsRefusedWithBadValue) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    DBPROP prop = MakeProperty(DBPROP_INIT_PROVIDERSTRING, Variant(std::wstring_view(L"Busy Timeout=soon")));
    DBPROPSET set{&prop, 1, DBPROPSET_DBINIT};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, source.as<IDBProperties>()->SetProperties(1, &set));
    EXPECT_EQ(DBPROPSTATUS_BADVALUE, prop.dwStatus);
    VariantClear(&prop.vValue);
}

TEST(DataSource, InitialCatalogFromTheConnectionStringIsAccepted) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString(L"Initial Catalog=main"));
    EXPECT_TRUE(c.session);
}

TEST(DataSource, PromptIsAcceptedAndNoDialogIsShown) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    Variant prompt = Variant::FromI2(DBPROMPT_COMPLETEREQUIRED);
    DBPROP prop = MakeProperty(DBPROP_INIT_PROMPT, prompt);
    DBPROPSET set{&prop, 1, DBPROPSET_DBINIT};
    EXPECT_EQ(S_OK, source.as<IDBProperties>()->SetProperties(1, &set));
    EXPECT_EQ(S_OK, source->Initialize());
}

TEST(DataSource, InitPropertiesCannotChangeAfterInitialize) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.dataSource);
    DBPROP prop = MakeProperty(DBPROP_INIT_DATASOURCE, Variant(std::wstring_view(L"C:\\other.db")));
    DBPROPSET set{&prop, 1, DBPROPSET_DBINIT};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, c.dataSource.as<IDBProperties>()->SetProperties(1, &set));
    EXPECT_EQ(DBPROPSTATUS_NOTSETTABLE, prop.dwStatus);
    VariantClear(&prop.vValue);
}

TEST(DataSource, ReadModeOpensTheFileReadOnly) {
    TempDatabase db;
    {
        auto writer = Connection::Open(db.ConnectionString());
        writer.Run(L"CREATE TABLE t (a INTEGER)");
        writer.Run(L"INSERT INTO t VALUES (7)");
    }
    auto c = Connection::Open(db.ConnectionString(L"Mode=Read"));
    ASSERT_TRUE(c.session);
    Variant readOnly = GetDataSourceProperty(c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(readOnly.get()));
    auto rows = ReadAllAsText(c.Query(L"SELECT a FROM t").get());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"7", rows[0][0]);
    EXPECT_EQ(DB_E_READONLY, c.TryExecute(L"INSERT INTO t VALUES (8)"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(8, errors[0].nativeError & 0xFF);  // SQLite's "read-only"
}

TEST(DataSource, AFileMarkedReadOnlyOpensReadOnlyInEveryMode) {
    TempDatabase db;
    {
        auto writer = Connection::Open(db.ConnectionString());
        writer.Run(L"CREATE TABLE t (a INTEGER)");
        writer.Run(L"INSERT INTO t VALUES (7)");
    }
    ASSERT_TRUE(SetFileAttributesW(db.path().c_str(), FILE_ATTRIBUTE_READONLY));
    for (const wchar_t* mode : {L"", L"Mode=ReadWrite"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(mode)));
        auto c = Connection::Open(db.ConnectionString(mode));
        ASSERT_TRUE(c.session);
        Variant readOnly = GetDataSourceProperty(c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY);
        EXPECT_EQ(VARIANT_TRUE, V_BOOL(readOnly.get()));
        EXPECT_EQ(L"7", ReadAllAsText(c.Query(L"SELECT a FROM t").get()).at(0).at(0));
        EXPECT_EQ(DB_E_READONLY, c.TryExecute(L"INSERT INTO t VALUES (8)"));
        TakeErrorRecords();
    }
    ASSERT_TRUE(SetFileAttributesW(db.path().c_str(), FILE_ATTRIBUTE_NORMAL));
    auto c = Connection::Open(db.ConnectionString());
    EXPECT_EQ(L"1", ReadAllAsText(c.Query(L"SELECT COUNT(*) FROM t").get()).at(0).at(0)) << "a row was written";
}

TEST(DataSource, ReadWriteModeIsWritable) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString(L"Mode=ReadWrite"));
    ASSERT_TRUE(c.session);
    c.Run(L"CREATE TABLE t (a INTEGER)");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (1)"));
}

TEST(DataSource, PropertyInfoDescribesInitPropertiesByTheirKeywords) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    DBPROPIDSET all{nullptr, 0, DBPROPSET_DBINIT};
    ULONG count = 0;
    DBPROPINFOSET* sets = nullptr;
    OLECHAR* text = nullptr;
    ASSERT_EQ(S_OK, source.as<IDBProperties>()->GetPropertyInfo(1, &all, &count, &sets, &text));
    ASSERT_EQ(1u, count);
    auto description = [&](DBPROPID id) -> std::wstring {
        for (ULONG i = 0; i < sets[0].cPropertyInfos; ++i)
            if (sets[0].rgPropertyInfos[i].dwPropertyID == id) return sets[0].rgPropertyInfos[i].pwszDescription;
        return L"<absent>";
    };
    EXPECT_EQ(L"Data Source", description(DBPROP_INIT_DATASOURCE));
    EXPECT_EQ(L"Extended Properties", description(DBPROP_INIT_PROVIDERSTRING));
    EXPECT_EQ(L"Mode", description(DBPROP_INIT_MODE));
    EXPECT_EQ(L"Prompt", description(DBPROP_INIT_PROMPT));
    EXPECT_EQ(L"Window Handle", description(DBPROP_INIT_HWND));
    EXPECT_EQ(L"Locale Identifier", description(DBPROP_INIT_LCID));
    EXPECT_EQ(L"OLE DB Services", description(DBPROP_INIT_OLEDBSERVICES));
    for (ULONG i = 0; i < count; ++i) {
        for (ULONG p = 0; p < sets[i].cPropertyInfos; ++p) VariantClear(&sets[i].rgPropertyInfos[p].vValues);
        CoTaskMemFree(sets[i].rgPropertyInfos);
    }
    CoTaskMemFree(sets);
    CoTaskMemFree(text);
}

TEST(DataSource, InitializationStringNamesTheProviderAndTheFile) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    auto init = zel::CreateInstance<IDataInitialize>(CLSID_MSDAINITIALIZE);
    LPWSTR text = nullptr;
    ASSERT_EQ(S_OK, init->GetInitializationString(source.get(), TRUE, &text));
    std::wstring s = text;
    CoTaskMemFree(text);
    EXPECT_NE(std::wstring::npos, s.find(L"Provider=ZelLite.OLEDB.1")) << testing::PrintToString(s);
    EXPECT_NE(std::wstring::npos, s.find(L"Data Source=" + db.path())) << testing::PrintToString(s);
}

TEST(DataSource, UnknownPropertyIdsAreReportedNotSupported) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    DBPROPID ids[2] = {DBPROP_INIT_DATASOURCE, 0x7777};
    DBPROPIDSET idSet{ids, 2, DBPROPSET_DBINIT};
    ULONG count = 0;
    DBPROPSET* sets = nullptr;
    EXPECT_EQ(DB_S_ERRORSOCCURRED, source.as<IDBProperties>()->GetProperties(1, &idSet, &count, &sets));
    ASSERT_EQ(1u, count);
    ASSERT_EQ(2u, sets[0].cProperties);
    EXPECT_EQ(DBPROPSTATUS_OK, sets[0].rgProperties[0].dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, sets[0].rgProperties[1].dwStatus);
    for (ULONG p = 0; p < sets[0].cProperties; ++p) VariantClear(&sets[0].rgProperties[p].vValue);
    CoTaskMemFree(sets[0].rgProperties);
    CoTaskMemFree(sets);
}

TEST(DataSource, SessionKnowsItsDataSource) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    ComPtr<IUnknown> fromSession;
    ASSERT_EQ(S_OK, c.session.as<IGetDataSource>()->GetDataSource(IID_IUnknown, fromSession.put()));
    EXPECT_EQ(c.dataSource.as<IUnknown>().get(), fromSession.get());
}

TEST(DataSource, AFileWithANonAsciiNameOpens) {
    TempDatabase db(L"d\u00e9j\u00e0-\u4e2d\u6587.db");
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    c.Run(L"CREATE TABLE t (a TEXT(10))");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES ('x')"));
    EXPECT_EQ(db.path(), StringProperty(c.dataSource.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

}  // namespace

namespace {

using zel::ComPtr;
using namespace zel::test;

// A minimal outer object that aggregates the data source and passes every other interface to it.
class Outer final : public IUnknown {
public:
    HRESULT Create() {
        return CoCreateInstance(kProviderClsid, this, CLSCTX_INPROC_SERVER, IID_IUnknown, m_inner.put_void());
    }
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IUnknown) {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return m_inner->QueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&m_refs)); }
    STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(InterlockedDecrement(&m_refs)); }
    LONG refs() const { return m_refs; }
    void Drop() { m_inner.reset(); }

private:
    LONG m_refs = 1;
    ComPtr<IUnknown> m_inner;
};

TEST(DataSourceAggregation, TheDataSourceCanBeAggregatedAndAnswersForItsOuterObject) {
    TempDatabase db;
    Outer outer;
    ASSERT_EQ(S_OK, outer.Create());
    ComPtr<IDBInitialize> init;
    ASSERT_EQ(S_OK, outer.QueryInterface(IID_IDBInitialize, init.put_void()));
    ComPtr<IUnknown> identity;
    ASSERT_EQ(S_OK, init->QueryInterface(IID_IUnknown, identity.put_void()));
    EXPECT_EQ(static_cast<IUnknown*>(&outer), identity.get());
    identity.reset();
    init.reset();
    EXPECT_EQ(1, outer.refs());
    outer.Drop();
}

TEST(DataSourceAggregation, AggregationAsksForIUnknownOnly) {
    Outer outer;
    ComPtr<IDBInitialize> init;
    EXPECT_EQ(CLASS_E_NOAGGREGATION,
              CoCreateInstance(kProviderClsid, &outer, CLSCTX_INPROC_SERVER, IID_IDBInitialize, init.put_void()));
}

TEST(DataSourceInfo, KeywordsAndLiteralsDescribeTheSqlDialect) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.dataSource);
    auto info = c.dataSource.as<IDBInfo>();
    LPOLESTR keywords = nullptr;
    ASSERT_EQ(S_OK, info->GetKeywords(&keywords));
    EXPECT_NE(nullptr, wcsstr(keywords, L"PRAGMA"));
    CoTaskMemFree(keywords);
    DBLITERAL wanted[3] = {DBLITERAL_QUOTE_PREFIX, DBLITERAL_LIKE_PERCENT, DBLITERAL_SCHEMA_SEPARATOR};
    ULONG count = 0;
    DBLITERALINFO* literals = nullptr;
    OLECHAR* text = nullptr;
    EXPECT_EQ(DB_S_ERRORSOCCURRED, info->GetLiteralInfo(3, wanted, &count, &literals, &text));
    ASSERT_EQ(3u, count);
    EXPECT_TRUE(literals[0].fSupported);
    EXPECT_STREQ(L"\"", literals[0].pwszLiteralValue);
    EXPECT_STREQ(L"%", literals[1].pwszLiteralValue);
    EXPECT_FALSE(literals[2].fSupported);  // SQLite has no schemas
    CoTaskMemFree(literals);
    CoTaskMemFree(text);
}

TEST(DataSourceInfo, InfoNeedsAnInitializedDataSource) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_TRUE(source);
    LPOLESTR keywords = nullptr;
    EXPECT_EQ(E_UNEXPECTED, source.as<IDBInfo>()->GetKeywords(&keywords));
}

TEST(SessionProperties, TheAutocommitIsolationLevelReadsAndWrites) {
    TempDatabase db;
    auto c = Connection::Open(db.ConnectionString());
    auto properties = c.session.as<ISessionProperties>();
    DBPROP prop{};
    prop.dwPropertyID = DBPROP_SESS_AUTOCOMMITISOLEVELS;
    prop.dwOptions = DBPROPOPTIONS_REQUIRED;
    prop.colid = DB_NULLID;
    V_VT(&prop.vValue) = VT_I4;
    V_I4(&prop.vValue) = DBPROPVAL_TI_READCOMMITTED;
    DBPROPSET set{&prop, 1, DBPROPSET_SESSION};
    EXPECT_EQ(S_OK, properties->SetProperties(1, &set));
    DBPROPID id = DBPROP_SESS_AUTOCOMMITISOLEVELS;
    DBPROPIDSET idSet{&id, 1, DBPROPSET_SESSION};
    ULONG count = 0;
    DBPROPSET* sets = nullptr;
    ASSERT_EQ(S_OK, properties->GetProperties(1, &idSet, &count, &sets));
    EXPECT_EQ(DBPROPVAL_TI_READCOMMITTED, V_I4(&sets[0].rgProperties[0].vValue));
    CoTaskMemFree(sets[0].rgProperties);
    CoTaskMemFree(sets);
}

}  // namespace

namespace {

using namespace zel::test;

TEST(DataSourceNames, TheVersionIndependentProgIdOpensTheSameProvider) {
    TempDatabase db;
    auto c = Connection::Open(L"Provider=ZelLite.OLEDB;Data Source=" + db.path());
    ASSERT_TRUE(c.session);
    CLSID clsid{};
    ASSERT_EQ(S_OK, c.dataSource.as<IPersist>()->GetClassID(&clsid));
    EXPECT_TRUE(clsid == kProviderClsid);
}

TEST(DataSourceNames, ExtendedPropertiesCarryProviderOptions) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString(L"Extended Properties=\"Busy Timeout=150;Cache=Shared\""));
    ASSERT_TRUE(source);
    Variant text = GetDataSourceProperty(source.get(), DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING);
    ASSERT_EQ(VT_BSTR, text.vt());
    EXPECT_STREQ(L"Busy Timeout=150;Cache=Shared", V_BSTR(text.get()));
    EXPECT_EQ(S_OK, source->Initialize());
}

}  // namespace
