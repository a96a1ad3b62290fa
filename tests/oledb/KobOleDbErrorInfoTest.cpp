// Provider error capture: what hosts read as errorText after a provider failure.
#include "oledb/KobOleDbErrorInfo.h"

#include <windows.h>
#include <oledberr.h>

#include <windows.h>
#include <oledberr.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "tests/oledb/TestErrorObjects.h"

using zel::KobOleDbErrorInfo;
using zel::test::MakeErrorInfo;
using zel::test::MakeErrorRecords;
using zel::test::TestErrorRecord;

namespace {

// The interface GUID a provider reports with its records.
const GUID kRecordGuid = {0x0c733a69, 0x2a1c, 0x11ce, {0xad, 0xe5, 0x00, 0xaa, 0x00, 0x44, 0x77, 0x3d}};

TestErrorRecord Record(const wchar_t* description) {
    TestErrorRecord r;
    r.source = L"ZelLite OLE DB Provider";
    r.description = description;
    r.helpFile = L"";
    r.helpContext = 0;
    r.guid = kRecordGuid;
    return r;
}

}  // namespace

TEST(KobOleDbErrorInfo, SOkIsSuccessAndClearsPreviousTexts) {
    KobOleDbErrorInfo info;
    info.SetErrors(L"old error", L"SELECT 1");
    EXPECT_TRUE(info.CheckResult(S_OK));
    EXPECT_EQ(L"", info.GetErrorText());
    EXPECT_EQ(L"", info.GetErrorStatement());
    EXPECT_FALSE(info.HasError());
}

TEST(KobOleDbErrorInfo, SFalseIsFailureAndWithoutErrorObjectLeavesTextsEmpty) {
    SetErrorInfo(0, nullptr);
    KobOleDbErrorInfo info;
    info.SetErrors(L"old", L"stmt");
    EXPECT_FALSE(info.CheckResult(S_FALSE));
    EXPECT_EQ(L"", info.GetErrorText());
    EXPECT_EQ(L"", info.GetErrorStatement());
}

TEST(KobOleDbErrorInfo, ThreeRecordsYieldOnlyTheLastBlockNumberedTwo) {
    SetErrorInfo(0, MakeErrorRecords({Record(L"first"), Record(L"second"), Record(L"third")}).get());
    KobOleDbErrorInfo info;
    EXPECT_FALSE(info.CheckResult(DB_E_ERRORSINCOMMAND));
    EXPECT_EQ(L"Row #:    2 Source: \"ZelLite OLE DB Provider\"\n"
              L"Description: \"third\"\n"
              L"Help File: \"\" Help Context:    0\n"
              L"GUID: {0C733A69-2A1C-11CE-ADE5-00AA0044773D}\n",
              info.GetErrorText());
}

TEST(KobOleDbErrorInfo, RecordWithSqlStateAddsOneSqlStateLine) {
    TestErrorRecord r = Record(L"no such table: parts");
    r.sqlState = L"42S02";
    r.nativeError = 1;
    SetErrorInfo(0, MakeErrorRecords({r}).get());
    KobOleDbErrorInfo info;
    EXPECT_FALSE(info.CheckResult(DB_E_NOTABLE));
    EXPECT_EQ(L"Row #:    0 Source: \"ZelLite OLE DB Provider\"\n"
              L"Description: \"no such table: parts\"\n"
              L"Help File: \"\" Help Context:    0\n"
              L"GUID: {0C733A69-2A1C-11CE-ADE5-00AA0044773D}\n"
              L"SQLState: 42S02, NativeError: 1\n",
              info.GetErrorText());
}

TEST(KobOleDbErrorInfo, ErrorObjectWithoutRecordsYieldsOneBlockNumberedZero) {
    TestErrorRecord r;
    r.source = L"Plain";
    r.description = L"plain failure";
    r.helpContext = 12345;
    SetErrorInfo(0, MakeErrorInfo(r).get());
    KobOleDbErrorInfo info;
    EXPECT_FALSE(info.CheckResult(E_FAIL));
    // A failed read prints as the platform prints a null string.
    EXPECT_EQ(L"Row #:    0 Source: \"Plain\"\n"
              L"Description: \"plain failure\"\n"
              L"Help File: \"(null)\" Help Context: 12345\n"
              L"GUID: {00000000-0000-0000-0000-000000000000}\n",
              info.GetErrorText());
}

TEST(KobOleDbErrorInfo, ErrorObjectIsConsumedByTheFirstCheck) {
    SetErrorInfo(0, MakeErrorRecords({Record(L"once")}).get());
    KobOleDbErrorInfo info;
    EXPECT_FALSE(info.CheckResult(E_FAIL));
    EXPECT_TRUE(info.HasError());
    EXPECT_FALSE(info.CheckResult(E_FAIL));
    EXPECT_FALSE(info.HasError());
}

TEST(KobOleDbErrorInfo, MessageAppendsStatementOnlyWhenAskedAndPresent) {
    KobOleDbErrorInfo info;
    info.SetErrors(L"bad", L"SELEC 1");
    EXPECT_EQ(L"bad\nSELEC 1", info.GetMessage(true));
    EXPECT_EQ(L"bad", info.GetMessage(false));
    info.SetErrors(L"bad", nullptr);
    EXPECT_EQ(L"bad", info.GetMessage(true));
}
