// Recording stand-ins for the service object and the connection-string helper, so that the
// dispatchers are tested on their own: each method records its name and its arguments and
// writes fixed, recognisable values to its outputs.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComObject.h"
#include "common/Variant.h"

namespace zel::test {

// What the fakes write. An [out] BSTR at parameter position k receives "out<k>", an [out]
// short 100 + k; an [in,out] handle holding 0 receives kIssuedHandle (above the signed 32-bit
// range on purpose), a non-zero one is kept. Return values are the kResult... constants.
inline constexpr ULONG kIssuedHandle = 0x80000001u;
inline constexpr VARIANT_BOOL kResultBool = VARIANT_TRUE;
inline constexpr short kResultShort = 2;
inline constexpr LONG kResultLong = -123456;
inline constexpr ULONG kResultULong = 0xFFFF0001u;
inline constexpr UINT64 kResultUInt64 = 0x100000005ull;
inline constexpr INT64 kResultInt64 = -0x100000005ll;
inline constexpr const wchar_t* kResultText = L"result";
inline constexpr LONG kResultVariantI4 = 4242;

inline std::wstring OutTextAt(size_t position) { return L"out" + std::to_wstring(position); }
inline short OutShortAt(size_t position) { return static_cast<short>(100 + position); }

// One call as the method saw it. `args` holds, per parameter in declaration order (return
// value excluded): an in-value with the method's C++ type as VARIANT type (VT_UI4 for
// unsigned long, VT_I4 for long, VT_UI8, VT_BSTR, VT_BOOL, a copy of a VARIANT); for an
// [in,out] handle the incoming value as VT_UI4; for an [out] pointer VT_BOOL telling
// whether the pointer was non-null.
struct RecordedCall {
    std::string method;
    std::vector<Variant> args;
};

// One parameter of a recorded call; the Record functions below process them in order.
struct FakeParam {
    enum class Kind { In, OutText, OutShort, OutLong, InOutHandle, RetBool, RetShort, RetLong, RetULong,
                      RetUInt64, RetInt64, RetText, RetVariant };
    Kind kind;
    Variant value;
    void* target = nullptr;
};

// The recording shared by both fakes.
class CallRecorder {
public:
    std::vector<RecordedCall> calls;
    HRESULT result = S_OK;                // what every method returns
    std::function<void()> beforeReturn;  // runs at the end of every method (e.g. SetErrorInfo)

protected:
    static FakeParam In(ULONG v) { return Value(VT_UI4, [&](VARIANT* x) { V_UI4(x) = v; }); }
    static FakeParam In(LONG v) { return Value(VT_I4, [&](VARIANT* x) { V_I4(x) = v; }); }
    static FakeParam In(UINT64 v) { return Value(VT_UI8, [&](VARIANT* x) { V_UI8(x) = v; }); }
    static FakeParam InFlag(VARIANT_BOOL v) { return Value(VT_BOOL, [&](VARIANT* x) { V_BOOL(x) = v; }); }
    static FakeParam In(BSTR v) {
        FakeParam p{FakeParam::Kind::In, Variant(), nullptr};
        V_VT(p.value.get()) = VT_BSTR;
        V_BSTR(p.value.get()) = v ? SysAllocStringLen(v, SysStringLen(v)) : nullptr;
        return p;
    }
    static FakeParam InVariant(VARIANT* v) { return {FakeParam::Kind::In, v ? Variant(*v) : Variant(), nullptr}; }
    static FakeParam Out(BSTR* p) { return {FakeParam::Kind::OutText, Variant(), p}; }
    static FakeParam OutShort(short* p) { return {FakeParam::Kind::OutShort, Variant(), p}; }
    static FakeParam OutLong(LONG* p) { return {FakeParam::Kind::OutLong, Variant(), p}; }
    static FakeParam InOut(ULONG* p) { return {FakeParam::Kind::InOutHandle, Variant(), p}; }
    static FakeParam RetBool(VARIANT_BOOL* p) { return {FakeParam::Kind::RetBool, Variant(), p}; }
    static FakeParam RetShort(short* p) { return {FakeParam::Kind::RetShort, Variant(), p}; }
    static FakeParam RetLong(LONG* p) { return {FakeParam::Kind::RetLong, Variant(), p}; }
    static FakeParam RetULong(ULONG* p) { return {FakeParam::Kind::RetULong, Variant(), p}; }
    static FakeParam RetUInt64(UINT64* p) { return {FakeParam::Kind::RetUInt64, Variant(), p}; }
    static FakeParam RetInt64(INT64* p) { return {FakeParam::Kind::RetInt64, Variant(), p}; }
    static FakeParam RetText(BSTR* p) { return {FakeParam::Kind::RetText, Variant(), p}; }
    static FakeParam RetVariant(VARIANT* p) { return {FakeParam::Kind::RetVariant, Variant(), p}; }

