#include "tests/host/ZelDbProcess.h"

#include <gtest/gtest.h>

#include <thread>

#include "host/TextStreams.h"
#include "tests/support/ProcessStart.h"

namespace zel::zeldb::test {

namespace {

struct Pipe {
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    ~Pipe() {
        if (read) CloseHandle(read);
        if (write) CloseHandle(write);
    }
};

// The child inherits only its own end of each pipe.
void MakePipe(Pipe& pipe, bool childReads) {
    SECURITY_ATTRIBUTES sa{sizeof sa, nullptr, TRUE};
    ASSERT_TRUE(CreatePipe(&pipe.read, &pipe.write, &sa, 0));
    SetHandleInformation(childReads ? pipe.write : pipe.read, HANDLE_FLAG_INHERIT, 0);
}

void Drain(HANDLE handle, std::string* into) {
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(handle, buffer, sizeof buffer, &read, nullptr) && read > 0) into->append(buffer, read);
}

}  // namespace

std::wstring ProgramDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring dir(path, length);
    return dir.substr(0, dir.find_last_of(L"\\/"));
}

std::wstring QuoteArgument(const std::wstring& arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) return arg;
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') {
            quoted.append(backslashes * 2 + 1, L'\\');
        } else {
            quoted.append(backslashes, L'\\');
        }
        backslashes = 0;
        quoted += c;
    }
    quoted.append(backslashes * 2, L'\\');
    return quoted + L"\"";
}

ProcessResult RunProgram(const std::wstring& program, const std::vector<std::wstring>& args,
                         const std::string& input, DWORD timeoutMs) {
    ProcessResult result;
    Pipe in, out, err;
    MakePipe(in, true);
    MakePipe(out, false);
    MakePipe(err, false);

    std::wstring commandLine = QuoteArgument(program);
    for (const auto& a : args) commandLine += L" " + QuoteArgument(a);

    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = in.read;
    si.hStdOutput = out.write;
    si.hStdError = err.write;
    PROCESS_INFORMATION pi{};
    const DWORD startError = zel::test::StartProcess(program.c_str(), commandLine, true, CREATE_NO_WINDOW, si, pi);
    if (startError != ERROR_SUCCESS) {
        ADD_FAILURE() << "cannot start the program, error " << startError;
        return result;
    }
    // Only the child holds these ends now, so the pipes end with it.
    CloseHandle(in.read);
    in.read = nullptr;
    CloseHandle(out.write);
    out.write = nullptr;
    CloseHandle(err.write);
    err.write = nullptr;

    std::string outBytes, errBytes;
    std::thread outReader(Drain, out.read, &outBytes);
    std::thread errReader(Drain, err.read, &errBytes);
    DWORD written = 0;
    if (!input.empty()) WriteFile(in.write, input.data(), static_cast<DWORD>(input.size()), &written, nullptr);
    CloseHandle(in.write);
    in.write = nullptr;

    if (WaitForSingleObject(pi.hProcess, timeoutMs) != WAIT_OBJECT_0) {
        ADD_FAILURE() << "the program did not end in time";
        TerminateProcess(pi.hProcess, 99);
        WaitForSingleObject(pi.hProcess, 5000);
    }
    GetExitCodeProcess(pi.hProcess, &result.exitCode);
    outReader.join();
    errReader.join();
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
    result.out = FromUtf8(outBytes);
    result.err = FromUtf8(errBytes);
    return result;
}

ProcessResult RunZelDb(const std::vector<std::wstring>& args, const std::string& input) {
    return RunProgram(ProgramDirectory() + L"\\zeldb.exe", args, input);
}

std::vector<std::wstring> Lines(const std::wstring& text) {
    std::vector<std::wstring> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L'\n', start);
        if (end == std::wstring::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace zel::zeldb::test
