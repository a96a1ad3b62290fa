// The schema rowsets over ODBC's catalog functions: TABLES (SQLTables), COLUMNS (SQLColumns),
// INDEXES (SQLStatistics), PRIMARY_KEYS (SQLPrimaryKeys) and PROVIDER_TYPES (SQLGetTypeInfo),
// each in the standard layout (SchemaLayouts.h) and order.
//
// Catalogs and schemas are the driver's (PostgreSQL: the database and "public"...). Name
// restrictions match names exactly: they are passed as search patterns with '_' and '%'
// escaped. INDEXES and PRIMARY_KEYS without a table restriction ask the driver table by table.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "provider/odbc/OdbcConnection.h"
#include "provider/rows/RowSource.h"
#include "provider/schema/SchemaRowsets.h"

namespace zel::provider::odbc {

// The rows of a checked request. Throws (error published) with the driver's diagnostics.
std::unique_ptr<RowSource> OdbcSchemaRows(const SchemaRequest& request, Connection& connection);

// The driver's type name and CREATE_PARAMS for a column of OLE DB type `type` (SQLGetTypeInfo,
// the first type of the matching SQL type); nothing when the driver has none. The caller holds
// the connection's lock.
struct DriverType {
    std::wstring name;
    std::wstring createParams;  // e.g. "max length" or "precision,scale"
};
std::optional<DriverType> DriverTypeFor(Connection& connection, DBTYPE type, bool isLong);

}  // namespace zel::provider::odbc
