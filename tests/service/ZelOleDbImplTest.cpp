// The service object's own rules: identity, type information, handle registries and the
// connection questions before any data source is open.
#include "service/ZelOleDbImpl.h"

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "common/Variant.h"

using namespace zel;

namespace {

class ServiceTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void())); }
    ULONG NewCommand() {
        ULONG handle = 0;
        EXPECT_EQ(S_OK, db->CmdSetConnection(&handle));
        return handle;
    }
    ComPtr<IZelOleDb> db;
};

}  // namespace

TEST_F(ServiceTest, QueryInterfaceGivesMainInterfaceForUnknownDispatchAndItself) {
    ComPtr<IUnknown> unknown = db.as<IUnknown>();
    ComPtr<IDispatch> dispatch = db.as<IDispatch>();
    EXPECT_EQ(static_cast<void*>(db.get()), static_cast<void*>(dispatch.get()));
    EXPECT_TRUE(db.try_as<IProvideClassInfo>());
    ComPtr<IStream> none;
    EXPECT_EQ(E_NOINTERFACE, db.query(none));
    EXPECT_EQ(E_POINTER, db->QueryInterface(IID_IUnknown, nullptr));
}

TEST_F(ServiceTest, TypeInformationIsTheOneInterfaceOfTheLibrary) {
    UINT count = 7;
    EXPECT_EQ(S_OK, db->GetTypeInfoCount(&count));
    EXPECT_EQ(1u, count);
    EXPECT_EQ(E_POINTER, db->GetTypeInfoCount(nullptr));
    ComPtr<ITypeInfo> info;
    EXPECT_EQ(DISP_E_BADINDEX, db->GetTypeInfo(1, 0, info.put()));
    ASSERT_EQ(S_OK, db->GetTypeInfo(0, 0, info.put()));
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_TRUE(IsEqualGUID(IID_IZelOleDb, attr->guid));
    info->ReleaseTypeAttr(attr);
}

TEST_F(ServiceTest, ClassInfoDescribesTheCoclass) {
    ComPtr<ITypeInfo> info;
    ASSERT_EQ(S_OK, db.as<IProvideClassInfo>()->GetClassInfo(info.put()));
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(S_OK, info->GetTypeAttr(&attr));
    EXPECT_EQ(TKIND_COCLASS, attr->typekind);
    EXPECT_TRUE(IsEqualGUID(CLSID_ZelOleDbImpl, attr->guid));
    info->ReleaseTypeAttr(attr);
}

