// Late-bound access to IZelOleDb through its hand-written dispatcher, against a recording
// stand-in of the service object: names and dispatch ids, the dispatcher's own error codes,
// argument conversion, out- and in/out-arguments, return values and EXCEPINFO.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "automation/Dispatch.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/FakeZelOleDb.h"
#include "tests/server/ZelOleDbMethodTable.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

// Dispatch ids used below (the late-bound contract).
constexpr DISPID kConGetDatasource = 4;
constexpr DISPID kCmdSetConnection = 12;
constexpr DISPID kCmdExecute = 13;
constexpr DISPID kCmdSetCommandText = 14;
constexpr DISPID kCmdGetColumnCount = 15;
constexpr DISPID kCmdFieldAsString = 22;
constexpr DISPID kCmdGetRawType = 26;
constexpr DISPID kCmdClose = 34;
constexpr DISPID kTblOpen = 36;
constexpr DISPID kColOpen = 47;
constexpr DISPID kColIsDataType = 61;
constexpr DISPID kIdxOpen = 71;
constexpr DISPID kTblGetDef = 85;
constexpr DISPID kCmdFieldAsVariant = 86;

class ZelOleDbDispatchTest : public testing::Test {
protected:
    HRESULT Invoke(DISPID id, DispArgs& args) { return Invoke(id, args.get()); }
    HRESULT Invoke(DISPID id, DISPPARAMS* params) {
        return zel::ZelOleDbInvoke(m_fake.get(), id, params, m_result.put(), &m_excep, &m_argErr);
    }
    const RecordedCall& OnlyCall() {
        EXPECT_EQ(1u, m_fake->calls.size());
        if (m_fake->calls.empty()) m_fake->calls.push_back({});
        return m_fake->calls.front();
    }
    void TearDown() override {
        SysFreeString(m_excep.bstrSource);  // EXCEPINFO fields the dispatcher may have filled
        SysFreeString(m_excep.bstrDescription);
        SysFreeString(m_excep.bstrHelpFile);
        SetErrorInfo(0, nullptr);
    }

    ComPtr<FakeZelOleDb> m_fake = FakeZelOleDb::Make();
    Variant m_result;
    EXCEPINFO m_excep{};
    UINT m_argErr = 12345;
};

DISPID IdOf(const wchar_t* name) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    DISPID id = -99;
    EXPECT_EQ(S_OK, zel::ZelOleDbGetIDsOfNames(names, 1, &id)) << testing::PrintToString(std::wstring(name));
    return id;
}

}  // namespace

// ---- GetIDsOfNames ----

TEST(ZelOleDbNames, EveryMethodNameGivesItsDispatchId) {
    for (const ZelMethodEntry& m : kZelOleDbMethods) EXPECT_EQ(m.dispid, IdOf(m.name));
}

TEST(ZelOleDbNames, NamesCompareWithoutRegardToCase) {
    EXPECT_EQ(13, IdOf(L"cmdexecute"));
    EXPECT_EQ(13, IdOf(L"CMDEXECUTE"));
    EXPECT_EQ(85, IdOf(L"TblGetDef"));
    EXPECT_EQ(86, IdOf(L"cmdFieldAsVariant"));
    EXPECT_EQ(83, IdOf(L"TBLDELETE"));
}

TEST(ZelOleDbNames, UnknownNameGivesUnknownName) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"CmdExecuteNow")};
    DISPID id = -99;
    EXPECT_EQ(DISP_E_UNKNOWNNAME, zel::ZelOleDbGetIDsOfNames(names, 1, &id));
}

TEST(ZelOleDbNames, ParameterNamesAreNotResolved) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"CmdExecute"), const_cast<LPOLESTR>(L"client")};
    DISPID ids[2] = {-99, -99};
    EXPECT_EQ(DISP_E_UNKNOWNNAME, zel::ZelOleDbGetIDsOfNames(names, 2, ids));
    EXPECT_EQ(13, ids[0]);
}

