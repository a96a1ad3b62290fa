// Reading schema rowsets the way a consumer binding by ordinal does: the standard columns of
// each schema rowset (name and type, as the OLE DB reference lists them), one accessor binding
// every column by ordinal with its standard type, and restriction arrays.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"

namespace zel::test {

struct StandardColumn {
    const wchar_t* name;
    DBTYPE type;
};

// The standard columns of DBSCHEMA_TABLES, _COLUMNS, _INDEXES, _PRIMARY_KEYS or
// _PROVIDER_TYPES, in ordinal order.
std::span<const StandardColumn> StandardColumnsOf(REFGUID schema);

// One row, read with every column bound by ordinal as its standard type (value and status).
class SchemaRow {
public:
    struct Field {
        bool null = true;
        std::wstring text;      // DBTYPE_WSTR
        long long number = 0;   // integer types; BOOL as -1/0
        GUID guid{};
    };
    explicit SchemaRow(std::vector<Field> fields) : m_fields(std::move(fields)) {}
    bool IsNull(DBORDINAL ordinal) const { return At(ordinal).null; }
    std::wstring Text(DBORDINAL ordinal) const { return At(ordinal).text; }
    long long Number(DBORDINAL ordinal) const { return At(ordinal).number; }
    bool Flag(DBORDINAL ordinal) const { return At(ordinal).number != 0; }

private:
    const Field& At(DBORDINAL ordinal) const;
    std::vector<Field> m_fields;
};

// IDBSchemaRowset::GetRowset for IRowset; fails the test unless it answers S_OK.
ComPtr<IRowset> OpenSchema(IDBSchemaRowset* schemas, REFGUID schema, const std::vector<Variant>& restrictions);
// Every row from the start (the position is restarted first); fails the test unless each
// GetData answers S_OK.
std::vector<SchemaRow> ReadRows(IRowset* rowset, std::span<const StandardColumn> columns);
// Both: the rows of a schema rowset under the restrictions.
std::vector<SchemaRow> ReadSchema(IDBSchemaRowset* schemas, REFGUID schema, const std::vector<Variant>& restrictions);

// A restriction value: {} for none (VT_EMPTY), a string, or any VARIANT.
struct RestrictionValue {
    RestrictionValue() = default;
    RestrictionValue(const wchar_t* text) : value(std::wstring_view(text)) {}
    RestrictionValue(Variant v) : value(std::move(v)) {}
    Variant value;
};
std::vector<Variant> Restrict(std::initializer_list<RestrictionValue> values);
// A VT_UI2 value (DATA_TYPE and TYPE restrictions).
Variant UnsignedShort(USHORT value);

}  // namespace zel::test
