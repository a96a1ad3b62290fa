// The soak run behind `./zel soak`: one server process serves a long series of command
// cycles (a command handle opened, a statement executed, a row fetched and read, the handle
// destroyed) and of catalog cycles (table, column and index enumerations opened, walked and
// destroyed). The server's private memory and handle count after the run must be within 5%
// of their values after the first 1,000 cycles; the figures are printed as the run goes.
//
//   ZelSoak [--cycles N] [--catalog-cycles N]     (defaults 100,000 and 10,000)
//
// It registers this build's server and provider (ZEL_SERVER_EXE, ZEL_PROVIDER_DLL) and puts
// back the registration it found. Exit code 0 when both figures stayed within bounds.
#include <windows.h>
#include <winternl.h>
#include <psapi.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "common/Bstr.h"
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/server/ServerProcessSupport.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel::test;
using zel::Bstr;

namespace {

constexpr unsigned kBaselineCycles = 1000;
constexpr double kAllowedGrowth = 0.05;

struct Figures {
    unsigned long long privateBytes = 0;
    unsigned long long workingSet = 0;
    DWORD handles = 0;
};

// The leading part of SYSTEM_PROCESS_INFORMATION, as far as the handle count (the SDK's
// declaration leaves the fields out).
struct ProcessEntry {
    ULONG NextEntryOffset;
    ULONG NumberOfThreads;
    LARGE_INTEGER WorkingSetPrivateSize;
    ULONG HardFaultCount;
    ULONG NumberOfThreadsHighWatermark;
    ULONGLONG CycleTime;
    LARGE_INTEGER CreateTime;
    LARGE_INTEGER UserTime;
    LARGE_INTEGER KernelTime;
    UNICODE_STRING ImageName;
    LONG BasePriority;
    HANDLE UniqueProcessId;
    HANDLE InheritedFromUniqueProcessId;
    ULONG HandleCount;
};

using QuerySystemInformation = NTSTATUS(NTAPI*)(ULONG, PVOID, ULONG, PULONG);

// The handle count of process `id` from the system's process list: Wine 8.0 answers
// GetProcessHandleCount for another process with 0.
DWORD HandleCount(DWORD id) {
    auto query = reinterpret_cast<QuerySystemInformation>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    if (!query) return 0;
    std::vector<BYTE> buffer(1 << 20);
    ULONG length = 0;
    constexpr ULONG kSystemProcessInformation = 5;
    if (query(kSystemProcessInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &length) != 0) return 0;
    for (size_t offset = 0;;) {
        const auto* entry = reinterpret_cast<const ProcessEntry*>(buffer.data() + offset);
        if (static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(entry->UniqueProcessId)) == id) return entry->HandleCount;
        if (!entry->NextEntryOffset) return 0;
        offset += entry->NextEntryOffset;
    }
}

// The private memory is the process's commit charge (PagefileUsage, which Windows also
// reports as PrivateUsage; Wine 8.0 leaves PrivateUsage at 0).
Figures Measure(HANDLE process, DWORD id) {
    Figures figures;
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters)) {
        figures.privateBytes = counters.PrivateUsage ? counters.PrivateUsage : counters.PagefileUsage;
        figures.workingSet = counters.WorkingSetSize;
    }
    figures.handles = HandleCount(id);
    return figures;
}

void Print(const char* phase, unsigned long long cycles, const Figures& figures, DWORD elapsedMs) {
    std::printf("%-8s %9llu cycles  private %9.1f KiB  working set %9.1f KiB  handles %5lu  %7.1f s\n", phase,
                cycles, figures.privateBytes / 1024.0, figures.workingSet / 1024.0,
                static_cast<unsigned long>(figures.handles), elapsedMs / 1000.0);
    std::fflush(stdout);
}

class Soak {
public:
    Soak(ServiceClient& client, HANDLE server, DWORD serverId) : m_client(client), m_server(server), m_serverId(serverId) {}

