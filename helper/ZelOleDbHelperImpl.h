// The connection-string helper object: answers, per data-source format, the connection
// string template and connection code to use, and whether the Jet engine and the format's
// ISAM driver are registered. Dual interface: the vtable method does the work, IDispatch
// goes through the hand-written dispatcher of IZelOleDbHelper.
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>

#include "ZelPmDb32.h"
#include "common/ComObject.h"

namespace zel {

class ZelOleDbHelperImpl final : public ComObject<ZelOleDbHelperImpl, IZelOleDbHelper, IProvideClassInfo> {
public:
    // IDispatch is the dual interface's base: it yields IZelOleDbHelper.
    HRESULT QueryExtra(REFIID riid, void** found) noexcept;

    // IDispatch
    // E_POINTER for a null pointer; otherwise S_OK with 1 when the type information of
    // IZelOleDbHelper can be loaded, else 0.
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    // Index 0 only (DISP_E_BADINDEX otherwise); E_POINTER for a null pointer. `*info`
    // receives IZelOleDbHelper's type information with a reference, or null on failure.
    STDMETHODIMP GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID member, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* excepInfo, UINT* argErr) override;

    // IZelOleDbHelper
    // S_OK whenever the question was answered, true or false. `*result` is VARIANT_TRUE
    // when the format is known and registered, else VARIANT_FALSE. `*connStr` is always
    // written on S_OK: a new BSTR the caller frees on a true answer, null on a false one.
    // `*connFlags` receives the format's code on a true answer and is untouched on a false
    // one. `username` and `password` are accepted and ignored. E_POINTER when an out pointer
    // is null; E_OUTOFMEMORY when the string cannot be made (nothing written then).
    STDMETHODIMP GetDbConnectionInfo(BSTR* connStr, LONG* connFlags, ZelOleDbFormatType formatType,
                                     VARIANT username, VARIANT password, VARIANT_BOOL* result) override;

    // IProvideClassInfo: the type information of the ZelOleDbHelperImpl coclass.
    STDMETHODIMP GetClassInfo(ITypeInfo** info) override;

private:
    friend class ComObject<ZelOleDbHelperImpl, IZelOleDbHelper, IProvideClassInfo>;
    ZelOleDbHelperImpl() = default;
    ~ZelOleDbHelperImpl() override = default;
};

}  // namespace zel
