// Starting a child process from a test under Wine.
#pragma once

#include <windows.h>

#include <string>

namespace zel::test {

// CreateProcessW with these arguments, tried again when it fails with ERROR_INTERNAL_ERROR:
// Wine now and then fails to start a process before any of its code runs (the new process
// cannot map its shared user data page), about once in 800 starts. Returns ERROR_SUCCESS,
// or the error of the last start, after at most three.
DWORD StartProcess(const wchar_t* application, std::wstring& commandLine, bool inheritHandles, DWORD flags,
                   STARTUPINFOW& startup, PROCESS_INFORMATION& info);

}  // namespace zel::test
