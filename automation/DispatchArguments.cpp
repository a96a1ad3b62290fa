#include "automation/DispatchArguments.h"

#include "common/ComError.h"

namespace zel::dispatch {
namespace {

constexpr VARTYPE kByRefVariant = VT_BYREF | VT_VARIANT;

// The storage shared by all members of a VARIANT's value union.
void* ValueAddress(VARIANT* v) noexcept { return &V_UI8(v); }

// Whether a direct VT_BYREF of `referenced` type points to storage the method may write as
// `declared`: the same type, or its twin of the other signedness.
bool SameStorage(VARTYPE referenced, VARTYPE declared) noexcept {
    switch (declared) {
        case VT_BSTR: return referenced == VT_BSTR;
        case VT_I2: return referenced == VT_I2 || referenced == VT_UI2;
        case VT_I4: return referenced == VT_I4 || referenced == VT_UI4 || referenced == VT_INT || referenced == VT_UINT;
        default: return referenced == declared;
    }
}

// A VARIANT of `type` holding zero (a null BSTR for VT_BSTR).
void SetZero(VARIANT* v, VARTYPE type) noexcept {
    V_VT(v) = type;
    V_UI8(v) = 0;
}

// Whether `value` is a null BSTR, held directly or by a VT_BYREF|VT_BSTR reference.
bool IsNullText(const VARIANT& value) noexcept {
    if (V_VT(&value) == VT_BSTR) return !V_BSTR(&value);
    if (V_VT(&value) == (VT_BYREF | VT_BSTR)) return V_BSTRREF(&value) && !*V_BSTRREF(&value);
    return false;
}

}  // namespace

HRESULT BoundArgument::ConvertIn(const VARIANT& value) noexcept {
    // A null string of the declared type goes in as it is: the methods tell a missing string
    // from an empty one (a null table of ColOpen fails, a null restriction restricts nothing),
    // and the platform's copy below would turn it into an empty string.
    if (m_spec.type == VT_BSTR && IsNullText(value)) {
        SetZero(m_local.put(), VT_BSTR);
        m_in = m_local.get();
        return S_OK;
    }
    // The value is always copied, also when it has the declared type already: the caller's
    // VARIANT may be cleared by Attach when the same one also serves as an out-argument.
    // VariantCopyInd does not modify its source; its signature is not const-correct.
    Variant plain;
    HRESULT hr = VariantCopyInd(plain.get(), const_cast<VARIANT*>(&value));
    if (SUCCEEDED(hr)) hr = VariantChangeType(m_local.put(), plain.get(), 0, m_spec.type);
    if (FAILED(hr) && hr != E_OUTOFMEMORY && m_spec.handle) {
        // A handle is an unsigned 32-bit number: one above the VT_I4 range (a VT_UI4 from a
        // typed client) is carried in VT_I4 with its bits unchanged.
        hr = VariantChangeType(m_local.put(), plain.get(), 0, VT_UI4);
        if (SUCCEEDED(hr)) V_VT(m_local.get()) = VT_I4;
    }
    if (hr == E_OUTOFMEMORY) return hr;
    if (FAILED(hr)) return DISP_E_TYPEMISMATCH;
    m_in = m_local.get();
    return S_OK;
}

HRESULT BoundArgument::Bind(VARIANT& arg, ParamSpec parameter) noexcept {
    m_spec = parameter;
    VARIANT* const referenced = V_VT(&arg) == kByRefVariant ? V_VARIANTREF(&arg) : nullptr;
    VARIANT* const value = V_VT(&arg) == kByRefVariant ? referenced : &arg;

    switch (parameter.passing) {
        case Passing::In:
            if (!value) return DISP_E_TYPEMISMATCH;
            return ConvertIn(*value);

        case Passing::Variant:
            if (!value) return DISP_E_TYPEMISMATCH;
            m_variant = value;
            return S_OK;

        case Passing::Out:
            if (referenced) {
                m_target = referenced;
                return S_OK;
            }
            if (V_VT(&arg) != kByRefVariant && V_ISBYREF(&arg)) {
                if (!SameStorage(V_VT(&arg) & VT_TYPEMASK, parameter.type)) return DISP_E_TYPEMISMATCH;
                m_reference = V_BYREF(&arg);
            }
            if (!m_reference) {
                SetZero(m_local.put(), parameter.type);
                m_reference = ValueAddress(m_local.get());
            }
            return S_OK;

        case Passing::InOut:
            if (referenced) {
                ZEL_RETURN_IF_FAILED(ConvertIn(*referenced));
                m_target = referenced;
                return S_OK;
            }
            if (V_VT(&arg) != kByRefVariant && V_ISBYREF(&arg)) {
                if (!SameStorage(V_VT(&arg) & VT_TYPEMASK, parameter.type)) return DISP_E_TYPEMISMATCH;
                m_reference = V_BYREF(&arg);
                if (m_reference) return S_OK;
                SetZero(m_local.put(), parameter.type);
            } else if (V_VT(&arg) != kByRefVariant) {
                // Passed by value: the value goes in, the method's value has nowhere to go.
                ZEL_RETURN_IF_FAILED(ConvertIn(arg));
            } else {
                SetZero(m_local.put(), parameter.type);  // a VT_BYREF|VT_VARIANT with a null reference
            }
            m_in = nullptr;
            m_reference = ValueAddress(m_local.get());
            return S_OK;
    }
    return E_UNEXPECTED;
}

void BoundArgument::Attach() noexcept {
    if (!m_target) return;
    // VariantClear fails only for a VARIANT of an invalid type, which is overwritten anyway.
    VariantClear(m_target);
    if (m_spec.passing == Passing::InOut) {
        m_local.detach(m_target);  // the converted incoming value, a plain VT_I4
        m_in = nullptr;
    } else {
        SetZero(m_target, m_spec.type);
    }
    m_reference = ValueAddress(m_target);
}

const VARIANT& BoundArgument::InValue(ParamSpec expected) const {
    if (m_spec != expected || !m_in) ThrowHr(E_UNEXPECTED);
    return *m_in;
}

void* BoundArgument::Reference(ParamSpec expected) const {
    if (m_spec != expected || !m_reference) ThrowHr(E_UNEXPECTED);
    return m_reference;
}

BSTR BoundArgument::Text() const { return V_BSTR(&InValue(kText)); }
VARIANT_BOOL BoundArgument::Flag() const { return V_BOOL(&InValue(kFlag)); }
LONG BoundArgument::Long() const { return V_I4(&InValue(kLong)); }
ULONG BoundArgument::Handle() const { return static_cast<ULONG>(V_I4(&InValue(kHandle))); }
UINT64 BoundArgument::ColumnPosition() const { return V_UI8(&InValue(kColumnPosition)); }

VARIANT* BoundArgument::VariantRef() const {
    if (m_spec != kVariantIn || !m_variant) ThrowHr(E_UNEXPECTED);
    return m_variant;
}

VARIANT BoundArgument::VariantValue() const { return *VariantRef(); }

ULONG* BoundArgument::HandleInOut() const { return static_cast<ULONG*>(Reference(kHandleInOut)); }
BSTR* BoundArgument::TextOut() const { return static_cast<BSTR*>(Reference(kTextOut)); }
short* BoundArgument::ShortOut() const { return static_cast<short*>(Reference(kShortOut)); }
LONG* BoundArgument::LongOut() const { return static_cast<LONG*>(Reference(kLongOut)); }

MethodResult::MethodResult(VARTYPE type) noexcept : m_type(type) {
    if (type != VT_EMPTY && type != VT_VARIANT) SetZero(m_value.get(), type);
}

void* MethodResult::Address(VARTYPE expected) {
    if (m_type != expected) ThrowHr(E_UNEXPECTED);
    return ValueAddress(m_value.get());
}

VARIANT_BOOL* MethodResult::Bool() { return static_cast<VARIANT_BOOL*>(Address(VT_BOOL)); }
short* MethodResult::Short() { return static_cast<short*>(Address(VT_I2)); }
LONG* MethodResult::Long() { return static_cast<LONG*>(Address(VT_I4)); }
ULONG* MethodResult::ULong() { return static_cast<ULONG*>(Address(VT_I4)); }
UINT64* MethodResult::UInt64() { return static_cast<UINT64*>(Address(VT_UI8)); }
INT64* MethodResult::Int64() { return static_cast<INT64*>(Address(VT_I8)); }
BSTR* MethodResult::Text() { return static_cast<BSTR*>(Address(VT_BSTR)); }

VARIANT* MethodResult::Variant() {
    if (m_type != VT_VARIANT) ThrowHr(E_UNEXPECTED);
    return m_value.get();
}

void MethodResult::Deliver(VARIANT* result) noexcept {
    if (result && m_type != VT_EMPTY) m_value.detach(result);
}

}  // namespace zel::dispatch
