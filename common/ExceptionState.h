// A thread's C++ exception machinery, readied before it is needed.
//
// With the mingw-w64 runtime, a module's first throw, and a thread's first throw in it,
// allocate: the per-thread exception globals live in emulated thread-local storage created with
// malloc (abort() when that fails), and the unwinder and winpthreads set up their process-wide
// locks with calloc on first use (an access violation when that fails). A thread whose first
// exception is the one reporting an exhausted address space, such as a query-result document
// that outgrew the 32-bit process, would end the process instead of returning E_OUTOFMEMORY.
// Throwing and catching once per thread while memory is plentiful makes later throws on that
// thread independent of free memory.
#pragma once

namespace zel {

// Throws and catches one exception on this thread the first time it is called there; later
// calls cost a thread-local read. Inline, so that each module (the server, the provider, a
// host) readies its own runtime.
inline void ReserveThreadExceptionState() noexcept {
    static thread_local bool ready = false;
    if (ready) return;
    ready = true;
    try {
        throw 0;
    } catch (int) {
        // Nothing to do: the throw itself did the set-up.
    }
}

}  // namespace zel
