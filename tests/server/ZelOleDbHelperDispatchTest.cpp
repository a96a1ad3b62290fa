// Late-bound access to IZelOleDbHelper::GetDbConnectionInfo through its hand-written
// dispatcher, against a recording stand-in: names, positional and named arguments, the
// dispatcher's error codes, conversion of formatType, outputs and EXCEPINFO.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "automation/Dispatch.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/FakeZelOleDb.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

constexpr DISPID kGetDbConnectionInfo = 1;
// Parameter positions, which are also the dispatch ids of the parameter names.
constexpr DISPID kConnStr = 0, kConnFlags = 1, kFormatType = 2, kUsername = 3, kPassword = 4;

class HelperDispatchTest : public testing::Test {
protected:
    HRESULT Invoke(DispArgs& args, DISPID member = kGetDbConnectionInfo) {
        return zel::ZelOleDbHelperInvoke(m_fake.get(), member, args.get(), m_result.put(), &m_excep, &m_argErr);
    }
    const RecordedCall& OnlyCall() {
        EXPECT_EQ(1u, m_fake->calls.size());
        if (m_fake->calls.empty()) m_fake->calls.push_back({});
        return m_fake->calls.front();
    }
    // Recorded arguments: connStr pointer given, connFlags pointer given, formatType,
    // username, password.
    std::wstring Arrived(size_t position) {
        const RecordedCall& call = OnlyCall();
        if (call.args.size() <= position) return L"<missing>";
        const VARIANT& v = *call.args[position].get();
        if (V_VT(&v) == VT_BSTR) return BstrText(V_BSTR(&v));
        if (V_VT(&v) == VT_I4) return std::to_wstring(V_I4(&v));
        if (V_VT(&v) == VT_BOOL) return V_BOOL(&v) ? L"true" : L"false";
        return L"vt" + std::to_wstring(V_VT(&v));
    }
    void TearDown() override {
        SysFreeString(m_excep.bstrSource);  // EXCEPINFO fields the dispatcher may have filled
        SysFreeString(m_excep.bstrDescription);
        SysFreeString(m_excep.bstrHelpFile);
        SetErrorInfo(0, nullptr);
    }

    ComPtr<FakeZelOleDbHelper> m_fake = FakeZelOleDbHelper::Make();
    Variant m_result;
    EXCEPINFO m_excep{};
    UINT m_argErr = 12345;
    Variant m_connStr, m_connFlags;
};

std::vector<DISPID> IdsOf(std::initializer_list<const wchar_t*> names, HRESULT expected = S_OK) {
    std::vector<LPOLESTR> list;
    for (const wchar_t* n : names) list.push_back(const_cast<LPOLESTR>(n));
    std::vector<DISPID> ids(list.size(), -99);
    EXPECT_EQ(expected, zel::ZelOleDbHelperGetIDsOfNames(list.data(), static_cast<UINT>(list.size()), ids.data()));
    return ids;
}

}  // namespace

// ---- GetIDsOfNames ----

TEST(HelperNames, MethodAndParameterNamesGiveTheirIds) {
    EXPECT_EQ((std::vector<DISPID>{1, 2}), IdsOf({L"GetDbConnectionInfo", L"formatType"}));
    EXPECT_EQ((std::vector<DISPID>{0, 1, 2, 3, 4, 5}),
              IdsOf({L"connStr", L"connFlags", L"formatType", L"username", L"password", L"result"}));
}

TEST(HelperNames, NamesCompareWithoutRegardToCase) {
    EXPECT_EQ((std::vector<DISPID>{1, 0, 4}), IdsOf({L"getdbconnectioninfo", L"CONNSTR", L"PassWord"}));
}

TEST(HelperNames, UnknownNameStopsTheLookupAfterWritingTheEarlierIds) {
    EXPECT_EQ((std::vector<DISPID>{1, -99, -99}),
              IdsOf({L"GetDbConnectionInfo", L"format", L"username"}, DISP_E_UNKNOWNNAME));
}

TEST(HelperNames, NoNamesIsSuccess) { EXPECT_EQ(S_OK, zel::ZelOleDbHelperGetIDsOfNames(nullptr, 0, nullptr)); }

// ---- positional calls ----

