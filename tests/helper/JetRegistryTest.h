// Base fixture of the tests that depend on the Jet registry keys: each test starts with
// none of the helper's keys registered and leaves the registry as it found it, whether
// it passes or fails.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/helper/JetRegistryKeys.h"

namespace zel::test {

class JetRegistryTest : public testing::Test {
protected:
    void SetUp() override {
        m_keys = std::make_unique<JetRegistryKeys>();
        if (!m_keys->PreExisting().empty()) {
            std::string list;
            for (const auto& key : m_keys->PreExisting()) list += " [" + std::string(key.begin(), key.end()) + "]";
            GTEST_SKIP() << "Jet keys are registered in this prefix already; they are left alone:" << list;
        }
    }
    void TearDown() override { m_keys.reset(); }

    JetRegistryKeys& Keys() { return *m_keys; }

private:
    std::unique_ptr<JetRegistryKeys> m_keys;
};

}  // namespace zel::test
