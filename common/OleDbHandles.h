// Owner of an OLE DB accessor handle that lives inside a provider object
// (IAccessor::ReleaseAccessor).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <utility>

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

}  // namespace zel
