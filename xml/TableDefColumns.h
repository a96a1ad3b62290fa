// Column descriptions (DBCOLUMNDESC) produced by the table-definition reader, and the rule
// that releases them. Every block (the array, the name and type-name strings, the property
// sets and their property arrays) comes from the COM task allocator.
#pragma once

#include <windows.h>
#include <oledb.h>

#include "common/OleDbMemory.h"

namespace zel {

// The Jet provider's column property set; carries DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH.
extern const GUID DBPROPSET_JETOLEDB_COLUMN;  // {820BF922-6AC8-11D1-9F02-00C04FC2C2E0}
constexpr DBPROPID DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH = 0xE0;

// Room allocated in each property set of a description made by the reader.
constexpr ULONG kTableDefPropertyRoom = 5;

// Releases what one description made by the reader owns: its name, its type name, the
// VARIANT of every counted property, each property array and the property-set array.
void ClearTableDefColumn(DBCOLUMNDESC& column) noexcept;

// Releases `count` descriptions made by the reader and then the array. Null is accepted.
void FreeTableDefColumns(DBCOLUMNDESC* columns, DBORDINAL count) noexcept;

// Owner of a description array made by the reader; releases it as FreeTableDefColumns does.
class TableDefColumns : public CoTaskMemArray<DBCOLUMNDESC, &ClearTableDefColumn> {
public:
    using CoTaskMemArray::CoTaskMemArray;
    DBORDINAL count() const noexcept { return size(); }
};

}  // namespace zel