TEST_F(ServiceTest, NamesResolveWithoutRegardToCase) {
    std::wstring lower = L"cmdexecute";
    std::wstring unknown = L"NoSuchMethod";
    LPOLESTR names[] = {lower.data()};
    DISPID id = 0;
    EXPECT_EQ(S_OK, db->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
    EXPECT_EQ(13, id);
    names[0] = unknown.data();
    EXPECT_EQ(DISP_E_UNKNOWNNAME, db->GetIDsOfNames(IID_NULL, names, 1, 0, &id));
}

TEST_F(ServiceTest, ZeroHandleIssuesTheTickCount) {
    DWORD before = GetTickCount();
    ULONG handle = NewCommand();
    DWORD after = GetTickCount();
    EXPECT_GE(handle, before);
    EXPECT_LE(handle, after);
}

TEST_F(ServiceTest, KnownHandleIsKeptAndReused) {
    ULONG handle = NewCommand();
    ULONG again = handle;
    EXPECT_EQ(S_OK, db->CmdSetConnection(&again));
    EXPECT_EQ(handle, again);
}

TEST_F(ServiceTest, UnknownNonZeroHandleIsReplacedByAFreshOne) {
    ULONG handle = 12345;  // no command was ever registered under it
    Sleep(2);
    EXPECT_EQ(S_OK, db->CmdSetConnection(&handle));
    EXPECT_NE(12345u, handle);
    EXPECT_EQ(S_OK, db->CmdClose(handle));
}

TEST_F(ServiceTest, NullHandlePointerFailsAndCreatesNothing) {
    EXPECT_EQ(E_FAIL, db->CmdSetConnection(nullptr));
}

TEST_F(ServiceTest, DestroyTwiceGivesSOkThenEFail) {
    ULONG handle = NewCommand();
    EXPECT_EQ(S_OK, db->CmdDestroy(handle));
    EXPECT_EQ(E_FAIL, db->CmdDestroy(handle));
    EXPECT_EQ(E_FAIL, db->CmdDestroy(99));
}

TEST_F(ServiceTest, EveryCommandMethodFailsAfterDestroy) {
    ULONG handle = NewCommand();
    ASSERT_EQ(S_OK, db->CmdDestroy(handle));
    SHORT tri = 7;
    ULONGLONG count = 7;
    LONGLONG rows = 7;
    LONG number = 7;
    ULONG type = 7;
    VARIANT_BOOL flag = 7;
    Bstr text;
    Variant value, column = Variant::FromI4(1);
    EXPECT_EQ(E_FAIL, db->CmdExecute(handle, &tri, nullptr, nullptr, nullptr));
    EXPECT_EQ(E_FAIL, db->CmdSetCommandText(handle, Bstr(L"SELECT 1").get()));
    EXPECT_EQ(E_FAIL, db->CmdGetColumnCount(handle, &count));
    EXPECT_EQ(E_FAIL, db->CmdGetRowsAffected(handle, &rows));
    EXPECT_EQ(E_FAIL, db->CmdFetchNext(handle, &tri));
    EXPECT_EQ(E_FAIL, db->CmdFetchPrev(handle, &tri));
    EXPECT_EQ(E_FAIL, db->CmdFetchFirst(handle, &tri));
    EXPECT_EQ(E_FAIL, db->CmdFetchLast(handle, &tri));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsStringEx(handle, 1, text.put()));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsString(handle, 1, text.put()));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsLong(handle, 1, &number));
    EXPECT_EQ(E_FAIL, db->CmdIsBlob(handle, 1, &tri));
    EXPECT_EQ(E_FAIL, db->CmdIsNull(handle, 1, &tri));
    EXPECT_EQ(E_FAIL, db->CmdGetRawType(handle, 1, &type));
    EXPECT_EQ(E_FAIL, db->CmdIsIntegral(handle, 1, &tri));
    EXPECT_EQ(E_FAIL, db->CmdIsNumeric(handle, 1, &tri));
    EXPECT_EQ(E_FAIL, db->CmdGetColumnName(handle, 1, text.put()));
    EXPECT_EQ(E_FAIL, db->CmdGetColumnIndex(handle, Bstr(L"x").get(), &count));
    EXPECT_EQ(E_FAIL, db->CmdGetColumnSize(handle, 1, &count));
    EXPECT_EQ(E_FAIL, db->CmdHasResults(handle, &flag));
    EXPECT_EQ(E_FAIL, db->CmdGetBlobData(handle, 1, value.get()));
    EXPECT_EQ(E_FAIL, db->CmdClose(handle));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsVariant(handle, column.get(), value.get()));
    EXPECT_EQ(7, tri);
    EXPECT_EQ(nullptr, text.get());
}

