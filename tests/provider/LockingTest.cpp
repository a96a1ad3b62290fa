// Two processes writing one file: the second waits for SQLite's lock for the configured busy
// timeout and then fails with a clear error; a killed lock holder releases the file, and its
// unfinished transaction is rolled back. The lock holder is this test program started again
// with ZELLITE_TEST_LOCK_HOLDER set: it then only holds the lock and exits before any test runs.
#include <windows.h>
#include <oledb.h>
#include <transact.h>

#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using namespace zel::test;

constexpr wchar_t kHolderVariable[] = L"ZELLITE_TEST_LOCK_HOLDER";

std::wstring Environment(const wchar_t* name) {
    wchar_t buffer[1024];
    DWORD n = GetEnvironmentVariableW(name, buffer, 1024);
    return n && n < 1024 ? std::wstring(buffer, n) : std::wstring();
}

// In the holder process: "<connection string>|<held event>|<release event>". Takes the write
// lock with an uncommitted insert, signals, and commits once released (or is killed before).
void HoldLockAndExit(const std::wstring& request) {
    size_t a = request.find(L'|'), b = request.rfind(L'|');
    const std::wstring connection = request.substr(0, a);
    HANDLE held = OpenEventW(EVENT_MODIFY_STATE, FALSE, request.substr(a + 1, b - a - 1).c_str());
    HANDLE release = OpenEventW(SYNCHRONIZE, FALSE, request.substr(b + 1).c_str());
    int code = 1;
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    {
        zel::ComPtr<IDBInitialize> source;
        zel::ComPtr<IOpenRowset> session;
        if (SUCCEEDED(TryGetDataSource(connection, source)) && source && SUCCEEDED(source->Initialize()) &&
            SUCCEEDED(source.as<IDBCreateSession>()->CreateSession(nullptr, IID_IOpenRowset, session.put_unknown()))) {
            auto local = session.as<ITransactionLocal>();
            zel::ComPtr<ICommandText> command;
            session.as<IDBCreateCommand>()->CreateCommand(nullptr, IID_ICommandText, command.put_unknown());
            command->SetCommandText(DBGUID_DEFAULT, L"INSERT INTO t VALUES ('from the holder')");
            if (SUCCEEDED(local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr)) &&
                SUCCEEDED(command->Execute(nullptr, IID_NULL, nullptr, nullptr, nullptr))) {
                SetEvent(held);
                WaitForSingleObject(release, 30000);
                code = SUCCEEDED(local->Commit(FALSE, XACTTC_SYNC, 0)) ? 0 : 2;
            }
        }
    }
    CoUninitialize();
    ExitProcess(code);
}

const bool g_isHolder = [] {
    std::wstring request = Environment(kHolderVariable);
    if (!request.empty()) HoldLockAndExit(request);
    return false;
}();

class LockingAcrossProcesses : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE t (v TEXT(40))");
        const std::wstring tag = std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount());
        heldName = L"ZelLiteHeld-" + tag;
        releaseName = L"ZelLiteRelease-" + tag;
        held = CreateEventW(nullptr, TRUE, FALSE, heldName.c_str());
        release = CreateEventW(nullptr, TRUE, FALSE, releaseName.c_str());
    }
    void TearDown() override {
        SetEvent(release);
        if (process.hProcess) {
            WaitForSingleObject(process.hProcess, 30000);
            CloseHandle(process.hProcess);
            CloseHandle(process.hThread);
        }
        CloseHandle(held);
        CloseHandle(release);
    }
    void StartHolder() {
        wchar_t exe[MAX_PATH];
        GetModuleFileNameW(nullptr, exe, MAX_PATH);
        std::wstring command = L"\"" + std::wstring(exe) + L"\" --gtest_filter=-*";
        std::wstring request = db.ConnectionString() + L"|" + heldName + L"|" + releaseName;
        SetEnvironmentVariableW(kHolderVariable, request.c_str());
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        BOOL started = CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                      &startup, &process);
        SetEnvironmentVariableW(kHolderVariable, nullptr);
        ASSERT_TRUE(started);
        ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(held, 30000)) << "the holder process did not take the lock";
    }
    std::wstring Rows() { return ReadAllAsText(c.Query(L"SELECT group_concat(v, ',') FROM t").get())[0][0]; }

    TempDatabase db;
    Connection c;
    std::wstring heldName, releaseName;
    HANDLE held = nullptr, release = nullptr;
    PROCESS_INFORMATION process{};
};

TEST_F(LockingAcrossProcesses, AWriterWaitsForTheBusyTimeoutThenFailsWithTimeout) {
    StartHolder();
    auto writer = Connection::Open(db.ConnectionString(L"Busy Timeout=400"));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(DB_E_TIMEOUT, writer.TryExecute(L"INSERT INTO t VALUES ('from the writer')"));
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(350));
    EXPECT_LT(waited, std::chrono::seconds(10));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"HYT00", errors[0].sqlState);
    SetEvent(release);
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process.hProcess, 30000));
    DWORD code = 99;
    GetExitCodeProcess(process.hProcess, &code);
    EXPECT_EQ(0u, code);
    EXPECT_EQ(1, writer.Run(L"INSERT INTO t VALUES ('from the writer')"));
    EXPECT_EQ(L"from the holder,from the writer", Rows());
}

TEST_F(LockingAcrossProcesses, AKilledLockHolderReleasesTheFileAndLosesItsTransaction) {
    StartHolder();
    ASSERT_TRUE(TerminateProcess(process.hProcess, 9));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process.hProcess, 30000));
    auto writer = Connection::Open(db.ConnectionString(L"Busy Timeout=5000"));
    EXPECT_EQ(1, writer.Run(L"INSERT INTO t VALUES ('after the kill')"));
    EXPECT_EQ(L"after the kill", Rows());
}

}  // namespace
