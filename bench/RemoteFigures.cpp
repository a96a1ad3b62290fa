#include "bench/RemoteFigures.h"

#include <windows.h>
#include <oleauto.h>

#include <algorithm>

#include "ZelPmDb32.h"
#include "bench/BenchData.h"
#include "bench/ServiceWalk.h"
#include "common/Bstr.h"
#include "common/ComError.h"
#include "common/ComPtr.h"
#include "common/Variant.h"

namespace zel::bench {
namespace {

constexpr const wchar_t* kServerExe = L"ZelPmDb32.exe";
constexpr DWORD kServerExitWait = 15000;  // for the server this measurement started
constexpr DWORD kEarlierServerWait = 3000;  // for servers still ending from earlier measurements

// The service object in a server process of its own: created through COM activation, with a
// handle on the process for its memory counters. The server ends when the object is released.
class RemoteService {
public:
    RemoteService() = default;
    RemoteService(const RemoteService&) = delete;
    RemoteService& operator=(const RemoteService&) = delete;
    ~RemoteService() { Stop(); }

    // Gives servers of earlier measurements a moment to end, then activates the class out of
    // process. The server is the process that was not there before; when the class object of
    // an already running server answered instead, no memory is read (its peak would not be
    // this measurement's).
    std::string Start() {
        const DWORD start = GetTickCount();
        for (DWORD id : ProcessIdsByName(kServerExe)) {
            const DWORD spent = GetTickCount() - start;
            if (spent < kEarlierServerWait) WaitForExit(id, kEarlierServerWait - spent);
        }
        const std::vector<DWORD> before = ProcessIdsByName(kServerExe);
        HRESULT hr = CoCreateInstance(CLSID_ZelOleDbImpl, nullptr, CLSCTX_LOCAL_SERVER, IID_IZelOleDb,
                                      m_service.put_void());
        if (FAILED(hr)) return "CoCreateInstance(CLSCTX_LOCAL_SERVER) " + HresultText(hr);
        for (DWORD id : ProcessIdsByName(kServerExe))
            if (std::find(before.begin(), before.end(), id) == before.end()) m_processId = id;
        if (m_processId != 0)
            m_process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, m_processId);
        return {};
    }

    IZelOleDb* get() const { return m_service.get(); }
    unsigned long long PeakWorkingSet() const { return m_process ? ReadMemoryCounters(m_process).peakWorkingSet : 0; }
    bool HasOwnProcess() const { return m_process != nullptr; }

    void Stop() {
        m_service.reset();
        if (m_process) {
            WaitForSingleObject(m_process, kServerExitWait);
            CloseHandle(m_process);
            m_process = nullptr;
        }
    }

private:
    static void WaitForExit(DWORD id, DWORD milliseconds) {
        HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, id);
        if (!process) return;
        WaitForSingleObject(process, milliseconds);
        CloseHandle(process);
    }

    ComPtr<IZelOleDb> m_service;
    DWORD m_processId = 0;
    HANDLE m_process = nullptr;
};

Measurement Start(const char* figure, const char* title, unsigned long long n) {
    Measurement m;
    m.figure = figure;
    m.title = title;
    m.n = n;
    m.memoryCounter = "PeakWorkingSetSize of the server process";
    return m;
}

template <typename Body>
void Run(Measurement& m, const RemotePlan& plan, const RemoteService& server, Body&& body) {
    m.memoryBefore = server.PeakWorkingSet();
    RepeatInto(m, plan.warmups, plan.runs, "out of memory in the client", body);
    m.memoryPeak = server.PeakWorkingSet();
    if (!server.HasOwnProcess())
        m.note += std::string(m.note.empty() ? "" : "; ") + "no server process of its own: memory not read";
}

bool Failed(Measurement& m, const std::string& error) {
    if (error.empty()) return false;
    m.status = "failed";
    m.note = error;
    return true;
}

std::string OpenConnection(IZelOleDb* service, const std::wstring& connectionString) {
    Bstr errorText, errorStmt;
    HRESULT hr = service->ConOpenFromInitializationString(Bstr(connectionString).get(), VARIANT_FALSE,
                                                          errorText.put(), errorStmt.put());
    if (FAILED(hr)) return "ConOpenFromInitializationString " + HresultText(hr) + ": " + ToUtf8(errorText.str());
    return {};
}

