// ZelLite's error object, published on the calling thread for every failing method: the
// object's IErrorInfo describes its first record; IErrorRecords gives each record, its own
// IErrorInfo and, for records with an SQLSTATE, an ISQLErrorInfo custom error object.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/ComObject.h"
#include "common/OleDbIids.h"

namespace zel::provider {

struct ErrorRecordData {
    ERRORINFO basic{};          // hrError, dwMinor (native error), clsid, iid, dispid
    std::wstring source;
    std::wstring description;
    std::wstring sqlState;      // empty: no ISQLErrorInfo for this record
    ComPtr<IUnknown> custom;    // a custom object given to AddErrorRecord
};

class ErrorObject final : public ComObject<ErrorObject, IErrorInfo, IErrorRecords> {
public:
    ErrorObject() = default;
    void Add(std::shared_ptr<const ErrorRecordData> record);

    // IErrorInfo: the first (most recent) record; E_FAIL when there is none.
    STDMETHODIMP GetGUID(GUID* guid) override;
    STDMETHODIMP GetSource(BSTR* source) override;
    STDMETHODIMP GetDescription(BSTR* description) override;
    STDMETHODIMP GetHelpFile(BSTR* helpFile) override;
    STDMETHODIMP GetHelpContext(DWORD* helpContext) override;

    // IErrorRecords; record 0 is the most recently added one.
    STDMETHODIMP AddErrorRecord(ERRORINFO* info, DWORD lookupId, DISPPARAMS* params, IUnknown* custom,
                                DWORD dynamicId) override;
    STDMETHODIMP GetBasicErrorInfo(ULONG record, ERRORINFO* info) override;
    STDMETHODIMP GetCustomErrorObject(ULONG record, REFIID riid, IUnknown** object) override;
    STDMETHODIMP GetErrorInfo(ULONG record, LCID lcid, IErrorInfo** info) override;
    STDMETHODIMP GetErrorParameters(ULONG record, DISPPARAMS* params) override;
    STDMETHODIMP GetRecordCount(ULONG* count) override;

private:
    std::shared_ptr<const ErrorRecordData> Record(ULONG index) const;

    mutable std::mutex m_lock;
    std::vector<std::shared_ptr<const ErrorRecordData>> m_records;
};

// The IErrorInfo of one record.
class ErrorRecordInfo final : public ComObject<ErrorRecordInfo, IErrorInfo> {
public:
    explicit ErrorRecordInfo(std::shared_ptr<const ErrorRecordData> record) : m_record(std::move(record)) {}
    STDMETHODIMP GetGUID(GUID* guid) override;
    STDMETHODIMP GetSource(BSTR* source) override;
    STDMETHODIMP GetDescription(BSTR* description) override;
    STDMETHODIMP GetHelpFile(BSTR* helpFile) override;
    STDMETHODIMP GetHelpContext(DWORD* helpContext) override;

private:
    std::shared_ptr<const ErrorRecordData> m_record;
};

// The SQLSTATE and native error (SQLite's extended result code) of one record.
class SqlErrorInfo final : public ComObject<SqlErrorInfo, ISQLErrorInfo> {
public:
    SqlErrorInfo(std::wstring sqlState, LONG nativeError) : m_sqlState(std::move(sqlState)), m_native(nativeError) {}
    STDMETHODIMP GetSQLInfo(BSTR* sqlState, LONG* nativeError) override;

private:
    std::wstring m_sqlState;
    LONG m_native;
};

}  // namespace zel::provider
