// A second process running the server's service object in process on a database file of
// the embedded provider, to keep that file busy while a test drives the real server:
//
//   ZelLockHolder write FILE READY RELEASE   opens FILE, starts a transaction and inserts a
//                                            row into table "locks" (the write lock is held)
//   ZelLockHolder open FILE READY RELEASE    opens FILE and only keeps it open
//
// It signals the named event READY once the file is held, waits for the named event
// RELEASE (at most two minutes), rolls back and ends with 0; any failure ends it with 1.
#include <windows.h>

#include <cstdio>
#include <string>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "service/ZelOleDbImpl.h"
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel;
using namespace zel::test;

namespace {

constexpr DWORD kMaxHold = 120000;

int Fail(const char* what, const std::wstring& detail = L"") {
    std::printf("lock holder: %s %s\n", what, ToUtf8(detail).c_str());
    std::fflush(stdout);
    return 1;
}

int Hold(const std::wstring& mode, const std::wstring& file, const std::wstring& readyName,
         const std::wstring& releaseName) {
    HRESULT hr = RegisterEmbeddedProvider();
    if (FAILED(hr)) return Fail("the provider cannot be registered");
    HANDLE ready = OpenEventW(EVENT_MODIFY_STATE, FALSE, readyName.c_str());
    HANDLE release = OpenEventW(SYNCHRONIZE, FALSE, releaseName.c_str());
    if (!ready || !release) return Fail("the events cannot be opened");
    int code = 0;
    {
        ComPtr<IZelOleDb> db;
        if (FAILED(zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void())))
            return Fail("no service object");
        ServiceClient client(db);
        std::wstring errorText;
        if (client.Open(ProviderConnection(file), &errorText) != S_OK) return Fail("open failed", errorText);
        if (mode == L"write") {
            VARIANT_BOOL started = VARIANT_FALSE;
            db->ConStartTransaction(&started);
            if (started != VARIANT_TRUE) return Fail("no transaction");
            Outcome outcome = client.Execute(L"INSERT INTO locks VALUES ('held by the lock holder')");
            if (outcome.result != 1) return Fail("insert failed", outcome.errorText);
        }
        SetEvent(ready);
        if (WaitForSingleObject(release, kMaxHold) != WAIT_OBJECT_0) code = Fail("never released");
        if (mode == L"write") {
            VARIANT_BOOL rolledBack = VARIANT_FALSE;
            db->ConRollback(&rolledBack);
        }
        db->ConClose();
    }
    CloseHandle(ready);
    CloseHandle(release);
    return code;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 5 || (std::wstring(argv[1]) != L"write" && std::wstring(argv[1]) != L"open")) {
        std::fprintf(stderr, "usage: ZelLockHolder write|open FILE READY-EVENT RELEASE-EVENT\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return Fail("no COM");
    int code = Hold(argv[1], argv[2], argv[3], argv[4]);
    CoUninitialize();
    return code;
}
