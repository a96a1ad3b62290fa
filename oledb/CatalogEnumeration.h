// What the table, column and index enumerations share: an optional schema reader (present
// from a successful open until Close), the first-fetch flag that makes the first fetch after
// an open rewind, and the catalog field index of the text getters:
// 0 table name, 1 catalog, 2 schema, 3 description, 4 table type, 5 column name,
// 6 index name, 7 table schema, 8 table catalog.
#pragma once

#include <memory>
#include <string>

#include "oledb/KobOleDbConnection.h"
#include "oledb/KobOleDbErrorInfo.h"
#include "oledb/SchemaReader.h"

namespace zel {

enum CatalogField : unsigned {
    kFieldTableName = 0,
    kFieldCatalog = 1,
    kFieldSchema = 2,
    kFieldDescription = 3,
    kFieldTableType = 4,
    kFieldColumnName = 5,
    kFieldIndexName = 6,
    kFieldTableSchema = 7,
    kFieldTableCatalog = 8,
};

class CatalogEnumeration : public KobOleDbErrorInfo {
public:
    virtual ~CatalogEnumeration() = default;

    bool HasReader() const noexcept { return m_reader != nullptr; }
    // Releases the held row, the accessor, the rowset and the restrictions.
    void Close() noexcept { m_reader.reset(); }
    // The next fetch starts again at the first row.
    void Rewind() noexcept { m_firstFetch = true; }
    // Moves to the next row; true only when the provider answered exactly S_OK.
    virtual bool FetchNext();
    // The text of field `index` of the current row (empty when the enumeration has no such
    // field or no reader).
    virtual std::wstring GetField(unsigned index) const = 0;

protected:
    // True when the connection is there and open.
    static bool Usable(KobOleDbConnection* connection) { return connection && connection->IsConnected(); }
    // Moves with or without recording the provider's answers in the error text.
    bool Move(bool recordErrors);

    std::unique_ptr<SchemaReader> m_reader;
    bool m_firstFetch = true;
};

}  // namespace zel
