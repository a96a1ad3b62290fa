// The number texts as the platform's wide printf wrote them for the field readers: the cases
// where msvcrt's formatter differs from the C99 one, written out.
#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "oledb/NumberText.h"

using namespace zel;

namespace {

double FromBits(unsigned long long bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

}  // namespace

TEST(NumberText, IntegersOfEveryWidthAtTheirLimits) {
    EXPECT_EQ(L"-2147483648", SignedText(-2147483647L - 1));
    EXPECT_EQ(L"2147483647", SignedText(2147483647L));
    EXPECT_EQ(L"-32768", SignedText(-32768));
    EXPECT_EQ(L"0", SignedText(0));
    EXPECT_EQ(L"4294967295", UnsignedText(4294967295UL));
    EXPECT_EQ(L"18446744073709551615", UnsignedText(~0ULL));
    EXPECT_EQ(L"-9223372036854775808", SignedText(std::numeric_limits<long long>::min()));
}

TEST(NumberText, ExponentsHaveThreeDigits) {
    EXPECT_EQ(L"1e+020", RealText(1e20));
    EXPECT_EQ(L"1e-005", RealText(1e-5));
    EXPECT_EQ(L"0.0001", RealText(1e-4));
    EXPECT_EQ(L"1e+006", RealText(1e6));
    EXPECT_EQ(L"999999", RealText(999999.0));
    EXPECT_EQ(L"4.94066e-324", RealText(FromBits(1)));  // the smallest subnormal
    EXPECT_EQ(L"1.79769e+308", RealText(std::numeric_limits<double>::max()));
}

TEST(NumberText, ExactTiesRoundAwayFromZero) {
    EXPECT_EQ(L"1.23457e+006", RealText(1234565.0));  // C99's formatter gives 1.23456e+06
    EXPECT_EQ(L"-1.23457e+006", RealText(-1234565.0));
    EXPECT_EQ(L"100001", RealText(100000.5));
    EXPECT_EQ(L"3.48438", RealText(3.484375));  // odd digit: both rules round up
    EXPECT_EQ(L"0.007813", FixedRealText(0.0078125));
    EXPECT_EQ(L"0.000000", FixedRealText(2.5e-7));  // not a tie: the double lies just below
}

TEST(NumberText, InfinitiesNaNsAndNegativeZero) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(L"1.#INF", RealText(infinity));
    EXPECT_EQ(L"-1.#INF", RealText(-infinity));
    EXPECT_EQ(L"1.#QNAN", RealText(FromBits(0x7FF8000000000000ULL)));
    EXPECT_EQ(L"1.#QNAN", RealText(FromBits(0x7FF0000000000001ULL)));  // signalling payloads too
    EXPECT_EQ(L"-1.#IND", RealText(FromBits(0xFFF8000000000000ULL)));
    EXPECT_EQ(L"-1.#IND", RealText(FromBits(0xFFFFFFFFFFFFFFFFULL)));
    EXPECT_EQ(L"-0", RealText(-0.0));
    EXPECT_EQ(L"1.#INF00", FixedRealText(infinity));
    EXPECT_EQ(L"-1.#INF00", FixedRealText(-infinity));
    EXPECT_EQ(L"1.#QNAN0", FixedRealText(FromBits(0x7FF8000000000000ULL)));
    EXPECT_EQ(L"-1.#IND00", FixedRealText(FromBits(0xFFF8000000000000ULL)));
    EXPECT_EQ(L"-0.000000", FixedRealText(-0.0));
}

TEST(NumberText, FixedWritesEveryIntegerDigit) {
    const std::wstring text = FixedRealText(1e300);
    EXPECT_EQ(301u + 7u, text.size());
    EXPECT_EQ(L"10000000000000000525", text.substr(0, 20));  // the double's exact digits
    EXPECT_EQ(L".000000", text.substr(text.size() - 7));
    EXPECT_EQ(L"0.000000", FixedRealText(FromBits(0xFFFFFFFFULL)));  // a BOOL's true read as a double
}

TEST(NumberText, PointerIsPaddedUpperCaseHex) {
    EXPECT_EQ(sizeof(void*) == 4 ? L"00001234" : L"0000000000001234", PointerText(reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ(sizeof(void*) == 4 ? L"ABCDEF01" : L"00000000ABCDEF01", PointerText(reinterpret_cast<void*>(0xABCDEF01)));
}
