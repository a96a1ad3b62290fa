#include "tests/reliability/InterfaceMethods.h"

#include <oleauto.h>

#include "ZelPmDb32.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"

namespace zel::test {
namespace {

constexpr UINT64 kScalarMarker = 0x5A5A5A5A5A5A5A5Aull;
constexpr LONG kVariantMarker = 0x5A5A;

}  // namespace

bool DeclaredMethod::TakesHandle() const {
    return !params.empty() && params[0].name == L"client" && params[0].type == VT_UI4 && params[0].In() &&
           !params[0].Out();
}

UINT DeclaredMethod::ArgumentCount() const {
    UINT count = 0;
    for (const DeclaredParameter& p : params)
        if (!p.Retval()) ++count;
    return count;
}

std::vector<DeclaredMethod> LoadZelOleDbMethods(const std::wstring& path) {
    std::vector<DeclaredMethod> methods;
    ComPtr<ITypeLib> lib;
    if (FAILED(LoadTypeLibEx(path.c_str(), REGKIND_NONE, lib.put()))) return methods;
    ComPtr<ITypeInfo> dual, info;
    if (FAILED(lib->GetTypeInfoOfGuid(IID_IZelOleDb, dual.put()))) return methods;
    HREFTYPE ref = 0;
    // The vtable view of the dual interface.
    if (FAILED(dual->GetRefTypeOfImplType(-1, &ref)) || FAILED(dual->GetRefTypeInfo(ref, info.put()))) return methods;
    TYPEATTR* attr = nullptr;
    if (FAILED(info->GetTypeAttr(&attr))) return methods;
    const WORD count = attr->cFuncs;
    info->ReleaseTypeAttr(attr);
    for (UINT i = 0; i < count; ++i) {
        FUNCDESC* func = nullptr;
        if (FAILED(info->GetFuncDesc(i, &func))) continue;
        DeclaredMethod method;
        method.dispid = func->memid;
        method.vtableOffset = func->oVft;
        BSTR names[16] = {};
        UINT named = 0;
        info->GetNames(func->memid, names, 16, &named);
        method.name = names[0] ? names[0] : L"";
        for (SHORT p = 0; p < func->cParams; ++p) {
            const ELEMDESC& e = func->lprgelemdescParam[p];
            DeclaredParameter param;
            param.name = static_cast<UINT>(p + 1) < named && names[p + 1] ? names[p + 1] : L"";
            param.flags = e.paramdesc.wParamFlags;
            param.type = e.tdesc.vt;
            param.pointee = e.tdesc.vt == VT_PTR ? e.tdesc.lptdesc->vt : VARTYPE{VT_EMPTY};
            method.params.push_back(param);
        }
        for (UINT n = 0; n < named; ++n) SysFreeString(names[n]);
        info->ReleaseFuncDesc(func);
        methods.push_back(std::move(method));
    }
    return methods;
}

VtableCall::VtableCall(const DeclaredMethod& method, ULONG handle) : m_method(method), m_handle(handle) {
    m_marker = SysAllocString(L"marker");
    m_inText = SysAllocString(L"x");
    VariantInit(&m_column);
    V_VT(&m_column) = VT_UI4;
    V_UI4(&m_column) = 1;
    for (Slot& slot : m_slots) {
        slot.scalar = kScalarMarker;
        slot.text = m_marker;
        VariantInit(&slot.variant);
        V_VT(&slot.variant) = VT_I4;
        V_I4(&slot.variant) = kVariantMarker;
    }
    for (size_t i = 0; i < method.params.size() && i < kMax; ++i) {
        const DeclaredParameter& p = method.params[i];
        VARIANTARG& arg = m_args[i];
        VariantInit(&arg);
        m_argPointers[i] = &arg;
        if (p.type != VT_PTR) {
            switch (p.type) {
                case VT_UI4: V_UI4(&arg) = handle; break;
                case VT_UI8: V_UI8(&arg) = 1; break;
                case VT_BSTR: V_BSTR(&arg) = m_inText; break;
                case VT_BOOL: V_BOOL(&arg) = VARIANT_TRUE; break;
                case VT_I4: V_I4(&arg) = 3; break;
                default: break;
            }
            V_VT(&arg) = p.type;
            m_types[i] = p.type;
            continue;
        }
        // A reference: DispCallFunc passes V_BYREF as it is.
        void* target = nullptr;
        if (p.In() && p.pointee == VT_VARIANT) {
            target = &m_column;
        } else if (p.In() && p.Out()) {
            target = &m_handle;
        } else if (p.pointee == VT_BSTR) {
            target = &m_slots[i].text;
        } else if (p.pointee == VT_VARIANT) {
            target = &m_slots[i].variant;
        } else {
            target = &m_slots[i].scalar;
        }
        V_VT(&arg) = static_cast<VARTYPE>(VT_BYREF | p.pointee);
        V_BYREF(&arg) = target;
        m_types[i] = V_VT(&arg);
    }
}

VtableCall::~VtableCall() {
    for (Slot& slot : m_slots) {
        if (slot.text != m_marker) SysFreeString(slot.text);
        VariantClear(&slot.variant);
    }
    for (BSTR text : m_texts) SysFreeString(text);
    SysFreeString(m_marker);
    SysFreeString(m_inText);
    VariantClear(&m_column);
}

void VtableCall::PassNull(size_t index) {
    if (index < m_method.params.size() && index < kMax && m_method.params[index].type == VT_PTR)
        V_BYREF(&m_args[index]) = nullptr;
}

void VtableCall::PassText(size_t index, const std::wstring& text) {
    if (index >= m_method.params.size() || index >= kMax || m_method.params[index].type != VT_BSTR) return;
    SysFreeString(m_texts[index]);
    m_texts[index] = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    V_BSTR(&m_args[index]) = m_texts[index];
}

HRESULT VtableCall::Invoke(IUnknown* object) {
    VARIANT result;
    VariantInit(&result);
    const UINT count = static_cast<UINT>(m_method.params.size() < kMax ? m_method.params.size() : kMax);
    HRESULT hr = DispCallFunc(object, m_method.vtableOffset, CC_STDCALL, VT_ERROR, count, m_types.data(),
                              m_argPointers.data(), &result);
    if (FAILED(hr)) return hr;
    return V_ERROR(&result);
}

bool VtableCall::Written(size_t index) const {
    if (index >= m_method.params.size() || index >= kMax) return false;
    const DeclaredParameter& p = m_method.params[index];
    const Slot& slot = m_slots[index];
    if (p.pointee == VT_BSTR) return slot.text != m_marker;
    if (p.pointee == VT_VARIANT) return V_VT(&slot.variant) != VT_I4 || V_I4(&slot.variant) != kVariantMarker;
    // Only the parameter's own bytes count: a short writes two of the eight.
    const size_t size = p.pointee == VT_I2 || p.pointee == VT_BOOL ? 2 : p.pointee == VT_UI8 || p.pointee == VT_I8 ? 8 : 4;
    UINT64 mask = size == 8 ? ~0ull : ((1ull << (size * 8)) - 1);
    return (slot.scalar & mask) != (kScalarMarker & mask);
}

}  // namespace zel::test
