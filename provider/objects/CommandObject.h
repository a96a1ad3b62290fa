// What every provider's command object is whatever its database: ICommandText and
// ICommandProperties over a CommandState, ICommand::GetDBSession, IConvertType,
// ICommandPrepare and IColumnsInfo's state checks, ISupportErrorInfo, and ICommand reached
// through QueryInterface. A provider's command derives from CommandObject<ItsCommand,
// ItsSession> and implements Execute and Cancel, and for CommandObject:
//   void PrepareText()                         checks the text (called under the state's lock;
//                                              throws, error published, when it is wrong)
//   ComPtr<IColumnsInfo> DescribePrepared()    the columns of the prepared text's result
// SessionT offers Identity(), the session's controlling unknown.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <oledberr.h>

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

    // ICommandPrepare: Prepare fails with DB_E_NOCOMMAND without text and with the provider's
    // error when its check of the text fails; after it IColumnsInfo describes the result.
    STDMETHODIMP Prepare(ULONG) override {
        try {
            std::lock_guard guard(m_state.lock());
            if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
            static_cast<Derived*>(this)->PrepareText();
            m_state.SetPrepared(true);
            return S_OK;
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP Unprepare() override {
        try {
            std::lock_guard guard(m_state.lock());
            m_state.SetPrepared(false);
            return S_OK;
        }
        ZEL_CATCH_RETURN()
    }

    // IColumnsInfo before Execute: DB_E_NOCOMMAND without text, DB_E_NOTPREPARED before Prepare.
    STDMETHODIMP GetColumnInfo(DBORDINAL* count, DBCOLUMNINFO** info, OLECHAR** names) override {
        try {
            if (!count || !info || !names) Fail(E_INVALIDARG);
            *count = 0;
            *info = nullptr;
            *names = nullptr;
            std::lock_guard guard(m_state.lock());
            return Described()->GetColumnInfo(count, info, names);
        }
        ZEL_CATCH_RETURN()
    }
    STDMETHODIMP MapColumnIDs(DBORDINAL count, const DBID ids[], DBORDINAL ordinals[]) override {
        try {
            std::lock_guard guard(m_state.lock());
            return Described()->MapColumnIDs(count, ids, ordinals);
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

    // The prepared text's columns; the caller holds the state's lock.
    ComPtr<IColumnsInfo> Described() {
        if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
        if (!m_state.prepared()) Fail(DB_E_NOTPREPARED);
        return static_cast<Derived*>(this)->DescribePrepared();
    }

    ComPtr<SessionT> m_session;
    CommandState m_state;  // text, properties, open rowsets; its lock guards the command
};

}  // namespace zel::provider
