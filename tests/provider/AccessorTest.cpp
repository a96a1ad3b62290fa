// IAccessor on rowsets: validation of each binding with its DBBINDSTATUS, accessor flags,
// reference counts, and reading the bindings back.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class AccessorValidation : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE a (id GUID, name TEXT(20))");
        c.Run(L"INSERT INTO a VALUES ('{00000000-0000-0000-0000-000000000001}', 'x')");
        rowset = c.Query(L"SELECT id, name FROM a");
        ASSERT_TRUE(rowset);
        accessor = rowset.as<IAccessor>();
    }
    HRESULT Create(const std::vector<DBBINDING>& bindings, std::vector<DBBINDSTATUS>& statuses,
                   HACCESSOR* handle = nullptr, DBACCESSORFLAGS flags = DBACCESSOR_ROWDATA) {
        statuses.assign(bindings.size(), 0xFFFF);
        HACCESSOR local = static_cast<HACCESSOR>(0x1234);
        HACCESSOR* out = handle ? handle : &local;
        HRESULT hr = accessor->CreateAccessor(flags, bindings.size(), bindings.data(), 0, out, statuses.data());
        if (SUCCEEDED(hr) && !handle) accessor->ReleaseAccessor(local, nullptr);
        if (FAILED(hr)) {
            EXPECT_EQ(DB_NULL_HACCESSOR, *out);
        }
        return hr;
    }
    DBBINDING Text(DBORDINAL ordinal) { return Binding::Make(ordinal, DBTYPE_WSTR, 100, 0, 104, 112); }
    TempDatabase db;
    Connection c;
    ComPtr<IRowset> rowset;
    ComPtr<IAccessor> accessor;
};

TEST_F(AccessorValidation, AValidAccessorIsCreatedWithOkStatuses) {
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(S_OK, Create({Text(1), Binding::Make(2, DBTYPE_WSTR, 100, 200, 304, 312)}, statuses));
    EXPECT_EQ(DBBINDSTATUS_OK, statuses[0]);
    EXPECT_EQ(DBBINDSTATUS_OK, statuses[1]);
}

TEST_F(AccessorValidation, AnOrdinalBeyondTheColumnsIsBadOrdinal) {
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create({Text(1), Text(3)}, statuses));
    EXPECT_EQ(DBBINDSTATUS_OK, statuses[0]);
    EXPECT_EQ(DBBINDSTATUS_BADORDINAL, statuses[1]);
}

TEST_F(AccessorValidation, OrdinalZeroWithoutBookmarksIsBadOrdinal) {
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create({Text(0)}, statuses));
    EXPECT_EQ(DBBINDSTATUS_BADORDINAL, statuses[0]);
}

TEST_F(AccessorValidation, AConversionTheProviderCannotMakeIsUnsupported) {
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create({Binding::Make(1, DBTYPE_I4, 4, 0, 8, 16)}, statuses));
    EXPECT_EQ(DBBINDSTATUS_UNSUPPORTEDCONVERSION, statuses[0]);
}

TEST_F(AccessorValidation, BindingsWithoutPartsOrWithoutATypeAreBadBindInfo) {
    DBBINDING noParts = Text(1);
    noParts.dwPart = 0;
    DBBINDING empty = Text(2);
    empty.wType = DBTYPE_EMPTY;
    DBBINDING providerOwned = Text(2);
    providerOwned.dwMemOwner = DBMEMOWNER_PROVIDEROWNED;
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create({noParts, empty, providerOwned}, statuses));
    EXPECT_EQ(DBBINDSTATUS_BADBINDINFO, statuses[0]);
    EXPECT_EQ(DBBINDSTATUS_BADBINDINFO, statuses[1]);
    EXPECT_EQ(DBBINDSTATUS_BADBINDINFO, statuses[2]);
}

TEST_F(AccessorValidation, AStorageInterfaceTheProviderLacksIsNoInterface) {
    DBOBJECT object{STGM_READ, IID_IStorage};
    DBBINDING b = Binding::Make(2, DBTYPE_IUNKNOWN, sizeof(IUnknown*), 0, 8, 16);
    b.pObject = &object;
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create({b}, statuses));
    EXPECT_EQ(DBBINDSTATUS_NOINTERFACE, statuses[0]);
}

TEST_F(AccessorValidation, AccessorFlagsAreChecked) {
    std::vector<DBBINDSTATUS> statuses;
    EXPECT_EQ(DB_E_BADACCESSORFLAGS, Create({Text(1)}, statuses, nullptr, 0));
    EXPECT_EQ(DB_E_BADACCESSORFLAGS, Create({Text(1)}, statuses, nullptr, DBACCESSOR_PARAMETERDATA));
    EXPECT_EQ(DB_E_BYREFACCESSORNOTSUPPORTED,
              Create({Text(1)}, statuses, nullptr, DBACCESSOR_ROWDATA | DBACCESSOR_PASSBYREF));
}

