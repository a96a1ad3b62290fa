// Field readers and classification: the texts, numbers and VARIANTs hosts receive for each
// OLE DB type. Types that SQL cannot produce come from the in-memory test provider.
#include <windows.h>
#include <oledberr.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "common/Variant.h"
#include "oledb/KobOleDbCommand.h"
#include "tests/oledb/FakeRowset.h"

using namespace zel;
using namespace zel::test;

namespace {

// One row of one or more columns, executed and fetched.
class FieldTest : public testing::Test {
protected:
    void Load(std::vector<FakeColumn> columns, std::vector<FakeValue> row) {
        auto result = std::make_shared<FakeResult>();
        result->columns = std::move(columns);
        result->rows = {std::move(row)};
        connection = std::make_unique<FakeConnection>(result);
        command.SetConnection(connection.get());
        command.SetCommandText(L"SELECT");
        ASSERT_EQ(kTriTrue, command.Execute());
        ASSERT_EQ(kTriTrue, command.FetchNext());
    }
    template <typename T>
    void LoadOne(DBTYPE type, const T& value, DBLENGTH size = sizeof(T)) {
        Load({{L"V", type, size}}, {Value(value)});
    }

    std::unique_ptr<FakeConnection> connection;
    KobOleDbCommand command;
};

DECIMAL Decimal(ULONG hi, ULONGLONG lo, BYTE scale, bool negative = false) {
    DECIMAL d = {};
    d.Hi32 = hi;
    d.Lo64 = lo;
    d.scale = scale;
    d.sign = negative ? DECIMAL_NEG : 0;
    return d;
}

}  // namespace

TEST_F(FieldTest, I4MinusFortyTwoReadsAsTextIntegerAndVariant) {
    LoadOne<LONG>(DBTYPE_I4, -42);
    EXPECT_EQ(L"-42", command.FieldAsString(1));
    EXPECT_EQ(-42, command.FieldAsLong(1));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_I4, v.vt());
    EXPECT_EQ(-42, V_I4(v.get()));
}

TEST_F(FieldTest, UI8SevenPrintsWithTrailingD) {
    LoadOne<ULONGLONG>(DBTYPE_UI8, 7);
    EXPECT_EQ(L"7d", command.FieldAsString(1));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_UI8, v.vt());
}

TEST_F(FieldTest, I8ShowsOnlyItsLow32Bits) {
    LoadOne<LONGLONG>(DBTYPE_I8, (1LL << 32) + 5);
    EXPECT_EQ(L"5", command.FieldAsString(1));
    EXPECT_EQ(5, command.FieldAsLong(1));
}

TEST_F(FieldTest, DecimalPlacesThePointByScale) {
    LoadOne(DBTYPE_DECIMAL, Decimal(0, 12345, 3));
    EXPECT_EQ(L"12.345", command.FieldAsString(1));
}

TEST_F(FieldTest, DecimalWithScaleZeroKeepsTrailingPoint) {
    LoadOne(DBTYPE_DECIMAL, Decimal(0, 7, 0));
    EXPECT_EQ(L"7.", command.FieldAsString(1));
}

TEST_F(FieldTest, DecimalSmallerThanScalePadsWithZeros) {
    LoadOne(DBTYPE_DECIMAL, Decimal(0, 5, 3));
    EXPECT_EQ(L"0.005", command.FieldAsString(1));
}

TEST_F(FieldTest, NegativeDecimalGetsLeadingMinus) {
    LoadOne(DBTYPE_DECIMAL, Decimal(0, 12345, 2, true));
    EXPECT_EQ(L"-123.45", command.FieldAsString(1));
}

TEST_F(FieldTest, DecimalJoinsHighAndLowDigitGroups) {
    LoadOne(DBTYPE_DECIMAL, Decimal(1, 1, 0));  // 2^64 + 1 reads as the digit 1 followed by 1
    EXPECT_EQ(L"11.", command.FieldAsString(1));
}

TEST_F(FieldTest, DecimalToLongRounds) {
    LoadOne(DBTYPE_DECIMAL, Decimal(0, 12345, 2));
    EXPECT_EQ(123, command.FieldAsLong(1));
    EXPECT_EQ(kTriTrue, command.IsNumeric(1));
    EXPECT_EQ(kTriFalse, command.IsIntegral(1));
}

TEST_F(FieldTest, TrailingBlanksStayInFieldAsStringAndGoInFieldAsStringEx) {
    Load({{L"T", DBTYPE_WSTR, 10}}, {Text(L"abc   ")});
    EXPECT_EQ(L"abc   ", command.FieldAsString(1));
    EXPECT_EQ(L"abc", command.FieldAsStringEx(1));
}

