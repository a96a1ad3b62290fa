// How a provider fails: every failure publishes the provider's error object on the calling thread
// (SetErrorInfo) and then throws ComError; the interface method's ZEL_CATCH_RETURN() turns the
// exception into its HRESULT. So a client that calls GetErrorInfo after any failed method finds
// the provider's own description, SQLSTATE and native error.
#pragma once

#include <windows.h>

#include <source_location>
#include <string>
#include <string_view>

namespace zel::provider {

// Who reports the errors published here: the CLSID and source name every error record carries.
// Each provider DLL defines it once, with its own identity.
struct ErrorOrigin {
    CLSID clsid;
    const wchar_t* source;
};
const ErrorOrigin& ProviderErrorOrigin() noexcept;

// Publishes an error object with one record and throws ComError(hr). Each of these records
// its caller's file and line in the ComError (`where`, left to its default).
[[noreturn]] void Fail(HRESULT hr, std::wstring_view description, std::wstring_view sqlState = {},
                       LONG nativeError = 0, const std::source_location& where = std::source_location::current());
// As above with the standard description of `hr`.
[[noreturn]] void Fail(HRESULT hr, const std::source_location& where = std::source_location::current());
// Publishes without throwing (for methods that return a failure code directly).
void PublishError(HRESULT hr, std::wstring_view description, std::wstring_view sqlState = {},
                  LONG nativeError = 0) noexcept;
// Removes any error object from the calling thread, so that a warning result (DB_S_...) is not
// read together with a stale error object.
HRESULT ClearErrorAndReturn(HRESULT hr) noexcept;
// The end of a method that passes on another operation's result: a failure code fails with
// its standard description; S_OK or a warning is returned with no error object left behind.
HRESULT FailOrReturn(HRESULT hr, const std::source_location& where = std::source_location::current());

// A readable description of an OLE DB or COM result code.
std::wstring DescribeResult(HRESULT hr);

}  // namespace zel::provider
