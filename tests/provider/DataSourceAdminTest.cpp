// Database files made, destroyed and compacted through the data source: IDBDataSourceAdmin
// (CreateDataSource, DestroyDataSource, GetCreationProperties, ModifyDataSource) and the
// compaction interface, reached the way a client reaches them: through IDataInitialize.
#include <windows.h>
#include <msdasc.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProviderTestSupport.h"
#include "common/IJetCompact.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

std::wstring ProviderOnly() { return std::wstring(L"Provider=") + kProgId; }

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::vector<char> ReadBytes(const std::wstring& path) {
    std::vector<char> bytes;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, file) << "cannot read " << testing::PrintToString(path);
    if (file == INVALID_HANDLE_VALUE) return bytes;
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0) bytes.insert(bytes.end(), buffer, buffer + read);
    CloseHandle(file);
    return bytes;
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
    CloseHandle(file);
}

std::wstring StringProperty(IUnknown* source, REFGUID set, DBPROPID id) {
    Variant v = GetDataSourceProperty(source, set, id);
    return v.vt() == VT_BSTR ? std::wstring(V_BSTR(v.get()), SysStringLen(V_BSTR(v.get()))) : L"<not a string>";
}

// Whether the data source is initialized, by the OLE DB rule that an uninitialized data source
// refuses CreateSession with E_UNEXPECTED (its DATASOURCEINFO properties are not visible then).
bool Initialized(IUnknown* source) {
    ComPtr<IUnknown> unknown(source);
    ComPtr<IUnknown> session;
    HRESULT hr = unknown.as<IDBCreateSession>()->CreateSession(nullptr, IID_IOpenRowset, session.put());
    EXPECT_TRUE(hr == S_OK || hr == E_UNEXPECTED) << std::hex << hr;
    return hr == S_OK;
}

LONG ConnectionStatus(IUnknown* source) {
    Variant v = GetDataSourceProperty(source, DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS);
    return v.vt() == VT_I4 ? V_I4(v.get()) : -1;
}

// One DBINIT property set holding DBPROP_INIT_DATASOURCE, as the server builds it, plus any
// further properties a test adds.
class InitPropertySet {
public:
    explicit InitPropertySet(const std::wstring& file, DBPROPOPTIONS options = DBPROPOPTIONS_OPTIONAL) {
        Add(DBPROP_INIT_DATASOURCE, Variant(std::wstring_view(file)), options);
    }
    InitPropertySet() = default;
    InitPropertySet(const InitPropertySet&) = delete;
    InitPropertySet& operator=(const InitPropertySet&) = delete;
    ~InitPropertySet() {
        for (DBPROP& p : m_props) VariantClear(&p.vValue);
    }
    void Add(DBPROPID id, const Variant& value, DBPROPOPTIONS options = DBPROPOPTIONS_OPTIONAL) {
        DBPROP p{};
        p.dwPropertyID = id;
        p.dwOptions = options;
        p.colid = DB_NULLID;
        VariantInit(&p.vValue);
        VariantCopy(&p.vValue, const_cast<VARIANT*>(value.get()));
        m_props.push_back(p);
        m_set = {m_props.data(), static_cast<ULONG>(m_props.size()), m_guid};
    }
    void SetGuid(REFGUID guid) {
        m_guid = guid;
        m_set.guidPropertySet = guid;
    }
    DBPROPSET* set() { return &m_set; }
    const DBPROP& prop(size_t i) const { return m_props[i]; }

private:
    std::vector<DBPROP> m_props;
    GUID m_guid = DBPROPSET_DBINIT;
    DBPROPSET m_set{nullptr, 0, DBPROPSET_DBINIT};
};

// The creation exactly as the server makes it: a data source from an initialization string
// naming only the provider, IDBDataSourceAdmin queried from it, one DBINIT set holding only
// DBPROP_INIT_DATASOURCE (OPTIONAL), riid IID_IDBDataSourceAdmin and no session. `admin`
// receives the data source for later checks.
HRESULT CreateAsTheServerDoes(const std::wstring& file, ComPtr<IDBDataSourceAdmin>& admin) {
    ComPtr<IDBInitialize> source = GetDataSource(ProviderOnly());
    if (!source) return E_FAIL;
    HRESULT hr = source.query(admin);
    if (FAILED(hr)) return hr;
    source.reset();
    InitPropertySet set(file);
    hr = admin->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr);
    EXPECT_EQ(DBPROPSTATUS_OK, set.prop(0).dwStatus);
    return hr;
}

// A session on an initialized data source, as a Connection the support helpers understand.
Connection SessionOn(IUnknown* dataSource) {
    Connection c;
    ComPtr<IUnknown> unknown(dataSource);
    c.dataSource = unknown.as<IDBInitialize>();
    EXPECT_EQ(S_OK, c.dataSource.as<IDBCreateSession>()->CreateSession(nullptr, IID_IOpenRowset, c.session.put_unknown()));
    return c;
}

std::vector<std::vector<std::wstring>> Rows(const Connection& c, const std::wstring& sql) {
    ComPtr<IRowset> rowset = c.Query(sql);
    if (!rowset) return {};
    return ReadAllAsText(rowset.get());
}

