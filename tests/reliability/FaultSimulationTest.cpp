// Fault simulation over the provider's code, linked into this program: each main operation
// runs again and again while the 1st, 2nd, 3rd ... allocation or file call fails, until it runs
// without the fault firing. After every run: a failure came back as a failed HRESULT (a
// success only with the right data), nothing is left behind (the module's object count and
// SQLite's memory counter are back where they were) and the database file is intact with every
// committed row. Every fault point is tried, once failing only that call (a transient fault)
// and once failing every call from it on (a persistent one, as when memory or disk ran out).
#include <windows.h>
#include <oledb.h>
#include <oledberr.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "common/Bstr.h"
#include "common/ComObject.h"
#include "common/ComPtr.h"
#include "common/IJetCompact.h"
#include "common/OleDbHandles.h"
#include "common/OleDbIids.h"
#include "common/OleDbMemory.h"
#include "common/Utf8.h"
#include "provider/objects/DataSource.h"
#include "tests/reliability/FaultInjection.h"

namespace {

using zel::Bstr;
using zel::ComPtr;
namespace faults = zel::test::faults;
using faults::Kind;

constexpr int kRows = 20;
constexpr int kInsertedId = 1000;

class FaultEnvironment : public testing::Environment {
public:
    void SetUp() override { ASSERT_TRUE(faults::Install()) << "the fault points could not be installed"; }
};
const testing::Environment* const g_environment = testing::AddGlobalTestEnvironment(new FaultEnvironment);

// ---- database files, read with SQLite directly ----

class TempFolder {
public:
    TempFolder() {
        wchar_t base[MAX_PATH];
        GetTempPathW(MAX_PATH, base);
        for (unsigned i = GetTickCount();; ++i) {
            m_path = std::wstring(base) + L"zelfault" + std::to_wstring(i);
            if (CreateDirectoryW(m_path.c_str(), nullptr)) break;
        }
    }
    ~TempFolder() {
        WIN32_FIND_DATAW entry;
        HANDLE find = FindFirstFileW((m_path + L"\\*").c_str(), &entry);
        if (find != INVALID_HANDLE_VALUE) {
            do DeleteFileW((m_path + L"\\" + entry.cFileName).c_str());
            while (FindNextFileW(find, &entry));
            FindClose(find);
        }
        RemoveDirectoryW(m_path.c_str());
    }
    std::wstring File(const wchar_t* name) const { return m_path + L"\\" + name; }

private:
    std::wstring m_path;
};

struct SqliteDb {
    sqlite3* db = nullptr;
    explicit SqliteDb(const std::wstring& path, int flags = SQLITE_OPEN_READWRITE) {
        if (sqlite3_open_v2(zel::ToUtf8(path).c_str(), &db, flags, nullptr) != SQLITE_OK) {
            sqlite3_close(db);
            db = nullptr;
        }
    }
    ~SqliteDb() { sqlite3_close(db); }
    // The first column of the first row of `sql` as text; empty when there is none.
    std::string Text(const char* sql) const {
        std::string result;
        sqlite3_stmt* statement = nullptr;
        if (!db) return "(no database)";
        int rc = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
        if (rc == SQLITE_OK) rc = sqlite3_step(statement);
        if (rc == SQLITE_ROW && sqlite3_column_text(statement, 0))
            result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        else if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            result = std::string("(") + sqlite3_errmsg(db) + ")";
        sqlite3_finalize(statement);
        return result;
    }
};

bool MakeBase(const std::wstring& path) {
    SqliteDb base(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!base.db) return false;
    std::string sql = "CREATE TABLE T(id INTEGER PRIMARY KEY, name TEXT NOT NULL, amount REAL);";
    for (int id = 1; id <= kRows; ++id)
        sql += "INSERT INTO T VALUES(" + std::to_string(id) + ", 'row " + std::to_string(id) + "', " +
               std::to_string(id) + ".25);";
    return sqlite3_exec(base.db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

// The file passes SQLite's integrity check and holds the committed rows 1..kRows unchanged
// (apart from row 1's name, which the update operation may have changed).
testing::AssertionResult Intact(const std::wstring& path) {
    // Read-write: a transaction that a failure interrupted leaves a journal that the next
    // connection rolls back, as any user of the file would.
    SqliteDb file(path);
    if (!file.db) return testing::AssertionFailure() << "the database file does not open";
    const std::string check = file.Text("PRAGMA integrity_check");
    if (check != "ok") return testing::AssertionFailure() << "integrity_check: " << check;
    const std::string rows = file.Text(
        "SELECT count(*) FROM T WHERE id BETWEEN 1 AND 20 AND amount = id + 0.25 AND "
        "(name = 'row ' || id OR (id = 1 AND name = 'changed'))");
    if (rows != std::to_string(kRows)) return testing::AssertionFailure() << rows << " of the committed rows are intact";
    return testing::AssertionSuccess();
}

// Whether the thread's error object has a non-empty description.
bool HasDescription() {
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.put()) != S_OK || !info) return false;
    BSTR text = nullptr;
    const bool described = SUCCEEDED(info->GetDescription(&text)) && text && *text;
    Bstr owned = Bstr::Attach(text);
    return described;
}

// ---- the provider's objects ----

// What one run works on. Everything the run itself uses is made before the fault is armed, so
// that only the provider's own work meets the faults.
struct RunState {
    std::wstring path;    // the database, a fresh copy of the base
    std::wstring target;  // a file the operation creates
    Bstr pathText;
    Bstr targetText;
    ComPtr<IDBInitialize> dataSource;
    ComPtr<IUnknown> session;
    // Rows read back by the fetch operation.
    struct Row {
        LONG id;
        DBSTATUS idStatus;
        DBLENGTH nameLength;
        DBSTATUS nameStatus;
        wchar_t name[64];
        double amount;
        DBSTATUS amountStatus;
    };
    Row rows[64];
    int fetched = 0;
    bool reachedEnd = false;  // the fetch read on to the end of the rowset
};

DBBINDING Binding(DBORDINAL ordinal, DBTYPE type, DBBYTEOFFSET value, DBBYTEOFFSET status, DBLENGTH maxLength,
                  DBBYTEOFFSET length = 0, bool withLength = false) {
    DBBINDING b{};
    b.iOrdinal = ordinal;
    b.obValue = value;
    b.obStatus = status;
    b.obLength = length;
    b.dwPart = DBPART_VALUE | DBPART_STATUS | (withLength ? DBPART_LENGTH : 0);
    b.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
    b.eParamIO = DBPARAMIO_NOTPARAM;
    b.cbMaxLen = maxLength;
    b.wType = type;
    return b;
}

// Bindings of (id, name, amount) into RunState::Row.
void RowBindings(DBBINDING out[3]) {
    out[0] = Binding(1, DBTYPE_I4, offsetof(RunState::Row, id), offsetof(RunState::Row, idStatus), sizeof(LONG));
    out[1] = Binding(2, DBTYPE_WSTR, offsetof(RunState::Row, name), offsetof(RunState::Row, nameStatus),
                     sizeof(RunState::Row::name), offsetof(RunState::Row, nameLength), true);
    out[2] = Binding(3, DBTYPE_R8, offsetof(RunState::Row, amount), offsetof(RunState::Row, amountStatus), sizeof(double));
}

// The DBINIT property set that names a database file (the name stays owned by the caller).
struct DataSourceName {
    DBPROP prop{};
    DBPROPSET set{};
    explicit DataSourceName(BSTR name) {
        prop.dwPropertyID = DBPROP_INIT_DATASOURCE;
        prop.dwOptions = DBPROPOPTIONS_REQUIRED;
        prop.colid = DB_NULLID;
        prop.vValue.vt = VT_BSTR;
        prop.vValue.bstrVal = name;
        set = DBPROPSET{&prop, 1, DBPROPSET_DBINIT};
    }
};

HRESULT SetDataSourceName(IUnknown* dataSource, BSTR name) {
    ComPtr<IDBProperties> properties;
    HRESULT hr = dataSource->QueryInterface(IID_IDBProperties, properties.put_void());
    if (FAILED(hr)) return hr;
    DataSourceName named(name);
    return properties->SetProperties(1, &named.set);
}

HRESULT NewDataSource(ComPtr<IDBInitialize>& out) {
    return zel::provider::DataSource::CreateInstance(nullptr, IID_IDBInitialize, out.put_void());
}

HRESULT OpenDataSource(RunState& r) {
    HRESULT hr = NewDataSource(r.dataSource);
    if (SUCCEEDED(hr)) hr = SetDataSourceName(r.dataSource.get(), r.pathText.get());
    if (SUCCEEDED(hr)) hr = r.dataSource->Initialize();
    ComPtr<IDBCreateSession> create;
    if (SUCCEEDED(hr)) hr = r.dataSource->QueryInterface(IID_IDBCreateSession, create.put_void());
    if (SUCCEEDED(hr)) hr = create->CreateSession(nullptr, IID_IOpenRowset, r.session.put());
    return hr;
}

HRESULT NewCommand(RunState& r, const wchar_t* sql, ComPtr<ICommandText>& out) {
    ComPtr<IDBCreateCommand> create;
    HRESULT hr = r.session->QueryInterface(IID_IDBCreateCommand, create.put_void());
    if (SUCCEEDED(hr)) hr = create->CreateCommand(nullptr, IID_ICommandText, reinterpret_cast<IUnknown**>(out.put()));
    if (SUCCEEDED(hr)) hr = out->SetCommandText(DBGUID_DEFAULT, sql);
    return hr;
}

HRESULT Execute(ICommandText* command, ComPtr<IRowset>& out) {
    return command->Execute(nullptr, IID_IRowset, nullptr, nullptr, reinterpret_cast<IUnknown**>(out.put()));
}

HRESULT MakeAccessor(IRowset* rowset, const DBBINDING* bindings, DBCOUNTITEM count, zel::Accessor& out) {
    ComPtr<IAccessor> accessor;
    HRESULT hr = rowset->QueryInterface(IID_IAccessor, accessor.put_void());
    HACCESSOR handle = DB_NULL_HACCESSOR;
    if (SUCCEEDED(hr))
        hr = accessor->CreateAccessor(DBACCESSOR_ROWDATA, count, bindings, sizeof(RunState::Row), &handle, nullptr);
    if (SUCCEEDED(hr)) out = zel::Accessor(std::move(accessor), handle);
    return hr;
}

// ---- the operations ----

struct Operation {
    const char* name;
    bool opensFirst;  // the data source and session are opened before the fault is armed
    std::function<HRESULT(RunState&)> run;
    // Checks what a successful run left (a failed one is checked by the common checks only).
    std::function<testing::AssertionResult(RunState&)> verifySuccess;
    // Checks every run, failed or not; may be empty.
    std::function<testing::AssertionResult(RunState&)> verifyAlways = {};
};

HRESULT OpenOperation(RunState& r) { return OpenDataSource(r); }

HRESULT CreateTableOperation(RunState& r) {
    ComPtr<ITableDefinition> definition;
    HRESULT hr = r.session->QueryInterface(IID_ITableDefinition, definition.put_void());
    if (FAILED(hr)) return hr;
    DBID table{};
    table.eKind = DBKIND_NAME;
    table.uName.pwszName = const_cast<wchar_t*>(L"Made");
    DBCOLUMNDESC columns[3]{};
    const wchar_t* names[] = {L"code", L"label", L"price"};
    const DBTYPE types[] = {DBTYPE_I4, DBTYPE_WSTR, DBTYPE_R8};
    for (int i = 0; i < 3; ++i) {
        columns[i].dbcid.eKind = DBKIND_NAME;
        columns[i].dbcid.uName.pwszName = const_cast<wchar_t*>(names[i]);
        columns[i].wType = types[i];
        columns[i].ulColumnSize = types[i] == DBTYPE_WSTR ? 40 : 0;
    }
    DBID* made = nullptr;
    hr = definition->CreateTable(nullptr, &table, 3, columns, IID_NULL, 0, nullptr, &made, nullptr);
    if (made) {
        if (made->eKind == DBKIND_NAME) CoTaskMemFree(made->uName.pwszName);
        CoTaskMemFree(made);
    }
    return hr;
}

// Reads every row. A fetch that fails is tried again (the fault was transient), so that a row
// lost to the failure shows; the first failure is what the operation returns.
HRESULT FetchOperation(RunState& r) {
    ComPtr<ICommandText> command;
    HRESULT hr = NewCommand(r, L"SELECT id, name, amount FROM T ORDER BY id", command);
    ComPtr<IRowset> rowset;
    if (SUCCEEDED(hr)) hr = Execute(command.get(), rowset);
    if (FAILED(hr)) return hr;
    DBBINDING bindings[3];
    RowBindings(bindings);
    zel::Accessor accessor;
    hr = MakeAccessor(rowset.get(), bindings, 3, accessor);
    if (FAILED(hr)) return hr;
    HRESULT first = S_OK;
    auto note = [&first](HRESULT failure) {
        if (SUCCEEDED(first)) first = failure;
    };
    for (int attempts = 0; attempts < 64;) {
        HROW handles[8];
        HROW* rows = handles;
        DBCOUNTITEM obtained = 0;
        const HRESULT step = rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 8, &obtained, &rows);
        if (FAILED(step)) {
            note(step);
            ++attempts;
            continue;
        }
        bool lost = false;
        for (DBCOUNTITEM i = 0; i < obtained && !lost; ++i) {
            if (r.fetched >= 64) return E_UNEXPECTED;
            HRESULT got = rowset->GetData(rows[i], accessor.get(), &r.rows[r.fetched]);
            if (FAILED(got)) {
                note(got);
                got = rowset->GetData(rows[i], accessor.get(), &r.rows[r.fetched]);
            }
            if (FAILED(got)) {
                note(got);
                lost = true;
            } else {
                ++r.fetched;
            }
        }
        if (obtained) rowset->ReleaseRows(obtained, rows, nullptr, nullptr, nullptr);
        if (lost) break;
        if (step == DB_S_ENDOFROWSET || obtained == 0) {
            r.reachedEnd = true;
            break;
        }
    }
    return first;
}

