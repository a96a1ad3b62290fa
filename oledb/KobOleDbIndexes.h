// Index enumeration: the rows of the indexes schema rowset (one row per column of an index),
// restricted by catalog, schema, index name and table name.
#pragma once

#include <windows.h>

#include "oledb/CatalogEnumeration.h"

namespace zel {

class KobOleDbIndexes : public CatalogEnumeration {
public:
    // Value-only bindings by ordinal. Ordinal 24 is not bound and the last text field is
    // bound to ordinal 25; nothing reads that field.
    struct Record {
        CatalogText tableCatalog;
        CatalogText tableSchema;
        CatalogText tableName;
        CatalogText indexCatalog;
        CatalogText indexSchema;
        CatalogText indexName;
        VARIANT_BOOL primaryKey;
        VARIANT_BOOL unique;
        VARIANT_BOOL clustered;
        USHORT type;
        LONG fillFactor;
        LONG initialSize;
        LONG nulls;
        VARIANT_BOOL sortBookmarks;
        VARIANT_BOOL autoUpdate;
        LONG nullCollation;
        ULONG ordinalPosition;
        CatalogText columnName;
        GUID columnGuid;
        ULONG columnPropId;
        SHORT collation;
        LONG cardinality;
        LONG pages;
        CatalogText filterCondition;
    };

    // Opens the enumeration; every restriction is optional (the index type is never
    // restricted). Fails without error text when the connection is missing or closed.
    bool Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema, const wchar_t* table,
              const wchar_t* index);
    std::wstring GetField(unsigned index) const override;
    const Record& Current() const noexcept { return m_record; }

private:
    Record m_record = {};
};

}  // namespace zel
