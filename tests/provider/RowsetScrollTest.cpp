// Moving through a rowset: forward fetches, negative skips counted from the position after the
// last fetched row, RestartPosition, backward fetches, row handles and their reference counts.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class RowsetScroll : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE n (v TEXT(10))");
        c.Run(L"INSERT INTO n VALUES ('1'), ('2'), ('3'), ('4'), ('5')");
        ServerRowsetProperties server;
        rowset = c.Query(L"SELECT v FROM n ORDER BY v", &server.set, 1);
        ASSERT_TRUE(rowset);
    }
    std::wstring Next(DBROWOFFSET skip = 0, DBROWCOUNT count = 1, HRESULT* hr = nullptr) {
        return FetchFirstColumn(rowset.get(), skip, count, hr);
    }
    TempDatabase db;
    Connection c;
    ComPtr<IRowset> rowset;
};

TEST_F(RowsetScroll, ForwardFetchesReturnRowsInOrderThenEndOfRowset) {
    for (const wchar_t* expected : {L"1", L"2", L"3", L"4", L"5"}) EXPECT_EQ(expected, Next());
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", Next(0, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
    EXPECT_EQ(L"<none>", Next(0, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
}

TEST_F(RowsetScroll, SkipMinusTwoCountOneGivesThePreviousRow) {
    Next();
    Next();
    EXPECT_EQ(L"3", Next());
    EXPECT_EQ(L"2", Next(-2, 1));
    EXPECT_EQ(L"1", Next(-2, 1));
    EXPECT_EQ(L"2", Next());
}

TEST_F(RowsetScroll, SkipMinusTwoFromTheFirstRowRunsOffTheFront) {
    EXPECT_EQ(L"1", Next());
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", Next(-2, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"1", Next());
}

TEST_F(RowsetScroll, RestartThenSkipMinusOneGivesTheLastRow) {
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"5", Next(-1, 1));
}

TEST_F(RowsetScroll, FetchPrevAfterFetchLastGivesSecondToLastRow) {
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"5", Next(-1, 1));
    EXPECT_EQ(L"4", Next(-2, 1));
    EXPECT_EQ(L"3", Next(-2, 1));
}

TEST_F(RowsetScroll, ForwardAfterTheLastRowFetchedBackwardsContinuesAfterIt) {
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"5", Next(-1, 1));
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", Next(0, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
}

TEST_F(RowsetScroll, ANegativeCountFetchesBackwardsStartingWithTheLastRowFetched) {
    Next();
    Next();
    EXPECT_EQ(L"3", Next());
    EXPECT_EQ(L"3", Next(0, -1));  // reversing direction returns the last row again
    EXPECT_EQ(L"2", Next(0, -1));
    EXPECT_EQ(L"1", Next(0, -1));
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", Next(0, -1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
}

TEST_F(RowsetScroll, ANegativeCountRightAfterRestartStartsAtTheEnd) {
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"5", Next(0, -1));
    EXPECT_EQ(L"4", Next(0, -1));
}

TEST_F(RowsetScroll, PositiveSkipsJumpOverRows) {
    EXPECT_EQ(L"3", Next(2, 1));
    HRESULT hr = S_OK;
    EXPECT_EQ(L"<none>", Next(5, 1, &hr));
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
}

TEST_F(RowsetScroll, RestartPositionStartsOverAtTheFirstRow) {
    HRESULT hr = S_OK;
    for (int fetched = 0; fetched < 10 && hr == S_OK; ++fetched) Next(0, 1, &hr);
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
    ASSERT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    EXPECT_EQ(L"1", Next());
}

