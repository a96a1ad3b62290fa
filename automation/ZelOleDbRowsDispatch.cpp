// Late-bound dispatch of IZelOleDbRows: its three methods with dispatch ids 1 to 3, under the
// rules of IZelOleDb's dispatcher (positional arguments in declaration order, in-arguments
// converted with VariantChangeType, out-arguments by reference, the return value in the
// result VARIANT, a failing method's HRESULT returned with EXCEPINFO filled).
#include <array>

#include "common/ComError.h"
#include "automation/Dispatch.h"
#include "automation/DispatchArguments.h"
#include "automation/DispatchSupport.h"

namespace zel {
namespace {

using namespace dispatch;

constexpr DISPID kRowsExecute = 1;
constexpr DISPID kRowsFetch = 2;
constexpr DISPID kRowsGetColumns = 3;
constexpr UINT kMaxParams = 5;  // RowsExecute

constexpr NameEntry kNames[] = {
    {L"RowsExecute", kRowsExecute},
    {L"RowsFetch", kRowsFetch},
    {L"RowsGetColumns", kRowsGetColumns},
};

struct RowsMethod {
    std::array<ParamSpec, kMaxParams> params;
    UINT paramCount;
};

// Parameters of each method by dispatch id (index 0 unused); each returns a VARIANT.
constexpr RowsMethod kMethods[] = {
    {{}, 0},
    {{kHandle, kLong, kShortOut, kTextOut, kTextOut}, 5},
    {{kHandle, kLong}, 2},
    {{kHandle}, 1},
};

}  // namespace

HRESULT ZelOleDbRowsGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept {
    return LookUpNames(kNames, names, count, ids);
}

HRESULT ZelOleDbRowsInvoke(IZelOleDbRows* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                           EXCEPINFO* excepInfo, UINT* argErr) noexcept {
    try {
        if (const HRESULT checked = CheckPositionalCall(params, kMaxParams, result, target); checked != S_OK)
            return checked;
        if (member < kRowsExecute || member > kRowsGetColumns) return DISP_E_MEMBERNOTFOUND;
        const RowsMethod& method = kMethods[member];
        if (params->cArgs != method.paramCount) return DISP_E_BADPARAMCOUNT;

        // Parameter i is rgvarg[cArgs - 1 - i]; all are bound before any is attached.
        std::array<BoundArgument, kMaxParams> a;
        for (UINT i = 0; i < method.paramCount; ++i) {
            const UINT index = params->cArgs - 1 - i;
            const HRESULT hr = a[i].Bind(params->rgvarg[index], method.params[i]);
            if (FAILED(hr)) {
                if (argErr) *argErr = index;
                return hr;
            }
        }
        for (UINT i = 0; i < method.paramCount; ++i) a[i].Attach();

        MethodResult returned(VT_VARIANT);
        ForgetThreadErrorInfo();
        HRESULT hr = E_UNEXPECTED;
        switch (member) {
            case kRowsExecute:
                hr = target->RowsExecute(a[0].Handle(), a[1].Long(), a[2].ShortOut(), a[3].TextOut(), a[4].TextOut(),
                                         returned.Variant());
                break;
            case kRowsFetch: hr = target->RowsFetch(a[0].Handle(), a[1].Long(), returned.Variant()); break;
            case kRowsGetColumns: hr = target->RowsGetColumns(a[0].Handle(), returned.Variant()); break;
        }
        returned.Deliver(result);
        if (FAILED(hr)) DescribeFailure(excepInfo, hr);
        return hr;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