testing::AssertionResult FetchedEveryRow(RunState& r) {
    if (r.fetched != kRows) return testing::AssertionFailure() << "S_OK with " << r.fetched << " rows";
    for (int i = 0; i < kRows; ++i) {
        const RunState::Row& row = r.rows[i];
        const std::wstring name = L"row " + std::to_wstring(i + 1);
        if (row.id != i + 1 || name != row.name || row.amount != i + 1.25)
            return testing::AssertionFailure() << "S_OK with wrong data in row " << i + 1;
    }
    return testing::AssertionSuccess();
}

HRESULT ChangeOperation(RunState& r) {
    ComPtr<ICommandText> command;
    HRESULT hr = NewCommand(r, L"SELECT id, name, amount FROM T ORDER BY id", command);
    if (FAILED(hr)) return hr;
    DBPROP props[2]{};
    props[0].dwPropertyID = DBPROP_IRowsetChange;
    props[0].vValue.vt = VT_BOOL;
    props[0].vValue.boolVal = VARIANT_TRUE;
    props[1].dwPropertyID = DBPROP_UPDATABILITY;
    props[1].vValue.vt = VT_I4;
    props[1].vValue.lVal = DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_INSERT;
    for (DBPROP& p : props) {
        p.dwOptions = DBPROPOPTIONS_REQUIRED;
        p.colid = DB_NULLID;
    }
    DBPROPSET set{props, 2, DBPROPSET_ROWSET};
    ComPtr<ICommandProperties> commandProperties;
    hr = command->QueryInterface(IID_ICommandProperties, commandProperties.put_void());
    if (SUCCEEDED(hr)) hr = commandProperties->SetProperties(1, &set);
    ComPtr<IRowset> rowset;
    if (SUCCEEDED(hr)) hr = Execute(command.get(), rowset);
    ComPtr<IRowsetChange> change;
    if (SUCCEEDED(hr)) hr = rowset->QueryInterface(IID_IRowsetChange, change.put_void());
    if (FAILED(hr)) return hr;
    DBBINDING bindings[3];
    RowBindings(bindings);
    zel::Accessor all, nameOnly;
    hr = MakeAccessor(rowset.get(), bindings, 3, all);
    if (SUCCEEDED(hr)) hr = MakeAccessor(rowset.get(), &bindings[1], 1, nameOnly);
    RunState::Row row{};
    row.id = kInsertedId;
    std::wcscpy(row.name, L"inserted");
    row.nameLength = 8 * sizeof(wchar_t);
    row.amount = 7.5;
    if (SUCCEEDED(hr)) hr = change->InsertRow(DB_NULL_HCHAPTER, all.get(), &row, nullptr);
    if (SUCCEEDED(hr)) {
        HROW first = DB_NULL_HROW;
        HROW* rows = &first;
        DBCOUNTITEM obtained = 0;
        hr = rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows);
        if (SUCCEEDED(hr) && obtained == 1) {
            std::wcscpy(row.name, L"changed");
            row.nameLength = 7 * sizeof(wchar_t);
            hr = change->SetData(first, nameOnly.get(), &row);
        } else if (SUCCEEDED(hr)) {
            hr = E_UNEXPECTED;
        }
        if (obtained) rowset->ReleaseRows(obtained, rows, nullptr, nullptr, nullptr);
    }
    return hr;
}

