// A move-only owner of one handle-like value with a fixed release function: the generic
// base of the BSTR, SAFEARRAY and CoTaskMem owners.
#pragma once

#include <utility>

namespace zel {

template <typename T, auto Deleter, T Invalid = T{}>
class UniqueResource {
public:
    UniqueResource() noexcept = default;
    explicit UniqueResource(T value) noexcept : m_value(value) {}
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;
    UniqueResource(UniqueResource&& other) noexcept : m_value(other.release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~UniqueResource() { reset(); }

    T get() const noexcept { return m_value; }
    explicit operator bool() const noexcept { return m_value != Invalid; }

    // Frees the held value and takes `value` instead.
    void reset(T value = Invalid) noexcept {
        T old = std::exchange(m_value, value);
        if (old != Invalid) Deleter(old);
    }
    // Gives up ownership without freeing; the caller now owns the value.
    [[nodiscard]] T release() noexcept { return std::exchange(m_value, Invalid); }
    // Frees the held value and returns its address for an out-parameter.
    T* put() noexcept {
        reset();
        return &m_value;
    }

private:
    T m_value = Invalid;
};

}  // namespace zel
