#include "oledb/ProviderColumnDescs.h"

#include "common/OleDbMemory.h"

namespace zel {

DBORDINAL* ProviderColumnDescs::put_count() noexcept {
    reset();
    return &m_count;
}

DBCOLUMNDESC** ProviderColumnDescs::put() noexcept { return &m_columns; }

OLECHAR** ProviderColumnDescs::put_strings() noexcept { return &m_strings; }

void ProviderColumnDescs::reset() noexcept {
    for (DBORDINAL i = 0; m_columns && i < m_count; ++i) ClearColumnDesc(m_columns[i]);
    CoTaskMemFree(m_columns);
    CoTaskMemFree(m_strings);
    m_columns = nullptr;
    m_strings = nullptr;
    m_count = 0;
}

}  // namespace zel
