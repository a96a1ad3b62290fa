// Provider error capture: the base of every object that talks to an OLE DB provider.
// After each provider call the owner hands the call's HRESULT to CheckResult, which keeps
// only a clean S_OK as success and turns the thread's error object into readable text.
#pragma once

#include <windows.h>

#include <string>

#include "common/ExceptionState.h"

namespace zel {

class KobOleDbErrorInfo {
public:
    // Readies the creating thread's exception machinery, so that a provider failure reported
    // while memory is exhausted is thrown and caught rather than ending the process.
    KobOleDbErrorInfo() noexcept { ReserveThreadExceptionState(); }

    // True only for exactly S_OK. Always empties the error text, the statement and the
    // message first; on any other value reads the thread's error object (consuming it) and
    // keeps the block of its last record, with an SQLState line when the record has one.
    bool CheckResult(HRESULT hr);

    const std::wstring& GetErrorText() const noexcept { return m_errorText; }
    const std::wstring& GetErrorStatement() const noexcept { return m_errorStmt; }
    bool HasError() const noexcept { return !m_errorText.empty(); }
    // Replaces both texts; a null argument gives an empty text.
    void SetErrors(const wchar_t* text, const wchar_t* stmt);
    // The error text, followed by "\n" and the statement when asked for and not empty.
    const std::wstring& GetMessage(bool includeStatement);

protected:
    // Owners record the statement they were running when a call failed.
    void SetErrorStatement(const std::wstring& stmt) { m_errorStmt = stmt; }

private:
    std::wstring m_errorText;
    std::wstring m_errorStmt;
    std::wstring m_message;
};

}  // namespace zel