TEST(ZelOleDbNames, IdsBeforeTheFirstUnknownNameAreWrittenAndTheRestAreNot) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"ConClose"), const_cast<LPOLESTR>(L"NoSuchMethod"),
                        const_cast<LPOLESTR>(L"ConCommit")};
    DISPID ids[3] = {-99, -99, -99};
    EXPECT_EQ(DISP_E_UNKNOWNNAME, zel::ZelOleDbGetIDsOfNames(names, 3, ids));
    EXPECT_EQ(2, ids[0]);
    EXPECT_EQ(-99, ids[1]);
    EXPECT_EQ(-99, ids[2]);
}

TEST(ZelOleDbNames, SeveralKnownNamesAreAllResolved) {
    LPOLESTR names[] = {const_cast<LPOLESTR>(L"TblGetList"), const_cast<LPOLESTR>(L"TblDelete"),
                        const_cast<LPOLESTR>(L"CmdDestroy")};
    DISPID ids[3] = {};
    EXPECT_EQ(S_OK, zel::ZelOleDbGetIDsOfNames(names, 3, ids));
    EXPECT_EQ(46, ids[0]);
    EXPECT_EQ(83, ids[1]);
    EXPECT_EQ(35, ids[2]);
}

TEST(ZelOleDbNames, NoNamesIsSuccess) {
    EXPECT_EQ(S_OK, zel::ZelOleDbGetIDsOfNames(nullptr, 0, nullptr));
}

// ---- the dispatcher's own error codes ----

TEST_F(ZelOleDbDispatchTest, MissingDispParamsGivesBadVarType) {
    EXPECT_EQ(DISP_E_BADVARTYPE, Invoke(kCmdClose, nullptr));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, NineArgumentsGiveBadParamCount) {
    DispArgs args{I4(1), I4(2), I4(3), I4(4), I4(5), I4(6), I4(7), I4(8), I4(9)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(kColOpen, args));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, ANamedArgumentGivesNoNamedArgs) {
    DispArgs args{I4(7)};
    args.Name({0});
    EXPECT_EQ(DISP_E_NONAMEDARGS, Invoke(kCmdClose, args));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, TwoNamedArgumentsGiveNoNamedArgsEvenWithPropertyPut) {
    DispArgs args{Str(L"select 1"), I4(7)};
    args.Name({DISPID_PROPERTYPUT, 0});
    EXPECT_EQ(DISP_E_NONAMEDARGS, Invoke(kCmdSetCommandText, args));
}

TEST_F(ZelOleDbDispatchTest, OneNamedPropertyPutArgumentIsAccepted) {
    DispArgs args{I4(7)};
    args.Name({DISPID_PROPERTYPUT});
    EXPECT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ("CmdClose", OnlyCall().method);
}

TEST_F(ZelOleDbDispatchTest, DispatchIdsOutsideOneTo86GiveMemberNotFound) {
    for (DISPID id : {0, 87, -1, DISPID_VALUE, 1000}) {
        DispArgs args{};
        EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Invoke(id, args)) << id;
    }
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, ResultIsInitialisedEvenWhenTheCallIsRefused) {
    *m_result.put() = *I4(55).get();
    DispArgs args{};
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND,
              zel::ZelOleDbInvoke(m_fake.get(), 87, args.get(), m_result.get(), nullptr, nullptr));
    EXPECT_EQ(VT_EMPTY, m_result.vt());
}

TEST_F(ZelOleDbDispatchTest, WrongArgumentCountGivesBadParamCount) {
    DispArgs none{};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(kCmdClose, none));
    DispArgs two{I4(1), I4(2)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(kCmdClose, two));
    DispArgs three{I4(1), I4(2), I4(3)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(kCmdFieldAsString, three));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, WFlagsAndNullResultErrorAndArgErrPointersAreAccepted) {
    DispArgs args{I4(9)};
    EXPECT_EQ(S_OK, zel::ZelOleDbInvoke(m_fake.get(), kCmdClose, args.get(), nullptr, nullptr, nullptr));
    EXPECT_EQ("CmdClose", OnlyCall().method);
}

// ---- in-arguments ----

