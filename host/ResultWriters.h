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

struct Cell {
    std::wstring text;
    bool isNull = false;

    static Cell Null() { return Cell{L"", true}; }
    static Cell Text(std::wstring value) { return Cell{std::move(value), false}; }
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
};

std::unique_ptr<RowWriter> MakeRowWriter(OutputFormat format, TextSink& out);

// "1 row", "2 rows".
std::wstring CountText(std::uint64_t n, const wchar_t* singular, const wchar_t* plural);

}  // namespace zel::zeldb
