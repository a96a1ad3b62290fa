// ZelBenchReport: reads the raw records of a benchmark run and writes results.md and
// results.csv, then prints the Markdown table.
//
//   ZelBenchReport --raw RAW --md results.md --csv results.csv [--context FILE]
// FILE holds one context line per line (machine, load, mode), shown above the table.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/BenchHarness.h"
#include "bench/BenchReport.h"

namespace {

using namespace zel::bench;

bool ReadFile(const std::wstring& path, std::string& text) {
    FILE* file = _wfopen(path.c_str(), L"rb");
    if (!file) return false;
    char buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, got);
    std::fclose(file);
    return true;
}

bool WriteFile(const std::wstring& path, const std::string& text) {
    FILE* file = _wfopen(path.c_str(), L"wb");
    if (!file) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && ok;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Arguments args(argc, argv);
    const std::wstring raw = args.Text(L"raw");
    const std::wstring md = args.Text(L"md");
    const std::wstring csv = args.Text(L"csv");
    if (raw.empty() || md.empty() || csv.empty()) {
        std::fprintf(stderr, "usage: ZelBenchReport --raw RAW --md OUT.md --csv OUT.csv [--context FILE]\n");
        return 2;
    }
    std::string rawText;
    if (!ReadFile(raw, rawText)) {
        std::fprintf(stderr, "cannot read %s\n", ToUtf8(raw).c_str());
        return 1;
    }
    std::vector<std::string> context;
    std::string contextText;
    if (args.Has(L"context") && ReadFile(args.Text(L"context"), contextText)) {
        size_t start = 0;
        while (start < contextText.size()) {
            size_t end = contextText.find('\n', start);
            if (end == std::string::npos) end = contextText.size();
            std::string line = contextText.substr(start, end - start);
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (!line.empty()) context.push_back(line);
            start = end + 1;
        }
    }
    size_t skipped = 0;
    std::vector<RawRecord> records = ParseRawRecords(rawText, &skipped);
    if (skipped) std::fprintf(stderr, "%zu raw lines did not parse and were left out\n", skipped);
    const std::string markdown = RenderMarkdown(records, context);
    if (!WriteFile(md, markdown) || !WriteFile(csv, RenderCsv(records))) {
        std::fprintf(stderr, "cannot write the results\n");
        return 1;
    }
    std::fwrite(markdown.data(), 1, markdown.size(), stdout);
    return records.empty() ? 1 : 0;
}