testing::AssertionResult ChangesStored(RunState& r) {
    SqliteDb file(r.path, SQLITE_OPEN_READONLY);
    if (file.Text("SELECT name FROM T WHERE id = 1000") != "inserted")
        return testing::AssertionFailure() << "S_OK, but the inserted row is not stored";
    if (file.Text("SELECT name FROM T WHERE id = 1") != "changed")
        return testing::AssertionFailure() << "S_OK, but the changed value is not stored";
    return testing::AssertionSuccess();
}

HRESULT PropertiesOperation(RunState& r) {
    ComPtr<IDBProperties> properties;
    HRESULT hr = r.dataSource->QueryInterface(IID_IDBProperties, properties.put_void());
    if (FAILED(hr)) return hr;
    ULONG count = 0;
    DBPROPSET* sets = nullptr;
    hr = properties->GetProperties(0, nullptr, &count, &sets);
    zel::PropertySets owned(sets, count);
    if (FAILED(hr)) return hr;
    DBPROPINFOSET* infos = nullptr;
    OLECHAR* strings = nullptr;
    hr = properties->GetPropertyInfo(0, nullptr, &count, &infos, &strings);
    zel::PropertyInfoSets ownedInfos(infos, count);
    CoTaskMemFree(strings);
    if (FAILED(hr)) return hr;
    ComPtr<ISessionProperties> session;
    hr = r.session->QueryInterface(IID_ISessionProperties, session.put_void());
    if (SUCCEEDED(hr)) {
        sets = nullptr;
        hr = session->GetProperties(0, nullptr, &count, &sets);
        zel::PropertySets ownedSession(sets, count);
    }
    ComPtr<ICommandText> command;
    if (SUCCEEDED(hr)) hr = NewCommand(r, L"SELECT id FROM T", command);
    ComPtr<ICommandProperties> commandProperties;
    if (SUCCEEDED(hr)) hr = command->QueryInterface(IID_ICommandProperties, commandProperties.put_void());
    if (FAILED(hr)) return hr;
    DBPROP prop{};
    prop.dwPropertyID = DBPROP_IRowsetChange;
    prop.dwOptions = DBPROPOPTIONS_REQUIRED;
    prop.colid = DB_NULLID;
    prop.vValue.vt = VT_BOOL;
    prop.vValue.boolVal = VARIANT_TRUE;
    DBPROPSET set{&prop, 1, DBPROPSET_ROWSET};
    hr = commandProperties->SetProperties(1, &set);
    if (SUCCEEDED(hr)) {
        sets = nullptr;
        hr = commandProperties->GetProperties(0, nullptr, &count, &sets);
        zel::PropertySets ownedCommand(sets, count);
    }
    return hr;
}

