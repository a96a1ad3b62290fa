// ZelBenchRemote: the 64-bit benchmark client. Creates the 32-bit server through COM
// activation and measures the out-of-process figures, appending one raw record each.
//
//   ZelBenchRemote run --figure fetch|xml|call-floor|call-floor-closed|tables|columns
//                      --db PATH --n N [--runs 5] [--warmups 1] [--walk-rows R] [--paired-calls C]
//                      --out RAW
// --walk-rows limits the row-by-row walk (fetch) to the first R rows of the result;
// --paired-calls sets the ConIsConnected calls made after each run of the walk.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <vector>

#include "bench/BenchData.h"
#include "bench/BenchHarness.h"
#include "bench/RemoteFigures.h"

namespace {

using namespace zel::bench;

int Usage() {
    std::fprintf(stderr,
                 "usage: ZelBenchRemote run --figure fetch|xml|call-floor|call-floor-closed|tables|columns\n"
                 "                          --db PATH --n N [--runs 5] [--warmups 1] [--walk-rows R]\n"
                 "                          [--paired-calls C] --out RAW\n");
    return 2;
}

int RunFigure(const Arguments& args) {
    RemotePlan plan;
    const std::wstring db = args.Text(L"db");
    plan.connectionString = L"Provider=ZelLite.OLEDB.1;Data Source=" + db;
    plan.n = args.Number(L"n", 0);
    plan.runs = static_cast<int>(args.Number(L"runs", 5));
    plan.warmups = static_cast<int>(args.Number(L"warmups", 1));
    plan.walkRows = args.Number(L"walk-rows", ~0ULL);
    plan.pairedCalls = args.Number(L"paired-calls", 200);
    const std::wstring figure = args.Text(L"figure");
    const std::wstring out = args.Text(L"out");
    if (db.empty() || out.empty() || plan.runs < 1) return Usage();

    std::vector<Measurement> measurements;
    if (figure == L"fetch") measurements = MeasureRemoteFetch(plan);
    else if (figure == L"xml") measurements = {MeasureRemoteDocument(plan)};
    else if (figure == L"call-floor") measurements = {MeasureCallFloor(plan, true)};
    else if (figure == L"call-floor-closed") measurements = {MeasureCallFloor(plan, false)};
    else if (figure == L"tables") measurements = {MeasureTableList(plan)};
    else if (figure == L"columns") measurements = {MeasureColumnWalk(plan, kWideTable)};
    else return Usage();

    int result = 0;
    for (const Measurement& m : measurements) {
        if (!AppendMeasurement(out, m)) {
            std::fprintf(stderr, "cannot write %s\n", ToUtf8(out).c_str());
            return 1;
        }
        std::printf("figure %s, N=%llu: %s%s%s\n", m.figure.c_str(), m.n, m.status.c_str(),
                    m.note.empty() ? "" : ": ", m.note.c_str());
        if (m.status == "failed") result = 1;
    }
    return result;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Arguments args(argc, argv);
    if (args.Words().empty() || args.Words()[0] != L"run") return Usage();
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    int result = RunFigure(args);
    CoUninitialize();
    return result;
}