TEST_F(ZelOleDbDispatchTest, TextForAHandleIsConverted) {
    DispArgs args{Str(L"12")};
    ASSERT_EQ(S_OK, Invoke(kCmdClose, args));
    ASSERT_EQ(1u, OnlyCall().args.size());
    EXPECT_EQ(VT_UI4, OnlyCall().args[0].vt());
    EXPECT_EQ(12u, V_UI4(OnlyCall().args[0].get()));
}

TEST_F(ZelOleDbDispatchTest, UnconvertibleTextGivesTypeMismatchAtItsRgvargIndex) {
    DispArgs args{Str(L"abc"), Str(L"select 1")};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kCmdSetCommandText, args));
    EXPECT_EQ(1u, m_argErr);  // client is the first of two parameters: rgvarg[1]
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, TypeMismatchOfTheLastParameterReportsIndexZero) {
    DispArgs args{I4(3), Str(L"not a number")};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kColIsDataType, args));
    EXPECT_EQ(0u, m_argErr);
}

TEST_F(ZelOleDbDispatchTest, ShortColumnPositionBecomesTheUnsigned64BitValue) {
    DispArgs args{I4(5), I2(3)};
    ASSERT_EQ(S_OK, Invoke(kCmdFieldAsString, args));
    ASSERT_EQ(2u, OnlyCall().args.size());
    EXPECT_EQ(VT_UI8, OnlyCall().args[1].vt());
    EXPECT_EQ(3u, V_UI8(OnlyCall().args[1].get()));
}

TEST_F(ZelOleDbDispatchTest, ColumnPositionAbove32BitsArrivesWhole) {
    DispArgs args{I4(5), UI8(0x100000001ull)};
    ASSERT_EQ(S_OK, Invoke(kCmdFieldAsString, args));
    EXPECT_EQ(0x100000001ull, V_UI8(OnlyCall().args[1].get()));
}

TEST_F(ZelOleDbDispatchTest, NegativeColumnPositionGivesTypeMismatch) {
    DispArgs args{I4(5), I4(-1)};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kCmdFieldAsString, args));
    EXPECT_EQ(0u, m_argErr);
}

TEST_F(ZelOleDbDispatchTest, NumberForATextParameterIsConverted) {
    DispArgs args{I4(5), I4(42)};
    ASSERT_EQ(S_OK, Invoke(kCmdSetCommandText, args));
    EXPECT_EQ(VT_BSTR, OnlyCall().args[1].vt());
    EXPECT_EQ(L"42", BstrText(V_BSTR(OnlyCall().args[1].get())));
}

TEST_F(ZelOleDbDispatchTest, NumberForAFlagBecomesVariantTrue) {
    DispArgs args{I4(5), Str(L"c"), Str(L"s"), Str(L"t"), Str(L"col"), I4(1), Variant(), Variant()};
    ASSERT_EQ(S_OK, Invoke(kColOpen, args));
    EXPECT_EQ(VT_BOOL, OnlyCall().args[5].vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(OnlyCall().args[5].get()));
}

TEST_F(ZelOleDbDispatchTest, HandleAboveTheSignedRangeAsUnsignedValueArrivesUnchanged) {
    DispArgs args{UI4(0x80000005u)};
    ASSERT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ(0x80000005u, V_UI4(OnlyCall().args[0].get()));
}

TEST_F(ZelOleDbDispatchTest, NegativeHandleKeepsItsBits) {
    DispArgs args{I4(-2147483647)};
    ASSERT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ(0x80000001u, V_UI4(OnlyCall().args[0].get()));
}

TEST_F(ZelOleDbDispatchTest, InArgumentsByVariantReferenceAreDereferencedAndConverted) {
    Variant client = Str(L"77");
    Variant text = Str(L"select 2");
    DispArgs args{RefVariant(client.get()), RefVariant(text.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdSetCommandText, args));
    EXPECT_EQ(77u, V_UI4(OnlyCall().args[0].get()));
    EXPECT_EQ(L"select 2", BstrText(V_BSTR(OnlyCall().args[1].get())));
    // The caller's variables are left as they were.
    EXPECT_EQ(VT_BSTR, client.vt());
    EXPECT_EQ(L"77", BstrText(V_BSTR(client.get())));
}

