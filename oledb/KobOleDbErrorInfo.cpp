#include "oledb/KobOleDbErrorInfo.h"

#include <oledb.h>
#include <oaidl.h>

#include <cstdio>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"

namespace zel {
namespace {

// A null string prints as the platform's wide formatter prints a null %s: "(null)".
std::wstring Text(const Bstr& s) { return s.get() ? std::wstring(s.c_str()) : std::wstring(L"(null)"); }

// "%4d": right-aligned in four places.
std::wstring Number4(long value) {
    wchar_t buffer[16];
    _snwprintf(buffer, 16, L"%4ld", value);
    buffer[15] = 0;
    return buffer;
}

std::wstring RecordBlock(ULONG index, IErrorInfo* record) {
    Bstr description, source, helpFile;
    GUID guid = GUID_NULL;
    DWORD helpContext = 0;
    if (FAILED(record->GetDescription(description.put()))) description.reset();
    if (FAILED(record->GetGUID(&guid))) guid = GUID_NULL;
    if (FAILED(record->GetHelpContext(&helpContext))) helpContext = 0;
    if (FAILED(record->GetHelpFile(helpFile.put()))) helpFile.reset();
    if (FAILED(record->GetSource(source.put()))) source.reset();
    wchar_t guidText[40] = {};
    StringFromGUID2(guid, guidText, 40);

    std::wstring block;
    block += L"Row #: " + Number4(static_cast<long>(index)) + L" Source: \"" + Text(source) + L"\"\n";
    block += L"Description: \"" + Text(description) + L"\"\n";
    block += L"Help File: \"" + Text(helpFile) + L"\" Help Context: " + Number4(static_cast<long>(helpContext)) + L"\n";
    block += L"GUID: " + std::wstring(guidText) + L"\n";
    return block;
}

std::wstring SqlStateLine(IErrorRecords* records, ULONG index) {
    ComPtr<IUnknown> custom;
    if (FAILED(records->GetCustomErrorObject(index, IID_ISQLErrorInfo, custom.put())) || !custom) return {};
    ComPtr<ISQLErrorInfo> sqlInfo = custom.try_as<ISQLErrorInfo>();
    Bstr sqlState;
    LONG nativeError = 0;
    // The result is not checked: a failed read leaves the state null and the number 0.
    if (sqlInfo) sqlInfo->GetSQLInfo(sqlState.put(), &nativeError);
    wchar_t number[16];
    _snwprintf(number, 16, L"%i", static_cast<int>(nativeError));
    number[15] = 0;
    return L"SQLState: " + Text(sqlState) + L", NativeError: " + number + L"\n";
}

}  // namespace

bool KobOleDbErrorInfo::CheckResult(HRESULT hr) {
    m_errorText.clear();
    m_errorStmt.clear();
    m_message.clear();
    if (hr == S_OK) return true;

    const LCID lcid = GetSystemDefaultLCID();
    ComPtr<IErrorInfo> errorInfo;
    if (GetErrorInfo(0, errorInfo.put()) != S_OK || !errorInfo) return false;

    ComPtr<IErrorRecords> records = errorInfo.try_as<IErrorRecords>();
    ULONG count = 1;
    if (records && FAILED(records->GetRecordCount(&count))) return false;

    for (ULONG i = 0; i < count; ++i) {
        ComPtr<IErrorInfo> record;
        if (records) {
            if (FAILED(records->GetErrorInfo(i, lcid, record.put())) || !record) break;
        } else {
            record = errorInfo;
        }
        // Each record replaces the text: the host sees the last, innermost record.
        m_errorText = RecordBlock(i, record.get());
        if (records) m_errorText += SqlStateLine(records.get(), i);
    }
    return false;
}

void KobOleDbErrorInfo::SetErrors(const wchar_t* text, const wchar_t* stmt) {
    m_errorText = text ? text : L"";
    m_errorStmt = stmt ? stmt : L"";
}

const std::wstring& KobOleDbErrorInfo::GetMessage(bool includeStatement) {
    m_message = m_errorText;
    if (includeStatement && !m_errorStmt.empty()) m_message += L"\n" + m_errorStmt;
    return m_message;
}

}  // namespace zel
