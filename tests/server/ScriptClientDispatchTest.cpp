// The IZelOleDb dispatcher driven by the platform's VBScript engine, hosted in-process over
// the recording stand-in: a script passes literals by value and every variable by reference
// (VT_BYREF|VT_VARIANT), [in,out] handles included, and must get usable values back. The
// script reports what it sees through CmdSetCommandText, which the stand-in records.
#include <windows.h>
#include <activscp.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "automation/Dispatch.h"
#include "common/ComObject.h"
#include "common/ComPtr.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/FakeZelOleDb.h"

using namespace zel::test;
using zel::ComObject;
using zel::ComPtr;

namespace {

const CLSID kVBScriptEngine = {0xB54F3741, 0x5B07, 0x11cf, {0xA4, 0xB0, 0x00, 0xAA, 0x00, 0x4A, 0x55, 0xE8}};

// The object the script knows as "db": late-bound IZelOleDb over the stand-in.
class ScriptableDb final : public ComObject<ScriptableDb, IDispatch> {
public:
    static constexpr bool kModuleLock = false;
    ComPtr<FakeZelOleDb> fake = FakeZelOleDb::Make();

    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        return zel::ZelOleDbGetIDsOfNames(names, count, ids);
    }
    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT* result, EXCEPINFO* excep,
                        UINT* argErr) override {
        return zel::ZelOleDbInvoke(fake.get(), id, params, result, excep, argErr);
    }
};

class Site final : public ComObject<Site, IActiveScriptSite> {
public:
    static constexpr bool kModuleLock = false;
    ComPtr<ScriptableDb> db;
    std::vector<std::wstring> errors;

    STDMETHODIMP GetLCID(LCID*) override { return E_NOTIMPL; }
    STDMETHODIMP GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo** info) override {
        if (wcscmp(name, L"db") != 0) return TYPE_E_ELEMENTNOTFOUND;
        if ((mask & SCRIPTINFO_IUNKNOWN) && item) {
            *item = static_cast<IDispatch*>(db.get());
            (*item)->AddRef();
        }
        if ((mask & SCRIPTINFO_ITYPEINFO) && info) *info = nullptr;
        return S_OK;
    }
    STDMETHODIMP GetDocVersionString(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP OnScriptTerminate(const VARIANT*, const EXCEPINFO*) override { return S_OK; }
    STDMETHODIMP OnStateChange(SCRIPTSTATE) override { return S_OK; }
    STDMETHODIMP OnScriptError(IActiveScriptError* error) override {
        EXCEPINFO excep{};
        error->GetExceptionInfo(&excep);
        errors.push_back(BstrText(excep.bstrDescription));
        SysFreeString(excep.bstrSource);  // EXCEPINFO strings handed over by the engine
        SysFreeString(excep.bstrDescription);
        SysFreeString(excep.bstrHelpFile);
        return S_OK;
    }
    STDMETHODIMP OnEnterScript() override { return S_OK; }
    STDMETHODIMP OnLeaveScript() override { return S_OK; }
};

class ScriptClientTest : public testing::Test {
protected:
    // Runs `code` and returns the texts it reported with `Say`.
    std::vector<std::wstring> Run(const std::wstring& code) {
        ComPtr<IActiveScript> engine;
        HRESULT hr = CoCreateInstance(kVBScriptEngine, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IActiveScript),
                                      engine.put_void());
        EXPECT_EQ(S_OK, hr) << "the VBScript engine";
        if (FAILED(hr)) return {};
        ComPtr<IActiveScriptParse> parse;
        EXPECT_EQ(S_OK, engine->QueryInterface(__uuidof(IActiveScriptParse), parse.put_void()));
        EXPECT_EQ(S_OK, parse->InitNew());
        EXPECT_EQ(S_OK, engine->SetScriptSite(static_cast<IActiveScriptSite*>(m_site.get())));
        EXPECT_EQ(S_OK, engine->AddNamedItem(L"db", SCRIPTITEM_ISVISIBLE));
        const std::wstring script = L"Sub Say(text)\n  db.CmdSetCommandText 1, text\nEnd Sub\n" + code;
        EXPECT_EQ(S_OK, parse->ParseScriptText(script.c_str(), nullptr, nullptr, nullptr, 0, 0, 0, nullptr, nullptr));
        EXPECT_EQ(S_OK, engine->SetScriptState(SCRIPTSTATE_CONNECTED));
        engine->Close();

