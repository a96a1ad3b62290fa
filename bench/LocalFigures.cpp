#include "bench/LocalFigures.h"

#include <windows.h>
#include <oledb.h>
#include <msdasc.h>

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "bench/BenchData.h"
#include "bench/ServiceWalk.h"
#include "common/Bstr.h"
#include "common/ComError.h"
#include "common/ComPtr.h"
#include "common/CoTaskMem.h"
#include "common/OleDbIids.h"
#include "oledb/DynamicColumnAccessor.h"
#include "oledb/KobOleDbCommand.h"
#include "oledb/KobOleDbConnection.h"
#include "oledb/ServerRowsetProperties.h"
#include "service/ZelOleDbImpl.h"
#include "xml/KobOleDbXML.h"

namespace zel::bench {
namespace {

Measurement Start(const std::string& figure, const char* title, const LocalPlan& plan) {
    Measurement m;
    m.figure = figure + plan.series;
    m.title = title;
    if (!plan.seriesTitle.empty()) m.title += ", " + plan.seriesTitle;
    m.n = plan.n;
    m.memoryCounter = "PeakWorkingSetSize of this process";
    return m;
}

// Runs the repetition, records the process's peak afterwards, and turns any exception into
// a failed measurement with its reason.
template <typename Body>
void Run(Measurement& m, const LocalPlan& plan, Body&& body) {
    m.memoryBefore = ReadOwnMemoryCounters().peakWorkingSet;  // after the set-up
    RepeatInto(m, plan.warmups, plan.runs, "out of memory", body);
    m.memoryPeak = ReadOwnMemoryCounters().peakWorkingSet;
}

void Fail(Measurement& m, const std::string& why) {
    m.status = "failed";
    m.note = why;
}

// Opens the plan's database through the server's connection class; the reason when that
// failed, else empty.
std::string OpenConnection(KobOleDbConnection& connection, const LocalPlan& plan) {
    HRESULT hr = connection.Open(Bstr(plan.connectionString).get(), false);
    if (hr == S_OK) return {};
    return "KobOleDbConnection::Open " + HresultText(hr) + ": " + ToUtf8(connection.GetErrorText());
}

// Executes the row query on `connection`; throws when it does not run.
void ExecuteRowQuery(KobOleDbCommand& command, KobOleDbConnection& connection) {
    command.SetConnection(&connection);
    command.SetCommandText(kRowQuery);
    if (command.Execute() != kTriTrue) ThrowHr(E_FAIL);
}

// The provider's data source, initialized, and a session on it asking for `iid`.
HRESULT OpenSession(const std::wstring& connectionString, REFIID iid, IUnknown** session) {
    ComPtr<IDataInitialize> init;
    ComPtr<IDBInitialize> dataSource;
    HRESULT hr = TryCreateInstance(CLSID_MSDAINITIALIZE, init);
    if (SUCCEEDED(hr))
        hr = init->GetDataSource(nullptr, CLSCTX_INPROC_SERVER, Bstr(connectionString).get(), IID_IDBInitialize,
                                 dataSource.put_unknown());
    if (SUCCEEDED(hr)) hr = dataSource->Initialize();
    ComPtr<IDBCreateSession> createSession;
    if (SUCCEEDED(hr)) hr = dataSource.query(createSession);
    if (SUCCEEDED(hr)) hr = createSession->CreateSession(nullptr, iid, session);
    return hr;
}

}  // namespace

std::string DescribeCatalogSupport(const std::wstring& connectionString) {
    ComPtr<IDBCreateCommand> session;
    HRESULT hr = OpenSession(connectionString, IID_IDBCreateCommand, session.put_unknown());
    if (FAILED(hr)) return "the provider's session could not be opened: " + HresultText(hr);
    ComPtr<IDBSchemaRowset> schemas;
    hr = session.query(schemas);
    if (FAILED(hr))
        return "the provider's session does not offer IDBSchemaRowset (QueryInterface: " + HresultText(hr) +
               "), so TblOpen and ColOpen have no schema rowset to read";
    ULONG count = 0;
    CoTaskMem<GUID> guids;
    CoTaskMem<ULONG> restrictions;
    hr = schemas->GetSchemas(&count, guids.put(), restrictions.put());
    if (FAILED(hr)) return "IDBSchemaRowset::GetSchemas failed: " + HresultText(hr);
    bool tables = false, columns = false;
    for (ULONG i = 0; i < count; ++i) {
        tables = tables || guids.get()[i] == DBSCHEMA_TABLES;
        columns = columns || guids.get()[i] == DBSCHEMA_COLUMNS;
    }
    if (tables && columns) return "the provider offers the TABLES and COLUMNS schema rowsets";
    return std::string("the provider's schema rowsets lack") + (tables ? "" : " TABLES") + (columns ? "" : " COLUMNS");
}

Measurement MeasureSqlite(const LocalPlan& plan) {
    Measurement m = Start("1", "SQLite: prepare, step, every column as UTF-16 text (in-process, 32-bit)", plan);
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(ToUtf8(plan.database).c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        Fail(m, std::string("sqlite3_open_v2: ") + (db ? sqlite3_errmsg(db) : "out of memory"));
        sqlite3_close(db);
        return m;
    }
    const std::string query = ToUtf8(kRowQuery);
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, query.c_str(), -1, &statement, nullptr) != SQLITE_OK) ThrowHr(E_FAIL);
        const int columns = sqlite3_column_count(statement);
        s.setupSeconds = clock.Seconds();
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int c = 0; c < columns; ++c) {
                // The conversion to UTF-16 happens here; the byte count reads the converted text.
                if (sqlite3_column_text16(statement, c)) s.bytes += static_cast<unsigned>(sqlite3_column_bytes16(statement, c));
            }
            s.calls += static_cast<unsigned>(columns) + 1;
            ++s.rows;
        }
        sqlite3_finalize(statement);
        s.seconds = clock.Seconds();
        return s;
    });
    sqlite3_close(db);
    return m;
}