TEST_F(ZelOleDbDispatchTest, InArgumentByDirectReferenceIsDereferenced) {
    LONG client = 31;
    DispArgs args{Ref(VT_I4, &client)};
    ASSERT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ(31u, V_UI4(OnlyCall().args[0].get()));
}

TEST_F(ZelOleDbDispatchTest, RealNumberForAHandleIsRounded) {
    DispArgs args{R8(8.0)};
    ASSERT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ(8u, V_UI4(OnlyCall().args[0].get()));
}

TEST_F(ZelOleDbDispatchTest, NullForATextParameterGivesTypeMismatch) {
    Variant null;
    V_VT(null.get()) = VT_NULL;
    DispArgs args{std::move(null)};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kTblGetDef, args));
    EXPECT_EQ(0u, m_argErr);
}

// Makes the argument at declaration `position` a VT_BSTR holding a null BSTR, as a typed client
// passes a missing string. (Set in place: copying a VARIANT turns a null BSTR into an empty one.)
void SetNullText(DispArgs& args, UINT position) {
    VARIANT& arg = args.at(args.count() - 1 - position);
    VariantClear(&arg);
    V_VT(&arg) = VT_BSTR;
    V_BSTR(&arg) = nullptr;
}

// Whether recorded argument `position` is a VT_BSTR holding a null BSTR.
testing::AssertionResult IsNullBstr(const RecordedCall& call, size_t position) {
    if (position >= call.args.size()) return testing::AssertionFailure() << "no argument " << position;
    const VARIANT* v = call.args[position].get();
    if (V_VT(v) != VT_BSTR) return testing::AssertionFailure() << "VARIANT type " << V_VT(v);
    if (V_BSTR(v)) return testing::AssertionFailure() << "a string of " << SysStringLen(V_BSTR(v)) << " characters";
    return testing::AssertionSuccess();
}

TEST_F(ZelOleDbDispatchTest, NullTableOfColumnOpenArrivesNullNotEmpty) {
    DispArgs args{I4(0), Str(L""), Str(L""), Str(L""), Str(L""), Bool(false), Variant(), Variant()};
    SetNullText(args, 3);
    ASSERT_EQ(S_OK, Invoke(kColOpen, args));
    const RecordedCall& call = OnlyCall();
    EXPECT_TRUE(IsNullBstr(call, 3));
    // The empty strings beside it stay empty, non-null strings.
    for (size_t position : {1u, 2u, 4u}) {
        ASSERT_EQ(VT_BSTR, call.args[position].vt());
        ASSERT_NE(nullptr, V_BSTR(call.args[position].get())) << position;
        EXPECT_EQ(0u, SysStringLen(V_BSTR(call.args[position].get()))) << position;
    }
}

TEST_F(ZelOleDbDispatchTest, EveryNullTextOfTheOpenMethodsArrivesNull) {
    auto check = [&](DISPID id, DispArgs& args) {
        for (UINT position = 1; position <= 4; ++position) SetNullText(args, position);
        m_fake->calls.clear();
        ASSERT_EQ(S_OK, Invoke(id, args)) << id;
        for (size_t position = 1; position <= 4; ++position) EXPECT_TRUE(IsNullBstr(OnlyCall(), position)) << id;
    };
    DispArgs tables{I4(0), Str(L"c"), Str(L"s"), Str(L"t"), Str(L"TABLE"), Variant(), Variant()};
    check(kTblOpen, tables);
    DispArgs columns{I4(0), Str(L"c"), Str(L"s"), Str(L"t"), Str(L"col"), Bool(true), Variant(), Variant()};
    check(kColOpen, columns);
    DispArgs indexes{I4(0), Str(L"c"), Str(L"s"), Str(L"i"), Str(L"t"), Variant(), Variant()};
    check(kIdxOpen, indexes);
}

TEST_F(ZelOleDbDispatchTest, NullCommandTextArrivesNull) {
    DispArgs args{I4(5), Str(L"")};
    SetNullText(args, 1);
    ASSERT_EQ(S_OK, Invoke(kCmdSetCommandText, args));
    EXPECT_TRUE(IsNullBstr(OnlyCall(), 1));
}

