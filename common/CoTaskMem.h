// Owner of a block from the COM task allocator (CoTaskMemAlloc / CoTaskMemFree).
#pragma once

#include <windows.h>
#include <objbase.h>

#include "common/UniqueResource.h"

namespace zel {

inline void FreeCoTaskMem(void* p) noexcept { CoTaskMemFree(p); }

template <typename T>
class CoTaskMem : public UniqueResource<T*, &FreeCoTaskMem> {
public:
    using UniqueResource<T*, &FreeCoTaskMem>::UniqueResource;
    T& operator[](size_t i) const noexcept { return this->get()[i]; }
    T* operator->() const noexcept { return this->get(); }
};

}  // namespace zel
