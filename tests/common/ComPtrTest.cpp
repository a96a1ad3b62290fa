#include "common/ComPtr.h"

#include <oaidl.h>

#include <gtest/gtest.h>

#include "common/OleDbIids.h"

using zel::ComPtr;

namespace {

// A minimal object that counts its references, to watch ComPtr's bookkeeping.
class Counted : public IErrorInfo {
public:
    LONG refs = 1;
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IUnknown || riid == IID_IErrorInfo) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; }
    STDMETHODIMP GetGUID(GUID*) override { return E_NOTIMPL; }
    STDMETHODIMP GetSource(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetDescription(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

}  // namespace

TEST(ComPtr, ConstructionAddsReferenceAndDestructionReleases) {
    Counted object;
    {
        ComPtr<IErrorInfo> p(&object);
        EXPECT_EQ(2, object.refs);
    }
    EXPECT_EQ(1, object.refs);
}

TEST(ComPtr, AttachAdoptsWithoutAddRef) {
    Counted object;
    object.AddRef();
    {
        auto p = ComPtr<IErrorInfo>::attach(&object);
        EXPECT_EQ(2, object.refs);
    }
    EXPECT_EQ(1, object.refs);
}

TEST(ComPtr, PutReleasesOldPointer) {
    Counted object;
    ComPtr<IErrorInfo> p(&object);
    IErrorInfo** slot = p.put();
    EXPECT_EQ(nullptr, *slot);
    EXPECT_EQ(1, object.refs);
}

TEST(ComPtr, CopyAndMoveKeepCountsRight) {
    Counted object;
    ComPtr<IErrorInfo> a(&object);
    ComPtr<IErrorInfo> b = a;
    EXPECT_EQ(3, object.refs);
    ComPtr<IErrorInfo> c = std::move(b);
    EXPECT_EQ(3, object.refs);
    EXPECT_FALSE(b);
    c.reset();
    a.reset();
    EXPECT_EQ(1, object.refs);
}

TEST(ComPtr, DetachHandsReferenceOut) {
    Counted object;
    ComPtr<IErrorInfo> p(&object);
    IErrorInfo* raw = p.detach();
    EXPECT_FALSE(p);
    EXPECT_EQ(2, object.refs);
    raw->Release();  // the detached reference is ours to release
}

TEST(ComPtr, AsQueriesAndThrowsOnMissingInterface) {
    Counted object;
    ComPtr<IErrorInfo> p(&object);
    ComPtr<IUnknown> unknown = p.as<IUnknown>();
    EXPECT_TRUE(unknown);
    try {
        (void)p.as<IDispatch>();
        FAIL() << "as<IDispatch> should throw";
    } catch (const zel::ComError& e) {
        EXPECT_EQ(E_NOINTERFACE, e.code());
    }
    EXPECT_FALSE(p.try_as<IDispatch>());
}

TEST(ComPtr, QueryOnNullGivesPointerError) {
    ComPtr<IErrorInfo> p;
    ComPtr<IUnknown> out;
    EXPECT_EQ(E_POINTER, p.query(out));
}

TEST(ComPtr, OleDbInterfaceIdsResolve) {
    EXPECT_TRUE(zel::IidOf<IRowset>() == IID_IRowset);
    EXPECT_TRUE(zel::IidOf<IDataInitialize>() == IID_IDataInitialize);
    EXPECT_TRUE(zel::IidOf<IXMLDOMDocument2>() == IID_IXMLDOMDocument2);
}

TEST(ComPtr, CreateInstanceReachesTheOleDbServiceComponents) {
    ComPtr<IDataInitialize> init;
    ASSERT_EQ(S_OK, zel::TryCreateInstance(CLSID_MSDAINITIALIZE, init));
    EXPECT_TRUE(init);
}

TEST(ComPtr, CreateInstanceReachesMsxml6) {
    auto doc = zel::CreateInstance<IXMLDOMDocument2>(CLSID_DOMDocument60, CLSCTX_ALL);
    VARIANT_BOOL ok = VARIANT_FALSE;
    BSTR text = SysAllocString(L"<a b=\"1\"/>");
    EXPECT_EQ(S_OK, doc->loadXML(text, &ok));
    SysFreeString(text);
    EXPECT_EQ(VARIANT_TRUE, ok);
}