bool DescriptionNames(const std::vector<ErrorRecordText>& errors, const std::wstring& path) {
    return !errors.empty() && errors[0].description.find(path) != std::wstring::npos;
}

// ---- CreateDataSource ----

TEST(DataSourceAdmin, CreateAsTheServerDoesMakesAnEmptyDatabaseAndInitializesTheDataSource) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\created.db";
    ComPtr<IDBDataSourceAdmin> admin;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));

    // An SQLite file with its header written.
    std::vector<char> bytes = ReadBytes(file);
    ASSERT_GE(bytes.size(), 100u);
    EXPECT_EQ(std::string("SQLite format 3", 16), std::string(bytes.data(), 16));

    // Initialized as after Initialize, on the full path.
    EXPECT_EQ(DBPROPVAL_CS_INITIALIZED, ConnectionStatus(admin.get()));
    EXPECT_EQ(file, StringProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
    EXPECT_EQ(L"SQLite", StringProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DBMSNAME));
    EXPECT_EQ(L"main", StringProperty(admin.get(), DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG));

    // Sessions and commands work on it, and it starts without any table.
    Connection c = SessionOn(admin.get());
    ASSERT_TRUE(c.session);
    auto rows = Rows(c, L"SELECT count(*) FROM sqlite_master");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"0", rows[0][0]);
    c.Run(L"CREATE TABLE t (a INTEGER, b VARCHAR(10))");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (1, 'one')"));
    rows = Rows(c, L"SELECT a, b FROM t");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ((std::vector<std::wstring>{L"1", L"one"}), rows[0]);
}

TEST(DataSourceAdmin, CreatedFileOpensAgainThroughAnInitializationString) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\again.db";
    {
        ComPtr<IDBDataSourceAdmin> admin;
        ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));
        SessionOn(admin.get()).Run(L"CREATE TABLE kept (a INTEGER)");
    }
    auto c = Connection::Open(ProviderOnly() + L";Data Source=" + file);
    ASSERT_TRUE(c.session);
    auto rows = Rows(c, L"SELECT name FROM sqlite_master WHERE type = 'table'");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"kept", rows[0][0]);
}

TEST(DataSourceAdmin, CreateWithASessionReturnsTheSessionForTheInterfaceAskedFor) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\with-session.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file, DBPROPOPTIONS_REQUIRED);
    ComPtr<IUnknown> session;
    ASSERT_EQ(S_OK, admin->CreateDataSource(1, set.set(), nullptr, IID_IDBCreateCommand, session.put()));
    ASSERT_TRUE(session);
    EXPECT_TRUE(Exists(file));
    // The pointer is the IDBCreateCommand asked for, and the session belongs to this data source.
    ComPtr<IDBCreateCommand> create = session.as<IDBCreateCommand>();
    EXPECT_EQ(session.get(), static_cast<IUnknown*>(create.get()));
    ComPtr<IUnknown> owner;
    ASSERT_EQ(S_OK, session.as<IGetDataSource>()->GetDataSource(IID_IUnknown, owner.put()));
    EXPECT_EQ(admin.as<IUnknown>().get(), owner.get());
    Connection c;
    c.dataSource = admin.as<IDBInitialize>();
    c.session = session.as<IOpenRowset>();
    c.Run(L"CREATE TABLE t (a INTEGER)");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (5)"));
}

TEST(DataSourceAdmin, CreateAppliesSessionPropertiesToTheSession) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\session-props.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet init(file);
    InitPropertySet sessionSet;
    sessionSet.SetGuid(DBPROPSET_SESSION);
    sessionSet.Add(DBPROP_SESS_AUTOCOMMITISOLEVELS, Variant::FromI4(DBPROPVAL_TI_SERIALIZABLE), DBPROPOPTIONS_REQUIRED);
    DBPROPSET sets[2] = {*init.set(), *sessionSet.set()};
    ComPtr<IUnknown> session;
    ASSERT_EQ(S_OK, admin->CreateDataSource(2, sets, nullptr, IID_IUnknown, session.put()));
    ASSERT_TRUE(session);
    EXPECT_EQ(DBPROPSTATUS_OK, sessionSet.prop(0).dwStatus);
    DBPROPID id = DBPROP_SESS_AUTOCOMMITISOLEVELS;
    DBPROPIDSET idSet{&id, 1, DBPROPSET_SESSION};
    ULONG count = 0;
    DBPROPSET* got = nullptr;
    ASSERT_EQ(S_OK, session.as<ISessionProperties>()->GetProperties(1, &idSet, &count, &got));
    ASSERT_EQ(1u, count);
    EXPECT_EQ(DBPROPVAL_TI_SERIALIZABLE, V_I4(&got[0].rgProperties[0].vValue));
    VariantClear(&got[0].rgProperties[0].vValue);
    CoTaskMemFree(got[0].rgProperties);
    CoTaskMemFree(got);
}

TEST(DataSourceAdmin, CreateAggregatedSessionNeedsIUnknown) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\aggregated.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file);
    ComPtr<IUnknown> outer = admin.as<IUnknown>();  // any object serves: the call must refuse before using it
    ComPtr<IUnknown> session;
    EXPECT_EQ(DB_E_NOAGGREGATION, admin->CreateDataSource(1, set.set(), outer.get(), IID_IOpenRowset, session.put()));
    EXPECT_FALSE(session);
    EXPECT_FALSE(Exists(file));
    EXPECT_FALSE(Initialized(admin.get()));
}

