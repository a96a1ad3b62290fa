// BuildFormatConnectionInfo: the template and code per data-source format, and the
// registry presence tests (engine first, then ISAM) that decide the answer.
#include "helper/BuildFormatConnectionInfo.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "tests/helper/HelperTestFormats.h"
#include "tests/helper/JetRegistryTest.h"

using zel::BuildFormatConnectionInfo;
using zel::test::ExpectedFormat;
using zel::test::ExpectedFormats;
using zel::test::JetRegistryKeys;
using zel::test::JetRegistryTest;

namespace {

constexpr wchar_t kUntouched[] = L"untouched";
constexpr LONG kUntouchedFlags = 12345;

// The answer with outputs pre-set, so that "untouched" can be checked.
struct Answer {
    bool known = false;
    std::wstring connStr = kUntouched;
    LONG connFlags = kUntouchedFlags;
};

Answer Ask(LONG format, const wchar_t* user = nullptr, const wchar_t* password = nullptr) {
    Answer a;
    a.known = BuildFormatConnectionInfo(format, user, password, a.connStr, a.connFlags);
    return a;
}

void ExpectFalseAndUntouched(const Answer& a) {
    EXPECT_FALSE(a.known);
    EXPECT_EQ(kUntouched, a.connStr);
    EXPECT_EQ(kUntouchedFlags, a.connFlags);
}

// Registers every engine and ISAM key of the table.
void AddAllKeys(JetRegistryKeys& keys) {
    for (const auto& name : zel::test::HelperEngineNames()) ASSERT_TRUE(keys.AddEngine(name));
    for (const auto& name : zel::test::HelperIsamNames()) ASSERT_TRUE(keys.AddIsam(name));
}

class EachFormat : public JetRegistryTest, public testing::WithParamInterface<ExpectedFormat> {};

TEST_P(EachFormat, AnswersTrueWithItsTemplateAndCodeWhenItsKeysAreRegistered) {
    const ExpectedFormat& f = GetParam();
    ASSERT_TRUE(Keys().AddEngine(f.engine));
    if (f.isam) {
        ASSERT_TRUE(Keys().AddIsam(f.isam));
    }
    Answer a = Ask(f.format);
    EXPECT_TRUE(a.known);
    EXPECT_EQ(f.connStr, a.connStr);
    EXPECT_EQ(f.connFlags, a.connFlags);
}

TEST_P(EachFormat, AnswersFalseWhenNothingIsRegistered) { ExpectFalseAndUntouched(Ask(GetParam().format)); }

TEST_P(EachFormat, AnswersFalseWhenTheEngineKeyIsMissing) {
    const ExpectedFormat& f = GetParam();
    // Every other key of the table is there, only this format's engine is not.
    for (const auto& name : zel::test::HelperEngineNames()) {
        if (name != f.engine) {
            ASSERT_TRUE(Keys().AddEngine(name));
        }
    }
    for (const auto& name : zel::test::HelperIsamNames()) ASSERT_TRUE(Keys().AddIsam(name));
    ExpectFalseAndUntouched(Ask(f.format));
}

TEST_P(EachFormat, WithItsEngineRegisteredItsOwnIsamKeyDecides) {
    const ExpectedFormat& f = GetParam();
    // Every engine and every other ISAM key is there, only this format's ISAM key is not.
    for (const auto& name : zel::test::HelperEngineNames()) ASSERT_TRUE(Keys().AddEngine(name));
    for (const auto& name : zel::test::HelperIsamNames()) {
        if (!f.isam || name != f.isam) {
            ASSERT_TRUE(Keys().AddIsam(name));
        }
    }
    if (f.isam) {
        ExpectFalseAndUntouched(Ask(f.format));
    } else {
        EXPECT_TRUE(Ask(f.format).known) << "the Access formats look at no ISAM key";
    }
}

TEST_P(EachFormat, KeysInThe64BitViewOnlyDoNotCount) {
    const ExpectedFormat& f = GetParam();
    ASSERT_TRUE(Keys().AddEngineIn64BitView(f.engine));
    if (JetRegistryKeys::Exists(zel::test::kJetEnginesRoot + std::wstring(f.engine), KEY_WOW64_32KEY))
        GTEST_SKIP() << "this prefix does not keep separate 32- and 64-bit views of HKLM\\Software";
    if (f.isam) {
        ASSERT_TRUE(Keys().AddIsam(f.isam));
    }
    ExpectFalseAndUntouched(Ask(f.format));
}

INSTANTIATE_TEST_SUITE_P(Formats, EachFormat, testing::ValuesIn(ExpectedFormats()),
                         [](const testing::TestParamInfo<ExpectedFormat>& info) { return std::string(info.param.label); });

using FormatRegistry = JetRegistryTest;

TEST_F(FormatRegistry, AccessFormatsNeedOnlyTheJet40EngineKey) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    EXPECT_TRUE(Ask(0).known);
    EXPECT_TRUE(Ask(1).known);
    for (LONG format = 2; format <= 10; ++format) ExpectFalseAndUntouched(Ask(format));
}

TEST_F(FormatRegistry, AccessFormatsIgnoreEveryOtherKey) {
    for (const auto& name : {L"Excel", L"Xbase", L"Text"}) ASSERT_TRUE(Keys().AddEngine(name));
    for (const auto& name : zel::test::HelperIsamNames()) ASSERT_TRUE(Keys().AddIsam(name));
    ExpectFalseAndUntouched(Ask(0));
    ExpectFalseAndUntouched(Ask(1));
}

