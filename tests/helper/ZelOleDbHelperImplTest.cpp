// The helper object as a COM object: creation, identity and aggregation, type information,
// and GetDbConnectionInfo called through the interface's vtable.
#include "helper/ZelOleDbHelperImpl.h"

#include <gtest/gtest.h>

#include <string>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "tests/helper/HelperTestFormats.h"
#include "tests/helper/JetRegistryTest.h"

using zel::Bstr;
using zel::ComPtr;
using zel::Variant;
using zel::test::ExpectedFormat;
using zel::test::ExpectedFormats;
using zel::test::JetRegistryTest;

template <>
struct zel::InterfaceId<IZelOleDbHelper> {
    static REFIID get() { return IID_IZelOleDbHelper; }
};

namespace {

// The widl header declares a global coclass tag of the same name; the object is zel's.
using HelperImpl = zel::ZelOleDbHelperImpl;

ComPtr<IZelOleDbHelper> NewHelper() {
    ComPtr<IZelOleDbHelper> helper;
    EXPECT_EQ(S_OK, HelperImpl::CreateInstance(nullptr, IID_IZelOleDbHelper, helper.put_void()));
    return helper;
}

// Sentinel for an out BSTR that must be overwritten; never freed.
BSTR const kNotWritten = reinterpret_cast<BSTR>(static_cast<uintptr_t>(0x1));

TEST(ZelOleDbHelperObject, ClassFactoryCreatesTheHelper) {
    auto factory = zel::ClassFactory<HelperImpl>::Make();
    ComPtr<IZelOleDbHelper> helper;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IZelOleDbHelper, helper.put_void()));
    ASSERT_TRUE(helper);
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IDispatch, dispatch.put_void()));
    EXPECT_TRUE(dispatch);
    ComPtr<IUnknown> unknown;
    EXPECT_EQ(E_NOINTERFACE, factory->CreateInstance(nullptr, IID_IZelOleDb, unknown.put_void()));
    EXPECT_FALSE(unknown);
}

TEST(ZelOleDbHelperObject, AggregationAsksForIUnknownOnly) {
    ComPtr<IUnknown> outer = NewHelper().as<IUnknown>();  // any live object serves as the outer
    ComPtr<IUnknown> inner;
    EXPECT_EQ(CLASS_E_NOAGGREGATION,
              HelperImpl::CreateInstance(outer.get(), IID_IZelOleDbHelper, inner.put_void()));
    EXPECT_FALSE(inner);
    EXPECT_EQ(E_POINTER, HelperImpl::CreateInstance(nullptr, IID_IUnknown, nullptr));
}

TEST(ZelOleDbHelperObject, QueryInterfaceAnswersItsInterfacesAndRefusesOthers) {
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    ASSERT_TRUE(helper);
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, helper->QueryInterface(IID_IDispatch, dispatch.put_void()));
    EXPECT_EQ(static_cast<void*>(helper.get()), static_cast<void*>(dispatch.get()))
        << "IDispatch is the dual interface itself";
    ComPtr<IProvideClassInfo> classInfo;
    EXPECT_EQ(S_OK, helper->QueryInterface(IID_IProvideClassInfo, classInfo.put_void()));
    ComPtr<IZelOleDbHelper> again;
    EXPECT_EQ(S_OK, classInfo->QueryInterface(IID_IZelOleDbHelper, again.put_void()));
    EXPECT_EQ(helper.get(), again.get());

    // One identity from every interface.
    ComPtr<IUnknown> a, b, c;
    ASSERT_EQ(S_OK, helper->QueryInterface(IID_IUnknown, a.put_void()));
    ASSERT_EQ(S_OK, dispatch->QueryInterface(IID_IUnknown, b.put_void()));
    ASSERT_EQ(S_OK, classInfo->QueryInterface(IID_IUnknown, c.put_void()));
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(a.get(), c.get());

    for (REFIID other : {IID_IZelOleDb, IID_IClassFactory, IID_IPersist, IID_IProvideClassInfo2, IID_ISupportErrorInfo}) {
        void* p = reinterpret_cast<void*>(1);
        EXPECT_EQ(E_NOINTERFACE, helper->QueryInterface(other, &p));
        EXPECT_EQ(nullptr, p);
    }
    EXPECT_EQ(E_POINTER, helper->QueryInterface(IID_IUnknown, nullptr));
}

TEST(ZelOleDbHelperObject, ReferenceCountEndsTheObject) {
    IZelOleDbHelper* raw = nullptr;
    ASSERT_EQ(S_OK, HelperImpl::CreateInstance(nullptr, IID_IZelOleDbHelper, reinterpret_cast<void**>(&raw)));
    EXPECT_EQ(2u, raw->AddRef());
    EXPECT_EQ(1u, raw->Release());
    EXPECT_EQ(0u, raw->Release());
}