TEST_F(FieldTest, WideTextNeverConvertsToLong) {
    Load({{L"T", DBTYPE_WSTR, 10}}, {Text(L"12")});
    EXPECT_EQ(0, command.FieldAsLong(1));
}

TEST_F(FieldTest, BstrTextConvertsToLong) {
    Load({{L"T", DBTYPE_BSTR, sizeof(BSTR)}}, {Text(L"12")});
    EXPECT_EQ(12, command.FieldAsLong(1));
    EXPECT_EQ(L"12", command.FieldAsString(1));
}

TEST_F(FieldTest, RealTruncatesTowardZero) {
    LoadOne<double>(DBTYPE_R8, 2.75);
    EXPECT_EQ(2, command.FieldAsLong(1));
    EXPECT_EQ(L"2.75", command.FieldAsString(1));
}

TEST_F(FieldTest, NegativeRealTruncatesTowardZero) {
    LoadOne<double>(DBTYPE_R8, -2.75);
    EXPECT_EQ(-2, command.FieldAsLong(1));
}

TEST_F(FieldTest, NullValueReadsEmptyZeroAndVtNull) {
    Load({{L"T", DBTYPE_WSTR, 10}}, {Null()});
    EXPECT_EQ(kTriTrue, command.IsNull(1));
    EXPECT_EQ(L"", command.FieldAsString(1));
    EXPECT_EQ(0, command.FieldAsLong(1));
    Variant v = Variant::FromI4(5);
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_NULL, v.vt());
}

TEST_F(FieldTest, DateColumnHasNoVariantForm) {
    LoadOne<DATE>(DBTYPE_DATE, 45000.5);
    Variant v = Variant::FromI4(5);
    EXPECT_FALSE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_I4, v.vt());  // untouched
}

TEST_F(FieldTest, DateTextUsesPlatformDateFormatting) {
    LoadOne<DATE>(DBTYPE_DATE, 45000.5);  // 2023-03-15 12:00:00
    BSTR expected = nullptr;
    ASSERT_EQ(S_OK, VarBstrFromDate(45000.5, LANG_USER_DEFAULT, 0, &expected));
    EXPECT_EQ(std::wstring(expected), command.FieldAsString(1));
    SysFreeString(expected);  // allocated by the platform for the comparison
    EXPECT_EQ(45000, command.FieldAsLong(1));  // 45000.5 rounds half to even
}

TEST_F(FieldTest, InvalidTimestampReadsInvalidDateTime) {
    DBTIMESTAMP stamp = {};
    stamp.year = 2024;
    stamp.month = 13;
    stamp.day = 1;
    LoadOne(DBTYPE_DBTIMESTAMP, stamp);
    EXPECT_EQ(L"Invalid DateTime", command.FieldAsString(1));
}

TEST_F(FieldTest, DbDateWithDayZeroReadsInvalidDateTime) {
    DBDATE date = {2024, 2, 0};
    LoadOne(DBTYPE_DBDATE, date);
    EXPECT_EQ(L"Invalid DateTime", command.FieldAsString(1));
}

TEST_F(FieldTest, DbDateAndTimeUseDateOnlyAndTimeOnlyForms) {
    DBDATE date = {2024, 2, 29};
    DBTIME time = {13, 5, 9};
    Load({{L"D", DBTYPE_DBDATE, sizeof(DBDATE)}, {L"T", DBTYPE_DBTIME, sizeof(DBTIME)}}, {Value(date), Value(time)});
    SYSTEMTIME st = {};
    st.wYear = 2024;
    st.wMonth = 2;
    st.wDay = 29;
    DATE d = 0;
    SystemTimeToVariantTime(&st, &d);
    BSTR dateText = nullptr;
    VarBstrFromDate(d, LANG_USER_DEFAULT, VAR_DATEVALUEONLY, &dateText);
    EXPECT_EQ(std::wstring(dateText), command.FieldAsString(1));
    SysFreeString(dateText);  // allocated by the platform for the comparison
    // The time on 1899-12-30, the day of date value 0: 13:05:09 is 47109 / 86400 of a day.
    BSTR timeText = nullptr;
    VarBstrFromDate(47109.0 / 86400.0, LANG_USER_DEFAULT, VAR_TIMEVALUEONLY, &timeText);
    EXPECT_EQ(std::wstring(timeText), command.FieldAsString(2));
    EXPECT_NE(std::wstring::npos, command.FieldAsString(2).find(L"5:09")) << testing::PrintToString(command.FieldAsString(2));
    SysFreeString(timeText);  // allocated by the platform for the comparison
}

