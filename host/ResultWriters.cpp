#include "host/ResultWriters.h"

#include <algorithm>
#include <cwchar>

namespace zel::zeldb {

Cell Cell::Blob(std::uint64_t bytes) { return Cell{L"<blob " + std::to_wstring(bytes) + L" bytes>", false}; }

std::wstring CountText(std::uint64_t n, const wchar_t* singular, const wchar_t* plural) {
    return std::to_wstring(n) + L" " + (n == 1 ? singular : plural);
}

void TableWriter::Begin(const std::vector<ColumnHeading>& columns) {
    m_columns = columns;
    m_rows.clear();
}

void TableWriter::Row(const std::vector<Cell>& cells) {
    std::vector<std::wstring> row;
    row.reserve(m_columns.size());
    for (size_t c = 0; c < m_columns.size(); ++c) row.push_back(c < cells.size() ? cells[c].text : std::wstring());
    m_rows.push_back(std::move(row));
}

void TableWriter::End(const ResultEnd& end) {
    const size_t n = m_columns.size();
    std::vector<size_t> widths(n);
    for (size_t c = 0; c < n; ++c) widths[c] = m_columns[c].name.size();
    for (const auto& row : m_rows) {
        for (size_t c = 0; c < n; ++c) widths[c] = std::max(widths[c], row[c].size());
    }

    std::wstring text;
    auto appendLine = [&](const std::vector<std::wstring>& cells, bool heading) {
        std::wstring line;
        for (size_t c = 0; c < n; ++c) {
            if (c > 0) line += L" | ";
            const std::wstring& value = cells[c];
            const size_t pad = widths[c] - value.size();
            // Headings are centred over their column, as psql does.
            if (heading) {
                line.append(pad / 2, L' ');
                line += value;
                line.append(pad - pad / 2, L' ');
            } else if (m_columns[c].alignRight) {
                line.append(pad, L' ');
                line += value;
            } else {
                line += value;
                line.append(pad, L' ');
            }
        }
        // No trailing blanks.
        while (!line.empty() && line.back() == L' ') line.pop_back();
        text += L" " + line + L"\n";
    };

    std::vector<std::wstring> headings;
    for (const auto& col : m_columns) headings.push_back(col.name);
    appendLine(headings, true);
    std::wstring rule;
    for (size_t c = 0; c < n; ++c) {
        if (c > 0) rule += L"+";
        rule.append(widths[c] + 2, L'-');
    }
    text += rule + L"\n";
    for (const auto& row : m_rows) {
        appendLine(row, false);
        if (text.size() > 32768) {
            m_out.Write(text);
            text.clear();
        }
    }
    if (m_footer) {
        text += L"(" + CountText(end.rows, L"row", L"rows");
        if (end.truncated) text += L"; more rows not shown";
        text += L")\n";
    }
    m_out.Write(text);
    m_rows.clear();
}

std::wstring CsvWriter::Field(const Cell& cell) {
    if (cell.isNull) return {};
    if (cell.text.empty()) return L"\"\"";
    if (cell.text.find_first_of(L",\"\r\n") == std::wstring::npos) return cell.text;
    std::wstring quoted = L"\"";
    for (wchar_t c : cell.text) {
        if (c == L'"') quoted += L'"';
        quoted += c;
    }
    return quoted + L"\"";
}

void CsvWriter::Begin(const std::vector<ColumnHeading>& columns) {
    std::wstring line;
    for (size_t c = 0; c < columns.size(); ++c) {
        if (c > 0) line += L',';
        line += Field(Cell::Text(columns[c].name));
    }
    m_out.Write(line + L"\n");
}

void CsvWriter::Row(const std::vector<Cell>& cells) {
    // One line buffer reused across rows: results stream through here row after row.
    m_line.clear();
    for (size_t c = 0; c < cells.size(); ++c) {
        if (c > 0) m_line += L',';
        const Cell& cell = cells[c];
        if (!cell.isNull && !cell.text.empty() && cell.text.find_first_of(L",\"\r\n") == std::wstring::npos)
            m_line += cell.text;  // the common case needs no quoting and no copy of its own
        else
            m_line += Field(cell);
    }
    m_line += L'\n';
    m_out.Write(m_line);
}

void CsvWriter::End(const ResultEnd&) {}

std::wstring JsonWriter::String(const std::wstring& text) {
    std::wstring quoted = L"\"";
    for (wchar_t c : text) {
        switch (c) {
            case L'"': quoted += L"\\\""; break;
            case L'\\': quoted += L"\\\\"; break;
            case L'\n': quoted += L"\\n"; break;
            case L'\r': quoted += L"\\r"; break;
            case L'\t': quoted += L"\\t"; break;
            default:
                if (c < 0x20) {
                    wchar_t escape[8];
                    swprintf(escape, 8, L"\\u%04x", static_cast<unsigned>(c));
                    quoted += escape;
                } else {
                    quoted += c;
                }
        }
    }
    return quoted + L"\"";
}

std::wstring JsonWriter::Value(const Cell& cell) {
    if (cell.isNull) return L"null";
    switch (cell.kind) {
        case CellKind::Number: return cell.text;
        case CellKind::Boolean: return cell.text == L"0" ? L"false" : L"true";
        case CellKind::Text: break;
    }
    return String(cell.text);
}

void JsonWriter::Begin(const std::vector<ColumnHeading>& columns) {
    m_keys.clear();
    for (const auto& column : columns) m_keys.push_back(String(column.name) + L":");
    m_first = true;
    m_out.Write(L"[");
}

void JsonWriter::Row(const std::vector<Cell>& cells) {
    std::wstring line = m_first ? L"\n{" : L",\n{";
    m_first = false;
    for (size_t c = 0; c < cells.size() && c < m_keys.size(); ++c) {
        if (c > 0) line += L',';
        line += m_keys[c];
        line += Value(cells[c]);
    }
    line += L'}';
    m_out.Write(line);
}

void JsonWriter::End(const ResultEnd&) { m_out.Write(m_first ? L"]\n" : L"\n]\n"); }

std::unique_ptr<RowWriter> MakeRowWriter(OutputFormat format, TextSink& out) {
    if (format == OutputFormat::Csv) return std::make_unique<CsvWriter>(out);
    if (format == OutputFormat::Json) return std::make_unique<JsonWriter>(out);
    return std::make_unique<TableWriter>(out);
}

}  // namespace zel::zeldb
