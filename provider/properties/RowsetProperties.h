// Rowset properties (DBPROPSET_ROWSET): what commands, IOpenRowset and rowsets accept and
// report. Settable: IRowsetChange, UPDATABILITY, CANSCROLLBACKWARDS, CANFETCHBACKWARDS,
// CANHOLDROWS, BOOKMARKS, ISequentialStream, IStream, MAXROWS, COMMANDTIMEOUT. Interfaces ZelLite
// does not offer (IRowsetLocate, IRowsetUpdate...) read VARIANT_FALSE and cannot be set.
#pragma once

#include <span>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

std::span<const PropertyDefinition> RowsetPropertyDefinitions();
std::span<const GUID* const> RowsetPropertySets();
// A store with every rowset property at its default.
PropertyStore MakeRowsetProperties();
// Checks the values SetProperties gives (UPDATABILITY's bits).
DBPROPSTATUS ValidateRowsetProperty(const PropertyDefinition& def, const VARIANT& value, bool& handled);
// Whether the properties ask for IRowsetChange (directly or through UPDATABILITY).
bool WantsRowsetChange(const PropertyStore& properties);

}  // namespace zel::provider