TEST_F(ServiceTest, NullOutPointersFailWithoutWriting) {
    ULONG handle = NewCommand();
    EXPECT_EQ(E_FAIL, db->CmdGetColumnCount(handle, nullptr));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsString(handle, 1, nullptr));
    EXPECT_EQ(E_FAIL, db->CmdHasResults(handle, nullptr));
    EXPECT_EQ(E_FAIL, db->CmdExecute(handle, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(E_FAIL, db->ConIsConnected(nullptr));
}

TEST_F(ServiceTest, MovesAndExecuteOfCommandWithoutConnectionFail) {
    ULONG handle = NewCommand();
    SHORT tri = 7;
    EXPECT_EQ(E_FAIL, db->CmdFetchNext(handle, &tri));
    EXPECT_EQ(E_FAIL, db->CmdExecute(handle, &tri, nullptr, nullptr, nullptr));
    EXPECT_EQ(7, tri);
}

TEST_F(ServiceTest, ReadersOfNeverExecutedCommandGiveEmptyAnswers) {
    ULONG handle = NewCommand();
    ULONGLONG count = 7;
    SHORT tri = 7;
    Bstr text;
    EXPECT_EQ(S_OK, db->CmdGetColumnCount(handle, &count));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(S_OK, db->CmdIsNull(handle, 1, &tri));
    EXPECT_EQ(2, tri);
    EXPECT_EQ(S_OK, db->CmdFieldAsString(handle, 1, text.put()));
    ASSERT_NE(nullptr, text.get());  // an empty text is an empty, non-null string
    EXPECT_EQ(0u, text.length());
    VARIANT_BOOL has = 0;
    EXPECT_EQ(S_OK, db->CmdHasResults(handle, &has));
    EXPECT_EQ(VARIANT_TRUE, has);
}

TEST_F(ServiceTest, FieldAsVariantTakesOnlyUnsignedPositionsOrNames) {
    ULONG handle = NewCommand();
    Variant result;
    Variant i4 = Variant::FromI4(1);
    Variant i2 = Variant::FromI2(1);
    EXPECT_EQ(E_INVALIDARG, db->CmdFieldAsVariant(handle, i4.get(), result.get()));
    EXPECT_EQ(E_INVALIDARG, db->CmdFieldAsVariant(handle, i2.get(), result.get()));
    Variant ui4;
    V_VT(ui4.get()) = VT_UI4;
    V_UI4(ui4.get()) = 3;
    EXPECT_EQ(E_FAIL, db->CmdFieldAsVariant(handle, ui4.get(), result.get()));  // no open rowset
    Variant name(std::wstring_view(L"ID"));
    EXPECT_EQ(E_FAIL, db->CmdFieldAsVariant(handle, name.get(), result.get()));
}

TEST_F(ServiceTest, BlobDataWithoutBytesLeavesCallersVariantUnchanged) {
    ULONG handle = NewCommand();
    Variant result = Variant::FromI4(99);
    EXPECT_EQ(S_OK, db->CmdGetBlobData(handle, 1, result.get()));
    EXPECT_EQ(VT_I4, result.vt());
    EXPECT_EQ(99, V_I4(result.get()));
}

TEST_F(ServiceTest, BeforeAnyOpenConnectionAnswersAreFalse) {
    VARIANT_BOOL answer = 7;
    EXPECT_EQ(S_OK, db->ConIsReadOnly(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    answer = 7;
    EXPECT_EQ(S_OK, db->ConIsConnected(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    answer = 7;
    EXPECT_EQ(S_OK, db->ConStartTransaction(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    EXPECT_EQ(S_OK, db->ConCommit(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    EXPECT_EQ(S_OK, db->ConRollback(&answer));
    EXPECT_EQ(VARIANT_FALSE, answer);
    Bstr text;
    EXPECT_EQ(E_FAIL, db->ConGetDatasource(text.put()));
    EXPECT_EQ(E_FAIL, db->ConGetCurrentCatalog(text.put()));
    EXPECT_EQ(S_OK, db->ConClose());
}

TEST_F(ServiceTest, UnknownProviderFailsWithEFail) {
    Bstr errorText, errorStmt;
    EXPECT_EQ(E_FAIL, db->ConOpenFromInitializationString(Bstr(L"Provider=No.Such.Provider.1;Data Source=x").get(),
                                                          VARIANT_FALSE, errorText.put(), errorStmt.put()));
    ASSERT_NE(nullptr, errorStmt.get());
    EXPECT_EQ(0u, errorStmt.length());
    VARIANT_BOOL connected = 7;
    EXPECT_EQ(S_OK, db->ConIsConnected(&connected));
    EXPECT_EQ(VARIANT_FALSE, connected);
    // With a connection object that never opened, the read-only answer is true.
    VARIANT_BOOL readOnly = 0;
    EXPECT_EQ(S_OK, db->ConIsReadOnly(&readOnly));
    EXPECT_EQ(VARIANT_TRUE, readOnly);
}

TEST(ServiceLifetime, ReleasingWithHandlesRegisteredFreesTheObjectAndItsModuleLock) {
    LONG before = ModuleLifetime::Count();
    {
        ComPtr<IZelOleDb> db;
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
        EXPECT_EQ(before + 1, ModuleLifetime::Count());
        ULONG a = 0, b = 0;
        ASSERT_EQ(S_OK, db->CmdSetConnection(&a));
        Sleep(2);
        ASSERT_EQ(S_OK, db->CmdSetConnection(&b));
    }
    EXPECT_EQ(before, ModuleLifetime::Count());
}

TEST(ServiceLifetime, ReferenceCountIsReturnedByAddRefAndRelease) {
    ComPtr<IZelOleDb> db;
    ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
    EXPECT_EQ(2u, db->AddRef());
    EXPECT_EQ(1u, db->Release());
}

TEST(ServiceLifetime, AggregatedObjectDelegatesToItsOuterUnknown) {
    // A minimal outer object that counts its references.
    struct Outer : IUnknown {
        LONG refs = 1;
        IUnknown* inner = nullptr;
        STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
            if (riid == IID_IUnknown) {
                *ppv = this;
                AddRef();
                return S_OK;
            }
            return inner->QueryInterface(riid, ppv);
        }
        STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
        STDMETHODIMP_(ULONG) Release() override { return --refs; }
    } outer;
    ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(&outer, IID_IUnknown, reinterpret_cast<void**>(&outer.inner)));
    IZelOleDb* db = nullptr;
    ASSERT_EQ(S_OK, outer.inner->QueryInterface(IID_IZelOleDb, reinterpret_cast<void**>(&db)));
    EXPECT_EQ(2, outer.refs);  // the reference went to the outer object
    IUnknown* identity = nullptr;
    ASSERT_EQ(S_OK, db->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)));
    EXPECT_EQ(static_cast<IUnknown*>(&outer), identity);
    identity->Release();
    db->Release();
    EXPECT_EQ(1, outer.refs);
    void* wrong = nullptr;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, zel::ZelOleDbImpl::CreateInstance(&outer, IID_IZelOleDb, &wrong));
    outer.inner->Release();  // the inner object's own reference, held by its outer
}
