#include "server/ClientWatch.h"

#include <windows.h>
#include <tlhelp32.h>

#include <cwchar>

#include "common/Win32Handles.h"

namespace zel {
namespace {

constexpr wchar_t kConnectionThread[] = L"wine_rpcrt4_io";

using GetThreadDescriptionFunction = HRESULT(WINAPI*)(HANDLE, PWSTR*);

GetThreadDescriptionFunction ThreadDescriptionReader() noexcept {
    HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    if (!kernel) return nullptr;
    // Through void*: FARPROC and the function's own type are different function types.
    return reinterpret_cast<GetThreadDescriptionFunction>(
        reinterpret_cast<void*>(GetProcAddress(kernel, "GetThreadDescription")));
}

}  // namespace

bool ClientWatch::Observe(unsigned connections) noexcept {
    if (connections > 0) {
        m_seen = true;
        m_quiet = 0;
        return false;
    }
    if (!m_seen) return m_judgeUnseen && ++m_quiet >= kUnseenObservations;
    return ++m_quiet >= kQuietObservations;
}

bool ConnectionThreadsAreVisible() noexcept {
    // Wine's ntdll exports its version; Windows' does not.
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") && ThreadDescriptionReader();
}

unsigned CountClientConnections() noexcept {
    static const GetThreadDescriptionFunction describe = ThreadDescriptionReader();
    if (!describe) return 0;
    UniqueHandle snapshot = AdoptFileHandle(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    if (!snapshot) return 0;
    const DWORD self = GetCurrentProcessId();
    unsigned count = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Thread32First(snapshot.get(), &entry); more; more = Thread32Next(snapshot.get(), &entry)) {
        if (entry.th32OwnerProcessID != self) continue;
        UniqueHandle thread(OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, entry.th32ThreadID));
        if (!thread) continue;
        PWSTR description = nullptr;
        // Wine answers with a success code other than S_OK; what counts is the text.
        if (SUCCEEDED(describe(thread.get(), &description)) && description) {
            if (std::wcscmp(description, kConnectionThread) == 0) ++count;
            LocalFree(description);
        }
    }
    return count;
}

}  // namespace zel
