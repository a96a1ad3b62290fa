// Turns the raw measurement records into the results tables: medians with their min-max
// spread, throughput, and each figure's ratio to its floor.
#pragma once

#include <string>
#include <vector>

namespace zel::bench {

// One raw record as read back.
struct RawRecord {
    std::string figure;
    std::string title;
    unsigned long long n = 0;
    std::string status;
    std::string note;
    std::string memoryCounter;
    unsigned long long memoryBefore = 0;
    unsigned long long memoryPeak = 0;
    unsigned long long rows = 0;
    unsigned long long calls = 0;
    unsigned long long bytes = 0;
    std::vector<double> seconds;
    std::vector<double> setupSeconds;
    std::vector<double> cpuSeconds;  // of the measuring process (the client, out of process)
};

// Parses the raw file's text; a later record of the same figure and size replaces an earlier
// one. Lines that do not parse are skipped and counted in `skipped`.
std::vector<RawRecord> ParseRawRecords(const std::string& text, size_t* skipped = nullptr);

// The median, smallest and largest of the values (0 for none).
struct Spread {
    double median = 0;
    double min = 0;
    double max = 0;
};
Spread SpreadOf(std::vector<double> values);

// The Markdown report: a context block (one line per entry of `context`), the table, and the
// notes of failed or unmeasurable figures.
std::string RenderMarkdown(const std::vector<RawRecord>& records, const std::vector<std::string>& context);
// One CSV line per record with the derived figures.
std::string RenderCsv(const std::vector<RawRecord>& records);

}  // namespace zel::bench
