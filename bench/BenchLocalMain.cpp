// ZelBenchLocal: the 32-bit benchmark program. Generates the data sets with SQLite and
// measures the in-process figures, appending one raw record per measurement.
//
//   ZelBenchLocal register-provider
//   ZelBenchLocal generate --db PATH --rows N
//   ZelBenchLocal generate-catalog --db PATH --tables 1000 --columns 255
//   ZelBenchLocal run --figure sqlite|oledb|command|xml|service --db PATH --rows N
//                     [--runs 5] [--warmups 1] [--modules FILE] --out RAW
//   ZelBenchLocal run --figure oledb|command|xml|service --connection STRING --rows N
//                     [--series p] [--series-title TEXT] [--runs 5] [--warmups 1] --out RAW
//   ZelBenchLocal smoke
//   ZelBenchLocal catalog-check --db PATH
//   ZelBenchLocal field-costs --db PATH [--runs 5] [--warmups 1]
// register-provider registers the ZelLite.dll and ZelOdbc.dll beside this program. With
// --connection the figures read BenchRows through that OLE DB connection string (another
// provider, another database holding the same rows) instead of ZelLite on --db; --series is
// appended to the figure's label (2p) and --series-title to its title. smoke runs figures 1
// to 4 on 1,000 fresh rows in a scratch folder and checks that the report has each of them.
#include <windows.h>
#include <objbase.h>

#include <shellapi.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/BenchData.h"
#include "bench/BenchHarness.h"
#include "bench/BenchReport.h"
#include "bench/LocalFigures.h"

namespace {

using namespace zel::bench;

int Usage() {
    std::fprintf(stderr,
                 "usage: ZelBenchLocal register-provider\n"
                 "       ZelBenchLocal generate --db PATH --rows N\n"
                 "       ZelBenchLocal generate-catalog --db PATH --tables N --columns N\n"
                 "       ZelBenchLocal run --figure sqlite|oledb|command|xml|service --db PATH --rows N\n"
                 "                         [--runs 5] [--warmups 1] --out RAW\n"
                 "       ZelBenchLocal run --figure oledb|command|xml|service --connection STRING --rows N\n"
                 "                         [--series p] [--series-title TEXT] [--runs 5] [--warmups 1] --out RAW\n"
                 "       ZelBenchLocal smoke\n"
                 "       ZelBenchLocal catalog-check --db PATH\n"
                 "       ZelBenchLocal field-costs --db PATH [--runs 5] [--warmups 1]\n");
    return 2;
}

std::wstring ProgramFolder() {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length);
    return folder.substr(0, folder.find_last_of(L"\\/") + 1);
}

// DllRegisterServer of the provider `file` next to this program, so that the figures measure
// the provider of the same build.
HRESULT RegisterProvider(const wchar_t* file = L"ZelLite.dll") {
    HMODULE module = LoadLibraryW((ProgramFolder() + file).c_str());
    if (!module) return HRESULT_FROM_WIN32(GetLastError());
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    auto registerServer = reinterpret_cast<RegisterFunction>(GetProcAddress(module, "DllRegisterServer"));
    return registerServer ? registerServer() : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
}

int RegisterCommand() {
    int result = 0;
    for (const wchar_t* file : {L"ZelLite.dll", L"ZelOdbc.dll"}) {
        HRESULT hr = RegisterProvider(file);
        if (FAILED(hr)) {
            std::fprintf(stderr, "registering %s failed: %s\n", ToUtf8(file).c_str(), HresultText(hr).c_str());
            result = 1;
        }
    }
    return result;
}

int Generate(const Arguments& args, bool catalog) {
    const std::wstring db = args.Text(L"db");
    if (db.empty()) return Usage();
    Stopwatch clock;
    std::string error = catalog ? GenerateCatalog(db, static_cast<unsigned>(args.Number(L"tables", 1000)),
                                                  static_cast<unsigned>(args.Number(L"columns", 255)))
                                : GenerateRowTable(db, args.Number(L"rows", 1000));
    if (!error.empty()) {
        std::fprintf(stderr, "generating %s failed: %s\n", ToUtf8(db).c_str(), error.c_str());
        return 1;
    }
    std::printf("generated %s in %.1f s\n", ToUtf8(db).c_str(), clock.Seconds());
    return 0;
}

