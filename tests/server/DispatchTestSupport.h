// Building DISPPARAMS for the dispatcher tests: VARIANT makers and an argument list written
// in declaration order, handed to Invoke reversed in rgvarg as a late-bound caller does.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include "common/Variant.h"

namespace zel::test {

static_assert(sizeof(Variant) == sizeof(VARIANT) && std::is_standard_layout_v<Variant>,
              "a vector of Variant is passed as rgvarg");

inline Variant I4(LONG v) { return Variant::FromI4(v); }
inline Variant I2(SHORT v) { return Variant::FromI2(v); }
inline Variant Bool(bool v) { return Variant::FromBool(v); }
inline Variant Str(const wchar_t* text) { return Variant(std::wstring_view(text)); }

inline Variant UI4(ULONG v) {
    Variant x;
    V_VT(x.get()) = VT_UI4;
    V_UI4(x.get()) = v;
    return x;
}
inline Variant UI8(UINT64 v) {
    Variant x;
    V_VT(x.get()) = VT_UI8;
    V_UI8(x.get()) = v;
    return x;
}
inline Variant R8(double v) {
    Variant x;
    V_VT(x.get()) = VT_R8;
    V_R8(x.get()) = v;
    return x;
}
// A by-reference VARIANT of `type` pointing at `target` (not owned).
inline Variant Ref(VARTYPE type, void* target) {
    Variant x;
    V_VT(x.get()) = static_cast<VARTYPE>(VT_BYREF | type);
    V_BYREF(x.get()) = target;
    return x;
}
inline Variant RefVariant(VARIANT* target) { return Ref(VT_VARIANT, target); }
inline Variant RefBstr(BSTR* target) { return Ref(VT_BSTR, target); }

inline std::wstring BstrText(BSTR b) { return b ? std::wstring(b, SysStringLen(b)) : std::wstring(); }

// The arguments of one call, given in declaration order; rgvarg holds them reversed. A
// by-reference VARIANT copies only its pointer, so the test keeps the referenced storage.
class DispArgs {
public:
    DispArgs(std::initializer_list<Variant> declarationOrder) : m_args(declarationOrder) {
        std::reverse(m_args.begin(), m_args.end());
        Refresh();
    }
    DispArgs(const DispArgs&) = delete;
    DispArgs& operator=(const DispArgs&) = delete;

    // Marks the first `count` rgvarg entries as named, with these dispatch ids.
    void Name(std::initializer_list<DISPID> ids) {
        m_named.assign(ids);
        Refresh();
    }
    DISPPARAMS* get() { return &m_params; }
    // The argument at rgvarg index `index`.
    VARIANT& at(UINT index) { return *m_args[index].get(); }
    UINT count() const { return static_cast<UINT>(m_args.size()); }

private:
    void Refresh() {
        m_params.rgvarg = m_args.empty() ? nullptr : reinterpret_cast<VARIANT*>(m_args.data());
        m_params.cArgs = static_cast<UINT>(m_args.size());
        m_params.rgdispidNamedArgs = m_named.empty() ? nullptr : m_named.data();
        m_params.cNamedArgs = static_cast<UINT>(m_named.size());
    }

    std::vector<Variant> m_args;
    std::vector<DISPID> m_named;
    DISPPARAMS m_params{};
};

}  // namespace zel::test
