// Local transactions through ITransactionLocal and ITransaction on a session.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class Transactions : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE t (v INTEGER)");
        local = c.session.as<ITransactionLocal>();
    }
    std::wstring Count(const Connection& connection) {
        return ReadAllAsText(connection.Query(L"SELECT count(*) FROM t").get())[0][0];
    }
    TempDatabase db;
    Connection c;
    ComPtr<ITransactionLocal> local;
};

TEST_F(Transactions, CommitMakesTheChangesVisibleToOtherSessions) {
    auto other = Connection::Open(db.ConnectionString());
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    c.Run(L"INSERT INTO t VALUES (1)");
    EXPECT_EQ(L"1", Count(c));
    EXPECT_EQ(L"0", Count(other));
    ASSERT_EQ(S_OK, local->Commit(FALSE, XACTTC_SYNC, 0));
    EXPECT_EQ(L"1", Count(other));
}

TEST_F(Transactions, AbortUndoesTheChanges) {
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    c.Run(L"INSERT INTO t VALUES (1)");
    ASSERT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
    EXPECT_EQ(L"0", Count(c));
}

TEST_F(Transactions, ASecondStartFailsWithTransactionExists) {
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    EXPECT_EQ(XACT_E_XTIONEXISTS, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    EXPECT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
}

TEST_F(Transactions, CommitOrAbortWithoutATransactionFails) {
    EXPECT_EQ(XACT_E_NOTRANSACTION, local->Commit(FALSE, XACTTC_SYNC, 0));
    EXPECT_EQ(XACT_E_NOTRANSACTION, local->Abort(nullptr, FALSE, FALSE));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(XACT_E_NOTRANSACTION, errors[0].hr);
}

TEST_F(Transactions, TheGrantedIsolationLevelIsReportedTruthfully) {
    ULONG level = 0;
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, &level));
    EXPECT_EQ(1u, level);
    XACTTRANSINFO info{};
    ASSERT_EQ(S_OK, local->GetTransactionInfo(&info));
    EXPECT_EQ(ISOLATIONLEVEL_SERIALIZABLE, info.isoLevel);
    local->Abort(nullptr, FALSE, FALSE);
    EXPECT_EQ(XACT_E_NOTRANSACTION, local->GetTransactionInfo(&info));
}

TEST_F(Transactions, AChaoticIsolationLevelIsRefused) {
    EXPECT_EQ(XACT_E_ISOLATIONLEVEL, local->StartTransaction(ISOLATIONLEVEL_CHAOS, 0, nullptr, nullptr));
}

TEST_F(Transactions, ARetainingCommitStartsTheNextTransaction) {
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_SERIALIZABLE, 0, nullptr, nullptr));
    c.Run(L"INSERT INTO t VALUES (1)");
    ASSERT_EQ(S_OK, local->Commit(TRUE, XACTTC_SYNC, 0));
    c.Run(L"INSERT INTO t VALUES (2)");
    ASSERT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
    EXPECT_EQ(L"1", Count(c));
}

TEST_F(Transactions, AsynchronousCommitIsNotSupported) {
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    EXPECT_EQ(XACT_E_NOTSUPPORTED, local->Commit(FALSE, XACTTC_ASYNC, 0));
    EXPECT_EQ(XACT_E_NOTSUPPORTED, local->Abort(nullptr, FALSE, TRUE));
    EXPECT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
}

TEST_F(Transactions, ATransactionInterfaceIsOfferedBesideTheLocalOne) {
    auto transaction = c.session.as<ITransaction>();
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    EXPECT_EQ(S_OK, transaction->Commit(FALSE, XACTTC_SYNC, 0));
}

TEST_F(Transactions, ReleasingTheSessionRollsBackItsOpenTransaction) {
    {
        auto other = Connection::Open(db.ConnectionString());
        ASSERT_EQ(S_OK, other.session.as<ITransactionLocal>()->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0,
                                                                                 nullptr, nullptr));
        other.Run(L"INSERT INTO t VALUES (1)");
    }
    EXPECT_EQ(L"0", Count(c));
}

}  // namespace
