// Owners of OLE DB handles that live inside a provider object: an accessor handle
// (IAccessor::ReleaseAccessor) and row handles (IRowset::ReleaseRows).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <utility>
#include <vector>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {

// One accessor handle together with the IAccessor that created it.
class Accessor {
public:
    Accessor() noexcept = default;
    Accessor(ComPtr<IAccessor> owner, HACCESSOR handle) noexcept : m_owner(std::move(owner)), m_handle(handle) {}
    Accessor(const Accessor&) = delete;
    Accessor& operator=(const Accessor&) = delete;
    Accessor(Accessor&& other) noexcept
        : m_owner(std::move(other.m_owner)), m_handle(std::exchange(other.m_handle, DB_NULL_HACCESSOR)) {}
    Accessor& operator=(Accessor&& other) noexcept {
        if (this != &other) {
            reset();
            m_owner = std::move(other.m_owner);
            m_handle = std::exchange(other.m_handle, DB_NULL_HACCESSOR);
        }
        return *this;
    }
    ~Accessor() { reset(); }

    HACCESSOR get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != DB_NULL_HACCESSOR; }
    IAccessor* owner() const noexcept { return m_owner.get(); }

    // Releases the handle (and the IAccessor reference).
    void reset() noexcept {
        if (m_handle != DB_NULL_HACCESSOR && m_owner) m_owner->ReleaseAccessor(m_handle, nullptr);
        m_handle = DB_NULL_HACCESSOR;
        m_owner.reset();
    }

private:
    ComPtr<IAccessor> m_owner;
    HACCESSOR m_handle = DB_NULL_HACCESSOR;
};

// Row handles obtained from one rowset, released together.
class RowHandles {
public:
    RowHandles() noexcept = default;
    explicit RowHandles(ComPtr<IRowset> rowset) noexcept : m_rowset(std::move(rowset)) {}
    RowHandles(const RowHandles&) = delete;
    RowHandles& operator=(const RowHandles&) = delete;
    RowHandles(RowHandles&&) noexcept = default;
    RowHandles& operator=(RowHandles&& other) noexcept {
        if (this != &other) {
            reset();
            m_rowset = std::move(other.m_rowset);
            m_rows = std::move(other.m_rows);
        }
        return *this;
    }
    ~RowHandles() { reset(); }

    // Takes ownership of handles the rowset handed out.
    void adopt(const HROW* rows, DBCOUNTITEM count) { m_rows.insert(m_rows.end(), rows, rows + count); }
    const std::vector<HROW>& rows() const noexcept { return m_rows; }
    HROW operator[](size_t i) const noexcept { return m_rows[i]; }
    size_t size() const noexcept { return m_rows.size(); }
    bool empty() const noexcept { return m_rows.empty(); }

    // Releases every handle held (IRowset::ReleaseRows); the rowset reference stays.
    void reset() noexcept {
        if (!m_rows.empty() && m_rowset)
            m_rowset->ReleaseRows(static_cast<DBCOUNTITEM>(m_rows.size()), m_rows.data(), nullptr, nullptr, nullptr);
        m_rows.clear();
    }

private:
    ComPtr<IRowset> m_rowset;
    std::vector<HROW> m_rows;
};

}  // namespace zel
