// Table enumeration: the rows of the tables schema rowset, restricted by catalog, schema,
// table name and table type.
#pragma once

#include <windows.h>

#include "oledb/CatalogEnumeration.h"

namespace zel {

class KobOleDbTables : public CatalogEnumeration {
public:
    // The record every row is read into (value-only bindings of ordinals 1-6).
    struct Record {
        CatalogText catalog;
        CatalogText schema;
        CatalogText name;
        CatalogText type;
        GUID guid;
        CatalogText description;
    };

    // Opens the enumeration; true only when the provider answered exactly S_OK. Fails without
    // error text when the connection is missing or closed. `type` is always passed as a
    // restriction (empty when null); a type longer than 127 characters fails the open.
    bool Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema, const wchar_t* name,
              const wchar_t* type);
    std::wstring GetField(unsigned index) const override;
    const Record& Current() const noexcept { return m_record; }

private:
    Record m_record = {};
};

}  // namespace zel
