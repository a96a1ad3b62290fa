#include "tests/reliability/LockHolder.h"

namespace zel::test {
namespace {

constexpr DWORD kStartWait = 30000;
constexpr DWORD kEndWait = 15000;

std::wstring HolderPath() {
    std::wstring server = ServerExePath();
    return server.substr(0, server.find_last_of(L"\\/") + 1) + L"ZelLockHolder.exe";
}

}  // namespace

LockHolder::LockHolder(const wchar_t* mode, const std::wstring& file) {
    static LONG counter = 0;
    const std::wstring base = L"Local\\ZelLockHolder-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                              std::to_wstring(InterlockedIncrement(&counter));
    const std::wstring readyName = base + L"-ready", releaseName = base + L"-release";
    m_ready = CreateEventW(nullptr, TRUE, FALSE, readyName.c_str());
    m_release = CreateEventW(nullptr, TRUE, FALSE, releaseName.c_str());
    if (!m_ready || !m_release) return;
    m_process = std::make_unique<ChildProcess>(L"\"" + HolderPath() + L"\" " + mode + L" \"" + file + L"\" " +
                                               readyName + L" " + releaseName);
    if (!m_process->started()) return;
    HANDLE waits[] = {m_ready};
    const DWORD start = GetTickCount();
    while (GetTickCount() - start < kStartWait) {
        if (WaitForMultipleObjects(1, waits, FALSE, 100) == WAIT_OBJECT_0) {
            m_holding = true;
            return;
        }
        if (!m_process->running()) return;
    }
}

std::optional<DWORD> LockHolder::Release() {
    if (m_released || !m_process) return std::nullopt;
    m_released = true;
    if (m_release) SetEvent(m_release);
    if (!m_process->WaitForExit(kEndWait)) return std::nullopt;
    return m_process->ExitCode();
}

LockHolder::~LockHolder() {
    Release();
    m_process.reset();
    if (m_ready) CloseHandle(m_ready);
    if (m_release) CloseHandle(m_release);
}

}  // namespace zel::test
