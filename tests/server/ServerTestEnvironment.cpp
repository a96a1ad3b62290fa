// Global set-up of the out-of-process suites: the server must exist, and whatever machine-wide
// registration the run found is put back when the run ends.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>

#include "tests/server/ServerProcessSupport.h"

namespace {

class ServerEnvironment : public testing::Environment {
public:
    void SetUp() override {
        const std::wstring server = zel::test::ServerExePath();
        ASSERT_FALSE(server.empty()) << "ZEL_SERVER_EXE is not set";
        ASSERT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(server.c_str()))
            << "no server at " << testing::PrintToString(server);
        m_restorer = std::make_unique<zel::test::RegistrationRestorer>();
    }
    void TearDown() override { m_restorer.reset(); }

private:
    std::unique_ptr<zel::test::RegistrationRestorer> m_restorer;
};

const testing::Environment* const g_environment = testing::AddGlobalTestEnvironment(new ServerEnvironment);

}  // namespace
