// IDBProperties::GetProperties when the COM task allocator fails: every array the method hands
// out comes from CoTaskMemAlloc, and whichever of them cannot be allocated, the method returns
// E_OUTOFMEMORY with a zero count and a null array, and nothing it made half-way is left behind.
// The allocator is made to fail through an IMallocSpy whose PreAlloc returns 0.
#include <windows.h>
#include <oledb.h>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "tests/provider/ProviderTestSupport.h"

namespace zel::test {
namespace {

// Fails the n-th task-allocator allocation after Arm(n) and counts what it failed.
class FailingMallocSpy final : public IMallocSpy {
public:
    void Arm(ULONG failAt) noexcept {
        m_seen = 0;
        m_failAt = failAt;
        m_failed = 0;
    }
    void Disarm() noexcept { m_failAt = 0; }
    ULONG failed() const noexcept { return m_failed; }

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IMallocSpy) {
            *object = static_cast<IMallocSpy*>(this);
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    // The spy lives as long as the test program.
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP_(SIZE_T) PreAlloc(SIZE_T request) override {
        if (m_failAt && ++m_seen == m_failAt) {
            ++m_failed;
            return 0;  // a zero size for a non-zero request makes the allocation fail
        }
        return request;
    }
    STDMETHODIMP_(void*) PostAlloc(void* actual) override { return actual; }
    STDMETHODIMP_(void*) PreFree(void* request, BOOL) override { return request; }
    STDMETHODIMP_(void) PostFree(BOOL) override {}
    STDMETHODIMP_(SIZE_T) PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL) override {
        *newRequest = request;
        return size;
    }
    STDMETHODIMP_(void*) PostRealloc(void* actual, BOOL) override { return actual; }
    STDMETHODIMP_(void*) PreGetSize(void* request, BOOL) override { return request; }
    STDMETHODIMP_(SIZE_T) PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    STDMETHODIMP_(void*) PreDidAlloc(void* request, BOOL) override { return request; }
    STDMETHODIMP_(int) PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    STDMETHODIMP_(void) PreHeapMinimize() override {}
    STDMETHODIMP_(void) PostHeapMinimize() override {}

private:
    ULONG m_seen = 0;
    ULONG m_failAt = 0;
    ULONG m_failed = 0;
};

FailingMallocSpy g_spy;

class PropertyMemoryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, CoRegisterMallocSpy(&g_spy)); }
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
