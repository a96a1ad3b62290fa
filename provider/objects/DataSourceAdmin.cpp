// IDBDataSourceAdmin and IJetCompact of the data source: creating and destroying its database
// file, and writing a compacted copy of it.
#include <oledberr.h>

#include <span>
#include <vector>

#include "common/ComError.h"
#include "provider/errors/Errors.h"
#include "provider/objects/DataSource.h"
#include "provider/objects/Session.h"
#include "provider/properties/DataSourceProperties.h"
#include "provider/sqlite/DatabaseFile.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// A count with a null array is E_INVALIDARG, as in every OLE DB property method.
void CheckPropertySets(ULONG setCount, const DBPROPSET* sets) {
    if (setCount && !sets) Fail(E_INVALIDARG, L"A property-set count was given without its array.");
    for (ULONG s = 0; s < setCount; ++s)
        if (sets[s].cProperties && !sets[s].rgProperties)
            Fail(E_INVALIDARG, L"A property count was given without its array.");
}

// Whether a property of `sets` (statuses written) failed where the caller required it, or at all.
bool RequiredPropertyFailed(std::span<const DBPROPSET> sets) {
    for (const DBPROPSET& set : sets)
        for (ULONG p = 0; p < set.cProperties; ++p) {
            const DBPROP& prop = set.rgProperties[p];
            if (prop.dwStatus != DBPROPSTATUS_OK && prop.dwOptions != DBPROPOPTIONS_OPTIONAL) return true;
        }
    return false;
}

bool AnyPropertyFailed(std::span<const DBPROPSET> sets) {
    for (const DBPROPSET& set : sets)
        for (ULONG p = 0; p < set.cProperties; ++p)
            if (set.rgProperties[p].dwStatus != DBPROPSTATUS_OK) return true;
    return false;
}

void SetStatuses(std::span<DBPROPSET> sets, DBPROPSTATUS status) {
    for (DBPROPSET& set : sets)
        for (ULONG p = 0; p < set.cProperties; ++p) set.rgProperties[p].dwStatus = status;
}

}  // namespace

