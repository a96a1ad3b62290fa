// Handles and late-bound calls a host gets wrong: every handle-taking method refuses an
// unknown handle, a destroyed one and one of another family with E_FAIL (called through the
// vtable across the process boundary), and the dispatcher refuses wrong argument counts,
// types and named arguments for every method, without running it. Afterwards the live
// handles still work and the database is unchanged.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "common/Bstr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "tests/reliability/InterfaceMethods.h"
#include "tests/reliability/ServerFixture.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

const std::vector<DeclaredMethod>& Methods() {
    static const std::vector<DeclaredMethod> methods = LoadZelOleDbMethods(ServerExePath());
    return methods;
}

class BadHandleTest : public ServerFixture {
protected:
    void SetUp() override {
        ServerFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_EQ(86u, Methods().size()) << "the server's type library";
        Client().Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
        Client().Run(L"INSERT INTO parts VALUES (1, 'bolt'), (2, 'nut')");
        m_before = DatabaseSnapshot(Client());
    }

    // One live handle per family, each a number no other family uses. The enumerations are
    // opened on the parts table; their handle is registered whether or not the open worked.
    void OpenOnePerFamily() {
        for (int attempt = 0; attempt < 20; ++attempt) {
            Clear();
            ULONG command = 0;
            ASSERT_EQ(S_OK, Client()->CmdSetConnection(&command));
            Bstr text(L"SELECT id, name FROM parts ORDER BY id"), xml, errorText, errorStmt;
            ASSERT_EQ(S_OK, Client()->CmdSetCommandText(command, text.get()));
            SHORT result = 0;
            ASSERT_EQ(S_OK, Client()->CmdExecute(command, &result, xml.put(), errorText.put(), errorStmt.put()));
            ASSERT_EQ(1, result);
            SHORT moved = 0;
            ASSERT_EQ(S_OK, Client()->CmdFetchFirst(command, &moved));
            m_live[L"Cmd"] = command;
            Sleep(20);  // handles come from the millisecond tick
            Bstr empty(L""), table(L"parts");
            ULONG tables = 0, columns = 0, indexes = 0;
            Client()->TblOpen(&tables, empty.get(), empty.get(), table.get(), empty.get(), errorText.put(), errorStmt.put());
            m_live[L"Tbl"] = tables;
            Sleep(20);
            Client()->ColOpen(&columns, empty.get(), empty.get(), table.get(), empty.get(), VARIANT_TRUE, errorText.put(),
                              errorStmt.put());
            m_live[L"Col"] = columns;
            Sleep(20);
            Client()->IdxOpen(&indexes, empty.get(), empty.get(), table.get(), empty.get(), errorText.put(),
                              errorStmt.put());
            m_live[L"Idx"] = indexes;
            if (command != tables && command != columns && command != indexes && tables != columns &&
                tables != indexes && columns != indexes && tables && columns && indexes)
                return;
        }
        FAIL() << "four distinct handles could not be made";
    }

    void Clear() {
        for (const auto& [family, handle] : m_live) Destroy(family, handle);
        m_live.clear();
    }

    HRESULT Destroy(const std::wstring& family, ULONG handle) {
        if (family == L"Cmd") return Client()->CmdDestroy(handle);
        if (family == L"Tbl") return Client()->TblDestroy(handle);
        if (family == L"Col") return Client()->ColDestroy(handle);
        return Client()->IdxDestroy(handle);
    }

    // Every handle-taking method of `family` (all families when empty) called with `handle`.
    void ExpectEveryMethodRefuses(ULONG handle, const std::wstring& family, const char* what) {
        int called = 0;
        for (const DeclaredMethod& method : Methods()) {
            if (!method.TakesHandle() || (!family.empty() && method.Family() != family)) continue;
            VtableCall call(method, handle);
            EXPECT_EQ(E_FAIL, call.Invoke(Client().get())) << what << ": " << ToUtf8(method.name) << "(" << handle << ")";
            ++called;
        }
        EXPECT_GT(called, 0);
    }

