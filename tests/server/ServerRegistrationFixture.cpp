// Set-up and clean-up of the script-client tests: `setup STATEFILE` notes the machine-wide
// registration it finds in STATEFILE, then registers this build's server and provider;
// `cleanup STATEFILE` puts the noted registration back. The exit code is 0 on success.
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;

namespace {

int Setup(const wchar_t* stateFile) {
    const std::wstring found = RegisteredServerPath();
    FILE* state = _wfopen(stateFile, L"wb");
    if (!state) {
        std::fprintf(stderr, "cannot write the state file\n");
        return 2;
    }
    // The path as UTF-16 code units, without terminator.
    std::fwrite(found.data(), sizeof(wchar_t), found.size(), state);
    std::fclose(state);
    auto code = RunServer(L"/RegServer");
    if (!code || *code != 0) {
        std::fprintf(stderr, "server registration failed (%lx)\n", code ? static_cast<unsigned long>(*code) : 0ul);
        return 1;
    }
    if (!RegisterProvider()) return 1;
    std::printf("registered the server and the provider\n");
    return 0;
}

int Cleanup(const wchar_t* stateFile) {
    std::wstring found;
    FILE* state = _wfopen(stateFile, L"rb");
    if (!state) {
        std::fprintf(stderr, "no state file: set-up did not run\n");
        return 2;
    }
    wchar_t unit = 0;
    while (std::fread(&unit, sizeof(unit), 1, state) == 1) found += unit;
    std::fclose(state);
    const std::wstring current = RegisteredServerPath();
    if (found.empty()) {
        if (!current.empty() && RunServer(L"/UnregServer").value_or(1) != 0) return 1;
        std::printf("left the server unregistered, as found\n");
    } else if (_wcsicmp(found.c_str(), current.c_str()) != 0 &&
               GetFileAttributesW(found.c_str()) != INVALID_FILE_ATTRIBUTES) {
        if (RunToCompletion(L"\"" + found + L"\" /RegServer").value_or(1) != 0) return 1;
        std::printf("registered the server found before again\n");
    }
    DeleteFileW(stateFile);
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc == 3 && wcscmp(argv[1], L"setup") == 0) return Setup(argv[2]);
    if (argc == 3 && wcscmp(argv[1], L"cleanup") == 0) return Cleanup(argv[2]);
    std::fprintf(stderr, "usage: ServerRegistrationFixture setup|cleanup STATEFILE\n");
    return 2;
}
