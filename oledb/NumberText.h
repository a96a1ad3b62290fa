// Number texts exactly as the platform's wide printf (msvcrt's _vsnwprintf) writes them under
// the formats the field readers use, made without the formatter: it parses the format and
// converts through its own big-number arithmetic for every value, which made formatting the
// larger part of reading a row as text.
#pragma once

#include <string>

namespace zel {

// "%ld", "%hd", "%d" of a value already narrowed to the argument's width: optional minus
// sign, then the digits without leading zeros.
std::wstring SignedText(long long value);

// "%lu", "%hu", "%u" of a value already narrowed to the argument's width.
std::wstring UnsignedText(unsigned long long value);

// "%g" (and "%lg", the same conversion): six significant digits, trailing zeros and a
// trailing point removed, exponent form below 1e-4 and from 1e6 on with at least three
// exponent digits ("1e+020"); ties of the exact binary value round away from zero;
// infinities and NaNs as "1.#INF", "-1.#INF", "1.#QNAN" and, for a NaN with its sign bit set,
// "-1.#IND"; a negative zero keeps its sign ("-0").
std::wstring RealText(double value);
// The same text written into `text` (its old content replaced), reusing its buffer.
void RealTextTo(double value, std::wstring& text);

// "%f": six decimals, every integer digit written out (a large value gives all of its exact
// decimal digits), ties away from zero; "1.#INF00", "-1.#INF00", "1.#QNAN0", "-1.#IND00".
std::wstring FixedRealText(double value);

// "%p": the pointer's value in upper-case hexadecimal, zero-padded to two digits per byte.
std::wstring PointerText(const void* value);

}  // namespace zel