    // The live handles still do their work: the command reads its current row.
    void ExpectLiveHandlesWork() {
        Bstr field;
        ASSERT_EQ(S_OK, Client()->CmdFieldAsString(m_live[L"Cmd"], 2, field.put()));
        EXPECT_EQ(L"bolt", field.str());
        SHORT moved = 0;
        ASSERT_EQ(S_OK, Client()->CmdFetchNext(m_live[L"Cmd"], &moved));
        EXPECT_EQ(1, moved);
        ASSERT_EQ(S_OK, Client()->CmdFieldAsString(m_live[L"Cmd"], 2, field.put()));
        EXPECT_EQ(L"nut", field.str());
        for (const auto& [family, handle] : m_live) EXPECT_EQ(S_OK, Destroy(family, handle)) << ToUtf8(family);
        m_live.clear();
        EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
    }

    void TearDown() override {
        Clear();
        ServerFixture::TearDown();
    }

    std::string m_before;
    std::map<std::wstring, ULONG> m_live;
};

TEST_F(BadHandleTest, EveryHandleMethodRefusesUnknownHandles) {
    OpenOnePerFamily();
    int methods = 0;
    for (const DeclaredMethod& method : Methods()) methods += method.TakesHandle() ? 1 : 0;
    EXPECT_EQ(68, methods) << "handle-taking methods in the type library";
    for (ULONG unknown : {0ul, 1ul, 0xDEADBEEFul, 0xFFFFFFFFul}) {
        bool live = false;
        for (const auto& [family, handle] : m_live) live = live || handle == unknown;
        if (!live) ExpectEveryMethodRefuses(unknown, L"", "unknown handle");
    }
    ExpectLiveHandlesWork();
}

TEST_F(BadHandleTest, EveryMethodOfAFamilyRefusesADestroyedHandle) {
    OpenOnePerFamily();
    const std::map<std::wstring, ULONG> destroyed = m_live;
    for (const auto& [family, handle] : destroyed) ASSERT_EQ(S_OK, Destroy(family, handle));
    m_live.clear();
    for (const auto& [family, handle] : destroyed) {
        ExpectEveryMethodRefuses(handle, family, "destroyed handle");
        EXPECT_EQ(E_FAIL, Destroy(family, handle)) << "a second destroy";
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadHandleTest, EveryMethodRefusesALiveHandleOfAnotherFamily) {
    OpenOnePerFamily();
    for (const auto& [owner, handle] : m_live)
        for (const wchar_t* family : {L"Cmd", L"Tbl", L"Col", L"Idx"})
            if (owner != family) ExpectEveryMethodRefuses(handle, family, "handle of another family");
    // Not even the destroy methods of the other families touched them.
    ExpectLiveHandlesWork();
}

TEST_F(BadHandleTest, NullReferencesAreRefusedBeforeTheyCrossTheBoundary) {
    // The proxy of the type library refuses a null reference parameter itself, so no method
    // runs; the server never sees it (BadInputNullPointerTest puts nulls into the object).
    OpenOnePerFamily();
    int refused = 0;
    for (const DeclaredMethod& method : Methods()) {
        for (size_t i = 0; i < method.params.size(); ++i) {
            if (method.params[i].type != VT_PTR) continue;
            const auto live = m_live.find(method.Family());
            VtableCall call(method, live == m_live.end() ? 0 : live->second);
            call.PassNull(i);
            const HRESULT hr = call.Invoke(Client().get());
            EXPECT_TRUE(FAILED(hr)) << ToUtf8(method.name + L" " + method.params[i].name) << " " << std::hex << hr;
            ++refused;
        }
    }
    EXPECT_EQ(85, refused);
    ExpectLiveHandlesWork();
}

TEST_F(BadHandleTest, AnOpenWithAnUnknownNonZeroHandleIssuesAFreshOne) {
    ULONG handle = 0xDEADBEEF;
    ASSERT_EQ(S_OK, Client()->CmdSetConnection(&handle));
    EXPECT_NE(0xDEADBEEFul, handle);
    EXPECT_EQ(E_FAIL, Client()->CmdDestroy(0xDEADBEEF));
    EXPECT_EQ(S_OK, Client()->CmdDestroy(handle));
}

// ---- late-bound calls with the wrong shape ----

class BadDispatchTest : public BadHandleTest {
protected:
    void SetUp() override {
        BadHandleTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_EQ(S_OK, ComPtr<IZelOleDb>(Client().get()).query(m_dispatch));
    }
    void TearDown() override {
        m_dispatch.reset();
        BadHandleTest::TearDown();
    }

    // Arguments in rgvarg order (reversed declaration order) for `method`, every one of its
    // declared type: handles 0, positions 1, texts "x", flags false, numbers 3, outs by
    // reference to VARIANTs of their own.
    std::vector<Variant> Arguments(const DeclaredMethod& method) {
        m_outs.clear();
        m_outs.resize(method.params.size());
        std::vector<Variant> args;
        for (size_t i = 0; i < method.params.size(); ++i) {
            const DeclaredParameter& p = method.params[i];
            if (p.Retval()) continue;
            if (p.type == VT_PTR && p.Out()) {
                args.push_back(RefVariant(m_outs[i].get()));
            } else if (p.type == VT_PTR || p.type == VT_VARIANT) {
                args.push_back(UI4(1));
            } else if (p.type == VT_BSTR) {
                args.push_back(Str(L"x"));
            } else if (p.type == VT_BOOL) {
                args.push_back(Bool(false));
            } else if (p.type == VT_UI8) {
                args.push_back(UI8(1));
            } else {
                args.push_back(I4(p.name == L"client" ? 0 : 3));
            }
        }
        std::reverse(args.begin(), args.end());
        return args;
    }

    HRESULT Invoke(DISPID id, std::vector<Variant>& args, UINT* argErr = nullptr, DISPID* named = nullptr,
                   UINT namedCount = 0) {
        DISPPARAMS params{};
        params.rgvarg = args.empty() ? nullptr : reinterpret_cast<VARIANT*>(args.data());
        params.cArgs = static_cast<UINT>(args.size());
        params.rgdispidNamedArgs = named;
        params.cNamedArgs = namedCount;
        Variant result;
        EXCEPINFO excep{};
        HRESULT hr = m_dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result.put(),
                                        &excep, argErr);
        SysFreeString(excep.bstrSource);
        SysFreeString(excep.bstrDescription);
        SysFreeString(excep.bstrHelpFile);
        return hr;
    }

    ComPtr<IDispatch> m_dispatch;
    std::vector<Variant> m_outs;
};

