#include "common/SafeArray.h"

#include <gtest/gtest.h>

#include "common/CoTaskMem.h"

TEST(SafeArray, OwnsAndDestroysArray) {
    zel::SafeArray array(SafeArrayCreateVector(VT_UI1, 0, 4));
    ASSERT_TRUE(array);
    {
        zel::SafeArrayData data(array.get());
        data.as<BYTE>()[3] = 9;
    }
    BYTE value = 0;
    LONG index = 3;
    EXPECT_EQ(S_OK, SafeArrayGetElement(array.get(), &index, &value));
    EXPECT_EQ(9, value);
}

TEST(SafeArray, DataLockHeldForOwnerLifetime) {
    zel::SafeArray array(SafeArrayCreateVector(VT_UI1, 0, 1));
    {
        zel::SafeArrayData data(array.get());
        // A locked array cannot be destroyed.
        EXPECT_EQ(DISP_E_ARRAYISLOCKED, SafeArrayDestroy(array.get()));
    }
}

TEST(SafeArray, ReleaseHandsArrayToCaller) {
    zel::SafeArray array(SafeArrayCreateVector(VT_BSTR, 0, 2));
    SAFEARRAY* raw = array.release();
    EXPECT_FALSE(array);
    EXPECT_EQ(S_OK, SafeArrayDestroy(raw));  // released arrays are the caller's to destroy
}

TEST(CoTaskMem, FreesBlockAndIndexes) {
    zel::CoTaskMem<int> block(static_cast<int*>(CoTaskMemAlloc(3 * sizeof(int))));
    ASSERT_TRUE(block);
    block[2] = 5;
    EXPECT_EQ(5, block.get()[2]);
    int** slot = block.put();
    EXPECT_EQ(nullptr, *slot);
}
