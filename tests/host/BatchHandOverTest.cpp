// The hand-over of row batches between zeldb's fetching and printing threads: order, the
// bound on batches waiting, a printer that stops early and one that fails.
#include "host/BatchHandOver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

using zel::Variant;
using zel::zeldb::BatchHandOver;

namespace {

Variant Number(LONG n) {
    Variant v;
    VARIANT* value = v.put();
    V_VT(value) = VT_I4;
    V_I4(value) = n;
    return v;
}

TEST(BatchHandOverTest, BatchesArriveInOrderAndTheEndIsSeen) {
    BatchHandOver handOver(2);
    std::vector<LONG> taken;
    std::thread printer([&] {
        Variant batch;
        while (handOver.Take(batch)) taken.push_back(V_I4(batch.get()));
    });
    for (LONG n = 0; n < 500; ++n) ASSERT_TRUE(handOver.Put(Number(n)));
    handOver.Close();
    printer.join();
    ASSERT_EQ(taken.size(), 500u);
    for (LONG n = 0; n < 500; ++n) EXPECT_EQ(taken[static_cast<size_t>(n)], n);
    EXPECT_NO_THROW(handOver.RethrowFailure());
}

TEST(BatchHandOverTest, TheFetchingSideWaitsWhileTheBatchesAheadAreWaiting) {
    BatchHandOver handOver(2);
    ASSERT_TRUE(handOver.Put(Number(1)));
    ASSERT_TRUE(handOver.Put(Number(2)));
    std::atomic<bool> thirdPut{false};
    std::thread fetcher([&] {
        handOver.Put(Number(3));
        thirdPut = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(thirdPut.load());
    Variant batch;
    ASSERT_TRUE(handOver.Take(batch));
    EXPECT_EQ(V_I4(batch.get()), 1);
    fetcher.join();
    EXPECT_TRUE(thirdPut.load());
}

TEST(BatchHandOverTest, AStoppedPrinterEndsTheFetching) {
    BatchHandOver handOver(1);
    ASSERT_TRUE(handOver.Put(Number(1)));
    std::thread fetcher([&] { EXPECT_FALSE(handOver.Put(Number(2))); });
    handOver.Stop();
    fetcher.join();
    EXPECT_FALSE(handOver.Put(Number(3)));
    EXPECT_NO_THROW(handOver.RethrowFailure());
}

TEST(BatchHandOverTest, APrinterFailureReachesTheFetchingSide) {
    BatchHandOver handOver(2);
    handOver.Stop(std::make_exception_ptr(std::runtime_error("disk full")));
    EXPECT_FALSE(handOver.Put(Number(1)));
    handOver.Close();
    Variant batch;
    EXPECT_FALSE(handOver.Take(batch));
    EXPECT_THROW(handOver.RethrowFailure(), std::runtime_error);
}

}  // namespace