TEST(DataSourceAdmin, ASessionInterfaceThatDoesNotExistCreatesNothing) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\no-interface.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file);
    ComPtr<IUnknown> session;
    EXPECT_EQ(E_NOINTERFACE, admin->CreateDataSource(1, set.set(), nullptr, IID_IRowset, session.put()));
    EXPECT_FALSE(session);
    EXPECT_FALSE(Exists(file));
    EXPECT_FALSE(Initialized(admin.get()));
}

TEST(DataSourceAdmin, CreateAppliesTheOtherInitPropertiesGiven) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\read-only.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file);
    set.Add(DBPROP_INIT_MODE, Variant::FromI4(DB_MODE_READ));
    ASSERT_EQ(S_OK, admin->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_TRUE(Exists(file));
    Variant readOnly = GetDataSourceProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY);
    EXPECT_EQ(VT_BOOL, readOnly.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(readOnly.get()));
    Connection c = SessionOn(admin.get());
    EXPECT_EQ(DB_E_READONLY, c.TryExecute(L"CREATE TABLE t (a INTEGER)"));
}

TEST(DataSourceAdmin, CreateWithoutSetsUsesTheDataSourceFromTheInitializationString) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\from-string.db";
    auto admin = GetDataSource(ProviderOnly() + L";Data Source=" + file).as<IDBDataSourceAdmin>();
    ASSERT_EQ(S_OK, admin->CreateDataSource(0, nullptr, nullptr, IID_NULL, nullptr));
    EXPECT_TRUE(Exists(file));
    EXPECT_EQ(file, StringProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

TEST(DataSourceAdmin, CreateOverAnExistingFileIsRefusedAndLeavesTheFileAsItWas) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\existing.db";
    const std::string content = "these bytes are not a database and must survive";
    WriteBytes(file, content);
    ComPtr<IDBDataSourceAdmin> admin;
    const HRESULT hr = CreateAsTheServerDoes(file, admin);
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, hr);
    EXPECT_NE(E_UNEXPECTED, hr);  // the server would read E_UNEXPECTED as success
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, errors[0].hr);
    EXPECT_EQ(L"ZelLite OLE DB Provider", errors[0].source);
    EXPECT_TRUE(DescriptionNames(errors, file)) << testing::PrintToString(errors[0].description);
    std::vector<char> after = ReadBytes(file);
    EXPECT_EQ(content, std::string(after.begin(), after.end()));
    EXPECT_FALSE(Initialized(admin.get()));
}

TEST(DataSourceAdmin, ASecondCreatorOfTheSameFileCannotOverwriteTheFirstOnesDatabase) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\contended.db";
    ComPtr<IDBDataSourceAdmin> first;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, first));
    {
        Connection c = SessionOn(first.get());
        c.Run(L"CREATE TABLE mine (a INTEGER)");
        c.Run(L"INSERT INTO mine VALUES (42)");
    }
    const std::vector<char> before = ReadBytes(file);
    ComPtr<IDBDataSourceAdmin> second;
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, CreateAsTheServerDoes(file, second));
    EXPECT_EQ(before, ReadBytes(file));
    auto rows = Rows(SessionOn(first.get()), L"SELECT a FROM mine");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"42", rows[0][0]);
}

TEST(DataSourceAdmin, CreateInAMissingDirectoryFailsAndCreatesNothing) {
    TempDatabase dir;
    const std::wstring missingDir = dir.directory() + L"\\no-such-dir";
    const std::wstring file = missingDir + L"\\x.db";
    ComPtr<IDBDataSourceAdmin> admin;
    EXPECT_EQ(STG_E_PATHNOTFOUND, CreateAsTheServerDoes(file, admin));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_TRUE(DescriptionNames(errors, file)) << testing::PrintToString(errors[0].description);
    EXPECT_FALSE(Exists(missingDir));
    EXPECT_FALSE(Initialized(admin.get()));
}

