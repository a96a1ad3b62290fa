// Registers the ZelLite.dll that sits next to the test program before any test runs, so that
// the suite always exercises the provider of its own build tree.
#include <windows.h>

#include <string>

#include <gtest/gtest.h>

namespace {

class ProviderEnvironment : public testing::Environment {
public:
    void SetUp() override {
        wchar_t path[MAX_PATH];
        DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
        ASSERT_GT(length, 0u);
        std::wstring dll(path, length);
        dll = dll.substr(0, dll.find_last_of(L"\\/") + 1) + L"ZelLite.dll";
        HMODULE module = LoadLibraryW(dll.c_str());
        ASSERT_NE(nullptr, module) << "cannot load ZelLite.dll next to the test program";
        using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
        auto registerServer = reinterpret_cast<RegisterFunction>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
        ASSERT_NE(nullptr, registerServer);
        ASSERT_EQ(S_OK, registerServer());
    }
};

const testing::Environment* const g_environment = testing::AddGlobalTestEnvironment(new ProviderEnvironment);

}  // namespace