    // One command cycle; `i` varies the statement. False when an answer was wrong.
    bool CommandCycle(unsigned long long i) {
        ULONG handle = 0;
        if (m_client->CmdSetConnection(&handle) != S_OK) return false;
        const int id = static_cast<int>(i % 20) + 1;
        std::wstring sql = i % 10 == 9 ? L"UPDATE parts SET qty = qty + 1 WHERE id = " + std::to_wstring(id)
                                       : L"SELECT id, name, qty, note FROM parts WHERE id >= " + std::to_wstring(id) +
                                             L" ORDER BY id";
        Bstr text(sql), xml, errorText, errorStmt;
        SHORT result = 0;
        bool ok = m_client->CmdSetCommandText(handle, text.get()) == S_OK &&
                  m_client->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put()) == S_OK &&
                  result == 1;
        if (ok && i % 10 != 9) {
            SHORT moved = 0;
            Bstr name;
            ok = m_client->CmdFetchFirst(handle, &moved) == S_OK && moved == 1 &&
                 m_client->CmdFieldAsString(handle, 2, name.put()) == S_OK && name.str() == L"part " + std::to_wstring(id);
        }
        return m_client->CmdDestroy(handle) == S_OK && ok;
    }

    // One catalog cycle: every enumeration opened, walked to its end and destroyed. Returns
    // the first failing result (S_OK when all worked).
    HRESULT CatalogCycle() {
        Bstr empty(L""), table(L"parts"), type(L"TABLE"), errorText, errorStmt;
        VARIANT_BOOL more = VARIANT_FALSE;
        ULONG tables = 0, columns = 0, indexes = 0;
        HRESULT hr = m_client->TblOpen(&tables, empty.get(), empty.get(), empty.get(), type.get(), errorText.put(),
                                       errorStmt.put());
        for (int n = 0; hr == S_OK && n < 10 && m_client->TblFetchNext(tables, &more) == S_OK && more == VARIANT_TRUE; ++n) {
            Bstr name;
            m_client->TblGetName(tables, name.put());
        }
        HRESULT destroy = m_client->TblDestroy(tables);
        if (hr == S_OK) hr = destroy;
        HRESULT col = m_client->ColOpen(&columns, empty.get(), empty.get(), table.get(), empty.get(), VARIANT_TRUE,
                                        errorText.put(), errorStmt.put());
        for (int n = 0; col == S_OK && n < 10 && m_client->ColFetchNext(columns, &more) == S_OK && more == VARIANT_TRUE; ++n) {
            Bstr name;
            m_client->ColGetName(columns, name.put());
        }
        destroy = m_client->ColDestroy(columns);
        if (hr == S_OK) hr = col == S_OK ? destroy : col;
        HRESULT idx = m_client->IdxOpen(&indexes, empty.get(), empty.get(), table.get(), empty.get(), errorText.put(),
                                        errorStmt.put());
        for (int n = 0; idx == S_OK && n < 10 && m_client->IdxFetchNext(indexes, &more) == S_OK && more == VARIANT_TRUE; ++n) {
            Bstr name;
            m_client->IdxGetName(indexes, name.put());
        }
        destroy = m_client->IdxDestroy(indexes);
        if (hr == S_OK) hr = idx == S_OK ? destroy : idx;
        return hr;
    }

    Figures Now() const { return Measure(m_server, m_serverId); }

private:
    ServiceClient& m_client;
    HANDLE m_server;
    DWORD m_serverId;
};

bool Within(const Figures& baseline, const Figures& end, const char* what) {
    if (!baseline.privateBytes || !baseline.handles) {
        std::printf("%s: no figures after the first %u cycles to compare with\n", what, kBaselineCycles);
        return false;
    }
    const double memory = baseline.privateBytes ? double(end.privateBytes) / double(baseline.privateBytes) - 1 : 0;
    const double handles = baseline.handles ? double(end.handles) / double(baseline.handles) - 1 : 0;
    const bool ok = memory <= kAllowedGrowth && handles <= kAllowedGrowth;
    std::printf("%s: private memory %+.2f%%, handles %+.2f%% against the first %u cycles: %s\n", what, memory * 100,
                handles * 100, kBaselineCycles, ok ? "within 5%" : "NOT within 5%");
    return ok;
}

