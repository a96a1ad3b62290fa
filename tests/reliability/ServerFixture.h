// The fixture of the out-of-process reliability suites: this build's server and provider are
// registered once per program, one service object is activated per suite and kept across
// its tests (so that every test also proves that the server kept serving after the previous
// one), and every test opens a scratch database of its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/reliability/ReliabilitySupport.h"
#include "tests/support/EmbeddedProvider.h"

namespace zel::test {

// Registers this build's server (machine-wide) and 32-bit provider once per program; a
// test failure when either cannot be done.
void RegisterServerAndProviderOnce();

class ServerFixture : public testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    // The suite's service object; activated again if an earlier test lost it.
    static ServiceClient& Client();
    // The scratch database of the running test, opened on Client().
    const ScratchDatabase& Database() const { return *m_database; }
    // Opens `initString` on the suite's service object and expects success.
    void OpenOrFail(const std::wstring& initString);

private:
    static ServiceClient* s_client;
    std::unique_ptr<ScratchDatabase> m_database;
};

}  // namespace zel::test