Measurement MeasureOleDb(const LocalPlan& plan) {
    Measurement m = Start("2", "OLE DB: ICommand::Execute, GetNextRows of 1 row, GetData with the server's binding", plan);
    ComPtr<IDBCreateCommand> session;
    HRESULT hr = OpenSession(plan.connectionString, IID_IDBCreateCommand, session.put_unknown());
    if (FAILED(hr)) {
        Fail(m, "opening the data source and session: " + HresultText(hr));
        return m;
    }
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        ComPtr<ICommandText> text;
        ZEL_THROW_IF_FAILED(session->CreateCommand(nullptr, IID_ICommandText, text.put_unknown()));
        ZEL_THROW_IF_FAILED(text->SetCommandText(DBGUID_DEFAULT, kRowQuery));
        ComPtr<ICommand> command = text.as<ICommand>();
        ZEL_THROW_IF_FAILED(SetServerRowsetProperties(command.get()));
        ComPtr<IRowset> rowset;
        DBROWCOUNT affected = 0;
        ZEL_THROW_IF_FAILED(command->Execute(nullptr, IID_IRowset, nullptr, &affected, rowset.put_unknown()));
        DynamicColumnAccessor accessor;
        ZEL_THROW_IF_FAILED(accessor.Bind(rowset.get()));
        s.setupSeconds = clock.Seconds();
        for (;;) {
            HROW row = DB_NULL_HROW;
            HROW* rows = &row;
            DBCOUNTITEM obtained = 0;
            HRESULT next = rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows);
            s.calls += 1;
            if (next != S_OK || obtained != 1) break;
            HRESULT data = rowset->GetData(row, accessor.Handle(), accessor.Buffer());
            accessor.ReleaseRowValues();
            rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
            s.calls += 2;
            ZEL_THROW_IF_FAILED(data);
            ++s.rows;
        }
        accessor.Release();
        rowset.reset();
        s.seconds = clock.Seconds();
        return s;
    });
    return m;
}

Measurement MeasureCommand(const LocalPlan& plan) {
    Measurement m = Start("3", "KobOleDbCommand: Execute, FetchNext, FieldAsString of every column", plan);
    KobOleDbConnection connection;
    if (const std::string error = OpenConnection(connection, plan); !error.empty()) {
        Fail(m, error);
        return m;
    }
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        KobOleDbCommand command;
        ExecuteRowQuery(command, connection);
        const ULONG columns = command.GetColumnCount();
        s.setupSeconds = clock.Seconds();
        s.calls = 1;
        while (command.FetchNext() == kTriTrue) {
            for (ULONG c = 1; c <= columns; ++c) s.bytes += command.FieldAsString(c).size() * sizeof(wchar_t);
            s.calls += columns + 1;
            ++s.rows;
        }
        s.seconds = clock.Seconds();
        return s;
    });
    return m;
}

