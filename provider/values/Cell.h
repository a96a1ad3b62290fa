// One value as SQLite stores it (its storage classes), and one row of them.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace zel::provider {

using Bytes = std::vector<BYTE>;
// NULL, INTEGER, REAL, TEXT (held as UTF-16), BLOB.
using Cell = std::variant<std::monostate, std::int64_t, double, std::wstring, Bytes>;

inline bool IsNull(const Cell& cell) noexcept { return std::holds_alternative<std::monostate>(cell); }

// The text or blob alternative of `cell`, made when the cell holds another: a cell filled
// again keeps its buffer.
template <typename T>
T& Holding(Cell& cell) {
    if (T* held = std::get_if<T>(&cell)) return *held;
    return cell.emplace<T>();
}

struct SourceRow {
    std::vector<Cell> cells;              // one per visible column, in column order
    std::optional<std::int64_t> rowid;    // the base table's rowid when the source knows it
};

}  // namespace zel::provider
