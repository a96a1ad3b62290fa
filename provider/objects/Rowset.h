// ZelLite's rowset: one class for every row source (a statement's rows, a table opened with
// IOpenRowset, rows held in memory). Scrolls forwards and backwards over the rows it has read
// (RowCache), converts values itself (DataConversion) and offers IRowsetChange, as an inner
// object, when the rowset was asked for it.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <mutex>
#include <vector>

#include "common/ComObject.h"
#include "common/OleDbIids.h"
#include "provider/objects/AccessorTable.h"
#include "provider/properties/PropertyStore.h"
#include "provider/rows/RowCache.h"
#include "provider/rows/RowStore.h"

namespace zel::provider {

class Rowset final
    : public ComObject<Rowset, IRowset, IAccessor, IColumnsInfo, IRowsetInfo, IConvertType, ISupportErrorInfo> {
public:
    // `store` takes the rowset's changes; null for rows that cannot be changed (rows held in
    // memory, results of providers that do not write through rowsets).
    // `creator` is the command or session that made the rowset (IRowsetInfo::GetSpecification).
    // `openToken` (optional) is held for the rowset's lifetime, so that its creator can tell
    // whether rowsets are open.
    Rowset(std::shared_ptr<RowStore> store, std::unique_ptr<RowSource> source, PropertyStore properties,
           ComPtr<IUnknown> creator, std::shared_ptr<void> openToken = nullptr);
    ~Rowset() override;

    HRESULT QueryExtra(REFIID riid, void** found) noexcept;

    // IRowset. Row handles stay valid until released; rows stay readable after release and are
    // fetched again with the same handle value. GetNextRows returns DB_S_ENDOFROWSET when fewer
    // rows than asked for remain; a negative skip counts back from the fetch position.
    STDMETHODIMP AddRefRows(DBCOUNTITEM count, const HROW rows[], DBREFCOUNT refCounts[],
                            DBROWSTATUS statuses[]) override;
    STDMETHODIMP GetData(HROW row, HACCESSOR accessor, void* data) override;
    STDMETHODIMP GetNextRows(HCHAPTER chapter, DBROWOFFSET offset, DBROWCOUNT count, DBCOUNTITEM* obtained,
                             HROW** rows) override;
    STDMETHODIMP ReleaseRows(DBCOUNTITEM count, const HROW rows[], DBROWOPTIONS options[], DBREFCOUNT refCounts[],
                             DBROWSTATUS statuses[]) override;
    STDMETHODIMP RestartPosition(HCHAPTER chapter) override;

    // IAccessor
    STDMETHODIMP AddRefAccessor(HACCESSOR accessor, DBREFCOUNT* refCount) override;
    STDMETHODIMP CreateAccessor(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING bindings[],
                                DBLENGTH rowSize, HACCESSOR* accessor, DBBINDSTATUS statuses[]) override;
    STDMETHODIMP GetBindings(HACCESSOR accessor, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                             DBBINDING** bindings) override;
    STDMETHODIMP ReleaseAccessor(HACCESSOR accessor, DBREFCOUNT* refCount) override;

    // IColumnsInfo: the bookmark column (ordinal 0) comes first when bookmarks were asked for.
    STDMETHODIMP GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** names) override;
    STDMETHODIMP MapColumnIDs(DBORDINAL count, const DBID ids[], DBORDINAL ordinals[]) override;

    // IRowsetInfo
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override;
    STDMETHODIMP GetReferencedRowset(DBORDINAL ordinal, REFIID riid, IUnknown** rowset) override;
    STDMETHODIMP GetSpecification(REFIID riid, IUnknown** creator) override;

    // IConvertType
    STDMETHODIMP CanConvert(DBTYPE from, DBTYPE to, DBCONVERTFLAGS flags) override;

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

    // For the IRowsetChange inner object (RowsetChange.cpp), under lock().
    std::mutex& lock() noexcept { return m_lock; }
    RowCache& cache() noexcept { return m_cache; }
    AccessorTable& accessors() noexcept { return m_accessors; }
    const std::shared_ptr<RowStore>& store() const noexcept { return m_store; }
    // The data columns (without the bookmark).
    const std::vector<ColumnDesc>& columns() const noexcept { return m_cache.source().columns(); }
    bool hasBookmarks() const noexcept { return m_bookmarks; }
    const PropertyStore& properties() const noexcept { return m_properties; }
    // The column description at an accessor ordinal (0: the bookmark); null when out of range.
    const ColumnDesc* ColumnAt(DBORDINAL ordinal) const noexcept;
    // The type accessor validation checks ordinals against.
    std::optional<DBTYPE> ColumnTypeAt(DBORDINAL ordinal) const;

private:
    std::mutex m_lock;
    std::shared_ptr<RowStore> m_store;
    RowCache m_cache;
    PropertyStore m_properties;
    ComPtr<IUnknown> m_creator;
    std::shared_ptr<void> m_openToken;
    AccessorTable m_accessors;
    ColumnDesc m_bookmark;
    bool m_bookmarks;
    bool m_changeable;
    ComPtr<IUnknown> m_change;  // the IRowsetChange inner object, made on first request
};

}  // namespace zel::provider
