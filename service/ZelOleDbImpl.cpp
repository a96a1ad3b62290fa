#include "service/ZelOleDbImpl.h"

#include "automation/Dispatch.h"
#include "automation/TypeLibrary.h"

namespace zel {

ZelOleDbImpl::~ZelOleDbImpl() {
    if (m_connection) {
        if (m_connection->IsConnected()) m_connection->Close();
        m_connection.reset();
    }
    // Objects still registered are freed with their entries, in the order indexes, columns,
    // tables, commands: no handle outlives its service object, so nothing can reach them.
    m_indexes.clear();
    m_columns.clear();
    m_tables.clear();
    m_commands.clear();
}

HRESULT ZelOleDbImpl::QueryExtra(REFIID riid, void** found) noexcept {
    if (riid == IID_IDispatch)
        *found = static_cast<IZelOleDb*>(this);
    else if (riid == IID_IZelOleDbRows)
        *found = static_cast<IZelOleDbRows*>(&m_rows);
    else
        return E_NOINTERFACE;
    return S_OK;
}

ULONG ZelOleDbImpl::NonDelegatingAddRef() noexcept { return static_cast<ULONG>(++m_refs); }

ULONG ZelOleDbImpl::NonDelegatingRelease() noexcept {
    // The module stays locked until the destructor has finished (ComObject releases its lock
    // last), so the server cannot shut down half-way through the clean-up.
    return ReleaseFinish(--m_refs);
}

STDMETHODIMP ZelOleDbImpl::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    ComPtr<ITypeInfo> info;
    *count = SUCCEEDED(GetZelTypeInfo(IID_IZelOleDb, info.put())) ? 1 : 0;
    return S_OK;
}

STDMETHODIMP ZelOleDbImpl::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
    if (index != 0) return DISP_E_BADINDEX;
    if (!info) return E_POINTER;
    return GetZelTypeInfo(IID_IZelOleDb, info);
}

STDMETHODIMP ZelOleDbImpl::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
    return ZelOleDbGetIDsOfNames(names, count, ids);
}

STDMETHODIMP ZelOleDbImpl::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result,
                                  EXCEPINFO* excepInfo, UINT* argErr) {
    return ZelOleDbInvoke(this, member, params, result, excepInfo, argErr);
}

STDMETHODIMP ZelOleDbImpl::GetClassInfo(ITypeInfo** info) {
    if (!info) return E_POINTER;
    return GetZelTypeInfo(CLSID_ZelOleDbImpl, info);
}

}  // namespace zel
