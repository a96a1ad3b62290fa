// When the server counts its clients as gone: only after it has seen a client connection,
// and only when several observations in a row find none.
#include "server/ClientWatch.h"

#include <gtest/gtest.h>

using zel::ClientWatch;

namespace {

TEST(ClientWatch, WithoutAConnectionEverSeenTheClientsNeverCountAsGone) {
    ClientWatch watch;
    for (int i = 0; i < 100; ++i) EXPECT_FALSE(watch.Observe(0)) << i;
}

TEST(ClientWatch, AfterAConnectionTheClientsAreGoneWhenSeveralObservationsInARowFindNone) {
    ClientWatch watch;
    EXPECT_FALSE(watch.Observe(3));
    for (unsigned i = 1; i < ClientWatch::kQuietObservations; ++i) EXPECT_FALSE(watch.Observe(0)) << i;
    EXPECT_TRUE(watch.Observe(0));
}

TEST(ClientWatch, AConnectionInBetweenStartsTheCountAgain) {
    ClientWatch watch;
    watch.Observe(1);
    for (unsigned i = 1; i < ClientWatch::kQuietObservations; ++i) EXPECT_FALSE(watch.Observe(0));
    EXPECT_FALSE(watch.Observe(2)) << "a new client came";
    for (unsigned i = 1; i < ClientWatch::kQuietObservations; ++i) EXPECT_FALSE(watch.Observe(0));
    EXPECT_TRUE(watch.Observe(0));
}

TEST(ClientWatch, AConnectionNotedBetweenObservationsCounts) {
    ClientWatch watch;
    EXPECT_FALSE(watch.Observe(0));
    watch.NoteConnection();
    for (unsigned i = 1; i < ClientWatch::kQuietObservations; ++i) EXPECT_FALSE(watch.Observe(0));
    EXPECT_TRUE(watch.Observe(0));
}

TEST(ClientWatch, AWatchThatJudgesTheUnseenCaseCountsTheClientsGoneAfterItsLongerRun) {
    ClientWatch watch(true);
    for (unsigned i = 1; i < ClientWatch::kUnseenObservations; ++i) EXPECT_FALSE(watch.Observe(0)) << i;
    EXPECT_TRUE(watch.Observe(0));
}

TEST(ClientWatch, AWatchThatJudgesTheUnseenCaseKeepsTheShorterRunOnceAConnectionWasSeen) {
    ClientWatch watch(true);
    EXPECT_FALSE(watch.Observe(0));
    EXPECT_FALSE(watch.Observe(1));
    for (unsigned i = 1; i < ClientWatch::kQuietObservations; ++i) EXPECT_FALSE(watch.Observe(0)) << i;
    EXPECT_TRUE(watch.Observe(0));
}

TEST(ClientWatch, ConnectionThreadsAreVisibleUnderWine) {
    // These tests run under Wine only: its ntdll names itself.
    EXPECT_TRUE(zel::ConnectionThreadsAreVisible());
}

TEST(ClientWatch, ThisProcessHasNoConnectionThreadsOfItsOwn) {
    // A test program serves no client; only a server's RPC runtime runs connection threads.
    EXPECT_EQ(0u, zel::CountClientConnections());
}

}  // namespace
