#include "common/ComError.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace {

HRESULT Boundary(void (*body)()) {
    try {
        body();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

HRESULT ReturnIfFailed(HRESULT inner, bool* reachedEnd) {
    ZEL_RETURN_IF_FAILED(inner);
    *reachedEnd = true;
    return S_OK;
}

}  // namespace

TEST(ComError, BoundaryReturnsCarriedHresult) {
    EXPECT_EQ(E_INVALIDARG, Boundary([] { zel::ThrowHr(E_INVALIDARG); }));
}

TEST(ComError, BoundaryMapsBadAllocToOutOfMemory) {
    EXPECT_EQ(E_OUTOFMEMORY, Boundary([] { throw std::bad_alloc(); }));
}

TEST(ComError, BoundaryMapsUnknownExceptionToUnexpected) {
    EXPECT_EQ(E_UNEXPECTED, Boundary([] { throw std::runtime_error("x"); }));
}

TEST(ComError, BoundaryPassesSuccess) {
    EXPECT_EQ(S_OK, Boundary([] {}));
}

TEST(ComError, ThrowIfFailedIgnoresSuccessCodes) {
    EXPECT_EQ(S_OK, Boundary([] { ZEL_THROW_IF_FAILED(S_FALSE); }));
    EXPECT_EQ(E_FAIL, Boundary([] { ZEL_THROW_IF_FAILED(E_FAIL); }));
}

TEST(ComError, ReturnIfFailedStopsOnlyOnFailure) {
    bool reached = false;
    EXPECT_EQ(E_ACCESSDENIED, ReturnIfFailed(E_ACCESSDENIED, &reached));
    EXPECT_FALSE(reached);
    EXPECT_EQ(S_OK, ReturnIfFailed(S_FALSE, &reached));
    EXPECT_TRUE(reached);
}