// An outer object that aggregates a helper and exposes its IZelOleDbHelper and IDispatch.
class Outer final : public zel::ComObject<Outer, IPersist> {
public:
    Outer() {
        EXPECT_EQ(S_OK, HelperImpl::CreateInstance(InnerUnknown(), IID_IUnknown, m_inner.put_void()));
    }
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_IZelOleDbHelper && riid != IID_IDispatch && riid != IID_IProvideClassInfo)
            return E_NOINTERFACE;
        void* p = nullptr;
        // The inner object's interface comes back with a reference on this (outer) object.
        const HRESULT hr = m_inner->QueryInterface(riid, &p);
        if (FAILED(hr)) return hr;
        static_cast<IUnknown*>(p)->Release();
        *found = p;
        return S_OK;
    }
    STDMETHODIMP GetClassID(CLSID* clsid) override {
        *clsid = GUID_NULL;
        return S_OK;
    }
    LONG References() const { return m_refs; }

private:
    ComPtr<IUnknown> m_inner;
};

TEST(ZelOleDbHelperObject, AggregatedHelperDelegatesToTheOuterObject) {
    ComPtr<Outer> outer = Outer::Make();
    ComPtr<IZelOleDbHelper> helper;
    ASSERT_EQ(S_OK, outer->QueryInterface(IID_IZelOleDbHelper, helper.put_void()));
    ASSERT_TRUE(helper);

    // The helper's IUnknown calls reach the outer object: identity and outer interfaces.
    ComPtr<IUnknown> identity, outerIdentity;
    ASSERT_EQ(S_OK, helper->QueryInterface(IID_IUnknown, identity.put_void()));
    ASSERT_EQ(S_OK, outer->QueryInterface(IID_IUnknown, outerIdentity.put_void()));
    EXPECT_EQ(outerIdentity.get(), identity.get());
    ComPtr<IPersist> persist;
    EXPECT_EQ(S_OK, helper->QueryInterface(IID_IPersist, persist.put_void()));
    const LONG before = outer->References();
    helper->AddRef();
    EXPECT_EQ(before + 1, outer->References());
    helper->Release();
    EXPECT_EQ(before, outer->References());

    // And the helper still works.
    Variant none;
    BSTR connStr = kNotWritten;
    LONG flags = 7;
    VARIANT_BOOL known = VARIANT_TRUE;
    EXPECT_EQ(S_OK, helper->GetDbConnectionInfo(&connStr, &flags, static_cast<ZelOleDbFormatType>(11), *none.get(),
                                                *none.get(), &known));
    EXPECT_EQ(nullptr, connStr);
    EXPECT_EQ(VARIANT_FALSE, known);
}

TEST(ZelOleDbHelperObject, GetTypeInfoCountIsOne) {
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    UINT count = 99;
    ASSERT_EQ(S_OK, helper->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    EXPECT_EQ(E_POINTER, helper->GetTypeInfoCount(nullptr));
}

TEST(ZelOleDbHelperObject, GetTypeInfoGivesTheHelperInterfaceAtIndexZeroOnly) {
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, helper->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put()));
    ASSERT_TRUE(info);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(IID_IZelOleDbHelper, attr->guid));
    info->ReleaseTypeAttr(attr);
    // The method is there under dispatch id 1.
    LPOLESTR name = const_cast<LPOLESTR>(L"GetDbConnectionInfo");
    MEMBERID id = 0;
    ASSERT_EQ(S_OK, info->GetIDsOfNames(&name, 1, &id));
    EXPECT_EQ(1, id);

    ITypeInfo* none = reinterpret_cast<ITypeInfo*>(1);
    EXPECT_EQ(DISP_E_BADINDEX, helper->GetTypeInfo(1, LOCALE_USER_DEFAULT, &none));
    EXPECT_EQ(nullptr, none);
    none = reinterpret_cast<ITypeInfo*>(1);
    EXPECT_EQ(DISP_E_BADINDEX, helper->GetTypeInfo(0xFFFFFFFFu, LOCALE_USER_DEFAULT, &none));
    EXPECT_EQ(nullptr, none);
    EXPECT_EQ(E_POINTER, helper->GetTypeInfo(0, LOCALE_USER_DEFAULT, nullptr));
}