HRESULT CreateFileOperation(RunState& r) {
    HRESULT hr = NewDataSource(r.dataSource);
    ComPtr<IDBDataSourceAdmin> admin;
    if (SUCCEEDED(hr)) hr = r.dataSource->QueryInterface(IID_IDBDataSourceAdmin, admin.put_void());
    if (FAILED(hr)) return hr;
    DataSourceName target(r.targetText.get());
    return admin->CreateDataSource(1, &target.set, nullptr, IID_NULL, nullptr);
}

testing::AssertionResult TargetIsADatabase(RunState& r, bool withRows) {
    SqliteDb file(r.target, SQLITE_OPEN_READONLY);
    if (!file.db) return testing::AssertionFailure() << "S_OK, but the new file does not open";
    const std::string check = file.Text("PRAGMA integrity_check");
    if (check != "ok") return testing::AssertionFailure() << "S_OK, but the new file fails integrity_check: " << check;
    if (withRows && file.Text("SELECT count(*) FROM T") != std::to_string(kRows))
        return testing::AssertionFailure() << "S_OK, but the compacted copy lacks rows";
    return testing::AssertionSuccess();
}

HRESULT CompactOperation(RunState& r) {
    ComPtr<IJetCompact> compact;
    HRESULT hr = r.dataSource->QueryInterface(__uuidof(IJetCompact), compact.put_void());
    if (FAILED(hr)) return hr;
    DataSourceName target(r.targetText.get());
    return compact->Compact(1, &target.set);
}

