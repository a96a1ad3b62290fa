// zeldb's exact texts of batch values, and the JSON writer that places them.
#include "host/ValueText.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "common/Variant.h"

namespace zel::zeldb {
namespace {

TEST(ZelDbValueText, RealsAreTheShortestTextThatReadsBackTheSameNumber) {
    EXPECT_EQ(ShortestRealText(1.3928571428571428), L"1.3928571428571428");
    EXPECT_EQ(ShortestRealText(0.1), L"0.1");
    EXPECT_EQ(ShortestRealText(2.5), L"2.5");
    EXPECT_EQ(ShortestRealText(-0.0), L"-0");
    EXPECT_EQ(ShortestRealText(1e300), L"1e+300");
    EXPECT_EQ(ShortestRealText(0.1f), L"0.1");
    EXPECT_EQ(ShortestRealText(16777217.0), L"16777217");
    for (double value : {1.0 / 3, 2.0 / 3, 1e-310, 123456789.123456789, 4.35, 1.25e-7}) {
        const std::wstring text = ShortestRealText(value);
        EXPECT_EQ(value, std::wcstod(text.c_str(), nullptr)) << ToUtf8(text);
    }
}

TEST(ZelDbValueText, DatesAreIsoWithAFractionOnlyWhenThereIsOne) {
    EXPECT_EQ(IsoDateText(0.0), L"1899-12-30 00:00:00");
    EXPECT_EQ(IsoDateText(43832.0), L"2020-01-02 00:00:00");
    EXPECT_EQ(IsoDateText(43832.0 + (2 * 3600 + 11 * 60 + 59) / 86400.0), L"2020-01-02 02:11:59");
    EXPECT_EQ(IsoDateText(43832.0 + (2 * 3600 + 11 * 60 + 59.25) / 86400.0), L"2020-01-02 02:11:59.25");
    EXPECT_EQ(IsoDateText(43832.0 + 0.007 / 86400.0), L"2020-01-02 00:00:00.007");
    EXPECT_EQ(IsoDateText(43832.0 + 0.0004 / 86400.0), L"2020-01-02 00:00:00");  // below a millisecond
    EXPECT_EQ(IsoDateText(43832.0 + 86399.9999 / 86400.0), L"2020-01-03 00:00:00");
    // Before 1899-12-30 the fraction still counts forward from midnight: -1.25 is 06:00 the day before.
    EXPECT_EQ(IsoDateText(-1.25), L"1899-12-29 06:00:00");
    EXPECT_EQ(IsoDateText(2958465.0 + 86399.0 / 86400.0), L"9999-12-31 23:59:59");
    EXPECT_EQ(IsoDateText(-657434.0), L"0100-01-01 00:00:00");
}

TEST(ZelDbValueText, DecimalsAndCurrencyAreExact) {
    DECIMAL d{};
    d.Lo64 = 12340;
    d.scale = 3;
    EXPECT_EQ(DecimalExactText(d), L"12.340");
    d.sign = DECIMAL_NEG;
    d.Lo64 = 5;
    EXPECT_EQ(DecimalExactText(d), L"-0.005");
    d = DECIMAL{};
    d.Hi32 = 0xFFFFFFFF;
    d.Lo64 = 0xFFFFFFFFFFFFFFFFull;
    EXPECT_EQ(DecimalExactText(d), L"79228162514264337593543950335");
    d.scale = 28;
    EXPECT_EQ(DecimalExactText(d), L"7.9228162514264337593543950335");
    EXPECT_EQ(CurrencyExactText(CY{.int64 = 123456}), L"12.3456");
    EXPECT_EQ(CurrencyExactText(CY{.int64 = 125000}), L"12.5");
    EXPECT_EQ(CurrencyExactText(CY{.int64 = -30000}), L"-3");
    EXPECT_EQ(CurrencyExactText(CY{.int64 = -1}), L"-0.0001");
    EXPECT_EQ(CurrencyExactText(CY{.int64 = INT64_MIN}), L"-922337203685477.5808");
}

TEST(ZelDbValueText, CellsKnowTheirKinds) {
    Variant boolean = Variant::FromBool(true);
    EXPECT_EQ(NaturalCell(*boolean.get()).text, L"1");
    EXPECT_EQ(NaturalCell(*boolean.get()).kind, CellKind::Boolean);
    Variant null;
    V_VT(null.get()) = VT_NULL;
    EXPECT_TRUE(NaturalCell(*null.get()).isNull);
    Variant number = Variant::FromI4(-42);
    EXPECT_EQ(NaturalCell(*number.get()).text, L"-42");
    EXPECT_EQ(NaturalCell(*number.get()).kind, CellKind::Number);
    Variant text(std::wstring_view(L"a,b"));
    EXPECT_EQ(NaturalCell(*text.get()).kind, CellKind::Text);
    Variant bytes;
    V_VT(bytes.get()) = VT_ARRAY | VT_UI1;
    V_ARRAY(bytes.get()) = SafeArrayCreateVector(VT_UI1, 0, 3);
    EXPECT_EQ(NaturalCell(*bytes.get()).text, L"<blob 3 bytes>");
}

TEST(ZelDbJsonWriter, WritesOneArrayOfObjectsAsRowsCome) {
    StringSink out;
    JsonWriter writer(out);
    writer.Begin({{L"id"}, {L"na\"me"}, {L"ok"}});
    writer.Row({Cell::Number(L"1"), Cell::Text(L"a\\b\n\x01"), Cell::Boolean(false)});
    EXPECT_EQ(out.text(), L"[\n{\"id\":1,\"na\\\"me\":\"a\\\\b\\n\\u0001\",\"ok\":false}");  // streamed
    writer.Row({Cell::Null(), Cell::Text(L""), Cell::Boolean(true)});
    writer.End({2, false});
    EXPECT_EQ(out.text(), L"[\n{\"id\":1,\"na\\\"me\":\"a\\\\b\\n\\u0001\",\"ok\":false},\n"
                          L"{\"id\":null,\"na\\\"me\":\"\",\"ok\":true}\n]\n");
    StringSink empty;
    JsonWriter none(empty);
    none.Begin({{L"x"}});
    none.End({0, false});
    EXPECT_EQ(empty.text(), L"[]\n");
}

}  // namespace
}  // namespace zel::zeldb
