#include "tests/support/MemoryExhaustion.h"

#include <cstdlib>

namespace zel::test {
namespace {

// Holes smaller than this are left to Wine, whose own code (exception dispatch, thread stacks)
// fails hard without any; the process heap grows by at least 1 MiB at a time, so it cannot use
// them either.
constexpr size_t kSmallestRegion = 512 * 1024;
constexpr size_t kSmallestBlock = 64;

LONG WINAPI EndProcessWithExceptionCode(EXCEPTION_POINTERS* exception) {
    TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

AddressSpaceReservation::AddressSpaceReservation(size_t headroomBytes) {
    // The list's own memory is taken before the address space runs out.
    m_regions.reserve(65536);
    for (size_t size = size_t{1} << 30; size >= kSmallestRegion; size /= 2) {
        while (m_regions.size() < m_regions.capacity()) {
            void* region = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
            if (!region) break;
            m_regions.push_back(region);
        }
    }
    // The headroom is given back from the small end of the list, where the regions are smallest.
    size_t given = 0;
    while (given < headroomBytes && !m_regions.empty()) {
        void* region = m_regions.back();
        MEMORY_BASIC_INFORMATION info{};
        VirtualQuery(region, &info, sizeof info);
        VirtualFree(region, 0, MEM_RELEASE);
        m_regions.pop_back();
        given += info.RegionSize;
    }
}

AddressSpaceReservation::~AddressSpaceReservation() {
    for (void* region : m_regions) VirtualFree(region, 0, MEM_RELEASE);
}

HeapFill::HeapFill() {
    for (size_t size = 64 * 1024; size >= kSmallestBlock; size /= 4) {
        for (;;) {
            void* block = std::malloc(size);
            if (!block) break;
            *static_cast<void**>(block) = m_head;
            m_head = block;
        }
    }
}

HeapFill::~HeapFill() {
    while (m_head) {
        void* next = *static_cast<void**>(m_head);
        std::free(m_head);
        m_head = next;
    }
}

void EndProcessOnCrash() noexcept {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetUnhandledExceptionFilter(EndProcessWithExceptionCode);
}

}  // namespace zel::test
