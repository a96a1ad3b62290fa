#include "bench/BenchReport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <utility>

namespace zel::bench {
namespace {

constexpr double kMiB = 1024.0 * 1024.0;

// The figures measured per table size, in the order the table shows them.
// 1p to 4p are the PostgreSQL series: 2p to 4p as 2 to 4 through ZelOdbc on a PostgreSQL copy of
// the table, 1p psql's own \copy of it (a whole native process, the floor of 2p and 3p).
const char* const kRowFigures[] = {"1", "2", "3", "4", "1p", "2p", "3p", "4p", "5c", "5a", "6p", "5b", "8s", "8"};
// The figures that do not depend on the table size.
const char* const kOtherFigures[] = {"6", "6b", "7a", "7b"};

std::vector<std::string> SplitCsvLine(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                fields.back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                fields.back() += c;
            }
        } else if (c == '"') {
            quoted = true;
        } else if (c == ',') {
            fields.emplace_back();
        } else if (c != '\r') {
            fields.back() += c;
        }
    }
    return fields;
}

std::vector<double> SplitSeconds(const std::string& text) {
    std::vector<double> values;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(';', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) values.push_back(std::strtod(text.substr(start, end - start).c_str(), nullptr));
        start = end + 1;
    }
    return values;
}

unsigned long long Number(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 10); }

