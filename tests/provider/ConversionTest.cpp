// GetData's conversions from every column type to the binding types a client may ask for,
// with NULLs, limits, truncation and the statuses that report them.
#include <cmath>

#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

enum Column : DBORDINAL { kInt = 1, kSmall, kByte, kBig, kSingle, kDouble, kMoney, kDecimal, kBit, kWhen, kId, kText, kBinary };

class Conversion : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE v (i INTEGER, s SMALLINT, b BYTE, big BIGINT, r REAL, d DOUBLE, cy CURRENCY, "
              L"dec DECIMAL(10,2), f BIT, dt DATETIME, g GUID, t TEXT(20), bin VARBINARY(8))");
        c.Run(L"INSERT INTO v VALUES (-42, 1234, 200, 5000000000, 1.5, 2.75, 12.3456, 1234.5, 1, "
              L"'2024-02-29 13:45:10', '{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}', 'hello', x'DEADBEEF')");
        c.Run(L"INSERT INTO v VALUES (NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL)");
        c.Run(L"INSERT INTO v VALUES (2147483647, -32768, 255, 9223372036854775807, -3.25, -1e300, -922337203685477, "
              L"-99999999.99, 0, '9999-12-31 23:59:59', '00000000-0000-0000-0000-000000000000', '12', x'')");
        c.Run(L"INSERT INTO v VALUES (-2147483649, -32769, 256, -9223372036854775808, 0, 0, 1e16, 0, 0, '0050-06-01', "
              L"'not a guid', 'text', x'00')");
        rowset = c.Query(L"SELECT * FROM v ORDER BY rowid");
        ASSERT_TRUE(rowset);
        for (HROW& row : rows) {
            DBCOUNTITEM obtained = 0;
            HROW* out = &row;
            ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &out));
        }
    }
    void TearDown() override {
        if (rowset) rowset->ReleaseRows(4, rows, nullptr, nullptr, nullptr);
    }
    ValueRead Read(int row, DBORDINAL column, DBTYPE type, DBLENGTH maxLength = 0, BYTE precision = 0, BYTE scale = 0) {
        return ReadValue(rowset.get(), rows[row], column, type, maxLength, precision, scale);
    }
    std::wstring Text(int row, DBORDINAL column) {
        ValueRead r = Read(row, column, DBTYPE_WSTR, 200);
        EXPECT_EQ(S_OK, r.hr);
        if (r.status == DBSTATUS_S_ISNULL) return L"<null>";
        return reinterpret_cast<const wchar_t*>(r.value.data());
    }
    TempDatabase db;
    Connection c;
    ComPtr<IRowset> rowset;
    HROW rows[4] = {};
};

TEST_F(Conversion, AnIntegerReadsAsEveryNumericType) {
    EXPECT_EQ(-42, Read(0, kInt, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(-42, Read(0, kInt, DBTYPE_I2).as<SHORT>());
    EXPECT_EQ(-42, Read(0, kInt, DBTYPE_I1).as<signed char>());
    EXPECT_EQ(-42, Read(0, kInt, DBTYPE_I8).as<LONGLONG>());
    EXPECT_EQ(-42.0, Read(0, kInt, DBTYPE_R8).as<double>());
    EXPECT_EQ(-42.0f, Read(0, kInt, DBTYPE_R4).as<float>());
    EXPECT_EQ(-420000, Read(0, kInt, DBTYPE_CY).as<CY>().int64);
    DECIMAL d = Read(0, kInt, DBTYPE_DECIMAL).as<DECIMAL>();
    EXPECT_EQ(42u, d.Lo64);
    EXPECT_EQ(DECIMAL_NEG, d.sign);
    EXPECT_EQ(VARIANT_TRUE, Read(0, kInt, DBTYPE_BOOL).as<VARIANT_BOOL>());
    EXPECT_EQ(L"-42", Text(0, kInt));
    ValueRead r = Read(0, kInt, DBTYPE_I4);
    EXPECT_EQ(DBSTATUS_S_OK, r.status);
    EXPECT_EQ(sizeof(LONG), r.length);
}

TEST_F(Conversion, ANegativeValueOverflowsAnUnsignedType) {
    ValueRead r = Read(0, kInt, DBTYPE_UI1);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, r.hr);
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, r.status);
}