TEST_F(HelperDispatchTest, PositionalCallFillsOutputsAndReturnsVariantBool) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(2), Str(L"bob"), Str(L"secret")};
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ("GetDbConnectionInfo", OnlyCall().method);
    EXPECT_EQ(L"true", Arrived(kConnStr));
    EXPECT_EQ(L"true", Arrived(kConnFlags));
    EXPECT_EQ(L"2", Arrived(kFormatType));
    EXPECT_EQ(L"bob", Arrived(kUsername));
    EXPECT_EQ(L"secret", Arrived(kPassword));
    ASSERT_EQ(VT_BSTR, m_connStr.vt());
    EXPECT_EQ(OutTextAt(0), BstrText(V_BSTR(m_connStr.get())));
    ASSERT_EQ(VT_I4, m_connFlags.vt());
    EXPECT_EQ(1001, V_I4(m_connFlags.get()));
    ASSERT_EQ(VT_BOOL, m_result.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(m_result.get()));
}

TEST_F(HelperDispatchTest, OutputsByDirectReferenceAreWrittenThrough) {
    Bstr connStr;
    LONG connFlags = 0;
    DispArgs args{RefBstr(connStr.put()), Ref(VT_I4, &connFlags), I4(0), Variant(), Variant()};
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ(OutTextAt(0), connStr.str());
    EXPECT_EQ(1001, connFlags);
}

TEST_F(HelperDispatchTest, UsernameAndPasswordArePassedAsTheyAreAndByReferenceDereferenced) {
    Variant user = I4(17);
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(0), RefVariant(user.get()), I2(5)};
    ASSERT_EQ(S_OK, Invoke(args));
    ASSERT_EQ(VT_I4, OnlyCall().args[kUsername].vt());
    EXPECT_EQ(17, V_I4(OnlyCall().args[kUsername].get()));
    ASSERT_EQ(VT_I2, OnlyCall().args[kPassword].vt());
    EXPECT_EQ(5, V_I2(OnlyCall().args[kPassword].get()));
}

TEST_F(HelperDispatchTest, FormatTypeAsTextIsConverted) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Str(L"3"), Variant(), Variant()};
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ(L"3", Arrived(kFormatType));
}

TEST_F(HelperDispatchTest, UnconvertibleFormatTypeGivesTypeMismatchAtPositionTwo) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Str(L"abc"), Variant(), Variant()};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(args));
    EXPECT_EQ(2u, m_argErr);
    EXPECT_TRUE(m_fake->calls.empty());
    EXPECT_EQ(VT_EMPTY, m_connStr.vt());
}

// ---- named arguments ----

TEST_F(HelperDispatchTest, FormatTypeNamedAndTheOthersPositional) {
    // rgvarg[0] is the named formatType; the positional ones follow in reverse order.
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Str(L"user"), Str(L"pw"), I4(6)};
    args.Name({kFormatType});
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ(L"6", Arrived(kFormatType));
    EXPECT_EQ(L"user", Arrived(kUsername));
    EXPECT_EQ(L"pw", Arrived(kPassword));
    EXPECT_EQ(OutTextAt(0), BstrText(V_BSTR(m_connStr.get())));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(m_result.get()));
}

TEST_F(HelperDispatchTest, EveryArgumentNamedInAnyOrder) {
    // Declaration-order list reversed into rgvarg: rgvarg[0] = I4(8), ... rgvarg[4] = connStr.
    DispArgs args{RefVariant(m_connStr.get()), Str(L"pw"), RefVariant(m_connFlags.get()), Str(L"user"), I4(8)};
    args.Name({kFormatType, kUsername, kConnFlags, kPassword, kConnStr});
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ(L"8", Arrived(kFormatType));
    EXPECT_EQ(L"user", Arrived(kUsername));
    EXPECT_EQ(L"pw", Arrived(kPassword));
    EXPECT_EQ(VT_BSTR, m_connStr.vt());
    EXPECT_EQ(VT_I4, m_connFlags.vt());
}

TEST_F(HelperDispatchTest, UnconvertibleNamedFormatTypeStillReportsPositionTwo) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Variant(), Variant(), Str(L"abc")};
    args.Name({kFormatType});
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(args));
    EXPECT_EQ(2u, m_argErr);
}