TEST(ZelOleDbHelperObject, ProvideClassInfoGivesTheHelperCoclass) {
    ComPtr<IProvideClassInfo> provide = NewHelper().as<IProvideClassInfo>();
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, provide->GetClassInfo(info.put()));
    ASSERT_TRUE(info);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_COCLASS, attr->typekind);
    EXPECT_TRUE(IsEqualGUID(CLSID_ZelOleDbHelperImpl, attr->guid));
    EXPECT_EQ(1, attr->cImplTypes);
    info->ReleaseTypeAttr(attr);

    HREFTYPE ref = 0;
    ASSERT_EQ(S_OK, info->GetRefTypeOfImplType(0, &ref));
    ComPtr<ITypeInfo> implemented;
    ASSERT_EQ(S_OK, info->GetRefTypeInfo(ref, implemented.put()));
    ASSERT_EQ(S_OK, implemented->GetTypeAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(IID_IZelOleDbHelper, attr->guid));
    implemented->ReleaseTypeAttr(attr);

    EXPECT_EQ(E_POINTER, provide->GetClassInfo(nullptr));
}

TEST(ZelOleDbHelperObject, NullOutPointersAreRefused) {
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    Variant none;
    BSTR connStr = kNotWritten;
    LONG flags = 7;
    VARIANT_BOOL known = 5;
    EXPECT_EQ(E_POINTER, helper->GetDbConnectionInfo(nullptr, &flags, kAccess, *none.get(), *none.get(), &known));
    EXPECT_EQ(E_POINTER, helper->GetDbConnectionInfo(&connStr, nullptr, kAccess, *none.get(), *none.get(), &known));
    EXPECT_EQ(E_POINTER, helper->GetDbConnectionInfo(&connStr, &flags, kAccess, *none.get(), *none.get(), nullptr));
    EXPECT_EQ(kNotWritten, connStr);
    EXPECT_EQ(7, flags);
    EXPECT_EQ(5, known);
}

// GetDbConnectionInfo through the vtable, with the outputs pre-set to detect writes.
struct HelperAnswer {
    HRESULT hr = E_UNEXPECTED;
    VARIANT_BOOL result = 5;
    Bstr connStr;
    bool connStrWritten = false;
    LONG connFlags = 12345;
};

HelperAnswer AskHelper(IZelOleDbHelper* helper, LONG format, const VARIANT& username, const VARIANT& password) {
    HelperAnswer a;
    BSTR connStr = kNotWritten;
    a.hr = helper->GetDbConnectionInfo(&connStr, &a.connFlags, static_cast<ZelOleDbFormatType>(format), username,
                                       password, &a.result);
    a.connStrWritten = connStr != kNotWritten;
    if (a.connStrWritten) a.connStr = Bstr::Attach(connStr);
    return a;
}

HelperAnswer AskHelper(IZelOleDbHelper* helper, LONG format) {
    Variant none;
    return AskHelper(helper, format, *none.get(), *none.get());
}

void ExpectFalseAnswer(const HelperAnswer& a) {
    EXPECT_EQ(S_OK, a.hr);
    EXPECT_EQ(VARIANT_FALSE, a.result);
    EXPECT_TRUE(a.connStrWritten);
    EXPECT_FALSE(a.connStr) << "connStr is null on a false answer";
    EXPECT_EQ(12345, a.connFlags) << "connFlags is untouched on a false answer";
}

class HelperEachFormat : public JetRegistryTest, public testing::WithParamInterface<ExpectedFormat> {};

TEST_P(HelperEachFormat, AnswersTrueWithItsTemplateWhenRegistered) {
    const ExpectedFormat& f = GetParam();
    ASSERT_TRUE(Keys().AddEngine(f.engine));
    if (f.isam) {
        ASSERT_TRUE(Keys().AddIsam(f.isam));
    }
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    HelperAnswer a = AskHelper(helper.get(), f.format);
    EXPECT_EQ(S_OK, a.hr);
    EXPECT_EQ(VARIANT_TRUE, a.result);
    ASSERT_TRUE(a.connStr);
    EXPECT_EQ(f.connStr, a.connStr.str());
    EXPECT_EQ(std::wstring(f.connStr).size(), a.connStr.length());
    EXPECT_EQ(f.connFlags, a.connFlags);
}

