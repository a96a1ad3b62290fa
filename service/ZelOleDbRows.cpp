#include "service/ZelOleDbRows.h"

#include "common/ComPtr.h"
#include "automation/Dispatch.h"
#include "automation/TypeLibrary.h"
#include "service/ZelOleDbImpl.h"

namespace zel {

STDMETHODIMP ZelOleDbRows::QueryInterface(REFIID riid, void** ppv) {
    return m_owner.ControllingUnknown()->QueryInterface(riid, ppv);
}

STDMETHODIMP_(ULONG) ZelOleDbRows::AddRef() { return m_owner.ControllingUnknown()->AddRef(); }

STDMETHODIMP_(ULONG) ZelOleDbRows::Release() { return m_owner.ControllingUnknown()->Release(); }

STDMETHODIMP ZelOleDbRows::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    ComPtr<ITypeInfo> info;
    *count = SUCCEEDED(GetZelTypeInfo(IID_IZelOleDbRows, info.put())) ? 1 : 0;
    return S_OK;
}

STDMETHODIMP ZelOleDbRows::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
    if (index != 0) return DISP_E_BADINDEX;
    if (!info) return E_POINTER;
    return GetZelTypeInfo(IID_IZelOleDbRows, info);
}

STDMETHODIMP ZelOleDbRows::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    return ZelOleDbRowsGetIDsOfNames(names, count, ids);
}

STDMETHODIMP ZelOleDbRows::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                  EXCEPINFO* excepInfo, UINT* argErr) {
    return ZelOleDbRowsInvoke(this, member, params, result, excepInfo, argErr);
}

}  // namespace zel
