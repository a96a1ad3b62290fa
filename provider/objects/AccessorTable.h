// The accessors of one rowset: creation with validation of every binding (DBBINDSTATUS per
// binding), reference counts and handles.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace zel::provider {

struct Accessor {
    DBACCESSORFLAGS flags = 0;
    std::vector<DBBINDING> bindings;               // pObject points into `objects`
    std::vector<std::unique_ptr<DBOBJECT>> objects;
    DBLENGTH rowSize = 0;
    ULONG refs = 1;
};

class AccessorTable {
public:
    // The type of the column at `ordinal`, or nothing when there is no such column.
    using ColumnTypeOf = std::function<std::optional<DBTYPE>(DBORDINAL)>;

    // IAccessor::CreateAccessor for a rowset. Writes `statuses` (when given) and fails with
    // DB_E_ERRORSOCCURRED if any binding is invalid, DB_E_BADACCESSORFLAGS,
    // DB_E_BYREFACCESSORNOTSUPPORTED, E_INVALIDARG (error object published).
    HACCESSOR Create(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING* bindings, DBLENGTH rowSize,
                     DBBINDSTATUS* statuses, const ColumnTypeOf& columnType);
    // DB_E_BADACCESSORHANDLE for unknown handles.
    ULONG AddRef(HACCESSOR handle);
    ULONG Release(HACCESSOR handle);
    std::shared_ptr<const Accessor> Get(HACCESSOR handle) const;
    // IAccessor::GetBindings: copies in CoTaskMem memory (pObject copies included).
    void GetBindings(HACCESSOR handle, DBACCESSORFLAGS* flags, DBCOUNTITEM* count, DBBINDING** bindings) const;

private:
    mutable std::mutex m_lock;
    std::map<HACCESSOR, std::shared_ptr<Accessor>> m_accessors;
    ULONG_PTR m_next = 1;
};

}  // namespace zel::provider
