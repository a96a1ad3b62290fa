// Dates and times as ZelLite stores them: ISO-8601 text ("YYYY-MM-DD HH:MM:SS[.fff]"), the form
// SQLite's date functions read and write. Conversions to and from the OLE Automation DATE and
// SQLite's Julian day numbers, written here without the locale-dependent system routines.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <optional>
#include <string>
#include <string_view>

namespace zel::provider {

struct Timestamp {
    int year = 1899, month = 12, day = 30;
    int hour = 0, minute = 0, second = 0;
    ULONG fraction = 0;  // nanoseconds
};

// Accepts "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS[.f...]]" (or with 'T'), an optional trailing
// "Z", and a time alone "HH:MM[:SS]" (on 1899-12-30, the zero day of DATE).
std::optional<Timestamp> ParseIsoDateTime(std::wstring_view text);
// "YYYY-MM-DD" at midnight, else "YYYY-MM-DD HH:MM:SS" with a fraction only when non-zero.
std::wstring FormatIsoDateTime(const Timestamp& value);

bool IsValidTimestamp(const Timestamp& value) noexcept;
// Fails (false) outside DATE's range (years 100 to 9999) or for an invalid calendar date.
bool TimestampToOleDate(const Timestamp& value, DATE* out) noexcept;
bool OleDateToTimestamp(DATE value, Timestamp* out) noexcept;
// SQLite's numeric dates are Julian day numbers.
inline constexpr double kJulianDayOfOleZero = 2415018.5;

}  // namespace zel::provider
