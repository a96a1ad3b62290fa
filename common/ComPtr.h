// Counted interface pointer and interface-id lookup.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <type_traits>
#include <utility>

#include "common/ComError.h"

namespace zel {

// The IID of interface type T. Interfaces whose headers carry no __uuidof declaration
// (the OLE DB ones) get a specialization in common/OleDbIids.h.
template <typename T>
struct InterfaceId {
    static REFIID get() { return __uuidof(T); }
};

template <typename T>
REFIID IidOf() {
    return InterfaceId<T>::get();
}

template <typename T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Takes a new reference on `p`.
    explicit ComPtr(T* p) noexcept : m_ptr(p) {
        if (m_ptr) m_ptr->AddRef();
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.m_ptr) {}
    // From a pointer to a derived interface or object (an implicit up-cast, no query).
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    ComPtr(const ComPtr<U>& other) noexcept : ComPtr(static_cast<T*>(other.get())) {}
    ComPtr(ComPtr&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    ComPtr& operator=(const ComPtr& other) noexcept {
        ComPtr(other).swap(*this);
        return *this;
    }
    ComPtr& operator=(ComPtr&& other) noexcept {
        ComPtr(std::move(other)).swap(*this);
        return *this;
    }
    ~ComPtr() { reset(); }

    // Adopts `p` without adding a reference.
    static ComPtr attach(T* p) noexcept {
        ComPtr r;
        r.m_ptr = p;
        return r;
    }

    T* get() const noexcept { return m_ptr; }
    T* operator->() const noexcept { return m_ptr; }
    T& operator*() const noexcept { return *m_ptr; }
    explicit operator bool() const noexcept { return m_ptr != nullptr; }

    void reset() noexcept {
        if (T* p = std::exchange(m_ptr, nullptr)) p->Release();
    }
    // Releases the held pointer and returns its address for an out-parameter.
    T** put() noexcept {
        reset();
        return &m_ptr;
    }
    void** put_void() noexcept { return reinterpret_cast<void**>(put()); }
    IUnknown** put_unknown() noexcept { return reinterpret_cast<IUnknown**>(put()); }
    // Hands the reference to the caller; this pointer becomes null.
    [[nodiscard]] T* detach() noexcept { return std::exchange(m_ptr, nullptr); }
    // Copies into an out-parameter with a new reference (null stays null).
    void copy_to(T** out) const noexcept {
        if (m_ptr) m_ptr->AddRef();
        *out = m_ptr;
    }
    void swap(ComPtr& other) noexcept { std::swap(m_ptr, other.m_ptr); }

    // QueryInterface for U; returns its HRESULT, `out` is null on failure.
    template <typename U>
    HRESULT query(ComPtr<U>& out) const noexcept {
        if (!m_ptr) {
            out.reset();
            return E_POINTER;
        }
        return m_ptr->QueryInterface(IidOf<U>(), out.put_void());
    }
    // QueryInterface for U; throws ComError on failure.
    template <typename U>
    ComPtr<U> as() const {
        ComPtr<U> r;
        ZEL_THROW_IF_FAILED(query(r));
        return r;
    }
    // QueryInterface for U; null on failure.
    template <typename U>
    ComPtr<U> try_as() const noexcept {
        ComPtr<U> r;
        query(r);
        return r;
    }

private:
    T* m_ptr = nullptr;
};

template <typename T, typename U>
bool operator==(const ComPtr<T>& a, const ComPtr<U>& b) noexcept {
    return a.get() == b.get();
}

// CoCreateInstance into a ComPtr; returns the HRESULT.
template <typename T>
HRESULT TryCreateInstance(REFCLSID clsid, ComPtr<T>& out, DWORD context = CLSCTX_INPROC_SERVER,
                          IUnknown* outer = nullptr) noexcept {
    return CoCreateInstance(clsid, outer, context, IidOf<T>(), out.put_void());
}

// CoCreateInstance that throws ComError on failure.
template <typename T>
ComPtr<T> CreateInstance(REFCLSID clsid, DWORD context = CLSCTX_INPROC_SERVER) {
    ComPtr<T> r;
    ZEL_THROW_IF_FAILED(TryCreateInstance(clsid, r, context));
    return r;
}

}  // namespace zel