// Marks `m` not measurable when the probe call `call` outside the measurement failed.
bool NotMeasurable(Measurement& m, const char* call, HRESULT hr, const Bstr& errorText) {
    if (SUCCEEDED(hr)) return false;
    m.status = "not-measurable";
    m.note = std::string(call) + " returned " + HresultText(hr) +
             (errorText.empty() ? "" : ": " + ToUtf8(errorText.str()));
    return true;
}

unsigned long long ArrayLength(const VARIANT& value) {
    if (!(V_VT(&value) & VT_ARRAY) || !V_ARRAY(&value)) return 0;
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
    return static_cast<unsigned long long>(upper - lower + 1);
}

}  // namespace

std::vector<Measurement> MeasureRemoteFetch(const RemotePlan& plan) {
    Measurement m = Start("5a", "64-bit client, out of process: CmdFetchNext + CmdFieldAsString per field", plan.n);
    Measurement floor = Start("6p", "ConIsConnected on the same server, right after each run of 5a", plan.n);
    RemoteService server;
    ULONG handle = 0;
    ULONG columns = 0;
    if (Failed(m, server.Start()) ||
        Failed(m, PrepareServiceCommand(server.get(), plan.connectionString, kRowQuery, handle, columns))) {
        Failed(floor, "not run: " + m.note);
        return {m, floor};
    }
    IZelOleDb* service = server.get();
    // The machine's load changes from minute to minute; a floor taken right after each run
    // lets the per-call comparison see the same conditions as the run.
    std::vector<RunSample> floorSamples;
    Run(m, plan, server, [&] {
        const double walkCpu = ProcessCpuSeconds(GetCurrentProcess());
        RunSample walk = WalkRows(service, handle, columns, plan.walkRows);
        walk.cpuSeconds = ProcessCpuSeconds(GetCurrentProcess()) - walkCpu;
        RunSample s;
        const double cpu = ProcessCpuSeconds(GetCurrentProcess());
        Stopwatch clock;
        VARIANT_BOOL answer = VARIANT_FALSE;
        for (unsigned long long i = 0; i < plan.pairedCalls; ++i) ZEL_THROW_IF_FAILED(service->ConIsConnected(&answer));
        s.seconds = clock.Seconds();
        s.cpuSeconds = ProcessCpuSeconds(GetCurrentProcess()) - cpu;
        s.calls = plan.pairedCalls;
        floorSamples.push_back(s);
        return walk;
    });
    // Only the kept runs' floors (the warm-ups come first).
    const size_t kept = m.samples.size();
    floor.samples.assign(floorSamples.end() - static_cast<std::ptrdiff_t>(std::min(kept, floorSamples.size())),
                         floorSamples.end());
    floor.memoryBefore = m.memoryBefore;
    floor.memoryPeak = m.memoryPeak;
    if (m.status != "ok") Failed(floor, "not run: " + m.note);
    service->CmdDestroy(handle);
    service->ConClose();
    return {m, floor};
}

Measurement MeasureRemoteDocument(const RemotePlan& plan) {
    Measurement m = Start("5b", "64-bit client, out of process: CmdExecute returning the XML document", plan.n);
    RemoteService server;
    if (Failed(m, server.Start())) return m;
    IZelOleDb* service = server.get();
    if (Failed(m, OpenConnection(service, plan.connectionString))) return m;
    ULONG handle = 0;
    HRESULT hr = service->CmdSetConnection(&handle);
    if (SUCCEEDED(hr)) hr = service->CmdSetCommandText(handle, Bstr(kRowQuery).get());
    if (Failed(m, FAILED(hr) ? "preparing the command: " + HresultText(hr) : "")) return m;
    Run(m, plan, server, [&] { return ExecuteWithDocument(service, handle); });
    service->CmdDestroy(handle);
    service->ConClose();
    return m;
}

