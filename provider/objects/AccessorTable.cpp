#include "provider/objects/AccessorTable.h"

#include <oledberr.h>

#include <cstring>

#include "common/OleDbMemory.h"
#include "provider/errors/Errors.h"
#include "provider/values/DataConversion.h"

namespace zel::provider {

namespace {

// A binding handed out by GetBindings owns its DBOBJECT copy.
void ClearBinding(DBBINDING& binding) noexcept {
    CoTaskMemFree(binding.pObject);
    binding.pObject = nullptr;
}

constexpr DBACCESSORFLAGS kKnownFlags =
    DBACCESSOR_PASSBYREF | DBACCESSOR_ROWDATA | DBACCESSOR_PARAMETERDATA | DBACCESSOR_OPTIMIZED | DBACCESSOR_INHERITED;

DBBINDSTATUS CheckBinding(const DBBINDING& b, const AccessorTable::ColumnTypeOf& columnType) {
    if (!(b.dwPart & (DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS)) ||
        (b.dwPart & ~(DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS)))
        return DBBINDSTATUS_BADBINDINFO;
    std::optional<DBTYPE> column = columnType(b.iOrdinal);
    if (!column) return DBBINDSTATUS_BADORDINAL;
    const DBTYPE base = static_cast<DBTYPE>(b.wType & ~DBTYPE_BYREF);
    if (base == DBTYPE_EMPTY || base == DBTYPE_NULL || (b.wType & (DBTYPE_ARRAY | DBTYPE_VECTOR | DBTYPE_RESERVED)))
        return DBBINDSTATUS_BADBINDINFO;
    if (b.eParamIO != DBPARAMIO_NOTPARAM) return DBBINDSTATUS_BADBINDINFO;
    // Memory the provider would own (reference bindings into its buffers) is not offered.
    if (b.dwMemOwner != DBMEMOWNER_CLIENTOWNED) return DBBINDSTATUS_BADBINDINFO;
    if (!CanConvert(*column, b.wType)) return DBBINDSTATUS_UNSUPPORTEDCONVERSION;
    if (base == DBTYPE_IUNKNOWN && b.pObject) {
        const IID& iid = b.pObject->iid;
        if (iid != IID_ISequentialStream && iid != IID_IStream && iid != IID_IUnknown) return DBBINDSTATUS_NOINTERFACE;
        if (b.pObject->dwFlags & ~(STGM_READ | STGM_SHARE_DENY_NONE | STGM_SHARE_EXCLUSIVE | STGM_DIRECT))
            return DBBINDSTATUS_BADSTORAGEFLAGS;
    }
    return DBBINDSTATUS_OK;
}

}  // namespace

HACCESSOR AccessorTable::Create(DBACCESSORFLAGS flags, DBCOUNTITEM count, const DBBINDING* bindings,
                                DBLENGTH rowSize, DBBINDSTATUS* statuses, const ColumnTypeOf& columnType) {
    if (count && !bindings) Fail(E_INVALIDARG, L"Bindings were counted but not given.");
    if ((flags & ~kKnownFlags) || !(flags & (DBACCESSOR_ROWDATA | DBACCESSOR_PARAMETERDATA)))
        Fail(DB_E_BADACCESSORFLAGS);
    if (flags & DBACCESSOR_PARAMETERDATA)
        Fail(DB_E_BADACCESSORFLAGS, L"A rowset has no parameters: use DBACCESSOR_ROWDATA.");
    if (flags & DBACCESSOR_PASSBYREF) Fail(DB_E_BYREFACCESSORNOTSUPPORTED);

    auto accessor = std::make_shared<Accessor>();
    accessor->flags = flags;
    accessor->rowSize = rowSize;
    ULONG invalid = 0;
    for (DBCOUNTITEM i = 0; i < count; ++i) {
        DBBINDSTATUS status = CheckBinding(bindings[i], columnType);
        if (statuses) statuses[i] = status;
        if (status != DBBINDSTATUS_OK) ++invalid;
    }
    if (invalid)
        Fail(DB_E_ERRORSOCCURRED,
             std::to_wstring(invalid) + L" of the accessor's bindings are invalid; see each binding's status.");
    for (DBCOUNTITEM i = 0; i < count; ++i) {
        DBBINDING copy = bindings[i];
        copy.pTypeInfo = nullptr;
        copy.pBindExt = nullptr;
        if (copy.pObject) {
            accessor->objects.push_back(std::make_unique<DBOBJECT>(*copy.pObject));
            copy.pObject = accessor->objects.back().get();
        }
        accessor->bindings.push_back(copy);
    }
    std::lock_guard guard(m_lock);
    HACCESSOR handle = static_cast<HACCESSOR>(m_next++);
    m_accessors[handle] = std::move(accessor);
    return handle;
}

ULONG AccessorTable::AddRef(HACCESSOR handle) {
    std::lock_guard guard(m_lock);
    auto it = m_accessors.find(handle);
    if (it == m_accessors.end()) Fail(DB_E_BADACCESSORHANDLE);
    return ++it->second->refs;
}

ULONG AccessorTable::Release(HACCESSOR handle) {
    std::lock_guard guard(m_lock);
    auto it = m_accessors.find(handle);
    if (it == m_accessors.end()) Fail(DB_E_BADACCESSORHANDLE);
    ULONG refs = --it->second->refs;
    if (refs == 0) m_accessors.erase(it);
    return refs;
}

std::shared_ptr<const Accessor> AccessorTable::Get(HACCESSOR handle) const {
    std::lock_guard guard(m_lock);
    auto it = m_accessors.find(handle);
    if (it == m_accessors.end()) Fail(DB_E_BADACCESSORHANDLE);
    return it->second;
}

void AccessorTable::GetBindings(HACCESSOR handle, DBACCESSORFLAGS* flags, DBCOUNTITEM* count,
                                DBBINDING** bindings) const {
    if (!flags || !count || !bindings) Fail(E_INVALIDARG);
    *count = 0;
    *bindings = nullptr;
    auto accessor = Get(handle);
    const size_t n = accessor->bindings.size();
    CoTaskMemArray<DBBINDING, &ClearBinding> out(n);
    for (size_t i = 0; i < n; ++i) {
        const DBBINDING& binding = accessor->bindings[i];
        CoTaskMem<DBOBJECT> object(binding.pObject ? AllocateZeroed<DBOBJECT>(1) : nullptr);
        if (object) *object.get() = *binding.pObject;
        out[i] = binding;
        out[i].pObject = object.release();
    }
    *flags = accessor->flags;
    *count = n;
    *bindings = out.release();
}

}  // namespace zel::provider
