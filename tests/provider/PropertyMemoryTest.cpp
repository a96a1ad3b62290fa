// IDBProperties::GetProperties when the COM task allocator fails: every array the method hands
// out comes from CoTaskMemAlloc, and whichever of them cannot be allocated, the method returns
// E_OUTOFMEMORY with a zero count and a null array, and nothing it made half-way is left behind.
// The allocator is made to fail through an IMallocSpy whose PreAlloc returns 0.
#include <windows.h>
#include <oledb.h>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "tests/provider/ProviderTestSupport.h"
#include "tests/support/RefusingMallocSpy.h"

namespace zel::test {
namespace {

// Fails the n-th task-allocator allocation after Arm(n) and counts what it failed.
class FailingMallocSpy {
public:
    void Arm(ULONG failAt) noexcept {
        m_seen = 0;
        m_failAt = failAt;
        m_failed = 0;
    }
    void Disarm() noexcept { m_failAt = 0; }
    ULONG failed() const noexcept { return m_failed; }
    IMallocSpy* spy() noexcept { return &m_spy; }

private:
    static bool Refuse();
    zel::test::RefusingMallocSpy m_spy{&Refuse};
    ULONG m_seen = 0;
    ULONG m_failAt = 0;
    ULONG m_failed = 0;
};

FailingMallocSpy g_spy;

bool FailingMallocSpy::Refuse() {
    if (!g_spy.m_failAt || ++g_spy.m_seen != g_spy.m_failAt) return false;
    ++g_spy.m_failed;
    return true;
}

class PropertyMemoryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, CoRegisterMallocSpy(g_spy.spy())); }
    void TearDown() override {
        g_spy.Disarm();
        CoRevokeMallocSpy();
    }
};

void FreeSets(DBPROPSET* sets, ULONG count) {
    for (ULONG s = 0; s < count; ++s) {
        for (ULONG p = 0; p < sets[s].cProperties; ++p) VariantClear(&sets[s].rgProperties[p].vValue);
        CoTaskMemFree(sets[s].rgProperties);
    }
    CoTaskMemFree(sets);
}

TEST_F(PropertyMemoryTest, SpyMakesTheTaskAllocatorFail) {
    g_spy.Arm(2);
    void* first = CoTaskMemAlloc(16);
    void* second = CoTaskMemAlloc(16);
    g_spy.Disarm();
    EXPECT_NE(nullptr, first);
    EXPECT_EQ(nullptr, second);
    EXPECT_EQ(1u, g_spy.failed());
    CoTaskMemFree(first);
}

TEST_F(PropertyMemoryTest, GetPropertiesReturnsOutOfMemoryWhereverAnAllocationFails) {
    TempDatabase db;
    Connection connection = Connection::Open(db.ConnectionString());
    auto properties = connection.dataSource.as<IDBProperties>();
    ASSERT_TRUE(properties);

    // Every visible set, each with its own property array: the set array and each property
    // array fail in turn, until the call allocates all it needs.
    ULONG failures = 0;
    bool succeeded = false;
    for (ULONG failAt = 1; failAt <= 200 && !succeeded; ++failAt) {
        ULONG count = 99;
        DBPROPSET* sets = reinterpret_cast<DBPROPSET*>(1);
        g_spy.Arm(failAt);
        HRESULT hr = properties->GetProperties(0, nullptr, &count, &sets);
        g_spy.Disarm();
        if (g_spy.failed()) {
            ++failures;
            EXPECT_EQ(E_OUTOFMEMORY, hr) << "allocation " << failAt;
            EXPECT_EQ(0u, count) << "allocation " << failAt;
            EXPECT_EQ(nullptr, sets) << "allocation " << failAt;
            if (SUCCEEDED(hr) && sets) FreeSets(sets, count);
        } else {
            EXPECT_EQ(S_OK, hr);
            EXPECT_GE(count, 2u);  // more than one set: an inner array fails after the outer one exists
            if (SUCCEEDED(hr)) FreeSets(sets, count);
            succeeded = true;
        }
    }
    EXPECT_TRUE(succeeded);
    EXPECT_GE(failures, 3u);  // the set array and at least two property arrays
}

}  // namespace
}  // namespace zel::test