TEST(DataSourceAdmin, CreateOnAnInitializedDataSourceFailsWithAlreadyInitialized) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring file = db.directory() + L"\\second.db";
    InitPropertySet set(file);
    EXPECT_EQ(DB_E_ALREADYINITIALIZED,
              source.as<IDBDataSourceAdmin>()->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_FALSE(Exists(file));
    EXPECT_EQ(db.path(), StringProperty(source.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

TEST(DataSourceAdmin, CreateWithoutAFileNameIsRefused) {
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet noFile;
    noFile.Add(DBPROP_INIT_MODE, Variant::FromI4(DB_MODE_READWRITE));
    EXPECT_EQ(E_INVALIDARG, admin->CreateDataSource(1, noFile.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"DBPROP_INIT_DATASOURCE"));

    InitPropertySet blank(L"   ");
    EXPECT_EQ(E_INVALIDARG, admin->CreateDataSource(1, blank.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_FALSE(Initialized(admin.get()));
    EXPECT_EQ(E_INVALIDARG, admin->CreateDataSource(1, nullptr, nullptr, IID_IDBDataSourceAdmin, nullptr));
}

TEST(DataSourceAdmin, ARequiredPropertyThatCannotBeSetCreatesNothing) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\required.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file);
    set.Add(DBPROP_INIT_MODE, Variant::FromI4(0x1000), DBPROPOPTIONS_REQUIRED);  // no such mode bit
    EXPECT_EQ(DB_E_ERRORSOCCURRED, admin->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_EQ(DBPROPSTATUS_OK, set.prop(0).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_BADVALUE, set.prop(1).dwStatus);
    EXPECT_FALSE(Exists(file));
    // The refused call changed no property: the data source still names no file.
    Variant name = GetDataSourceProperty(admin.get(), DBPROPSET_DBINIT, DBPROP_INIT_DATASOURCE);
    EXPECT_EQ(VT_EMPTY, name.vt());
}

TEST(DataSourceAdmin, AnOptionalPropertyThatCannotBeSetStillCreatesTheFile) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\optional.db";
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    InitPropertySet set(file);
    set.Add(0x7777, Variant::FromI4(1));  // a DBINIT id no provider defines
    EXPECT_EQ(DB_S_ERRORSOCCURRED, admin->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, set.prop(1).dwStatus);
    EXPECT_TRUE(Exists(file));
    EXPECT_EQ(DBPROPVAL_CS_INITIALIZED, ConnectionStatus(admin.get()));
}

TEST(DataSourceAdmin, CreateWithANonAsciiPath) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\d\u00e9j\u00e0-\u4e2d\u6587-\u0416.db";
    ComPtr<IDBDataSourceAdmin> admin;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));
    EXPECT_TRUE(Exists(file));
    EXPECT_EQ(file, StringProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
    Connection c = SessionOn(admin.get());
    c.Run(L"CREATE TABLE t (a INTEGER)");
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (1)"));
}

TEST(DataSourceAdmin, CreateWithARelativePathReportsTheFullPath) {
    TempDatabase dir;
    wchar_t previous[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(dir.directory().c_str()));
    ComPtr<IDBDataSourceAdmin> admin;
    const HRESULT hr = CreateAsTheServerDoes(L"sub\\..\\relative.db", admin);
    SetCurrentDirectoryW(previous);
    ASSERT_EQ(S_OK, hr);
    const std::wstring file = dir.directory() + L"\\relative.db";
    EXPECT_TRUE(Exists(file));
    EXPECT_EQ(file, StringProperty(admin.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

// ---- DestroyDataSource ----

TEST(DataSourceAdmin, DestroyDeletesTheFileAndLeavesTheDataSourceUninitialized) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\doomed.db";
    ComPtr<IDBDataSourceAdmin> admin;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));
    SessionOn(admin.get()).Run(L"CREATE TABLE t (a INTEGER)");
    ASSERT_EQ(S_OK, admin->DestroyDataSource());
    EXPECT_FALSE(Exists(file));
    EXPECT_FALSE(Initialized(admin.get()));
    // The data source can make the file anew.
    InitPropertySet set(file);
    EXPECT_EQ(S_OK, admin->CreateDataSource(1, set.set(), nullptr, IID_IDBDataSourceAdmin, nullptr));
    EXPECT_TRUE(Exists(file));
    auto rows = Rows(SessionOn(admin.get()), L"SELECT count(*) FROM sqlite_master");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"0", rows[0][0]);
}

TEST(DataSourceAdmin, DestroyWorksOnAFileOpenedByInitialize) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_EQ(S_OK, source->Initialize());
    EXPECT_EQ(S_OK, source.as<IDBDataSourceAdmin>()->DestroyDataSource());
    EXPECT_FALSE(Exists(db.path()));
    EXPECT_EQ(STG_E_FILENOTFOUND, source->Initialize());
}

TEST(DataSourceAdmin, DestroyIsRefusedWhileASessionIsOpen) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\busy.db";
    ComPtr<IDBDataSourceAdmin> admin;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));
    {
        Connection c = SessionOn(admin.get());
        EXPECT_EQ(DB_E_OBJECTOPEN, admin->DestroyDataSource());
        auto errors = TakeErrorRecords();
        ASSERT_EQ(1u, errors.size());
        EXPECT_EQ(DB_E_OBJECTOPEN, errors[0].hr);
        EXPECT_TRUE(Exists(file));
        EXPECT_EQ(DBPROPVAL_CS_INITIALIZED, ConnectionStatus(admin.get()));
        c.Run(L"CREATE TABLE still_usable (a INTEGER)");
    }
    EXPECT_EQ(S_OK, admin->DestroyDataSource());
    EXPECT_FALSE(Exists(file));
}

TEST(DataSourceAdmin, DestroyFailsWhileAnotherConnectionHoldsTheFileAndKeepsTheDataSource) {
    TempDatabase dir;
    const std::wstring file = dir.directory() + L"\\shared.db";
    ComPtr<IDBDataSourceAdmin> admin;
    ASSERT_EQ(S_OK, CreateAsTheServerDoes(file, admin));
    auto other = Connection::Open(ProviderOnly() + L";Data Source=" + file);
    ASSERT_TRUE(other.session);
    const HRESULT hr = admin->DestroyDataSource();
    EXPECT_EQ(STG_E_SHAREVIOLATION, hr);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_TRUE(DescriptionNames(errors, file)) << testing::PrintToString(errors[0].description);
    EXPECT_TRUE(Exists(file));
    EXPECT_EQ(DBPROPVAL_CS_INITIALIZED, ConnectionStatus(admin.get()));
    SessionOn(admin.get()).Run(L"CREATE TABLE t (a INTEGER)");
}