    HRESULT Record(const char* method, std::initializer_list<FakeParam> params);

private:
    template <typename Set>
    static FakeParam Value(VARTYPE type, Set set) {
        FakeParam p{FakeParam::Kind::In, Variant(), nullptr};
        V_VT(p.value.get()) = type;
        set(p.value.get());
        return p;
    }
};

inline HRESULT CallRecorder::Record(const char* method, std::initializer_list<FakeParam> params) {
    RecordedCall call{method, {}};
    size_t position = 0;
    for (const FakeParam& p : params) {
        switch (p.kind) {
            case FakeParam::Kind::In:
                if (p.value.vt() == VT_BSTR && !V_BSTR(p.value.get())) {
                    // VariantCopy would record a null string as an empty one.
                    Variant null;
                    V_VT(null.get()) = VT_BSTR;
                    call.args.push_back(std::move(null));
                } else {
                    call.args.push_back(p.value);
                }
                break;
            case FakeParam::Kind::OutText:
                call.args.push_back(Variant::FromBool(p.target != nullptr));
                if (p.target) *static_cast<BSTR*>(p.target) = SysAllocString(OutTextAt(position).c_str());
                break;
            case FakeParam::Kind::OutShort:
                call.args.push_back(Variant::FromBool(p.target != nullptr));
                if (p.target) *static_cast<short*>(p.target) = OutShortAt(position);
                break;
            case FakeParam::Kind::OutLong:
                call.args.push_back(Variant::FromBool(p.target != nullptr));
                if (p.target) *static_cast<LONG*>(p.target) = 1000 + static_cast<LONG>(position);
                break;
            case FakeParam::Kind::InOutHandle: {
                auto* handle = static_cast<ULONG*>(p.target);
                Variant incoming;
                if (handle) {
                    V_VT(incoming.get()) = VT_UI4;
                    V_UI4(incoming.get()) = *handle;
                    if (*handle == 0) *handle = kIssuedHandle;
                }
                call.args.push_back(std::move(incoming));
                break;
            }
            case FakeParam::Kind::RetBool: *static_cast<VARIANT_BOOL*>(p.target) = kResultBool; break;
            case FakeParam::Kind::RetShort: *static_cast<short*>(p.target) = kResultShort; break;
            case FakeParam::Kind::RetLong: *static_cast<LONG*>(p.target) = kResultLong; break;
            case FakeParam::Kind::RetULong: *static_cast<ULONG*>(p.target) = kResultULong; break;
            case FakeParam::Kind::RetUInt64: *static_cast<UINT64*>(p.target) = kResultUInt64; break;
            case FakeParam::Kind::RetInt64: *static_cast<INT64*>(p.target) = kResultInt64; break;
            case FakeParam::Kind::RetText: *static_cast<BSTR*>(p.target) = SysAllocString(kResultText); break;
            case FakeParam::Kind::RetVariant: {
                auto* v = static_cast<VARIANT*>(p.target);
                VariantClear(v);  // a [out,retval] VARIANT is replaced, as the real methods do
                V_VT(v) = VT_I4;
                V_I4(v) = kResultVariantI4;
                break;
            }
        }
        ++position;
    }
    calls.push_back(std::move(call));
    if (beforeReturn) beforeReturn();
    return result;
}

// IZelOleDb: every method records itself (by its own name) and writes its outputs.
class FakeZelOleDb final : public ComObject<FakeZelOleDb, IZelOleDb>, public CallRecorder {
public:
    static constexpr bool kModuleLock = false;

    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }

