// Column descriptions (DBCOLUMNDESC) produced by the table-definition reader, and the rule
// that releases them. Every block (the array, the name and type-name strings, the property
// sets and their property arrays) comes from the COM task allocator.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <utility>

namespace zel {

// The Jet provider's column property set; carries DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH.
extern const GUID DBPROPSET_JETOLEDB_COLUMN;  // {820BF922-6AC8-11D1-9F02-00C04FC2C2E0}
constexpr DBPROPID DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH = 0xE0;

// Room allocated in each property set of a description made by the reader.
constexpr ULONG kTableDefPropertyRoom = 5;

// Releases `count` descriptions made by the reader and then the array: for each element
// its name, its type name, the VARIANT of every counted property, each property array and
// the property-set array. Null is accepted.
void FreeTableDefColumns(DBCOLUMNDESC* columns, DBORDINAL count) noexcept;

// Owner of a description array made by the reader; releases it with FreeTableDefColumns.
class TableDefColumns {
public:
    TableDefColumns() noexcept = default;
    TableDefColumns(DBCOLUMNDESC* columns, DBORDINAL count) noexcept : m_columns(columns), m_count(count) {}
    TableDefColumns(const TableDefColumns&) = delete;
    TableDefColumns& operator=(const TableDefColumns&) = delete;
    TableDefColumns(TableDefColumns&& other) noexcept
        : m_columns(std::exchange(other.m_columns, nullptr)), m_count(std::exchange(other.m_count, 0)) {}
    TableDefColumns& operator=(TableDefColumns&& other) noexcept {
        if (this != &other) {
            reset();
            m_columns = std::exchange(other.m_columns, nullptr);
            m_count = std::exchange(other.m_count, 0);
        }
        return *this;
    }
    ~TableDefColumns() { reset(); }

    DBCOLUMNDESC* get() const noexcept { return m_columns; }
    DBORDINAL count() const noexcept { return m_count; }
    DBCOLUMNDESC& operator[](DBORDINAL i) const noexcept { return m_columns[i]; }

    void reset() noexcept {
        FreeTableDefColumns(std::exchange(m_columns, nullptr), std::exchange(m_count, 0));
    }
    // Hands the array to the caller, who then releases it with FreeTableDefColumns.
    [[nodiscard]] DBCOLUMNDESC* release() noexcept {
        m_count = 0;
        return std::exchange(m_columns, nullptr);
    }

private:
    DBCOLUMNDESC* m_columns = nullptr;
    DBORDINAL m_count = 0;
};

}  // namespace zel
