#include "provider/rows/RowSource.h"

namespace zel::provider {

MemoryRowSource::MemoryRowSource(std::vector<ColumnDesc> columns, std::vector<SourceRow> rows)
    : m_rows(std::move(rows)) {
    m_columns = std::move(columns);
}

bool MemoryRowSource::Next(SourceRow& row) {
    if (m_next >= m_rows.size()) return false;
    row = std::move(m_rows[m_next++]);
    return true;
}

}  // namespace zel::provider
