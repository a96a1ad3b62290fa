// Column enumeration: the rows of the columns schema rowset for one table, with, on request,
// each column's identity (auto-increment) flag and seed read from the table definition.
#pragma once

#include <windows.h>

#include <vector>

#include "oledb/CatalogEnumeration.h"

namespace zel {

class KobOleDbColumns : public CatalogEnumeration {
public:
    // All 28 columns of the columns schema rowset, value-only bindings by ordinal.
    struct Record {
        CatalogText tableCatalog;
        CatalogText tableSchema;
        CatalogText tableName;
        CatalogText columnName;
        GUID columnGuid;
        ULONG columnPropId;
        ULONG ordinalPosition;
        VARIANT_BOOL hasDefault;
        CatalogText columnDefault;
        ULONG columnFlags;
        VARIANT_BOOL isNullable;
        USHORT dataType;
        GUID typeGuid;
        ULONG characterMaximumLength;
        ULONG characterOctetLength;
        USHORT numericPrecision;
        SHORT numericScale;
        ULONG datetimePrecision;
        CatalogText characterSetCatalog;
        CatalogText characterSetSchema;
        CatalogText characterSetName;
        CatalogText collationCatalog;
        CatalogText collationSchema;
        CatalogText collationName;
        CatalogText domainCatalog;
        CatalogText domainSchema;
        CatalogText domainName;
        CatalogText description;
    };

    struct Identity {
        bool isIdentity;
        LONG seed;
        LONG increment;
    };

    // Opens the enumeration for `table` (required). With `extendedData` exactly VARIANT_TRUE
    // also reads the identity data, whose failure fails the open without error text.
    bool Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema, const wchar_t* table,
              const wchar_t* column, VARIANT_BOOL extendedData);
    // Column fetches record the provider's answer in the error text.
    bool FetchNext() override;
    std::wstring GetField(unsigned index) const override;
    const Record& Current() const noexcept { return m_record; }

    // The identity record for the current row's ORDINAL_POSITION, or null when there is none
    // (no reader, no identity data, or a position past the list).
    const Identity* CurrentIdentity() const noexcept;
    // Derived size of the current column by its data type.
    LONG Precision() const noexcept;

private:
    HRESULT ReadIdentityData(KobOleDbConnection* connection, const wchar_t* table);

    Record m_record = {};
    // Appended to by every open with identity data and never cleared: lookups index from
    // the start, so a reused handle keeps answering for the first table read under it.
    std::vector<Identity> m_identities;
};

}  // namespace zel
