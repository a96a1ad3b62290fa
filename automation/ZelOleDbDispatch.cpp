// Late-bound dispatch of IZelOleDb: the name table, and Invoke driven by one descriptor per
// method (its parameter kinds, its return type and a thunk that calls it through the vtable).
#include <array>
#include <initializer_list>

#include "automation/Dispatch.h"
#include "automation/DispatchArguments.h"
#include "automation/DispatchSupport.h"
#include "common/ComError.h"

namespace zel {
namespace {

using namespace dispatch;  // BoundArgument, MethodResult and the parameter kinds kHandle, kText, ...

// The most parameters a method has (ColOpen); Invoke refuses more arguments than this.
constexpr UINT kMaxParams = 8;
constexpr DISPID kFirstId = 1;
constexpr DISPID kLastId = 86;

// Calls one method with the unpacked arguments `a` and the return-value storage `r`.
using Thunk = HRESULT (*)(IZelOleDb& target, BoundArgument* a, MethodResult& r);

struct MethodDescriptor {
    const wchar_t* name;
    DISPID id;
    std::array<ParamSpec, kMaxParams> params{};
    UINT paramCount = 0;
    VARTYPE resultType;  // VT_EMPTY when the method has no return value
    Thunk call;

    constexpr MethodDescriptor(const wchar_t* name, DISPID id, std::initializer_list<ParamSpec> params,
                               VARTYPE resultType, Thunk call)
        : name(name), id(id), resultType(resultType), call(call) {
        for (ParamSpec p : params) this->params[paramCount++] = p;
    }
};

// `ZEL_THUNK(Method(args))`: a thunk calling `Method` on the target.
#define ZEL_THUNK(invocation)                                                                   \
    []([[maybe_unused]] IZelOleDb& o, [[maybe_unused]] BoundArgument* a,                       \
       [[maybe_unused]] MethodResult& r) -> HRESULT { return o.invocation; }

// Every method in vtable order, which is also the order in which names are looked up. The
// dispatch ids of CmdFieldAsVariant (86) and TblDelete, TblCreate, TblGetDef (83 to 85) do
// not follow their places: late-bound clients depend on them.
// clang-format off
constexpr MethodDescriptor kMethods[] = {
    {L"ConOpenFromInitializationString", 1, {kText, kFlag, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(ConOpenFromInitializationString(a[0].Text(), a[1].Flag(), a[2].TextOut(), a[3].TextOut()))},
    {L"ConClose", 2, {}, VT_EMPTY,
     ZEL_THUNK(ConClose())},
    {L"ConCreateMdbFile", 3, {kText, kText, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(ConCreateMdbFile(a[0].Text(), a[1].Text(), a[2].TextOut(), a[3].TextOut()))},
    {L"ConGetDatasource", 4, {kTextOut}, VT_EMPTY,
     ZEL_THUNK(ConGetDatasource(a[0].TextOut()))},
    {L"ConIsConnected", 5, {}, VT_BOOL,
     ZEL_THUNK(ConIsConnected(r.Bool()))},
    {L"ConIsReadOnly", 6, {}, VT_BOOL,
     ZEL_THUNK(ConIsReadOnly(r.Bool()))},
    {L"ConGetCurrentCatalog", 7, {kTextOut}, VT_EMPTY,
     ZEL_THUNK(ConGetCurrentCatalog(a[0].TextOut()))},
    {L"ConStartTransaction", 8, {}, VT_BOOL,
     ZEL_THUNK(ConStartTransaction(r.Bool()))},
    {L"ConCommit", 9, {}, VT_BOOL,
     ZEL_THUNK(ConCommit(r.Bool()))},
    {L"ConRollback", 10, {}, VT_BOOL,
     ZEL_THUNK(ConRollback(r.Bool()))},
    {L"ConCompactMdb", 11, {}, VT_EMPTY,
     ZEL_THUNK(ConCompactMdb())},
    {L"CmdSetConnection", 12, {kHandleInOut}, VT_EMPTY,
     ZEL_THUNK(CmdSetConnection(a[0].HandleInOut()))},
    {L"CmdExecute", 13, {kHandle, kShortOut, kTextOut, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(CmdExecute(a[0].Handle(), a[1].ShortOut(), a[2].TextOut(), a[3].TextOut(), a[4].TextOut()))},
    {L"CmdSetCommandText", 14, {kHandle, kText}, VT_EMPTY,
     ZEL_THUNK(CmdSetCommandText(a[0].Handle(), a[1].Text()))},
    {L"CmdGetColumnCount", 15, {kHandle}, VT_UI8,
     ZEL_THUNK(CmdGetColumnCount(a[0].Handle(), r.UInt64()))},
    {L"CmdGetRowsAffected", 16, {kHandle}, VT_I8,
     ZEL_THUNK(CmdGetRowsAffected(a[0].Handle(), r.Int64()))},
    {L"CmdFetchNext", 17, {kHandle}, VT_I2,
     ZEL_THUNK(CmdFetchNext(a[0].Handle(), r.Short()))},
    {L"CmdFetchPrev", 18, {kHandle}, VT_I2,
     ZEL_THUNK(CmdFetchPrev(a[0].Handle(), r.Short()))},
    {L"CmdFetchFirst", 19, {kHandle}, VT_I2,
     ZEL_THUNK(CmdFetchFirst(a[0].Handle(), r.Short()))},
    {L"CmdFetchLast", 20, {kHandle}, VT_I2,
     ZEL_THUNK(CmdFetchLast(a[0].Handle(), r.Short()))},
    {L"CmdFieldAsStringEx", 21, {kHandle, kColumnPosition}, VT_BSTR,
     ZEL_THUNK(CmdFieldAsStringEx(a[0].Handle(), a[1].ColumnPosition(), r.Text()))},
    {L"CmdFieldAsString", 22, {kHandle, kColumnPosition}, VT_BSTR,
     ZEL_THUNK(CmdFieldAsString(a[0].Handle(), a[1].ColumnPosition(), r.Text()))},
    {L"CmdFieldAsLong", 23, {kHandle, kColumnPosition}, VT_I4,
     ZEL_THUNK(CmdFieldAsLong(a[0].Handle(), a[1].ColumnPosition(), r.Long()))},
    {L"CmdIsBlob", 24, {kHandle, kColumnPosition}, VT_I2,
     ZEL_THUNK(CmdIsBlob(a[0].Handle(), a[1].ColumnPosition(), r.Short()))},
    {L"CmdIsNull", 25, {kHandle, kColumnPosition}, VT_I2,
     ZEL_THUNK(CmdIsNull(a[0].Handle(), a[1].ColumnPosition(), r.Short()))},
    {L"CmdGetRawType", 26, {kHandle, kColumnPosition}, VT_I4,
     ZEL_THUNK(CmdGetRawType(a[0].Handle(), a[1].ColumnPosition(), r.ULong()))},
    {L"CmdIsIntegral", 27, {kHandle, kColumnPosition}, VT_I2,
     ZEL_THUNK(CmdIsIntegral(a[0].Handle(), a[1].ColumnPosition(), r.Short()))},
    {L"CmdIsNumeric", 28, {kHandle, kColumnPosition}, VT_I2,
     ZEL_THUNK(CmdIsNumeric(a[0].Handle(), a[1].ColumnPosition(), r.Short()))},
    {L"CmdGetColumnName", 29, {kHandle, kColumnPosition}, VT_BSTR,
     ZEL_THUNK(CmdGetColumnName(a[0].Handle(), a[1].ColumnPosition(), r.Text()))},
    {L"CmdGetColumnIndex", 30, {kHandle, kText}, VT_UI8,
     ZEL_THUNK(CmdGetColumnIndex(a[0].Handle(), a[1].Text(), r.UInt64()))},
    {L"CmdGetColumnSize", 31, {kHandle, kColumnPosition}, VT_UI8,
     ZEL_THUNK(CmdGetColumnSize(a[0].Handle(), a[1].ColumnPosition(), r.UInt64()))},
    {L"CmdHasResults", 32, {kHandle}, VT_BOOL,
     ZEL_THUNK(CmdHasResults(a[0].Handle(), r.Bool()))},
    {L"CmdGetBlobData", 33, {kHandle, kColumnPosition}, VT_VARIANT,
     ZEL_THUNK(CmdGetBlobData(a[0].Handle(), a[1].ColumnPosition(), r.Variant()))},
    {L"CmdClose", 34, {kHandle}, VT_EMPTY,
     ZEL_THUNK(CmdClose(a[0].Handle()))},
    {L"CmdDestroy", 35, {kHandle}, VT_EMPTY,
     ZEL_THUNK(CmdDestroy(a[0].Handle()))},
    {L"CmdFieldAsVariant", 86, {kHandle, kVariantIn}, VT_VARIANT,
     ZEL_THUNK(CmdFieldAsVariant(a[0].Handle(), a[1].VariantRef(), r.Variant()))},
    {L"TblOpen", 36, {kHandleInOut, kText, kText, kText, kText, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(TblOpen(a[0].HandleInOut(), a[1].Text(), a[2].Text(), a[3].Text(), a[4].Text(),
                       a[5].TextOut(), a[6].TextOut()))},
    {L"TblDestroy", 37, {kHandle}, VT_EMPTY,
     ZEL_THUNK(TblDestroy(a[0].Handle()))},
    {L"TblFetchNext", 38, {kHandle}, VT_BOOL,
     ZEL_THUNK(TblFetchNext(a[0].Handle(), r.Bool()))},
    {L"TblClose", 39, {kHandle}, VT_EMPTY,
     ZEL_THUNK(TblClose(a[0].Handle()))},
    {L"TblGetName", 40, {kHandle}, VT_BSTR,
     ZEL_THUNK(TblGetName(a[0].Handle(), r.Text()))},
    {L"TblGetCatalog", 41, {kHandle}, VT_BSTR,
     ZEL_THUNK(TblGetCatalog(a[0].Handle(), r.Text()))},
    {L"TblGetSchema", 42, {kHandle}, VT_BSTR,
     ZEL_THUNK(TblGetSchema(a[0].Handle(), r.Text()))},
    {L"TblGetDescription", 43, {kHandle}, VT_BSTR,
     ZEL_THUNK(TblGetDescription(a[0].Handle(), r.Text()))},
    {L"TblGetType", 44, {kHandle}, VT_BSTR,
     ZEL_THUNK(TblGetType(a[0].Handle(), r.Text()))},
    {L"TblGetTableList", 45, {kHandle}, VT_VARIANT,
     ZEL_THUNK(TblGetTableList(a[0].Handle(), r.Variant()))},
    {L"TblGetList", 46, {kHandle}, VT_VARIANT,
     ZEL_THUNK(TblGetList(a[0].Handle(), r.Variant()))},
    {L"TblDelete", 83, {kText}, VT_EMPTY,
     ZEL_THUNK(TblDelete(a[0].Text()))},
    {L"TblCreate", 84, {kText}, VT_EMPTY,
     ZEL_THUNK(TblCreate(a[0].Text()))},
    {L"TblGetDef", 85, {kText}, VT_BSTR,
     ZEL_THUNK(TblGetDef(a[0].Text(), r.Text()))},
    {L"ColOpen", 47, {kHandleInOut, kText, kText, kText, kText, kFlag, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(ColOpen(a[0].HandleInOut(), a[1].Text(), a[2].Text(), a[3].Text(), a[4].Text(), a[5].Flag(),
                       a[6].TextOut(), a[7].TextOut()))},
    {L"ColDestroy", 48, {kHandle}, VT_EMPTY,
     ZEL_THUNK(ColDestroy(a[0].Handle()))},
    {L"ColClose", 49, {kHandle}, VT_EMPTY,
     ZEL_THUNK(ColClose(a[0].Handle()))},
    {L"ColFetchNext", 50, {kHandle}, VT_BOOL,
     ZEL_THUNK(ColFetchNext(a[0].Handle(), r.Bool()))},
    {L"ColGetName", 51, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetName(a[0].Handle(), r.Text()))},
    {L"ColGetCatalog", 52, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetCatalog(a[0].Handle(), r.Text()))},
    {L"ColGetSchema", 53, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetSchema(a[0].Handle(), r.Text()))},
    {L"ColGetTableName", 54, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetTableName(a[0].Handle(), r.Text()))},
    {L"ColOrdinalPosition", 55, {kHandle}, VT_I4,
     ZEL_THUNK(ColOrdinalPosition(a[0].Handle(), r.Long()))},
    {L"ColHasDefault", 56, {kHandle}, VT_BOOL,
     ZEL_THUNK(ColHasDefault(a[0].Handle(), r.Bool()))},
    {L"ColGetDefault", 57, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetDefault(a[0].Handle(), r.Text()))},
    {L"ColFlags", 58, {kHandle}, VT_I4,
     ZEL_THUNK(ColFlags(a[0].Handle(), r.Long()))},
    {L"ColIsNullable", 59, {kHandle}, VT_BOOL,
     ZEL_THUNK(ColIsNullable(a[0].Handle(), r.Bool()))},
    {L"ColDataType", 60, {kHandle}, VT_I4,
     ZEL_THUNK(ColDataType(a[0].Handle(), r.Long()))},
    {L"ColIsDataType", 61, {kHandle, kLong}, VT_BOOL,
     ZEL_THUNK(ColIsDataType(a[0].Handle(), a[1].Long(), r.Bool()))},
    {L"ColMaxLength", 62, {kHandle}, VT_I4,
     ZEL_THUNK(ColMaxLength(a[0].Handle(), r.Long()))},
    {L"ColNumericPrecision", 63, {kHandle}, VT_I4,
     ZEL_THUNK(ColNumericPrecision(a[0].Handle(), r.Long()))},
    {L"ColNumericScale", 64, {kHandle}, VT_I4,
     ZEL_THUNK(ColNumericScale(a[0].Handle(), r.Long()))},
    {L"ColPrecision", 65, {kHandle}, VT_I4,
     ZEL_THUNK(ColPrecision(a[0].Handle(), r.Long()))},
    {L"ColDateTimePrecision", 66, {kHandle}, VT_I4,
     ZEL_THUNK(ColDateTimePrecision(a[0].Handle(), r.Long()))},
    {L"ColGetDescription", 67, {kHandle}, VT_BSTR,
     ZEL_THUNK(ColGetDescription(a[0].Handle(), r.Text()))},
    {L"ColIsIdentity", 68, {kHandle}, VT_BOOL,
     ZEL_THUNK(ColIsIdentity(a[0].Handle(), r.Bool()))},
    {L"ColSeed", 69, {kHandle}, VT_I4,
     ZEL_THUNK(ColSeed(a[0].Handle(), r.Long()))},
    {L"ColIncrement", 70, {kHandle}, VT_I4,
     ZEL_THUNK(ColIncrement(a[0].Handle(), r.Long()))},
    {L"IdxOpen", 71, {kHandleInOut, kText, kText, kText, kText, kTextOut, kTextOut}, VT_EMPTY,
     ZEL_THUNK(IdxOpen(a[0].HandleInOut(), a[1].Text(), a[2].Text(), a[3].Text(), a[4].Text(),
                       a[5].TextOut(), a[6].TextOut()))},
    {L"IdxDestroy", 72, {kHandle}, VT_EMPTY,
     ZEL_THUNK(IdxDestroy(a[0].Handle()))},
    {L"IdxClose", 73, {kHandle}, VT_EMPTY,
     ZEL_THUNK(IdxClose(a[0].Handle()))},
    {L"IdxFetchNext", 74, {kHandle}, VT_BOOL,
     ZEL_THUNK(IdxFetchNext(a[0].Handle(), r.Bool()))},
    {L"IdxGetName", 75, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetName(a[0].Handle(), r.Text()))},
    {L"IdxGetCatalog", 76, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetCatalog(a[0].Handle(), r.Text()))},
    {L"IdxGetSchema", 77, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetSchema(a[0].Handle(), r.Text()))},
    {L"IdxGetTableName", 78, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetTableName(a[0].Handle(), r.Text()))},
    {L"IdxGetTableCatalog", 79, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetTableCatalog(a[0].Handle(), r.Text()))},
    {L"IdxGetTableSchema", 80, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetTableSchema(a[0].Handle(), r.Text()))},
    {L"IdxGetColumnName", 81, {kHandle}, VT_BSTR,
     ZEL_THUNK(IdxGetColumnName(a[0].Handle(), r.Text()))},
    {L"IdxGetIndexList", 82, {kHandle, kFlag}, VT_VARIANT,
     ZEL_THUNK(IdxGetIndexList(a[0].Handle(), a[1].Flag(), r.Variant()))},
};
// clang-format on
#undef ZEL_THUNK