int Run(unsigned long long cycles, unsigned long long catalogCycles) {
    if (RunServer(L"/RegServer").value_or(~0u) != 0 || !RegisterProvider()) {
        std::printf("registering the server and the provider failed\n");
        return 3;
    }
    ScratchDatabase database(L"soak.db");
    for (DWORD id : ServerProcessIds()) WaitForProcessExit(id, 10000);
    const std::vector<DWORD> before = ServerProcessIds();
    ServiceClient client;
    if (client.Create() != S_OK) return 3;
    std::optional<DWORD> serverId = WaitForNewServerProcess(before, 5000);
    if (!serverId) {
        std::printf("the service object did not start a server process of its own\n");
        return 3;
    }
    HANDLE server = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, *serverId);
    if (!server) return 3;
    std::wstring errorText;
    if (client.Open(database.ConnectionString(), &errorText) != S_OK ||
        !client.Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40), qty INTEGER, note TEXT)") ||
        !client.Run(L"CREATE INDEX parts_qty ON parts (qty)") ||
        !client.Run(L"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20) "
                    L"INSERT INTO parts SELECT i, 'part ' || i, i * 10, printf('%.*c', i * 50, 'n') FROM n")) {
        std::printf("the soak database cannot be made: %s\n", ToUtf8(errorText).c_str());
        return 3;
    }

    Soak soak(client, server, *serverId);
    const DWORD start = GetTickCount();
    Print("start", 0, soak.Now(), 0);
    unsigned long long wrong = 0;
    Figures baseline;
    for (unsigned long long i = 1; i <= cycles; ++i) {
        if (!soak.CommandCycle(i) && wrong++ < 5) std::printf("cycle %llu gave a wrong answer\n", i);
        if (i == kBaselineCycles) {
            baseline = soak.Now();
            Print("baseline", i, baseline, GetTickCount() - start);
        } else if (i % 10000 == 0) {
            Print("command", i, soak.Now(), GetTickCount() - start);
        }
    }
    const Figures commandEnd = soak.Now();
    Print("end", cycles, commandEnd, GetTickCount() - start);
    bool ok = Within(baseline, commandEnd, "command cycles");

    const DWORD catalogStart = GetTickCount();
    HRESULT catalog = S_OK;
    Figures catalogBaseline;
    for (unsigned long long i = 1; i <= catalogCycles; ++i) {
        HRESULT hr = soak.CatalogCycle();
        if (hr != S_OK && catalog == S_OK) {
            catalog = hr;
            std::printf("catalog cycle %llu failed with 0x%08lX\n", i, static_cast<unsigned long>(hr));
        }
        if (i == kBaselineCycles) {
            catalogBaseline = soak.Now();
            Print("baseline", i, catalogBaseline, GetTickCount() - catalogStart);
        } else if (i % 1000 == 0) {
            Print("catalog", i, soak.Now(), GetTickCount() - catalogStart);
        }
    }
    if (catalogCycles >= kBaselineCycles) {
        const Figures catalogEnd = soak.Now();
        Print("end", catalogCycles, catalogEnd, GetTickCount() - catalogStart);
        ok = Within(catalogBaseline, catalogEnd, "catalog cycles") && ok;
    }
    client->ConClose();
    client.Release();
    WaitForSingleObject(server, 10000);
    CloseHandle(server);
    std::printf("wrong answers: %llu; catalog: %s\n", wrong, catalog == S_OK ? "every cycle worked" : "cycles failed");
    return ok && wrong == 0 && catalog == S_OK ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    unsigned long long cycles = 100000, catalogCycles = 10000;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::wstring(argv[i]) == L"--cycles") cycles = std::wcstoull(argv[i + 1], nullptr, 10);
        else if (std::wstring(argv[i]) == L"--catalog-cycles") catalogCycles = std::wcstoull(argv[i + 1], nullptr, 10);
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    int code = 0;
    {
        RegistrationRestorer restorer;
        code = Run(cycles, catalogCycles);
    }
    CoUninitialize();
    return code;
}
