// Late-bound calls into the server process, as a script host or a 64-bit host makes them:
// the dispatcher's names, error codes, argument conversion and by-reference arguments, after
// the DISPPARAMS have crossed the process (and bitness) boundary. No database is needed.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::ComPtr;
using zel::Variant;

namespace {

constexpr DISPID kCmdSetConnection = 12;
constexpr DISPID kCmdFetchNext = 17;
constexpr DISPID kCmdDestroy = 35;
constexpr DISPID kConIsConnected = 5;
constexpr DISPID kGetDbConnectionInfo = 1;
constexpr DISPID kFormatType = 2;

class CrossProcessDispatchTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u)); }

    void SetUp() override {
        const std::vector<DWORD> before = ServerProcessIds();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ZelOleDbImpl, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                         m_db.put_void()));
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_ZelOleDbHelperImpl, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch,
                                         m_helper.put_void()));
        m_server = WaitForNewServerProcess(before, 2000).value_or(0);
    }

    void TearDown() override {
        m_db.reset();
        m_helper.reset();
        if (m_server) {
            EXPECT_TRUE(WaitForProcessExit(m_server, 5000)) << "the server outlived its client";
        }
    }

    HRESULT Call(IDispatch* target, DISPID id, DispArgs& args) {
        m_result.clear();
        m_argErr = ~0u;
        m_excep = EXCEPINFO{};
        HRESULT hr = target->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, args.get(), m_result.put(),
                                    &m_excep, &m_argErr);
        SysFreeString(m_excep.bstrSource);
        SysFreeString(m_excep.bstrDescription);
        SysFreeString(m_excep.bstrHelpFile);
        m_excep.bstrSource = m_excep.bstrDescription = m_excep.bstrHelpFile = nullptr;
        return hr;
    }
    HRESULT CallDb(DISPID id, DispArgs& args) { return Call(m_db.get(), id, args); }

    DISPID IdOf(IDispatch* target, const wchar_t* name) {
        std::wstring text = name;
        LPOLESTR names[] = {text.data()};
        DISPID id = 0;
        m_namesHr = target->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        return id;
    }

    ComPtr<IDispatch> m_db;
    ComPtr<IDispatch> m_helper;
    Variant m_result;
    UINT m_argErr = ~0u;
    EXCEPINFO m_excep{};
    HRESULT m_namesHr = S_OK;
    DWORD m_server = 0;
};

TEST_F(CrossProcessDispatchTest, NamesResolveWithoutRegardToCase) {
    EXPECT_EQ(13, IdOf(m_db.get(), L"cmdexecute"));
    EXPECT_EQ(S_OK, m_namesHr);
    EXPECT_EQ(85, IdOf(m_db.get(), L"TblGetDef"));
    EXPECT_EQ(86, IdOf(m_db.get(), L"CMDFIELDASVARIANT"));
    IdOf(m_db.get(), L"CmdRunEverything");
    EXPECT_EQ(DISP_E_UNKNOWNNAME, m_namesHr);
}

TEST_F(CrossProcessDispatchTest, HelperMethodAndParameterNamesGiveTheirIds) {
    std::wstring method = L"GetDbConnectionInfo", param = L"formatType";
    LPOLESTR names[] = {method.data(), param.data()};
    DISPID ids[2] = {};
    ASSERT_EQ(S_OK, m_helper->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids));
    EXPECT_EQ(1, ids[0]);
    EXPECT_EQ(2, ids[1]);
}

TEST_F(CrossProcessDispatchTest, TypeInformationIsServedForIndexZeroOnly) {
    UINT count = 0;
    ASSERT_EQ(S_OK, m_db->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(S_OK, m_db->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put()));
    EXPECT_TRUE(info);
    ComPtr<ITypeInfo> none;
    EXPECT_EQ(DISP_E_BADINDEX, m_db->GetTypeInfo(1, LOCALE_USER_DEFAULT, none.put()));
}

TEST_F(CrossProcessDispatchTest, DispatchIdsOutsideTheTableAreNotFound) {
    DispArgs none{};
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, CallDb(87, none));
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, CallDb(0, none));
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Call(m_helper.get(), 2, none));
}

TEST_F(CrossProcessDispatchTest, AWrongArgumentCountIsRefused) {
    DispArgs two{I4(1), I4(2)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, CallDb(kCmdDestroy, two));
    DispArgs one{I4(1)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, CallDb(kConIsConnected, one));
    DispArgs four{I4(0), I4(0), I4(0), I4(0)};
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Call(m_helper.get(), kGetDbConnectionInfo, four));
}

TEST_F(CrossProcessDispatchTest, NamedArgumentsAreRefusedByTheServiceObject) {
    DispArgs args{I4(1)};
    args.Name({0});
    EXPECT_EQ(DISP_E_NONAMEDARGS, CallDb(kCmdDestroy, args));
}

