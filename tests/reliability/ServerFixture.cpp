#include "tests/reliability/ServerFixture.h"

#include "tests/server/ServerProcessSupport.h"

namespace zel::test {

ServiceClient* ServerFixture::s_client = nullptr;

void RegisterServerAndProviderOnce() {
    static bool registered = false;
    if (registered) return;
    ASSERT_EQ(0u, RunServer(L"/RegServer").value_or(~0u)) << "registering the server failed";
    ASSERT_TRUE(RegisterProvider());
    registered = true;
}

void ServerFixture::SetUpTestSuite() {
    RegisterServerAndProviderOnce();
    s_client = new ServiceClient;
}

void ServerFixture::TearDownTestSuite() {
    delete s_client;
    s_client = nullptr;
}

ServiceClient& ServerFixture::Client() {
    if (!*s_client) {
        HRESULT hr = s_client->Create();
        EXPECT_EQ(S_OK, hr) << "activating the service object";
    }
    return *s_client;
}

void ServerFixture::SetUp() {
    ASSERT_NE(nullptr, s_client);
    ASSERT_TRUE(Client()) << "no service object";
    m_database = std::make_unique<ScratchDatabase>();
    OpenOrFail(m_database->ConnectionString());
}

void ServerFixture::OpenOrFail(const std::wstring& initString) {
    std::wstring errorText;
    ASSERT_EQ(S_OK, Client().Open(initString, &errorText)) << ToUtf8(errorText);
}

void ServerFixture::TearDown() {
    // The next test opens its own database; closing first lets this one's file go.
    if (*s_client) {
        HRESULT hr = (*s_client)->ConClose();
        // A server that no longer answers is this test's failure; the next one starts afresh.
        if (FAILED(hr)) {
            ADD_FAILURE() << "the server stopped answering: " << std::hex << hr;
            s_client->Release();
        }
    }
    m_database.reset();
}

}  // namespace zel::test
