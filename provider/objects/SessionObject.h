// What every provider's session object is whatever its database: IGetDataSource, the session
// properties (ISessionProperties), IDBSchemaRowset::GetSchemas, ITransactionLocal's options
// object, ISupportErrorInfo, ITransaction and ITableDefinition reached through QueryInterface,
// and the count of open sessions its data source keeps. A provider's session derives from
// SessionObject<ItsSession, ItsDataSource, ExtraInterfaces...> and implements the rest.
// DataSourceT offers Identity(), SessionOpened() and SessionClosed().
#pragma once

#include <windows.h>
#include <oledb.h>
#include <transact.h>

#include <mutex>
#include <utility>

#include "common/ComObject.h"
#include "common/OleDbIids.h"
#include "provider/errors/Errors.h"
#include "provider/objects/SchemaRowsetOpening.h"
#include "provider/properties/PropertyStore.h"
#include "provider/properties/SessionProperties.h"

namespace zel::provider {

template <typename Derived, typename DataSourceT, typename... Extra>
class SessionObject : public ComObject<Derived, IGetDataSource, IOpenRowset, IDBCreateCommand, ISessionProperties,
                                       ITransactionLocal, IDBSchemaRowset, ITableCreation, Extra..., ISupportErrorInfo> {
public:
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid == IID_ITransaction)
            *found = static_cast<ITransaction*>(static_cast<ITransactionLocal*>(this));
        else if (riid == IID_ITableDefinition)
            *found = static_cast<ITableDefinition*>(static_cast<ITableCreation*>(this));
        else
            return E_NOINTERFACE;
        return S_OK;
    }

    // The object clients see (the outer object when aggregated).
    IUnknown* Identity() noexcept { return this->ControllingUnknown(); }

    // IGetDataSource: the data source's interface `riid`, the caller's reference.
    STDMETHODIMP GetDataSource(REFIID riid, IUnknown** dataSource) override {
        try {
            if (!dataSource) Fail(E_INVALIDARG);
            *dataSource = nullptr;
            HRESULT hr = m_dataSource->Identity()->QueryInterface(riid, reinterpret_cast<void**>(dataSource));
            if (FAILED(hr)) Fail(hr);
            return S_OK;
        }
        ZEL_CATCH_RETURN()
    }

    // ISessionProperties (DBPROPSET_SESSION).
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override {
        try {
            std::lock_guard guard(m_propertiesLock);
            return FailOrReturn(m_properties.GetProperties(idSetCount, idSets, setCount, sets, SessionPropertySets()));
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP SetProperties(ULONG setCount, DBPROPSET sets[]) override {
        try {
            std::lock_guard guard(m_propertiesLock);
            return FailOrReturn(m_properties.SetProperties(setCount, sets, SessionPropertySets(), nullptr));
        }
        ZEL_CATCH_RETURN()
    }

    // IDBSchemaRowset::GetSchemas: as SchemaRowsetOpening.h says.
    STDMETHODIMP GetSchemas(ULONG* schemaCount, GUID** schemas, ULONG** restrictionSupport) override {
        return WriteSupportedSchemas(schemaCount, schemas, restrictionSupport);
    }

    // ITransactionLocal::GetOptionsObject: transaction options are not offered (E_NOTIMPL).
    STDMETHODIMP GetOptionsObject(ITransactionOptions** options) override {
        try {
            if (!options) Fail(E_INVALIDARG);
            *options = nullptr;
            Fail(E_NOTIMPL, L"Transaction options (time-out, description) are not supported.");
        }
        ZEL_CATCH_RETURN()
    }

    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override {
        return riid == IID_IGetDataSource || riid == IID_IOpenRowset || riid == IID_IDBCreateCommand ||
                       riid == IID_ISessionProperties || riid == IID_ITransactionLocal ||
                       riid == IID_ITransaction || riid == IID_IDBSchemaRowset || riid == IID_ITableDefinition ||
                       riid == IID_ITableCreation || ((riid == IidOf<Extra>()) || ...)
                   ? S_OK
                   : S_FALSE;
    }

protected:
    // `autocommitLevels`: the isolation of work done outside a transaction, as
    // DBPROP_SESS_AUTOCOMMITISOLEVELS reports it.
    SessionObject(ComPtr<DataSourceT> dataSource, LONG autocommitLevels)
        : m_dataSource(std::move(dataSource)), m_properties(SessionPropertyDefinitions()) {
        m_properties.PutI4(DBPROPSET_SESSION, DBPROP_SESS_AUTOCOMMITISOLEVELS, autocommitLevels);
        m_properties.CaptureDefaults();
        m_dataSource->SessionOpened();
    }
    ~SessionObject() override { m_dataSource->SessionClosed(); }

    ComPtr<DataSourceT> m_dataSource;

private:
    std::mutex m_propertiesLock;
    PropertyStore m_properties;
};

}  // namespace zel::provider
