#include "common/ComObject.h"

#include <oaidl.h>
#include <ocidl.h>

#include <gtest/gtest.h>

using zel::ComPtr;

namespace {

int g_destroyed = 0;

// An object with two interfaces and nothing else.
class Sample final : public zel::ComObject<Sample, IErrorInfo, ISupportErrorInfo> {
public:
    ~Sample() override { ++g_destroyed; }
    STDMETHODIMP GetGUID(GUID* guid) override {
        *guid = GUID_NULL;
        return S_OK;
    }
    STDMETHODIMP GetSource(BSTR* source) override {
        *source = SysAllocString(L"sample");
        return S_OK;
    }
    STDMETHODIMP GetDescription(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetHelpContext(DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }
};

// An outer object that aggregates a Sample and exposes its IErrorInfo as its own.
class Outer final : public zel::ComObject<Outer, IDispatch> {
public:
    Outer() {
        HRESULT hr = Sample::CreateInstance(InnerUnknown(), IID_IUnknown, m_inner.put_void());
        EXPECT_EQ(S_OK, hr);
    }
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_IErrorInfo) return E_NOINTERFACE;
        void* p = nullptr;
        // The inner object's interface comes back with a reference on this object.
        const HRESULT hr = m_inner->QueryInterface(riid, &p);
        if (FAILED(hr)) return hr;
        static_cast<IUnknown*>(p)->Release();
        *found = p;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }
    LONG References() const { return m_refs; }

private:
    ComPtr<IUnknown> m_inner;
};

}  // namespace

TEST(ComObject, QueryInterfaceAnswersListedInterfacesAndIUnknown) {
    ComPtr<IErrorInfo> info;
    ASSERT_EQ(S_OK, Sample::CreateInstance(nullptr, IID_IErrorInfo, info.put_void()));
    EXPECT_TRUE(info.try_as<ISupportErrorInfo>());
    EXPECT_TRUE(info.try_as<IUnknown>());
    ComPtr<IDispatch> none;
    EXPECT_EQ(E_NOINTERFACE, info.query(none));
}

TEST(ComObject, IdentityIsTheSameIUnknownFromEveryInterface) {
    ComPtr<IErrorInfo> info;
    ASSERT_EQ(S_OK, Sample::CreateInstance(nullptr, IID_IErrorInfo, info.put_void()));
    auto viaInfo = info.as<IUnknown>();
    auto viaSupport = info.as<ISupportErrorInfo>().as<IUnknown>();
    EXPECT_EQ(viaInfo.get(), viaSupport.get());
}

TEST(ComObject, NullOutPointerGivesPointerError) {
    EXPECT_EQ(E_POINTER, Sample::CreateInstance(nullptr, IID_IErrorInfo, nullptr));
    ComPtr<IErrorInfo> info;
    ASSERT_EQ(S_OK, Sample::CreateInstance(nullptr, IID_IErrorInfo, info.put_void()));
    EXPECT_EQ(E_POINTER, info->QueryInterface(IID_IUnknown, nullptr));
}

TEST(ComObject, LastReleaseDestroysObjectOnce) {
    g_destroyed = 0;
    {
        ComPtr<IErrorInfo> info;
        ASSERT_EQ(S_OK, Sample::CreateInstance(nullptr, IID_IErrorInfo, info.put_void()));
        auto second = info.as<ISupportErrorInfo>();
        info.reset();
        EXPECT_EQ(0, g_destroyed);
    }
    EXPECT_EQ(1, g_destroyed);
}

TEST(ComObject, LiveObjectsHoldTheModule) {
    LONG before = zel::ModuleLifetime::Count();
    {
        auto sample = Sample::Make();
        EXPECT_EQ(before + 1, zel::ModuleLifetime::Count());
    }
    EXPECT_EQ(before, zel::ModuleLifetime::Count());
}

TEST(ComObject, AggregationRequiresIUnknown) {
    auto outer = Outer::Make();
    void* p = reinterpret_cast<void*>(1);
    EXPECT_EQ(CLASS_E_NOAGGREGATION, Sample::CreateInstance(outer.get(), IID_IErrorInfo, &p));
    EXPECT_EQ(nullptr, p);
}