std::string Format(const char* format, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string Time(double seconds) {
    if (seconds < 1e-3) return Format("%.1f us", seconds * 1e6);
    if (seconds < 1.0) return Format("%.1f ms", seconds * 1e3);
    return Format("%.2f s", seconds);
}

// A rate with thousands separators; one decimal below 100.
std::string Rate(double value) {
    if (value < 100) return Format("%.1f", value);
    std::string digits = Format("%.0f", value);
    std::string out;
    int count = 0;
    for (size_t i = digits.size(); i-- > 0;) {
        out.insert(out.begin(), digits[i]);
        if (++count % 3 == 0 && i > 0) out.insert(out.begin(), ',');
    }
    return out;
}

std::string MiB(double bytes) { return Format("%.1f MiB", bytes / kMiB); }

bool IsRowFigure(const std::string& figure) {
    for (const char* f : kRowFigures)
        if (figure == f) return true;
    return false;
}

int OrderOf(const std::string& figure) {
    int i = 0;
    for (const char* f : kRowFigures) {
        if (figure == f) return i;
        ++i;
    }
    for (const char* f : kOtherFigures) {
        if (figure == f) return i;
        ++i;
    }
    return i;
}

// What a record's numbers say once its runs are summarised.
struct Derived {
    Spread time;
    Spread setup;
    Spread cpu;
    double secondsPerRow = 0;
    double rowsPerSecond = 0, rowsPerSecondMin = 0, rowsPerSecondMax = 0;
    double callsPerSecond = 0, callsPerSecondMin = 0, callsPerSecondMax = 0;
    double secondsPerCall = 0;
    double bytesPerSecond = 0;
};

Derived Derive(const RawRecord& r) {
    Derived d;
    d.time = SpreadOf(r.seconds);
    d.setup = SpreadOf(r.setupSeconds);
    d.cpu = SpreadOf(r.cpuSeconds);
    if (r.rows > 0) d.secondsPerRow = d.time.median / static_cast<double>(r.rows);
    if (d.time.median > 0) {
        d.rowsPerSecond = static_cast<double>(r.rows) / d.time.median;
        d.callsPerSecond = static_cast<double>(r.calls) / d.time.median;
        d.bytesPerSecond = static_cast<double>(r.bytes) / d.time.median;
    }
    if (d.time.max > 0) {
        d.rowsPerSecondMin = static_cast<double>(r.rows) / d.time.max;
        d.callsPerSecondMin = static_cast<double>(r.calls) / d.time.max;
    }
    if (d.time.min > 0) {
        d.rowsPerSecondMax = static_cast<double>(r.rows) / d.time.min;
        d.callsPerSecondMax = static_cast<double>(r.calls) / d.time.min;
    }
    if (r.calls > 0) d.secondsPerCall = d.time.median / static_cast<double>(r.calls);
    return d;
}

class Index {
public:
    explicit Index(const std::vector<RawRecord>& records) {
        for (const RawRecord& r : records) m_byKey[{r.figure, r.n}] = &r;
    }
    const RawRecord* Find(const std::string& figure, unsigned long long n) const {
        auto it = m_byKey.find({figure, n});
        return it == m_byKey.end() || it->second->status != "ok" ? nullptr : it->second;
    }
    // The first successful record of a figure, whatever its size.
    const RawRecord* FindAny(const std::string& figure) const {
        for (const auto& [key, record] : m_byKey)
            if (key.first == figure && record->status == "ok") return record;
        return nullptr;
    }

private:
    std::map<std::pair<std::string, unsigned long long>, const RawRecord*> m_byKey;
};

// The floor a figure is compared with, the ratio, and how the comparison reads. The
// designated floors are 1 for figures 2 and 3 (time per row) and, for figure 5a (time per
// call), the floor measured right after its runs (6p), or 6 when there is none; the other
// comparisons are there to help reading the table.
struct FloorComparison {
    std::string floorFigure;
    double ratio = 0;
    std::string text;
    bool designated = false;
};

std::vector<FloorComparison> Floors(const RawRecord& r, const Index& index) {
    std::vector<FloorComparison> out;
    const Derived mine = Derive(r);
    auto perRow = [&](const char* floorFigure, const char* how, bool designated) {
        const RawRecord* floor = index.Find(floorFigure, r.n);
        if (!floor || mine.secondsPerRow <= 0) return;
        const double floorRow = Derive(*floor).secondsPerRow;
        if (floorRow <= 0) return;
        const double ratio = mine.secondsPerRow / floorRow;
        out.push_back({floorFigure, ratio, Format("x%.1f", ratio) + " of " + floorFigure + how, designated});
    };
    auto perCall = [&](const char* floorFigure, const char* how, bool designated) {
        const RawRecord* floor = index.FindAny(floorFigure);
        if (!floor || mine.secondsPerCall <= 0) return;
        const double floorCall = Derive(*floor).secondsPerCall;
        if (floorCall <= 0) return;
        const double ratio = mine.secondsPerCall / floorCall;
        out.push_back({floorFigure, ratio, Format("x%.2f", ratio) + " of " + floorFigure + how, designated});
    };
    const std::string& f = r.figure;
    if (f == "2" || f == "3") perRow("1", "", true);
    if (f == "4" || f == "5c") perRow("1", "", false);
    if (f == "2p" || f == "3p") perRow("1p", " (psql \\copy, whole process)", true);
    if (f == "4p") perRow("1p", " (psql \\copy, whole process)", false);
    if (f == "2p") perRow("2", " (the same through ZelLite)", false);
    if (f == "5a") {
        // The floor measured right after each run, on the same server, when there is one.
        if (index.Find("6p", r.n)) {
            const double floorCall = Derive(*index.Find("6p", r.n)).secondsPerCall;
            if (floorCall > 0 && mine.secondsPerCall > 0) {
                const double ratio = mine.secondsPerCall / floorCall;
                out.push_back({"6p", ratio, Format("x%.2f", ratio) + " of 6p per call (paired floor)", true});
            }
            perCall("6", " per call", false);
        } else {
            perCall("6", " per call", true);
        }
        perRow("1", " per row", false);
    }
    if (f == "5b") perRow("4", " (same document in-process)", false);
    if (f == "8") perRow("8s", " (sqlite3 -csv, whole process)", true);
    if (f == "6") perCall("6b", " per call (no provider call)", false);
    return out;
}

std::string Other(const RawRecord& r, const Derived& d) {
    std::string text;
    auto add = [&](const std::string& part) { text += (text.empty() ? "" : "; ") + part; };
    // The PostgreSQL series reads as its SQLite counterpart (2p as 2); 1p as the native 8s.
    std::string f = r.figure;
    if (f == "1p") f = "8s";
    else if (f.size() == 2 && f[1] == 'p' && f[0] >= '2' && f[0] <= '4') f.resize(1);
    if (f == "1" || f == "3") add(Format("%.1f MiB/s of text", d.bytesPerSecond / kMiB));
    if (f == "2" || f == "3" || f == "4") add("execute " + Time(d.setup.median));
    if (f == "4" || f == "5b") {
        add("document " + MiB(static_cast<double>(r.bytes)) + " (UTF-16), " +
            Format("%.1f MiB/s", d.bytesPerSecond / kMiB));
    }
    if (f == "5a" || f == "5c" || f == "6" || f == "6b" || f == "6p" || f == "7b") {
        add(Rate(d.callsPerSecond) + " calls/s (" + Rate(d.callsPerSecondMin) + " - " + Rate(d.callsPerSecondMax) +
            "), " + Time(d.secondsPerCall) + "/call");
    }
    if (f == "5a" && r.rows < r.n)
        add("walked the first " + Rate(static_cast<double>(r.rows)) + " of " + Rate(static_cast<double>(r.n)) +
            " rows per run");
    if (f == "7a") add(std::to_string(r.rows) + " names listed");
    if (f == "8" || f == "8s") {
        add(Format("CSV %.1f MiB", static_cast<double>(r.bytes) / kMiB));
        add(r.memoryCounter + " " + MiB(static_cast<double>(r.memoryPeak)));
        if (!r.note.empty()) add(r.note);
    }
    if (f == "7b") add(std::to_string(r.rows) + " columns");
    // CPU time is counted in scheduler ticks: shown only where a run lasts long enough.
    if (!r.cpuSeconds.empty() && d.time.median >= 0.2) {
        const bool remote = r.memoryCounter.find("server") != std::string::npos;
        if (remote && r.calls > 0)
            add("client CPU " + Time(d.cpu.median / static_cast<double>(r.calls)) + "/call");
        else
            add(Format("CPU %.0f%% of wall", 100.0 * d.cpu.median / d.time.median));
    }
    if (f == "4" || f == "5b") {
        const bool server = r.memoryCounter.find("server") != std::string::npos;
        add(std::string(server ? "server" : "process") + " peak working set " +
            MiB(static_cast<double>(r.memoryPeak)) + " (" +
            MiB(static_cast<double>(r.memoryPeak) - static_cast<double>(r.memoryBefore)) + " over set-up)");
    }
    return text;
}

std::string Cell(std::string text) {
    for (char& c : text)
        if (c == '|') c = '/';
    return text;
}

std::vector<const RawRecord*> Ordered(const std::vector<RawRecord>& records) {
    std::vector<const RawRecord*> ordered;
    for (const RawRecord& r : records) ordered.push_back(&r);
    std::stable_sort(ordered.begin(), ordered.end(), [](const RawRecord* a, const RawRecord* b) {
        const bool rowA = IsRowFigure(a->figure), rowB = IsRowFigure(b->figure);
        if (rowA != rowB) return rowA;
        if (rowA && a->n != b->n) return a->n < b->n;
        if (OrderOf(a->figure) != OrderOf(b->figure)) return OrderOf(a->figure) < OrderOf(b->figure);
        return a->n < b->n;
    });
    return ordered;
}

}  // namespace

