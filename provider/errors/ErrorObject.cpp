#include "provider/errors/ErrorObject.h"

#include <oledberr.h>

#include "common/Bstr.h"

namespace zel::provider {

namespace {

HRESULT CopyText(const std::wstring& text, BSTR* out) {
    if (!out) return E_INVALIDARG;
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

void ErrorObject::Add(std::shared_ptr<const ErrorRecordData> record) {
    std::lock_guard guard(m_lock);
    m_records.insert(m_records.begin(), std::move(record));
}

std::shared_ptr<const ErrorRecordData> ErrorObject::Record(ULONG index) const {
    std::lock_guard guard(m_lock);
    if (index >= m_records.size()) return nullptr;
    return m_records[index];
}

STDMETHODIMP ErrorObject::GetGUID(GUID* guid) {
    try {
        if (!guid) return E_INVALIDARG;
        auto record = Record(0);
        if (!record) return E_FAIL;
        *guid = record->basic.iid;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetSource(BSTR* source) {
    try {
        auto record = Record(0);
        if (!record) return E_FAIL;
        return CopyText(record->source, source);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetDescription(BSTR* description) {
    try {
        auto record = Record(0);
        if (!record) return E_FAIL;
        return CopyText(record->description, description);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetHelpFile(BSTR* helpFile) {
    if (!helpFile) return E_INVALIDARG;
    *helpFile = nullptr;  // ZelLite ships no help file
    return S_OK;
}

STDMETHODIMP ErrorObject::GetHelpContext(DWORD* helpContext) {
    if (!helpContext) return E_INVALIDARG;
    *helpContext = 0;
    return S_OK;
}

STDMETHODIMP ErrorObject::AddErrorRecord(ERRORINFO* info, DWORD, DISPPARAMS*, IUnknown* custom, DWORD) {
    if (!info) return E_INVALIDARG;
    try {
        auto record = std::make_shared<ErrorRecordData>();
        record->basic = *info;
        record->custom = ComPtr<IUnknown>(custom);
        Add(std::move(record));
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetBasicErrorInfo(ULONG index, ERRORINFO* info) {
    try {
        if (!info) return E_INVALIDARG;
        auto record = Record(index);
        if (!record) return DB_E_BADRECORDNUM;
        *info = record->basic;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetCustomErrorObject(ULONG index, REFIID riid, IUnknown** object) {
    if (!object) return E_INVALIDARG;
    *object = nullptr;
    try {
        auto record = Record(index);
        if (!record) return DB_E_BADRECORDNUM;
        if (record->custom) return record->custom->QueryInterface(riid, reinterpret_cast<void**>(object));
        if (record->sqlState.empty()) return S_OK;  // no custom object: null and S_OK
        auto sqlInfo = SqlErrorInfo::Make(record->sqlState, static_cast<LONG>(record->basic.dwMinor));
        return sqlInfo->QueryInterface(riid, reinterpret_cast<void**>(object));
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetErrorInfo(ULONG index, LCID, IErrorInfo** info) {
    if (!info) return E_INVALIDARG;
    *info = nullptr;
    try {
        auto record = Record(index);
        if (!record) return DB_E_BADRECORDNUM;
        *info = ErrorRecordInfo::Make(std::move(record)).detach();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetErrorParameters(ULONG index, DISPPARAMS* params) {
    try {
        if (!params) return E_INVALIDARG;
        if (!Record(index)) return DB_E_BADRECORDNUM;
        *params = DISPPARAMS{};  // descriptions are complete texts: no parameters
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorObject::GetRecordCount(ULONG* count) {
    try {
        if (!count) return E_INVALIDARG;
        std::lock_guard guard(m_lock);
        *count = static_cast<ULONG>(m_records.size());
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ErrorRecordInfo::GetGUID(GUID* guid) {
    if (!guid) return E_INVALIDARG;
    *guid = m_record->basic.iid;
    return S_OK;
}

STDMETHODIMP ErrorRecordInfo::GetSource(BSTR* source) { return CopyText(m_record->source, source); }

STDMETHODIMP ErrorRecordInfo::GetDescription(BSTR* description) {
    return CopyText(m_record->description, description);
}

STDMETHODIMP ErrorRecordInfo::GetHelpFile(BSTR* helpFile) {
    if (!helpFile) return E_INVALIDARG;
    *helpFile = nullptr;
    return S_OK;
}

STDMETHODIMP ErrorRecordInfo::GetHelpContext(DWORD* helpContext) {
    if (!helpContext) return E_INVALIDARG;
    *helpContext = 0;
    return S_OK;
}

STDMETHODIMP SqlErrorInfo::GetSQLInfo(BSTR* sqlState, LONG* nativeError) {
    if (!sqlState || !nativeError) return E_INVALIDARG;
    *nativeError = m_native;
    return CopyText(m_sqlState, sqlState);
}

}  // namespace zel::provider
