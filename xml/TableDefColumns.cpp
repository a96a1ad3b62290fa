#include "xml/TableDefColumns.h"

#include <oleauto.h>

namespace zel {

const GUID DBPROPSET_JETOLEDB_COLUMN = {
    0x820bf922, 0x6ac8, 0x11d1, {0x9f, 0x02, 0x00, 0xc0, 0x4f, 0xc2, 0xc2, 0xe0}};

void ClearTableDefColumn(DBCOLUMNDESC& column) noexcept {
    if (column.dbcid.eKind == DBKIND_NAME) {
        CoTaskMemFree(column.dbcid.uName.pwszName);
        column.dbcid.uName.pwszName = nullptr;
    }
    CoTaskMemFree(column.pwszTypeName);
    column.pwszTypeName = nullptr;
    ClearColumnDesc(column);
}

void FreeTableDefColumns(DBCOLUMNDESC* columns, DBORDINAL count) noexcept {
    TableDefColumns(columns, count).reset();
}

}  // namespace zel
