#include "tests/host/ZelDbServerFixture.h"

#include <windows.h>

#include <cstdlib>

#include "host/TextStreams.h"

namespace zel::zeldb::test {

std::wstring ZelDbServerTest::s_dir;

namespace {

std::wstring Environment(const wchar_t* name) {
    wchar_t buffer[1024];
    const DWORD length = GetEnvironmentVariableW(name, buffer, 1024);
    return length && length < 1024 ? std::wstring(buffer, length) : std::wstring();
}

void RemoveFolder(const std::wstring& dir) {
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((dir + L"\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = data.cFileName;
            if (name == L"." || name == L"..") continue;
            DeleteFileW((dir + L"\\" + name).c_str());
        } while (FindNextFileW(find, &data));
        FindClose(find);
    }
    RemoveDirectoryW(dir.c_str());
}

}  // namespace

void ZelDbServerTest::SetUpTestSuite() {
    const std::wstring server = Environment(L"ZEL_SERVER_EXE");
    const std::wstring provider = Environment(L"ZEL_PROVIDER_DLL");
    ASSERT_FALSE(server.empty()) << "ZEL_SERVER_EXE is not set";
    ASSERT_FALSE(provider.empty()) << "ZEL_PROVIDER_DLL is not set";
    ProcessResult r = RunProgram(server, {L"/RegServer"});
    ASSERT_EQ(r.exitCode, 0u) << "registering the server failed";
    r = RunProgram(L"C:\\windows\\syswow64\\regsvr32.exe", {L"/s", provider});
    ASSERT_EQ(r.exitCode, 0u) << "registering the provider failed";

    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    s_dir = std::wstring(temp) + L"zeldb-tests-" + std::to_wstring(GetCurrentProcessId());
    RemoveFolder(s_dir);
    ASSERT_TRUE(CreateDirectoryW(s_dir.c_str(), nullptr));
}

void ZelDbServerTest::TearDownTestSuite() {
    if (!s_dir.empty()) RemoveFolder(s_dir);
}

std::wstring ZelDbServerTest::PathOf(const std::wstring& name) { return s_dir + L"\\" + name; }

std::wstring ZelDbServerTest::NewDatabase(const std::wstring& name) {
    const std::wstring path = PathOf(name);
    DeleteFileW(path.c_str());
    const ProcessResult r = RunZelDb({L"create", path});
    EXPECT_EQ(r.exitCode, 0u) << "zeldb create: " << ToUtf8(r.err);
    EXPECT_EQ(r.out, L"created " + path + L"\n");
    return path;
}

std::wstring ZelDbServerTest::EmptyDatabase(const std::wstring& name) { return WriteFile(name, ""); }

std::wstring ZelDbServerTest::ZelDbOk(const std::vector<std::wstring>& args, const std::string& input) {
    const ProcessResult r = RunZelDb(args, input);
    std::string command;
    for (const auto& a : args) command += " " + ToUtf8(a);
    EXPECT_EQ(r.exitCode, 0u) << "zeldb" << command << "\n" << ToUtf8(r.err);
    EXPECT_EQ(r.err, L"") << "zeldb" << command;
    return r.out;
}

std::wstring ZelDbServerTest::WriteFile(const std::wstring& name, const std::string& text) {
    const std::wstring path = PathOf(name);
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return path;
}

}  // namespace zel::zeldb::test
