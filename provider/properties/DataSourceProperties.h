// The data source's properties: initialization (DBINIT, descriptions equal to the connection-
// string keywords), data-source information and data-source properties.
#pragma once

#include <span>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

// The id under which Wine's service components pass "Initial Catalog" in the DBINIT set.
inline constexpr DBPROPID kStrayCatalogPropertyId = 0x16;

std::span<const PropertyDefinition> DataSourcePropertyDefinitions();

// The sets a data source shows before and after initialization.
std::span<const GUID* const> UninitializedDataSourceSets();
std::span<const GUID* const> InitializedDataSourceSets();

}  // namespace zel::provider
