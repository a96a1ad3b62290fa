// Text conversion and the line sources of zeldb.
#include <gtest/gtest.h>

#include "host/TextStreams.h"

namespace zel::zeldb {
namespace {

TEST(ZelDbText, Utf8RoundTripKeepsEveryCharacter) {
    const std::wstring text = L"Gr\u00fc\u00dfe \u2713 \U0001F600";
    const std::string bytes = ToUtf8(text);
    EXPECT_EQ(bytes, "Gr\xC3\xBC\xC3\x9F" "e \xE2\x9C\x93 \xF0\x9F\x98\x80");
    EXPECT_EQ(FromUtf8(bytes), text);
    EXPECT_EQ(ToUtf8(L""), "");
}

TEST(ZelDbText, StringLinesEndAtLfOrCrLf) {
    StringLineSource in(L"one\r\ntwo\n\nlast");
    EXPECT_EQ(in.ReadLine(), std::optional<std::wstring>(L"one"));
    EXPECT_EQ(in.ReadLine(), std::optional<std::wstring>(L"two"));
    EXPECT_EQ(in.ReadLine(), std::optional<std::wstring>(L""));
    EXPECT_EQ(in.ReadLine(), std::optional<std::wstring>(L"last"));
    EXPECT_EQ(in.ReadLine(), std::nullopt);
}

}  // namespace
}  // namespace zel::zeldb