static_assert(std::size(kMethods) == 86, "IZelOleDb has 86 methods");

constexpr std::array<NameEntry, std::size(kMethods)> MakeNameTable() {
    std::array<NameEntry, std::size(kMethods)> names{};
    for (size_t i = 0; i < std::size(kMethods); ++i) names[i] = {kMethods[i].name, kMethods[i].id};
    return names;
}
constexpr auto kNames = MakeNameTable();

// Index into kMethods by dispatch id.
constexpr std::array<unsigned char, kLastId + 1> MakeIndexById() {
    std::array<unsigned char, kLastId + 1> index{};
    for (size_t i = 0; i < std::size(kMethods); ++i) index[kMethods[i].id] = static_cast<unsigned char>(i);
    return index;
}
constexpr auto kIndexById = MakeIndexById();

constexpr bool EveryIdOnce() {
    std::array<bool, kLastId + 1> seen{};
    for (const MethodDescriptor& m : kMethods) {
        if (m.id < kFirstId || m.id > kLastId || seen[m.id]) return false;
        seen[m.id] = true;
    }
    return true;
}
static_assert(EveryIdOnce(), "each dispatch id 1 to 86 belongs to exactly one method");

const MethodDescriptor* FindMethod(DISPID id) noexcept {
    if (id < kFirstId || id > kLastId) return nullptr;
    return &kMethods[kIndexById[id]];
}