STDMETHODIMP DataSource::CreateDataSource(ULONG setCount, DBPROPSET sets[], IUnknown* outer, REFIID riid,
                                          IUnknown** session) {
    try {
        try {
            if (session) *session = nullptr;
            CheckPropertySets(setCount, sets);
            if (session && outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
            std::lock_guard guard(m_lock);
            if (m_database) Fail(DB_E_ALREADYINITIALIZED);
            // Session properties are for the session; the rest are the data source's. The
            // copies share the caller's property arrays, so statuses reach the caller.
            std::vector<DBPROPSET> sourceSets, sessionSets;
            for (ULONG s = 0; s < setCount; ++s)
                (sets[s].guidPropertySet == DBPROPSET_SESSION ? sessionSets : sourceSets).push_back(sets[s]);
            ComPtr<IUnknown> newSession;
            CreateAndOpen(sourceSets, sessionSets, outer, riid, session ? &newSession : nullptr);
            if (session) *session = newSession.detach();
            return ClearErrorAndReturn(AnyPropertyFailed({sets, setCount}) ? DB_S_ERRORSOCCURRED : S_OK);
        } catch (...) {
            // Callers take E_UNEXPECTED from this method to mean "the file exists now", so an
            // unforeseen failure, which would otherwise map to it, is reported as E_FAIL.
            if (ResultFromCaughtException() == E_UNEXPECTED)
                Fail(E_FAIL, L"The database file could not be created because of an internal error.");
            throw;
        }
    }
    ZEL_CATCH_RETURN()
}

void DataSource::CreateAndOpen(std::span<DBPROPSET> sourceSets, std::span<DBPROPSET> sessionSets, IUnknown* outer,
                               REFIID riid, ComPtr<IUnknown>* session) {
    PropertyStore savedProperties = m_properties;
    ConnectionOptions savedOptions = m_options;
    std::wstring createdFile;
    try {
        HRESULT hr = ApplyProperties(static_cast<ULONG>(sourceSets.size()), sourceSets.data());
        if (FAILED(hr) && hr != DB_E_ERRORSOCCURRED) Fail(hr);
        if (RequiredPropertyFailed(sourceSets))
            Fail(DB_E_ERRORSOCCURRED, L"No database file was created: a required property could not be set; see "
                                      L"each property's status.");
        const OpenOptions options = InitOptions();
        if (options.path.empty())
            Fail(E_INVALIDARG, L"No database file was created: DBPROP_INIT_DATASOURCE (\"Data Source\") must give "
                               L"the path of the new file.");
        CreateDatabaseFile(options.path);
        createdFile = options.path;
        m_database = Database::Open(options);
        MarkInitialized(options);

        if (!session) {
            SetStatuses(sessionSets, DBPROPSTATUS_OK);  // ignored without a session
            return;
        }
        hr = Session::CreateInstance(outer, riid, session->put_void(), ComPtr<DataSource>(this),
                                     Database::Open(options));
        if (FAILED(hr)) Fail(hr);
        if (!sessionSets.empty()) {
            ComPtr<ISessionProperties> properties;
            ZEL_THROW_IF_FAILED(session->query(properties));
            hr = properties->SetProperties(static_cast<ULONG>(sessionSets.size()), sessionSets.data());
            if (FAILED(hr) && hr != DB_E_ERRORSOCCURRED) Fail(hr);
            if (RequiredPropertyFailed(sessionSets))
                Fail(DB_E_ERRORSOCCURRED, L"No database file was created: a required session property could not "
                                          L"be set; see each property's status.");
        }
    } catch (...) {
        // Undo in reverse, keeping the error object already published for the caller.
        if (session) session->reset();
        m_database.reset();
        if (!createdFile.empty()) {
            ComPtr<IErrorInfo> error;
            GetErrorInfo(0, error.put());
            try {
                DeleteDatabaseFile(createdFile);
            } catch (...) {
                // Only the file this call made can stay; the first failure is the one to report.
            }
            SetErrorInfo(0, error.get());
        }
        m_properties = std::move(savedProperties);
        m_options = std::move(savedOptions);
        throw;
    }
}

STDMETHODIMP DataSource::DestroyDataSource() {
    try {
        std::lock_guard guard(m_lock);
        if (!m_database) Fail(E_UNEXPECTED, L"The data source is not initialized: there is no database file to destroy.");
        if (m_sessions > 0)
            Fail(DB_E_OBJECTOPEN, L"Sessions of this data source are still open; release them before destroying "
                                  L"the database file.");
        const OpenOptions options = m_database->options();
        m_database.reset();  // the data source's own connection holds the file open
        try {
            DeleteDatabaseFile(options.path);
        } catch (...) {
            // The file stays, and so does the data source on it; the delete's error is the one
            // to report, whatever reopening publishes.
            ComPtr<IErrorInfo> error;
            GetErrorInfo(0, error.put());
            try {
                m_database = Database::Open(options);
            } catch (...) {
                MarkUninitialized();
            }
            SetErrorInfo(0, error.get());
            throw;
        }
        MarkUninitialized();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP DataSource::GetCreationProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                               DBPROPINFOSET** infoSets, OLECHAR** descriptions) {
    try {
        std::lock_guard guard(m_lock);
        return FailOrReturn(m_properties.GetPropertyInfo(idSetCount, idSets, infoSetCount, infoSets, descriptions,
                                                         UninitializedDataSourceSets()));
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP DataSource::ModifyDataSource(ULONG setCount, DBPROPSET sets[]) {
    try {
        CheckPropertySets(setCount, sets);
        RequireInitialized();
        ULONG total = 0;
        for (ULONG s = 0; s < setCount; ++s)
            for (ULONG p = 0; p < sets[s].cProperties; ++p) {
                DBPROP& prop = sets[s].rgProperties[p];
                ++total;
                if (!m_properties.Find(sets[s].guidPropertySet, prop.dwPropertyID) ||
                    sets[s].guidPropertySet != DBPROPSET_DBINIT)
                    prop.dwStatus = DBPROPSTATUS_NOTSUPPORTED;
                else
                    prop.dwStatus =
                        prop.dwOptions == DBPROPOPTIONS_OPTIONAL ? DBPROPSTATUS_NOTSET : DBPROPSTATUS_NOTSETTABLE;
            }
        if (total == 0) return ClearErrorAndReturn(S_OK);
        Fail(DB_E_ERRORSOCCURRED, L"Nothing about an existing ZelLite database file can be modified; see each "
                                  L"property's status.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP DataSource::Compact(ULONG setCount, DBPROPSET sets[]) {
    try {
        CheckPropertySets(setCount, sets);
        auto database = RequireInitialized();
        // The target is the one property that applies; a later one overrides an earlier one.
        const VARIANT* target = nullptr;
        for (ULONG s = 0; s < setCount; ++s)
            for (ULONG p = 0; p < sets[s].cProperties; ++p) {
                DBPROP& prop = sets[s].rgProperties[p];
                if (prop.dwOptions != DBPROPOPTIONS_REQUIRED && prop.dwOptions != DBPROPOPTIONS_OPTIONAL) {
                    prop.dwStatus = DBPROPSTATUS_BADOPTION;
                } else if (sets[s].guidPropertySet != DBPROPSET_DBINIT || prop.dwPropertyID != DBPROP_INIT_DATASOURCE) {
                    prop.dwStatus = DBPROPSTATUS_NOTSUPPORTED;
                } else if (V_VT(&prop.vValue) != VT_BSTR) {
                    prop.dwStatus = DBPROPSTATUS_BADVALUE;
                } else {
                    prop.dwStatus = DBPROPSTATUS_OK;
                    target = &prop.vValue;
                }
            }
        const std::span<const DBPROPSET> given(sets, setCount);
        if (RequiredPropertyFailed(given))
            Fail(DB_E_ERRORSOCCURRED, L"No compacted copy was written: a required property is not supported or "
                                      L"has a value of the wrong type; see each property's status.");
        const std::wstring name =
            target && V_BSTR(target) ? Trim(std::wstring(V_BSTR(target), SysStringLen(V_BSTR(target)))) : L"";
        if (name.empty())
            Fail(E_INVALIDARG, L"No compacted copy was written: DBPROP_INIT_DATASOURCE in the DBINIT set must give "
                               L"the path of the new file.");
        WriteCompactedCopy(database->options(), FullPath(name));
        return ClearErrorAndReturn(AnyPropertyFailed(given) ? DB_S_ERRORSOCCURRED : S_OK);
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
