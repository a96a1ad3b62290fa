// Owners for the memory OLE DB methods hand to their callers, all from the COM task allocator:
// zeroed arrays (with the size checked for overflow), string copies, and arrays whose elements
// own memory of their own (property sets, property info sets, column descriptions).
//
// Out-arrays are built in place: allocate the array zeroed, fill it element by element, and
// release() it to the caller at the end. An element's count is set only after the array it
// counts exists, so a failure half-way frees exactly what was made.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstddef>
#include <string_view>
#include <utility>

#include "common/CoTaskMem.h"

namespace zel {

// `count` zeroed elements of T from the COM task allocator; a null pointer for a count of 0.
// Throws std::bad_alloc when memory runs out or the size in bytes overflows.
void* AllocateZeroedBytes(size_t count, size_t size);
template <typename T>
T* AllocateZeroed(size_t count) {
    return static_cast<T*>(AllocateZeroedBytes(count, sizeof(T)));
}

// A NUL-terminated copy of `text` from the COM task allocator. Throws std::bad_alloc.
CoTaskMem<OLECHAR> CopyToCoTaskMem(std::wstring_view text);

// Free what one element owns (not the element itself); a zeroed element owns nothing.
void ClearPropertySet(DBPROPSET& set) noexcept;          // each VARIANT, then rgProperties
void ClearPropertyInfoSet(DBPROPINFOSET& set) noexcept;  // each vValues, then rgPropertyInfos
void ClearColumnDesc(DBCOLUMNDESC& desc) noexcept;       // its property sets (names live elsewhere)

// A counted array from the COM task allocator whose elements own memory: the owner clears each
// element with `Clear`, then frees the array.
template <typename T, void (*Clear)(T&) noexcept>
class CoTaskMemArray {
public:
    CoTaskMemArray() noexcept = default;
    // `count` zeroed elements. Throws std::bad_alloc.
    explicit CoTaskMemArray(size_t count) : m_items(AllocateZeroed<T>(count)), m_count(count) {}
    // Takes ownership of an array someone handed out.
    CoTaskMemArray(T* items, size_t count) noexcept : m_items(items), m_count(items ? count : 0) {}
    CoTaskMemArray(const CoTaskMemArray&) = delete;
    CoTaskMemArray& operator=(const CoTaskMemArray&) = delete;
    CoTaskMemArray(CoTaskMemArray&& other) noexcept
        : m_items(std::exchange(other.m_items, nullptr)), m_count(std::exchange(other.m_count, 0)) {}
    CoTaskMemArray& operator=(CoTaskMemArray&& other) noexcept {
        if (this != &other) {
            reset();
            m_items = std::exchange(other.m_items, nullptr);
            m_count = std::exchange(other.m_count, 0);
        }
        return *this;
    }
    ~CoTaskMemArray() { reset(); }

    T* get() const noexcept { return m_items; }
    size_t size() const noexcept { return m_count; }
    T& operator[](size_t i) const noexcept { return m_items[i]; }

    void reset() noexcept {
        for (size_t i = 0; m_items && i < m_count; ++i) Clear(m_items[i]);
        CoTaskMemFree(std::exchange(m_items, nullptr));
        m_count = 0;
    }
    // Hands the array to the caller (who frees it as OLE DB says); the owner is empty after.
    [[nodiscard]] T* release() noexcept {
        m_count = 0;
        return std::exchange(m_items, nullptr);
    }

private:
    T* m_items = nullptr;
    size_t m_count = 0;
};

using PropertySets = CoTaskMemArray<DBPROPSET, &ClearPropertySet>;
using PropertyInfoSets = CoTaskMemArray<DBPROPINFOSET, &ClearPropertyInfoSet>;
using ColumnDescs = CoTaskMemArray<DBCOLUMNDESC, &ClearColumnDesc>;

}  // namespace zel
