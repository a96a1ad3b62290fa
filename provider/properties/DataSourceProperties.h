// The data source's properties: initialization (DBINIT, descriptions equal to the connection-
// string keywords), data-source information and data-source properties.
#pragma once

#include <span>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

// The id under which Wine's service components pass "Initial Catalog" in the DBINIT set.
inline constexpr DBPROPID kStrayCatalogPropertyId = 0x16;

std::span<const PropertyDefinition> DataSourcePropertyDefinitions();

// The checks every data source makes of a DBINIT property set before initialization, after its
// own: Mode's bits, Prompt's range (accepted; a data source never prompts), and the id under
// which Wine's service components pass "Initial Catalog", stored as DBPROP_INIT_CATALOG.
DBPROPSTATUS CheckInitProperty(const PropertyDefinition& def, const VARIANT& value, PropertyStore& store);

// The data-source information every provider reports once initialized: its file name, friendly
// name and version, OLE DB 2.7, the connection status, and the capabilities both providers
// share (free threading, no multiple results, several storage objects, conversions on
// commands, ODBC core SQL, DDL in transactions, no reference accessors, "Table").
void PutProviderInfo(PropertyStore& store, const wchar_t* fileName, const wchar_t* friendlyName,
                     const wchar_t* version);

// The sets a data source shows before and after initialization.
std::span<const GUID* const> UninitializedDataSourceSets();
std::span<const GUID* const> InitializedDataSourceSets();

}  // namespace zel::provider
