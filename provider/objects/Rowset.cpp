#include "provider/objects/Rowset.h"

#include <oledberr.h>

#include <cstring>

#include "common/OleDbMemory.h"
#include "provider/errors/Errors.h"
#include "provider/objects/RowsetChange.h"
#include "provider/objects/StorageObject.h"
#include "provider/properties/RowsetProperties.h"
#include "provider/text/Utf.h"
#include "provider/values/DataConversion.h"

namespace zel::provider {

namespace {

bool IsErrorStatus(DBSTATUS status) {
    return status != DBSTATUS_S_OK && status != DBSTATUS_S_ISNULL && status != DBSTATUS_S_TRUNCATED &&
           status != DBSTATUS_S_DEFAULT && status != DBSTATUS_S_IGNORE;
}

template <typename T>
T& At(void* data, DBBYTEOFFSET offset) {
    return *reinterpret_cast<T*>(static_cast<BYTE*>(data) + offset);
}

bool IsBookmarkId(const DBID& id) {
    return id.eKind == DBKIND_GUID_PROPID && id.uGuid.guid == DBCOL_SPECIALCOL && id.uName.ulPropid == 2;
}

const wchar_t* NameOf(const DBID& id) {
    switch (id.eKind) {
    case DBKIND_NAME:
    case DBKIND_GUID_NAME:
    case DBKIND_PGUID_NAME: return id.uName.pwszName;
    default: return nullptr;
    }
}

// The result of a method over several items (row handles, column ids): S_OK when all were
// done, DB_S_ERRORSOCCURRED when some were, and a failure when none was.
HRESULT ItemsResult(size_t errors, size_t count, const wchar_t* noneDone) {
    if (errors == 0) return S_OK;
    if (errors == count) Fail(DB_E_ERRORSOCCURRED, noneDone);
    return ClearErrorAndReturn(DB_S_ERRORSOCCURRED);
}

}  // namespace

Rowset::Rowset(std::shared_ptr<RowStore> store, std::unique_ptr<RowSource> source, PropertyStore properties,
               ComPtr<IUnknown> creator, std::shared_ptr<void> openToken)
    : m_store(std::move(store)),
      m_cache(std::move(source), static_cast<size_t>(properties.GetI4(DBPROPSET_ROWSET, DBPROP_MAXROWS))),
      m_properties(std::move(properties)), m_creator(std::move(creator)), m_openToken(std::move(openToken)) {
    m_bookmarks = m_properties.GetBool(DBPROPSET_ROWSET, DBPROP_BOOKMARKS);
    m_changeable = WantsRowsetChange(m_properties) && m_store != nullptr;
    if (m_changeable) {
        m_properties.PutBool(DBPROPSET_ROWSET, DBPROP_IRowsetChange, true);
        if (m_properties.GetI4(DBPROPSET_ROWSET, DBPROP_UPDATABILITY) == 0)
            m_properties.PutI4(DBPROPSET_ROWSET, DBPROP_UPDATABILITY,
                               DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_DELETE | DBPROPVAL_UP_INSERT);
    }
    m_bookmark.type = FixedType(DBTYPE_I4);
    m_bookmark.flags = DBCOLUMNFLAGS_ISBOOKMARK | DBCOLUMNFLAGS_ISFIXEDLENGTH;
}

Rowset::~Rowset() = default;

HRESULT Rowset::QueryExtra(REFIID riid, void** found) noexcept {
    if (riid != IID_IRowsetChange || !m_changeable) return E_NOINTERFACE;
    try {
        std::lock_guard guard(m_lock);
        if (!m_change)
            ZEL_THROW_IF_FAILED(
                RowsetChange::CreateInstance(ControllingUnknown(), IID_IUnknown, m_change.put_void(), this));
        void* change = nullptr;
        ZEL_THROW_IF_FAILED(m_change->QueryInterface(IID_IRowsetChange, &change));
        // The inner object's interface came back with a reference on this rowset (its outer
        // object); the caller adds its own, so this one is given back.
        static_cast<IUnknown*>(change)->Release();
        *found = change;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

const ColumnDesc* Rowset::ColumnAt(DBORDINAL ordinal) const noexcept {
    if (ordinal == 0) return m_bookmarks ? &m_bookmark : nullptr;
    return ordinal <= columns().size() ? &columns()[ordinal - 1] : nullptr;
}

std::optional<DBTYPE> Rowset::ColumnTypeAt(DBORDINAL ordinal) const {
    const ColumnDesc* column = ColumnAt(ordinal);
    if (!column) return std::nullopt;
    return column->type.type;
}

STDMETHODIMP Rowset::AddRefRows(DBCOUNTITEM count, const HROW rows[], DBREFCOUNT refCounts[], DBROWSTATUS statuses[]) {
    try {
        if (count && !rows) Fail(E_INVALIDARG);
        std::lock_guard guard(m_lock);
        DBCOUNTITEM errors = 0;
        for (DBCOUNTITEM i = 0; i < count; ++i) {
            CachedRow* row = m_cache.Find(rows[i]);
            DBROWSTATUS status = DBROWSTATUS_S_OK;
            DBREFCOUNT refs = 0;
            if (!row) {
                status = DBROWSTATUS_E_INVALID;
                ++errors;
            } else if (row->deleted) {
                status = DBROWSTATUS_E_DELETED;
                refs = row->refs;
                ++errors;
            } else {
                refs = ++row->refs;
            }
            if (refCounts) refCounts[i] = refs;
            if (statuses) statuses[i] = status;
        }
        return ItemsResult(errors, count, L"None of the row handles is valid.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetData(HROW handle, HACCESSOR accessorHandle, void* data) {
    try {
        std::lock_guard guard(m_lock);
        CachedRow* row = m_cache.Find(handle);
        if (!row) Fail(DB_E_BADROWHANDLE);
        if (row->deleted) Fail(DB_E_DELETEDROW);
        auto accessor = m_accessors.Get(accessorHandle);
        if (!(accessor->flags & DBACCESSOR_ROWDATA)) Fail(DB_E_BADACCESSORTYPE);
        if (accessor->bindings.empty()) return S_OK;
        if (!data) Fail(E_INVALIDARG, L"No buffer was given for the row's data.");
        const Cell bookmarkValue = static_cast<std::int64_t>(m_cache.IndexOf(handle) + 1);
        const SourceRow& values = m_cache.Values(m_cache.IndexOf(handle));
        size_t errors = 0;
        std::wstring firstError;
        for (const DBBINDING& b : accessor->bindings) {
            const ColumnDesc* column = ColumnAt(b.iOrdinal);
            const Cell& cell = b.iOrdinal == 0 ? bookmarkValue : values.cells[b.iOrdinal - 1];
            BindingTarget target;
            target.type = b.wType;
            target.maxLength = b.cbMaxLen;
            target.precision = b.bPrecision;
            target.scale = b.bScale;
            if (b.pObject && b.pObject->iid != IID_IUnknown) target.storageIid = b.pObject->iid;
            target.makeStorage = &StorageObject::MakeAs;
            Scalar value = ReadValue(cell, column->type);
            void* out = (b.dwPart & DBPART_VALUE) ? static_cast<BYTE*>(data) + b.obValue : nullptr;
            ConversionResult result = ConvertForBinding(value, column->type, target, out);
            if (b.dwPart & DBPART_LENGTH) At<DBLENGTH>(data, b.obLength) = result.length;
            if (b.dwPart & DBPART_STATUS) At<DBSTATUS>(data, b.obStatus) = result.status;
            // A NULL read through a binding without status is not an error: the consumer chose
            // not to tell NULL apart, and gets the empty value of the bound type (catalog
            // readers bind values only, and schema rowsets have many NULL columns).
            if (result.status == DBSTATUS_S_ISNULL && !(b.dwPart & DBPART_STATUS)) WriteEmptyValue(target, out);
            bool failed = IsErrorStatus(result.status);
            if (failed) {
                if (errors++ == 0)
                    firstError = L"Column " + std::to_wstring(b.iOrdinal) + L" (" + column->name +
                                 L"): the value cannot be delivered as the bound type (status " +
                                 std::to_wstring(result.status) + L").";
            }
        }
        if (errors == 0) return S_OK;
        if (errors == accessor->bindings.size()) Fail(DB_E_ERRORSOCCURRED, firstError, L"22018");
        PublishError(DB_S_ERRORSOCCURRED, firstError, L"22018");
        return DB_S_ERRORSOCCURRED;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetNextRows(HCHAPTER chapter, DBROWOFFSET offset, DBROWCOUNT count, DBCOUNTITEM* obtained,
                                 HROW** rows) {
    try {
        if (!obtained || !rows) Fail(E_INVALIDARG);
        *obtained = 0;
        if (chapter != DB_NULL_HCHAPTER) Fail(DB_E_BADCHAPTER);
        if (offset < 0 && !m_properties.GetBool(DBPROPSET_ROWSET, DBPROP_CANSCROLLBACKWARDS))
            Fail(DB_E_CANTSCROLLBACKWARDS);
        if (count < 0 && !m_properties.GetBool(DBPROPSET_ROWSET, DBPROP_CANFETCHBACKWARDS))
            Fail(DB_E_CANTFETCHBACKWARDS);
        if (count == 0) return S_OK;
        std::lock_guard guard(m_lock);
        bool end = false;
        std::vector<size_t> fetched = m_cache.Fetch(offset, count, end);
        if (fetched.empty()) return ClearErrorAndReturn(DB_S_ENDOFROWSET);
        HROW* out = *rows;
        if (!out) {
            out = AllocateZeroed<HROW>(fetched.size());
        }
        for (size_t i = 0; i < fetched.size(); ++i) {
            HROW handle = RowCache::HandleOf(fetched[i]);
            ++m_cache.FindAny(handle)->refs;
            out[i] = handle;
        }
        *rows = out;
        *obtained = fetched.size();
        return end ? ClearErrorAndReturn(DB_S_ENDOFROWSET) : S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::ReleaseRows(DBCOUNTITEM count, const HROW rows[], DBROWOPTIONS[], DBREFCOUNT refCounts[],
                                 DBROWSTATUS statuses[]) {
    try {
        if (count && !rows) Fail(E_INVALIDARG);
        std::lock_guard guard(m_lock);
        DBCOUNTITEM errors = 0;
        for (DBCOUNTITEM i = 0; i < count; ++i) {
            CachedRow* row = m_cache.Find(rows[i]);
            DBREFCOUNT refs = 0;
            DBROWSTATUS status = DBROWSTATUS_S_OK;
            if (!row) {
                status = DBROWSTATUS_E_INVALID;
                ++errors;
            } else {
                refs = --row->refs;
            }
            if (refCounts) refCounts[i] = refs;
            if (statuses) statuses[i] = status;
        }
        return ItemsResult(errors, count, L"None of the row handles is valid.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::RestartPosition(HCHAPTER chapter) {
    try {
        if (chapter != DB_NULL_HCHAPTER) Fail(DB_E_BADCHAPTER);
        std::lock_guard guard(m_lock);
        m_cache.Restart();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::AddRefAccessor(HACCESSOR accessor, DBREFCOUNT* refCount) {
    try {
        ULONG refs = m_accessors.AddRef(accessor);
        if (refCount) *refCount = refs;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::CreateAccessor(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING bindings[],
                                    DBLENGTH rowSize, HACCESSOR* accessor, DBBINDSTATUS statuses[]) {
    try {
        if (!accessor) Fail(E_INVALIDARG);
        *accessor = DB_NULL_HACCESSOR;
        *accessor = m_accessors.Create(flags, count, bindings, rowSize, statuses,
                                       [this](DBORDINAL ordinal) { return ColumnTypeAt(ordinal); });
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetBindings(HACCESSOR accessor, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                                 DBBINDING** bindings) {
    try {
        m_accessors.GetBindings(accessor, flags, count, bindings);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::ReleaseAccessor(HACCESSOR accessor, DBREFCOUNT* refCount) {
    try {
        ULONG refs = m_accessors.Release(accessor);
        if (refCount) *refCount = refs;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** names) {
    try {
        if (!count || !info || !names) Fail(E_INVALIDARG);
        *count = 0;
        *info = nullptr;
        *names = nullptr;
        const auto& cols = columns();
        const size_t first = m_bookmarks ? 0 : 1;
        const size_t n = cols.size() + 1 - first;
        size_t textSize = 0;
        for (const auto& c : cols) textSize += c.name.size() + 1;
        CoTaskMem<DBCOLUMNINFO> out(AllocateZeroed<DBCOLUMNINFO>(n ? n : 1));
        CoTaskMem<OLECHAR> text(AllocateZeroed<OLECHAR>(textSize ? textSize : 1));
        OLECHAR* cursor = text.get();
        const bool writable = m_changeable && m_store && !m_store->ReadOnly();
        for (size_t i = 0; i < n; ++i) {
            const DBORDINAL ordinal = i + first;
            const ColumnDesc& c = *ColumnAt(ordinal);
            DBCOLUMNINFO& ci = out[i];
            ci = DBCOLUMNINFO{};
            ci.iOrdinal = ordinal;
            ci.wType = c.type.type;
            ci.ulColumnSize = c.type.size;
            ci.bPrecision = c.type.precision;
            ci.bScale = c.type.scale;
            ci.dwFlags = c.flags;
            if (ordinal == 0) {
                ci.columnid.eKind = DBKIND_GUID_PROPID;
                ci.columnid.uGuid.guid = DBCOL_SPECIALCOL;
                ci.columnid.uName.ulPropid = 2;
                continue;
            }
            if (writable && c.writable) ci.dwFlags |= DBCOLUMNFLAGS_WRITE;
            memcpy(cursor, c.name.c_str(), (c.name.size() + 1) * sizeof(OLECHAR));
            ci.pwszName = cursor;
            ci.columnid.eKind = DBKIND_NAME;
            ci.columnid.uName.pwszName = cursor;
            cursor += c.name.size() + 1;
        }
        *count = n;
        *info = out.release();
        *names = text.release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::MapColumnIDs(DBORDINAL count, const DBID ids[], DBORDINAL ordinals[]) {
    try {
        if (count && (!ids || !ordinals)) Fail(E_INVALIDARG);
        DBORDINAL errors = 0;
        for (DBORDINAL i = 0; i < count; ++i) {
            ordinals[i] = DB_INVALIDCOLUMN;
            if (IsBookmarkId(ids[i])) {
                if (m_bookmarks) ordinals[i] = 0;
            } else if (const wchar_t* name = NameOf(ids[i])) {
                const auto& cols = columns();
                for (size_t c = 0; c < cols.size(); ++c)
                    if (EqualsNoCase(cols[c].name, name)) {
                        ordinals[i] = c + 1;
                        break;
                    }
            }
            if (ordinals[i] == DB_INVALIDCOLUMN) ++errors;
        }
        return ItemsResult(errors, count, L"None of the column ids names a column of the rowset.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount, DBPROPSET** sets) {
    try {
        std::lock_guard guard(m_lock);
        return FailOrReturn(m_properties.GetProperties(idSetCount, idSets, setCount, sets, RowsetPropertySets()));
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetReferencedRowset(DBORDINAL ordinal, REFIID riid, IUnknown** rowset) {
    try {
        if (!rowset) Fail(E_INVALIDARG);
        *rowset = nullptr;
        if (!ColumnAt(ordinal)) Fail(DB_E_BADORDINAL);
        if (ordinal != 0) Fail(DB_E_NOTAREFERENCECOLUMN);
        return ControllingUnknown()->QueryInterface(riid, reinterpret_cast<void**>(rowset));
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::GetSpecification(REFIID riid, IUnknown** creator) {
    try {
        if (!creator) Fail(E_INVALIDARG);
        *creator = nullptr;
        if (!m_creator) return S_FALSE;
        return m_creator->QueryInterface(riid, reinterpret_cast<void**>(creator));
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::CanConvert(DBTYPE from, DBTYPE to, DBCONVERTFLAGS flags) {
    try {
        if (!ValidConvertFlags(from, flags, false)) Fail(DB_E_BADCONVERTFLAG);
        return zel::provider::CanConvert(from, to) ? S_OK : S_FALSE;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP Rowset::InterfaceSupportsErrorInfo(REFIID riid) {
    return riid == IID_IRowset || riid == IID_IAccessor || riid == IID_IColumnsInfo || riid == IID_IRowsetInfo ||
                   riid == IID_IConvertType || riid == IID_IRowsetChange
               ? S_OK
               : S_FALSE;
}

}  // namespace zel::provider
