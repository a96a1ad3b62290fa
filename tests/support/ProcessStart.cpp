#include "tests/support/ProcessStart.h"

namespace zel::test {

DWORD StartProcess(const wchar_t* application, std::wstring& commandLine, bool inheritHandles, DWORD flags,
                   STARTUPINFOW& startup, PROCESS_INFORMATION& info) {
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (CreateProcessW(application, commandLine.data(), nullptr, nullptr, inheritHandles ? TRUE : FALSE, flags,
                           nullptr, nullptr, &startup, &info))
            return ERROR_SUCCESS;
        error = GetLastError();
        if (error != ERROR_INTERNAL_ERROR) break;
    }
    return error;
}

}  // namespace zel::test
