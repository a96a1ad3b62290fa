#include "common/OleDbMemory.h"

#include <oleauto.h>

#include <cstring>
#include <limits>
#include <new>

namespace zel {

void* AllocateZeroedBytes(size_t count, size_t size) {
    if (count == 0) return nullptr;
    if (size != 0 && count > std::numeric_limits<size_t>::max() / size) throw std::bad_alloc();
    void* block = CoTaskMemAlloc(count * size);
    if (!block) throw std::bad_alloc();
    memset(block, 0, count * size);
    return block;
}

CoTaskMem<OLECHAR> CopyToCoTaskMem(std::wstring_view text) {
    CoTaskMem<OLECHAR> copy(AllocateZeroed<OLECHAR>(text.size() + 1));
    if (!text.empty()) memcpy(copy.get(), text.data(), text.size() * sizeof(OLECHAR));
    return copy;
}

void ClearPropertySet(DBPROPSET& set) noexcept {
    for (ULONG p = 0; set.rgProperties && p < set.cProperties; ++p) VariantClear(&set.rgProperties[p].vValue);
    CoTaskMemFree(set.rgProperties);
    set.rgProperties = nullptr;
    set.cProperties = 0;
}

void ClearPropertyInfoSet(DBPROPINFOSET& set) noexcept {
    for (ULONG p = 0; set.rgPropertyInfos && p < set.cPropertyInfos; ++p)
        VariantClear(&set.rgPropertyInfos[p].vValues);
    CoTaskMemFree(set.rgPropertyInfos);
    set.rgPropertyInfos = nullptr;
    set.cPropertyInfos = 0;
}

void ClearColumnDesc(DBCOLUMNDESC& desc) noexcept {
    for (ULONG s = 0; desc.rgPropertySets && s < desc.cPropertySets; ++s) ClearPropertySet(desc.rgPropertySets[s]);
    CoTaskMemFree(desc.rgPropertySets);
    desc.rgPropertySets = nullptr;
    desc.cPropertySets = 0;
}

}  // namespace zel
