// The server's registration switches, run as a separate process in the test prefix: what
// they write (both registry views, machine-wide and per user), that the spellings of a switch
// are one switch, that a registered server is reachable from this client, and that
// unregistration leaves the registry exactly as it was before registration.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::Bstr;
using zel::ComPtr;
using zel::Variant;

namespace {

std::wstring GuidText(REFGUID guid) {
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return text;
}

const std::wstring kMachine32 = L"[32] HKLM\\Software\\Classes\\";
const std::wstring kMachine64 = L"[64] HKLM\\Software\\Classes\\";

// An entry of a snapshot: a key ("path\") or a value ("path\:name", "path\:" the default).
std::wstring Key(const std::wstring& root, const std::wstring& path) { return root + path + L"\\"; }
std::wstring Value(const std::wstring& root, const std::wstring& path, const std::wstring& name = L"") {
    return root + path + L"\\:" + name;
}

class ServerRegistrationTest : public testing::Test {
protected:
    void SetUp() override {
        // No server of this build may still be running from an earlier test.
        for (DWORD id : ServerProcessIds()) ASSERT_TRUE(WaitForProcessExit(id, 10000)) << "server " << id;
        ASSERT_EQ(0u, RunServer(L"/UnregServer").value_or(~0u));
        m_clean = SnapshotMachineRegistration();
        m_cleanUser = SnapshotUserRegistration();
    }

    void ExpectClean(const char* when) {
        EXPECT_EQ(L"", DescribeDifferences(m_clean, SnapshotMachineRegistration())) << when;
        EXPECT_EQ(L"", DescribeDifferences(m_cleanUser, SnapshotUserRegistration())) << when;
    }

    RegistrySnapshot m_clean;
    RegistrySnapshot m_cleanUser;
};

TEST_F(ServerRegistrationTest, NothingOfTheServerIsRegisteredAfterUnregServer) {
    EXPECT_EQ(L"", RegisteredServerPath());
    for (const auto& [entry, value] : m_clean) {
        // Only keys that other programs may own can remain: none of the server's own.
        EXPECT_EQ(std::wstring::npos, entry.find(GuidText(CLSID_ZelOleDbImpl))) << testing::PrintToString(entry);
        EXPECT_EQ(std::wstring::npos, entry.find(L"ZelPmDb32.")) << testing::PrintToString(entry);
        EXPECT_EQ(std::wstring::npos, entry.find(GuidText(LIBID_ZelPmDb32Lib))) << testing::PrintToString(entry);
    }
}

TEST_F(ServerRegistrationTest, UnregServerTwiceSucceedsAndChangesNothing) {
    EXPECT_EQ(0u, RunServer(L"/UnregServer").value_or(~0u));
    ExpectClean("after a second /UnregServer");
}

TEST_F(ServerRegistrationTest, RegServerWritesBothClassesTheirProgIdsTheAppIdAndTheTypeLibrary) {
    ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
    const RegistrySnapshot s = SnapshotMachineRegistration();
    const std::wstring appId = GuidText(LIBID_ZelPmDb32Lib);
    const std::wstring server = L"sz:" + ServerExePath();
    const struct {
        REFCLSID clsid;
        const wchar_t* progId;
        const wchar_t* name;
    } classes[] = {{CLSID_ZelOleDbHelperImpl, L"ZelPmDb32.ZelOleDbHelperImpl.1", L"ZelOleDbHelperImpl Object"},
                   {CLSID_ZelOleDbImpl, L"ZelPmDb32.ZelOleDbImpl.1", L"ZelOleDbImpl Object"}};
    for (const auto& c : classes) {
        // A 32-bit program writes the CLSID keys into the 32-bit view.
        const std::wstring clsid = L"CLSID\\" + GuidText(c.clsid);
        EXPECT_EQ(std::wstring(L"sz:") + c.name, SnapshotValue(s, Value(kMachine32, clsid)));
        EXPECT_EQ(L"sz:" + appId, SnapshotValue(s, Value(kMachine32, clsid, L"AppID")));
        EXPECT_EQ(L"sz:apartment", SnapshotValue(s, Value(kMachine32, clsid, L"ThreadingModel")));
        EXPECT_EQ(std::wstring(L"sz:") + c.progId, SnapshotValue(s, Value(kMachine32, clsid + L"\\ProgID")));
        EXPECT_EQ(L"(key)", SnapshotValue(s, Key(kMachine32, clsid + L"\\Programmable")));
        EXPECT_EQ(0, _wcsicmp(server.c_str(), SnapshotValue(s, Value(kMachine32, clsid + L"\\LocalServer32")).c_str()))
            << testing::PrintToString(SnapshotValue(s, Value(kMachine32, clsid + L"\\LocalServer32")));
        EXPECT_EQ(L"sz:" + appId, SnapshotValue(s, Value(kMachine32, clsid + L"\\TypeLib")));
        // ProgID keys are shared by both views: a 32-bit process sees them in either view. A
        // 64-bit process of Wine 8.0 that asks for the 32-bit view explicitly does not find
        // them there; it reads its own view, as CLSIDFromProgID does.
        std::vector<std::wstring> progIdRoots{kMachine64};
        if (sizeof(void*) == 4) progIdRoots.push_back(kMachine32);
        for (const std::wstring& root : progIdRoots) {
            EXPECT_EQ(std::wstring(L"sz:") + c.name, SnapshotValue(s, Value(root, c.progId)));
            EXPECT_EQ(L"sz:" + GuidText(c.clsid),
                      SnapshotValue(s, Value(root, std::wstring(c.progId) + L"\\CLSID")));
        }
    }
    for (const std::wstring& root : {kMachine32, kMachine64}) {
        EXPECT_EQ(L"sz:ZelPmDb32", SnapshotValue(s, Value(root, L"AppID\\" + appId)));
        EXPECT_EQ(L"sz:" + appId, SnapshotValue(s, Value(root, L"AppID\\ZelPmDb32.EXE", L"AppID")));
        EXPECT_EQ(L"sz:ZelPmDb32 1.0 Type Library", SnapshotValue(s, Value(root, L"TypeLib\\" + appId + L"\\1.0")));
        EXPECT_NE(L"", SnapshotValue(s, Value(root, L"TypeLib\\" + appId + L"\\1.0\\0\\win32")));
        // Both interfaces are marshalled by the type library, for clients of either bitness.
        for (REFIID iid : {IID_IZelOleDb, IID_IZelOleDbHelper})
            EXPECT_EQ(L"sz:{00020424-0000-0000-C000-000000000046}",
                      SnapshotValue(s, Value(root, L"Interface\\" + GuidText(iid) + L"\\ProxyStubClsid32")));
    }
    EXPECT_EQ(0u, RunServer(L"/UnregServer").value_or(~0u));
    ExpectClean("after /UnregServer");
}

TEST_F(ServerRegistrationTest, LowerCaseSlashAndDashSpellingsAreTheSameSwitch) {
    ASSERT_EQ(0u, RunServer(L"/regserver").value_or(~0u));
    const RegistrySnapshot lower = SnapshotMachineRegistration();
    EXPECT_NE(L"", DescribeDifferences(m_clean, lower)) << "/regserver registered nothing";
    ASSERT_EQ(0u, RunServer(L"-UNREGSERVER").value_or(~0u));
    ExpectClean("after -UNREGSERVER");
    ASSERT_EQ(0u, RunServer(L"-RegServer").value_or(~0u));
    EXPECT_EQ(L"", DescribeDifferences(lower, SnapshotMachineRegistration())) << "-RegServer differs from /regserver";
    ASSERT_EQ(0u, RunServer(L"/unregserver").value_or(~0u));
    ExpectClean("after /unregserver");
}

TEST_F(ServerRegistrationTest, RegistrationUseAndUnregistrationLeaveTheRegistryAsItWas) {
    ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
    const std::vector<DWORD> before = ServerProcessIds();
    {
        ComPtr<IZelOleDb> db;
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, db, CLSCTX_LOCAL_SERVER));
        VARIANT_BOOL connected = VARIANT_TRUE;
        EXPECT_EQ(S_OK, db->ConIsConnected(&connected));
        EXPECT_EQ(VARIANT_FALSE, connected);
        ComPtr<IZelOleDbHelper> helper;
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbHelperImpl, helper, CLSCTX_LOCAL_SERVER));
        Bstr connStr;
        LONG flags = 7;
        VARIANT_BOOL known = VARIANT_TRUE;
        Variant none;
        EXPECT_EQ(S_OK, helper->GetDbConnectionInfo(connStr.put(), &flags, kAccess, *none.get(), *none.get(), &known));
        auto server = WaitForNewServerProcess(before, 1000);
        ASSERT_TRUE(server.has_value());
        db.reset();
        helper.reset();
        EXPECT_TRUE(WaitForProcessExit(*server, 5000)) << "the server outlived its last client";
    }
    ASSERT_EQ(0u, RunServer(L"/UnregServer").value_or(~0u));
    ExpectClean("after registration, use and unregistration");
}

