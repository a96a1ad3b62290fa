// Owner of one VARIANT: VariantInit on construction, VariantClear on destruction.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string_view>

namespace zel {

class Variant {
public:
    Variant() noexcept { VariantInit(&m_value); }
    // VariantCopy; throws ComError on failure.
    Variant(const Variant& other);
    explicit Variant(const VARIANT& other);
    Variant(Variant&& other) noexcept;
    Variant& operator=(const Variant& other);
    Variant& operator=(Variant&& other) noexcept;
    ~Variant() { clear(); }

    // Typed constructors; string ones throw E_OUTOFMEMORY.
    explicit Variant(std::wstring_view text);
    static Variant FromI4(LONG value) noexcept;
    static Variant FromI2(SHORT value) noexcept;
    static Variant FromBool(bool value) noexcept;  // VT_BOOL, VARIANT_TRUE / VARIANT_FALSE

    VARIANT* get() noexcept { return &m_value; }
    const VARIANT* get() const noexcept { return &m_value; }
    VARIANT* operator->() noexcept { return &m_value; }
    const VARIANT* operator->() const noexcept { return &m_value; }
    VARTYPE vt() const noexcept { return V_VT(&m_value); }

    void clear() noexcept { VariantClear(&m_value); }
    // Clears and returns the address for an out-parameter.
    VARIANT* put() noexcept {
        clear();
        return &m_value;
    }
    // Moves the value into `out` (whose old content is not cleared); this becomes VT_EMPTY.
    void detach(VARIANT* out) noexcept {
        *out = m_value;
        VariantInit(&m_value);
    }
    // Converts in place with VariantChangeType; returns its HRESULT.
    HRESULT change_type(VARTYPE type) noexcept;

private:
    VARIANT m_value;
};

}  // namespace zel
