// One column as a rowset shows it: its name, type and flags, and the base table column it
// reads when it reads one.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>

#include "provider/values/TypeMapping.h"

namespace zel::provider {

struct ColumnDesc {
    std::wstring name;
    ColumnType type;
    DBCOLUMNFLAGS flags = 0;      // everything but DBCOLUMNFLAGS_WRITE, which the rowset adds
    std::wstring baseTable;       // empty for expressions
    std::wstring baseColumn;
    bool writable = false;        // a column of the rowset's update target
};

}  // namespace zel::provider
