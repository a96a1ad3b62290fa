#include "tests/reliability/FaultInjection.h"

#include <windows.h>
#include <objidl.h>

#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/RefusingMallocSpy.h"

namespace zel::test::faults {
namespace {

std::atomic<bool> g_armed{false};
std::atomic<Kind> g_kind{Kind::Heap};
std::atomic<unsigned> g_nth{0};
std::atomic<bool> g_persistent{false};
std::atomic<unsigned> g_seen{0};
std::atomic<bool> g_fired{false};

// Counts one call of `kind`; true when it is to fail.
bool ShouldFail(Kind kind) noexcept {
    if (!g_armed.load(std::memory_order_relaxed) || g_kind.load(std::memory_order_relaxed) != kind) return false;
    const unsigned seen = ++g_seen;
    const unsigned nth = g_nth.load();
    if (seen == nth || (g_persistent.load() && seen > nth)) {
        g_fired = true;
        return true;
    }
    return false;
}

// ---- SQLite's allocator ----

sqlite3_mem_methods g_sqliteMemory;

void* SqliteMalloc(int size) { return ShouldFail(Kind::SqliteMemory) ? nullptr : g_sqliteMemory.xMalloc(size); }
void* SqliteRealloc(void* p, int size) {
    return ShouldFail(Kind::SqliteMemory) ? nullptr : g_sqliteMemory.xRealloc(p, size);
}

bool InstallSqliteMemory() {
    if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &g_sqliteMemory) != SQLITE_OK) return false;
    sqlite3_mem_methods methods = g_sqliteMemory;
    methods.xMalloc = &SqliteMalloc;
    methods.xRealloc = &SqliteRealloc;
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) == SQLITE_OK;
}

// ---- SQLite's files ----

sqlite3_vfs* g_realVfs = nullptr;
sqlite3_vfs g_shimVfs;

struct ShimFile {
    sqlite3_file base;
    sqlite3_file* real;  // the real VFS's file, right behind this struct
};

sqlite3_file* Real(sqlite3_file* file) { return reinterpret_cast<ShimFile*>(file)->real; }

int ShimClose(sqlite3_file* f) { return Real(f)->pMethods->xClose(Real(f)); }
int ShimRead(sqlite3_file* f, void* buffer, int amount, sqlite3_int64 offset) {
    if (ShouldFail(Kind::Read)) return SQLITE_IOERR_READ;
    return Real(f)->pMethods->xRead(Real(f), buffer, amount, offset);
}
int ShimWrite(sqlite3_file* f, const void* buffer, int amount, sqlite3_int64 offset) {
    if (ShouldFail(Kind::Write)) return SQLITE_IOERR_WRITE;
    if (ShouldFail(Kind::DiskFull)) return SQLITE_FULL;
    return Real(f)->pMethods->xWrite(Real(f), buffer, amount, offset);
}
int ShimTruncate(sqlite3_file* f, sqlite3_int64 size) {
    if (ShouldFail(Kind::Write)) return SQLITE_IOERR_TRUNCATE;
    return Real(f)->pMethods->xTruncate(Real(f), size);
}
int ShimSync(sqlite3_file* f, int flags) {
    if (ShouldFail(Kind::Sync)) return SQLITE_IOERR_FSYNC;
    return Real(f)->pMethods->xSync(Real(f), flags);
}
int ShimFileSize(sqlite3_file* f, sqlite3_int64* size) { return Real(f)->pMethods->xFileSize(Real(f), size); }
int ShimLock(sqlite3_file* f, int level) {
    if (ShouldFail(Kind::Lock)) return SQLITE_IOERR_LOCK;
    return Real(f)->pMethods->xLock(Real(f), level);
}
int ShimUnlock(sqlite3_file* f, int level) { return Real(f)->pMethods->xUnlock(Real(f), level); }
int ShimCheckReservedLock(sqlite3_file* f, int* out) { return Real(f)->pMethods->xCheckReservedLock(Real(f), out); }
int ShimFileControl(sqlite3_file* f, int op, void* arg) { return Real(f)->pMethods->xFileControl(Real(f), op, arg); }
int ShimSectorSize(sqlite3_file* f) { return Real(f)->pMethods->xSectorSize(Real(f)); }
int ShimDeviceCharacteristics(sqlite3_file* f) { return Real(f)->pMethods->xDeviceCharacteristics(Real(f)); }
int ShimShmMap(sqlite3_file* f, int page, int size, int extend, void volatile** p) {
    return Real(f)->pMethods->xShmMap(Real(f), page, size, extend, p);
}
int ShimShmLock(sqlite3_file* f, int offset, int n, int flags) {
    return Real(f)->pMethods->xShmLock(Real(f), offset, n, flags);
}
void ShimShmBarrier(sqlite3_file* f) { Real(f)->pMethods->xShmBarrier(Real(f)); }
int ShimShmUnmap(sqlite3_file* f, int deleteFlag) { return Real(f)->pMethods->xShmUnmap(Real(f), deleteFlag); }

// Version 2: no xFetch, so SQLite maps nothing and every page is read through xRead.
const sqlite3_io_methods kShimMethods = {
    2,           &ShimClose,           &ShimRead,        &ShimWrite,
    &ShimTruncate, &ShimSync,          &ShimFileSize,    &ShimLock,
    &ShimUnlock, &ShimCheckReservedLock, &ShimFileControl, &ShimSectorSize,
    &ShimDeviceCharacteristics, &ShimShmMap, &ShimShmLock, &ShimShmBarrier,
    &ShimShmUnmap, nullptr, nullptr};

int ShimOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    auto* shim = reinterpret_cast<ShimFile*>(file);
    shim->real = reinterpret_cast<sqlite3_file*>(shim + 1);
    shim->base.pMethods = nullptr;
    const int rc = g_realVfs->xOpen(g_realVfs, name, shim->real, flags, outFlags);
    // SQLite closes a file only when its methods are set, so they are set only when the real
    // file has some.
    if (shim->real->pMethods) shim->base.pMethods = &kShimMethods;
    return rc;
}
int ShimDelete(sqlite3_vfs*, const char* name, int syncDir) { return g_realVfs->xDelete(g_realVfs, name, syncDir); }
int ShimAccess(sqlite3_vfs*, const char* name, int flags, int* out) {
    return g_realVfs->xAccess(g_realVfs, name, flags, out);
}
int ShimFullPathname(sqlite3_vfs*, const char* name, int size, char* out) {
    return g_realVfs->xFullPathname(g_realVfs, name, size, out);
}
void* ShimDlOpen(sqlite3_vfs*, const char* name) { return g_realVfs->xDlOpen(g_realVfs, name); }
void ShimDlError(sqlite3_vfs*, int size, char* out) { g_realVfs->xDlError(g_realVfs, size, out); }
void (*ShimDlSym(sqlite3_vfs*, void* handle, const char* symbol))(void) {
    return g_realVfs->xDlSym(g_realVfs, handle, symbol);
}
void ShimDlClose(sqlite3_vfs*, void* handle) { g_realVfs->xDlClose(g_realVfs, handle); }
int ShimRandomness(sqlite3_vfs*, int size, char* out) { return g_realVfs->xRandomness(g_realVfs, size, out); }
int ShimSleep(sqlite3_vfs*, int micro) { return g_realVfs->xSleep(g_realVfs, micro); }
int ShimCurrentTime(sqlite3_vfs*, double* out) { return g_realVfs->xCurrentTime(g_realVfs, out); }
int ShimGetLastError(sqlite3_vfs*, int size, char* out) { return g_realVfs->xGetLastError(g_realVfs, size, out); }
int ShimCurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* out) { return g_realVfs->xCurrentTimeInt64(g_realVfs, out); }

bool InstallVfs() {
    g_realVfs = sqlite3_vfs_find(nullptr);
    if (!g_realVfs || g_realVfs->iVersion < 2) return false;
    g_shimVfs = sqlite3_vfs{};
    g_shimVfs.iVersion = 2;
    g_shimVfs.szOsFile = static_cast<int>(sizeof(ShimFile)) + g_realVfs->szOsFile;
    g_shimVfs.mxPathname = g_realVfs->mxPathname;
    g_shimVfs.zName = "zel-faults";
    g_shimVfs.xOpen = &ShimOpen;
    g_shimVfs.xDelete = &ShimDelete;
    g_shimVfs.xAccess = &ShimAccess;
    g_shimVfs.xFullPathname = &ShimFullPathname;
    g_shimVfs.xDlOpen = &ShimDlOpen;
    g_shimVfs.xDlError = &ShimDlError;
    g_shimVfs.xDlSym = &ShimDlSym;
    g_shimVfs.xDlClose = &ShimDlClose;
    g_shimVfs.xRandomness = &ShimRandomness;
    g_shimVfs.xSleep = &ShimSleep;
    g_shimVfs.xCurrentTime = &ShimCurrentTime;
    g_shimVfs.xGetLastError = &ShimGetLastError;
    g_shimVfs.xCurrentTimeInt64 = &ShimCurrentTimeInt64;
    return sqlite3_vfs_register(&g_shimVfs, 1) == SQLITE_OK;
}

// ---- COM task memory ----

bool RefuseTaskMemory() { return ShouldFail(Kind::TaskMemory); }
zel::test::RefusingMallocSpy g_spy(&RefuseTaskMemory);

}  // namespace

bool FailHeapAllocation() noexcept { return ShouldFail(Kind::Heap); }

bool Install() {
    static const bool installed = InstallSqliteMemory() && InstallVfs() && SUCCEEDED(CoRegisterMallocSpy(&g_spy));
    return installed;
}

void Arm(Kind kind, unsigned nth, bool persistent) noexcept {
    g_armed = false;
    g_kind = kind;
    g_nth = nth;
    g_persistent = persistent;
    g_seen = 0;
    g_fired = false;
    g_armed = true;
}

void Disarm() noexcept { g_armed = false; }
unsigned Seen() noexcept { return g_seen.load(); }
bool Fired() noexcept { return g_fired.load(); }

const char* Name(Kind kind) noexcept {
    switch (kind) {
        case Kind::SqliteMemory: return "SQLite allocation";
        case Kind::TaskMemory: return "task-memory allocation";
        case Kind::Heap: return "operator new";
        case Kind::Read: return "file read";
        case Kind::Write: return "file write";
        case Kind::Sync: return "file sync";
        case Kind::Lock: return "file lock";
        case Kind::DiskFull: return "full disk";
    }
    return "?";
}

}  // namespace zel::test::faults

// ---- operator new: the program's heap allocations go through the fault point ----

namespace {

// Where the last failed heap allocation was asked for (the caller of operator new).
std::atomic<void*> g_heapFaultCaller{nullptr};

void* Allocate(std::size_t size, void* caller) noexcept {
    if (zel::test::faults::FailHeapAllocation()) {
        g_heapFaultCaller = caller;
        return nullptr;
    }
    return std::malloc(size ? size : 1);
}

void* AllocateOrThrow(std::size_t size, void* caller) {
    void* p = Allocate(size, caller);
    if (!p) throw std::bad_alloc();
    return p;
}

}  // namespace

void* zel::test::faults::LastHeapFaultCaller() noexcept { return g_heapFaultCaller.load(); }

void* operator new(std::size_t size) { return AllocateOrThrow(size, __builtin_return_address(0)); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size, __builtin_return_address(0)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