TEST_F(Conversion, ValuesOutsideTheTargetRangeOverflow) {
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(0, kBig, DBTYPE_I4).status);
    EXPECT_EQ(5000000000LL, Read(0, kBig, DBTYPE_I8).as<LONGLONG>());
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(0, kByte, DBTYPE_I1).status);
    EXPECT_EQ(200, Read(0, kByte, DBTYPE_UI1).as<BYTE>());
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(2, kDouble, DBTYPE_R4).status);  // -1e300 exceeds a float
}

TEST_F(Conversion, LimitsOfEachIntegerTypeRoundTrip) {
    EXPECT_EQ(2147483647, Read(2, kInt, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(-32768, Read(2, kSmall, DBTYPE_I2).as<SHORT>());
    EXPECT_EQ(255, Read(2, kByte, DBTYPE_UI1).as<BYTE>());
    EXPECT_EQ(9223372036854775807LL, Read(2, kBig, DBTYPE_I8).as<LONGLONG>());
    EXPECT_EQ(L"9223372036854775807", Text(2, kBig));
    EXPECT_EQ((-9223372036854775807LL - 1), Read(3, kBig, DBTYPE_I8).as<LONGLONG>());
}

TEST_F(Conversion, StoredValuesBeyondTheDeclaredTypeOverflowIt) {
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(3, kInt, DBTYPE_I4).status);
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(3, kSmall, DBTYPE_I2).status);
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(3, kByte, DBTYPE_UI1).status);
    EXPECT_EQ(-2147483649LL, Read(3, kInt, DBTYPE_I8).as<LONGLONG>());
}

