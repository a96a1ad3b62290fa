#include "automation/DispatchSupport.h"

#include <cstring>

#include "common/Bstr.h"
#include "common/ComPtr.h"

namespace zel::dispatch {
namespace {

bool SameNameIgnoringCase(const wchar_t* a, const wchar_t* b) noexcept {
    // Ordinal comparison: method names are ASCII, and the user's locale must not matter.
    return CompareStringOrdinal(a, -1, b, -1, TRUE) == CSTR_EQUAL;
}

}  // namespace

HRESULT LookUpNames(std::span<const NameEntry> table, LPOLESTR* names, UINT count, DISPID* ids) noexcept {
    if (count == 0) return S_OK;
    if (!names || !ids) return E_POINTER;
    for (UINT i = 0; i < count; ++i) {
        const NameEntry* found = nullptr;
        if (names[i]) {
            for (const NameEntry& entry : table) {
                if (SameNameIgnoringCase(names[i], entry.name)) {
                    found = &entry;
                    break;
                }
            }
        }
        if (!found) return DISP_E_UNKNOWNNAME;
        ids[i] = found->id;
    }
    return S_OK;
}

void ForgetThreadErrorInfo() noexcept { SetErrorInfo(0, nullptr); }

void DescribeFailure(EXCEPINFO* excepInfo, HRESULT hr) noexcept {
    if (!excepInfo) return;
    std::memset(excepInfo, 0, sizeof *excepInfo);
    excepInfo->wCode = 0;
    excepInfo->scode = hr;

    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.put()) != S_OK || !info) return;
    // The strings go to the caller, who frees them with the EXCEPINFO. A getter that fails
    // leaves its field empty.
    Bstr source, description, helpFile;
    if (SUCCEEDED(info->GetSource(source.put()))) excepInfo->bstrSource = source.release();
    if (SUCCEEDED(info->GetDescription(description.put()))) excepInfo->bstrDescription = description.release();
    if (SUCCEEDED(info->GetHelpFile(helpFile.put()))) excepInfo->bstrHelpFile = helpFile.release();
    DWORD helpContext = 0;
    if (SUCCEEDED(info->GetHelpContext(&helpContext))) excepInfo->dwHelpContext = helpContext;
    // GetErrorInfo took the information off the thread; it goes back for the caller.
    SetErrorInfo(0, info.get());
}

HRESULT CheckPositionalCall(const DISPPARAMS* params, UINT maxArgs, VARIANT* result, const void* target) noexcept {
    if (!params) return DISP_E_BADVARTYPE;
    if (params->cArgs > maxArgs) return DISP_E_BADPARAMCOUNT;
    // The only named argument accepted is the one that marks a property put's value.
    if (params->cNamedArgs != 0) {
        if (params->cNamedArgs != 1 || !params->rgdispidNamedArgs || params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
            return DISP_E_NONAMEDARGS;
    }
    if (result) VariantInit(result);
    if (params->cArgs != 0 && !params->rgvarg) return E_INVALIDARG;
    if (!target) return E_POINTER;
    return S_OK;
}

}  // namespace zel::dispatch
