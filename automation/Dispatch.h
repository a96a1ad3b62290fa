// Hand-written late-bound dispatch of IZelOleDb, IZelOleDbHelper and IZelOleDbRows. The objects'
// IDispatch methods forward here; the tables of names and dispatch ids and the unpacking
// rules are the late-bound contract with script and host clients.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include "ZelPmDb32.h"

namespace zel {

// Maps method names (case-insensitive) to dispatch ids. Each name is searched from the
// first table entry; the first unknown name ends the call with DISP_E_UNKNOWNNAME, the ids
// of the names before it having been written. cNames of 0 gives S_OK.
HRESULT ZelOleDbGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept;
HRESULT ZelOleDbHelperGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept;
HRESULT ZelOleDbRowsGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept;

// IDispatch::Invoke for IZelOleDb: unpacks `params` in declaration order, converts
// in-arguments, calls the method through `target`'s vtable and returns its HRESULT, or the
// dispatcher's own DISP_E_* code. `result`, `excepInfo` and `argErr` may be null.
HRESULT ZelOleDbInvoke(IZelOleDb* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                       EXCEPINFO* excepInfo, UINT* argErr) noexcept;

// IDispatch::Invoke for IZelOleDbHelper (one method, named arguments allowed).
HRESULT ZelOleDbHelperInvoke(IZelOleDbHelper* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                             EXCEPINFO* excepInfo, UINT* argErr) noexcept;

// IDispatch::Invoke for IZelOleDbRows: the same rules as for IZelOleDb (positional
// arguments only, in-arguments converted, DISP_E_* codes), over its three methods.
HRESULT ZelOleDbRowsInvoke(IZelOleDbRows* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                           EXCEPINFO* excepInfo, UINT* argErr) noexcept;

}  // namespace zel
