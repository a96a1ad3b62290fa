// The owners of OLE DB out-memory: zeroed task-allocator arrays with the size checked, string
// copies, and arrays whose elements own memory (property sets) freed however far they were built.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <new>

#include "common/OleDbMemory.h"
#include "common/Variant.h"

namespace zel {
namespace {

TEST(OleDbMemoryTest, ZeroCountGivesNoArray) { EXPECT_EQ(nullptr, AllocateZeroed<DBPROP>(0)); }

TEST(OleDbMemoryTest, ArraysComeZeroed) {
    CoTaskMem<DBPROPSET> sets(AllocateZeroed<DBPROPSET>(3));
    ASSERT_TRUE(sets);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(nullptr, sets[i].rgProperties);
        EXPECT_EQ(0u, sets[i].cProperties);
        EXPECT_EQ(GUID_NULL, sets[i].guidPropertySet);
    }
}

TEST(OleDbMemoryTest, ASizeThatOverflowsThrowsBadAllocWithoutAllocating) {
    const size_t tooMany = std::numeric_limits<size_t>::max() / sizeof(DBPROP) + 1;
    EXPECT_THROW(AllocateZeroed<DBPROP>(tooMany), std::bad_alloc);
}

TEST(OleDbMemoryTest, StringCopyIsTerminated) {
    CoTaskMem<OLECHAR> copy = CopyToCoTaskMem(std::wstring_view(L"abcdef", 3));
    ASSERT_TRUE(copy);
    EXPECT_STREQ(L"abc", copy.get());
    CoTaskMem<OLECHAR> empty = CopyToCoTaskMem(L"");
    ASSERT_TRUE(empty);
    EXPECT_EQ(L'\0', empty[0]);
}

TEST(OleDbMemoryTest, PropertySetsFreeAPartlyBuiltArrayAndReleaseHandsItOver) {
    PropertySets sets(2);
    ASSERT_EQ(2u, sets.size());
    sets[0].rgProperties = AllocateZeroed<DBPROP>(2);
    sets[0].cProperties = 2;
    Variant::FromI4(7).detach(&sets[0].rgProperties[0].vValue);
    Variant(std::wstring_view(L"text")).detach(&sets[0].rgProperties[1].vValue);
    // sets[1] stays as allocated: zeroed, owning nothing.

    DBPROPSET* handed = sets.release();
    EXPECT_EQ(0u, sets.size());
    EXPECT_EQ(nullptr, sets.get());
    ASSERT_NE(nullptr, handed);
    EXPECT_EQ(7, V_I4(&handed[0].rgProperties[0].vValue));

    PropertySets back(handed, 2);  // taken back and freed by the owner, VARIANTs cleared
    back.reset();
    EXPECT_EQ(nullptr, back.get());
}

TEST(OleDbMemoryTest, ClearPropertySetLeavesAnEmptySet) {
    DBPROPSET set{};
    set.rgProperties = AllocateZeroed<DBPROP>(1);
    set.cProperties = 1;
    Variant(std::wstring_view(L"x")).detach(&set.rgProperties[0].vValue);
    ClearPropertySet(set);
    EXPECT_EQ(nullptr, set.rgProperties);
    EXPECT_EQ(0u, set.cProperties);
}

}  // namespace
}  // namespace zel
