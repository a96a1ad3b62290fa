// zeldb's exact texts of the values that arrive in batches (natural automation types): reals
// as the shortest text that reads back as the same number, BOOL as 1/0, DATE as ISO 8601,
// DECIMAL and CURRENCY digit for digit, binary as its size.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

#include "host/ResultWriters.h"

namespace zel::zeldb {

// The shortest decimal text that reads back as exactly `value` ("0.1", "1.3928571428571428",
// "1e+300"); "inf", "-inf" and "nan" for the non-finite values.
std::wstring ShortestRealText(double value);
std::wstring ShortestRealText(float value);
// "2020-01-02 02:11:59", with the fraction of a second when there is one (to the
// millisecond, trailing zeros dropped: "2020-01-02 02:11:59.25"); a DATE that is a whole day
// still shows its time ("2020-01-02 00:00:00").
std::wstring IsoDateText(DATE value);
// Every digit of the 96-bit value, the point placed by the scale (its digits kept: "12.340").
std::wstring DecimalExactText(const DECIMAL& value);
// The currency's exact value with its four decimal places, trailing zeros dropped ("12.5",
// "-3", "0.0001").
std::wstring CurrencyExactText(CY value);

// One value of a batch as a cell: VT_NULL and VT_EMPTY are NULL, numbers are numbers (for
// JSON), BOOL is a boolean shown 1/0, text as it is, binary as "<blob N bytes>".
Cell NaturalCell(const VARIANT& value);

}  // namespace zel::zeldb
