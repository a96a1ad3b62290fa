// The server process as a client sees it: COM starts it as a 32-bit process, it stays while a
// client holds a reference (and, started by hand, while no client has come yet), and it ends
// as soon as the last reference is released. Started for COM (-Embedding), it ends by itself
// when no client comes. Every wait is bounded.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "server/ZelPmDb32Module.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using zel::ComPtr;

namespace {

constexpr DWORD kPromptExit = 3000;  // "at once", with room for a loaded machine
constexpr DWORD kIdleGrace = zel::CKobPmDb32Module::kIdleGrace;

// A script for Wine's cscript of this process's bitness, written to a temporary file.
class TempScript {
public:
    explicit TempScript(const std::string& text) {
        wchar_t folder[MAX_PATH], file[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        GetTempFileNameW(folder, L"zls", 0, file);
        m_path = std::wstring(file) + L".vbs";
        MoveFileExW(file, m_path.c_str(), MOVEFILE_REPLACE_EXISTING);
        HANDLE h = CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        DWORD written = 0;
        if (h != INVALID_HANDLE_VALUE) {
            WriteFile(h, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
            CloseHandle(h);
        }
        m_written = written == text.size();
    }
    ~TempScript() { DeleteFileW(m_path.c_str()); }
    bool written() const { return m_written; }
    // The command line that runs the script in a cscript of this process's bitness.
    std::wstring Command() const {
        wchar_t system[MAX_PATH];
        GetSystemDirectoryW(system, MAX_PATH);
        return L"\"" + std::wstring(system) + L"\\cscript.exe\" //nologo \"" + m_path + L"\"";
    }

private:
    std::wstring m_path;
    bool m_written = false;
};

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

TEST_F(ServerLifetimeTest, AServerStartedForComWithoutAClientEndsAfterTheIdleGrace) {
    const DWORD start = GetTickCount();
    ChildProcess child(L"\"" + ServerExePath() + L"\" -Embedding");
    ASSERT_TRUE(child.started());
    EXPECT_FALSE(child.WaitForExit(kIdleGrace - 1500)) << "the server ended before its idle grace was over";
    ASSERT_TRUE(child.WaitForExit(1500 + 5000)) << "the server did not end after its idle grace";
    EXPECT_EQ(0u, child.ExitCode());
    std::printf("an unused server ended %lu ms after its start\n", static_cast<unsigned long>(GetTickCount() - start));
}

TEST_F(ServerLifetimeTest, ASwitchOtherThanEmbeddingKeepsTheServerWaitingForAClient) {
    // Only COM's own switch makes the server give up on an absent client.
    ChildProcess child(L"\"" + ServerExePath() + L"\" -Embeddingx");
    ASSERT_TRUE(child.started());
    EXPECT_FALSE(child.WaitForExit(kIdleGrace + 2000)) << "the server ended without ever having a client";
    // A client then comes and goes, and the server ends with it (killing it instead would
    // leave its class objects registered with Wine's rpcss).
    ComPtr<IZelOleDbHelper> helper;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_ZelOleDbHelperImpl, helper, CLSCTX_LOCAL_SERVER));
    helper.reset();
    EXPECT_TRUE(child.WaitForExit(kPromptExit));
}

TEST_F(ServerLifetimeTest, AnAbandonedActivationLeavesNoServerBehind) {
    // A script client starts an activation and is killed as soon as the server process is
    // there, before it could use (or even get) its object.
    TempScript script("Set db = CreateObject(\"ZelPmDb32.ZelOleDbImpl.1\")\r\nWScript.Sleep 60000\r\n");
    ASSERT_TRUE(script.written());
    const std::vector<DWORD> before = ServerProcessIds();
    auto client = std::make_unique<ChildProcess>(script.Command());
    ASSERT_TRUE(client->started());
    auto server = WaitForNewServerProcess(before, 20000);
    client.reset();  // ends the client
    ASSERT_TRUE(server.has_value()) << "the activation started no server";
    auto took = WaitForProcessExit(*server, kIdleGrace + 8000);
    ASSERT_TRUE(took.has_value()) << "the server of the abandoned activation is still running";
    std::printf("the server of the abandoned activation ended after %lu ms\n", static_cast<unsigned long>(*took));
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
