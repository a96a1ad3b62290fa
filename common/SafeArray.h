// Owners for SAFEARRAYs and CoTaskMem blocks.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include "common/ComError.h"
#include "common/UniqueResource.h"

namespace zel {

inline void DestroySafeArray(SAFEARRAY* array) noexcept { SafeArrayDestroy(array); }
using SafeArray = UniqueResource<SAFEARRAY*, &DestroySafeArray>;

// Keeps a SAFEARRAY's data locked (SafeArrayAccessData) for the owner's lifetime.
class SafeArrayData {
public:
    // Throws ComError when the array cannot be locked.
    explicit SafeArrayData(SAFEARRAY* array) : m_array(array) {
        ZEL_THROW_IF_FAILED(SafeArrayAccessData(array, &m_data));
    }
    SafeArrayData(const SafeArrayData&) = delete;
    SafeArrayData& operator=(const SafeArrayData&) = delete;
    ~SafeArrayData() { SafeArrayUnaccessData(m_array); }

    template <typename T>
    T* as() const noexcept {
        return static_cast<T*>(m_data);
    }

private:
    SAFEARRAY* m_array;
    void* m_data = nullptr;
};

}  // namespace zel
