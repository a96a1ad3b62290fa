// A failure reported by the server, the provider or COM, with what zeldb was doing and the
// server's own error text and statement where it gave them.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

#include "host/TextStreams.h"

namespace zel::zeldb {

class ZelDbError : public std::runtime_error {
public:
    ZelDbError(std::wstring action, HRESULT hr, std::wstring errorText = {}, std::wstring errorStmt = {})
        : std::runtime_error("zeldb error"),
          m_action(std::move(action)),
          m_hr(hr),
          m_errorText(std::move(errorText)),
          m_errorStmt(std::move(errorStmt)) {}

    const std::wstring& action() const noexcept { return m_action; }
    HRESULT code() const noexcept { return m_hr; }
    const std::wstring& errorText() const noexcept { return m_errorText; }
    const std::wstring& errorStmt() const noexcept { return m_errorStmt; }

private:
    std::wstring m_action;
    HRESULT m_hr;
    std::wstring m_errorText;
    std::wstring m_errorStmt;
};

// A readable name and meaning of an HRESULT: the OLE DB and COM codes a user meets, then
// the system's message table; "0x80040E37 DB_E_NOTABLE: the table does not exist".
std::wstring DescribeHresult(HRESULT hr);

// Prints an error as
//   zeldb: <action>
//   <the server's error text, as it gave it>
//   statement: <the failing statement>
// or, when the server gave no text, "zeldb: <action>: <DescribeHresult>". An error whose
// code is S_OK is zeldb's own finding and prints as "zeldb: <action>" alone.
void PrintError(TextSink& err, const ZelDbError& error);

}  // namespace zel::zeldb