TEST_F(Conversion, RealsRoundHalfToEvenIntoIntegers) {
    auto reals = c.Query(L"SELECT 2.5, 3.5, -2.5, 2.4999");
    DBCOUNTITEM obtained = 0;
    HROW row = DB_NULL_HROW;
    HROW* out = &row;
    ASSERT_EQ(S_OK, reals->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &out));
    EXPECT_EQ(2, ReadValue(reals.get(), row, 1, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(4, ReadValue(reals.get(), row, 2, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(-2, ReadValue(reals.get(), row, 3, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(2, ReadValue(reals.get(), row, 4, DBTYPE_I2).as<SHORT>());
    reals->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
}

TEST_F(Conversion, SingleAndDoubleKeepTheirValues) {
    EXPECT_EQ(1.5f, Read(0, kSingle, DBTYPE_R4).as<float>());
    EXPECT_EQ(2.75, Read(0, kDouble, DBTYPE_R8).as<double>());
    EXPECT_EQ(L"2.75", Text(0, kDouble));
    EXPECT_EQ(L"1.5", Text(0, kSingle));
    EXPECT_EQ(L"-1e+300", Text(2, kDouble));
    EXPECT_EQ(3, Read(0, kDouble, DBTYPE_I4).as<LONG>());  // 2.75 rounds to 3
}

TEST_F(Conversion, BitReadsAsVariantTrue) {
    EXPECT_EQ(VARIANT_TRUE, Read(0, kBit, DBTYPE_BOOL).as<VARIANT_BOOL>());
    EXPECT_EQ(VARIANT_FALSE, Read(2, kBit, DBTYPE_BOOL).as<VARIANT_BOOL>());
    EXPECT_EQ(-1, Read(0, kBit, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(L"True", Text(0, kBit));
    EXPECT_EQ(L"False", Text(2, kBit));
    ValueRead v = Read(0, kBit, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_BOOL, V_VT(&var));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&var));
}

TEST_F(Conversion, CurrencyKeepsFourDecimals) {
    EXPECT_EQ(123456, Read(0, kMoney, DBTYPE_CY).as<CY>().int64);
    EXPECT_EQ(L"12.3456", Text(0, kMoney));
    EXPECT_DOUBLE_EQ(12.3456, Read(0, kMoney, DBTYPE_R8).as<double>());
    DECIMAL d = Read(0, kMoney, DBTYPE_DECIMAL).as<DECIMAL>();
    EXPECT_EQ(4, d.scale);
    EXPECT_EQ(123456u, d.Lo64);
    EXPECT_EQ(-9223372036854770000LL, Read(2, kMoney, DBTYPE_CY).as<CY>().int64);
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(3, kMoney, DBTYPE_CY).status);  // beyond CY's range
    ValueRead v = Read(0, kMoney, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_CY, V_VT(&var));
    EXPECT_EQ(123456, V_CY(&var).int64);
}

TEST_F(Conversion, DecimalHasItsColumnsScaleAndPrecision) {
    DECIMAL d = Read(0, kDecimal, DBTYPE_DECIMAL).as<DECIMAL>();
    EXPECT_EQ(2, d.scale);
    EXPECT_EQ(123450u, d.Lo64);
    EXPECT_EQ(0, d.sign);
    EXPECT_EQ(L"1234.50", Text(0, kDecimal));
    EXPECT_EQ(L"-99999999.99", Text(2, kDecimal));
    DB_NUMERIC n = Read(0, kDecimal, DBTYPE_NUMERIC, 0, 10, 2).as<DB_NUMERIC>();
    EXPECT_EQ(10, n.precision);
    EXPECT_EQ(2, n.scale);
    EXPECT_EQ(1, n.sign);
    EXPECT_EQ(123450u, static_cast<unsigned>(n.val[0] | (n.val[1] << 8) | (n.val[2] << 16)));
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(0, kDecimal, DBTYPE_NUMERIC, 0, 3, 2).status);
    ValueRead v = Read(0, kDecimal, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_DECIMAL, V_VT(&var));
    EXPECT_EQ(1234, Read(0, kDecimal, DBTYPE_I4).as<LONG>());  // 1234.50 rounds half to even
}

TEST_F(Conversion, DateTimeReadsAsEveryDateType) {
    SYSTEMTIME st{};
    st.wYear = 2024;
    st.wMonth = 2;
    st.wDay = 29;
    st.wHour = 13;
    st.wMinute = 45;
    st.wSecond = 10;
    double expected = 0;
    ASSERT_TRUE(SystemTimeToVariantTime(&st, &expected));
    EXPECT_NEAR(expected, Read(0, kWhen, DBTYPE_DATE).as<DATE>(), 1e-9);
    DBTIMESTAMP ts = Read(0, kWhen, DBTYPE_DBTIMESTAMP).as<DBTIMESTAMP>();
    EXPECT_EQ(2024, ts.year);
    EXPECT_EQ(2, ts.month);
    EXPECT_EQ(29, ts.day);
    EXPECT_EQ(13, ts.hour);
    EXPECT_EQ(45, ts.minute);
    EXPECT_EQ(10, ts.second);
    EXPECT_EQ(0u, ts.fraction);
    DBDATE date = Read(0, kWhen, DBTYPE_DBDATE).as<DBDATE>();
    EXPECT_EQ(2024, date.year);
    EXPECT_EQ(29, date.day);
    DBTIME time = Read(0, kWhen, DBTYPE_DBTIME).as<DBTIME>();
    EXPECT_EQ(13, time.hour);
    EXPECT_EQ(10, time.second);
    EXPECT_EQ(L"2024-02-29 13:45:10", Text(0, kWhen));
    ValueRead v = Read(0, kWhen, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_DATE, V_VT(&var));
    EXPECT_NEAR(expected, V_DATE(&var), 1e-9);
}

TEST_F(Conversion, DatesOutsideTheDateTypesRangeOverflowOnlyThere) {
    EXPECT_EQ(DBSTATUS_S_OK, Read(2, kWhen, DBTYPE_DATE).status);
    EXPECT_EQ(DBSTATUS_E_DATAOVERFLOW, Read(3, kWhen, DBTYPE_DATE).status);
    DBTIMESTAMP ts = Read(3, kWhen, DBTYPE_DBTIMESTAMP).as<DBTIMESTAMP>();
    EXPECT_EQ(50, ts.year);
    EXPECT_EQ(6, ts.month);
}

TEST_F(Conversion, GuidReadsAsGuidTextAndBytes) {
    const GUID expected = {0x6ed3cdc0, 0xcb85, 0x478b, {0x86, 0xc2, 0xac, 0xc4, 0x37, 0xdd, 0xd2, 0x88}};
    GUID g = Read(0, kId, DBTYPE_GUID).as<GUID>();
    EXPECT_TRUE(g == expected);
    EXPECT_EQ(L"{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}", Text(0, kId));
    ValueRead bytes = Read(0, kId, DBTYPE_BYTES, 16);
    EXPECT_EQ(16u, bytes.length);
    EXPECT_EQ(0, memcmp(bytes.value.data(), &expected, 16));
    EXPECT_EQ(DBSTATUS_E_CANTCONVERTVALUE, Read(3, kId, DBTYPE_GUID).status);
}

TEST_F(Conversion, TextConvertsToANumberOnlyWhenItHoldsOne) {
    EXPECT_EQ(12, Read(2, kText, DBTYPE_I4).as<LONG>());
    EXPECT_EQ(DBSTATUS_E_CANTCONVERTVALUE, Read(0, kText, DBTYPE_I4).status);
    EXPECT_EQ(DBSTATUS_E_CANTCONVERTVALUE, Read(0, kText, DBTYPE_DATE).status);
}

TEST_F(Conversion, TextReadsAsWideAnsiAndBstr) {
    EXPECT_EQ(L"hello", Text(0, kText));
    ValueRead ansi = Read(0, kText, DBTYPE_STR, 20);
    EXPECT_STREQ("hello", reinterpret_cast<const char*>(ansi.value.data()));
    EXPECT_EQ(5u, ansi.length);
    ValueRead b = Read(0, kText, DBTYPE_BSTR, sizeof(BSTR));
    BSTR bstr = b.as<BSTR>();
    EXPECT_STREQ(L"hello", bstr);
    SysFreeString(bstr);
    ValueRead v = Read(0, kText, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_BSTR, V_VT(&var));
    EXPECT_STREQ(L"hello", V_BSTR(&var));
    VariantClear(&var);
}

TEST_F(Conversion, AShortBufferTruncatesTextAndReportsTheFullLength) {
    ValueRead wide = Read(0, kText, DBTYPE_WSTR, 6);  // two characters and the terminator
    EXPECT_EQ(S_OK, wide.hr);
    EXPECT_EQ(DBSTATUS_S_TRUNCATED, wide.status);
    EXPECT_EQ(10u, wide.length);
    EXPECT_STREQ(L"he", reinterpret_cast<const wchar_t*>(wide.value.data()));
    ValueRead ansi = Read(0, kText, DBTYPE_STR, 3);
    EXPECT_EQ(DBSTATUS_S_TRUNCATED, ansi.status);
    EXPECT_EQ(5u, ansi.length);
    EXPECT_STREQ("he", reinterpret_cast<const char*>(ansi.value.data()));
    ValueRead bytes = Read(0, kBinary, DBTYPE_BYTES, 2);
    EXPECT_EQ(DBSTATUS_S_TRUNCATED, bytes.status);
    EXPECT_EQ(4u, bytes.length);
    EXPECT_EQ(0xDE, bytes.value[0]);
    EXPECT_EQ(0xAD, bytes.value[1]);
}

TEST_F(Conversion, BinaryReadsAsBytesHexTextAndByteArray) {
    ValueRead bytes = Read(0, kBinary, DBTYPE_BYTES, 8);
    EXPECT_EQ(DBSTATUS_S_OK, bytes.status);
    EXPECT_EQ(4u, bytes.length);
    EXPECT_EQ(0xEF, bytes.value[3]);
    EXPECT_EQ(L"DEADBEEF", Text(0, kBinary));
    ValueRead v = Read(0, kBinary, DBTYPE_VARIANT, sizeof(VARIANT));
    VARIANT var = v.as<VARIANT>();
    EXPECT_EQ(VT_ARRAY | VT_UI1, V_VT(&var));
    EXPECT_EQ(4u, V_ARRAY(&var)->rgsabound[0].cElements);
    VariantClear(&var);
    EXPECT_EQ(0u, Read(2, kBinary, DBTYPE_BYTES, 8).length);
}

TEST_F(Conversion, NullGivesIsNullForEveryType) {
    const DBTYPE types[] = {DBTYPE_I4, DBTYPE_I2, DBTYPE_UI1, DBTYPE_I8, DBTYPE_R4, DBTYPE_R8, DBTYPE_CY, DBTYPE_DECIMAL,
                            DBTYPE_BOOL, DBTYPE_DATE, DBTYPE_GUID, DBTYPE_WSTR, DBTYPE_BYTES, DBTYPE_STR,
                            DBTYPE_DBTIMESTAMP, DBTYPE_NUMERIC, DBTYPE_BSTR};
    auto columns = ColumnsOf(rowset.get());
    auto convert = rowset.as<IConvertType>();
    int checked = 0;
    for (const auto& column : columns) {
        for (DBTYPE type : types) {
            if (convert->CanConvert(column.type, type, DBCONVERTFLAGS_COLUMN) != S_OK) continue;
            SCOPED_TRACE(testing::Message() << "column " << column.ordinal << " type " << type);
            ValueRead r = Read(1, column.ordinal, type, 40);
            EXPECT_EQ(S_OK, r.hr);
            EXPECT_EQ(DBSTATUS_S_ISNULL, r.status);
            EXPECT_EQ(0u, r.length);
            ++checked;
        }
    }
    EXPECT_GT(checked, 150);
    ValueRead v = Read(1, kInt, DBTYPE_VARIANT, sizeof(VARIANT));
    EXPECT_EQ(DBSTATUS_S_ISNULL, v.status);
    EXPECT_EQ(VT_NULL, V_VT(reinterpret_cast<const VARIANT*>(v.value.data())));
}

TEST_F(Conversion, VariantCarriesTheColumnsOwnType) {
    auto variantType = [&](DBORDINAL column) {
        ValueRead v = Read(0, column, DBTYPE_VARIANT, sizeof(VARIANT));
        VARIANT var = v.as<VARIANT>();
        VARTYPE vt = V_VT(&var);
        VariantClear(&var);
        return vt;
    };
    EXPECT_EQ(VT_I4, variantType(kInt));
    EXPECT_EQ(VT_I2, variantType(kSmall));
    EXPECT_EQ(VT_UI1, variantType(kByte));
    EXPECT_EQ(VT_I8, variantType(kBig));
    EXPECT_EQ(VT_R4, variantType(kSingle));
    EXPECT_EQ(VT_R8, variantType(kDouble));
    EXPECT_EQ(VT_BSTR, variantType(kId));
}

TEST_F(Conversion, ConvertTypeAnswersForTheRowsetsConversions) {
    auto convert = rowset.as<IConvertType>();
    EXPECT_EQ(S_OK, convert->CanConvert(DBTYPE_I4, DBTYPE_WSTR, DBCONVERTFLAGS_COLUMN));
    EXPECT_EQ(S_OK, convert->CanConvert(DBTYPE_WSTR, DBTYPE_I4, DBCONVERTFLAGS_COLUMN));
    EXPECT_EQ(S_OK, convert->CanConvert(DBTYPE_DATE, DBTYPE_DBTIMESTAMP, DBCONVERTFLAGS_COLUMN));
    EXPECT_EQ(S_OK, convert->CanConvert(DBTYPE_WSTR, DBTYPE_IUNKNOWN, DBCONVERTFLAGS_ISLONG));
    EXPECT_EQ(S_FALSE, convert->CanConvert(DBTYPE_GUID, DBTYPE_I4, DBCONVERTFLAGS_COLUMN));
    EXPECT_EQ(S_FALSE, convert->CanConvert(DBTYPE_I4, DBTYPE_IUNKNOWN, DBCONVERTFLAGS_COLUMN));
    EXPECT_EQ(DB_E_BADCONVERTFLAG, convert->CanConvert(DBTYPE_I4, DBTYPE_WSTR, DBCONVERTFLAGS_PARAMETER));
}

}  // namespace