Measurement MeasureCallFloor(const RemotePlan& plan, bool connected) {
    Measurement m = connected ? Start("6", "64-bit client, out of process: ConIsConnected (open connection)", plan.n)
                              : Start("6b", "64-bit client, out of process: ConIsConnected (no connection)", plan.n);
    RemoteService server;
    if (Failed(m, server.Start())) return m;
    IZelOleDb* service = server.get();
    if (connected && Failed(m, OpenConnection(service, plan.connectionString))) return m;
    Run(m, plan, server, [&] {
        RunSample s;
        Stopwatch clock;
        VARIANT_BOOL answer = VARIANT_FALSE;
        for (unsigned long long i = 0; i < plan.n; ++i) ZEL_THROW_IF_FAILED(service->ConIsConnected(&answer));
        s.seconds = clock.Seconds();
        s.calls = plan.n;
        if (connected && answer != VARIANT_TRUE) ThrowHr(E_UNEXPECTED);
        return s;
    });
    if (connected) service->ConClose();
    return m;
}

Measurement MeasureTableList(const RemotePlan& plan) {
    Measurement m = Start("7a", "64-bit client, out of process: TblOpen + TblGetTableList", plan.n);
    RemoteService server;
    if (Failed(m, server.Start())) return m;
    IZelOleDb* service = server.get();
    if (Failed(m, OpenConnection(service, plan.connectionString))) return m;

    // One open outside the measurement tells whether the catalog can be read at all.
    ULONG probe = 0;
    Bstr errorText, errorStmt;
    HRESULT hr = service->TblOpen(&probe, nullptr, nullptr, nullptr, Bstr(L"TABLE").get(), errorText.put(),
                                  errorStmt.put());
    service->TblDestroy(probe);
    if (NotMeasurable(m, "TblOpen", hr, errorText)) return m;
    Run(m, plan, server, [&] {
        RunSample s;
        Stopwatch clock;
        ULONG handle = 0;
        Bstr text, stmt;
        ZEL_THROW_IF_FAILED(
            service->TblOpen(&handle, nullptr, nullptr, nullptr, Bstr(L"TABLE").get(), text.put(), stmt.put()));
        Variant list;
        HRESULT listed = service->TblGetTableList(handle, list.put());
        service->TblDestroy(handle);
        s.seconds = clock.Seconds();
        ZEL_THROW_IF_FAILED(listed);
        s.calls = 3;
        s.rows = ArrayLength(*list.get());
        return s;
    });
    service->ConClose();
    return m;
}

Measurement MeasureColumnWalk(const RemotePlan& plan, const std::wstring& table) {
    Measurement m = Start("7b", "64-bit client, out of process: ColOpen + ColFetchNext, ColGetName, ColDataType", plan.n);
    RemoteService server;
    if (Failed(m, server.Start())) return m;
    IZelOleDb* service = server.get();
    if (Failed(m, OpenConnection(service, plan.connectionString))) return m;

    ULONG probe = 0;
    Bstr errorText, errorStmt;
    HRESULT hr = service->ColOpen(&probe, nullptr, nullptr, Bstr(table).get(), nullptr, VARIANT_FALSE, errorText.put(),
                                  errorStmt.put());
    service->ColDestroy(probe);
    if (NotMeasurable(m, "ColOpen", hr, errorText)) return m;
    Run(m, plan, server, [&] {
        RunSample s;
        Stopwatch clock;
        ULONG handle = 0;
        Bstr text, stmt;
        ZEL_THROW_IF_FAILED(service->ColOpen(&handle, nullptr, nullptr, Bstr(table).get(), nullptr, VARIANT_FALSE,
                                             text.put(), stmt.put()));
        s.calls = 1;
        for (;;) {
            VARIANT_BOOL more = VARIANT_FALSE;
            ZEL_THROW_IF_FAILED(service->ColFetchNext(handle, &more));
            ++s.calls;
            if (more != VARIANT_TRUE) break;
            Bstr name;
            ZEL_THROW_IF_FAILED(service->ColGetName(handle, name.put()));
            s.bytes += SysStringByteLen(name.get());
            LONG type = 0;
            ZEL_THROW_IF_FAILED(service->ColDataType(handle, &type));
            s.calls += 2;
            ++s.rows;
        }
        service->ColDestroy(handle);
        ++s.calls;
        s.seconds = clock.Seconds();
        return s;
    });
    service->ConClose();
    return m;
}

}  // namespace zel::bench