TEST_F(FieldTest, GuidReadsLowerCaseWithoutBraces) {
    const GUID g = {0x6ED3CDC0, 0xCB85, 0x478B, {0x86, 0xC2, 0xAC, 0xC4, 0x37, 0xDD, 0xD2, 0x88}};
    LoadOne(DBTYPE_GUID, g);
    EXPECT_EQ(L"6ed3cdc0-cb85-478b-86c2-acc437ddd288", command.FieldAsString(1));
}

TEST_F(FieldTest, SignedByteShowsAsOneCharacter) {
    LoadOne<signed char>(DBTYPE_I1, 'A');
    EXPECT_EQ(L"A", command.FieldAsString(1));
    EXPECT_EQ(65, command.FieldAsLong(1));
    EXPECT_EQ(kTriFalse, command.IsIntegral(1));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_INT, v.vt());
}

TEST_F(FieldTest, UnsignedByteShowsAsNumberButIsNotIntegral) {
    LoadOne<BYTE>(DBTYPE_UI1, 200);
    EXPECT_EQ(L"200", command.FieldAsString(1));
    EXPECT_EQ(kTriFalse, command.IsIntegral(1));
}

TEST_F(FieldTest, BoolTextIsTheFormatterReadingOfTheExtendedValue) {
    LoadOne<VARIANT_BOOL>(DBTYPE_BOOL, VARIANT_TRUE);
    // The 32-bit pattern 0xFFFFFFFF read as a double is a tiny denormal.
    EXPECT_EQ(L"0.000000", command.FieldAsString(1));
    EXPECT_EQ(-1, command.FieldAsLong(1));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    EXPECT_EQ(VT_BOOL, v.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(v.get()));
}

TEST_F(FieldTest, CurrencyTextIsWhatTheFormatterMakesOfItsFormat) {
    CY cy;
    cy.int64 = 123456;  // 12.3456
    LoadOne(DBTYPE_CY, cy);
    std::wstring text = command.FieldAsString(1);
    // The format has no conversion letters; the text does not depend on the value.
    CY other;
    other.int64 = -7;
    Load({{L"V", DBTYPE_CY, 8}}, {Value(other)});
    EXPECT_EQ(text, command.FieldAsString(1));
    EXPECT_EQ(0, command.FieldAsLong(1));
}

TEST_F(FieldTest, CurrencyToLongTruncatesScaledValue) {
    CY cy;
    cy.int64 = 123456;
    LoadOne(DBTYPE_CY, cy);
    EXPECT_EQ(12, command.FieldAsLong(1));
}

TEST_F(FieldTest, NarrowTextIsReadAsUtf16ByTextReaderButConvertedByVariantReader) {
    // "12" as 8-bit bytes: read as UTF-16 the pair makes one unit 0x3231.
    Load({{L"S", DBTYPE_STR, 10}}, {Bytes({'1', '2'})});
    EXPECT_EQ(std::wstring(1, wchar_t(0x3231)), command.FieldAsString(1));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariant(1, v.get()));
    ASSERT_EQ(VT_BSTR, v.vt());
    EXPECT_STREQ(L"12", V_BSTR(v.get()));
}

TEST_F(FieldTest, ClassificationSetsAreNarrow) {
    Load({{L"a", DBTYPE_I2, 2}, {L"b", DBTYPE_I4, 4}, {L"c", DBTYPE_UI2, 2}, {L"d", DBTYPE_UI4, 4},
          {L"e", DBTYPE_I8, 8}, {L"f", DBTYPE_UI8, 8}, {L"g", DBTYPE_R8, 8}, {L"h", DBTYPE_BOOL, 2},
          {L"i", DBTYPE_NUMERIC, 19}, {L"j", DBTYPE_CY, 8}},
         {Value<SHORT>(1), Value<LONG>(1), Value<USHORT>(1), Value<ULONG>(1), Value<LONGLONG>(1), Value<ULONGLONG>(1),
          Value<double>(1), Value<VARIANT_BOOL>(0), Value(DB_NUMERIC{}), Value(CY{})});
    for (ULONG c = 1; c <= 6; ++c) EXPECT_EQ(kTriTrue, command.IsIntegral(c)) << c;
    for (ULONG c = 7; c <= 10; ++c) EXPECT_EQ(kTriFalse, command.IsIntegral(c)) << c;
    EXPECT_EQ(kTriTrue, command.IsNumeric(9));
    EXPECT_EQ(kTriFalse, command.IsNumeric(7));
    EXPECT_EQ(kTriFalse, command.IsNumeric(10));
}