TEST_F(ZelOleDbDispatchTest, NullTextByVariantReferenceArrivesNull) {
    Variant table;
    V_VT(table.get()) = VT_BSTR;  // a null BSTR
    DispArgs args{I4(0), Str(L""), Str(L""), RefVariant(table.get()), Str(L"id"), Bool(false), Variant(), Variant()};
    ASSERT_EQ(S_OK, Invoke(kColOpen, args));
    EXPECT_TRUE(IsNullBstr(OnlyCall(), 3));
    EXPECT_EQ(L"id", BstrText(V_BSTR(OnlyCall().args[4].get())));
    EXPECT_EQ(VT_BSTR, table.vt());
    EXPECT_EQ(nullptr, V_BSTR(table.get()));
}

TEST_F(ZelOleDbDispatchTest, NullTextByDirectStringReferenceArrivesNull) {
    BSTR text = nullptr;
    DispArgs args{I4(5), RefBstr(&text)};
    ASSERT_EQ(S_OK, Invoke(kCmdSetCommandText, args));
    EXPECT_TRUE(IsNullBstr(OnlyCall(), 1));
}

// ---- VARIANT parameters ----

TEST_F(ZelOleDbDispatchTest, VariantParameterIsPassedThroughWithItsType) {
    DispArgs args{I4(5), UI4(3)};
    ASSERT_EQ(S_OK, Invoke(kCmdFieldAsVariant, args));
    ASSERT_EQ(2u, OnlyCall().args.size());
    EXPECT_EQ(VT_UI4, OnlyCall().args[1].vt());
    EXPECT_EQ(3u, V_UI4(OnlyCall().args[1].get()));
}

TEST_F(ZelOleDbDispatchTest, VariantParameterByVariantReferenceIsDereferenced) {
    Variant column = Str(L"name");
    DispArgs args{I4(5), RefVariant(column.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdFieldAsVariant, args));
    EXPECT_EQ(VT_BSTR, OnlyCall().args[1].vt());
    EXPECT_EQ(L"name", BstrText(V_BSTR(OnlyCall().args[1].get())));
}

TEST_F(ZelOleDbDispatchTest, VariantParameterIsNotConverted) {
    DispArgs args{I4(5), I4(3)};
    ASSERT_EQ(S_OK, Invoke(kCmdFieldAsVariant, args));
    EXPECT_EQ(VT_I4, OnlyCall().args[1].vt());
}

// ---- out-arguments ----

TEST_F(ZelOleDbDispatchTest, OutArgumentByVariantReferenceComesBackWithTheDeclaredType) {
    Variant source = I4(99);
    DispArgs args{RefVariant(source.get())};
    ASSERT_EQ(S_OK, Invoke(kConGetDatasource, args));
    ASSERT_EQ(VT_BSTR, source.vt());
    EXPECT_EQ(OutTextAt(0), BstrText(V_BSTR(source.get())));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(OnlyCall().args[0].get()));  // the method got a pointer
}

TEST_F(ZelOleDbDispatchTest, OutArgumentByVariantReferenceHoldingAStringIsReplaced) {
    Variant source = Str(L"previous");
    DispArgs args{RefVariant(source.get())};
    ASSERT_EQ(S_OK, Invoke(kConGetDatasource, args));
    ASSERT_EQ(VT_BSTR, source.vt());
    EXPECT_EQ(OutTextAt(0), BstrText(V_BSTR(source.get())));
}

TEST_F(ZelOleDbDispatchTest, OutArgumentByDirectStringReferenceIsWrittenThrough) {
    Bstr source;
    DispArgs args{RefBstr(source.put())};
    ASSERT_EQ(S_OK, Invoke(kConGetDatasource, args));
    EXPECT_EQ(OutTextAt(0), source.str());
}

