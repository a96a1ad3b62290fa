#include "bench/LocalFigures.h"

#include <windows.h>
#include <oledb.h>
#include <msdasc.h>

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
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
#include "service/ZelOleDbImpl.h"
#include "xml/KobOleDbXML.h"

namespace zel::bench {
namespace {

Measurement Start(const char* figure, const char* title, const LocalPlan& plan) {
    Measurement m;
    m.figure = figure;
    m.title = title;
    m.n = plan.n;
    m.memoryCounter = "PeakWorkingSetSize of this process";
    return m;
}

// Runs the repetition, records the process's peak afterwards, and turns any exception into
// a failed measurement with its reason.
template <typename Body>
void Run(Measurement& m, const LocalPlan& plan, Body&& body) {
    m.memoryBefore = ReadOwnMemoryCounters().peakWorkingSet;  // after the set-up
    try {
        m.samples = Repeat(plan.warmups, plan.runs, body);
    } catch (const ComError& e) {
        m.status = "failed";
        m.note = "failed with " + HresultText(e.code());
    } catch (const std::bad_alloc&) {
        m.status = "failed";
        m.note = "out of memory";
    } catch (const std::exception& e) {
        m.status = "failed";
        m.note = e.what();
    }
    m.memoryPeak = ReadOwnMemoryCounters().peakWorkingSet;
}

void Fail(Measurement& m, const std::string& why) {
    m.status = "failed";
    m.note = why;
}

// The rowset properties the server's command asks for: scrollable and updatable, with
// storage objects for long values.
HRESULT SetServerRowsetProperties(ICommand* command) {
    DBPROP props[5] = {};
    const DBPROPID ids[5] = {DBPROP_IRowsetChange, DBPROP_UPDATABILITY, DBPROP_CANSCROLLBACKWARDS,
                             DBPROP_ISequentialStream, DBPROP_IStream};
    const DBPROPOPTIONS options[5] = {DBPROPOPTIONS_OPTIONAL, DBPROPOPTIONS_REQUIRED, DBPROPOPTIONS_REQUIRED,
                                      DBPROPOPTIONS_OPTIONAL, DBPROPOPTIONS_OPTIONAL};
    for (int i = 0; i < 5; ++i) {
        props[i].dwPropertyID = ids[i];
        props[i].dwOptions = options[i];
        props[i].colid = DB_NULLID;
        if (ids[i] == DBPROP_UPDATABILITY) {
            V_VT(&props[i].vValue) = VT_I4;
            V_I4(&props[i].vValue) = DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_DELETE | DBPROPVAL_UP_INSERT;
        } else {
            V_VT(&props[i].vValue) = VT_BOOL;
            V_BOOL(&props[i].vValue) = VARIANT_TRUE;
        }
    }
    DBPROPSET set = {props, 5, DBPROPSET_ROWSET};
    ComPtr<ICommandProperties> properties;
    HRESULT hr = ComPtr<ICommand>(command).query(properties);
    return FAILED(hr) ? hr : properties->SetProperties(1, &set);
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
    if (sqlite3_open_v2(Narrow(plan.database).c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        Fail(m, std::string("sqlite3_open_v2: ") + (db ? sqlite3_errmsg(db) : "out of memory"));
        sqlite3_close(db);
        return m;
    }
    const std::string query = Narrow(kRowQuery);
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
    HRESULT hr = connection.Open(Bstr(plan.connectionString).get(), false);
    if (hr != S_OK) {
        Fail(m, "KobOleDbConnection::Open " + HresultText(hr) + ": " + Narrow(connection.GetErrorText()));
        return m;
    }
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        KobOleDbCommand command;
        command.SetConnection(&connection);
        command.SetCommandText(kRowQuery);
        if (command.Execute() != kTriTrue) ThrowHr(E_FAIL);
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
    HRESULT hr = connection.Open(Bstr(plan.connectionString).get(), false);
    if (hr != S_OK) return "KobOleDbConnection::Open " + HresultText(hr) + ": " + Narrow(connection.GetErrorText());
    // Pass `column` reads that one column of every row; pass 0 only moves.
    std::wstring name;
    DBTYPE type = 0;
    auto pass = [&](ULONG column) {
        KobOleDbCommand command;
        command.SetConnection(&connection);
        command.SetCommandText(kRowQuery);
        if (command.Execute() != kTriTrue) ThrowHr(E_FAIL);
        Stopwatch clock;
        RunSample s;
        size_t characters = 0;
        while (command.FetchNext() == kTriTrue) {
            if (column) characters += command.FieldAsString(column).size();
            ++s.rows;
        }
        s.seconds = clock.Seconds();
        s.bytes = characters * sizeof(wchar_t);
        if (column) {
            name = command.GetColumnName(column);
            type = command.GetRawType(column);
        }
        return s;
    };
    auto median = [](const std::vector<RunSample>& samples) {
        std::vector<double> seconds;
        for (const RunSample& s : samples) seconds.push_back(s.seconds);
        std::sort(seconds.begin(), seconds.end());
        return seconds[seconds.size() / 2];
    };
    std::string text;
    char line[200];
    try {
        const std::vector<RunSample> moves = Repeat(plan.warmups, plan.runs, [&] { return pass(0); });
        const double base = median(moves);
        const double rows = static_cast<double>(moves.front().rows);
        std::snprintf(line, sizeof line, "FetchNext alone: %.3f s for %.0f rows, %.2f us a row (median of %d runs)\n",
                      base, rows, 1e6 * base / rows, plan.runs);
        text += line;
        text += "column          DBTYPE  us per FieldAsString  characters a value\n";
        for (ULONG c = 1; c <= kRowColumns; ++c) {
            const std::vector<RunSample> samples = Repeat(plan.warmups, plan.runs, [&] { return pass(c); });
            const double cost = (median(samples) - base) / rows;
            std::snprintf(line, sizeof line, "%-14s  %6u  %20.2f  %18.1f\n", Narrow(name).c_str(),
                          static_cast<unsigned>(type), 1e6 * cost,
                          static_cast<double>(samples.front().bytes) / sizeof(wchar_t) / rows);
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
    HRESULT hr = connection.Open(Bstr(plan.connectionString).get(), false);
    if (hr != S_OK) {
        Fail(m, "KobOleDbConnection::Open " + HresultText(hr) + ": " + Narrow(connection.GetErrorText()));
        return m;
    }
    Run(m, plan, [&] {
        RunSample s;
        Stopwatch clock;
        KobOleDbCommand command;
        command.SetConnection(&connection);
        command.SetCommandText(kRowQuery);
        if (command.Execute() != kTriTrue) ThrowHr(E_FAIL);
        s.setupSeconds = clock.Seconds();
        std::wstring xml;
        {
            KobOleDbXML writer;
            if (!writer.BuildQueryDataXml(&command, xml)) ThrowHr(E_FAIL);
        }
        s.seconds = clock.Seconds();
        s.calls = 1;
        s.bytes = xml.size() * sizeof(wchar_t);
        s.rows = CountDocumentRows(xml.data(), xml.size());
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
