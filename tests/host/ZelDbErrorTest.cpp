// How zeldb reports failures: the server's text and statement, or a described HRESULT.
#include <gtest/gtest.h>

#include "host/ZelDbError.h"

namespace zel::zeldb {
namespace {

TEST(ZelDbErrors, ServerTextAndStatementArePrintedAsGiven) {
    StringSink err;
    PrintError(err, ZelDbError(L"the statement failed", E_FAIL,
                               L"Row #:    0 Source: \"ZelLite\"\nDescription: \"no such table: Nope\"\n",
                               L"SELECT * FROM Nope"));
    EXPECT_EQ(err.text(),
              L"zeldb: the statement failed\n"
              L"Row #:    0 Source: \"ZelLite\"\nDescription: \"no such table: Nope\"\n"
              L"statement: SELECT * FROM Nope\n");
}

TEST(ZelDbErrors, WithoutServerTextTheCodeIsNamedAndExplained) {
    StringSink err;
    PrintError(err, ZelDbError(L"cannot drop table \"Nope\"", static_cast<HRESULT>(0x80040E37L)));
    EXPECT_EQ(err.text(), L"zeldb: cannot drop table \"Nope\": 0x80040E37 DB_E_NOTABLE: the table does not exist\n");
}

TEST(ZelDbErrors, ZelDbsOwnFindingsPrintWithoutACode) {
    StringSink err;
    PrintError(err, ZelDbError(L"no table named \"Nope\"", S_OK));
    EXPECT_EQ(err.text(), L"zeldb: no table named \"Nope\"\n");
}

TEST(ZelDbErrors, DescribesCommonCodes) {
    EXPECT_EQ(DescribeHresult(REGDB_E_CLASSNOTREG), L"0x80040154 REGDB_E_CLASSNOTREG: the class is not registered");
    EXPECT_EQ(DescribeHresult(static_cast<HRESULT>(0x80040E3FL)),
              L"0x80040E3F DB_E_DUPLICATETABLEID: the table already exists");
    // A code nobody knows still shows as a number.
    EXPECT_EQ(DescribeHresult(static_cast<HRESULT>(0xA1B2C3D4L)).rfind(L"0xA1B2C3D4", 0), 0u);
}

}  // namespace
}  // namespace zel::zeldb
