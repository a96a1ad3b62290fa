#include "common/Bstr.h"

#include <gtest/gtest.h>

#include <utility>

using zel::Bstr;

TEST(Bstr, DefaultIsNullAndReadsAsEmpty) {
    Bstr b;
    EXPECT_EQ(nullptr, b.get());
    EXPECT_EQ(0u, b.length());
    EXPECT_STREQ(L"", b.c_str());
    EXPECT_TRUE(b.empty());
}

TEST(Bstr, NullPointerGivesNullBstr) {
    Bstr b(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(nullptr, b.get());
}

TEST(Bstr, CopiesTextWithLengthPrefix) {
    Bstr b(L"parts");
    ASSERT_NE(nullptr, b.get());
    EXPECT_EQ(5u, SysStringLen(b.get()));
    EXPECT_EQ(L"parts", b.str());
}

TEST(Bstr, KeepsEmbeddedNulFromStringView) {
    const wchar_t text[] = {L'a', 0, L'b'};
    Bstr b(std::wstring_view(text, 3));
    EXPECT_EQ(3u, b.length());
    EXPECT_EQ(std::wstring(text, 3), b.str());
}

TEST(Bstr, EmptyViewGivesEmptyNonNullBstr) {
    Bstr b(std::wstring_view{});
    EXPECT_NE(nullptr, b.get());
    EXPECT_EQ(0u, b.length());
}

TEST(Bstr, CopyIsByteExactIncludingOddByteLength) {
    BSTR odd = SysAllocStringByteLen("abc", 3);
    Bstr original = Bstr::Attach(odd);
    Bstr copy = Bstr::Copy(original.get());
    ASSERT_NE(original.get(), copy.get());
    EXPECT_EQ(3u, SysStringByteLen(copy.get()));
    EXPECT_EQ(0, memcmp(original.get(), copy.get(), 3));
}

TEST(Bstr, CopyOfNullStaysNull) {
    EXPECT_EQ(nullptr, Bstr::Copy(nullptr).get());
}

TEST(Bstr, ReleaseHandsOwnershipToCaller) {
    Bstr b(L"x");
    BSTR raw = b.release();
    EXPECT_EQ(nullptr, b.get());
    EXPECT_EQ(1u, SysStringLen(raw));
    SysFreeString(raw);  // the caller owns a released BSTR
}

TEST(Bstr, PutFreesOldValueAndReceivesNewOne) {
    Bstr b(L"old");
    BSTR* slot = b.put();
    EXPECT_EQ(nullptr, *slot);
    *slot = SysAllocString(L"new");
    EXPECT_EQ(L"new", b.str());
}

TEST(Bstr, MoveTransfersOwnership) {
    Bstr a(L"moved");
    BSTR raw = a.get();
    Bstr b(std::move(a));
    EXPECT_EQ(nullptr, a.get());
    EXPECT_EQ(raw, b.get());
}
