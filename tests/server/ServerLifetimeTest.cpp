// The server process as a client sees it: COM starts it as a 32-bit process, it stays while a
// client holds a reference (and, started by hand, while no client has come yet), and it ends
// as soon as the last reference is released. Every wait is bounded.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::ComPtr;

namespace {

constexpr DWORD kPromptExit = 3000;  // "at once", with room for a loaded machine

class ServerLifetimeTest : public testing::Test {
protected:
    void SetUp() override {
        for (DWORD id : ServerProcessIds()) ASSERT_TRUE(WaitForProcessExit(id, 10000)) << "server " << id;
        ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
    }

    // The ids of this build's servers other than `id`.
    static std::vector<DWORD> OthersThan(DWORD id) {
        std::vector<DWORD> others;
        for (DWORD other : ServerProcessIds())
            if (other != id) others.push_back(other);
        return others;
    }

};

TEST_F(ServerLifetimeTest, ActivationStartsTheServerAsA32BitProcess) {
    const std::vector<DWORD> before = ServerProcessIds();
    ComPtr<IZelOleDb> db;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, db, CLSCTX_LOCAL_SERVER));
    auto server = WaitForNewServerProcess(before, 2000);
    ASSERT_TRUE(server.has_value()) << "no new server process after activation";
    // On a 64-bit system every 32-bit process runs under WOW64, seen from either bitness.
    auto wow64 = ProcessIsWow64(*server);
    ASSERT_TRUE(wow64.has_value());
    EXPECT_TRUE(*wow64) << "the server is not a 32-bit process";
    BOOL clientWow64 = TRUE;
    ASSERT_TRUE(IsWow64Process(GetCurrentProcess(), &clientWow64));
    EXPECT_EQ(sizeof(void*) == 4, clientWow64 != FALSE) << "the client's own bitness";
    db.reset();
    EXPECT_TRUE(WaitForProcessExit(*server, kPromptExit));
}

TEST_F(ServerLifetimeTest, ReleasingTheLastReferenceEndsTheProcessAtOnce) {
    const std::vector<DWORD> before = ServerProcessIds();
    ComPtr<IZelOleDb> db;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, db, CLSCTX_LOCAL_SERVER));
    ComPtr<IZelOleDbHelper> helper;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbHelperImpl, helper, CLSCTX_LOCAL_SERVER));
    auto server = WaitForNewServerProcess(before, 2000);
    ASSERT_TRUE(server.has_value());
    EXPECT_TRUE(OthersThan(*server) == before) << "both objects must come from one server process";

    db.reset();
    Sleep(1000);
    EXPECT_TRUE(ProcessRunning(*server)) << "the server ended while the helper object was still held";

    helper.reset();
    auto took = WaitForProcessExit(*server, kPromptExit);
    ASSERT_TRUE(took.has_value()) << "the server did not end within " << kPromptExit << " ms of the last release";
    std::printf("server ended %lu ms after the last release\n", static_cast<unsigned long>(*took));
}

TEST_F(ServerLifetimeTest, AServerStartedWithoutAClientWaitsForOneThenEndsWithItsLastRelease) {
    const std::vector<DWORD> before = ServerProcessIds();
    ChildProcess child(L"\"" + ServerExePath() + L"\"");
    ASSERT_TRUE(child.started());
    // No idle time-out while no client has come.
    EXPECT_FALSE(child.WaitForExit(3000)) << "the server ended without ever having a client";

    ComPtr<IZelOleDb> db;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, db, CLSCTX_LOCAL_SERVER));
    VARIANT_BOOL connected = VARIANT_TRUE;
    EXPECT_EQ(S_OK, db->ConIsConnected(&connected));
    // The running server took the client: activation started no second process.
    std::vector<DWORD> now = ServerProcessIds();
    EXPECT_EQ(before.size() + 1, now.size()) << "activation started another server";
    EXPECT_TRUE(ProcessRunning(child.id()));

    db.reset();
    EXPECT_TRUE(child.WaitForExit(kPromptExit)) << "the server did not end after its client left";
    EXPECT_EQ(0u, child.ExitCode());
}

TEST_F(ServerLifetimeTest, RegServerXIsNotASwitchSoTheServerStartsAndRegistersNothing) {
    ASSERT_EQ(0u, RunServer(L"/UnregServer").value_or(~0u));
    const RegistrySnapshot clean = SnapshotMachineRegistration();
    ChildProcess child(L"\"" + ServerExePath() + L"\" /RegServerX");
    ASSERT_TRUE(child.started());
    EXPECT_FALSE(child.WaitForExit(3000)) << "/RegServerX ended with code " << child.ExitCode();
    EXPECT_EQ(L"", DescribeDifferences(clean, SnapshotMachineRegistration())) << "/RegServerX wrote to the registry";

    // It serves a client like any started server, and ends with its last release.
    ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
    const std::vector<DWORD> before = ServerProcessIds();
    ComPtr<IZelOleDbHelper> helper;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbHelperImpl, helper, CLSCTX_LOCAL_SERVER));
    EXPECT_EQ(before, ServerProcessIds()) << "activation started another server";
    helper.reset();
    EXPECT_TRUE(child.WaitForExit(kPromptExit));
    EXPECT_EQ(0u, child.ExitCode());
}

TEST_F(ServerLifetimeTest, ActivationRightAfterTheLastReleaseReachesAWorkingServer) {
    // The ending process must not take the next client: each activation gets a live object.
    for (int round = 0; round < 5; ++round) {
        ComPtr<IZelOleDb> db;
        ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbImpl, db, CLSCTX_LOCAL_SERVER)) << "round " << round;
        VARIANT_BOOL connected = VARIANT_TRUE;
        EXPECT_EQ(S_OK, db->ConIsConnected(&connected)) << "round " << round;
        EXPECT_EQ(VARIANT_FALSE, connected);
    }
    for (DWORD id : ServerProcessIds()) EXPECT_TRUE(WaitForProcessExit(id, kPromptExit)) << "server " << id;
}

}  // namespace