TEST_F(BadDispatchTest, EveryMethodRefusesOneArgumentTooManyOrTooFew) {
    for (const DeclaredMethod& method : Methods()) {
        SCOPED_TRACE(ToUtf8(method.name));
        std::vector<Variant> more = Arguments(method);
        more.insert(more.begin(), I4(7));
        EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(method.dispid, more));
        if (method.ArgumentCount() == 0) continue;
        std::vector<Variant> fewer = Arguments(method);
        fewer.erase(fewer.begin());
        EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(method.dispid, fewer));
    }
    std::vector<Variant> nine(9);
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, Invoke(13, nine));
    std::vector<Variant> none;
    for (DISPID unknown : {0, 87, -1, 1000, DISPID_VALUE}) EXPECT_EQ(DISP_E_MEMBERNOTFOUND, Invoke(unknown, none)) << unknown;
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadDispatchTest, EveryMethodRefusesNamedArguments) {
    for (const DeclaredMethod& method : Methods()) {
        if (method.ArgumentCount() == 0) continue;
        std::vector<Variant> args = Arguments(method);
        DISPID named[] = {0};
        EXPECT_EQ(DISP_E_NONAMEDARGS, Invoke(method.dispid, args, nullptr, named, 1)) << ToUtf8(method.name);
    }
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadDispatchTest, EveryInArgumentThatCannotBeConvertedIsNamedByItsIndex) {
    // An array of numbers converts to no scalar type and to no text (unlike one of bytes).
    Variant array;
    V_VT(array.get()) = VT_ARRAY | VT_I4;
    V_ARRAY(array.get()) = SafeArrayCreateVector(VT_I4, 0, 4);
    int checked = 0;
    for (const DeclaredMethod& method : Methods()) {
        const UINT count = method.ArgumentCount();
        UINT position = 0;
        for (const DeclaredParameter& p : method.params) {
            if (p.Retval()) continue;
            const UINT index = count - 1 - position;  // its rgvarg index
            ++position;
            if (p.type == VT_PTR || p.type == VT_VARIANT) continue;  // references and VARIANTs pass as they are
            SCOPED_TRACE(ToUtf8(method.name + L" " + p.name));
            std::vector<Variant> args = Arguments(method);
            args[index] = p.type == VT_BSTR ? array : Str(L"not a number");
            UINT argErr = 999;
            EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(method.dispid, args, &argErr));
            EXPECT_EQ(index, argErr);
            ++checked;
        }
    }
    EXPECT_GT(checked, 100);
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