    // clang-format off
    STDMETHODIMP ConOpenFromInitializationString(BSTR p0, VARIANT_BOOL p1, BSTR* p2, BSTR* p3) override {
        return Record(__func__, {In(p0), InFlag(p1), Out(p2), Out(p3)});
    }
    STDMETHODIMP ConClose() override {
        return Record(__func__, {});
    }
    STDMETHODIMP ConCreateMdbFile(BSTR p0, BSTR p1, BSTR* p2, BSTR* p3) override {
        return Record(__func__, {In(p0), In(p1), Out(p2), Out(p3)});
    }
    STDMETHODIMP ConGetDatasource(BSTR* p0) override {
        return Record(__func__, {Out(p0)});
    }
    STDMETHODIMP ConIsConnected(VARIANT_BOOL* result) override {
        return Record(__func__, {RetBool(result)});
    }
    STDMETHODIMP ConIsReadOnly(VARIANT_BOOL* result) override {
        return Record(__func__, {RetBool(result)});
    }
    STDMETHODIMP ConGetCurrentCatalog(BSTR* p0) override {
        return Record(__func__, {Out(p0)});
    }
    STDMETHODIMP ConStartTransaction(VARIANT_BOOL* result) override {
        return Record(__func__, {RetBool(result)});
    }
    STDMETHODIMP ConCommit(VARIANT_BOOL* result) override {
        return Record(__func__, {RetBool(result)});
    }
    STDMETHODIMP ConRollback(VARIANT_BOOL* result) override {
        return Record(__func__, {RetBool(result)});
    }
    STDMETHODIMP ConCompactMdb() override {
        return Record(__func__, {});
    }
    STDMETHODIMP CmdSetConnection(ULONG* p0) override {
        return Record(__func__, {InOut(p0)});
    }
    STDMETHODIMP CmdExecute(ULONG p0, short* p1, BSTR* p2, BSTR* p3, BSTR* p4) override {
        return Record(__func__, {In(p0), OutShort(p1), Out(p2), Out(p3), Out(p4)});
    }
    STDMETHODIMP CmdSetCommandText(ULONG p0, BSTR p1) override {
        return Record(__func__, {In(p0), In(p1)});
    }
    STDMETHODIMP CmdGetColumnCount(ULONG p0, UINT64* result) override {
        return Record(__func__, {In(p0), RetUInt64(result)});
    }
    STDMETHODIMP CmdGetRowsAffected(ULONG p0, INT64* result) override {
        return Record(__func__, {In(p0), RetInt64(result)});
    }
    STDMETHODIMP CmdFetchNext(ULONG p0, short* result) override {
        return Record(__func__, {In(p0), RetShort(result)});
    }
    STDMETHODIMP CmdFetchPrev(ULONG p0, short* result) override {
        return Record(__func__, {In(p0), RetShort(result)});
    }
    STDMETHODIMP CmdFetchFirst(ULONG p0, short* result) override {
        return Record(__func__, {In(p0), RetShort(result)});
    }
    STDMETHODIMP CmdFetchLast(ULONG p0, short* result) override {
        return Record(__func__, {In(p0), RetShort(result)});
    }
    STDMETHODIMP CmdFieldAsStringEx(ULONG p0, UINT64 p1, BSTR* result) override {
        return Record(__func__, {In(p0), In(p1), RetText(result)});
    }
    STDMETHODIMP CmdFieldAsString(ULONG p0, UINT64 p1, BSTR* result) override {
        return Record(__func__, {In(p0), In(p1), RetText(result)});
    }
    STDMETHODIMP CmdFieldAsLong(ULONG p0, UINT64 p1, LONG* result) override {
        return Record(__func__, {In(p0), In(p1), RetLong(result)});
    }
    STDMETHODIMP CmdIsBlob(ULONG p0, UINT64 p1, short* result) override {
        return Record(__func__, {In(p0), In(p1), RetShort(result)});
    }
    STDMETHODIMP CmdIsNull(ULONG p0, UINT64 p1, short* result) override {
        return Record(__func__, {In(p0), In(p1), RetShort(result)});
    }
    STDMETHODIMP CmdGetRawType(ULONG p0, UINT64 p1, ULONG* result) override {
        return Record(__func__, {In(p0), In(p1), RetULong(result)});
    }
    STDMETHODIMP CmdIsIntegral(ULONG p0, UINT64 p1, short* result) override {
        return Record(__func__, {In(p0), In(p1), RetShort(result)});
    }
    STDMETHODIMP CmdIsNumeric(ULONG p0, UINT64 p1, short* result) override {
        return Record(__func__, {In(p0), In(p1), RetShort(result)});
    }
    STDMETHODIMP CmdGetColumnName(ULONG p0, UINT64 p1, BSTR* result) override {
        return Record(__func__, {In(p0), In(p1), RetText(result)});
    }
    STDMETHODIMP CmdGetColumnIndex(ULONG p0, BSTR p1, UINT64* result) override {
        return Record(__func__, {In(p0), In(p1), RetUInt64(result)});
    }
    STDMETHODIMP CmdGetColumnSize(ULONG p0, UINT64 p1, UINT64* result) override {
        return Record(__func__, {In(p0), In(p1), RetUInt64(result)});
    }
    STDMETHODIMP CmdHasResults(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP CmdGetBlobData(ULONG p0, UINT64 p1, VARIANT* result) override {
        return Record(__func__, {In(p0), In(p1), RetVariant(result)});
    }
    STDMETHODIMP CmdClose(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP CmdDestroy(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP CmdFieldAsVariant(ULONG p0, VARIANT* p1, VARIANT* result) override {
        return Record(__func__, {In(p0), InVariant(p1), RetVariant(result)});
    }
    STDMETHODIMP TblOpen(ULONG* p0, BSTR p1, BSTR p2, BSTR p3, BSTR p4, BSTR* p5, BSTR* p6) override {
        return Record(__func__, {InOut(p0), In(p1), In(p2), In(p3), In(p4), Out(p5), Out(p6)});
    }
    STDMETHODIMP TblDestroy(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP TblFetchNext(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP TblClose(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP TblGetName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP TblGetCatalog(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP TblGetSchema(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP TblGetDescription(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP TblGetType(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP TblGetTableList(ULONG p0, VARIANT* result) override {
        return Record(__func__, {In(p0), RetVariant(result)});
    }
    STDMETHODIMP TblGetList(ULONG p0, VARIANT* result) override {
        return Record(__func__, {In(p0), RetVariant(result)});
    }
    STDMETHODIMP TblDelete(BSTR p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP TblCreate(BSTR p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP TblGetDef(BSTR p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColOpen(ULONG* p0, BSTR p1, BSTR p2, BSTR p3, BSTR p4, VARIANT_BOOL p5, BSTR* p6, BSTR* p7) override {
        return Record(__func__, {InOut(p0), In(p1), In(p2), In(p3), In(p4), InFlag(p5), Out(p6), Out(p7)});
    }
    STDMETHODIMP ColDestroy(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP ColClose(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP ColFetchNext(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP ColGetName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColGetCatalog(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColGetSchema(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColGetTableName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColOrdinalPosition(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColHasDefault(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP ColGetDefault(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColFlags(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColIsNullable(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP ColDataType(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColIsDataType(ULONG p0, LONG p1, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), In(p1), RetBool(result)});
    }
    STDMETHODIMP ColMaxLength(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColNumericPrecision(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColNumericScale(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColPrecision(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColDateTimePrecision(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColGetDescription(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP ColIsIdentity(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP ColSeed(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP ColIncrement(ULONG p0, LONG* result) override {
        return Record(__func__, {In(p0), RetLong(result)});
    }
    STDMETHODIMP IdxOpen(ULONG* p0, BSTR p1, BSTR p2, BSTR p3, BSTR p4, BSTR* p5, BSTR* p6) override {
        return Record(__func__, {InOut(p0), In(p1), In(p2), In(p3), In(p4), Out(p5), Out(p6)});
    }
    STDMETHODIMP IdxDestroy(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP IdxClose(ULONG p0) override {
        return Record(__func__, {In(p0)});
    }
    STDMETHODIMP IdxFetchNext(ULONG p0, VARIANT_BOOL* result) override {
        return Record(__func__, {In(p0), RetBool(result)});
    }
    STDMETHODIMP IdxGetName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetCatalog(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetSchema(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetTableName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetTableCatalog(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetTableSchema(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetColumnName(ULONG p0, BSTR* result) override {
        return Record(__func__, {In(p0), RetText(result)});
    }
    STDMETHODIMP IdxGetIndexList(ULONG p0, VARIANT_BOOL p1, VARIANT* result) override {
        return Record(__func__, {In(p0), InFlag(p1), RetVariant(result)});
    }
    // clang-format on
};

// IZelOleDbHelper: GetDbConnectionInfo records its arguments (username and password as
// copies of the VARIANTs received) and answers VARIANT_TRUE with connStr "out0" and
// connFlags 1001.
class FakeZelOleDbHelper final : public ComObject<FakeZelOleDbHelper, IZelOleDbHelper>, public CallRecorder {
public:
    static constexpr bool kModuleLock = false;

    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }

    STDMETHODIMP GetDbConnectionInfo(BSTR* connStr, LONG* connFlags, ZelOleDbFormatType formatType,
                                     VARIANT username, VARIANT password, VARIANT_BOOL* result) override {
        return Record(__func__, {Out(connStr), OutLong(connFlags), In(static_cast<LONG>(formatType)),
                                 InVariant(&username), InVariant(&password), RetBool(result)});
    }
};

}  // namespace zel::test
