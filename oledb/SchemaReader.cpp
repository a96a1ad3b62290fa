#include "oledb/SchemaReader.h"

#include <cstring>

namespace zel {

SchemaReader::SchemaReader(size_t restrictionCount, void* record, size_t recordSize)
    : m_restrictions(restrictionCount), m_record(record), m_recordSize(recordSize) {}

void SchemaReader::SetRestriction(size_t index, const wchar_t* value) {
    if (value) m_restrictions[index] = Variant(std::wstring_view(value));
}

HRESULT SchemaReader::Open(IOpenRowset* session, REFGUID schema, const std::vector<CatalogBinding>& bindings) {
    Close();
    if (!session) return E_FAIL;
    ComPtr<IDBSchemaRowset> schemas;
    HRESULT hr = ComPtr<IOpenRowset>(session).query(schemas);
    if (FAILED(hr)) return hr;
    std::vector<VARIANT> restrictions(m_restrictions.size());
    for (size_t i = 0; i < m_restrictions.size(); ++i) restrictions[i] = *m_restrictions[i].get();  // borrowed
    hr = schemas->GetRowset(nullptr, schema, static_cast<ULONG>(restrictions.size()), restrictions.data(),
                            IID_IRowset, 0, nullptr, m_rowset.put_unknown());
    if (hr != S_OK) return hr;

    ComPtr<IAccessor> accessor;
    hr = m_rowset.query(accessor);
    if (FAILED(hr)) return hr;
    std::memset(m_record, 0, m_recordSize);
    std::vector<DBBINDING> dbBindings(bindings.size());
    for (size_t i = 0; i < bindings.size(); ++i) {
        DBBINDING& b = dbBindings[i];
        b = DBBINDING{};
        b.iOrdinal = bindings[i].ordinal;
        b.obValue = bindings[i].offset;
        b.dwPart = DBPART_VALUE;
        b.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
        b.eParamIO = DBPARAMIO_NOTPARAM;
        b.cbMaxLen = bindings[i].size;
        b.wType = bindings[i].type;
    }
    HACCESSOR handle = DB_NULL_HACCESSOR;
    hr = accessor->CreateAccessor(DBACCESSOR_ROWDATA, dbBindings.size(), dbBindings.data(), m_recordSize, &handle,
                                  nullptr);
    if (handle != DB_NULL_HACCESSOR) m_accessor = Accessor(accessor, handle);
    return hr;
}

void SchemaReader::ReleaseRow() noexcept {
    if (m_row != DB_NULL_HROW && m_rowset) m_rowset->ReleaseRows(1, &m_row, nullptr, nullptr, nullptr);
    m_row = DB_NULL_HROW;
}

HRESULT SchemaReader::Restart() {
    ReleaseRow();
    return m_rowset ? m_rowset->RestartPosition(DB_NULL_HCHAPTER) : E_FAIL;
}

HRESULT SchemaReader::FetchNext() {
    if (!m_rowset || !m_accessor) return E_FAIL;
    ReleaseRow();
    DBCOUNTITEM obtained = 0;
    HROW* rows = &m_row;
    HRESULT hr = m_rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows);
    if (hr != S_OK || obtained != 1) {
        m_row = DB_NULL_HROW;
        return hr == S_OK ? DB_S_ENDOFROWSET : hr;
    }
    return m_rowset->GetData(m_row, m_accessor.get(), m_record);
}

void SchemaReader::Close() noexcept {
    ReleaseRow();
    m_accessor.reset();
    m_rowset.reset();
}

}  // namespace zel
