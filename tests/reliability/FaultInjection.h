// Deterministic faults for the in-process fault simulation: the Nth allocation of SQLite, of
// the COM task allocator or of operator new fails, or the Nth read, write, sync or lock of a
// database file, or every write from the Nth on reports a full disk. Only the kind armed
// counts its calls, and only while armed.
#pragma once

namespace zel::test::faults {

enum class Kind { SqliteMemory, TaskMemory, Heap, Read, Write, Sync, Lock, DiskFull };

// Installs the faulting SQLite allocator, the SQLite file-system shim (the process's default
// from then on, without memory-mapped reads, so that every read is a call) and the task
// allocator's spy. Once per process, on a thread with COM initialised, before SQLite is used.
// Returns false when one of them could not be installed.
bool Install();

// From now on the `nth` call (counting from 1) of `kind` fails; with `persistent`, every call
// after it too.
void Arm(Kind kind, unsigned nth, bool persistent) noexcept;
// Counting stops; nothing fails.
void Disarm() noexcept;
// Calls of the armed kind since Arm.
unsigned Seen() noexcept;
// Whether a call failed since Arm.
bool Fired() noexcept;

const char* Name(Kind kind) noexcept;

// For the program's operator new: counts one heap allocation; true when it is to fail.
bool FailHeapAllocation() noexcept;
// The code address that asked for the last heap allocation made to fail (for addr2line).
void* LastHeapFaultCaller() noexcept;

}  // namespace zel::test::faults
