// Result conventions shared by the table, column and index methods.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <vector>

#include "oledb/CatalogEnumeration.h"

namespace zel {

// A text field of the current row: E_FAIL for a missing object, an enumeration without a
// reader, or an empty field (an empty field and a missing one are not told apart), with the
// result untouched. Otherwise a fresh BSTR goes to `out`; a null `out` is E_FAIL when
// `nullOutFails`, skipped otherwise.
HRESULT GetCatalogText(const CatalogEnumeration* enumeration, unsigned field, BSTR* out, bool nullOutFails);

// A one-dimensional SAFEARRAY of BSTR (lower bound 0). An empty list has no array: it throws
// ComError(E_INVALIDARG).
SAFEARRAY* MakeStringArray(const std::vector<std::wstring>& strings);

// Rewinds the enumeration and reads every row to its end, calling `take` for each; the
// enumeration then stands after its last row.
template <typename Take>
void ReadAllRows(CatalogEnumeration& enumeration, Take&& take) {
    enumeration.Rewind();
    while (enumeration.FetchNext()) take();
}

}  // namespace zel