TEST_F(ZelOleDbDispatchTest, ShortOutArgumentComesBackAsI2) {
    Variant result, xml, text, stmt;
    DispArgs args{I4(5), RefVariant(result.get()), RefVariant(xml.get()), RefVariant(text.get()),
                  RefVariant(stmt.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdExecute, args));
    ASSERT_EQ(VT_I2, result.vt());
    EXPECT_EQ(OutShortAt(1), V_I2(result.get()));
    EXPECT_EQ(OutTextAt(2), BstrText(V_BSTR(xml.get())));
    EXPECT_EQ(OutTextAt(3), BstrText(V_BSTR(text.get())));
    EXPECT_EQ(OutTextAt(4), BstrText(V_BSTR(stmt.get())));
}

TEST_F(ZelOleDbDispatchTest, ShortOutArgumentByDirectReferenceIsWrittenThrough) {
    short result = 0;
    Bstr xml, text, stmt;
    DispArgs args{I4(5), Ref(VT_I2, &result), RefBstr(xml.put()), RefBstr(text.put()), RefBstr(stmt.put())};
    ASSERT_EQ(S_OK, Invoke(kCmdExecute, args));
    EXPECT_EQ(OutShortAt(1), result);
    EXPECT_EQ(OutTextAt(4), stmt.str());
}

TEST_F(ZelOleDbDispatchTest, OutArgumentByReferenceToAnotherTypeGivesTypeMismatch) {
    LONG wrong = 0;
    DispArgs args{Ref(VT_I4, &wrong)};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kConGetDatasource, args));
    EXPECT_EQ(0u, m_argErr);
    EXPECT_EQ(0, wrong);
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, OutArgumentPassedByValueStillGivesTheMethodAPlace) {
    DispArgs args{Variant()};
    ASSERT_EQ(S_OK, Invoke(kConGetDatasource, args));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(OnlyCall().args[0].get()));
    EXPECT_EQ(VT_EMPTY, args.at(0).vt);
}

// ---- [in,out] handles ----

