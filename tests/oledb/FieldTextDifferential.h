// Differential checks of the field texts: the server's own formatters (ValueText,
// DateTextFormat) against the platform calls the texts were made with before (msvcrt's
// _vsnwprintf with the readers' formats, VarBstrFromDate, UuidToStringW, _ultow), in the
// same process, over generated values. The fixed-seed set runs in the test suite; the
// program FieldTextDiff runs the same checks over as many values as it is told.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <string>
#include <vector>

namespace zel::test {

struct DifferentialResult {
    std::string name;
    uint64_t compared = 0;
    uint64_t mismatches = 0;
    std::vector<std::string> examples;  // the first few mismatches: value, expected, actual
};

// The kinds of value compared through ValueText, each with its generator: exhaustive where
// the type is small, else its limits and their neighbours first, then random values (bit
// patterns for reals, dates over the whole valid range and just outside it).
std::vector<std::string> ValueKinds();
DifferentialResult CompareValueKind(const std::string& kind, uint64_t seed, uint64_t count);

// The text of a value the way the field reader made it with the platform's calls.
std::wstring PlatformValueText(DBTYPE type, const BYTE* value);

// Dates formatted in `locale` by DateTextFormat::ForLocale(locale) against
// VarBstrFromDate(value, locale, flags), with random values and the three flag choices, and
// calendar fields against SystemTimeToVariantTime then VarBstrFromDate.
DifferentialResult CompareLocaleDates(LCID locale, uint64_t seed, uint64_t count);

// Every locale the system lists that has its own LCID.
std::vector<LCID> InstalledLocales();

std::string Describe(const DifferentialResult& result);

}  // namespace zel::test
