// Reads a stored value in the light of its column's type: the INTEGER 1 of a BIT column is a
// boolean, the text of a DATETIME column a timestamp, the REAL of a DECIMAL column an exact
// decimal at the column's scale. Values that do not fit their column's type stay what SQLite
// holds (a word in an INTEGER column is text), and the conversions decide what to make of them.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <string_view>

#include "provider/values/Cell.h"
#include "provider/values/DateTime.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider {

enum class ScalarKind { Null, Integer, Real, Decimal, Boolean, DateTime, Guid, Text, Binary };

struct Scalar {
    ScalarKind kind = ScalarKind::Null;
    std::int64_t integer = 0;
    double real = 0;
    DECIMAL decimal{};
    bool boolean = false;
    Timestamp timestamp{};
    GUID guid{};
    std::wstring_view text;       // refers to the cell
    const BYTE* bytes = nullptr;  // refers to the cell
    size_t byteCount = 0;
};

// The cell must outlive the returned scalar (text and bytes refer to it).
Scalar ReadValue(const Cell& cell, const ColumnType& column);

// Parsers shared with the conversions.
bool ParseInteger(std::wstring_view text, std::int64_t* out);
bool ParseReal(std::wstring_view text, double* out);
bool ParseBoolean(std::wstring_view text, bool* out);
bool ParseGuid(std::wstring_view text, GUID* out);

}  // namespace zel::provider
