// FieldTextDiff: the differential checks of the field texts over as many generated values as
// asked, for the long run the test suite leaves out.
//   FieldTextDiff [--values N] [--seed S] [--locale-values N]
// N values of every kind (default 10,000,000), and N dates in every installed locale (default
// 20,000); prints one line per kind and exits with 1 when any text differs.
#include <windows.h>
#include <objbase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/oledb/FieldTextDifferential.h"

using namespace zel::test;

int main(int argc, char** argv) {
    uint64_t values = 10000000;
    uint64_t localeValues = 20000;
    uint64_t seed = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--values") == 0) values = std::strtoull(argv[i + 1], nullptr, 10);
        else if (std::strcmp(argv[i], "--seed") == 0) seed = std::strtoull(argv[i + 1], nullptr, 10);
        else if (std::strcmp(argv[i], "--locale-values") == 0) localeValues = std::strtoull(argv[i + 1], nullptr, 10);
        else {
            std::fprintf(stderr, "usage: FieldTextDiff [--values N] [--seed S] [--locale-values N]\n");
            return 2;
        }
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    uint64_t compared = 0;
    uint64_t different = 0;
    auto report = [&](const DifferentialResult& result, DWORD started) {
        compared += result.compared;
        different += result.mismatches;
        std::printf("%s (%.1f s)\n", Describe(result).c_str(), (GetTickCount() - started) / 1000.0);
        std::fflush(stdout);
    };
    for (const std::string& kind : ValueKinds()) {
        const DWORD started = GetTickCount();
        report(CompareValueKind(kind, seed, values), started);
    }
    const DWORD started = GetTickCount();
    DifferentialResult locales;
    locales.name = "dates in every installed locale";
    for (LCID locale : InstalledLocales()) {
        DifferentialResult one = CompareLocaleDates(locale, seed, localeValues);
        locales.compared += one.compared;
        locales.mismatches += one.mismatches;
        for (const std::string& example : one.examples)
            if (locales.examples.size() < 10) locales.examples.push_back(one.name + ": " + example);
    }
    report(locales, started);
    std::printf("total: %llu compared, %llu different (seed %llu)\n", static_cast<unsigned long long>(compared),
                static_cast<unsigned long long>(different), static_cast<unsigned long long>(seed));
    CoUninitialize();
    return different == 0 ? 0 : 1;
}