TEST_F(HelperDispatchTest, LeadingPropertyPutIsSkippedAndItsArgumentCountsAsPositional) {
    // rgvarg[0] (named DISPID_PROPERTYPUT) is the last position, password; rgvarg[1] is the
    // named formatType; rgvarg[4], [3], [2] fill connStr, connFlags, username.
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Str(L"user"), I4(9), Str(L"pw")};
    args.Name({DISPID_PROPERTYPUT, kFormatType});
    ASSERT_EQ(S_OK, Invoke(args));
    EXPECT_EQ(L"9", Arrived(kFormatType));
    EXPECT_EQ(L"user", Arrived(kUsername));
    EXPECT_EQ(L"pw", Arrived(kPassword));
}

TEST_F(HelperDispatchTest, NamedIdSevenGivesParamNotFoundAtThatNamedArgument) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Variant(), I4(7), I4(1)};
    args.Name({kFormatType, 7});
    EXPECT_EQ(DISP_E_PARAMNOTFOUND, Invoke(args));
    EXPECT_EQ(1u, m_argErr);
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(HelperDispatchTest, NamedResultIdIsOutOfRangeForFiveArguments) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant(), Variant()};
    args.Name({5});
    EXPECT_EQ(DISP_E_PARAMNOTFOUND, Invoke(args));
    EXPECT_EQ(0u, m_argErr);
}

TEST_F(HelperDispatchTest, NegativeNamedIdGivesParamNotFound) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant(), Variant()};
    args.Name({-5});
    EXPECT_EQ(DISP_E_PARAMNOTFOUND, Invoke(args));
    EXPECT_EQ(0u, m_argErr);
}

TEST_F(HelperDispatchTest, SamePositionNamedTwiceGivesParamNotFoundAtTheSecond) {
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), Variant(), I4(1), I4(2)};
    args.Name({kFormatType, kFormatType});
    EXPECT_EQ(DISP_E_PARAMNOTFOUND, Invoke(args));
    EXPECT_EQ(1u, m_argErr);
}

// ---- the dispatcher's own error codes ----

TEST_F(HelperDispatchTest, MissingDispParamsGivesBadVarType) {
    EXPECT_EQ(DISP_E_BADVARTYPE, zel::ZelOleDbHelperInvoke(m_fake.get(), 1, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(HelperDispatchTest, SevenArgumentsGiveBadParamCount) {
    DispArgs args{I4(1), I4(2), I4(3), I4(4), I4(5), I4(6), I4(7)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(args));
}

TEST_F(HelperDispatchTest, AnyCountOtherThanFiveGivesBadParamCount) {
    DispArgs six{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant(), Variant(), Variant()};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(six));
    DispArgs four{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant()};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(four));
    EXPECT_TRUE(m_fake->calls.empty());
}

TEST_F(HelperDispatchTest, DispatchIdOtherThanOneGivesMemberNotFound) {
    for (DISPID id : {0, 2, -1, 86}) {
        DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant(), Variant()};
        EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Invoke(args, id)) << id;
    }
    EXPECT_TRUE(m_fake->calls.empty());
}

// ---- failures of the method ----

TEST_F(HelperDispatchTest, MethodFailureIsReturnedAsItIsWithExcepInfo) {
    m_fake->result = E_FAIL;
    m_fake->beforeReturn = [] {
        ComPtr<ICreateErrorInfo> create;
        ASSERT_EQ(S_OK, CreateErrorInfo(create.put()));
        create->SetSource(const_cast<LPOLESTR>(L"ZelHelperTest"));
        create->SetDescription(const_cast<LPOLESTR>(L"not constructed"));
        ComPtr<IErrorInfo> info;
        ASSERT_EQ(S_OK, create.query(info));
        SetErrorInfo(0, info.get());
    };
    DispArgs args{RefVariant(m_connStr.get()), RefVariant(m_connFlags.get()), I4(1), Variant(), Variant()};
    EXPECT_EQ(E_FAIL, Invoke(args));
    EXPECT_EQ(0, m_excep.wCode);
    EXPECT_EQ(E_FAIL, m_excep.scode);
    EXPECT_EQ(L"ZelHelperTest", BstrText(m_excep.bstrSource));
    EXPECT_EQ(L"not constructed", BstrText(m_excep.bstrDescription));
}
