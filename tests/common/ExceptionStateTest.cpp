// A thread's first C++ exception needs memory (the runtime's per-thread state, one-time locks)
// unless ReserveThreadExceptionState made the thread throw once before ("the claim"); these
// tests throw on fresh threads after the address space and the heap were used up, as a
// query-result document too large for a 32-bit process does.
#include "common/ExceptionState.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>

#include "common/ComError.h"
#include "tests/support/MemoryExhaustion.h"

namespace {

using zel::test::AddressSpaceReservation;
using zel::test::HeapFill;

#if !defined(_WIN64)  // exhausting the address space is possible only in a 32-bit process

struct ThrowResult {
    bool claimFirst = false;
    bool memoryExhausted = false;
    HRESULT caught = S_OK;
};

// Throws a ComError after exhausting memory, on the calling (fresh) thread, and records what
// was caught. The reservation and the heap fill are released before returning.
DWORD WINAPI ThrowWithMemoryExhausted(void* parameter) {
    auto* result = static_cast<ThrowResult*>(parameter);
    if (result->claimFirst) zel::ReserveThreadExceptionState();
    AddressSpaceReservation reservation;
    HeapFill fill;
    // Nothing of the smallest size can be allocated any more.
    void* probe = std::malloc(64);
    result->memoryExhausted = probe == nullptr;
    std::free(probe);
    try {
        zel::ThrowHr(E_OUTOFMEMORY);
    } catch (const zel::ComError& e) {
        result->caught = e.code();
    }
    return 0;
}

void RunOnFreshThread(ThrowResult& result) {
    HANDLE thread = CreateThread(nullptr, 0, ThrowWithMemoryExhausted, &result, 0, nullptr);
    ASSERT_NE(nullptr, thread);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

// Each case runs in a child process of its own (a death test), so that the memory state it
// meets does not depend on what other tests left behind; the child exits with 0 when the throw
// on a fresh thread was caught with memory exhausted, 1 when it survived otherwise.
int ThrowOnFreshThreadExitCode(bool claimFirst) {
    zel::test::EndProcessOnCrash();
    ThrowResult result;
    result.claimFirst = claimFirst;
    RunOnFreshThread(result);
    return result.memoryExhausted && result.caught == E_OUTOFMEMORY ? 0 : 1;
}

TEST(ExceptionStateDeathTest, ThrowOnAThreadThatClaimedItsStateIsCaughtWithMemoryExhausted) {
    EXPECT_EXIT(std::exit(ThrowOnFreshThreadExitCode(true)), testing::ExitedWithCode(0), "");
}

// What the claim prevents: without it, a thread's first throw that finds no memory for the
// thread's exception state ends the process (seen: abort with exit code 3, or an access
// violation) instead of reaching the catch.
TEST(ExceptionStateDeathTest, FirstThrowOnAThreadWithMemoryExhaustedEndsTheProcessWithoutTheClaim) {
    EXPECT_EXIT(std::exit(ThrowOnFreshThreadExitCode(false)), [](int status) { return status != 0 && status != 1; },
                "");
}

#endif

TEST(ExceptionStateTest, ClaimingTwiceKeepsThrowsWorking) {
    zel::ReserveThreadExceptionState();
    zel::ReserveThreadExceptionState();
    HRESULT caught = S_OK;
    try {
        zel::ThrowHr(E_FAIL);
    } catch (const zel::ComError& e) {
        caught = e.code();
    }
    EXPECT_EQ(E_FAIL, caught);
}

}  // namespace