TEST(DataSourceAdmin, DestroyBeforeInitializeFailsWithUnexpected) {
    auto admin = GetDataSource(ProviderOnly()).as<IDBDataSourceAdmin>();
    EXPECT_EQ(E_UNEXPECTED, admin->DestroyDataSource());
}

// ---- GetCreationProperties and ModifyDataSource ----

struct PropertyInfoList {
    ULONG count = 0;
    DBPROPINFOSET* sets = nullptr;
    OLECHAR* text = nullptr;
    ~PropertyInfoList() {
        for (ULONG s = 0; s < count; ++s) {
            for (ULONG p = 0; p < sets[s].cPropertyInfos; ++p) VariantClear(&sets[s].rgPropertyInfos[p].vValues);
            CoTaskMemFree(sets[s].rgPropertyInfos);
        }
        CoTaskMemFree(sets);
        CoTaskMemFree(text);
    }
    const DBPROPINFO* Find(DBPROPID id) const {
        for (ULONG s = 0; s < count; ++s)
            for (ULONG p = 0; p < sets[s].cPropertyInfos; ++p)
                if (sets[s].rgPropertyInfos[p].dwPropertyID == id) return &sets[s].rgPropertyInfos[p];
        return nullptr;
    }
};

TEST(DataSourceAdmin, CreationPropertiesAreTheInitializationProperties) {
    auto source = GetDataSource(ProviderOnly());
    PropertyInfoList creation;
    ASSERT_EQ(S_OK, source.as<IDBDataSourceAdmin>()->GetCreationProperties(0, nullptr, &creation.count, &creation.sets,
                                                                           &creation.text));
    ASSERT_EQ(1u, creation.count);
    EXPECT_TRUE(creation.sets[0].guidPropertySet == DBPROPSET_DBINIT);
    const DBPROPINFO* dataSource = creation.Find(DBPROP_INIT_DATASOURCE);
    ASSERT_NE(nullptr, dataSource);
    EXPECT_EQ(VT_BSTR, dataSource->vtType);
    EXPECT_EQ(std::wstring(L"Data Source"), dataSource->pwszDescription);
    EXPECT_TRUE(dataSource->dwFlags & DBPROPFLAGS_DBINIT);
    EXPECT_TRUE(dataSource->dwFlags & DBPROPFLAGS_WRITE);

    // The same list as GetPropertyInfo gives for DBINIT.
    DBPROPIDSET init{nullptr, 0, DBPROPSET_DBINIT};
    PropertyInfoList info;
    ASSERT_EQ(S_OK, source.as<IDBProperties>()->GetPropertyInfo(1, &init, &info.count, &info.sets, &info.text));
    ASSERT_EQ(1u, info.count);
    ASSERT_EQ(info.sets[0].cPropertyInfos, creation.sets[0].cPropertyInfos);
    for (ULONG p = 0; p < info.sets[0].cPropertyInfos; ++p) {
        const DBPROPINFO& expected = info.sets[0].rgPropertyInfos[p];
        const DBPROPINFO* got = creation.Find(expected.dwPropertyID);
        ASSERT_NE(nullptr, got) << expected.dwPropertyID;
        EXPECT_EQ(expected.vtType, got->vtType);
        EXPECT_EQ(expected.dwFlags, got->dwFlags);
    }
}

TEST(DataSourceAdmin, CreationPropertiesAfterInitializeAreStillOnlyDbinit) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_EQ(S_OK, source->Initialize());
    auto admin = source.as<IDBDataSourceAdmin>();
    PropertyInfoList all;
    ASSERT_EQ(S_OK, admin->GetCreationProperties(0, nullptr, &all.count, &all.sets, nullptr));
    ASSERT_EQ(1u, all.count);
    EXPECT_TRUE(all.sets[0].guidPropertySet == DBPROPSET_DBINIT);

    DBPROPID name = DBPROP_DATASOURCENAME;
    DBPROPIDSET info{&name, 1, DBPROPSET_DATASOURCEINFO};
    PropertyInfoList refused;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, admin->GetCreationProperties(1, &info, &refused.count, &refused.sets, nullptr));
    ASSERT_EQ(1u, refused.count);
    ASSERT_EQ(1u, refused.sets[0].cPropertyInfos);
    EXPECT_EQ(DBPROPFLAGS_NOTSUPPORTED, refused.sets[0].rgPropertyInfos[0].dwFlags);
}