int RunFigure(const Arguments& args) {
    LocalPlan plan;
    plan.database = args.Text(L"db");
    plan.n = args.Number(L"rows", 0);
    plan.runs = static_cast<int>(args.Number(L"runs", 5));
    plan.warmups = static_cast<int>(args.Number(L"warmups", 1));
    plan.connectionString = L"Provider=ZelLite.OLEDB.1;Data Source=" + plan.database;
    const std::wstring figure = args.Text(L"figure");
    const std::wstring out = args.Text(L"out");
    const bool other = args.Has(L"connection");
    if (other) {
        plan.connectionString = args.Text(L"connection");
        plan.series = ToUtf8(args.Text(L"series"));
        plan.seriesTitle = ToUtf8(args.Text(L"series-title"));
        // Figure 1 is SQLite's own reading of the file; it has no counterpart elsewhere.
        if (plan.connectionString.empty() || figure == L"sqlite") return Usage();
    } else if (plan.database.empty()) {
        return Usage();
    }
    if (out.empty() || plan.runs < 1) return Usage();

    Measurement m;
    if (figure == L"sqlite") m = MeasureSqlite(plan);
    else if (figure == L"oledb") m = MeasureOleDb(plan);
    else if (figure == L"command") m = MeasureCommand(plan);
    else if (figure == L"xml") m = MeasureDocument(plan);
    else if (figure == L"service") m = MeasureServiceInProcess(plan);
    else return Usage();

    if (args.Has(L"modules")) WriteModuleMap(args.Text(L"modules"));
    if (!AppendMeasurement(out, m)) {
        std::fprintf(stderr, "cannot write %s\n", ToUtf8(out).c_str());
        return 1;
    }
    std::printf("figure %s, N=%llu: %s%s%s\n", m.figure.c_str(), m.n, m.status.c_str(), m.note.empty() ? "" : ": ",
                m.note.c_str());
    return m.status == "ok" ? 0 : 1;
}

// A scratch folder under the temporary folder, removed with its files.
class ScratchFolder {
public:
    ScratchFolder() {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        m_path = std::wstring(temp) + L"zelbench-smoke-" + std::to_wstring(GetCurrentProcessId());
        CreateDirectoryW(m_path.c_str(), nullptr);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder() {
        std::wstring from = m_path + L'\0';  // SHFileOperation wants a double-NUL-terminated list
        SHFILEOPSTRUCTW op = {};
        op.wFunc = FO_DELETE;
        op.pFrom = from.c_str();
        op.fFlags = FOF_NO_UI;
        SHFileOperationW(&op);
    }
    const std::wstring& Path() const { return m_path; }

private:
    std::wstring m_path;
};

int Smoke() {
    HRESULT hr = RegisterProvider();
    if (FAILED(hr)) {
        std::fprintf(stderr, "registering ZelLite.dll failed: %s\n", HresultText(hr).c_str());
        return 1;
    }
    ScratchFolder folder;
    LocalPlan plan;
    plan.database = folder.Path() + L"\\smoke.db";
    plan.connectionString = L"Provider=ZelLite.OLEDB.1;Data Source=" + plan.database;
    plan.n = 1000;
    plan.warmups = 0;
    plan.runs = 5;
    std::string error = GenerateRowTable(plan.database, plan.n);
    if (!error.empty()) {
        std::fprintf(stderr, "generating the rows failed: %s\n", error.c_str());
        return 1;
    }
    const std::wstring raw = folder.Path() + L"\\raw.csv";
    for (Measurement m : {MeasureSqlite(plan), MeasureOleDb(plan), MeasureCommand(plan), MeasureDocument(plan)})
        AppendMeasurement(raw, m);

    std::string text;
    if (FILE* file = _wfopen(raw.c_str(), L"rb")) {
        char buffer[4096];
        size_t got;
        while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, got);
        std::fclose(file);
    }
    std::vector<RawRecord> records = ParseRawRecords(text);
    std::printf("%s", RenderMarkdown(records, {"smoke run: N = 1,000, 5 runs, no warm-up"}).c_str());
    int failures = 0;
    for (const char* figure : {"1", "2", "3", "4"}) {
        bool found = false;
        for (const RawRecord& r : records)
            found = found || (r.figure == figure && r.status == "ok" && r.rows == plan.n && r.seconds.size() == 5);
        if (!found) {
            std::fprintf(stderr, "figure %s: no successful record of 1000 rows over 5 runs\n", figure);
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Arguments args(argc, argv);
    if (args.Words().empty()) return Usage();
    const std::wstring& command = args.Words()[0];
    if (command == L"generate") return Generate(args, false);
    if (command == L"generate-catalog") return Generate(args, true);
    if (command != L"run" && command != L"smoke" && command != L"register-provider" && command != L"catalog-check" &&
        command != L"field-costs")
        return Usage();
    // The server runs its objects in a single-threaded apartment; so do the measurements.
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    int result = 0;
    if (command == L"run") {
        result = RunFigure(args);
    } else if (command == L"smoke") {
        result = Smoke();
    } else if (command == L"register-provider") {
        result = RegisterCommand();
    } else if (command == L"field-costs") {
        LocalPlan plan;
        plan.connectionString = L"Provider=ZelLite.OLEDB.1;Data Source=" + args.Text(L"db");
        plan.runs = static_cast<int>(args.Number(L"runs", 5));
        plan.warmups = static_cast<int>(args.Number(L"warmups", 1));
        std::printf("%s", FieldCostBreakdown(plan).c_str());
    } else {
        std::printf("%s\n", DescribeCatalogSupport(L"Provider=ZelLite.OLEDB.1;Data Source=" + args.Text(L"db")).c_str());
    }
    CoUninitialize();
    return result;
}
