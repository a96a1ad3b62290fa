// Runs zeldb.exe as a child process with piped standard streams, as a user's shell would.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zel::zeldb::test {

struct ProcessResult {
    DWORD exitCode = 0xFFFFFFFF;
    std::wstring out;  // standard output, decoded from UTF-8
    std::wstring err;  // standard error, decoded from UTF-8
};

// The directory of the running test program (zeldb.exe is built next to it).
std::wstring ProgramDirectory();

// One argument quoted for CommandLineToArgvW's rules.
std::wstring QuoteArgument(const std::wstring& arg);

// Runs `program` with `args`, writes `input` (UTF-8) to its standard input and closes it,
// and collects both outputs until the process ends. Fails the test after `timeoutMs`.
ProcessResult RunProgram(const std::wstring& program, const std::vector<std::wstring>& args,
                         const std::string& input = {}, DWORD timeoutMs = 240000);

// The same, for zeldb.exe next to the test program.
ProcessResult RunZelDb(const std::vector<std::wstring>& args, const std::string& input = {});

// Splits text into lines at LF (the last line may lack one).
std::vector<std::wstring> Lines(const std::wstring& text);

}  // namespace zel::zeldb::test
