#include "common/Variant.h"

#include <gtest/gtest.h>

using zel::Variant;

TEST(Variant, StartsEmpty) {
    Variant v;
    EXPECT_EQ(VT_EMPTY, v.vt());
}

TEST(Variant, HoldsStringAndCopiesDeeply) {
    Variant a(std::wstring_view(L"Shaft"));
    ASSERT_EQ(VT_BSTR, a.vt());
    Variant b = a;
    ASSERT_EQ(VT_BSTR, b.vt());
    EXPECT_NE(V_BSTR(a.get()), V_BSTR(b.get()));
    EXPECT_STREQ(L"Shaft", V_BSTR(b.get()));
}

// Wine's VariantCopy makes a null BSTR an empty, non-null one, and so does copying a Variant; a
// by-reference VARIANT is copied as its pointer, so the null behind it stays null. Wine's
// IDispatch::Invoke stub copies every argument this way before the server's Invoke runs, which
// is why a missing string crosses the process boundary late-bound only by reference.
TEST(Variant, CopyOfANullStringIsEmptyWhileACopiedReferenceStillReachesTheNull) {
    Variant null;
    V_VT(null.get()) = VT_BSTR;  // a null BSTR
    Variant copy = null;
    ASSERT_EQ(VT_BSTR, copy.vt());
    ASSERT_NE(nullptr, V_BSTR(copy.get()));
    EXPECT_EQ(0u, SysStringLen(V_BSTR(copy.get())));

    BSTR text = nullptr;
    Variant reference;
    V_VT(reference.get()) = VT_BYREF | VT_BSTR;
    V_BSTRREF(reference.get()) = &text;
    Variant referenceCopy = reference;
    ASSERT_EQ(VT_BYREF | VT_BSTR, referenceCopy.vt());
    EXPECT_EQ(&text, V_BSTRREF(referenceCopy.get()));
    EXPECT_EQ(nullptr, *V_BSTRREF(referenceCopy.get()));
}

TEST(Variant, TypedFactories) {
    EXPECT_EQ(VT_I4, Variant::FromI4(-42).vt());
    EXPECT_EQ(-42, V_I4(Variant::FromI4(-42).get()));
    EXPECT_EQ(VT_I2, Variant::FromI2(7).vt());
    Variant t = Variant::FromBool(true);
    EXPECT_EQ(VT_BOOL, t.vt());
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(t.get()));
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(Variant::FromBool(false).get()));
}

TEST(Variant, PutClearsPreviousValue) {
    Variant v(std::wstring_view(L"x"));
    VARIANT* slot = v.put();
    EXPECT_EQ(VT_EMPTY, V_VT(slot));
}

TEST(Variant, DetachMovesOwnershipOut) {
    Variant v(std::wstring_view(L"out"));
    VARIANT target;
    VariantInit(&target);
    v.detach(&target);
    EXPECT_EQ(VT_EMPTY, v.vt());
    EXPECT_EQ(VT_BSTR, V_VT(&target));
    VariantClear(&target);  // the detached value is ours to clear
}

TEST(Variant, ChangeTypeConvertsTextToNumber) {
    Variant v(std::wstring_view(L"12"));
    EXPECT_EQ(S_OK, v.change_type(VT_I4));
    EXPECT_EQ(12, V_I4(v.get()));
    Variant bad(std::wstring_view(L"abc"));
    EXPECT_EQ(DISP_E_TYPEMISMATCH, bad.change_type(VT_I4));
}

TEST(Variant, MoveAssignmentClearsTarget) {
    Variant a(std::wstring_view(L"a"));
    Variant b = Variant::FromI4(1);
    b = std::move(a);
    EXPECT_EQ(VT_BSTR, b.vt());
    EXPECT_EQ(VT_EMPTY, a.vt());
}