std::vector<RawRecord> ParseRawRecords(const std::string& text, size_t* skipped) {
    std::vector<RawRecord> records;
    std::map<std::pair<std::string, unsigned long long>, size_t> position;
    size_t bad = 0;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        if (line.empty() || line.rfind("figure,", 0) == 0) continue;
        std::vector<std::string> f = SplitCsvLine(line);
        if (f.size() != 14) {
            ++bad;
            continue;
        }
        RawRecord r;
        r.figure = f[0];
        r.title = f[1];
        r.n = Number(f[2]);
        r.status = f[3];
        r.note = f[4];
        r.memoryCounter = f[5];
        r.memoryBefore = Number(f[6]);
        r.memoryPeak = Number(f[7]);
        r.rows = Number(f[8]);
        r.calls = Number(f[9]);
        r.bytes = Number(f[10]);
        r.seconds = SplitSeconds(f[11]);
        r.setupSeconds = SplitSeconds(f[12]);
        r.cpuSeconds = SplitSeconds(f[13]);
        auto key = std::make_pair(r.figure, r.n);
        auto it = position.find(key);
        if (it != position.end()) {
            records[it->second] = std::move(r);
        } else {
            position[key] = records.size();
            records.push_back(std::move(r));
        }
    }
    if (skipped) *skipped = bad;
    return records;
}

Spread SpreadOf(std::vector<double> values) {
    Spread s;
    if (values.empty()) return s;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    s.median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    s.min = values.front();
    s.max = values.back();
    return s;
}

