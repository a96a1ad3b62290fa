// The SQL behind IRowsetChange: UPDATE, INSERT and DELETE on a rowset's one base table, each
// row found again by its rowid, its primary key, or (without either in the rowset) by the values
// it was read with.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/rows/RowStore.h"
#include "provider/sqlite/Database.h"

namespace zel::provider {

class RowWriter {
public:
    RowWriter(Database& database, const UpdateTarget& target, const std::vector<ColumnDesc>& columns)
        : m_database(database), m_target(target), m_columns(columns) {}

    // Sets `changes` (column index, new value) on `row`. Returns false when the row is no
    // longer in the table. Throws (error published) on SQLite errors.
    bool Update(const SourceRow& row, const std::vector<std::pair<size_t, Cell>>& changes);
    // Inserts a row with `values` (column index, value; other columns take their defaults) and
    // returns it as now stored (re-read when the table lets the row be found again).
    SourceRow Insert(const std::vector<std::pair<size_t, Cell>>& values);
    // Returns false when the row is no longer in the table.
    bool Delete(const SourceRow& row);
    // Reads the row again after a change; nothing when it cannot be found.
    std::optional<SourceRow> Reload(const SourceRow& row);

private:
    std::wstring Locator(const SourceRow& row, std::vector<const Cell*>& parameters, Cell& rowidValue) const;
    std::wstring SelectList() const;

    Database& m_database;
    const UpdateTarget& m_target;
    const std::vector<ColumnDesc>& m_columns;
};

// The SQLite database as the store of its rowsets' changes.
class SqliteRowStore final : public RowStore {
public:
    explicit SqliteRowStore(std::shared_ptr<Database> database) : m_database(std::move(database)) {}

    bool ReadOnly() const noexcept override { return m_database->options().readOnly; }
    bool Update(const UpdateTarget& target, const std::vector<ColumnDesc>& columns, const SourceRow& row,
                const Values& changes) override {
        return RowWriter(*m_database, target, columns).Update(row, changes);
    }
    SourceRow Insert(const UpdateTarget& target, const std::vector<ColumnDesc>& columns, const Values& values) override {
        return RowWriter(*m_database, target, columns).Insert(values);
    }
    bool Delete(const UpdateTarget& target, const std::vector<ColumnDesc>& columns, const SourceRow& row) override {
        return RowWriter(*m_database, target, columns).Delete(row);
    }
    std::optional<SourceRow> Reload(const UpdateTarget& target, const std::vector<ColumnDesc>& columns,
                                    const SourceRow& row) override {
        return RowWriter(*m_database, target, columns).Reload(row);
    }

private:
    std::shared_ptr<Database> m_database;
};

}  // namespace zel::provider