TEST_P(HelperEachFormat, AnswersFalseWhenAKeyIsMissing) {
    const ExpectedFormat& f = GetParam();
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    ExpectFalseAnswer(AskHelper(helper.get(), f.format));  // neither key
    if (f.isam) {
        ASSERT_TRUE(Keys().AddIsam(f.isam));
        ExpectFalseAnswer(AskHelper(helper.get(), f.format));  // ISAM without its engine
        Keys().Restore();
        ASSERT_TRUE(Keys().AddEngine(f.engine));
        ExpectFalseAnswer(AskHelper(helper.get(), f.format));  // engine without its ISAM
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HelperEachFormat, testing::ValuesIn(ExpectedFormats()),
                         [](const testing::TestParamInfo<ExpectedFormat>& info) { return std::string(info.param.label); });

using HelperRegistry = JetRegistryTest;

TEST_F(HelperRegistry, UnknownFormatValuesAnswerFalseWithNullStringAndUntouchedFlags) {
    for (const auto& name : zel::test::HelperEngineNames()) ASSERT_TRUE(Keys().AddEngine(name));
    for (const auto& name : zel::test::HelperIsamNames()) ASSERT_TRUE(Keys().AddIsam(name));
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    for (LONG format : {11L, -1L, 0x7FFFFFFFL}) ExpectFalseAnswer(AskHelper(helper.get(), format));
}

TEST_F(HelperRegistry, Excel8AnswersTrueWhileExcel5AnswersFalse) {
    ASSERT_TRUE(Keys().AddEngine(L"Excel"));
    ASSERT_TRUE(Keys().AddIsam(L"Excel 8.0"));
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    HelperAnswer excel8 = AskHelper(helper.get(), kExcel8_0);
    EXPECT_EQ(VARIANT_TRUE, excel8.result);
    EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Extended Properties=\"Excel 8.0;HDR=Yes\"",
              excel8.connStr.str());
    ExpectFalseAnswer(AskHelper(helper.get(), kExcel5_0));
}

TEST_F(HelperRegistry, UserNameAndPasswordHaveNoEffect) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    const HelperAnswer plain = AskHelper(helper.get(), kAccess);
    ASSERT_EQ(VARIANT_TRUE, plain.result);

    Variant user(std::wstring_view(L"admin"));
    Variant password(std::wstring_view(L"secret"));
    Variant number = Variant::FromI4(42);
    Variant flag = Variant::FromBool(true);
    Variant null;
    V_VT(null.get()) = VT_NULL;
    const std::pair<const Variant*, const Variant*> cases[] = {
        {&user, &password}, {&user, &null}, {&null, &password}, {&number, &flag}, {&null, &null}};
    for (const auto& [u, p] : cases) {
        HelperAnswer a = AskHelper(helper.get(), kAccess, *u->get(), *p->get());
        EXPECT_EQ(S_OK, a.hr);
        EXPECT_EQ(VARIANT_TRUE, a.result);
        EXPECT_EQ(plain.connStr.str(), a.connStr.str());
        EXPECT_EQ(plain.connFlags, a.connFlags);
    }
    // Still false without the engine, whatever is passed.
    Keys().Restore();
    ExpectFalseAnswer(AskHelper(helper.get(), kAccess, *user.get(), *password.get()));
}

TEST_F(HelperRegistry, AccessTemplateFormatsWithTheDataSourcePath) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    ComPtr<IZelOleDbHelper> helper = NewHelper();
    HelperAnswer a = AskHelper(helper.get(), kAccess);
    ASSERT_EQ(VARIANT_TRUE, a.result);
    const wchar_t* path = L"C:\\data\\parts.mdb";
    DWORD_PTR args[] = {reinterpret_cast<DWORD_PTR>(path)};
    wchar_t buffer[512] = {};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, a.connStr.c_str(),
                                        0, 0, buffer, 512, reinterpret_cast<va_list*>(args));
    ASSERT_NE(0u, length);
    EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\data\\parts.mdb", std::wstring(buffer, length));
}

TEST_F(HelperRegistry, IDispatchCallsReachTheHelpersDispatcher) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    ComPtr<IDispatch> dispatch = NewHelper().as<IDispatch>();

    LPOLESTR name = const_cast<LPOLESTR>(L"getdbconnectioninfo");
    DISPID id = 0;
    ASSERT_EQ(S_OK, dispatch->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id));
    EXPECT_EQ(1, id);

    Variant connStr, connFlags;
    VARIANT args[5];
    for (VARIANT& arg : args) VariantInit(&arg);
    V_VT(&args[4]) = VT_BYREF | VT_VARIANT;  // connStr
    V_VARIANTREF(&args[4]) = connStr.get();
    V_VT(&args[3]) = VT_BYREF | VT_VARIANT;  // connFlags
    V_VARIANTREF(&args[3]) = connFlags.get();
    V_VT(&args[2]) = VT_I4;  // formatType
    V_I4(&args[2]) = kAccess97;
    DISPPARAMS params = {args, nullptr, 5, 0};
    Variant result;
    UINT argErr = 0;
    ASSERT_EQ(S_OK, dispatch->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result.put(), nullptr,
                                     &argErr));
    ASSERT_EQ(VT_BOOL, result.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(result.get()));
    ASSERT_EQ(VT_BSTR, connStr.vt());
    EXPECT_STREQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Jet OLEDB:Engine Type=4;", V_BSTR(connStr.get()));
    ASSERT_EQ(VT_I4, connFlags.vt());
    EXPECT_EQ(2, V_I4(connFlags.get()));

    EXPECT_EQ(DISP_E_MEMBERNOTFOUND, dispatch->Invoke(2, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params,
                                                       result.put(), nullptr, &argErr));
}

}  // namespace
