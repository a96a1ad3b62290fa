// What every provider's command object is whatever its database: ICommandText and
// ICommandProperties over a CommandState, ICommand::GetDBSession, IConvertType,
// ISupportErrorInfo, and ICommand reached through QueryInterface. A provider's command derives
// from CommandObject<ItsCommand, ItsSession> and implements Execute, Cancel, ICommandPrepare and
// IColumnsInfo itself. SessionT offers Identity(), the session's controlling unknown.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <utility>

#include "common/ComObject.h"
#include "common/OleDbIids.h"
#include "provider/errors/Errors.h"
#include "provider/objects/CommandState.h"
#include "provider/values/DataConversion.h"

namespace zel::provider {

template <typename Derived, typename SessionT>
class CommandObject : public ComObject<Derived, ICommandText, ICommandProperties, ICommandPrepare, IColumnsInfo,
                                       IConvertType, ISupportErrorInfo> {
public:
    HRESULT QueryExtra(REFIID riid, void** found) noexcept {
        if (riid != IID_ICommand) return E_NOINTERFACE;
        *found = static_cast<ICommand*>(static_cast<ICommandText*>(this));
        return S_OK;
    }

    // ICommand::GetDBSession: the session's interface `riid`, the caller's reference.
    STDMETHODIMP GetDBSession(REFIID riid, IUnknown** session) override {
        try {
            if (!session) Fail(E_INVALIDARG);
            *session = nullptr;
            HRESULT hr = m_session->Identity()->QueryInterface(riid, reinterpret_cast<void**>(session));
            if (FAILED(hr)) Fail(hr);
            return S_OK;
        }
        ZEL_CATCH_RETURN()
    }

    // ICommandText and ICommandProperties: as CommandState says.
    STDMETHODIMP GetCommandText(GUID* dialect, LPOLESTR* text) override {
        try {
            return m_state.GetCommandText(dialect, text);
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP SetCommandText(REFGUID dialect, LPCOLESTR text) override {
        try {
            return m_state.SetCommandText(dialect, text);
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount,
                               DBPROPSET** sets) override {
        try {
            return m_state.GetProperties(idSetCount, idSets, setCount, sets);
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP SetProperties(ULONG setCount, DBPROPSET sets[]) override {
        try {
            return m_state.SetProperties(setCount, sets);
        }
        ZEL_CATCH_RETURN()
    }

    // IConvertType: the provider's own conversions (DataConversion.h); parameters count as
    // taken, so DBCONVERTFLAGS_PARAMETER is accepted.
    STDMETHODIMP CanConvert(DBTYPE from, DBTYPE to, DBCONVERTFLAGS flags) override {
        try {
            if (!ValidConvertFlags(from, flags, true)) Fail(DB_E_BADCONVERTFLAG);
            return zel::provider::CanConvert(from, to) ? S_OK : S_FALSE;
        }
        ZEL_CATCH_RETURN()
    }

    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override {
        return riid == IID_ICommand || riid == IID_ICommandText || riid == IID_ICommandProperties ||
                       riid == IID_ICommandPrepare || riid == IID_IColumnsInfo || riid == IID_IConvertType
                   ? S_OK
                   : S_FALSE;
    }

protected:
    explicit CommandObject(ComPtr<SessionT> session) : m_session(std::move(session)) {}

    ComPtr<SessionT> m_session;
    CommandState m_state;  // text, properties, open rowsets; its lock guards the command
};

}  // namespace zel::provider