const Operation kOperations[] = {
    {"open a data source", false, &OpenOperation, [](RunState& r) {
         return r.session ? testing::AssertionSuccess() : testing::AssertionFailure() << "S_OK without a session";
     }},
    {"create a table", true, &CreateTableOperation, [](RunState& r) {
         SqliteDb file(r.path, SQLITE_OPEN_READONLY);
         return file.Text("SELECT count(*) FROM sqlite_master WHERE name = 'Made'") == "1"
                    ? testing::AssertionSuccess()
                    : testing::AssertionFailure() << "S_OK, but the table is not there";
     }},
    {"execute and fetch all rows", true, &FetchOperation, &FetchedEveryRow, [](RunState& r) {
         // Fetches tried again after a failure must still give every row once, in order.
         return r.reachedEnd ? FetchedEveryRow(r) : testing::AssertionSuccess();
     }},
    {"insert and update through a rowset", true, &ChangeOperation, &ChangesStored},
    {"get and set properties", true, &PropertiesOperation, [](RunState&) { return testing::AssertionSuccess(); }},
    {"create a database file", false, &CreateFileOperation, [](RunState& r) { return TargetIsADatabase(r, false); }},
    {"compact a database file", true, &CompactOperation, [](RunState& r) { return TargetIsADatabase(r, true); }},
};

