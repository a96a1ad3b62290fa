// ZelLite's row cache on its own: every value kind comes back as it was read after the compact
// encoding, rows read in either direction and again, changed and appended rows.
#include "provider/rows/RowCache.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace zel::provider;

namespace {

SourceRow Row(std::vector<Cell> cells, std::optional<std::int64_t> rowid = std::nullopt) {
    SourceRow row;
    row.cells = std::move(cells);
    row.rowid = rowid;
    return row;
}

RowCache Cache(std::vector<SourceRow> rows, size_t maxRows = 0) {
    return RowCache(std::make_unique<MemoryRowSource>(std::vector<ColumnDesc>{}, std::move(rows)), maxRows);
}

void ExpectSameRow(const SourceRow& expected, const SourceRow& actual) {
    EXPECT_EQ(expected.rowid, actual.rowid);
    ASSERT_EQ(expected.cells.size(), actual.cells.size());
    for (size_t i = 0; i < expected.cells.size(); ++i) {
        SCOPED_TRACE("cell " + std::to_string(i));
        const Cell& e = expected.cells[i];
        const Cell& a = actual.cells[i];
        ASSERT_EQ(e.index(), a.index());
        if (const double* real = std::get_if<double>(&e)) {
            const double got = std::get<double>(a);
            if (std::isnan(*real)) {
                EXPECT_TRUE(std::isnan(got));
            } else {
                EXPECT_EQ(0, memcmp(real, &got, sizeof got));  // the same bits, -0.0 included
            }
        } else {
            EXPECT_TRUE(e == a);
        }
    }
}

// Values of every storage class at their edges.
std::vector<SourceRow> EdgeRows() {
    const std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    const std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    std::wstring wide = L"a\xE9\x20AC\xD83D\xDE00";
    std::wstring latin(300, L'\xFF');
    std::wstring nul(L"x\0y", 3);
    Bytes odd = {1, 2, 3};
    Bytes big(400000, 0x5A);
    std::wstring longText(300000, L'q');
    return {
        Row({Cell{}, std::int64_t{0}, std::int64_t{-1}, std::int64_t{1}, kMin, kMax, std::int64_t{127},
             std::int64_t{128}, std::int64_t{-64}, std::int64_t{-65}},
            std::int64_t{42}),
        Row({0.0, -0.0, 1.5, -1e308, std::numeric_limits<double>::quiet_NaN(),
             std::numeric_limits<double>::infinity()},
            kMin),
        Row({std::wstring(), std::wstring(L"plain"), wide, latin, nul, std::wstring(L"\xD800")}),
        Row({Bytes{}, odd, big, longText, Cell{}}, kMax),
        Row({}),
        Row({Cell{}, Cell{}}, std::int64_t{-7}),
    };
}

TEST(RowCacheTest, EveryValueComesBackAsItWasRead) {
    const std::vector<SourceRow> rows = EdgeRows();
    RowCache cache = Cache(rows);
    bool end = false;
    std::vector<size_t> fetched = cache.Fetch(0, static_cast<DBROWCOUNT>(rows.size() + 1), end);
    ASSERT_EQ(rows.size(), fetched.size());
    EXPECT_TRUE(end);
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        ExpectSameRow(rows[i], cache.Values(fetched[i]));
    }
    // Read again backwards, each row decoded over the one before.
    for (size_t i = rows.size(); i-- > 0;) {
        SCOPED_TRACE("again, row " + std::to_string(i));
        ExpectSameRow(rows[i], cache.Values(i));
    }
}

TEST(RowCacheTest, ScrollingBackAndFromTheEndReadsTheSameRows) {
    std::vector<SourceRow> rows;
    for (int i = 0; i < 5000; ++i)
        rows.push_back(Row({std::int64_t{i}, std::wstring(L"row ") + std::to_wstring(i), i * 0.5}, i + 1));
    RowCache cache = Cache(rows);
    bool end = false;
    for (int i = 0; i < 5000; ++i) ASSERT_EQ(1u, cache.Fetch(0, 1, end).size());
    EXPECT_TRUE(cache.Fetch(0, 1, end).empty());
    EXPECT_TRUE(end);
    // Backwards from the end to the first row.
    for (int i = 4999; i >= 0; --i) {
        std::vector<size_t> back = cache.Fetch(0, -1, end);
        ASSERT_EQ(1u, back.size());
        ASSERT_EQ(static_cast<size_t>(i), back[0]);
        ExpectSameRow(rows[static_cast<size_t>(i)], cache.Values(back[0]));
    }
    cache.Restart();
    std::vector<size_t> last = cache.Fetch(-1, 1, end);
    ASSERT_EQ(1u, last.size());
    ExpectSameRow(rows.back(), cache.Values(last[0]));
}

