// Null pointers and unknown handles handed straight to the service object's vtable, in
// process (across the process boundary the proxy refuses a null out-pointer before the server
// sees it): a null result pointer is refused with E_FAIL and nothing is written, a null
// error-text pointer is skipped while the method still does its work, and an unknown handle
// leaves every out-parameter untouched. All 86 methods, every reference parameter.
#include "service/ZelOleDbImpl.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "common/Bstr.h"
#include "tests/reliability/InterfaceMethods.h"
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/server/ServerProcessSupport.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel;
using namespace zel::test;

namespace {

const std::vector<DeclaredMethod>& Methods() {
    static const std::vector<DeclaredMethod> methods = LoadZelOleDbMethods(ServerExePath());
    return methods;
}

bool IsResultText(const DeclaredParameter& p) {
    // The string out-parameters a method writes only when the pointer is not null.
    return p.type == VT_PTR && p.pointee == VT_BSTR && !p.Retval();
}

class NullPointerTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, RegisterEmbeddedProvider()); }

    void SetUp() override {
        ASSERT_EQ(86u, Methods().size()) << "the server's type library";
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, m_db.put_void()));
        ServiceClient client(m_db);
        ASSERT_EQ(S_OK, client.Open(m_database.ConnectionString()));
        client.Run(L"CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))");
        client.Run(L"INSERT INTO parts VALUES (1, 'bolt'), (2, 'nut')");
        ULONG command = 0;
        ASSERT_EQ(S_OK, m_db->CmdSetConnection(&command));
        Bstr text(L"SELECT id, name FROM parts ORDER BY id"), xml, errorText, errorStmt;
        ASSERT_EQ(S_OK, m_db->CmdSetCommandText(command, text.get()));
        SHORT result = 0;
        ASSERT_EQ(S_OK, m_db->CmdExecute(command, &result, xml.put(), errorText.put(), errorStmt.put()));
        m_handles[L"Cmd"] = command;
        Bstr empty(L""), table(L"parts");
        m_db->TblOpen(&m_handles[L"Tbl"], empty.get(), empty.get(), table.get(), empty.get(), errorText.put(),
                      errorStmt.put());
        m_db->ColOpen(&m_handles[L"Col"], empty.get(), empty.get(), table.get(), empty.get(), VARIANT_TRUE,
                      errorText.put(), errorStmt.put());
        m_db->IdxOpen(&m_handles[L"Idx"], empty.get(), empty.get(), table.get(), empty.get(), errorText.put(),
                      errorStmt.put());
    }

    // A call of `method` on its family's live handle, with texts that keep the methods that
    // act on files and connections harmless: re-open the same database, create new files in
    // the scratch folder only.
    std::unique_ptr<VtableCall> MakeCall(const DeclaredMethod& method) {
        auto call = std::make_unique<VtableCall>(method, m_handles[method.Family()]);
        if (method.name == L"ConOpenFromInitializationString") call->PassText(0, m_database.ConnectionString());
        if (method.name == L"ConCreateMdbFile") {
            call->PassText(0, L"Provider=ZelLite.OLEDB.1");
            call->PassText(1, m_database.Directory() + L"\\new" + std::to_wstring(++m_files) + L".db");
        }
        return call;
    }

    ScratchDatabase m_database;
    ComPtr<IZelOleDb> m_db;
    std::map<std::wstring, ULONG> m_handles;
    int m_files = 0;
};

TEST_F(NullPointerTest, EveryReferenceParameterOfEveryMethodMayBeNull) {
    int checked = 0;
    for (const DeclaredMethod& method : Methods()) {
        for (size_t i = 0; i < method.params.size(); ++i) {
            const DeclaredParameter& p = method.params[i];
            if (p.type != VT_PTR) continue;
            SCOPED_TRACE(ToUtf8(method.name + L" " + p.name));
            HRESULT normal = MakeCall(method)->Invoke(m_db.get());
            auto call = MakeCall(method);
            call->PassNull(i);
            HRESULT hr = call->Invoke(m_db.get());
            ++checked;
            if (IsResultText(p) || (method.name == L"TblGetDef" && p.Retval())) {
                // Skipped silently: the method does what it does with the pointer given.
                EXPECT_EQ(normal, hr);
                continue;
            }
            // A result, a handle or a column that is missing: refused, nothing written.
            EXPECT_EQ(E_FAIL, hr);
            for (size_t other = 0; other < method.params.size(); ++other) {
                if (other != i && method.params[other].Out() && !method.params[other].In()) {
                    EXPECT_FALSE(call->Written(other)) << "parameter " << other << " was written";
                }
            }
        }
    }
    EXPECT_EQ(85, checked) << "reference parameters in the type library";
    // The object still serves.
    VARIANT_BOOL connected = VARIANT_FALSE;
    ASSERT_EQ(S_OK, m_db->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_TRUE, connected);
    EXPECT_EQ(L"2", ServiceClient(m_db).Scalar(L"SELECT COUNT(*) FROM parts"));
}

TEST_F(NullPointerTest, AnUnknownHandleLeavesEveryOutParameterUntouched) {
    int checked = 0;
    for (const DeclaredMethod& method : Methods()) {
        if (!method.TakesHandle()) continue;
        VtableCall call(method, 0xDEADBEEF);
        EXPECT_EQ(E_FAIL, call.Invoke(m_db.get())) << ToUtf8(method.name);
        for (size_t i = 0; i < method.params.size(); ++i) {
            if (method.params[i].Out()) {
                EXPECT_FALSE(call.Written(i)) << ToUtf8(method.name) << " parameter " << i;
            }
        }
        ++checked;
    }
    EXPECT_EQ(68, checked);
}

TEST_F(NullPointerTest, TheUnknownAndDispatchSlotsRefuseNullPointers) {
    EXPECT_EQ(E_POINTER, m_db->QueryInterface(IID_IUnknown, nullptr));
    EXPECT_EQ(E_POINTER, m_db->GetTypeInfoCount(nullptr));
    EXPECT_EQ(DISP_E_BADVARTYPE, m_db->Invoke(5, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr));
    DISPID id = 0;
    EXPECT_EQ(S_OK, m_db->GetIDsOfNames(IID_NULL, nullptr, 0, 0, &id));
    // A call without a result VARIANT, EXCEPINFO or argument-error pointer still runs.
    DISPPARAMS none{};
    EXPECT_EQ(S_OK, m_db->Invoke(5, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr));
    DISPPARAMS wrong{};
    VARIANT text;
    V_VT(&text) = VT_BSTR;
    V_BSTR(&text) = nullptr;
    wrong.rgvarg = &text;
    wrong.cArgs = 1;
    EXPECT_EQ(DISP_E_TYPEMISMATCH, m_db->Invoke(17, IID_NULL, 0, DISPATCH_METHOD, &wrong, nullptr, nullptr, nullptr))
        << "a null text as handle, no argument-error pointer";
}

}  // namespace
