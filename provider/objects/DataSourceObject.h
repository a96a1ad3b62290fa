// What every provider's data source object is whatever its database: IDBProperties over the
// data-source property sets (DBINIT before initialization; DATASOURCEINFO and DATASOURCE after
// it), IPersist, ISupportErrorInfo, and the count of open sessions. A provider's data source
// derives from DataSourceObject<ItsDataSource, ExtraInterfaces...> and supplies:
//   static constexpr const CLSID& kClassId          its CLSID (IPersist::GetClassID)
//   bool Initialized() const                       under m_lock
//   HRESULT ApplyProperties(ULONG, DBPROPSET[])    SetProperties' work under m_lock: statuses
//                                                  written, S_OK, DB_S_/DB_E_ERRORSOCCURRED or
//                                                  E_INVALIDARG returned
// and implements IDBInitialize, IDBCreateSession and its extra interfaces.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <atomic>
#include <mutex>

#include "common/ComObject.h"
#include "common/OleDbIids.h"
#include "provider/errors/Errors.h"
#include "provider/properties/DataSourceProperties.h"
#include "provider/properties/PropertyStore.h"

namespace zel::provider {

template <typename Derived, typename... Extra>
class DataSourceObject
    : public ComObject<Derived, IDBInitialize, IDBProperties, IPersist, IDBCreateSession, Extra..., ISupportErrorInfo> {
public:
    // The object clients see (the outer object when aggregated).
    IUnknown* Identity() noexcept { return this->ControllingUnknown(); }
    // Sessions count themselves, so that Uninitialize can refuse while one is open.
    void SessionOpened() noexcept { ++m_sessions; }
    void SessionClosed() noexcept { --m_sessions; }

    // IDBProperties. Arrays returned are the caller's (CoTaskMemFree).
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override {
        try {
            std::lock_guard guard(m_lock);
            return FailOrReturn(m_properties.GetProperties(idSetCount, idSets, setCount, sets, VisibleSets()));
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP GetPropertyInfo(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* infoSetCount,
                                 DBPROPINFOSET** infoSets, OLECHAR** descriptions) override {
        try {
            std::lock_guard guard(m_lock);
            return FailOrReturn(
                m_properties.GetPropertyInfo(idSetCount, idSets, infoSetCount, infoSets, descriptions, VisibleSets()));
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP SetProperties(ULONG setCount, DBPROPSET sets[]) override {
        try {
            std::lock_guard guard(m_lock);
            return FailOrReturn(static_cast<Derived*>(this)->ApplyProperties(setCount, sets));
        }
        ZEL_CATCH_RETURN()
    }

    // IPersist
    STDMETHODIMP GetClassID(CLSID* clsid) override {
        if (!clsid) return E_INVALIDARG;
        *clsid = Derived::kClassId;
        return S_OK;
    }

    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override {
        return riid == IID_IDBInitialize || riid == IID_IDBProperties || riid == IID_IDBCreateSession ||
                       ((riid == IidOf<Extra>()) || ...)
                   ? S_OK
                   : S_FALSE;
    }

protected:
    DataSourceObject() : m_properties(DataSourcePropertyDefinitions()) {
        m_properties.PutI4(DBPROPSET_DATASOURCEINFO, DBPROP_CONNECTIONSTATUS, DBPROPVAL_CS_UNINITIALIZED);
    }

    std::span<const GUID* const> VisibleSets() const {
        return static_cast<const Derived*>(this)->Initialized() ? InitializedDataSourceSets()
                                                                : UninitializedDataSourceSets();
    }

    mutable std::mutex m_lock;
    PropertyStore m_properties;
    std::atomic<LONG> m_sessions{0};
};

}  // namespace zel::provider
