// Creation of a new, empty database file through the provider's data-source
// administration, without any open connection.
#pragma once

#include <windows.h>

#include "oledb/KobOleDbErrorInfo.h"

namespace zel {

// Creates `mdbFile` with the provider and format that `initString` names (the data source is
// never initialized). Every provider HRESULT is recorded in `errors`; the first failing one
// is returned. A provider that reports E_UNEXPECTED while the file now exists counts as
// success (the error text stays recorded). An existing file is not deleted beforehand.
HRESULT CreateDatabaseFile(BSTR initString, BSTR mdbFile, KobOleDbErrorInfo& errors);

}  // namespace zel