TEST_F(FieldTest, ColumnIndexIgnoresCaseAndFindsFirstOfDuplicates) {
    Load({{L"Name", DBTYPE_I4, 4}, {L"Other", DBTYPE_I4, 4}, {L"name", DBTYPE_I4, 4}},
         {Value<LONG>(1), Value<LONG>(2), Value<LONG>(3)});
    EXPECT_EQ(1u, command.GetColumnIndex(L"NAME"));
    EXPECT_EQ(2u, command.GetColumnIndex(L"other"));
    EXPECT_EQ(0u, command.GetColumnIndex(L"missing"));
    EXPECT_EQ(0u, command.GetColumnIndex(L""));
    Variant v;
    EXPECT_TRUE(command.FieldAsVariantByName(L"OTHER", v.get()));
    EXPECT_EQ(2, V_I4(v.get()));
}

TEST_F(FieldTest, MemoOfTwentyThousandBytesIsBlobReadWhole) {
    std::wstring memo(10000, L'm');  // 20,000 bytes
    Load({{L"Memo", DBTYPE_WSTR, ~DBLENGTH(0), DBCOLUMNFLAGS_ISLONG}}, {Text(memo)});
    EXPECT_EQ(kTriTrue, command.IsBlob(1));
    EXPECT_EQ(DBTYPE_IUNKNOWN, command.GetRawType(1));
    std::vector<BYTE> bytes;
    EXPECT_EQ(20000u, command.GetBlobData(1, bytes));
    ASSERT_EQ(20000u, bytes.size());
    EXPECT_EQ(0, memcmp(bytes.data(), memo.data(), 20000));
    EXPECT_EQ(L"", command.FieldAsString(1));
}

TEST_F(FieldTest, SmallBinaryIsBlobButHasNoBlobData) {
    Load({{L"Bin", DBTYPE_BYTES, 16}}, {Bytes(std::vector<BYTE>(16, 0xAB))});
    EXPECT_EQ(kTriTrue, command.IsBlob(1));
    std::vector<BYTE> bytes;
    EXPECT_EQ(0u, command.GetBlobData(1, bytes));
    EXPECT_TRUE(bytes.empty());
    EXPECT_EQ(16u, command.GetColumnSize(1));
}

TEST_F(FieldTest, NullBlobAnswersThreeWithoutBytes) {
    Load({{L"Memo", DBTYPE_WSTR, ~DBLENGTH(0), DBCOLUMNFLAGS_ISLONG}}, {Null()});
    std::vector<BYTE> bytes;
    EXPECT_EQ(3u, command.GetBlobData(1, bytes));
    EXPECT_TRUE(bytes.empty());
}

TEST_F(FieldTest, ColumnSizeIsTheCurrentValueLength) {
    Load({{L"T", DBTYPE_WSTR, 50}}, {Text(L"Shaft")});
    EXPECT_EQ(10u, command.GetColumnSize(1));
}

TEST_F(FieldTest, PositionsOutsideTheColumnsGiveEmptyAnswers) {
    LoadOne<LONG>(DBTYPE_I4, 5);
    for (ULONG position : {0u, 2u}) {
        EXPECT_EQ(L"", command.FieldAsString(position));
        EXPECT_EQ(0, command.FieldAsLong(position));
        EXPECT_EQ(kTriNotApplicable, command.IsNull(position));
        EXPECT_EQ(kTriNotApplicable, command.IsIntegral(position));
        EXPECT_EQ(kTriNotApplicable, command.IsNumeric(position));
        EXPECT_EQ(kTriNotApplicable, command.IsBlob(position));
        EXPECT_EQ(0, command.GetRawType(position));
        EXPECT_EQ(0u, command.GetColumnSize(position));
        EXPECT_EQ(L"", command.GetColumnName(position));
        Variant v = Variant::FromI2(1);
        EXPECT_FALSE(command.FieldAsVariant(position, v.get()));
        EXPECT_EQ(VT_I2, v.vt());
    }
}

TEST_F(FieldTest, ClosedCommandGivesEmptyAnswers) {
    LoadOne<LONG>(DBTYPE_I4, 5);
    command.Close();
    EXPECT_EQ(L"", command.FieldAsString(1));
    EXPECT_EQ(kTriNotApplicable, command.IsNull(1));
    EXPECT_EQ(0u, command.GetColumnIndex(L"V"));
}

TEST_F(FieldTest, FileTimeReadsAsTimestamp) {
    SYSTEMTIME st = {};
    st.wYear = 2020;
    st.wMonth = 6;
    st.wDay = 1;
    st.wHour = 8;
    FILETIME ft = {};
    ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
    LoadOne(DBTYPE_FILETIME, ft);
    DATE d = 0;
    SystemTimeToVariantTime(&st, &d);
    BSTR expected = nullptr;
    VarBstrFromDate(d, LANG_USER_DEFAULT, 0, &expected);
    EXPECT_EQ(std::wstring(expected), command.FieldAsString(1));
    SysFreeString(expected);  // allocated by the platform for the comparison
}
