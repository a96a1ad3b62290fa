// Where a changeable rowset writes its changes (IRowsetChange): the store behind its rows. Each
// provider implements it over its own database connection; the rowset only knows this class.
#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "provider/rows/RowSource.h"

namespace zel::provider {

class RowStore {
public:
    using Values = std::vector<std::pair<size_t, Cell>>;  // (column index, value)

    virtual ~RowStore() = default;

    // True when the store takes no changes (a data source opened read-only).
    virtual bool ReadOnly() const noexcept = 0;
    // Sets `changes` on `row` of `target`. Returns false when the row is no longer in the
    // table. Throws (error published) when the database refuses the change.
    virtual bool Update(const UpdateTarget& target, const std::vector<ColumnDesc>& columns, const SourceRow& row,
                        const Values& changes) = 0;
    // Inserts a row with `values` (other columns take their defaults) and returns it as now
    // stored (read again when the table lets the row be found again).
    virtual SourceRow Insert(const UpdateTarget& target, const std::vector<ColumnDesc>& columns,
                             const Values& values) = 0;
    // Returns false when the row is no longer in the table.
    virtual bool Delete(const UpdateTarget& target, const std::vector<ColumnDesc>& columns, const SourceRow& row) = 0;
    // Reads the row again after a change; nothing when it cannot be found.
    virtual std::optional<SourceRow> Reload(const UpdateTarget& target, const std::vector<ColumnDesc>& columns,
                                            const SourceRow& row) = 0;
};

}  // namespace zel::provider
