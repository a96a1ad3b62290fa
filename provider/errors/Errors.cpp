#include "provider/errors/Errors.h"

#include <oledb.h>
#include <oledberr.h>
#include <transact.h>

#include "common/ComError.h"
#include "provider/errors/ErrorObject.h"

namespace zel::provider {

void PublishError(HRESULT hr, std::wstring_view description, std::wstring_view sqlState, LONG nativeError) noexcept {
    try {
        auto record = std::make_shared<ErrorRecordData>();
        record->basic.hrError = hr;
        record->basic.dwMinor = static_cast<DWORD>(nativeError);
        record->basic.clsid = ProviderErrorOrigin().clsid;
        record->basic.iid = GUID_NULL;
        record->basic.dispid = 0;
        record->source = ProviderErrorOrigin().source;
        record->description = description;
        record->sqlState = sqlState;
        auto object = ErrorObject::Make();
        object->Add(std::move(record));
        ComPtr<IErrorInfo> info(static_cast<IErrorInfo*>(object.get()));
        SetErrorInfo(0, info.get());
    } catch (...) {
        SetErrorInfo(0, nullptr);  // out of memory: no error object rather than a stale one
    }
}

HRESULT ClearErrorAndReturn(HRESULT hr) noexcept {
    SetErrorInfo(0, nullptr);
    return hr;
}

HRESULT FailOrReturn(HRESULT hr, const std::source_location& where) {
    if (FAILED(hr)) Fail(hr, where);
    return ClearErrorAndReturn(hr);
}

void Fail(HRESULT hr, std::wstring_view description, std::wstring_view sqlState, LONG nativeError,
          const std::source_location& where) {
    PublishError(hr, description, sqlState, nativeError);
    ThrowHr(hr, where);
}

void Fail(HRESULT hr, const std::source_location& where) { Fail(hr, DescribeResult(hr), {}, 0, where); }

std::wstring DescribeResult(HRESULT hr) {
    switch (hr) {
    case E_INVALIDARG: return L"An argument was invalid (a required pointer was null or a count did not match its array).";
    case E_OUTOFMEMORY: return L"Out of memory.";
    case E_NOINTERFACE: return L"The object does not support the requested interface.";
    case E_UNEXPECTED: return L"The object is not in a state in which this method can be called (for example, it is not initialized).";
    case DB_E_ALREADYINITIALIZED: return L"The data source is already initialized.";
    case DB_E_NOAGGREGATION: return L"Aggregation was requested with an interface other than IUnknown.";
    case DB_E_OBJECTOPEN: return L"An object (session, rowset or command) that depends on this one is still open.";
    case DB_E_NOCOMMAND: return L"No command text was set.";
    case DB_E_NOTPREPARED: return L"The command is not prepared.";
    case DB_E_DIALECTNOTSUPPORTED: return L"The command dialect is not supported; use DBGUID_DEFAULT or DBGUID_SQL.";
    case DB_E_BADACCESSORHANDLE: return L"The accessor handle is invalid.";
    case DB_E_BADACCESSORTYPE: return L"The accessor is not a row accessor.";
    case DB_E_BADACCESSORFLAGS: return L"The accessor flags are invalid.";
    case DB_E_BYREFACCESSORNOTSUPPORTED: return L"Reference accessors are not supported.";
    case DB_E_NULLACCESSORNOTSUPPORTED: return L"Null accessors are not supported by this method.";
    case DB_E_BADROWHANDLE: return L"The row handle is invalid or was released.";
    case DB_E_DELETEDROW: return L"The row was deleted.";
    case DB_E_BADCHAPTER: return L"The rowset has no chapters.";
    case DB_E_BADORDINAL: return L"The column ordinal is invalid.";
    case DB_E_CANTSCROLLBACKWARDS: return L"The rowset cannot scroll backwards.";
    case DB_E_CANTFETCHBACKWARDS: return L"The rowset cannot fetch backwards.";
    case DB_E_ERRORSOCCURRED: return L"Errors occurred; see the status of each item.";
    case DB_E_NOTABLE: return L"The table does not exist.";
    case DB_E_NOINDEX: return L"Opening a rowset through an index is not supported.";
    case DB_E_BADTABLEID: return L"The table id is invalid.";
    case DB_E_READONLY: return L"The database was opened read-only.";
    case DB_E_NOTSUPPORTED: return L"The operation is not supported.";
    case DB_E_PARAMNOTOPTIONAL: return L"The command has parameters and no values were given for them.";
    case DB_E_BADLOOKUPID: return L"The lookup id is invalid.";
    case DB_E_BADCONVERTFLAG: return L"The conversion flags are invalid.";
    case DB_E_BADTYPE: return L"The type is invalid for this request.";
    case DB_E_CANNOTCONNECT: return L"The database file could not be opened.";
    case XACT_E_XTIONEXISTS: return L"A transaction is already running on this session.";
    case XACT_E_NOTRANSACTION: return L"No transaction is running on this session.";
    case XACT_E_ISOLATIONLEVEL: return L"The isolation level is not supported.";
    case XACT_E_NOTSUPPORTED: return L"Asynchronous or retaining transaction control is not supported.";
    case DB_E_BADRECORDNUM: return L"The error record number is invalid.";
    default: {
        wchar_t text[64];
        swprintf(text, std::size(text), L"The operation failed (HRESULT 0x%08lX).", static_cast<unsigned long>(hr));
        return text;
    }
    }
}

}  // namespace zel::provider
