// Pieces of IDispatch shared by the hand-written dispatchers: name lookup in a fixed table
// and the EXCEPINFO of a failed method.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <span>

namespace zel::dispatch {

struct NameEntry {
    const wchar_t* name;
    DISPID id;
};

// GetIDsOfNames over `table`: each name is compared without regard to case with the entries
// from the first on, and the first match gives its id. The first unknown name ends the call
// with DISP_E_UNKNOWNNAME, the ids of the names before it having been written.
HRESULT LookUpNames(std::span<const NameEntry> table, LPOLESTR* names, UINT count, DISPID* ids) noexcept;

// The checks the positional dispatchers (IZelOleDb's and IZelOleDbRows') make before they look
// at the member: DISP_E_BADVARTYPE for no DISPPARAMS, DISP_E_BADPARAMCOUNT above `maxArgs`
// arguments, DISP_E_NONAMEDARGS for any named argument other than a property put's single
// value, E_INVALIDARG for arguments without an array, E_POINTER for no target. `result`, when
// given, is initialised first (before the last two checks). S_OK when the call may go on.
HRESULT CheckPositionalCall(const DISPPARAMS* params, UINT maxArgs, VARIANT* result, const void* target) noexcept;

// Forgets any error information of the thread, so that what a method leaves there is its own.
void ForgetThreadErrorInfo() noexcept;

// Describes a method's failure `hr` in `excepInfo` (when not null): wCode 0, scode `hr`, and
// the source, description, help file and help context of the thread's error information
// when there is some. The error information stays on the thread for the caller.
void DescribeFailure(EXCEPINFO* excepInfo, HRESULT hr) noexcept;

}  // namespace zel::dispatch
