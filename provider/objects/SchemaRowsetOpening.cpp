#include "provider/objects/SchemaRowsetOpening.h"

#include <oledberr.h>

#include "common/OleDbMemory.h"
#include "provider/errors/Errors.h"
#include "provider/objects/Rowset.h"
#include "provider/properties/RowsetProperties.h"

namespace zel::provider {

namespace {

// Schema rowsets are read-only: IRowsetChange and an updatability cannot be set on them.
DBPROPSTATUS ValidateSchemaRowsetProperty(const PropertyDefinition& def, const VARIANT& value, bool& handled) {
    if (def.id == DBPROP_IRowsetChange && V_VT(&value) == VT_BOOL && V_BOOL(&value) != VARIANT_FALSE)
        return DBPROPSTATUS_NOTSETTABLE;
    if (def.id == DBPROP_UPDATABILITY && V_VT(&value) == VT_I4 && V_I4(&value) != 0) return DBPROPSTATUS_NOTSETTABLE;
    return ValidateRowsetProperty(def, value, handled);
}

bool RequiredPropertyFailed(ULONG setCount, const DBPROPSET sets[]) {
    for (ULONG s = 0; s < setCount; ++s)
        for (ULONG p = 0; p < sets[s].cProperties; ++p) {
            const DBPROP& prop = sets[s].rgProperties[p];
            if (prop.dwOptions == DBPROPOPTIONS_REQUIRED && prop.dwStatus != DBPROPSTATUS_OK) return true;
        }
    return false;
}

}  // namespace

HRESULT OpenSchemaRowset(IUnknown* outer, REFGUID schema, ULONG restrictionCount, const VARIANT restrictions[], REFIID riid,
                         ULONG setCount, DBPROPSET sets[], IUnknown** rowset, IUnknown* creator,
                         const SchemaRowsBuilder& build) {
    try {
        if (rowset) *rowset = nullptr;
        if (!rowset) Fail(E_INVALIDARG, L"No place was given for the rowset.");
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        const SchemaRequest request(schema, restrictionCount, restrictions);

        PropertyStore properties = MakeRowsetProperties();
        HRESULT propertiesResult =
            properties.SetProperties(setCount, sets, RowsetPropertySets(), ValidateSchemaRowsetProperty);
        if (propertiesResult == E_INVALIDARG) Fail(E_INVALIDARG, L"A property set has properties but no array.");
        if (FAILED(propertiesResult) || RequiredPropertyFailed(setCount, sets))
            Fail(DB_E_ERRORSOCCURRED, L"A required rowset property cannot be satisfied; see each property's status.");

        std::unique_ptr<RowSource> source = build(request);
        // Rows held in memory, without the database: the rowset cannot be changed.
        HRESULT hr = Rowset::CreateInstance(outer, riid, reinterpret_cast<void**>(rowset), nullptr, std::move(source),
                                            std::move(properties), ComPtr<IUnknown>(creator));
        if (FAILED(hr)) Fail(hr);
        return ClearErrorAndReturn(propertiesResult);
    }
    ZEL_CATCH_RETURN()
}

HRESULT WriteSupportedSchemas(ULONG* schemaCount, GUID** schemas, ULONG** restrictionSupport) {
    try {
        if (schemaCount) *schemaCount = 0;
        if (schemas) *schemas = nullptr;
        if (restrictionSupport) *restrictionSupport = nullptr;
        if (!schemaCount || !schemas || !restrictionSupport) Fail(E_INVALIDARG);
        const std::vector<SchemaSupport> supported = SupportedSchemas();
        CoTaskMem<GUID> guids(AllocateZeroed<GUID>(supported.size()));
        CoTaskMem<ULONG> masks(AllocateZeroed<ULONG>(supported.size()));
        for (size_t i = 0; i < supported.size(); ++i) {
            guids[i] = *supported[i].schema;
            masks[i] = supported[i].restrictionMask;
        }
        *schemaCount = static_cast<ULONG>(supported.size());
        *schemas = guids.release();
        *restrictionSupport = masks.release();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