TEST_F(FormatRegistry, Excel8CanAnswerTrueWhileExcel5AnswersFalse) {
    ASSERT_TRUE(Keys().AddEngine(L"Excel"));
    ASSERT_TRUE(Keys().AddIsam(L"Excel 8.0"));
    Answer excel8 = Ask(2);
    EXPECT_TRUE(excel8.known);
    EXPECT_EQ(0, excel8.connFlags);
    ExpectFalseAndUntouched(Ask(3));
}

TEST_F(FormatRegistry, HtmlExportDependsOnTheTextEngineNotOnAnHtmlOne) {
    ASSERT_TRUE(Keys().AddEngine(L"HTML"));
    ASSERT_TRUE(Keys().AddEngine(L"HTML Export"));
    ASSERT_TRUE(Keys().AddIsam(L"HTML Export"));
    ExpectFalseAndUntouched(Ask(10));
    ASSERT_TRUE(Keys().AddEngine(L"Text"));
    Answer a = Ask(10);
    EXPECT_TRUE(a.known);
    EXPECT_EQ(1, a.connFlags);
}

TEST_F(FormatRegistry, AnIsamKeyUnderAnotherEngineStillCounts) {
    // The ISAM key is looked up by name alone; the engine it belongs to is not checked.
    ASSERT_TRUE(Keys().AddEngine(L"Xbase"));
    ASSERT_TRUE(Keys().AddIsam(L"FoxPro 2.6"));
    EXPECT_TRUE(Ask(8).known);
    ExpectFalseAndUntouched(Ask(7));
    ExpectFalseAndUntouched(Ask(9));
}

TEST_F(FormatRegistry, UnknownFormatValuesAnswerFalseEvenWithEveryKeyRegistered) {
    AddAllKeys(Keys());
    for (LONG format : {11L, -1L, 12L, 100L, static_cast<LONG>(INT_MAX), static_cast<LONG>(INT_MIN)})
        ExpectFalseAndUntouched(Ask(format));
    EXPECT_TRUE(Ask(0).known);
    EXPECT_TRUE(Ask(10).known);
}

TEST_F(FormatRegistry, UserAndPasswordAreAppendedInThatOrder) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    const std::wstring base = L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!";
    EXPECT_EQ(base + L"User ID=admin;Password=secret;", Ask(0, L"admin", L"secret").connStr);
    EXPECT_EQ(base + L"User ID=admin;", Ask(0, L"admin", nullptr).connStr);
    EXPECT_EQ(base + L"Password=secret;", Ask(0, nullptr, L"secret").connStr);
    EXPECT_EQ(base + L"User ID=;Password=;", Ask(0, L"", L"").connStr);
    EXPECT_EQ(base + L";Jet OLEDB:Engine Type=4;User ID=a b;Password=%s;", Ask(1, L"a b", L"%s").connStr);
}

TEST_F(FormatRegistry, UserAndPasswordDoNotChangeTheAnswerOrTheCode) {
    Answer a = Ask(0, L"admin", L"secret");
    ExpectFalseAndUntouched(a);
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    a = Ask(1, L"admin", L"secret");
    EXPECT_TRUE(a.known);
    EXPECT_EQ(2, a.connFlags);
    EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!;Jet OLEDB:Engine Type=4;User ID=admin;Password=secret;",
              a.connStr);
}

// The host puts the data source path into the template with FormatMessage.
std::wstring FormatTemplate(const std::wstring& pattern, const wchar_t* path) {
    DWORD_PTR args[] = {reinterpret_cast<DWORD_PTR>(path)};
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER, pattern.c_str(),
        0, 0, reinterpret_cast<wchar_t*>(&text), 0, reinterpret_cast<va_list*>(args));
    std::wstring result = length ? std::wstring(text, length) : L"<FormatMessage failed>";
    LocalFree(text);  // FormatMessage's buffer belongs to the local heap
    return result;
}

TEST_F(FormatRegistry, AccessTemplateFormatsWithTheDataSourcePath) {
    ASSERT_TRUE(Keys().AddEngine(L"Jet 4.0"));
    Answer a = Ask(0);
    ASSERT_TRUE(a.known);
    EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\data\\parts.mdb",
              FormatTemplate(a.connStr, L"C:\\data\\parts.mdb"));
}

TEST_F(FormatRegistry, ExcelTemplateKeepsItsQuotedPropertiesWhenFormatted) {
    ASSERT_TRUE(Keys().AddEngine(L"Excel"));
    ASSERT_TRUE(Keys().AddIsam(L"Excel 5.0"));
    Answer a = Ask(3);
    ASSERT_TRUE(a.known);
    EXPECT_EQ(L"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\data\\book.xls;Extended Properties=\"Excel 5.0;HDR=Yes\"",
              FormatTemplate(a.connStr, L"C:\\data\\book.xls"));
}

TEST_F(FormatRegistry, KeysCreatedByATestAreGoneAfterwards) {
    {
        JetRegistryKeys& keys = Keys();
        AddAllKeys(keys);
        EXPECT_TRUE(JetRegistryKeys::Exists(std::wstring(zel::test::kJetEnginesRoot) + L"Jet 4.0"));
        keys.Restore();
    }
    for (const auto& name : zel::test::HelperEngineNames())
        EXPECT_FALSE(JetRegistryKeys::Exists(zel::test::kJetEnginesRoot + name));
    for (const auto& name : zel::test::HelperIsamNames())
        EXPECT_FALSE(JetRegistryKeys::Exists(zel::test::kJetIsamRoot + name));
    ExpectFalseAndUntouched(Ask(0));
}

}  // namespace