TEST_F(AccessorValidation, BindingsReadBackAsCreated) {
    HACCESSOR handle = DB_NULL_HACCESSOR;
    std::vector<DBBINDSTATUS> statuses;
    ASSERT_EQ(S_OK, Create({Text(2)}, statuses, &handle));
    DBACCESSORFLAGS flags = 0;
    DBCOUNTITEM count = 0;
    DBBINDING* bindings = nullptr;
    ASSERT_EQ(S_OK, accessor->GetBindings(handle, &flags, &count, &bindings));
    EXPECT_EQ(static_cast<DBACCESSORFLAGS>(DBACCESSOR_ROWDATA), flags);
    ASSERT_EQ(1u, count);
    EXPECT_EQ(2u, bindings[0].iOrdinal);
    EXPECT_EQ(DBTYPE_WSTR, bindings[0].wType);
    EXPECT_EQ(100u, bindings[0].cbMaxLen);
    CoTaskMemFree(bindings);
    accessor->ReleaseAccessor(handle, nullptr);
}

TEST_F(AccessorValidation, AReleasedAccessorIsABadHandle) {
    HACCESSOR handle = DB_NULL_HACCESSOR;
    std::vector<DBBINDSTATUS> statuses;
    ASSERT_EQ(S_OK, Create({Text(2)}, statuses, &handle));
    DBREFCOUNT refs = 0;
    EXPECT_EQ(S_OK, accessor->AddRefAccessor(handle, &refs));
    EXPECT_EQ(2u, refs);
    EXPECT_EQ(S_OK, accessor->ReleaseAccessor(handle, &refs));
    EXPECT_EQ(1u, refs);
    EXPECT_EQ(S_OK, accessor->ReleaseAccessor(handle, &refs));
    EXPECT_EQ(0u, refs);
    EXPECT_EQ(DB_E_BADACCESSORHANDLE, accessor->ReleaseAccessor(handle, &refs));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    BYTE buffer[256];
    EXPECT_EQ(DB_E_BADACCESSORHANDLE, rowset->GetData(row, handle, buffer));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(AccessorValidation, GetDataWithoutABufferIsAnInvalidArgument) {
    HACCESSOR handle = DB_NULL_HACCESSOR;
    std::vector<DBBINDSTATUS> statuses;
    ASSERT_EQ(S_OK, Create({Text(2)}, statuses, &handle));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    EXPECT_EQ(E_INVALIDARG, rowset->GetData(row, handle, nullptr));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    accessor->ReleaseAccessor(handle, nullptr);
}

TEST_F(AccessorValidation, OnlyTheBoundPartsAreWritten) {
    DBBINDING lengthOnly = Text(2);
    lengthOnly.dwPart = DBPART_LENGTH | DBPART_STATUS;
    HACCESSOR handle = DB_NULL_HACCESSOR;
    std::vector<DBBINDSTATUS> statuses;
    ASSERT_EQ(S_OK, Create({lengthOnly}, statuses, &handle));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    std::vector<BYTE> buffer(256, 0xAB);
    EXPECT_EQ(S_OK, rowset->GetData(row, handle, buffer.data()));
    EXPECT_EQ(0xAB, buffer[0]);  // the value part was left alone
    DBLENGTH length = 0;
    memcpy(&length, buffer.data() + 104, sizeof(length));
    EXPECT_EQ(2u, length);
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    accessor->ReleaseAccessor(handle, nullptr);
}

TEST_F(AccessorValidation, ANullReadWithoutStatusGivesTheEmptyValueOfTheBoundType) {
    c.Run(L"CREATE TABLE n (i INTEGER, t TEXT(20), d DOUBLE)");
    c.Run(L"INSERT INTO n VALUES (NULL, NULL, NULL)");
    ComPtr<IRowset> nulls = c.Query(L"SELECT i, t, d FROM n");
    ASSERT_TRUE(nulls);
    auto nullAccessor = nulls.as<IAccessor>();
    DBBINDING bindings[3] = {Binding::Make(1, DBTYPE_I4, 0, 0, 0, 0), Binding::Make(2, DBTYPE_WSTR, 40, 8, 0, 0),
                             Binding::Make(3, DBTYPE_R8, 0, 48, 0, 0)};
    for (DBBINDING& b : bindings) b.dwPart = DBPART_VALUE;
    HACCESSOR handle = DB_NULL_HACCESSOR;
    ASSERT_EQ(S_OK, nullAccessor->CreateAccessor(DBACCESSOR_ROWDATA, 3, bindings, 0, &handle, nullptr));
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, nulls->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    std::vector<BYTE> buffer(64, 0xAB);
    EXPECT_EQ(S_OK, nulls->GetData(row, handle, buffer.data()));
    LONG i = -1;
    wchar_t first = L'?';
    double d = -1;
    memcpy(&i, buffer.data(), sizeof(i));
    memcpy(&first, buffer.data() + 8, sizeof(first));
    memcpy(&d, buffer.data() + 48, sizeof(d));
    EXPECT_EQ(0, i);
    EXPECT_EQ(L'\0', first);
    EXPECT_EQ(0.0, d);
    EXPECT_EQ(0xAB, buffer[4]);  // nothing beyond the bound value is written
    nulls->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    nullAccessor->ReleaseAccessor(handle, nullptr);
}

}  // namespace
