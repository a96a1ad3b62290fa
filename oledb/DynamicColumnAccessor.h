// Everything the binding of one rowset produces: the provider's column information (with
// long columns re-typed as storage objects), one accessor over all columns, and the row
// buffer holding the current row. Per column the buffer holds the value, then, aligned to
// the length type, the length in bytes and the DBSTATUS.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <vector>

#include "common/CoTaskMem.h"
#include "common/ComPtr.h"
#include "common/OleDbHandles.h"

namespace zel {

class DynamicColumnAccessor {
public:
    // Values longer than this many bytes are not copied into the row buffer: they are bound
    // as storage objects (DBTYPE_IUNKNOWN) and read on demand.
    static constexpr DBLENGTH kBlobThreshold = 8000;

    DynamicColumnAccessor() = default;
    DynamicColumnAccessor(const DynamicColumnAccessor&) = delete;
    DynamicColumnAccessor& operator=(const DynamicColumnAccessor&) = delete;
    ~DynamicColumnAccessor() { Release(); }

    // Binds every column of `rowset` (the bookmark column included when the provider reports
    // one). Returns the first failing HRESULT; on failure nothing stays bound.
    HRESULT Bind(IRowset* rowset);
    // Frees what the row buffer owns, the accessor, the column information and the buffer.
    void Release() noexcept;
    // Releases the values the current row holds by reference (storage objects, BSTRs,
    // VARIANTs) and clears them, so the buffer can take the next row.
    void ReleaseRowValues() noexcept;

    bool IsBound() const noexcept { return static_cast<bool>(m_accessor); }
    HACCESSOR Handle() const noexcept { return m_accessor.get(); }
    BYTE* Buffer() noexcept { return m_buffer.data(); }

    // Entries of the column information, the bookmark column included.
    DBORDINAL ColumnCount() const noexcept { return m_count; }
    const DBCOLUMNINFO& Column(DBORDINAL index) const noexcept { return m_info.get()[index]; }
    // The type the provider reported for the column, before a long column was re-typed.
    DBTYPE DeclaredType(DBORDINAL index) const noexcept { return m_layout[index].declared; }
    bool HasBookmark() const noexcept;

    BYTE* Value(DBORDINAL index) noexcept { return m_buffer.data() + m_layout[index].value; }
    DBLENGTH Length(DBORDINAL index) const noexcept;
    // Bytes reserved for the value in the row buffer.
    DBLENGTH BoundSize(DBORDINAL index) const noexcept { return m_layout[index].size; }
    DBSTATUS Status(DBORDINAL index) const noexcept;

private:
    struct Layout {
        DBBYTEOFFSET value;
        DBBYTEOFFSET length;
        DBBYTEOFFSET status;
        DBLENGTH size;
        DBTYPE declared;
    };

    DBORDINAL m_count = 0;
    CoTaskMem<DBCOLUMNINFO> m_info;
    CoTaskMem<OLECHAR> m_names;
    std::vector<Layout> m_layout;
    std::vector<BYTE> m_buffer;
    Accessor m_accessor;
};

}  // namespace zel
