// Late-bound dispatch of IZelOleDbHelper. Its one method, GetDbConnectionInfo, also accepts
// named arguments: the parameter names map to their positions.
#include <array>

#include "automation/Dispatch.h"
#include "automation/DispatchArguments.h"
#include "automation/DispatchSupport.h"
#include "common/ComError.h"

namespace zel {
namespace {

using namespace dispatch;

constexpr DISPID kGetDbConnectionInfo = 1;
constexpr UINT kParamCount = 5;
// The argument buffer holds six VARIANTs; Invoke refuses more arguments than that.
constexpr UINT kMaxArgs = 6;

// Parameter positions of GetDbConnectionInfo (the return value not counted).
enum Position : UINT { kConnStr = 0, kConnFlags = 1, kFormatType = 2, kUsername = 3, kPassword = 4 };

constexpr NameEntry kNames[] = {
    {L"connStr", kConnStr},   {L"connFlags", kConnFlags}, {L"formatType", kFormatType},
    {L"username", kUsername}, {L"password", kPassword},   {L"result", 5},
    {L"GetDbConnectionInfo", kGetDbConnectionInfo},
};

constexpr std::array<ParamSpec, kParamCount> kParams = {
    kTextOut,    // connStr
    kLongOut,    // connFlags
    kLong,       // formatType, a ZelOleDbFormatType
    kVariantIn,  // username
    kVariantIn,  // password
};

// Which rgvarg index serves each parameter position. Named arguments (rgvarg[0 ..
// cNamedArgs-1], their positions in rgdispidNamedArgs) take their positions first; a
// leading DISPID_PROPERTYPUT names no position and its argument counts as positional.
// Positional arguments then fill the free positions in order, taken from the end of rgvarg.
// A named position out of range, or named twice, gives DISP_E_PARAMNOTFOUND with *argErr
// the index of that named argument.
HRESULT MapArguments(const DISPPARAMS& params, std::array<UINT, kMaxArgs>& indexOf, UINT* argErr) {
    constexpr UINT kUnset = ~0u;
    indexOf.fill(kUnset);
    std::array<bool, kMaxArgs> named{};
    const UINT first = params.cNamedArgs > 0 && params.rgdispidNamedArgs[0] == DISPID_PROPERTYPUT ? 1 : 0;
    for (UINT i = first; i < params.cNamedArgs; ++i) {
        const DISPID position = params.rgdispidNamedArgs[i];
        if (position < 0 || static_cast<UINT>(position) >= params.cArgs || indexOf[position] != kUnset) {
            if (argErr) *argErr = i;
            return DISP_E_PARAMNOTFOUND;
        }
        indexOf[position] = i;
        named[i] = true;
    }
    UINT next = params.cArgs;  // positional arguments, from the end of rgvarg down
    for (UINT position = 0; position < params.cArgs; ++position) {
        if (indexOf[position] != kUnset) continue;
        do {
            --next;
        } while (named[next]);
        indexOf[position] = next;
    }
    return S_OK;
}

}  // namespace

HRESULT ZelOleDbHelperGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept {
    return LookUpNames(kNames, names, count, ids);
}

HRESULT ZelOleDbHelperInvoke(IZelOleDbHelper* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                             EXCEPINFO* excepInfo, UINT* argErr) noexcept {
    try {
        if (!params) return DISP_E_BADVARTYPE;
        if (params->cArgs > kMaxArgs || params->cNamedArgs > params->cArgs) return DISP_E_BADPARAMCOUNT;
        if (params->cArgs != 0 && !params->rgvarg) return E_INVALIDARG;
        if (params->cNamedArgs != 0 && !params->rgdispidNamedArgs) return E_INVALIDARG;
        std::array<UINT, kMaxArgs> indexOf;
        ZEL_RETURN_IF_FAILED(MapArguments(*params, indexOf, argErr));
        if (result) VariantInit(result);
        if (!target) return E_POINTER;
        if (member != kGetDbConnectionInfo) return DISP_E_MEMBERNOTFOUND;
        if (params->cArgs != kParamCount) return DISP_E_BADPARAMCOUNT;

        std::array<BoundArgument, kParamCount> args;
        for (UINT position = 0; position < kParamCount; ++position) {
            const HRESULT hr = args[position].Bind(params->rgvarg[indexOf[position]], kParams[position]);
            if (FAILED(hr)) {
                // formatType's failure is reported at its position, the others' at their rgvarg index.
                if (argErr) *argErr = position == kFormatType ? static_cast<UINT>(kFormatType) : indexOf[position];
                return hr;
            }
        }
        for (BoundArgument& arg : args) arg.Attach();

        MethodResult returned(VT_BOOL);
        ForgetThreadErrorInfo();
        const HRESULT hr = target->GetDbConnectionInfo(
            args[kConnStr].TextOut(), args[kConnFlags].LongOut(),
            static_cast<ZelOleDbFormatType>(args[kFormatType].Long()), args[kUsername].VariantValue(),
            args[kPassword].VariantValue(), returned.Bool());
        returned.Deliver(result);
        if (FAILED(hr)) DescribeFailure(excepInfo, hr);
        return hr;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
