#include "xml/TableDefColumns.h"

#include <oleauto.h>

#include "common/OleDbMemory.h"

namespace zel {

const GUID DBPROPSET_JETOLEDB_COLUMN = {
    0x820bf922, 0x6ac8, 0x11d1, {0x9f, 0x02, 0x00, 0xc0, 0x4f, 0xc2, 0xc2, 0xe0}};

void FreeTableDefColumns(DBCOLUMNDESC* columns, DBORDINAL count) noexcept {
    if (!columns) return;
    for (DBORDINAL i = 0; i < count; ++i) {
        DBCOLUMNDESC& column = columns[i];
        if (column.dbcid.eKind == DBKIND_NAME) CoTaskMemFree(column.dbcid.uName.pwszName);
        CoTaskMemFree(column.pwszTypeName);
        ClearColumnDesc(column);
    }
    CoTaskMemFree(columns);
}

}  // namespace zel
