// The column methods of IZelOleDb: the column enumeration of one table and the properties
// of its current column, identity data included.
#include "service/CatalogResults.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"

namespace zel {
namespace {

using Record = KobOleDbColumns::Record;

// Reads one answer of the current column: E_FAIL for an unknown handle or a null result;
// `fallback` when the enumeration has no reader.
template <typename Out, typename Read>
HRESULT ReadColumn(KobOleDbColumns* columns, Out* result, Out fallback, Read&& read) {
    if (!columns || !result) return E_FAIL;
    *result = columns->HasReader() ? read(*columns) : fallback;
    return S_OK;
}

// Reads one identity answer for the current column: E_FAIL for an unknown handle or a null
// result; `fallback` when there is no identity record for it.
template <typename Out, typename Read>
HRESULT ReadIdentity(KobOleDbColumns* columns, Out* result, Out fallback, Read&& read) {
    if (!columns || !result) return E_FAIL;
    const KobOleDbColumns::Identity* identity = columns->CurrentIdentity();
    *result = identity ? read(*identity) : fallback;
    return S_OK;
}

}  // namespace

STDMETHODIMP ZelOleDbImpl::ColOpen(ULONG* client, BSTR catalog, BSTR schema, BSTR table, BSTR column,
                                   VARIANT_BOOL inclExtendedData, BSTR* errorText, BSTR* errorStmt) {
    try {
        return OpenEnumeration(m_columns, client, errorText, errorStmt, [&](KobOleDbColumns& columns) {
            return columns.Open(m_connection.get(), catalog, schema, table, column, inclExtendedData);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColDestroy(ULONG client) {
    try {
        return DestroyHandle(m_columns, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColClose(ULONG client) {
    try {
        return CloseEnumeration(m_columns, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColFetchNext(ULONG client, VARIANT_BOOL* result) {
    try {
        return ReadColumn<VARIANT_BOOL>(Find(m_columns, client), result, VARIANT_FALSE,
                                        [](KobOleDbColumns& c) { return ToVariantBool(c.FetchNext()); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_columns, client), kFieldColumnName, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetCatalog(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_columns, client), kFieldCatalog, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetSchema(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_columns, client), kFieldSchema, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetTableName(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_columns, client), kFieldTableName, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetDescription(ULONG client, BSTR* result) {
    try {
        return GetCatalogText(Find(m_columns, client), kFieldDescription, result, true);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColOrdinalPosition(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, -1,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().ordinalPosition); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColHasDefault(ULONG client, VARIANT_BOOL* result) {
    try {
        return ReadColumn<VARIANT_BOOL>(Find(m_columns, client), result, VARIANT_FALSE, [](KobOleDbColumns& c) {
            return ToVariantBool(c.Current().hasDefault == VARIANT_TRUE);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColGetDefault(ULONG client, BSTR* result) {
    try {
        KobOleDbColumns* columns = Find(m_columns, client);
        if (!columns || !result) return E_FAIL;
        // No default (or no reader): S_OK with the result as the caller left it.
        if (!columns->HasReader()) return S_OK;
        std::wstring text = FieldText(columns->Current().columnDefault);
        if (!text.empty()) PutString(result, text);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColFlags(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().columnFlags); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColIsNullable(ULONG client, VARIANT_BOOL* result) {
    try {
        return ReadColumn<VARIANT_BOOL>(Find(m_columns, client), result, VARIANT_FALSE, [](KobOleDbColumns& c) {
            return ToVariantBool(c.Current().isNullable == VARIANT_TRUE);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColDataType(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().dataType); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColIsDataType(ULONG client, LONG dataType, VARIANT_BOOL* result) {
    try {
        return ReadColumn<VARIANT_BOOL>(Find(m_columns, client), result, VARIANT_FALSE, [dataType](KobOleDbColumns& c) {
            return ToVariantBool(c.Current().dataType == static_cast<USHORT>(dataType));
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColMaxLength(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0, [](KobOleDbColumns& c) {
            return static_cast<LONG>(c.Current().characterMaximumLength);
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColNumericPrecision(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().numericPrecision); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColNumericScale(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().numericScale); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColPrecision(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0, [](KobOleDbColumns& c) { return c.Precision(); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColDateTimePrecision(ULONG client, LONG* result) {
    try {
        return ReadColumn<LONG>(Find(m_columns, client), result, 0,
                                [](KobOleDbColumns& c) { return static_cast<LONG>(c.Current().datetimePrecision); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColIsIdentity(ULONG client, VARIANT_BOOL* result) {
    try {
        return ReadIdentity<VARIANT_BOOL>(Find(m_columns, client), result, VARIANT_FALSE,
                                          [](const KobOleDbColumns::Identity& i) { return ToVariantBool(i.isIdentity); });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColSeed(ULONG client, LONG* result) {
    try {
        return ReadIdentity<LONG>(Find(m_columns, client), result, -1,
                                  [](const KobOleDbColumns::Identity& i) { return i.seed; });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::ColIncrement(ULONG client, LONG* result) {
    try {
        return ReadIdentity<LONG>(Find(m_columns, client), result, -1,
                                  [](const KobOleDbColumns::Identity& i) { return i.increment; });
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
