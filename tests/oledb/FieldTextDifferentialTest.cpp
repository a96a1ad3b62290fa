// The field texts made by the server's own formatters against the platform calls they
// replace, over a fixed-seed set of generated values per kind (FieldTextDiff runs the same
// checks over millions); and the date texts in every installed locale, the ones the fast path
// does not recognise included.
#include <windows.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "oledb/DateTextFormat.h"
#include "oledb/FieldText.h"
#include "tests/oledb/FieldTextDifferential.h"

using namespace zel;
using namespace zel::test;

namespace {

constexpr uint64_t kSeed = 20261125;
constexpr uint64_t kValuesPerKind = 40000;
constexpr uint64_t kDatesPerLocale = 400;

std::wstring PlatformDate(DATE value, LCID locale, ULONG flags) {
    Bstr text;
    if (FAILED(VarBstrFromDate(value, locale, flags, text.put()))) return L"Invalid DateTime";
    return text.str();
}

class ValueKindTest : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(ValueKindTest, FormatterGivesThePlatformText) {
    const DifferentialResult result = CompareValueKind(GetParam(), kSeed, kValuesPerKind);
    EXPECT_EQ(kValuesPerKind, result.compared);
    EXPECT_EQ(0u, result.mismatches) << Describe(result);
}

INSTANTIATE_TEST_SUITE_P(FieldTextDifferential, ValueKindTest, testing::ValuesIn(ValueKinds()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             std::string name;
                             for (char c : info.param)
                                 if (isalnum(static_cast<unsigned char>(c))) name += c;
                             return name;
                         });

TEST(FieldTextDifferential, EveryKindOfFixedSizeValueIsCompared) {
    // The readers' fixed-size types with a text: the integers, reals, currency, dates and
    // times, BOOL, VARIANT, DECIMAL, GUID and IDispatch pointers.
    EXPECT_EQ(21u, ValueKinds().size());
}

TEST(FieldTextDifferential, DatesInEveryInstalledLocaleGiveThePlatformText) {
    const std::vector<LCID> locales = InstalledLocales();
    ASSERT_GT(locales.size(), 100u);
    size_t recognised = 0;
    for (LCID locale : locales) {
        if (DateTextFormat::ForLocale(locale).Recognised()) ++recognised;
        const DifferentialResult result = CompareLocaleDates(locale, kSeed, kDatesPerLocale);
        EXPECT_EQ(kDatesPerLocale, result.compared);
        EXPECT_EQ(0u, result.mismatches) << Describe(result);
    }
    // Most locales use numeric pictures; a few are left to the platform.
    EXPECT_GT(recognised, locales.size() / 2);
    EXPECT_LT(recognised, locales.size());
}

TEST(FieldTextDifferential, UnrecognisedLocaleIsServedByThePlatform) {
    // fr-CA writes its time with quoted text ("HH 'h' mm 'min' ss 's'"), which the fast path
    // does not reproduce.
    const LCID frenchCanada = MAKELCID(MAKELANGID(LANG_FRENCH, SUBLANG_FRENCH_CANADIAN), SORT_DEFAULT);
    const DateTextFormat format = DateTextFormat::ForLocale(frenchCanada);
    ASSERT_FALSE(format.Recognised());
    for (DATE value : {45000.5, 45000.0, 0.25, -1.5, 2958465.75, -657435.0}) {
        EXPECT_EQ(PlatformDate(value, frenchCanada, 0), DateText(value, 0, format)) << value;
    }
    EXPECT_NE(std::wstring::npos, DateText(45000.5, 0, format).find(L"h 00 min")) << "the platform's own text";
    DBTIMESTAMP stamp = {2023, 3, 15, 13, 5, 9, 0};
    EXPECT_NE(std::wstring::npos, DbTimestampText(stamp, format).find(L"13 h 05 min 09 s"));
    const DifferentialResult result = CompareLocaleDates(frenchCanada, kSeed, 2000);
    EXPECT_EQ(0u, result.mismatches) << Describe(result);
}

TEST(FieldTextDifferential, RecognisedLocaleOtherThanTheUsersUsesItsOwnPictures) {
    const LCID german = MAKELCID(MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN), SORT_DEFAULT);
    const DateTextFormat format = DateTextFormat::ForLocale(german);
    ASSERT_TRUE(format.Recognised());
    EXPECT_EQ(PlatformDate(45000.5, german, 0), DateText(45000.5, 0, format));
    EXPECT_EQ(L"15.3.2023 12:00:00", DateText(45000.5, 0, format));  // Wine's de-DE picture: d.M.yyyy
}

TEST(FieldTextDifferential, UserDefaultFormatIsTheUserLocales) {
    const DateTextFormat& format = DateTextFormat::UserDefault();
    EXPECT_EQ(static_cast<LCID>(LOCALE_USER_DEFAULT), format.Locale());
    EXPECT_EQ(DateTextFormat::ForLocale(LOCALE_USER_DEFAULT).Recognised(), format.Recognised());
    for (DATE value : {45000.5, 45000.0, 0.5, -0.5, -1.5, 2958465.99999999, -657434.0})
        for (ULONG flags : {0ul, static_cast<ULONG>(VAR_DATEVALUEONLY), static_cast<ULONG>(VAR_TIMEVALUEONLY)})
            EXPECT_EQ(PlatformDate(value, LANG_USER_DEFAULT, flags), DateText(value, flags)) << value << " " << flags;
}