TEST_F(ServerRegistrationTest, PerUserRegistrationWritesTheUsersClassesAndUnregistrationRemovesThem) {
    ASSERT_EQ(0u, RunServer(L"/RegServerPerUser").value_or(~0u));
    const RegistrySnapshot user = SnapshotUserRegistration();
    const std::wstring appId = GuidText(LIBID_ZelPmDb32Lib);
    const std::wstring clsid = L"CLSID\\" + GuidText(CLSID_ZelOleDbImpl);
    // The CLSID keys may land in either view of the user's classes; the shared keys in both.
    std::wstring localServer;
    for (const wchar_t* root : {L"[32] HKCU\\Software\\Classes\\", L"[64] HKCU\\Software\\Classes\\"}) {
        std::wstring value = SnapshotValue(user, Value(root, clsid + L"\\LocalServer32"));
        if (!value.empty()) localServer = value;
        EXPECT_EQ(L"sz:ZelOleDbImpl Object", SnapshotValue(user, Value(root, L"ZelPmDb32.ZelOleDbImpl.1")));
        EXPECT_EQ(L"sz:" + GuidText(CLSID_ZelOleDbHelperImpl),
                  SnapshotValue(user, Value(root, L"ZelPmDb32.ZelOleDbHelperImpl.1\\CLSID")));
        EXPECT_EQ(L"sz:ZelPmDb32", SnapshotValue(user, Value(root, L"AppID\\" + appId)));
        EXPECT_EQ(L"sz:" + appId, SnapshotValue(user, Value(root, L"AppID\\ZelPmDb32.EXE", L"AppID")));
    }
    EXPECT_EQ(0, _wcsicmp((L"sz:" + ServerExePath()).c_str(), localServer.c_str()))
        << testing::PrintToString(localServer);
    // The machine-wide classes are not touched by the per-user switch.
    EXPECT_EQ(L"", RegisteredServerPath());

    ASSERT_EQ(0u, RunServer(L"/UnregServerPerUser").value_or(~0u));
    ExpectClean("after /UnregServerPerUser");
}

}  // namespace