std::string RenderMarkdown(const std::vector<RawRecord>& records, const std::vector<std::string>& context) {
    const Index index(records);
    std::string md = "# ZelPmDb32 benchmarks\n\n";
    for (const std::string& line : context) md += "- " + line + "\n";
    if (!context.empty()) md += "\n";
    md += "Every figure reads the same query (`SELECT *` of BenchRows: I4, WSTR(50), R8, DATE, BOOL, "
          "WSTR(200)). Median of the runs, with the fastest and slowest run; MiB = 2^20 bytes.\n\n";
    md += "| Fig | What | N | Runs | Median | Min - max | Rows/s | Rows/s min - max | Other | Against its floor |\n";
    md += "|---|---|---:|---:|---:|---:|---:|---:|---|---|\n";
    std::string problems;
    for (const RawRecord* r : Ordered(records)) {
        if (r->status != "ok") {
            md += "| " + r->figure + " | " + Cell(r->title) + " | " + Rate(static_cast<double>(r->n)) + " | - | " +
                  r->status + " | | | | " + Cell(r->note) + " | |\n";
            problems += "- Figure " + r->figure + " at N = " + Rate(static_cast<double>(r->n)) + ": " + r->status +
                        ": " + r->note + "\n";
            continue;
        }
        const Derived d = Derive(*r);
        std::string floors;
        for (const FloorComparison& c : Floors(*r, index)) floors += (floors.empty() ? "" : "; ") + c.text;
        const bool rows = r->rows > 0;
        md += "| " + r->figure + " | " + Cell(r->title) + " | " + Rate(static_cast<double>(r->n)) + " | " +
              std::to_string(r->seconds.size()) + " | " + Time(d.time.median) + " | " + Time(d.time.min) + " - " +
              Time(d.time.max) + " | " + (rows ? Rate(d.rowsPerSecond) : "-") + " | " +
              (rows ? Rate(d.rowsPerSecondMin) + " - " + Rate(d.rowsPerSecondMax) : "-") + " | " +
              Cell(Other(*r, d)) + " | " + (floors.empty() ? "-" : floors) + " |\n";
        if (!r->note.empty()) problems += "- Figure " + r->figure + ": " + r->note + "\n";
    }
    if (!problems.empty()) md += "\nNotes:\n\n" + problems;

    // The largest gaps, at the largest N (the longest runs, least moved by fixed costs and
    // by the scheduler): among the designated floors, and among every comparison shown.
    unsigned long long largestN = 0;
    for (const RawRecord& r : records)
        if (r.status == "ok" && IsRowFigure(r.figure)) largestN = std::max(largestN, r.n);
    auto largest = [&](bool designatedOnly) {
        std::string text;
        double worst = 0;
        for (const RawRecord& r : records) {
            if (r.status != "ok" || !IsRowFigure(r.figure) || r.n != largestN) continue;
            for (const FloorComparison& c : Floors(r, index)) {
                if ((designatedOnly && !c.designated) || c.ratio <= worst) continue;
                worst = c.ratio;
                text = "figure " + r.figure + " at N = " + Rate(static_cast<double>(r.n)) + ", " + c.text;
            }
        }
        return text;
    };
    const std::string designated = largest(true);
    const std::string any = largest(false);
    if (!designated.empty())
        md += "\nLargest gap to a designated floor at the largest N (2 and 3 against 1, 2p and 3p against 1p, 5a per "
              "call against 6p): " +
              designated + ".\n";
    if (!any.empty() && any != designated) md += "Largest ratio among all comparisons shown at that N: " + any + ".\n";
    return md;
}

std::string RenderCsv(const std::vector<RawRecord>& records) {
    const Index index(records);
    std::string csv =
        "figure,title,n,status,runs,median_s,min_s,max_s,execute_median_s,rows_per_run,rows_per_s_median,"
        "rows_per_s_min,rows_per_s_max,calls_per_run,calls_per_s_median,seconds_per_call_median,bytes_per_run,"
        "mib_per_s_median,cpu_median_s,memory_counter,memory_before_bytes,memory_peak_bytes,floor_figure,ratio_to_floor,note\n";
    auto quote = [](const std::string& text) {
        std::string q = "\"";
        for (char c : text) q += c == '"' ? std::string("\"\"") : std::string(1, c);
        return q + "\"";
    };
    for (const RawRecord* r : Ordered(records)) {
        const Derived d = Derive(*r);
        std::vector<FloorComparison> floors = r->status == "ok" ? Floors(*r, index) : std::vector<FloorComparison>{};
        char numbers[640];
        std::snprintf(numbers, sizeof numbers,
                      "%zu,%.9g,%.9g,%.9g,%.9g,%llu,%.6g,%.6g,%.6g,%llu,%.6g,%.6g,%llu,%.6g,%.6g,",
                      r->seconds.size(), d.time.median, d.time.min, d.time.max, d.setup.median, r->rows,
                      d.rowsPerSecond, d.rowsPerSecondMin, d.rowsPerSecondMax, r->calls, d.callsPerSecond,
                      d.secondsPerCall, r->bytes, d.bytesPerSecond / kMiB, d.cpu.median);
        csv += r->figure + "," + quote(r->title) + "," + std::to_string(r->n) + "," + r->status + "," + numbers +
               quote(r->memoryCounter) + "," + std::to_string(r->memoryBefore) + "," + std::to_string(r->memoryPeak) +
               "," + (floors.empty() ? "" : floors.front().floorFigure) + "," +
               (floors.empty() ? "" : Format("%.4g", floors.front().ratio)) + "," + quote(r->note) + "\n";
    }
    return csv;
}

}  // namespace zel::bench
