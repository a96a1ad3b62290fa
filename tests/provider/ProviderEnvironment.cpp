// Registers the ZelLite.dll that sits next to the test program before any test runs, so that
// the suite always exercises the provider of its own build tree.
#include <windows.h>

#include <gtest/gtest.h>

#include "tests/provider/ProviderTestSupport.h"

namespace {

class ProviderEnvironment : public testing::Environment {
public:
    void SetUp() override { zel::test::RegisterProviderBesideProgram(L"ZelLite.dll"); }
};

const testing::Environment* const g_environment = testing::AddGlobalTestEnvironment(new ProviderEnvironment);

}  // namespace
