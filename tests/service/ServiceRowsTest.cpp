// The batch interface of the service object in process: what a marshaller never lets
// through (null pointers), QueryInterface between the two interfaces, and batches on an
// aggregated object.
#include "service/ZelOleDbImpl.h"

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "common/Variant.h"
#include "tests/support/EmbeddedProvider.h"

using namespace zel;
using zel::test::ScratchDatabase;

namespace {

class ServiceRowsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(S_OK, zel::test::RegisterEmbeddedProvider()); }

    void SetUp() override {
        ASSERT_EQ(S_OK, zel::ZelOleDbImpl::CreateInstance(nullptr, IID_IZelOleDb, db.put_void()));
        ASSERT_EQ(S_OK, db.query(rows));
        Bstr errorText, errorStmt;
        ASSERT_EQ(S_OK, db->ConOpenFromInitializationString(Bstr(database.ConnectionString().c_str()).get(),
                                                            VARIANT_FALSE, errorText.put(), errorStmt.put()));
    }

    ULONG Command(const wchar_t* sql) {
        ULONG handle = 0;
        EXPECT_EQ(S_OK, db->CmdSetConnection(&handle));
        EXPECT_EQ(S_OK, db->CmdSetCommandText(handle, Bstr(sql).get()));
        return handle;
    }

    SHORT Execute(ULONG handle, LONG maxRows, Variant& batch) {
        SHORT result = -1;
        Bstr errorText, errorStmt;
        EXPECT_EQ(S_OK, rows->RowsExecute(handle, maxRows, &result, errorText.put(), errorStmt.put(), batch.put()));
        return result;
    }

    ScratchDatabase database;
    ComPtr<IZelOleDb> db;
    ComPtr<IZelOleDbRows> rows;
};

TEST_F(ServiceRowsTest, NullPointersAreRefusedWithEPointer) {
    const ULONG handle = Command(L"SELECT 1");
    SHORT result = 0;
    Variant batch;
    EXPECT_EQ(E_POINTER, rows->RowsExecute(handle, 1, nullptr, nullptr, nullptr, batch.put()));
    EXPECT_EQ(E_POINTER, rows->RowsExecute(handle, 1, &result, nullptr, nullptr, nullptr));
    EXPECT_EQ(E_POINTER, rows->RowsFetch(handle, 1, nullptr));
    EXPECT_EQ(E_POINTER, rows->RowsGetColumns(handle, nullptr));
    // The error texts may be left out, as with CmdExecute.
    ASSERT_EQ(S_OK, rows->RowsExecute(handle, 1, &result, nullptr, nullptr, batch.put()));
    EXPECT_EQ(1, result);
    EXPECT_EQ(VT_ARRAY | VT_VARIANT, batch.vt());
}

TEST_F(ServiceRowsTest, EachInterfaceReachesTheOtherAndTheObjectsIdentity) {
    ComPtr<IUnknown> one, two;
    ASSERT_EQ(S_OK, db.query(one));
    ASSERT_EQ(S_OK, rows.query(two));
    EXPECT_EQ(one.get(), two.get());
    ComPtr<IZelOleDb> back;
    ASSERT_EQ(S_OK, rows.query(back));
    EXPECT_EQ(db.get(), back.get());
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(S_OK, rows.query(dispatch));
    EXPECT_EQ(static_cast<IDispatch*>(db.get()), dispatch.get());  // the object's IDispatch is IZelOleDb's
    ComPtr<IProvideClassInfo> classInfo;
    EXPECT_EQ(S_OK, rows.query(classInfo));
    void* none = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_POINTER, rows->QueryInterface(IID_IZelOleDbRows, nullptr));
    EXPECT_EQ(E_NOINTERFACE, rows->QueryInterface(IID_IClassFactory, &none));
    EXPECT_EQ(nullptr, none);
}

TEST_F(ServiceRowsTest, TheBatchInterfaceKeepsTheObjectAlive) {
    ComPtr<IZelOleDbRows> kept = rows;
    rows.reset();
    db.reset();  // only the batch interface holds the object now
    const ULONG handle = 0;
    Variant batch;
    EXPECT_EQ(E_HANDLE, kept->RowsFetch(handle, 1, batch.put()));
}

TEST_F(ServiceRowsTest, BatchesWalkTheRowsAsCmdFetchNextWould) {
    const ULONG handle = Command(L"WITH RECURSIVE s(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM s WHERE i < 7) "
                                 L"SELECT i FROM s");
    Variant batch;
    ASSERT_EQ(1, Execute(handle, 3, batch));
    SHORT moved = 0;
    ASSERT_EQ(S_OK, db->CmdFetchNext(handle, &moved));  // row 4, between two batches
    ASSERT_EQ(1, moved);
    ASSERT_EQ(S_OK, rows->RowsFetch(handle, 3, batch.put()));
    ASSERT_EQ(VT_ARRAY | VT_VARIANT, batch.vt());
    LONG indices[2] = {0, 0};
    Variant first;
    ASSERT_EQ(S_OK, SafeArrayGetElement(V_ARRAY(batch.get()), indices, first.get()));
    ASSERT_EQ(S_OK, first.change_type(VT_I4));  // an expression's integer type is the provider's choice
    EXPECT_EQ(5, V_I4(first.get()));
}

}  // namespace
