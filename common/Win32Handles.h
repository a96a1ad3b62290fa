// Owners of Win32 handles: kernel objects (CloseHandle) and registry keys (RegCloseKey).
#pragma once

#include <windows.h>

#include "common/UniqueResource.h"

namespace zel {

inline void CloseKernelHandle(HANDLE handle) noexcept { CloseHandle(handle); }
inline void CloseRegistryKey(HKEY key) noexcept { RegCloseKey(key); }

// A kernel object handle (event, thread, process, snapshot, file); a null handle is empty.
using UniqueHandle = UniqueResource<HANDLE, &CloseKernelHandle>;

// An open registry key; a null key is empty.
using UniqueRegKey = UniqueResource<HKEY, &CloseRegistryKey>;

// Owns what CreateFile and CreateToolhelp32Snapshot return: INVALID_HANDLE_VALUE, their failure
// value, becomes the empty owner.
inline UniqueHandle AdoptFileHandle(HANDLE handle) noexcept {
    return UniqueHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

}  // namespace zel
