#include "provider/properties/SessionProperties.h"

namespace zel::provider {

namespace {

const PropertyDefinition kSessionProperties[] = {
    {&DBPROPSET_SESSION, DBPROP_SESS_AUTOCOMMITISOLEVELS, VT_I4,
     DBPROPFLAGS_SESSION | DBPROPFLAGS_READ | DBPROPFLAGS_WRITE, L"Autocommit Isolation Levels"},
};
const GUID* const kSessionSets[] = {&DBPROPSET_SESSION};

}  // namespace

std::span<const PropertyDefinition> SessionPropertyDefinitions() { return kSessionProperties; }

std::span<const GUID* const> SessionPropertySets() { return kSessionSets; }

}  // namespace zel::provider
