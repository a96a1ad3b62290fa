// The property sets CreateTable takes besides the columns': DBPROPSET_TABLE (DBPROP_TBL_TEMPTABLE
// false, the only value ZelLite has) and the rowset property sets, checked as IOpenRowset checks
// them so that the rowset asked for can be opened on the new table. Every property's status is
// written; other sets are DBPROPSTATUS_NOTSUPPORTED.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <vector>

namespace zel::provider {

struct TableCreationProperties {
    bool requiredFailed = false;
    bool optionalFailed = false;
    std::wstring message;             // the first failure, for the error object
    std::vector<DBPROPSET> rowsetSets; // the rowset sets, to open the rowset with (same arrays)
    bool wantsRowsetChange = false;    // they ask for IRowsetChange
};

TableCreationProperties CheckTableCreationProperties(ULONG setCount, DBPROPSET sets[]);

}  // namespace zel::provider