TEST(RowCacheTest, ReplacedAndAppendedRowsReadBackTheirNewValues) {
    RowCache cache = Cache({Row({std::int64_t{1}, std::wstring(L"one")}, 1), Row({std::int64_t{2}, Cell{}}, 2)});
    cache.ReadToEnd();
    const SourceRow& first = cache.Values(0);
    ExpectSameRow(Row({std::int64_t{1}, std::wstring(L"one")}, 1), first);
    cache.Replace(0, Row({std::int64_t{1}, std::wstring(L"a much longer text than before \x20AC")}, 1));
    ExpectSameRow(Row({std::int64_t{1}, std::wstring(L"a much longer text than before \x20AC")}, 1), cache.Values(0));
    ExpectSameRow(Row({std::int64_t{2}, Cell{}}, 2), cache.Values(1));
    const size_t appended = cache.Append(Row({std::int64_t{3}, Bytes{9, 8}}, 3));
    EXPECT_EQ(2u, appended);
    ExpectSameRow(Row({std::int64_t{3}, Bytes{9, 8}}, 3), cache.Values(appended));
    ExpectSameRow(Row({std::int64_t{1}, std::wstring(L"a much longer text than before \x20AC")}, 1), cache.Values(0));
}

// Rows of a few kinds, some bigger than a quarter of the small test blocks below.
std::vector<SourceRow> ManyRows(int count) {
    std::vector<SourceRow> rows;
    for (int i = 0; i < count; ++i) {
        std::wstring text = L"row " + std::to_wstring(i) + (i % 3 ? L" \x20AC wide" : L" narrow");
        if (i % 97 == 0) text += std::wstring(2000, static_cast<wchar_t>(L'a' + i % 26));
        rows.push_back(Row({std::int64_t{i}, std::move(text), i * 0.25, i % 5 ? Cell{} : Cell{Bytes{1, 2, 3}}},
                           i + 1));
    }
    return rows;
}

RowStoreLimits SmallStore() {
    RowStoreLimits limits;
    limits.blockSize = 4096;
    limits.residentBytes = 3 * 4096;
    limits.readBackBlocks = 2;
    return limits;
}

void ExpectEveryRowInAnyOrder(RowCache& cache, const std::vector<SourceRow>& rows) {
    bool end = false;
    std::vector<size_t> fetched = cache.Fetch(0, static_cast<DBROWCOUNT>(rows.size() + 1), end);
    ASSERT_EQ(rows.size(), fetched.size());
    for (size_t i = rows.size(); i-- > 0;) {
        SCOPED_TRACE("backwards, row " + std::to_string(i));
        ExpectSameRow(rows[i], cache.Values(i));
    }
    // Jumping about: far apart, then back and forth between two blocks.
    for (size_t step = 0, i = 0; step < rows.size(); ++step, i = (i + 389) % rows.size()) {
        SCOPED_TRACE("jumping, row " + std::to_string(i));
        ExpectSameRow(rows[i], cache.Values(i));
        ExpectSameRow(rows[rows.size() - 1 - i], cache.Values(rows.size() - 1 - i));
    }
}

TEST(RowCacheTest, RowsPastTheLimitGoToAFileAndComeBackAsTheyWere) {
    const std::vector<SourceRow> rows = ManyRows(3000);
    RowCache cache(std::make_unique<MemoryRowSource>(std::vector<ColumnDesc>{}, rows), 0, SmallStore());
    bool end = false;
    // Forwards, each row read as it arrives.
    for (size_t i = 0; i < rows.size(); ++i) {
        std::vector<size_t> one = cache.Fetch(0, 1, end);
        ASSERT_EQ(1u, one.size());
        ExpectSameRow(rows[i], cache.Values(one[0]));
    }
    EXPECT_GT(cache.SpilledBlocks(), 20u);
    cache.Restart();
    ExpectEveryRowInAnyOrder(cache, rows);
    // A row replaced after its block went to the file reads back its new values.
    cache.Replace(5, Row({std::int64_t{5}, std::wstring(L"replaced")}, 6));
    ExpectSameRow(Row({std::int64_t{5}, std::wstring(L"replaced")}, 6), cache.Values(5));
    ExpectSameRow(rows[6], cache.Values(6));
}

// Where no temporary file can be made, the rows stay in memory and read back all the same.
TEST(RowCacheTest, WithoutATemporaryFileRowsStayInMemory) {
    wchar_t tmp[MAX_PATH] = {}, temp[MAX_PATH] = {};
    const DWORD tmpLength = GetEnvironmentVariableW(L"TMP", tmp, MAX_PATH);
    const DWORD tempLength = GetEnvironmentVariableW(L"TEMP", temp, MAX_PATH);
    ASSERT_TRUE(SetEnvironmentVariableW(L"TMP", L"Z:\\no\\such\\folder\\"));
    ASSERT_TRUE(SetEnvironmentVariableW(L"TEMP", L"Z:\\no\\such\\folder\\"));
    const std::vector<SourceRow> rows = ManyRows(1500);
    RowCache cache(std::make_unique<MemoryRowSource>(std::vector<ColumnDesc>{}, rows), 0, SmallStore());
    cache.ReadToEnd();
    SetEnvironmentVariableW(L"TMP", tmpLength ? tmp : nullptr);
    SetEnvironmentVariableW(L"TEMP", tempLength ? temp : nullptr);
    EXPECT_EQ(0u, cache.SpilledBlocks());
    cache.Restart();
    ExpectEveryRowInAnyOrder(cache, rows);
}

TEST(RowCacheTest, MaxRowsStopsReading) {
    RowCache cache = Cache({Row({std::int64_t{1}}), Row({std::int64_t{2}}), Row({std::int64_t{3}})}, 2);
    bool end = false;
    EXPECT_EQ(2u, cache.Fetch(0, 5, end).size());
    EXPECT_TRUE(end);
}

}  // namespace
