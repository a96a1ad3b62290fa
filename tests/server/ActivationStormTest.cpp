// Eight script clients started at once against a server that is not running yet, as a new
// user's hosts may be. Under Wine each activation that finds no class object registered
// starts a server process of its own, every one of them registers, and the clients take
// whichever registered first: every client must still be served, and every server process,
// used or not, must end after the clients left.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "server/ZelPmDb32Module.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;

namespace {

constexpr int kHosts = 8;
constexpr int kRounds = 3;
constexpr DWORD kHostTimeout = 90000;
// An unused server lives for its idle grace; one used at once ends with its client, but not
// before its least lifetime.
constexpr DWORD kServersGone =
    zel::CKobPmDb32Module::kIdleGrace + zel::CKobPmDb32Module::kLeastLifetime + 8000;

// One short query through a new service object; writes "ok" or what failed to the result file
// (argument 2) and exits with 0 only on "ok". Argument 1 is an empty database file.
constexpr const char* kHostScript = R"(On Error Resume Next
Dim fso, out, db, errText, errStmt, c, result, xml, status
Set fso = CreateObject("Scripting.FileSystemObject")
If Err.Number <> 0 Then WScript.Quit 4
Set out = fso.CreateTextFile(WScript.Arguments(1) & ".start", True)
out.WriteLine "started"
out.Close
status = "ok"
Set db = CreateObject("ZelPmDb32.ZelOleDbImpl.1")
If Err.Number <> 0 Then
  status = "CreateObject failed: " & Hex(Err.Number)
Else
  db.ConOpenFromInitializationString "Provider=ZelLite.OLEDB.1;Data Source=" & WScript.Arguments(0), False, errText, errStmt
  If Err.Number <> 0 Then status = "open failed: " & Hex(Err.Number) & " " & errText
  c = 0
  db.CmdSetConnection c
  db.CmdSetCommandText c, "SELECT 1 AS one"
  db.CmdExecute c, result, xml, errText, errStmt
  If status = "ok" And (Err.Number <> 0 Or result <> 1 Or InStr(xml, "C1=""1""") = 0) Then
    status = "query failed: " & Hex(Err.Number) & " " & errText
  End If
  db.CmdDestroy c
  db.ConClose
  Set db = Nothing
End If
Err.Clear
Set out = fso.CreateTextFile(WScript.Arguments(1), True)
out.WriteLine status
out.Close
If Err.Number <> 0 Then WScript.Quit 3
If status = "ok" Then WScript.Quit 0 Else WScript.Quit 1
)";

std::wstring TempFile(const wchar_t* prefix, const wchar_t* extension) {
    wchar_t folder[MAX_PATH], file[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    if (!GetTempFileNameW(folder, prefix, 0, file)) return L"";
    if (!*extension) return file;
    std::wstring renamed = std::wstring(file) + extension;
    return MoveFileExW(file, renamed.c_str(), MOVEFILE_REPLACE_EXISTING) ? renamed : L"";
}

bool WriteText(const std::wstring& path, const std::string& text) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const BOOL ok = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return ok && written == text.size();
}

// The first line of a short text file; empty when it cannot be read. A host's file may reach
// the disk a moment after the host process is seen to end, so an empty read is tried again.
std::string ReadLine(const std::wstring& path) {
    std::string text;
    for (int attempt = 0; attempt < 20 && text.empty(); ++attempt) {
        if (attempt) Sleep(100);
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) continue;
        char buffer[512];
        DWORD read = 0;
        if (ReadFile(file, buffer, sizeof buffer, &read, nullptr)) text.assign(buffer, read);
        CloseHandle(file);
    }
    return text.substr(0, text.find_first_of("\r\n"));
}

// Every server process of this build ends within `milliseconds`.
testing::AssertionResult ServersEnd(DWORD milliseconds) {
    const DWORD start = GetTickCount();
    for (DWORD id : ServerProcessIds()) {
        const DWORD spent = GetTickCount() - start;
        if (!WaitForProcessExit(id, spent < milliseconds ? milliseconds - spent : 0))
            return testing::AssertionFailure() << "server process " << id << " still runs after " << milliseconds
                                               << " ms";
    }
    return testing::AssertionSuccess();
}

class ActivationStormTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u));
        ASSERT_TRUE(RegisterProvider());
    }
};

TEST_F(ActivationStormTest, EightScriptHostsStartedTogetherAreAllServedAndNoServerStays) {
    const std::wstring script = TempFile(L"zas", L".vbs");
    ASSERT_FALSE(script.empty());
    ASSERT_TRUE(WriteText(script, kHostScript));
    wchar_t system[MAX_PATH];
    GetSystemDirectoryW(system, MAX_PATH);  // cscript of this process's bitness
    const std::wstring cscript = std::wstring(system) + L"\\cscript.exe";

    for (int round = 1; round <= kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_TRUE(ServersEnd(kServersGone)) << "a server from before the storm";
        std::vector<std::wstring> databases, results;
        std::vector<std::unique_ptr<ChildProcess>> hosts;
        for (int host = 0; host < kHosts; ++host) {
            databases.push_back(TempFile(L"zad", L""));
            results.push_back(TempFile(L"zar", L".txt"));
            ASSERT_FALSE(databases.back().empty() || results.back().empty());
        }
        auto command = [&](int host) {
            return L"\"" + cscript + L"\" //nologo \"" + script + L"\" \"" + databases[host] + L"\" \"" +
                   results[host] + L"\"";
        };
        const DWORD start = GetTickCount();
        for (int host = 0; host < kHosts; ++host) {
            hosts.push_back(std::make_unique<ChildProcess>(command(host)));
            ASSERT_TRUE(hosts.back()->started()) << "host " << host;
        }
        int rerun = 0;
        for (int pass = 0;; ++pass) {
            for (int host = 0; host < kHosts; ++host) {
                const DWORD spent = GetTickCount() - start;
                ASSERT_TRUE(hosts[host]->WaitForExit(spent < kHostTimeout ? kHostTimeout - spent : 0)) << "host " << host;
            }
            // Wine 8.0's cscript, started several times at once, now and then runs no script at
            // all and exits with 0. Such a host asked nothing of the server: it runs again.
            std::vector<int> idle;
            for (int host = 0; host < kHosts; ++host)
                if (ReadLine(results[host] + L".start").empty()) idle.push_back(host);
            if (idle.empty() || pass == 3) break;
            for (int host : idle) {
                hosts[host] = std::make_unique<ChildProcess>(command(host));
                ASSERT_TRUE(hosts[host]->started()) << "host " << host;
                ++rerun;
            }
        }
        const DWORD took = GetTickCount() - start;
        const std::vector<DWORD> servers = ServerProcessIds();
        int served = 0;
        for (int host = 0; host < kHosts; ++host) {
            const std::string status = ReadLine(results[host]);
            EXPECT_EQ("started", ReadLine(results[host] + L".start")) << "host " << host << " never ran its script";
            EXPECT_EQ("ok", status) << "host " << host;
            EXPECT_EQ(0u, hosts[host]->ExitCode()) << "host " << host;
            if (status == "ok") ++served;
        }
        const DWORD left = GetTickCount();
        EXPECT_TRUE(ServersEnd(kServersGone));
        std::printf("round %d: %d of %d hosts served in %lu ms (%d started again, their script never ran); %zu "
                    "server processes running when they were done; all ended %lu ms after the hosts\n",
                    round, served, kHosts, static_cast<unsigned long>(took), rerun, servers.size(),
                    static_cast<unsigned long>(GetTickCount() - left));
        for (int host = 0; host < kHosts; ++host) {
            DeleteFileW(databases[host].c_str());
            DeleteFileW(results[host].c_str());
            DeleteFileW((results[host] + L".start").c_str());
        }
    }
    DeleteFileW(script.c_str());
}

}  // namespace