TEST(ComObject, AggregatedInterfacesDelegateToOuter) {
    g_destroyed = 0;
    {
        auto outer = Outer::Make();
        ComPtr<IErrorInfo> info = outer.as<IErrorInfo>();
        // QueryInterface through the inner object's interface reaches the outer's interfaces.
        EXPECT_TRUE(info.try_as<IDispatch>());
        // ... and its identity is the outer object.
        EXPECT_EQ(outer.as<IUnknown>().get(), info.as<IUnknown>().get());
        LONG refs = outer->References();
        info->AddRef();
        EXPECT_EQ(refs + 1, outer->References());
        info->Release();
        {
            BSTR source = nullptr;
            EXPECT_EQ(S_OK, info->GetSource(&source));
            EXPECT_STREQ(L"sample", source);
            SysFreeString(source);
        }
    }
    EXPECT_EQ(1, g_destroyed);
}

TEST(ComObject, ClassFactoryCreatesAndCountsServerLocks) {
    auto factory = zel::ClassFactory<Sample>::Make();
    LONG before = zel::ModuleLifetime::Count();
    EXPECT_EQ(S_OK, factory->LockServer(TRUE));
    EXPECT_EQ(before + 1, zel::ModuleLifetime::Count());
    EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    EXPECT_EQ(before, zel::ModuleLifetime::Count());
    ComPtr<IErrorInfo> info;
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IErrorInfo, info.put_void()));
    EXPECT_TRUE(info);
}

namespace {

// An object whose tear-off for IDispatch cannot be made: its QueryExtra fails.
class NoMemoryTearOff final : public zel::ComObject<NoMemoryTearOff, ISupportErrorInfo> {
public:
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_IDispatch) return E_NOINTERFACE;
        *found = nullptr;
        return E_OUTOFMEMORY;
    }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }
};

LONG g_countInDestructor = 0;
ULONG g_releaseInDestructor = 99;
int g_guardedDestroyed = 0;

// An object whose destructor takes and gives back a reference on itself, as clean-up code
// that hands the object to a helper does.
class ReleasedInDestructor final : public zel::ComObject<ReleasedInDestructor, ISupportErrorInfo> {
public:
    ~ReleasedInDestructor() override {
        ++g_guardedDestroyed;
        AddRef();
        g_countInDestructor = m_refs;
        g_releaseInDestructor = Release();
    }
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID) override { return S_OK; }
};

}  // namespace

TEST(ComObject, QueryExtraFailureIsWhatQueryInterfaceReturns) {
    auto object = NoMemoryTearOff::Make();
    void* p = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_OUTOFMEMORY, object->QueryInterface(IID_IDispatch, &p));
    EXPECT_EQ(nullptr, p);
    p = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IErrorInfo, &p));
    EXPECT_EQ(nullptr, p);
}

TEST(ComObject, FinalReleaseGuardKeepsReleasesInTheDestructorFromDestroyingTwice) {
    g_guardedDestroyed = 0;
    LONG before = zel::ModuleLifetime::Count();
    {
        ComPtr<ISupportErrorInfo> object;
        ASSERT_EQ(S_OK, ReleasedInDestructor::CreateInstance(nullptr, IID_ISupportErrorInfo, object.put_void()));
        EXPECT_EQ(before + 1, zel::ModuleLifetime::Count());
        EXPECT_EQ(0u, object.detach()->Release());
    }
    EXPECT_EQ(1, g_guardedDestroyed);
    EXPECT_EQ(ReleasedInDestructor::kFinalReleaseGuard + 1, g_countInDestructor);
    EXPECT_EQ(static_cast<ULONG>(ReleasedInDestructor::kFinalReleaseGuard), g_releaseInDestructor);
    EXPECT_EQ(-1073741823, ReleasedInDestructor::kFinalReleaseGuard);
    EXPECT_EQ(before, zel::ModuleLifetime::Count());
}
