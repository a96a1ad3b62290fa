// The ISO text of a timestamp as the providers store dates: written digit by digit, it must be
// the text the C runtime's formatting gives for the same fields, for every kind of value.
#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "provider/values/DateTime.h"

using zel::provider::FormatIsoDateTime;
using zel::provider::ParseIsoDateTime;
using zel::provider::Timestamp;

namespace {

// The text through swprintf: a date alone at midnight, a fraction without trailing zeros
// beyond three digits.
std::wstring Reference(const Timestamp& t) {
    wchar_t buffer[64];
    if (t.hour == 0 && t.minute == 0 && t.second == 0 && t.fraction == 0) {
        swprintf(buffer, 64, L"%04d-%02d-%02d", t.year, t.month, t.day);
        return buffer;
    }
    swprintf(buffer, 64, L"%04d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
    std::wstring text = buffer;
    if (t.fraction) {
        swprintf(buffer, 64, L".%09lu", static_cast<unsigned long>(t.fraction));
        std::wstring fraction = buffer;
        while (fraction.size() > 4 && fraction.back() == L'0') fraction.pop_back();
        text += fraction;
    }
    return text;
}

Timestamp Make(int y, int mo, int d, int h, int mi, int s, unsigned long f) {
    Timestamp t;
    t.year = y;
    t.month = mo;
    t.day = d;
    t.hour = h;
    t.minute = mi;
    t.second = s;
    t.fraction = f;
    return t;
}

}  // namespace

TEST(DateTimeText, KnownValues) {
    EXPECT_EQ(L"2020-01-02", FormatIsoDateTime(Make(2020, 1, 2, 0, 0, 0, 0)));
    EXPECT_EQ(L"2020-01-02 00:00:01", FormatIsoDateTime(Make(2020, 1, 2, 0, 0, 1, 0)));
    EXPECT_EQ(L"0099-12-31 23:59:59.500", FormatIsoDateTime(Make(99, 12, 31, 23, 59, 59, 500000000)));
    EXPECT_EQ(L"2024-02-29 13:45:30.000001", FormatIsoDateTime(Make(2024, 2, 29, 13, 45, 30, 1000)));
    EXPECT_EQ(L"2024-02-29 00:00:00.000000001", FormatIsoDateTime(Make(2024, 2, 29, 0, 0, 0, 1)));
}

TEST(DateTimeText, SameAsTheRuntimesFormatting) {
    const unsigned long fractions[] = {0, 1, 10, 999, 1000, 120000000, 123456789, 500000000, 999999999};
    const int years[] = {0, 1, 99, 100, 1899, 1900, 1999, 2020, 9999, 10000, -1};
    for (int year : years)
        for (int hour : {0, 1, 12, 23})
            for (int second : {0, 7, 59})
                for (unsigned long fraction : fractions) {
                    const Timestamp t = Make(year, year % 12 + 1, year % 28 + 1, hour, (hour * 7) % 60, second, fraction);
                    EXPECT_EQ(Reference(t), FormatIsoDateTime(t)) << year << " " << hour << " " << second << " " << fraction;
                }
    // Fields beyond their usual widths keep the runtime's text.
    const Timestamp odd = Make(2020, 100, -3, 24, 0, 0, 1000000000);
    EXPECT_EQ(Reference(odd), FormatIsoDateTime(odd));
}

TEST(DateTimeText, ParsesBackToTheSameFields) {
    const Timestamp t = Make(2023, 11, 5, 6, 7, 8, 90000000);
    const auto parsed = ParseIsoDateTime(FormatIsoDateTime(t));
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(2023, parsed->year);
    EXPECT_EQ(11, parsed->month);
    EXPECT_EQ(5, parsed->day);
    EXPECT_EQ(6, parsed->hour);
    EXPECT_EQ(7, parsed->minute);
    EXPECT_EQ(8, parsed->second);
    EXPECT_EQ(90000000u, parsed->fraction);
}