const Kind kKinds[] = {Kind::SqliteMemory, Kind::TaskMemory, Kind::Heap, Kind::Read,
                       Kind::Write,        Kind::Sync,       Kind::Lock, Kind::DiskFull};

struct Tally {
    unsigned points = 0;  // calls of the kind in a run without a fault
    std::map<HRESULT, unsigned> results;
};

class FaultSimulationTest : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        ASSERT_TRUE(faults::Install());
        m_base = m_folder.File(L"base.db");
        ASSERT_TRUE(MakeBase(m_base));
    }

    // One run with the `nth` call of `kind` failing; false when the fault did not fire (the
    // operation ran clean), with the number of calls it made in `points`.
    bool RunOnce(const Operation& op, Kind kind, bool persistent, unsigned nth, Tally& tally) {
        RunState r;
        r.path = m_folder.File(L"run.db");
        r.target = m_folder.File(L"target.db");
        DeleteFileW(r.target.c_str());
        EXPECT_TRUE(CopyFileW(m_base.c_str(), r.path.c_str(), FALSE));
        r.pathText = Bstr(r.path);
        r.targetText = Bstr(r.target);
        const LONG objects = zel::ModuleLifetime::Count();
        const sqlite3_int64 memory = sqlite3_memory_used();
        if (op.opensFirst) {
            const HRESULT opened = OpenDataSource(r);
            EXPECT_EQ(S_OK, opened) << "opening before the fault";
            if (FAILED(opened)) return false;
        }
        faults::Arm(kind, nth, persistent);
        HRESULT hr = E_UNEXPECTED;
        try {
            hr = op.run(r);
        } catch (...) {
            ADD_FAILURE() << op.name << ": an exception left the provider at " << faults::Name(kind) << " " << nth;
        }
        const bool fired = faults::Fired();
        const unsigned seen = faults::Seen();
        faults::Disarm();

        char caller[48] = "";
        if (kind == Kind::Heap && fired)
            std::snprintf(caller, sizeof caller, " (asked for at %p)", faults::LastHeapFaultCaller());
        const std::string where = std::string(op.name) + ", " + (persistent ? "every " : "") + faults::Name(kind) +
                                  " from " + std::to_string(nth) +
                                  (fired ? " failing" : " (ran clean)") + caller;
        if (op.verifyAlways) {
            EXPECT_TRUE(op.verifyAlways(r)) << where;
        }
        if (hr == S_OK || hr == DB_S_ERRORSOCCURRED) {
            EXPECT_TRUE(op.verifySuccess(r)) << where;
        } else {
            EXPECT_TRUE(FAILED(hr)) << where << ": 0x" << std::hex << hr;
            // A failure other than memory says what went wrong in an error object.
            if (hr != E_OUTOFMEMORY) {
                EXPECT_TRUE(HasDescription()) << where << ": 0x" << std::hex << hr << " without a description";
            }
        }
        if (!fired) {
            EXPECT_EQ(S_OK, hr) << where;
        }
        r.session.reset();
        r.dataSource.reset();
        SetErrorInfo(0, nullptr);  // the provider's error object counts as a live object
        EXPECT_EQ(objects, zel::ModuleLifetime::Count()) << where << ": objects left behind";
        EXPECT_EQ(memory, sqlite3_memory_used()) << where << ": SQLite memory left behind";
        EXPECT_TRUE(Intact(r.path)) << where;
        if (fired) {
            ++tally.results[hr];
        } else {
            tally.points = seen;
        }
        return fired;
    }

    TempFolder m_folder;
    std::wstring m_base;
};

