#include "provider/properties/DataSourceProperties.h"

namespace zel::provider {

namespace {

constexpr DBPROPFLAGS kInit = DBPROPFLAGS_DBINIT | DBPROPFLAGS_READ | DBPROPFLAGS_WRITE;
constexpr DBPROPFLAGS kInfo = DBPROPFLAGS_DATASOURCEINFO | DBPROPFLAGS_READ;
constexpr DBPROPFLAGS kSource = DBPROPFLAGS_DATASOURCE | DBPROPFLAGS_READ | DBPROPFLAGS_WRITE;
constexpr VARTYPE kHandleType = sizeof(void*) == 8 ? VT_I8 : VT_I4;

const PropertyDefinition kDefinitions[] = {
    {&DBPROPSET_DBINIT, DBPROP_AUTH_CACHE_AUTHINFO, VT_BOOL, kInit, L"Cache Authentication"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_ENCRYPT_PASSWORD, VT_BOOL, kInit, L"Encrypt Password"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_INTEGRATED, VT_BSTR, kInit, L"Integrated Security"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_MASK_PASSWORD, VT_BOOL, kInit, L"Mask Password"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_PASSWORD, VT_BSTR, kInit, L"Password"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_PERSIST_ENCRYPTED, VT_BOOL, kInit, L"Persist Encrypted"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_PERSIST_SENSITIVE_AUTHINFO, VT_BOOL, kInit, L"Persist Security Info"},
    {&DBPROPSET_DBINIT, DBPROP_AUTH_USERID, VT_BSTR, kInit, L"User ID"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_ASYNCH, VT_I4, kInit, L"Asynchronous Processing"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_BINDFLAGS, VT_I4, kInit, L"Bind Flags"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_CATALOG, VT_BSTR, kInit, L"Initial Catalog"},
    {&DBPROPSET_DBINIT, kStrayCatalogPropertyId, VT_BSTR, kInit, L"Initial Catalog"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_DATASOURCE, VT_BSTR, kInit, L"Data Source"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_GENERALTIMEOUT, VT_I4, kInit, L"General Timeout"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_HWND, kHandleType, kInit, L"Window Handle"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_IMPERSONATION_LEVEL, VT_I4, kInit, L"Impersonation Level"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_LCID, VT_I4, kInit, L"Locale Identifier"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_LOCATION, VT_BSTR, kInit, L"Location"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_LOCKOWNER, VT_BSTR, kInit, L"Lock Owner"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_MODE, VT_I4, kInit, L"Mode"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_OLEDBSERVICES, VT_I4, kInit, L"OLE DB Services"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_PROMPT, VT_I2, kInit, L"Prompt"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_PROTECTION_LEVEL, VT_I4, kInit, L"Protection level"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_PROVIDERSTRING, VT_BSTR, kInit, L"Extended Properties"},
    {&DBPROPSET_DBINIT, DBPROP_INIT_TIMEOUT, VT_I4, kInit, L"Connect Timeout"},

    {&DBPROPSET_DATASOURCEINFO, DBPROP_ACTIVESESSIONS, VT_I4, kInfo, L"Active Sessions"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_BYREFACCESSORS, VT_BOOL, kInfo, L"Pass By Ref Accessors"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS, VT_I4, kInfo, L"Connection Status"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCENAME, VT_BSTR, kInfo, L"Data Source Name"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_DATASOURCEREADONLY, VT_BOOL, kInfo, L"Read-Only Data Source"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_DBMSNAME, VT_BSTR, kInfo, L"DBMS Name"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_DBMSVER, VT_BSTR, kInfo, L"DBMS Version"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_DSOTHREADMODEL, VT_I4, kInfo, L"Data Source Object Threading Model"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_IDENTIFIERCASE, VT_I4, kInfo, L"Identifier Case Sensitivity"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_MULTIPLERESULTS, VT_I4, kInfo, L"Multiple Results"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_MULTIPLESTORAGEOBJECTS, VT_BOOL, kInfo, L"Multiple Storage Objects"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_NULLCOLLATION, VT_I4, kInfo, L"NULL Collation Order"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERFILENAME, VT_BSTR, kInfo, L"Provider Name"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERFRIENDLYNAME, VT_BSTR, kInfo, L"Provider Friendly Name"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDEROLEDBVER, VT_BSTR, kInfo, L"OLE DB Version"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_PROVIDERVER, VT_BSTR, kInfo, L"Provider Version"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_QUOTEDIDENTIFIERCASE, VT_I4, kInfo, L"Quoted Identifier Sensitivity"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_ROWSETCONVERSIONSONCOMMAND, VT_BOOL, kInfo, L"Rowset Conversions on Command"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_SQLSUPPORT, VT_I4, kInfo, L"SQL Support"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_SUPPORTEDTXNDDL, VT_I4, kInfo, L"Transaction DDL"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_SUPPORTEDTXNISOLEVELS, VT_I4, kInfo, L"Isolation Levels"},
    {&DBPROPSET_DATASOURCEINFO, DBPROP_TABLETERM, VT_BSTR, kInfo, L"Table Term"},

    {&DBPROPSET_DATASOURCE, DBPROP_CURRENTCATALOG, VT_BSTR, kSource, L"Current Catalog"},
};

const GUID* const kUninitialized[] = {&DBPROPSET_DBINIT};
const GUID* const kInitialized[] = {&DBPROPSET_DBINIT, &DBPROPSET_DATASOURCEINFO, &DBPROPSET_DATASOURCE};

}  // namespace

std::span<const PropertyDefinition> DataSourcePropertyDefinitions() { return kDefinitions; }
std::span<const GUID* const> UninitializedDataSourceSets() { return kUninitialized; }
std::span<const GUID* const> InitializedDataSourceSets() { return kInitialized; }

DBPROPSTATUS CheckInitProperty(const PropertyDefinition& def, const VARIANT& value, PropertyStore& store) {
    switch (def.id) {
    case DBPROP_INIT_MODE:
        if (V_VT(&value) == VT_I4 && (V_I4(&value) & ~0x1F)) return DBPROPSTATUS_BADVALUE;
        return DBPROPSTATUS_OK;
    case DBPROP_INIT_PROMPT:
        if (V_VT(&value) == VT_I2 && (V_I2(&value) < DBPROMPT_PROMPT || V_I2(&value) > DBPROMPT_NOPROMPT))
            return DBPROPSTATUS_BADVALUE;
        return DBPROPSTATUS_OK;
    case kStrayCatalogPropertyId:
        store.Put(DBPROPSET_DBINIT, DBPROP_INIT_CATALOG, value);
        return DBPROPSTATUS_OK;
    default: return DBPROPSTATUS_OK;
    }
}

void PutProviderInfo(PropertyStore& store, const wchar_t* fileName, const wchar_t* friendlyName,
                     const wchar_t* version) {
    const auto& set = DBPROPSET_DATASOURCEINFO;
    store.PutI4(set, DBPROP_CONNECTIONSTATUS, DBPROPVAL_CS_INITIALIZED);
    store.PutString(set, DBPROP_PROVIDERFILENAME, fileName);
    store.PutString(set, DBPROP_PROVIDERFRIENDLYNAME, friendlyName);
    store.PutString(set, DBPROP_PROVIDEROLEDBVER, L"02.70");
    store.PutString(set, DBPROP_PROVIDERVER, version);
    store.PutI4(set, DBPROP_ACTIVESESSIONS, 0);
    store.PutBool(set, DBPROP_BYREFACCESSORS, false);
    store.PutI4(set, DBPROP_DSOTHREADMODEL, DBPROPVAL_RT_FREETHREAD);
    store.PutI4(set, DBPROP_MULTIPLERESULTS, 0);
    store.PutBool(set, DBPROP_MULTIPLESTORAGEOBJECTS, true);
    store.PutBool(set, DBPROP_ROWSETCONVERSIONSONCOMMAND, true);
    store.PutI4(set, DBPROP_SQLSUPPORT, DBPROPVAL_SQL_ODBC_CORE | DBPROPVAL_SQL_ANSI92_ENTRY);
    store.PutI4(set, DBPROP_SUPPORTEDTXNDDL, DBPROPVAL_TC_ALL);
    store.PutString(set, DBPROP_TABLETERM, L"Table");
}

}  // namespace zel::provider