TEST(DataSourceAdmin, ModifyDataSourceRefusesEveryProperty) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    auto admin = source.as<IDBDataSourceAdmin>();
    InitPropertySet set(db.directory() + L"\\elsewhere.db", DBPROPOPTIONS_REQUIRED);
    EXPECT_EQ(E_UNEXPECTED, admin->ModifyDataSource(1, set.set()));
    ASSERT_EQ(S_OK, source->Initialize());
    set.Add(DBPROP_INIT_MODE, Variant::FromI4(DB_MODE_READ), DBPROPOPTIONS_OPTIONAL);
    set.Add(0x7777, Variant::FromI4(1), DBPROPOPTIONS_OPTIONAL);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, admin->ModifyDataSource(1, set.set()));
    EXPECT_EQ(DBPROPSTATUS_NOTSETTABLE, set.prop(0).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSET, set.prop(1).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, set.prop(2).dwStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_ERRORSOCCURRED, errors[0].hr);
    EXPECT_EQ(S_OK, admin->ModifyDataSource(0, nullptr));
    EXPECT_EQ(db.path(), StringProperty(source.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

// ---- Compaction ----

// The metadata table's definition, as the provider declares it.
constexpr wchar_t kMetadataDdl[] =
    L"CREATE TABLE IF NOT EXISTS zel_lite_columns (table_name TEXT NOT NULL COLLATE NOCASE, "
    L"column_name TEXT NOT NULL COLLATE NOCASE, seed INTEGER, increment INTEGER, allow_zero_length INTEGER, "
    L"fixed_length INTEGER, description TEXT, PRIMARY KEY (table_name, column_name))";

// A database with a table of a few thousand rows of long text and blobs, most of them deleted
// again, an index, a view, a trigger and the provider's metadata table.
void FillWithMostlyDeletedRows(const std::wstring& connectionString) {
    auto c = Connection::Open(connectionString);
    ASSERT_TRUE(c.session);
    c.Run(L"CREATE TABLE items (id INTEGER PRIMARY KEY, name VARCHAR(40), note TEXT, data BLOB)");
    c.Run(L"CREATE INDEX items_by_name ON items (name)");
    c.Run(L"CREATE TABLE audit (item INTEGER, action VARCHAR(10))");
    EXPECT_EQ(3000, c.Run(L"INSERT INTO items WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n WHERE x < 3000) "
                          L"SELECT x, 'item ' || x, substr(hex(randomblob(400)), 1, 300 + x % 400), "
                          L"randomblob(500 + x % 300) FROM n"));
    EXPECT_EQ(3000, c.Run(L"INSERT INTO audit SELECT id, 'insert' FROM items"));
    c.Run(L"CREATE TRIGGER items_audit AFTER INSERT ON items BEGIN INSERT INTO audit VALUES (new.id, 'insert'); END");
    c.Run(L"CREATE VIEW even_items AS SELECT id, name FROM items WHERE id % 2 = 0");
    c.Run(kMetadataDdl);
    c.Run(L"INSERT INTO zel_lite_columns VALUES ('items', 'id', 1, 1, NULL, NULL, 'the key')");
    c.Run(L"INSERT INTO zel_lite_columns VALUES ('items', 'name', NULL, NULL, 0, 0, 'what it is called')");
    EXPECT_EQ(2700, c.Run(L"DELETE FROM items WHERE id % 10 <> 0"));
    EXPECT_EQ(2700, c.Run(L"DELETE FROM audit WHERE item % 10 <> 0"));
}

// Everything a database holds, read through the provider: the schema and every row of every table.
std::vector<std::vector<std::wstring>> Content(const Connection& c) {
    std::vector<std::vector<std::wstring>> all;
    for (const wchar_t* sql :
         {L"SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY type, name",
          L"SELECT id, name, note, hex(data) FROM items ORDER BY id", L"SELECT item, action FROM audit ORDER BY item",
          L"SELECT * FROM zel_lite_columns ORDER BY table_name, column_name", L"SELECT * FROM even_items ORDER BY id"}) {
        auto rows = Rows(c, sql);
        all.push_back({sql, std::to_wstring(rows.size())});
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

LONGLONG FileSize(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return -1;
    return (static_cast<LONGLONG>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// The compaction interface as the server reaches it: from the data source it got from
// IDataInitialize, through IDBCreateSession.
ComPtr<IJetCompact> CompactionOf(IDBInitialize* source) {
    ComPtr<IDBInitialize> s(source);
    ComPtr<IDBCreateSession> create = s.as<IDBCreateSession>();
    ComPtr<IJetCompact> compact;
    EXPECT_EQ(S_OK, create.query(compact));
    return compact;
}

HRESULT CompactInto(IDBInitialize* source, const std::wstring& target) {
    ComPtr<IJetCompact> compact = CompactionOf(source);
    if (!compact) return E_NOINTERFACE;
    InitPropertySet set(target, DBPROPOPTIONS_REQUIRED);
    HRESULT hr = compact->Compact(1, set.set());
    if (SUCCEEDED(hr)) {
        EXPECT_EQ(DBPROPSTATUS_OK, set.prop(0).dwStatus);
    }
    return hr;
}

void CheckCompactionOfADatabaseWithDeletedRows(const std::wstring& mode) {
    TempDatabase db(L"parts.db");
    FillWithMostlyDeletedRows(db.ConnectionString());
    std::vector<std::vector<std::wstring>> before;
    {
        auto c = Connection::Open(db.ConnectionString());
        before = Content(c);
    }
    // Five headers; seven schema entries (three tables, two indexes, the view, the trigger);
    // 300 items, 300 audit rows, 2 metadata rows, 300 even items.
    ASSERT_EQ(5u + 7u + 300u + 300u + 2u + 300u, before.size());
    const std::vector<char> originalBytes = ReadBytes(db.path());

    auto source = GetDataSource(db.ConnectionString(mode));
    ASSERT_TRUE(source);
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring target = db.directory() + L"\\compacted.db";
    ASSERT_EQ(S_OK, CompactInto(source.get(), target));

    // Smaller, with the same content; the original is byte for byte what it was.
    ASSERT_TRUE(Exists(target));
    EXPECT_LT(FileSize(target) * 3, FileSize(db.path())) << FileSize(target) << " vs " << FileSize(db.path());
    EXPECT_EQ(originalBytes, ReadBytes(db.path()));
    {
        auto copy = Connection::Open(ProviderOnly() + L";Data Source=" + target);
        ASSERT_TRUE(copy.session);
        EXPECT_EQ(before, Content(copy));
        // The trigger came along and still fires.
        copy.Run(L"INSERT INTO items (id, name) VALUES (5001, 'new')");
        auto rows = Rows(copy, L"SELECT action FROM audit WHERE item = 5001");
        ASSERT_EQ(1u, rows.size());
        EXPECT_EQ(L"insert", rows[0][0]);
    }

    // The data source that was compacted stays usable.
    Connection after = SessionOn(source.get());
    EXPECT_EQ(before, Content(after));
}

TEST(DataSourceAdmin, CompactionOfAReadOnlyOpenWritesASmallerCopyWithTheSameContent) {
    CheckCompactionOfADatabaseWithDeletedRows(L"Mode=Read;");
}

TEST(DataSourceAdmin, CompactionOfAReadWriteOpenWritesASmallerCopyWithTheSameContent) {
    CheckCompactionOfADatabaseWithDeletedRows(L"Mode=ReadWrite");
}

TEST(DataSourceAdmin, ReadWriteDataSourceStillWritesAfterCompaction) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_EQ(S_OK, source->Initialize());
    {
        Connection c = SessionOn(source.get());
        c.Run(L"CREATE TABLE t (a INTEGER)");
        c.Run(L"INSERT INTO t VALUES (1)");
        // A session left open with an open transaction does not stop the copy, which holds the
        // last committed state.
        ASSERT_EQ(S_OK, c.session.as<ITransactionLocal>()->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr,
                                                                             nullptr));
        c.Run(L"INSERT INTO t VALUES (2)");
        const std::wstring target = db.directory() + L"\\copy.db";
        ASSERT_EQ(S_OK, CompactInto(source.get(), target));
        ASSERT_EQ(S_OK, c.session.as<ITransaction>()->Commit(FALSE, XACTTC_SYNC, 0));
        auto copied = Rows(Connection::Open(ProviderOnly() + L";Data Source=" + target), L"SELECT a FROM t ORDER BY a");
        ASSERT_EQ(1u, copied.size());
        EXPECT_EQ(L"1", copied[0][0]);
    }
    Connection c = SessionOn(source.get());
    EXPECT_EQ(1, c.Run(L"INSERT INTO t VALUES (3)"));
    EXPECT_EQ(3u, Rows(c, L"SELECT a FROM t").size());
}

TEST(DataSourceAdmin, CompactionThenReplacingTheOriginalAsTheServerDoes) {
    TempDatabase db(L"parts.db");
    FillWithMostlyDeletedRows(db.ConnectionString());
    std::vector<std::vector<std::wstring>> before = Content(Connection::Open(db.ConnectionString()));
    const LONGLONG sizeBefore = FileSize(db.path());

    // The server opens the file again in read mode, asks for the data source name, compacts
    // into a temporary file beside it, releases the data source and moves the copy over the file.
    auto source = GetDataSource(db.ConnectionString(L"Mode=Read;"));
    ASSERT_TRUE(source);
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring name = StringProperty(source.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME);
    EXPECT_EQ(db.path(), name);
    const std::wstring temporary = name.substr(0, name.rfind(L'.')) + L"_TMP_.db";
    ASSERT_EQ(S_OK, CompactInto(source.get(), temporary));
    source.reset();
    ASSERT_TRUE(MoveFileExW(temporary.c_str(), name.c_str(), MOVEFILE_REPLACE_EXISTING)) << GetLastError();

    EXPECT_LT(FileSize(db.path()) * 3, sizeBefore);
    EXPECT_EQ(before, Content(Connection::Open(db.ConnectionString())));
}

TEST(DataSourceAdmin, CompactionOfAnEmptyDatabaseGivesAnEmptyDatabase) {
    TempDatabase db;  // a zero-length file
    auto source = GetDataSource(db.ConnectionString(L"Mode=Read;"));
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring target = db.directory() + L"\\empty-copy.db";
    ASSERT_EQ(S_OK, CompactInto(source.get(), target));
    auto rows = Rows(Connection::Open(ProviderOnly() + L";Data Source=" + target), L"SELECT count(*) FROM sqlite_master");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"0", rows[0][0]);
}

TEST(DataSourceAdmin, CompactionWithNonAsciiPaths) {
    TempDatabase db(L"\u00e9t\u00e9-\u4e2d\u6587.db");
    {
        auto c = Connection::Open(db.ConnectionString());
        c.Run(L"CREATE TABLE t (a VARCHAR(20))");
        c.Run(L"INSERT INTO t VALUES ('\u00fcber \u4e2d')");
    }
    auto source = GetDataSource(db.ConnectionString(L"Mode=Read;"));
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring target = db.directory() + L"\\k\u00f6pia-\u0416\u4e2d.db";
    ASSERT_EQ(S_OK, CompactInto(source.get(), target));
    EXPECT_TRUE(Exists(target));
    auto rows = Rows(Connection::Open(ProviderOnly() + L";Data Source=" + target), L"SELECT a FROM t");
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(L"\u00fcber \u4e2d", rows[0][0]);
}

TEST(DataSourceAdmin, CompactionOntoAnExistingFileFailsAndTouchesNeitherFile) {
    TempDatabase db;
    {
        auto c = Connection::Open(db.ConnectionString());
        c.Run(L"CREATE TABLE t (a INTEGER)");
        c.Run(L"INSERT INTO t VALUES (1)");
    }
    const std::vector<char> original = ReadBytes(db.path());
    const std::wstring target = db.directory() + L"\\taken.db";
    const std::string content = "someone else's file";
    WriteBytes(target, content);

    auto source = GetDataSource(db.ConnectionString(L"Mode=Read;"));
    ASSERT_EQ(S_OK, source->Initialize());
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, CompactInto(source.get(), target));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, errors[0].hr);
    EXPECT_TRUE(DescriptionNames(errors, target)) << testing::PrintToString(errors[0].description);
    std::vector<char> after = ReadBytes(target);
    EXPECT_EQ(content, std::string(after.begin(), after.end()));
    EXPECT_EQ(original, ReadBytes(db.path()));

    // Compacting onto the database file itself is the same refusal.
    EXPECT_EQ(STG_E_FILEALREADYEXISTS, CompactInto(source.get(), db.path()));
    EXPECT_EQ(original, ReadBytes(db.path()));
    EXPECT_EQ(1u, Rows(SessionOn(source.get()), L"SELECT a FROM t").size());
}

TEST(DataSourceAdmin, CompactionIntoAMissingDirectoryFailsAndCreatesNothing) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString(L"Mode=Read;"));
    ASSERT_EQ(S_OK, source->Initialize());
    const std::wstring missingDir = db.directory() + L"\\missing";
    const std::wstring target = missingDir + L"\\copy.db";
    EXPECT_EQ(STG_E_PATHNOTFOUND, CompactInto(source.get(), target));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_TRUE(DescriptionNames(errors, target)) << testing::PrintToString(errors[0].description);
    EXPECT_FALSE(Exists(missingDir));
}

