// A host process for the reliability suites: a client of the out-of-process service object
// that a test starts, several at once or to kill it.
//
//   ZelReliabilityHost load CONNECTION HOST OPERATIONS SEED RESULT-FILE
//       runs the load mix (LoadWorker.h) and writes its report to RESULT-FILE (UTF-8):
//       "stats ...", "committed SEQ...", one "error TEXT" line per wrong answer;
//       exits 0 when there was none
//   ZelReliabilityHost hold FILE READY-EVENT
//       opens FILE, inserts rows in table "items" inside a transaction it never ends, keeps
//       three command handles (one on a row), signals READY-EVENT and waits to be killed
//       (at most two minutes)
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "common/Bstr.h"
#include "tests/reliability/LoadWorker.h"
#include "tests/reliability/ReliabilitySupport.h"

using namespace zel::test;

namespace {

int Load(int argc, wchar_t** argv) {
    if (argc != 7) return 2;
    LoadSettings settings;
    settings.connection = argv[2];
    settings.host = _wtoi(argv[3]);
    settings.operations = _wtoi(argv[4]);
    settings.seed = static_cast<unsigned>(_wtoi(argv[5]));
    const DWORD start = GetTickCount();
    LoadReport report = RunLoad(settings);
    const DWORD took = GetTickCount() - start;

    std::string text = "stats host=" + std::to_string(settings.host) + " operations=" + std::to_string(report.operations) +
                       " xml=" + std::to_string(report.xmlQueries) + " fetch=" + std::to_string(report.rowFetches) +
                       " catalog=" + std::to_string(report.catalogWalks) + " transactions=" +
                       std::to_string(report.transactions) + " rolledback=" + std::to_string(report.rolledBack) +
                       " autocommit=" + std::to_string(report.autocommitInserts) + " busy=" +
                       std::to_string(report.busyRetries) + " ms=" + std::to_string(took) + "\ncommitted";
    for (int seq : report.committed) text += " " + std::to_string(seq);
    text += "\n";
    for (const std::wstring& error : report.errors) text += "error " + ToUtf8(error) + "\n";
    HANDLE file = CreateFileW(argv[6], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return 3;
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return report.errors.empty() && report.operations == settings.operations ? 0 : 1;
}

int Hold(int argc, wchar_t** argv) {
    if (argc != 4) return 2;
    HANDLE ready = OpenEventW(EVENT_MODIFY_STATE, FALSE, argv[3]);
    if (!ready) return 3;
    ServiceClient client;
    if (client.Create() != S_OK || client.Open(ProviderConnection(argv[2])) != S_OK) return 4;
    ULONG handles[3] = {};
    for (ULONG& handle : handles) {
        client->CmdSetConnection(&handle);
        zel::Bstr sql(L"SELECT id, label FROM items ORDER BY id");
        client->CmdSetCommandText(handle, sql.get());
        Sleep(5);  // a tick apart, three handles
    }
    SHORT result = 0, moved = 0;
    zel::Bstr xml, errorText, errorStmt;
    client->CmdExecute(handles[0], &result, xml.put(), errorText.put(), errorStmt.put());
    client->CmdFetchFirst(handles[0], &moved);
    if (result != 1 || moved != 1) return 5;
    VARIANT_BOOL started = VARIANT_FALSE;
    client->ConStartTransaction(&started);
    if (started != VARIANT_TRUE) return 6;
    if (client.Execute(L"INSERT INTO items VALUES (1001, 'uncommitted 1', NULL)").result != 1 ||
        client.Execute(L"UPDATE items SET label = 'changed' WHERE id < 10").result != 1)
        return 7;
    SetEvent(ready);
    CloseHandle(ready);
    Sleep(120000);
    return 8;  // never killed
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 10;
    int code = 2;
    if (argc >= 2 && std::wstring(argv[1]) == L"load") code = Load(argc, argv);
    else if (argc >= 2 && std::wstring(argv[1]) == L"hold") code = Hold(argc, argv);
    else std::fprintf(stderr, "usage: ZelReliabilityHost load CONN HOST OPERATIONS SEED RESULT | hold FILE READY\n");
    CoUninitialize();
    return code;
}
