// Printing rows: an aligned table for people, CSV for programs. Cells arrive as the server
// gave them; the writers only place them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/Arguments.h"
#include "host/TextStreams.h"

namespace zel::zeldb {

struct ColumnHeading {
    std::wstring name;
    bool alignRight = false;  // integral and numeric columns, as the server classifies them
};

// What a cell holds, for the writers that tell kinds apart (JSON writes numbers and booleans
// bare, everything else as a string).
enum class CellKind : unsigned char { Text, Number, Boolean };

struct Cell {
    std::wstring text;
    bool isNull = false;
    CellKind kind = CellKind::Text;

    static Cell Null() { return Cell{L"", true}; }
    static Cell Text(std::wstring value) { return Cell{std::move(value), false}; }
    // `value` is a number's exact text.
    static Cell Number(std::wstring value) { return Cell{std::move(value), false, CellKind::Number}; }
    // Shown 1 / 0 (true / false in JSON).
    static Cell Boolean(bool value) { return Cell{value ? L"1" : L"0", false, CellKind::Boolean}; }
    // How a binary or long value shows: its size, never its bytes.
    static Cell Blob(std::uint64_t bytes);
};

// How a result ended, for the table's footer.
struct ResultEnd {
    std::uint64_t rows = 0;
    bool truncated = false;  // --max-rows stopped the listing before the last row
};

class RowWriter {
public:
    virtual ~RowWriter() = default;
    virtual void Begin(const std::vector<ColumnHeading>& columns) = 0;
    virtual void Row(const std::vector<Cell>& cells) = 0;
    virtual void End(const ResultEnd& end) = 0;
};

// Aligned columns with a header and a rule, like
//    id | name  | qty
//   ----+-------+-----
//     1 | Bolt  |  10
//   (1 row)
// The rows are kept until End, which knows the widths. Widths count UTF-16 units.
class TableWriter : public RowWriter {
public:
    explicit TableWriter(TextSink& out, bool footer = true) : m_out(out), m_footer(footer) {}
    void Begin(const std::vector<ColumnHeading>& columns) override;
    void Row(const std::vector<Cell>& cells) override;
    void End(const ResultEnd& end) override;

private:
    TextSink& m_out;
    bool m_footer;
    std::vector<ColumnHeading> m_columns;
    std::vector<std::vector<std::wstring>> m_rows;
};

// RFC 4180 fields separated by ',' with a header line; a field holding ',', '"', CR or LF
// is quoted with inner quotes doubled. NULL is an empty field, an empty text is "".
// Lines end with LF. Rows are written as they come.
class CsvWriter : public RowWriter {
public:
    explicit CsvWriter(TextSink& out) : m_out(out) {}
    void Begin(const std::vector<ColumnHeading>& columns) override;
    void Row(const std::vector<Cell>& cells) override;
    void End(const ResultEnd& end) override;

    static std::wstring Field(const Cell& cell);

private:
    TextSink& m_out;
    std::wstring m_line;
};

// One JSON array of objects, one object per row with the column names as keys, written as
// the rows come:
//   [
//   {"id":1,"name":"Bolt","price":0.25,"ok":true,"note":null}
//   ]
// Numbers and booleans are bare, NULL is null, everything else a string. Non-ASCII text is
// written as it is (the sink makes it UTF-8); quotes, backslashes and control characters
// are escaped. A result without rows is "[]".
class JsonWriter : public RowWriter {
public:
    explicit JsonWriter(TextSink& out) : m_out(out) {}
    void Begin(const std::vector<ColumnHeading>& columns) override;
    void Row(const std::vector<Cell>& cells) override;
    void End(const ResultEnd& end) override;

    static std::wstring String(const std::wstring& text);
    static std::wstring Value(const Cell& cell);

private:
    TextSink& m_out;
    std::vector<std::wstring> m_keys;
    bool m_first = true;
};

std::unique_ptr<RowWriter> MakeRowWriter(OutputFormat format, TextSink& out);

// "1 row", "2 rows".
std::wstring CountText(std::uint64_t n, const wchar_t* singular, const wchar_t* plural);

}  // namespace zel::zeldb