TEST(DataSourceAdmin, CompactionBeforeInitializeFailsWithUnexpected) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    const std::wstring target = db.directory() + L"\\copy.db";
    EXPECT_EQ(E_UNEXPECTED, CompactInto(source.get(), target));
    EXPECT_FALSE(Exists(target));
}

TEST(DataSourceAdmin, CompactionNeedsATargetOfTheRightType) {
    TempDatabase db;
    auto source = GetDataSource(db.ConnectionString());
    ASSERT_EQ(S_OK, source->Initialize());
    ComPtr<IJetCompact> compact = CompactionOf(source.get());
    ASSERT_TRUE(compact);
    EXPECT_EQ(E_INVALIDARG, compact->Compact(0, nullptr));
    EXPECT_EQ(E_INVALIDARG, compact->Compact(1, nullptr));

    InitPropertySet wrongType;
    wrongType.Add(DBPROP_INIT_DATASOURCE, Variant::FromI4(3), DBPROPOPTIONS_REQUIRED);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, compact->Compact(1, wrongType.set()));
    EXPECT_EQ(DBPROPSTATUS_BADVALUE, wrongType.prop(0).dwStatus);

    // An optional property that does not apply is reported, and the copy is still written.
    const std::wstring target = db.directory() + L"\\copy.db";
    InitPropertySet extra(target, DBPROPOPTIONS_REQUIRED);
    extra.Add(DBPROP_INIT_LCID, Variant::FromI4(1033), DBPROPOPTIONS_OPTIONAL);
    EXPECT_EQ(DB_S_ERRORSOCCURRED, compact->Compact(1, extra.set()));
    EXPECT_EQ(DBPROPSTATUS_OK, extra.prop(0).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, extra.prop(1).dwStatus);
    EXPECT_TRUE(Exists(target));
}

TEST(DataSourceAdmin, CompactionAndAdministrationSupportErrorInfo) {
    auto source = GetDataSource(ProviderOnly());
    auto support = source.as<ISupportErrorInfo>();
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(IID_IDBDataSourceAdmin));
    EXPECT_EQ(S_OK, support->InterfaceSupportsErrorInfo(__uuidof(IJetCompact)));
}

// ---- The data-source name the server builds its paths from ----

TEST(DataSourceAdmin, DataSourceNameIsTheFullPathAfterAReadModeOpen) {
    TempDatabase db;
    wchar_t previous[MAX_PATH];
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(db.directory().c_str()));
    auto source = GetDataSource(ProviderOnly() + L";Data Source=.\\sub\\..\\test.db;Mode=Read;");
    const HRESULT hr = source ? source->Initialize() : E_FAIL;
    SetCurrentDirectoryW(previous);
    ASSERT_EQ(S_OK, hr);
    EXPECT_EQ(db.path(), StringProperty(source.get(), DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME));
}

}  // namespace
