// The CONN rule: an initialization string as it is, a file path as the embedded provider's
// string for the file's full path.
#include <gtest/gtest.h>

#include <set>

#include "host/ConnectionArgument.h"

namespace zel::zeldb {
namespace {

PathServices FakePaths(std::set<std::wstring> existing = {}) {
    return PathServices{
        [existing](const std::wstring& p) { return existing.count(p) > 0; },
        [](const std::wstring& p) { return p.find(L':') == 1 ? p : L"C:\\work\\" + p; },
    };
}

TEST(ZelDbConnectionArgument, AFullInitializationStringIsUsedAsItIs) {
    const std::wstring init = L"Provider=ZelLite.OLEDB.1;Data Source=C:\\data\\parts.db";
    EXPECT_TRUE(IsInitializationString(init, FakePaths()));
    EXPECT_EQ(ConnectionInitString(init, FakePaths()), init);
    const std::wstring jet = L"Jet OLEDB:Engine Type=4;Provider=Other.1";
    EXPECT_EQ(ConnectionInitString(jet, FakePaths()), jet);
}

TEST(ZelDbConnectionArgument, AFilePathBecomesTheEmbeddedProvidersString) {
    EXPECT_EQ(ConnectionInitString(L"parts.db", FakePaths()),
              L"Provider=ZelLite.OLEDB.1;Data Source=C:\\work\\parts.db");
    EXPECT_EQ(ConnectionInitString(L"D:\\inventory\\parts.db", FakePaths()),
              L"Provider=ZelLite.OLEDB.1;Data Source=D:\\inventory\\parts.db");
}

TEST(ZelDbConnectionArgument, AnEqualsSignAfterAPathSeparatorOrDotIsAPath) {
    EXPECT_FALSE(IsInitializationString(L"C:\\a=b\\parts.db", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"dir/x=1.db", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"v1.2=old.db", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"=x", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"1=x", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"parts.db", FakePaths()));
}

TEST(ZelDbConnectionArgument, AnExistingFileIsAlwaysAPath) {
    EXPECT_TRUE(IsInitializationString(L"odd=name", FakePaths()));
    EXPECT_FALSE(IsInitializationString(L"odd=name", FakePaths({L"odd=name"})));
    EXPECT_EQ(ConnectionInitString(L"odd=name", FakePaths({L"odd=name"})),
              L"Provider=ZelLite.OLEDB.1;Data Source=C:\\work\\odd=name");
}

TEST(ZelDbConnectionArgument, APathWithASemicolonIsQuoted) {
    EXPECT_EQ(EmbeddedInitString(L"C:\\a;b\\parts.db"), L"Provider=ZelLite.OLEDB.1;Data Source=\"C:\\a;b\\parts.db\"");
}

TEST(ZelDbConnectionArgument, SystemPathsGiveAFullPathForARelativeOne) {
    const std::wstring full = SystemPaths().fullPath(L"some-file.db");
    ASSERT_GE(full.size(), 3u);
    EXPECT_EQ(full[1], L':');
    EXPECT_EQ(full.substr(full.size() - 13), L"\\some-file.db");
    EXPECT_FALSE(SystemPaths().fileExists(L"no-such-file-here.db"));
}

}  // namespace
}  // namespace zel::zeldb
