// Exact decimal arithmetic for DECIMAL, NUMERIC and CY values: parsing, formatting and
// rescaling with round-half-to-even, independent of the user's locale.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zel::provider {

// Parses "[-+]digits[.digits][e[-+]digits]". Digits beyond DECIMAL's 28-29 are rounded away
// from the fraction; false for malformed text or a value too large for DECIMAL.
bool ParseDecimal(std::wstring_view text, DECIMAL* out);
// Plain notation with exactly the value's scale ("12.50", "-0.005", "7").
std::wstring FormatDecimal(const DECIMAL& value);
// Changes the scale (0..28), rounding half to even when digits are dropped. False on overflow.
bool RescaleDecimal(DECIMAL* value, int scale);
bool DecimalFromInt64(std::int64_t value, DECIMAL* out) noexcept;
// Rounds to an integer (half to even); false when outside int64.
bool DecimalToInt64(const DECIMAL& value, std::int64_t* out);
bool DecimalFromDouble(double value, DECIMAL* out);
double DecimalToDouble(const DECIMAL& value);
bool DecimalToCurrency(const DECIMAL& value, CY* out);
void DecimalFromCurrency(CY value, DECIMAL* out) noexcept;
// NUMERIC with the given precision (1..38) and scale; false when the digits do not fit.
bool DecimalToNumeric(const DECIMAL& value, BYTE precision, BYTE scale, DB_NUMERIC* out);
bool NumericToDecimal(const DB_NUMERIC& value, DECIMAL* out);
// Number of significant digits of the mantissa (at least 1).
int DecimalDigits(const DECIMAL& value);

}  // namespace zel::provider