        std::vector<std::wstring> said;
        for (const RecordedCall& call : m_site->db->fake->calls) {
            if (call.method == "CmdSetCommandText" && call.args.size() == 2)
                said.push_back(BstrText(V_BSTR(call.args[1].get())));
        }
        return said;
    }
    const std::vector<RecordedCall>& Calls() { return m_site->db->fake->calls; }

    void SetUp() override { m_site->db = ScriptableDb::Make(); }
    void TearDown() override { EXPECT_TRUE(m_site->errors.empty()) << testing::PrintToString(m_site->errors); }

    ComPtr<Site> m_site = Site::Make();
};

}  // namespace

TEST_F(ScriptClientTest, InOutHandleVariableComesBackHoldingTheNewHandle) {
    const auto said = Run(L"Dim h\nh = 0\ndb.CmdSetConnection h\nSay h & \" \" & VarType(h)\n");
    EXPECT_EQ((std::vector<std::wstring>{std::to_wstring(static_cast<LONG>(kIssuedHandle)) + L" 3"}), said);
    ASSERT_FALSE(Calls().empty());
    EXPECT_EQ("CmdSetConnection", Calls().front().method);
    EXPECT_EQ(0u, V_UI4(Calls().front().args[0].get()));
}

TEST_F(ScriptClientTest, InOutHandleVariableHoldingAHandleCarriesItIn) {
    const auto said = Run(L"Dim h\nh = 4711\ndb.TblOpen h, \"\", \"\", \"\", \"TABLE\", e1, e2\nSay h\n");
    EXPECT_EQ((std::vector<std::wstring>{L"4711"}), said);
    ASSERT_FALSE(Calls().empty());
    EXPECT_EQ("TblOpen", Calls().front().method);
    EXPECT_EQ(4711u, V_UI4(Calls().front().args[0].get()));
}

TEST_F(ScriptClientTest, OutStringVariablesReceiveTheMethodsText) {
    const auto said = Run(L"Dim s\ndb.ConGetDatasource s\nSay s & \" \" & VarType(s)\n");
    EXPECT_EQ((std::vector<std::wstring>{OutTextAt(0) + L" 8"}), said);
}

TEST_F(ScriptClientTest, ExecuteFillsTheResultNumberAndTheStrings) {
    const auto said = Run(L"Dim r, x, t, st\ndb.CmdExecute 5, r, x, t, st\nSay r & \" \" & VarType(r) & \" \" & st\n");
    EXPECT_EQ((std::vector<std::wstring>{std::to_wstring(OutShortAt(1)) + L" 2 " + OutTextAt(4)}), said);
}

TEST_F(ScriptClientTest, SmallIntegerLiteralServesAsColumnPosition) {
    const auto said = Run(L"Say db.CmdFieldAsString(5, 2)\n");
    EXPECT_EQ((std::vector<std::wstring>{kResultText}), said);
    ASSERT_FALSE(Calls().empty());
    EXPECT_EQ(VT_UI8, Calls().front().args[1].vt());
    EXPECT_EQ(2u, V_UI8(Calls().front().args[1].get()));
}

TEST_F(ScriptClientTest, UnsignedSixtyFourBitResultCanBePrintedAndComparedThroughCDbl) {
    // The platform's VBScript prints a VT_UI8 and converts it with CDbl; comparing it
    // directly is not something a script can rely on.
    const auto said = Run(L"Dim n\nn = db.CmdGetColumnCount(5)\nSay \"\" & n\nSay CStr(CDbl(n) = 4294967301)\n");
    EXPECT_EQ((std::vector<std::wstring>{std::to_wstring(kResultUInt64), L"True"}), said);
}

TEST_F(ScriptClientTest, SignedSixtyFourBitResultCanBePrinted) {
    const auto said = Run(L"Dim n\nn = db.CmdGetRowsAffected(5)\nSay \"\" & n\n");
    EXPECT_EQ((std::vector<std::wstring>{std::to_wstring(kResultInt64)}), said);
}

TEST_F(ScriptClientTest, UnknownMethodNameIsAScriptError) {
    Run(L"On Error Resume Next\ndb.NoSuchMethod 1\nSay Hex(Err.Number)\n");
    ASSERT_FALSE(Calls().empty());
    EXPECT_EQ(L"1B6", BstrText(V_BSTR(Calls().back().args[1].get())));  // 438: object doesn't support it
}