TEST_F(ZelOleDbDispatchTest, InOutHandleByVariantReferenceHoldingZeroComesBackWithTheNewHandleAsI4) {
    Variant client = I4(0);
    DispArgs args{RefVariant(client.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(0u, V_UI4(OnlyCall().args[0].get()));
    ASSERT_EQ(VT_I4, client.vt());
    EXPECT_EQ(static_cast<LONG>(kIssuedHandle), V_I4(client.get()));
}

TEST_F(ZelOleDbDispatchTest, InOutHandleByVariantReferenceHoldingAHandleCarriesItIn) {
    Variant client = I4(777);
    DispArgs args{RefVariant(client.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(777u, V_UI4(OnlyCall().args[0].get()));
    ASSERT_EQ(VT_I4, client.vt());
    EXPECT_EQ(777, V_I4(client.get()));
}

TEST_F(ZelOleDbDispatchTest, InOutHandleHoldingTextIsConvertedAndComesBackAsI4) {
    Variant client = Str(L"15");
    DispArgs args{RefVariant(client.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(15u, V_UI4(OnlyCall().args[0].get()));
    ASSERT_EQ(VT_I4, client.vt());
    EXPECT_EQ(15, V_I4(client.get()));
}

TEST_F(ZelOleDbDispatchTest, InOutHandleHoldingAnEmptyVariantStartsFromZero) {
    Variant client;  // a script variable never assigned
    DispArgs args{RefVariant(client.get())};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(0u, V_UI4(OnlyCall().args[0].get()));
    EXPECT_EQ(static_cast<LONG>(kIssuedHandle), V_I4(client.get()));
}

TEST_F(ZelOleDbDispatchTest, InOutHandleThatCannotBeConvertedGivesTypeMismatchAndIsLeftAlone) {
    Variant client = Str(L"abc");
    DispArgs args{RefVariant(client.get())};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(0u, m_argErr);
    ASSERT_EQ(VT_BSTR, client.vt());
    EXPECT_EQ(L"abc", BstrText(V_BSTR(client.get())));
}

TEST_F(ZelOleDbDispatchTest, InOutHandleByDirectReferenceIsUsedAsItIs) {
    ULONG client = 0;
    DispArgs args{Ref(VT_UI4, &client)};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(kIssuedHandle, client);
}

TEST_F(ZelOleDbDispatchTest, InOutHandlePassedByValueStillCarriesItsValueIn) {
    DispArgs args{I4(808)};
    ASSERT_EQ(S_OK, Invoke(kCmdSetConnection, args));
    EXPECT_EQ(808u, V_UI4(OnlyCall().args[0].get()));
    EXPECT_EQ(808, V_I4(&args.at(0)));
}

TEST_F(ZelOleDbDispatchTest, ALaterBadArgumentLeavesEarlierReferencedVariablesUntouched) {
    Variant client = Str(L"7");
    Variant errorText = I4(5);
    Variant errorStmt = I4(6);
    DispArgs args{RefVariant(client.get()), Str(L"c"), Str(L"s"), Str(L"t"), Str(L"col"), Str(L"not a flag"),
                  RefVariant(errorText.get()), RefVariant(errorStmt.get())};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(kColOpen, args));
    EXPECT_EQ(2u, m_argErr);  // inclExtendedData, parameter 5 of 8
    EXPECT_EQ(VT_BSTR, client.vt());
    EXPECT_EQ(VT_I4, errorText.vt());
    EXPECT_EQ(5, V_I4(errorText.get()));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(ZelOleDbDispatchTest, TableOpenInScriptStyleFillsHandleAndErrorStrings) {
    Variant client = I4(0), catalog = Str(L"cat"), errorText, errorStmt;
    DispArgs args{RefVariant(client.get()), RefVariant(catalog.get()), Str(L"s"), Str(L"n"), Str(L"TABLE"),
                  RefVariant(errorText.get()), RefVariant(errorStmt.get())};
    ASSERT_EQ(S_OK, Invoke(kTblOpen, args));
    const RecordedCall& call = OnlyCall();
    EXPECT_EQ("TblOpen", call.method);
    EXPECT_EQ(L"cat", BstrText(V_BSTR(call.args[1].get())));
    EXPECT_EQ(L"TABLE", BstrText(V_BSTR(call.args[4].get())));
    EXPECT_EQ(static_cast<LONG>(kIssuedHandle), V_I4(client.get()));
    EXPECT_EQ(L"cat", BstrText(V_BSTR(catalog.get())));
    EXPECT_EQ(OutTextAt(5), BstrText(V_BSTR(errorText.get())));
    EXPECT_EQ(OutTextAt(6), BstrText(V_BSTR(errorStmt.get())));
}

// ---- return values ----

TEST_F(ZelOleDbDispatchTest, UnsignedRawTypeIsReturnedAsI4) {
    DispArgs args{I4(5), I4(1)};
    ASSERT_EQ(S_OK, Invoke(kCmdGetRawType, args));
    ASSERT_EQ(VT_I4, m_result.vt());
    EXPECT_EQ(static_cast<LONG>(kResultULong), V_I4(m_result.get()));
}

TEST_F(ZelOleDbDispatchTest, ColumnCountIsReturnedAsUI8) {
    DispArgs args{I4(5)};
    ASSERT_EQ(S_OK, Invoke(kCmdGetColumnCount, args));
    ASSERT_EQ(VT_UI8, m_result.vt());
    EXPECT_EQ(kResultUInt64, V_UI8(m_result.get()));
}

TEST_F(ZelOleDbDispatchTest, MethodWithoutReturnValueLeavesTheResultEmpty) {
    *m_result.put() = *I4(55).get();
    DispArgs args{I4(5)};
    ASSERT_EQ(S_OK, zel::ZelOleDbInvoke(m_fake.get(), kCmdClose, args.get(), m_result.get(), nullptr, nullptr));
    EXPECT_EQ(VT_EMPTY, m_result.vt());
}

// ---- failures of the method ----

TEST_F(ZelOleDbDispatchTest, MethodFailureIsReturnedAsItIsWithExcepInfoFromTheErrorObject) {
    m_fake->result = E_FAIL;
    m_fake->beforeReturn = [] {
        ComPtr<ICreateErrorInfo> create;
        ASSERT_EQ(S_OK, CreateErrorInfo(create.put()));
        create->SetSource(const_cast<LPOLESTR>(L"ZelTest"));
        create->SetDescription(const_cast<LPOLESTR>(L"the handle is unknown"));
        create->SetHelpFile(const_cast<LPOLESTR>(L"zel.hlp"));
        create->SetHelpContext(42);
        ComPtr<IErrorInfo> info;
        ASSERT_EQ(S_OK, create.query(info));
        SetErrorInfo(0, info.get());
    };
    DispArgs args{I4(5)};
    EXPECT_EQ(E_FAIL, Invoke(kCmdClose, args));
    EXPECT_EQ(0, m_excep.wCode);
    EXPECT_EQ(E_FAIL, m_excep.scode);
    EXPECT_EQ(L"ZelTest", BstrText(m_excep.bstrSource));
    EXPECT_EQ(L"the handle is unknown", BstrText(m_excep.bstrDescription));
    EXPECT_EQ(L"zel.hlp", BstrText(m_excep.bstrHelpFile));
    EXPECT_EQ(42u, m_excep.dwHelpContext);
}

TEST_F(ZelOleDbDispatchTest, MethodFailureWithoutErrorObjectFillsOnlyTheCode) {
    m_fake->result = E_INVALIDARG;
    DispArgs args{I4(5), I4(3)};
    EXPECT_EQ(E_INVALIDARG, Invoke(kCmdFieldAsVariant, args));
    EXPECT_EQ(0, m_excep.wCode);
    EXPECT_EQ(E_INVALIDARG, m_excep.scode);
    EXPECT_EQ(nullptr, m_excep.bstrSource);
    EXPECT_EQ(nullptr, m_excep.bstrDescription);
}

TEST_F(ZelOleDbDispatchTest, ErrorObjectLeftOverFromEarlierIsNotReported) {
    ComPtr<ICreateErrorInfo> create;
    ASSERT_EQ(S_OK, CreateErrorInfo(create.put()));
    create->SetDescription(const_cast<LPOLESTR>(L"stale"));
    ComPtr<IErrorInfo> info;
    ASSERT_EQ(S_OK, create.query(info));
    SetErrorInfo(0, info.get());
    m_fake->result = E_FAIL;
    DispArgs args{I4(5)};
    EXPECT_EQ(E_FAIL, Invoke(kCmdClose, args));
    EXPECT_EQ(nullptr, m_excep.bstrDescription);
}

TEST_F(ZelOleDbDispatchTest, ErrorObjectStaysAvailableToTheCallerAfterInvoke) {
    m_fake->result = E_FAIL;
    m_fake->beforeReturn = [] {
        ComPtr<ICreateErrorInfo> create;
        ASSERT_EQ(S_OK, CreateErrorInfo(create.put()));
        create->SetDescription(const_cast<LPOLESTR>(L"kept"));
        ComPtr<IErrorInfo> info;
        ASSERT_EQ(S_OK, create.query(info));
        SetErrorInfo(0, info.get());
    };
    DispArgs args{I4(5)};
    EXPECT_EQ(E_FAIL, Invoke(kCmdClose, args));
    ComPtr<IErrorInfo> after;
    ASSERT_EQ(S_OK, GetErrorInfo(0, after.put()));
    Bstr description;
    EXPECT_EQ(S_OK, after->GetDescription(description.put()));
    EXPECT_EQ(L"kept", description.str());
}

TEST_F(ZelOleDbDispatchTest, SuccessLeavesExcepInfoAlone) {
    m_excep.scode = 0x1234;
    DispArgs args{I4(5)};
    EXPECT_EQ(S_OK, Invoke(kCmdClose, args));
    EXPECT_EQ(0x1234, m_excep.scode);
}

TEST_F(ZelOleDbDispatchTest, SuccessCodeOtherThanSOkIsReturnedUnchanged) {
    m_fake->result = S_FALSE;
    DispArgs args{I4(5)};
    EXPECT_EQ(S_FALSE, Invoke(kCmdClose, args));
}
