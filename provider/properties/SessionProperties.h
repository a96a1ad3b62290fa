// Session properties (DBPROPSET_SESSION): the isolation level of work done outside a
// transaction (DBPROP_SESS_AUTOCOMMITISOLEVELS), readable and settable.
#pragma once

#include <span>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

std::span<const PropertyDefinition> SessionPropertyDefinitions();
std::span<const GUID* const> SessionPropertySets();

}  // namespace zel::provider
