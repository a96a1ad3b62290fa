// What every benchmark program shares: a stopwatch, repeated runs, memory counters of a
// process, the raw measurement record and a small command-line reader. The programs append
// one raw record per measurement to a file; ZelBenchReport turns those into the tables.
#pragma once

#include <windows.h>

#include <exception>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "common/ComError.h"
#include "common/Utf8.h"

namespace zel::bench {

// UTF-8 as the programs outside Windows (shell, files, pipes) read and write it.
using zel::FromUtf8;
using zel::ToUtf8;

// Wall-clock time from QueryPerformanceCounter.
class Stopwatch {
public:
    Stopwatch() noexcept { Restart(); }
    void Restart() noexcept;
    double Seconds() const noexcept;

private:
    LARGE_INTEGER m_start{};
};

// What one run of a measured body did.
struct RunSample {
    double seconds = 0;       // the whole run
    double setupSeconds = 0;  // the part spent before the first row (execution, binding); 0 if not split
    unsigned long long rows = 0;   // rows read
    unsigned long long calls = 0;  // interface calls made (0 when not counted)
    unsigned long long bytes = 0;  // bytes of text produced (UTF-16 or UTF-8 as the figure says)
    // CPU time (user + kernel) of the measuring process during the run; negative until
    // measured (Repeat measures the whole body unless the body measured its own part). Wine
    // 8.0 answers GetProcessTimes of another process with the caller's own times, so the
    // server's CPU time cannot be read this way.
    double cpuSeconds = -1;
};

// Runs `body` `warmups` times without keeping the result, then `runs` times, and returns the
// kept samples with the CPU time this process used during each (unless the body measured it
// for the part it times). `body` returns a RunSample and may throw; the exception ends the
// repetition.
template <typename Body>
std::vector<RunSample> Repeat(int warmups, int runs, Body&& body);

// Memory counters of a process (GetProcessMemoryInfo); zero when they cannot be read.
struct MemoryCounters {
    unsigned long long peakWorkingSet = 0;
    unsigned long long workingSet = 0;
    unsigned long long peakPagefile = 0;
    unsigned long long pagefile = 0;
};
MemoryCounters ReadMemoryCounters(HANDLE process);
// User plus kernel time a process has used so far (GetProcessTimes), in seconds; 0 when unknown.
// Under Wine, meaningful for the calling process only (see RunSample::cpuSeconds).
double ProcessCpuSeconds(HANDLE process);
inline MemoryCounters ReadOwnMemoryCounters() { return ReadMemoryCounters(GetCurrentProcess()); }
// Writes "base size path" (hexadecimal, one module a line) for every module loaded in this
// process, so that a profiler outside the process can name addresses in modules that Wine
// did not map from their files.
bool WriteModuleMap(const std::wstring& path);
// Ids of the running processes whose image file name is `exeName` (ToolHelp snapshot).
std::vector<DWORD> ProcessIdsByName(const wchar_t* exeName);

// One measurement: a figure at one size, with every kept run.
struct Measurement {
    std::string figure;  // "1", "2", "5a"...: the row key of the tables
    std::string title;   // what was measured, one line
    unsigned long long n = 0;  // size of the data set (rows of the table, tables of the catalog...)
    std::vector<RunSample> samples;
    // Memory of the measured process (the server's for the out-of-process figures): the
    // counter's name, its value once the set-up was done and at the end of all runs.
    std::string memoryCounter;
    unsigned long long memoryBefore = 0;
    unsigned long long memoryPeak = 0;
    std::string status = "ok";  // ok | failed | not-measurable
    std::string note;
};

// Repeat into `m.samples`; an exception ends the repetition and marks `m` failed with its
// reason, `outOfMemory` for std::bad_alloc.
template <typename Body>
void RepeatInto(Measurement& m, int warmups, int runs, const char* outOfMemory, Body&& body);

// Appends the measurement to the raw file as one CSV line (UTF-8).
bool AppendMeasurement(const std::wstring& path, const Measurement& measurement);

// The raw file's layout, shared with the report reader.
inline constexpr const char* kRawHeader =
    "figure,title,n,status,note,memory_counter,memory_before,memory_peak,rows,calls,bytes,seconds,setup_seconds,"
    "cpu_seconds";

// "--name value" pairs and bare words of a command line.
class Arguments {
public:
    Arguments(int argc, wchar_t** argv);
    const std::vector<std::wstring>& Words() const { return m_words; }
    std::wstring Text(const wchar_t* name, const std::wstring& fallback = L"") const;
    unsigned long long Number(const wchar_t* name, unsigned long long fallback) const;
    bool Has(const wchar_t* name) const { return m_values.count(name) != 0; }

private:
    std::vector<std::wstring> m_words;
    std::map<std::wstring, std::wstring> m_values;
};

template <typename Body>
std::vector<RunSample> Repeat(int warmups, int runs, Body&& body) {
    for (int i = 0; i < warmups; ++i) body();
    std::vector<RunSample> samples;
    samples.reserve(static_cast<size_t>(runs));
    for (int i = 0; i < runs; ++i) {
        const double cpu = ProcessCpuSeconds(GetCurrentProcess());
        RunSample sample = body();
        if (sample.cpuSeconds < 0) sample.cpuSeconds = ProcessCpuSeconds(GetCurrentProcess()) - cpu;
        samples.push_back(sample);
    }
    return samples;
}

// "0x80004005" for an HRESULT.
std::string HresultText(HRESULT hr);

template <typename Body>
void RepeatInto(Measurement& m, int warmups, int runs, const char* outOfMemory, Body&& body) {
    try {
        m.samples = Repeat(warmups, runs, body);
    } catch (const ComError& e) {
        m.status = "failed";
        m.note = "failed with " + HresultText(e.code());
    } catch (const std::bad_alloc&) {
        m.status = "failed";
        m.note = outOfMemory;
    } catch (const std::exception& e) {
        m.status = "failed";
        m.note = e.what();
    }
}

}  // namespace zel::bench