std::string FieldCostBreakdown(const LocalPlan& plan) {
    KobOleDbConnection connection;
    if (const std::string error = OpenConnection(connection, plan); !error.empty()) return error;
    // One pass of figure 3 with a clock around every call: slot 0 totals FetchNext, slot c
    // FieldAsString(c). The clock costs well under a microsecond a reading.
    std::vector<std::wstring> names(kRowColumns + 1);
    std::vector<DBTYPE> types(kRowColumns + 1);
    std::vector<std::vector<double>> totals(kRowColumns + 1);
    std::vector<double> characters(kRowColumns + 1);
    unsigned long long rows = 0;
    auto pass = [&] {
        KobOleDbCommand command;
        ExecuteRowQuery(command, connection);
        std::vector<double> spent(kRowColumns + 1);
        std::vector<double> length(kRowColumns + 1);
        LARGE_INTEGER before, after;
        rows = 0;
        for (;;) {
            QueryPerformanceCounter(&before);
            const short more = command.FetchNext();
            QueryPerformanceCounter(&after);
            spent[0] += static_cast<double>(after.QuadPart - before.QuadPart);
            if (more != kTriTrue) break;
            ++rows;
            for (ULONG c = 1; c <= kRowColumns; ++c) {
                QueryPerformanceCounter(&before);
                const std::wstring text = command.FieldAsString(c);
                QueryPerformanceCounter(&after);
                spent[c] += static_cast<double>(after.QuadPart - before.QuadPart);
                length[c] += static_cast<double>(text.size());
            }
        }
        for (ULONG c = 1; c <= kRowColumns; ++c) {
            names[c] = command.GetColumnName(c);
            types[c] = command.GetRawType(c);
            characters[c] = length[c];
        }
        LARGE_INTEGER frequency;
        QueryPerformanceFrequency(&frequency);
        for (ULONG c = 0; c <= kRowColumns; ++c) totals[c].push_back(spent[c] / static_cast<double>(frequency.QuadPart));
        return RunSample{};
    };
    std::string text;
    char line[200];
    try {
        Repeat(plan.warmups, plan.runs, pass);
        // The warm-up runs come first.
        for (auto& column : totals) column.erase(column.begin(), column.end() - plan.runs);
        auto median = [](std::vector<double> values) {
            std::sort(values.begin(), values.end());
            return values[values.size() / 2];
        };
        const double n = static_cast<double>(rows);
        double sum = 0;
        for (const auto& column : totals) sum += median(column);
        std::snprintf(line, sizeof line, "%llu rows, median of %d runs; time inside the calls: %.3f s a run\n", rows,
                      plan.runs, sum);
        text += line;
        text += "call                            DBTYPE  us a call  share  characters a value\n";
        std::snprintf(line, sizeof line, "%-30s  %6s  %9.2f  %4.0f%%\n", "FetchNext", "-", 1e6 * median(totals[0]) / n,
                      100 * median(totals[0]) / sum);
        text += line;
        for (ULONG c = 1; c <= kRowColumns; ++c) {
            const std::string call = "FieldAsString(" + ToUtf8(names[c]) + ")";
            std::snprintf(line, sizeof line, "%-30s  %6u  %9.2f  %4.0f%%  %18.1f\n", call.c_str(),
                          static_cast<unsigned>(types[c]), 1e6 * median(totals[c]) / n, 100 * median(totals[c]) / sum,
                          characters[c] / n);
            text += line;
        }
    } catch (const ComError& e) {
        text += "failed with " + HresultText(e.code()) + "\n";
    }
    return text;
}

Measurement MeasureDocument(const LocalPlan& plan) {
    Measurement m = Start("4", "KobOleDbXML::BuildQueryDataXml after KobOleDbCommand::Execute", plan);
    KobOleDbConnection connection;
    if (const std::string error = OpenConnection(connection, plan); !error.empty()) {
        Fail(m, error);
        return m;
    }
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        KobOleDbCommand command;
        ExecuteRowQuery(command, connection);
        s.setupSeconds = clock.Seconds();
        // The BSTR the server hands out, as CmdExecute asks for it.
        Bstr xml;
        {
            KobOleDbXML writer;
            if (!writer.BuildQueryDataXml(&command, xml)) ThrowHr(E_FAIL);
        }
        s.seconds = clock.Seconds();
        s.calls = 1;
        s.bytes = xml.length() * sizeof(wchar_t);
        s.rows = CountDocumentRows(xml.c_str(), xml.length());
        return s;
    });
    return m;
}

Measurement MeasureServiceInProcess(const LocalPlan& plan) {
    Measurement m = Start("5c", "ZelOleDbImpl in-process: the calls of 5a without the process boundary", plan);
    ComPtr<IZelOleDb> service;
    HRESULT hr = ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, service.put_void());
    if (FAILED(hr)) {
        Fail(m, "creating ZelOleDbImpl: " + HresultText(hr));
        return m;
    }
    ULONG handle = 0;
    ULONG columns = 0;
    std::string error = PrepareServiceCommand(service.get(), plan.connectionString, kRowQuery, handle, columns);
    if (!error.empty()) {
        Fail(m, error);
        return m;
    }
    Run(m, plan, [&] { return WalkRows(service.get(), handle, columns); });
    service->CmdDestroy(handle);
    service->ConClose();
    return m;
}

}  // namespace zel::bench
