#include "provider/properties/TableCreationProperties.h"

#include <algorithm>

#include "provider/properties/RowsetProperties.h"

namespace zel::provider {

namespace {

bool IsRowsetSet(const GUID& set) {
    auto sets = RowsetPropertySets();
    return std::any_of(sets.begin(), sets.end(), [&](const GUID* g) { return *g == set; });
}

DBPROPSTATUS TableProperty(const DBPROP& prop) {
    if (prop.dwPropertyID != DBPROP_TBL_TEMPTABLE) return DBPROPSTATUS_NOTSUPPORTED;
    if (V_VT(&prop.vValue) == VT_EMPTY) return DBPROPSTATUS_OK;
    if (V_VT(&prop.vValue) != VT_BOOL) return DBPROPSTATUS_BADVALUE;
    return V_BOOL(&prop.vValue) ? DBPROPSTATUS_NOTSUPPORTED : DBPROPSTATUS_OK;
}

}  // namespace

TableCreationProperties CheckTableCreationProperties(ULONG setCount, DBPROPSET sets[]) {
    TableCreationProperties result;
    PropertyStore rowset = MakeRowsetProperties();
    for (ULONG s = 0; s < setCount; ++s) {
        DBPROPSET& set = sets[s];
        if (IsRowsetSet(set.guidPropertySet)) {
            // Statuses as IOpenRowset gives them; the set is passed on to it unchanged.
            rowset.SetProperties(1, &set, RowsetPropertySets(), ValidateRowsetProperty);
            result.rowsetSets.push_back(set);
        } else {
            for (ULONG p = 0; p < set.cProperties; ++p) {
                DBPROP& prop = set.rgProperties[p];
                if (prop.dwOptions != DBPROPOPTIONS_REQUIRED && prop.dwOptions != DBPROPOPTIONS_OPTIONAL)
                    prop.dwStatus = DBPROPSTATUS_BADOPTION;
                else if (set.guidPropertySet == DBPROPSET_TABLE)
                    prop.dwStatus = TableProperty(prop);
                else
                    prop.dwStatus = DBPROPSTATUS_NOTSUPPORTED;
            }
        }
        for (ULONG p = 0; p < set.cProperties; ++p) {
            const DBPROP& prop = set.rgProperties[p];
            if (prop.dwStatus == DBPROPSTATUS_OK) continue;
            (prop.dwOptions == DBPROPOPTIONS_OPTIONAL ? result.optionalFailed : result.requiredFailed) = true;
            if (result.message.empty())
                result.message = L"Table or rowset property " + std::to_wstring(prop.dwPropertyID) +
                                 L" cannot be honoured (status " + std::to_wstring(prop.dwStatus) + L").";
        }
    }
    result.wantsRowsetChange = WantsRowsetChange(rowset);
    return result;
}

}  // namespace zel::provider
