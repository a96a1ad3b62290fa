#include "helper/ZelOleDbHelperImpl.h"

#include <string>

#include "automation/Dispatch.h"
#include "automation/TypeLibrary.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "helper/BuildFormatConnectionInfo.h"

namespace zel {

HRESULT ZelOleDbHelperImpl::QueryExtra(REFIID riid, void** found) noexcept {
    if (riid != IID_IDispatch) return E_NOINTERFACE;
    *found = static_cast<IZelOleDbHelper*>(this);
    return S_OK;
}

STDMETHODIMP ZelOleDbHelperImpl::GetTypeInfoCount(UINT* count) {
    try {
        if (!count) return E_POINTER;
        ComPtr<ITypeInfo> info;
        *count = SUCCEEDED(GetZelTypeInfo(IID_IZelOleDbHelper, info.put())) ? 1 : 0;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbHelperImpl::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
    try {
        if (!info) return E_POINTER;
        *info = nullptr;
        if (index != 0) return DISP_E_BADINDEX;
        return GetZelTypeInfo(IID_IZelOleDbHelper, info);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbHelperImpl::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    try {
        return ZelOleDbHelperGetIDsOfNames(names, count, ids);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbHelperImpl::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                        EXCEPINFO* excepInfo, UINT* argErr) {
    try {
        return ZelOleDbHelperInvoke(this, member, params, result, excepInfo, argErr);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbHelperImpl::GetDbConnectionInfo(BSTR* connStr, LONG* connFlags, ZelOleDbFormatType formatType,
                                                     VARIANT, VARIANT, VARIANT_BOOL* result) {
    try {
        if (!connStr || !connFlags || !result) return E_POINTER;
        // Through automation the template never carries a user name or a password.
        std::wstring text;
        LONG flags = 0;
        const bool known = BuildFormatConnectionInfo(static_cast<LONG>(formatType), nullptr, nullptr, text, flags);
        Bstr answer;
        if (known) answer = Bstr(std::wstring_view(text));
        *connStr = answer.release();
        if (known) *connFlags = flags;
        *result = known ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbHelperImpl::GetClassInfo(ITypeInfo** info) {
    try {
        if (!info) return E_POINTER;
        return GetZelTypeInfo(CLSID_ZelOleDbHelperImpl, info);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
