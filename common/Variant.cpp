#include "common/Variant.h"

#include "common/ComError.h"

namespace zel {

Variant::Variant(const Variant& other) : Variant(other.m_value) {}

Variant::Variant(const VARIANT& other) {
    VariantInit(&m_value);
    // VariantCopy does not modify its source; its signature is not const-correct.
    ZEL_THROW_IF_FAILED(VariantCopy(&m_value, const_cast<VARIANT*>(&other)));
}

Variant::Variant(Variant&& other) noexcept : m_value(other.m_value) { VariantInit(&other.m_value); }

Variant& Variant::operator=(const Variant& other) {
    if (this != &other) {
        Variant copy(other);
        *this = std::move(copy);
    }
    return *this;
}

Variant& Variant::operator=(Variant&& other) noexcept {
    if (this != &other) {
        clear();
        m_value = other.m_value;
        VariantInit(&other.m_value);
    }
    return *this;
}

Variant::Variant(std::wstring_view text) {
    VariantInit(&m_value);
    BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!b) ThrowHr(E_OUTOFMEMORY);
    V_VT(&m_value) = VT_BSTR;
    V_BSTR(&m_value) = b;
}

Variant Variant::FromI4(LONG value) noexcept {
    Variant v;
    V_VT(v.get()) = VT_I4;
    V_I4(v.get()) = value;
    return v;
}

Variant Variant::FromI2(SHORT value) noexcept {
    Variant v;
    V_VT(v.get()) = VT_I2;
    V_I2(v.get()) = value;
    return v;
}

Variant Variant::FromBool(bool value) noexcept {
    Variant v;
    V_VT(v.get()) = VT_BOOL;
    V_BOOL(v.get()) = value ? VARIANT_TRUE : VARIANT_FALSE;
    return v;
}

HRESULT Variant::change_type(VARTYPE type) noexcept {
    return VariantChangeType(&m_value, &m_value, 0, type);
}

}  // namespace zel
