// Owner of the column descriptions a provider hands out from GetTableDefinition: the array,
// every element's property sets (values cleared), and the string buffer the names point
// into, all from the COM task allocator.
#pragma once

#include <windows.h>
#include <oledb.h>

namespace zel {

class ProviderColumnDescs {
public:
    ProviderColumnDescs() noexcept = default;
    ProviderColumnDescs(const ProviderColumnDescs&) = delete;
    ProviderColumnDescs& operator=(const ProviderColumnDescs&) = delete;
    ~ProviderColumnDescs() { reset(); }

    DBORDINAL count() const noexcept { return m_count; }
    DBCOLUMNDESC* get() const noexcept { return m_columns; }
    const DBCOLUMNDESC& operator[](DBORDINAL i) const noexcept { return m_columns[i]; }

    // Out-parameters for GetTableDefinition; each frees what was held first.
    DBORDINAL* put_count() noexcept;
    DBCOLUMNDESC** put() noexcept;
    OLECHAR** put_strings() noexcept;

    void reset() noexcept;

private:
    DBORDINAL m_count = 0;
    DBCOLUMNDESC* m_columns = nullptr;
    OLECHAR* m_strings = nullptr;
};

}  // namespace zel