TEST_F(BadDispatchTest, OutArgumentsOfTheWrongKindAreRefusedOrReplacedNeverWrittenThrough) {
    // CmdExecute on a live command: its out-parameters by reference of the wrong type are
    // refused; passed by value they get stand-ins and the statement runs.
    OpenOnePerFamily();
    const LONG handle = static_cast<LONG>(m_live[L"Cmd"]);
    double wrong = 0;
    std::vector<Variant> refusedArgs;
    refusedArgs.push_back(Ref(VT_R8, &wrong));  // errorStmt
    refusedArgs.push_back(Ref(VT_R8, &wrong));  // errorText
    refusedArgs.push_back(Ref(VT_R8, &wrong));  // xml
    refusedArgs.push_back(Ref(VT_R8, &wrong));  // result
    refusedArgs.push_back(I4(handle));
    UINT argErr = 999;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, Invoke(13, refusedArgs, &argErr));
    EXPECT_EQ(0.0, wrong);

    std::vector<Variant> byValue;
    for (int i = 0; i < 4; ++i) byValue.push_back(I4(0x10));  // values that are no addresses
    byValue.push_back(I4(handle));
    EXPECT_EQ(S_OK, Invoke(13, byValue));
    SHORT moved = 0;
    ASSERT_EQ(S_OK, Client()->CmdFetchFirst(m_live[L"Cmd"], &moved));
    ExpectLiveHandlesWork();
}

TEST_F(BadDispatchTest, TheHelperRefusesBadNamedArgumentsCountsAndTypes) {
    ComPtr<IDispatch> helper;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbHelperImpl, helper, CLSCTX_LOCAL_SERVER));
    Variant connStr, connFlags;
    std::vector<Variant> args;
    args.push_back(Variant());  // password
    args.push_back(Variant());  // username
    args.push_back(Str(L"zero"));  // formatType
    args.push_back(RefVariant(connFlags.get()));
    args.push_back(RefVariant(connStr.get()));
    DISPPARAMS params{reinterpret_cast<VARIANT*>(args.data()), nullptr, 5, 0};
    Variant result;
    UINT argErr = 999;
    EXPECT_EQ(DISP_E_TYPEMISMATCH,
              helper->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, &argErr));
    EXPECT_EQ(2u, argErr);
    args[2] = I4(0);
    DISPID named[] = {7};
    params.rgdispidNamedArgs = named;
    params.cNamedArgs = 1;
    argErr = 999;
    EXPECT_EQ(DISP_E_PARAMNOTFOUND,
              helper->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, &argErr));
    EXPECT_EQ(0u, argErr);
    params.rgdispidNamedArgs = nullptr;
    params.cNamedArgs = 0;
    params.cArgs = 4;
    EXPECT_EQ(DISP_E_BADPARAMCOUNT, helper->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, nullptr));
    params.cArgs = 5;
    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, helper->Invoke(2, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, nullptr));
    // And a good call still works.
    EXPECT_EQ(S_OK, helper->Invoke(1, IID_NULL, 0, DISPATCH_METHOD, &params, result.put(), nullptr, nullptr));
    EXPECT_EQ(VT_BSTR, connStr.vt());
    EXPECT_EQ(m_before, DatabaseSnapshot(Client()));
}

}  // namespace