TEST_P(FaultSimulationTest, EveryFaultPointGivesAFailureOrTheRightResultAndLeavesNothingBehind) {
    const Operation& op = kOperations[GetParam()];
    for (Kind kind : kKinds) {
        // A full disk stays full; the other kinds fail once, then for good.
        for (bool persistent : {kind == Kind::DiskFull, true}) {
            Tally tally;
            for (unsigned nth = 1; RunOnce(op, kind, persistent, nth, tally); ++nth) {
                if (HasFailure()) break;  // the first defect, not a thousand reports of it
            }
            std::string results;
            for (const auto& [hr, count] : tally.results) {
                char text[32];
                std::snprintf(text, sizeof text, " 0x%08lX x%u", static_cast<unsigned long>(hr), count);
                results += text;
            }
            std::printf("%-36s %-10s %-24s %5u points;%s\n", op.name, persistent ? "persistent" : "transient",
                        faults::Name(kind), tally.points, results.c_str());
            if (HasFailure()) return;
            if (kind == Kind::DiskFull) break;
        }
    }
}

// The fault points themselves: each refuses the call it is armed for (Wine's task allocator
// honours a spy that asks for 0 bytes).
TEST(FaultPointTest, EachArmedPointRefusesItsCall) {
    ASSERT_TRUE(faults::Install());
    faults::Arm(Kind::TaskMemory, 1, false);
    void* task = CoTaskMemAlloc(16);
    faults::Disarm();
    EXPECT_EQ(nullptr, task);
    CoTaskMemFree(task);

    faults::Arm(Kind::SqliteMemory, 1, false);
    void* sqlite = sqlite3_malloc(16);
    faults::Disarm();
    EXPECT_EQ(nullptr, sqlite);
    sqlite3_free(sqlite);

    faults::Arm(Kind::Heap, 1, false);
    bool refused = false;
    try {
        ::operator delete(::operator new(16));  // a call, which no compiler leaves out
    } catch (const std::bad_alloc&) {
        refused = true;
    }
    faults::Disarm();
    EXPECT_TRUE(refused);

    TempFolder folder;
    const std::wstring path = folder.File(L"points.db");
    ASSERT_TRUE(MakeBase(path));
    SqliteDb file(path);
    ASSERT_NE(nullptr, file.db);
    faults::Arm(Kind::Read, 1, true);
    const std::string count = file.Text("SELECT count(*) FROM T");
    faults::Disarm();
    EXPECT_TRUE(faults::Fired());
    EXPECT_NE(std::to_string(kRows), count) << "a read that fails still gave the rows";
}

std::string OperationName(const testing::TestParamInfo<int>& info) {
    static const char* const names[] = {"Open", "CreateTable", "Fetch", "InsertUpdate", "Properties", "CreateFile",
                                        "Compact"};
    return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultSimulationTest, testing::Range(0, static_cast<int>(std::size(kOperations))),
                         &OperationName);

}  // namespace
