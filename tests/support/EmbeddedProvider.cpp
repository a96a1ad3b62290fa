#include "tests/support/EmbeddedProvider.h"

#include <shellapi.h>

namespace zel::test {

HRESULT RegisterEmbeddedProvider() {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return HRESULT_FROM_WIN32(GetLastError());
    std::wstring dll(path, length);
    dll = dll.substr(0, dll.find_last_of(L"\\/") + 1) + L"ZelLite.dll";
    HMODULE module = LoadLibraryW(dll.c_str());
    if (!module) return HRESULT_FROM_WIN32(GetLastError());
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    // Through void*: FARPROC and the export's own type are different function types.
    auto registerServer =
        reinterpret_cast<RegisterFunction>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    return registerServer ? registerServer() : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
}

ScratchDatabase::ScratchDatabase(const wchar_t* fileName) {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    // Process ids come back (Wine hands out small ones again soon), and a directory an earlier
    // process could not delete may still be there: the name is taken only by creating it anew.
    static LONG counter = 0;
    for (;;) {
        m_directory = std::wstring(temp) + L"zeltest-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                      std::to_wstring(InterlockedIncrement(&counter));
        if (CreateDirectoryW(m_directory.c_str(), nullptr) || GetLastError() != ERROR_ALREADY_EXISTS) break;
    }
    m_path = m_directory + L"\\" + fileName;
    HANDLE file = CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
}

ScratchDatabase::~ScratchDatabase() {
    // SHFileOperation wants a double-NUL-terminated list.
    std::wstring from = m_directory + L'\0';
    SHFILEOPSTRUCTW op = {};
    op.wFunc = FO_DELETE;
    op.pFrom = from.c_str();
    op.fFlags = FOF_NO_UI;
    SHFileOperationW(&op);
}

std::wstring ScratchDatabase::ConnectionString(const std::wstring& extra) const {
    return L"Provider=ZelLite.OLEDB.1;Data Source=" + m_path + extra;
}

}  // namespace zel::test
