#include "bench/BenchHarness.h"

#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>

namespace zel::bench {
namespace {

LONGLONG Frequency() {
    static const LONGLONG frequency = [] {
        LARGE_INTEGER f{};
        QueryPerformanceFrequency(&f);
        return f.QuadPart;
    }();
    return frequency;
}

// A CSV field: quoted when it holds a separator, a quote or a line break.
std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        quoted += (c == '\r' || c == '\n') ? ' ' : c;
    }
    return quoted + "\"";
}

// The values of one member of every sample, separated by semicolons.
std::string Seconds(const std::vector<RunSample>& samples, double RunSample::*member) {
    std::string text;
    char buffer[32];
    for (const RunSample& s : samples) {
        if (!text.empty()) text += ';';
        std::snprintf(buffer, sizeof buffer, "%.9g", s.*member);
        text += buffer;
    }
    return text;
}

double FileTimeSeconds(const FILETIME& time) {
    ULARGE_INTEGER value;
    value.LowPart = time.dwLowDateTime;
    value.HighPart = time.dwHighDateTime;
    return static_cast<double>(value.QuadPart) / 1e7;
}

}  // namespace

void Stopwatch::Restart() noexcept { QueryPerformanceCounter(&m_start); }

double Stopwatch::Seconds() const noexcept {
    LARGE_INTEGER now{};
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart - m_start.QuadPart) / static_cast<double>(Frequency());
}

MemoryCounters ReadMemoryCounters(HANDLE process) {
    MemoryCounters counters;
    PROCESS_MEMORY_COUNTERS pmc{};
    pmc.cb = sizeof pmc;
    if (GetProcessMemoryInfo(process, &pmc, sizeof pmc)) {
        counters.peakWorkingSet = pmc.PeakWorkingSetSize;
        counters.workingSet = pmc.WorkingSetSize;
        counters.peakPagefile = pmc.PeakPagefileUsage;
        counters.pagefile = pmc.PagefileUsage;
    }
    return counters;
}

double ProcessCpuSeconds(HANDLE process) {
    FILETIME created, exited, kernel, user;
    if (!process || !GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
    return FileTimeSeconds(kernel) + FileTimeSeconds(user);
}

bool WriteModuleMap(const std::wstring& path) {
    HMODULE modules[512];
    DWORD needed = 0;
    if (!EnumProcessModules(GetCurrentProcess(), modules, sizeof modules, &needed)) return false;
    FILE* file = _wfopen(path.c_str(), L"wb");
    if (!file) return false;
    const DWORD count = std::min<DWORD>(needed / sizeof(HMODULE), 512);
    for (DWORD i = 0; i < count; ++i) {
        MODULEINFO info{};
        wchar_t name[MAX_PATH] = {};
        if (!GetModuleInformation(GetCurrentProcess(), modules[i], &info, sizeof info)) continue;
        GetModuleFileNameW(modules[i], name, MAX_PATH);
        std::fprintf(file, "%llx %lx %s\n", static_cast<unsigned long long>(reinterpret_cast<UINT_PTR>(info.lpBaseOfDll)),
                     static_cast<unsigned long>(info.SizeOfImage), ToUtf8(name).c_str());
    }
    return std::fclose(file) == 0;
}

std::vector<DWORD> ProcessIdsByName(const wchar_t* exeName) {
    std::vector<DWORD> ids;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return ids;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry))
        if (_wcsicmp(entry.szExeFile, exeName) == 0) ids.push_back(entry.th32ProcessID);
    CloseHandle(snapshot);
    return ids;
}

bool AppendMeasurement(const std::wstring& path, const Measurement& m) {
    FILE* file = _wfopen(path.c_str(), L"ab");
    if (!file) return false;
    std::fseek(file, 0, SEEK_END);
    if (std::ftell(file) == 0) std::fprintf(file, "%s\n", kRawHeader);
    const RunSample first = m.samples.empty() ? RunSample{} : m.samples.front();
    std::string note = m.note;
    for (const RunSample& s : m.samples)
        if (s.rows != first.rows || s.calls != first.calls) {
            note += (note.empty() ? "" : "; ") + std::string("runs differ in rows or calls");
            break;
        }
    std::fprintf(file, "%s,%s,%llu,%s,%s,%s,%llu,%llu,%llu,%llu,%llu,%s,%s,%s\n", CsvField(m.figure).c_str(),
                 CsvField(m.title).c_str(), m.n, CsvField(m.status).c_str(), CsvField(note).c_str(),
                 CsvField(m.memoryCounter).c_str(), m.memoryBefore, m.memoryPeak, first.rows, first.calls, first.bytes,
                 Seconds(m.samples, &RunSample::seconds).c_str(), Seconds(m.samples, &RunSample::setupSeconds).c_str(),
                 Seconds(m.samples, &RunSample::cpuSeconds).c_str());
    return std::fclose(file) == 0;
}

Arguments::Arguments(int argc, wchar_t** argv) {
    for (int i = 1; i < argc; ++i) {
        std::wstring word = argv[i];
        if (word.rfind(L"--", 0) == 0) {
            std::wstring name = word.substr(2);
            std::wstring value = L"1";
            if (i + 1 < argc && std::wcsncmp(argv[i + 1], L"--", 2) != 0) value = argv[++i];
            m_values[name] = value;
        } else {
            m_words.push_back(word);
        }
    }
}

std::wstring Arguments::Text(const wchar_t* name, const std::wstring& fallback) const {
    auto it = m_values.find(name);
    return it == m_values.end() ? fallback : it->second;
}

unsigned long long Arguments::Number(const wchar_t* name, unsigned long long fallback) const {
    auto it = m_values.find(name);
    if (it == m_values.end()) return fallback;
    return std::wcstoull(it->second.c_str(), nullptr, 10);
}

std::string HresultText(HRESULT hr) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08lX", static_cast<unsigned long>(hr));
    return buffer;
}

}  // namespace zel::bench
