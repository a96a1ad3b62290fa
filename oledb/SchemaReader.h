// The component behind every catalog enumeration handle: the restriction values, the
// schema rowset, one value-only accessor into a fixed record, and the row currently held.
// Text fields of the records are 129 UTF-16 code units; a longer value arrives cut to 128
// characters by the provider.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstddef>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "common/OleDbHandles.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"

namespace zel {

// A text field of a catalog record.
using CatalogText = wchar_t[129];

// Text of a record field, up to its first NUL.
inline std::wstring FieldText(const CatalogText& field) { return std::wstring(field, wcsnlen(field, 129)); }

// One bound column of a catalog record: the schema rowset's ordinal, the OLE DB type and the
// field's place and size in the record.
struct CatalogBinding {
    DBORDINAL ordinal;
    DBTYPE type;
    size_t offset;
    size_t size;
};

class SchemaReader {
public:
    // `restrictionCount` empty restrictions; `record` is the caller's record of
    // `recordSize` bytes, which every fetched row is read into.
    SchemaReader(size_t restrictionCount, void* record, size_t recordSize);
    SchemaReader(const SchemaReader&) = delete;
    SchemaReader& operator=(const SchemaReader&) = delete;
    ~SchemaReader() { Close(); }

    // Sets restriction `index` (0-based) to a copy of `value`; a null value leaves it empty.
    // Throws E_OUTOFMEMORY.
    void SetRestriction(size_t index, const wchar_t* value);
    // IDBSchemaRowset::GetRowset on the session, then the accessor over `bindings` (value
    // parts only); clears the record. Returns the first failing HRESULT.
    HRESULT Open(IOpenRowset* session, REFGUID schema, const std::vector<CatalogBinding>& bindings);
    // Restarts the rowset position after releasing the held row.
    HRESULT Restart();
    // Fetches the next row into the record; S_OK only when a row was read.
    HRESULT FetchNext();
    // Releases the held row, the accessor and the rowset.
    void Close() noexcept;

private:
    void ReleaseRow() noexcept;

    std::vector<Variant> m_restrictions;
    void* m_record;
    size_t m_recordSize;
    ComPtr<IRowset> m_rowset;
    Accessor m_accessor;
    HROW m_row = DB_NULL_HROW;
};

}  // namespace zel
