// The progress rule: only on a terminal, at most every half second, wiped at the end.
#include <gtest/gtest.h>

#include "host/Progress.h"

namespace zel::zeldb {
namespace {

struct FakeClock {
    std::uint64_t now = 1000;
    ProgressMeter::Clock clock() {
        return [this] { return now; };
    }
};

TEST(ZelDbProgress, ShowsNothingWhenStandardErrorIsNotATerminal) {
    StringSink err(false);
    FakeClock time;
    {
        ProgressMeter progress(err, time.clock());
        EXPECT_FALSE(progress.enabled());
        for (int i = 1; i <= 10; ++i) {
            time.now += 600;
            progress.Update(static_cast<std::uint64_t>(i) * 1000);
        }
    }
    EXPECT_EQ(err.text(), L"");
}

TEST(ZelDbProgress, ReportsRowsEveryHalfSecondOnATerminal) {
    StringSink err(true);
    FakeClock time;
    ProgressMeter progress(err, time.clock());
    progress.Update(10);  // no time has passed
    EXPECT_EQ(err.text(), L"");
    time.now += 499;
    progress.Update(20);
    EXPECT_EQ(err.text(), L"");
    time.now += 1;
    progress.Update(30);
    EXPECT_EQ(err.text(), L"\r30 rows fetched...");
    time.now += 100;
    progress.Update(40);
    EXPECT_EQ(err.text(), L"\r30 rows fetched...");
    time.now += 400;
    progress.Update(1234);
    EXPECT_EQ(err.text(), L"\r30 rows fetched...\r1234 rows fetched...");
}

TEST(ZelDbProgress, FinishWipesTheLineOnlyWhenSomethingWasShown) {
    StringSink quiet(true);
    FakeClock time;
    {
        ProgressMeter progress(quiet, time.clock());
        progress.Update(5);
        progress.Finish();
    }
    EXPECT_EQ(quiet.text(), L"");

    StringSink shown(true);
    ProgressMeter progress(shown, time.clock());
    time.now += 500;
    progress.Update(1);
    progress.Finish();
    progress.Finish();
    EXPECT_EQ(shown.text(), L"\r1 row fetched...\r                \r");
}

}  // namespace
}  // namespace zel::zeldb
