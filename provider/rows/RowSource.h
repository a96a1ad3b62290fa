// Where a rowset's rows come from. One rowset class serves every source: a running SQLite
// statement (commands, IOpenRowset) or rows materialised in memory (fixed result sets such as
// schema rowsets). A source reads forwards only; the rowset keeps what it has read.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/values/Cell.h"
#include "provider/values/ColumnDesc.h"

namespace zel::provider {

// The one base table a rowset's rows come from, and how a row is found again in it.
struct UpdateTarget {
    std::wstring table;
    bool useRowid = false;            // rows carry their rowid (SourceRow::rowid)
    std::vector<size_t> keyColumns;   // otherwise: these columns' values identify the row
    bool uniqueKey = false;           // keyColumns are the primary key (else: first match)
};

class RowSource {
public:
    virtual ~RowSource() = default;
    const std::vector<ColumnDesc>& columns() const noexcept { return m_columns; }
    const std::optional<UpdateTarget>& target() const noexcept { return m_target; }
    // Reads the next row into `row`; false at the end. Throws (error published) when the
    // database reports an error while reading.
    virtual bool Next(SourceRow& row) = 0;

protected:
    std::vector<ColumnDesc> m_columns;
    std::optional<UpdateTarget> m_target;
};

// A fixed list of rows held in memory.
class MemoryRowSource final : public RowSource {
public:
    MemoryRowSource(std::vector<ColumnDesc> columns, std::vector<SourceRow> rows);
    bool Next(SourceRow& row) override;

private:
    std::vector<SourceRow> m_rows;
    size_t m_next = 0;
};

}  // namespace zel::provider
