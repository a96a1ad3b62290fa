// Out-of-memory conditions made on purpose in a 32-bit test process: the address space is
// reserved until nothing is left, then a chosen headroom is given back, so that the code under
// test meets failing allocations where it would meet them with a large result.
#pragma once

#include <windows.h>

#include <cstddef>
#include <vector>

namespace zel::test {

// Reserves every free region of the address space of 512 KiB or more (VirtualAlloc
// MEM_RESERVE, largest first) while it lives; the destructor releases them. At least
// `headroomBytes` are released again at once, smallest regions first, so that allocations
// still succeed until they are used up.
class AddressSpaceReservation {
public:
    explicit AddressSpaceReservation(size_t headroomBytes = 0);
    ~AddressSpaceReservation();
    AddressSpaceReservation(const AddressSpaceReservation&) = delete;
    AddressSpaceReservation& operator=(const AddressSpaceReservation&) = delete;

private:
    std::vector<void*> m_regions;
};

// Allocates from the C runtime's heap (malloc) in ever smaller blocks down to 64 bytes, until
// each size fails, chaining the blocks through themselves so that filling the heap needs no
// memory of its own. The destructor frees them. Smaller holes are left: with none at all,
// Wine's own code on the thread fails hard ("Unhandled stack overflow").
class HeapFill {
public:
    HeapFill();
    ~HeapFill();
    HeapFill(const HeapFill&) = delete;
    HeapFill& operator=(const HeapFill&) = delete;

private:
    void* m_head = nullptr;
};

// For a child process that runs out of memory on purpose: an unhandled exception ends the
// process at once, with the exception code as its exit code, instead of starting Wine's
// debugger, which can wait for ever under a test runner.
void EndProcessOnCrash() noexcept;

}  // namespace zel::test