TEST_F(CrossProcessDispatchTest, TextThatIsNoNumberInAHandleIsATypeMismatchAtItsIndex) {
    DispArgs args{Str(L"abc")};
    EXPECT_EQ(DISP_E_TYPEMISMATCH, CallDb(kCmdFetchNext, args));
    EXPECT_EQ(0u, m_argErr);
}

TEST_F(CrossProcessDispatchTest, InOutHandleCarriesItsValueInAndTheMethodsValueOut) {
    // A script's variable: VT_BYREF|VT_VARIANT around a VT_I4 0.
    Variant handle = I4(0);
    {
        DispArgs args{RefVariant(handle.get())};
        ASSERT_EQ(S_OK, CallDb(kCmdSetConnection, args));
    }
    ASSERT_EQ(VT_I4, handle.vt());
    const LONG first = V_I4(handle.get());
    EXPECT_NE(0, first);

    // Passed back later, the handle names the same command and comes back unchanged.
    Sleep(50);
    {
        DispArgs args{RefVariant(handle.get())};
        ASSERT_EQ(S_OK, CallDb(kCmdSetConnection, args));
    }
    EXPECT_EQ(VT_I4, handle.vt());
    EXPECT_EQ(first, V_I4(handle.get()));

    // A handle the server does not know is replaced by a new one.
    Variant unknown = I4(first + 12345);
    {
        DispArgs args{RefVariant(unknown.get())};
        ASSERT_EQ(S_OK, CallDb(kCmdSetConnection, args));
    }
    EXPECT_NE(first + 12345, V_I4(unknown.get()));

    // The handle as text is converted; the command goes, and a second destroy fails.
    {
        DispArgs args{Str(std::to_wstring(static_cast<ULONG>(first)).c_str())};
        EXPECT_EQ(S_OK, CallDb(kCmdDestroy, args));
    }
    {
        DispArgs args{I4(first)};
        EXPECT_EQ(E_FAIL, CallDb(kCmdDestroy, args));
        EXPECT_EQ(E_FAIL, m_excep.scode);
    }
    DispArgs cleanup{unknown};
    EXPECT_EQ(S_OK, CallDb(kCmdDestroy, cleanup));
}

TEST_F(CrossProcessDispatchTest, ARetvalComesBackWithItsDeclaredType) {
    DispArgs none{};
    ASSERT_EQ(S_OK, CallDb(kConIsConnected, none));
    EXPECT_EQ(VT_BOOL, m_result.vt());
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(m_result.get()));
}

TEST_F(CrossProcessDispatchTest, HelperOutParametersByReferenceComeBackWithTheirDeclaredTypes) {
    Variant connStr = I2(5), connFlags = Str(L"x");
    DispArgs args{RefVariant(connStr.get()), RefVariant(connFlags.get()), I4(kHTMLExport), Variant(), Variant()};
    ASSERT_EQ(S_OK, Call(m_helper.get(), kGetDbConnectionInfo, args));
    EXPECT_EQ(VT_BSTR, connStr.vt());
    EXPECT_EQ(VT_I4, connFlags.vt());
    ASSERT_EQ(VT_BOOL, m_result.vt());
    // The answer depends on the Jet keys of the prefix; its shape does not.
    if (V_BOOL(m_result.get()) == VARIANT_TRUE) {
        EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"HTML Export;\"",
                  BstrText(V_BSTR(connStr.get())));
        EXPECT_EQ(1, V_I4(connFlags.get()));
    } else {
        EXPECT_EQ(nullptr, V_BSTR(connStr.get()));
    }
}

TEST_F(CrossProcessDispatchTest, HelperTakesFormatTypeAsANamedArgument) {
    Variant connStr, connFlags;
    // rgvarg[0] is the named formatType; the others are positional.
    DispArgs args{RefVariant(connStr.get()), RefVariant(connFlags.get()), Variant(), Variant(), I4(99)};
    args.Name({kFormatType});
    ASSERT_EQ(S_OK, Call(m_helper.get(), kGetDbConnectionInfo, args));
    ASSERT_EQ(VT_BOOL, m_result.vt());
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(m_result.get())) << "format 99 is unknown";
    EXPECT_EQ(VT_BSTR, connStr.vt());

    DispArgs bad{RefVariant(connStr.get()), RefVariant(connFlags.get()), Variant(), Variant(), Str(L"abc")};
    bad.Name({kFormatType});
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Call(m_helper.get(), kGetDbConnectionInfo, bad));
    EXPECT_EQ(2u, m_argErr);

    DispArgs outOfRange{RefVariant(connStr.get()), RefVariant(connFlags.get()), Variant(), Variant(), I4(0)};
    outOfRange.Name({7});
    EXPECT_EQ(DISP_E_PARAMNOTFOUND, Call(m_helper.get(), kGetDbConnectionInfo, outOfRange));
    EXPECT_EQ(0u, m_argErr);
}

}  // namespace