TEST_F(RowsetScroll, SeveralRowsComeBackInOneCallWithEndOfRowsetWhenShort) {
    DBCOUNTITEM obtained = 0;
    HROW* rows = nullptr;
    EXPECT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 3, &obtained, &rows));
    EXPECT_EQ(3u, obtained);
    ASSERT_NE(nullptr, rows);
    EXPECT_EQ(S_OK, rowset->ReleaseRows(obtained, rows, nullptr, nullptr, nullptr));
    CoTaskMemFree(rows);
    rows = nullptr;
    EXPECT_EQ(DB_S_ENDOFROWSET, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 3, &obtained, &rows));
    EXPECT_EQ(2u, obtained);
    rowset->ReleaseRows(obtained, rows, nullptr, nullptr, nullptr);
    CoTaskMemFree(rows);
}

TEST_F(RowsetScroll, AReleasedRowHandleIsRejected) {
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    DBREFCOUNT refs = 99;
    DBROWSTATUS status = 99;
    EXPECT_EQ(S_OK, rowset->ReleaseRows(1, &row, nullptr, &refs, &status));
    EXPECT_EQ(0u, refs);
    EXPECT_EQ(DBROWSTATUS_S_OK, status);
    EXPECT_EQ(DB_E_BADROWHANDLE, ReadValue(rowset.get(), row, 1, DBTYPE_WSTR, 40).hr);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, rowset->ReleaseRows(1, &row, nullptr, &refs, &status));
    EXPECT_EQ(DBROWSTATUS_E_INVALID, status);
}

TEST_F(RowsetScroll, AddRefRowsKeepsAHandleAliveUntilEveryReferenceIsReleased) {
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* rows = &row;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    DBREFCOUNT refs = 0;
    EXPECT_EQ(S_OK, rowset->AddRefRows(1, &row, &refs, nullptr));
    EXPECT_EQ(2u, refs);
    EXPECT_EQ(S_OK, rowset->ReleaseRows(1, &row, nullptr, &refs, nullptr));
    EXPECT_EQ(1u, refs);
    auto read = ReadValue(rowset.get(), row, 1, DBTYPE_WSTR, 40);
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_STREQ(L"1", reinterpret_cast<const wchar_t*>(read.value.data()));
    EXPECT_EQ(S_OK, rowset->ReleaseRows(1, &row, nullptr, &refs, nullptr));
}

TEST_F(RowsetScroll, HeldRowsStayReadableWhileOthersAreFetched) {
    DBCOUNTITEM obtained = 0;
    HROW first = DB_NULL_HROW;
    HROW* rows = &first;
    ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows));
    EXPECT_EQ(L"2", Next());
    EXPECT_EQ(L"3", Next());
    auto read = ReadValue(rowset.get(), first, 1, DBTYPE_WSTR, 40);
    EXPECT_STREQ(L"1", reinterpret_cast<const wchar_t*>(read.value.data()));
    rowset->ReleaseRows(1, &first, nullptr, nullptr, nullptr);
}

TEST_F(RowsetScroll, ChaptersAreRefused) {
    DBCOUNTITEM obtained = 0;
    HROW* rows = nullptr;
    EXPECT_EQ(DB_E_BADCHAPTER, rowset->GetNextRows(static_cast<HCHAPTER>(5), 0, 1, &obtained, &rows));
    EXPECT_EQ(DB_E_BADCHAPTER, rowset->RestartPosition(static_cast<HCHAPTER>(5)));
}

TEST_F(RowsetScroll, BackwardScrollingCanBeTurnedOff) {
    DBPROP prop = BoolProperty(DBPROP_CANSCROLLBACKWARDS, false);
    DBPROPSET set{&prop, 1, DBPROPSET_ROWSET};
    auto forwardOnly = c.Query(L"SELECT v FROM n", &set, 1);
    ASSERT_TRUE(forwardOnly);
    DBCOUNTITEM obtained = 0;
    HROW* rows = nullptr;
    EXPECT_EQ(DB_E_CANTSCROLLBACKWARDS, forwardOnly->GetNextRows(DB_NULL_HCHAPTER, -1, 1, &obtained, &rows));
}

}  // namespace
