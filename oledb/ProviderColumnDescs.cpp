#include "oledb/ProviderColumnDescs.h"

#include <oleauto.h>

namespace zel {

DBORDINAL* ProviderColumnDescs::put_count() noexcept {
    reset();
    return &m_count;
}

DBCOLUMNDESC** ProviderColumnDescs::put() noexcept { return &m_columns; }

OLECHAR** ProviderColumnDescs::put_strings() noexcept { return &m_strings; }

void ProviderColumnDescs::reset() noexcept {
    for (DBORDINAL i = 0; m_columns && i < m_count; ++i) {
        DBCOLUMNDESC& d = m_columns[i];
        for (ULONG s = 0; d.rgPropertySets && s < d.cPropertySets; ++s) {
            DBPROPSET& set = d.rgPropertySets[s];
            for (ULONG p = 0; set.rgProperties && p < set.cProperties; ++p) VariantClear(&set.rgProperties[p].vValue);
            CoTaskMemFree(set.rgProperties);
        }
        CoTaskMemFree(d.rgPropertySets);
    }
    CoTaskMemFree(m_columns);
    CoTaskMemFree(m_strings);
    m_columns = nullptr;
    m_strings = nullptr;
    m_count = 0;
}

}  // namespace zel
