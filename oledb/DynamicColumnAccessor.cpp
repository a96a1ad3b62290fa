#include "oledb/DynamicColumnAccessor.h"

#include <oaidl.h>

#include <cstring>

#include "common/OleDbIids.h"

namespace zel {
namespace {

DBBYTEOFFSET AlignUp(DBBYTEOFFSET offset, DBBYTEOFFSET alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

// Natural alignment of a value of `type` in the row buffer.
DBBYTEOFFSET AlignmentOf(DBTYPE type) {
    switch (type) {
        case DBTYPE_I1: case DBTYPE_UI1: case DBTYPE_STR: case DBTYPE_BYTES:
            return 1;
        case DBTYPE_I2: case DBTYPE_UI2: case DBTYPE_BOOL: case DBTYPE_WSTR:
        case DBTYPE_DBDATE: case DBTYPE_DBTIME: case DBTYPE_DBTIMESTAMP:
            return 2;
        case DBTYPE_I4: case DBTYPE_UI4: case DBTYPE_R4: case DBTYPE_ERROR: case DBTYPE_GUID:
        case DBTYPE_NUMERIC: case DBTYPE_VARNUMERIC:
            return 4;
        case DBTYPE_IUNKNOWN: case DBTYPE_IDISPATCH: case DBTYPE_BSTR:
            return sizeof(void*);
        default:
            return 8;
    }
}

// Size in bytes of a fixed-length type; 0 for variable-length ones.
DBLENGTH FixedSizeOf(DBTYPE type) {
    switch (type) {
        case DBTYPE_I1: case DBTYPE_UI1: return 1;
        case DBTYPE_I2: case DBTYPE_UI2: case DBTYPE_BOOL: return 2;
        case DBTYPE_I4: case DBTYPE_UI4: case DBTYPE_R4: case DBTYPE_ERROR: return 4;
        case DBTYPE_I8: case DBTYPE_UI8: case DBTYPE_R8: case DBTYPE_CY: case DBTYPE_DATE:
        case DBTYPE_FILETIME: return 8;
        case DBTYPE_DECIMAL: case DBTYPE_GUID: return 16;
        case DBTYPE_NUMERIC: return sizeof(DB_NUMERIC);
        case DBTYPE_DBDATE: return sizeof(DBDATE);
        case DBTYPE_DBTIME: return sizeof(DBTIME);
        case DBTYPE_DBTIMESTAMP: return sizeof(DBTIMESTAMP);
        case DBTYPE_VARIANT: return sizeof(VARIANT);
        case DBTYPE_BSTR: case DBTYPE_IUNKNOWN: case DBTYPE_IDISPATCH: return sizeof(void*);
        default: return 0;
    }
}

// The storage interface to ask for: ISequentialStream when the rowset offers it, else IStream.
IID StorageInterface(IRowset* rowset) {
    ComPtr<IRowsetInfo> info;
    if (FAILED(ComPtr<IRowset>(rowset).query(info))) return IID_ISequentialStream;
    DBPROPID ids[] = {DBPROP_ISequentialStream, DBPROP_IStream};
    DBPROPIDSET idSet = {ids, 2, DBPROPSET_ROWSET};
    ULONG setCount = 0;
    CoTaskMem<DBPROPSET> sets;
    bool sequential = false;
    bool stream = false;
    if (SUCCEEDED(info->GetProperties(1, &idSet, &setCount, sets.put())) && sets) {
        for (ULONG s = 0; s < setCount; ++s) {
            CoTaskMem<DBPROP> props(sets[s].rgProperties);
            for (ULONG i = 0; props && i < sets[s].cProperties; ++i) {
                const DBPROP& p = props[i];
                bool on = p.dwStatus == DBPROPSTATUS_OK && V_VT(&p.vValue) == VT_BOOL && V_BOOL(&p.vValue) != VARIANT_FALSE;
                if (p.dwPropertyID == DBPROP_ISequentialStream) sequential = on;
                if (p.dwPropertyID == DBPROP_IStream) stream = on;
                VariantClear(&props[i].vValue);
            }
        }
    }
    return (sequential || !stream) ? IID_ISequentialStream : IID_IStream;
}

}  // namespace

HRESULT DynamicColumnAccessor::Bind(IRowset* rowset) {
    Release();
    ComPtr<IRowset> owner(rowset);
    ComPtr<IColumnsInfo> columnsInfo;
    HRESULT hr = owner.query(columnsInfo);
    if (FAILED(hr)) return hr;
    hr = columnsInfo->GetColumnInfo(&m_count, m_info.put(), m_names.put());
    if (hr != S_OK) {
        Release();
        return hr;
    }

    bool storageChecked = false;
    IID storageIid = IID_ISequentialStream;
    std::vector<DBBINDING> bindings(m_count);
    // One DBOBJECT per binding that asks for a storage object; it must outlive CreateAccessor.
    std::vector<DBOBJECT> objects(m_count);
    m_layout.resize(m_count);
    DBBYTEOFFSET offset = 0;
    for (DBORDINAL i = 0; i < m_count; ++i) {
        DBCOLUMNINFO& column = m_info.get()[i];
        // Sizes in 64 bits: an unbounded column reports ~0, which must not wrap. `valueBytes`
        // is what the longest value takes, without the terminator that the bound size adds:
        // text of 4,000 wide characters is 8,000 bytes, not longer than the blob threshold.
        unsigned long long size = column.ulColumnSize;
        unsigned long long valueBytes = size;
        if (column.wType == DBTYPE_STR) {
            size = size + 1;
        } else if (column.wType == DBTYPE_WSTR) {
            valueBytes = size * 2;
            size = valueBytes + 2;
        } else if (FixedSizeOf(column.wType) != 0 && size == 0) {
            size = valueBytes = FixedSizeOf(column.wType);
        }

        m_layout[i].declared = column.wType;
        DBBINDING& b = bindings[i];
        b.iOrdinal = column.iOrdinal;
        b.dwPart = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
        b.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
        b.eParamIO = DBPARAMIO_NOTPARAM;
        b.bPrecision = column.bPrecision;
        b.bScale = column.bScale;
        if (column.wType == DBTYPE_IUNKNOWN || column.ulColumnSize > kBlobThreshold || valueBytes > kBlobThreshold) {
            if (!storageChecked) {
                storageIid = StorageInterface(rowset);
                storageChecked = true;
            }
            // Long values stay with the provider; later readers see DBTYPE_IUNKNOWN.
            column.wType = DBTYPE_IUNKNOWN;
            size = sizeof(IUnknown*);
            objects[i].dwFlags = STGM_READ;
            objects[i].iid = storageIid;
            b.pObject = &objects[i];
        }
        b.wType = column.wType;
        b.cbMaxLen = static_cast<DBLENGTH>(size);

        offset = AlignUp(offset, AlignmentOf(column.wType));
        m_layout[i].value = offset;
        m_layout[i].size = static_cast<DBLENGTH>(size);
        offset = AlignUp(offset + size, sizeof(DBLENGTH));
        m_layout[i].length = offset;
        offset += sizeof(DBLENGTH);
        m_layout[i].status = offset;
        offset += sizeof(DBSTATUS);
        b.obValue = m_layout[i].value;
        b.obLength = m_layout[i].length;
        b.obStatus = m_layout[i].status;
    }
    m_buffer.assign(AlignUp(offset, 8), 0);

    ComPtr<IAccessor> accessor;
    hr = owner.query(accessor);
    HACCESSOR handle = DB_NULL_HACCESSOR;
    if (SUCCEEDED(hr)) {
        std::vector<DBBINDSTATUS> status(m_count);
        hr = accessor->CreateAccessor(DBACCESSOR_ROWDATA, m_count, bindings.data(), m_buffer.size(), &handle,
                                      status.data());
    }
    if (hr != S_OK) {
        if (handle != DB_NULL_HACCESSOR) accessor->ReleaseAccessor(handle, nullptr);
        Release();
        return hr;
    }
    m_accessor = Accessor(std::move(accessor), handle);
    return S_OK;
}

void DynamicColumnAccessor::ReleaseRowValues() noexcept {
    if (m_buffer.empty()) return;
    for (DBORDINAL i = 0; i < m_count; ++i) {
        if (Status(i) != DBSTATUS_S_OK && Status(i) != DBSTATUS_S_TRUNCATED) continue;
        BYTE* value = Value(i);
        switch (Column(i).wType) {
            case DBTYPE_IUNKNOWN:
            case DBTYPE_IDISPATCH: {
                IUnknown* object = nullptr;
                std::memcpy(&object, value, sizeof object);
                // The row buffer holds the provider's reference; it is ours to drop.
                if (object) object->Release();
                break;
            }
            case DBTYPE_BSTR: {
                BSTR text = nullptr;
                std::memcpy(&text, value, sizeof text);
                SysFreeString(text);  // client-owned value handed out by GetData
                break;
            }
            case DBTYPE_VARIANT:
                VariantClear(reinterpret_cast<VARIANT*>(value));
                break;
            default:
                continue;
        }
        std::memset(value, 0, FixedSizeOf(Column(i).wType));
        *reinterpret_cast<DBSTATUS*>(m_buffer.data() + m_layout[i].status) = DBSTATUS_S_ISNULL;
    }
}

void DynamicColumnAccessor::Release() noexcept {
    ReleaseRowValues();
    m_accessor.reset();
    m_buffer.clear();
    m_layout.clear();
    m_info.reset();
    m_names.reset();
    m_count = 0;
}

bool DynamicColumnAccessor::HasBookmark() const noexcept {
    return m_count > 0 && m_info.get()[0].iOrdinal == 0 && (m_info.get()[0].dwFlags & DBCOLUMNFLAGS_ISBOOKMARK);
}

DBLENGTH DynamicColumnAccessor::Length(DBORDINAL index) const noexcept {
    DBLENGTH length;
    std::memcpy(&length, m_buffer.data() + m_layout[index].length, sizeof length);
    return length;
}

DBSTATUS DynamicColumnAccessor::Status(DBORDINAL index) const noexcept {
    DBSTATUS status;
    std::memcpy(&status, m_buffer.data() + m_layout[index].status, sizeof status);
    return status;
}

}  // namespace zel