HRESULT CallMethod(IZelOleDb& target, const MethodDescriptor& method, DISPPARAMS& params, VARIANT* result,
                   EXCEPINFO* excepInfo, UINT* argErr) {
    // Parameter i is rgvarg[cArgs - 1 - i]. Every argument is bound before any of the
    // caller's by-reference VARIANTs is touched.
    std::array<BoundArgument, kMaxParams> args;
    for (UINT i = 0; i < method.paramCount; ++i) {
        const UINT index = params.cArgs - 1 - i;
        const HRESULT hr = args[i].Bind(params.rgvarg[index], method.params[i]);
        if (FAILED(hr)) {
            if (argErr) *argErr = index;
            return hr;
        }
    }
    for (UINT i = 0; i < method.paramCount; ++i) args[i].Attach();

    MethodResult returned(method.resultType);
    dispatch::ForgetThreadErrorInfo();
    const HRESULT hr = method.call(target, args.data(), returned);
    returned.Deliver(result);
    if (FAILED(hr)) dispatch::DescribeFailure(excepInfo, hr);
    return hr;
}

}  // namespace

HRESULT ZelOleDbGetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) noexcept {
    return dispatch::LookUpNames(kNames, names, count, ids);
}

HRESULT ZelOleDbInvoke(IZelOleDb* target, DISPID member, DISPPARAMS* params, VARIANT* result,
                       EXCEPINFO* excepInfo, UINT* argErr) noexcept {
    try {
        if (const HRESULT checked = dispatch::CheckPositionalCall(params, kMaxParams, result, target); checked != S_OK)
            return checked;

        const MethodDescriptor* method = FindMethod(member);
        if (!method) return DISP_E_MEMBERNOTFOUND;
        if (params->cArgs != method->paramCount) return DISP_E_BADPARAMCOUNT;
        return CallMethod(*target, *method, *params, result, excepInfo, argErr);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
