// The random side of the differential test: tables with random rows (integers of three
// widths, doubles, singles, short and long text, blobs, many NULLs) and random SELECTs over
// them (filters, joins, ORDER BY, aggregates), all made from one seed; the reader of the
// SQLite shell's ".mode quote" output; and the text the server must give for each value.
#pragma once

#include <windows.h>

#include <random>
#include <string>
#include <vector>

namespace zel::test::differential {

// How the server types a result column, and so how it formats its values.
enum class Kind { Int32, Int64, Int16, Double, Single, Text, LongText, Blob };

// The DBTYPE the server reports for a column of `kind` (CmdGetRawType).
ULONG RawType(Kind kind);

struct Query {
    std::wstring sql;
    std::vector<Kind> columns;
};

struct Scenario {
    std::vector<std::wstring> setup;  // statements that make and fill the tables
    std::vector<Query> queries;
};

// Everything the seed decides.
Scenario MakeScenario(unsigned seed, int queries);

// One value as the shell printed it.
struct ShellValue {
    enum class Type { Null, Integer, Real, Text, Blob } type = Type::Null;
    long long integer = 0;
    double real = 0;
    std::wstring text;
    std::vector<BYTE> bytes;
};
using ShellRow = std::vector<ShellValue>;

// The shell's script: quote mode, then for each query a "#Q <index>" marker and the query.
std::string ShellScript(const Scenario& scenario);
// The shell's output split by query (index = query number); false when it cannot be read.
bool ReadShellOutput(const std::wstring& text, size_t queries, std::vector<std::vector<ShellRow>>& results);

// What the server must answer for `value` in a column of `kind`: the field text of the row
// methods (for blob kinds the bytes GetBlobData gives, as hexadecimal). Null gives nothing.
struct Expected {
    bool isNull = true;
    std::wstring text;         // FieldAsString, for the non-blob kinds
    std::vector<BYTE> bytes;   // GetBlobData, for the blob kinds
    std::wstring documentText; // the C<n> attribute of the query-result document
    bool documentComparable = true;  // false for binary blobs, whose UTF-16 reading is not text
};
Expected ExpectedValue(Kind kind, const ShellValue& value);

}  // namespace zel::test::differential
