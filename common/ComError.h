// Error handling shared by every binary: a C++ exception that carries an HRESULT inside
// the server and the provider, and the one conversion back to an HRESULT at each COM
// method boundary. No exception may cross a COM interface.
#pragma once

#include <windows.h>

#include <exception>

// "A method was called at an unexpected time" (winerror.h on Windows; missing from the mingw
// headers): the batch interface's answer for a command that holds no result.
#ifndef E_ILLEGAL_METHOD_CALL
#define E_ILLEGAL_METHOD_CALL ((HRESULT)0x8000000EL)
#endif

namespace zel {

// Thrown for a failed call or a refused operation; `hr` is what the COM method returns.
class ComError : public std::exception {
public:
    explicit ComError(HRESULT hr) noexcept : m_hr(hr) {}
    HRESULT code() const noexcept { return m_hr; }
    const char* what() const noexcept override { return "COM error"; }

private:
    HRESULT m_hr;
};

[[noreturn]] void ThrowHr(HRESULT hr);

// Maps the exception in flight to an HRESULT: ComError gives its code, std::bad_alloc
// E_OUTOFMEMORY, anything else E_UNEXPECTED. Call only from inside a catch block.
HRESULT ResultFromCaughtException() noexcept;

}  // namespace zel

// Throws ComError when `hr` is a failure code; success codes (S_FALSE included) pass.
#define ZEL_THROW_IF_FAILED(expr)                     \
    do {                                              \
        const HRESULT zel_hr_ = (expr);               \
        if (FAILED(zel_hr_)) ::zel::ThrowHr(zel_hr_); \
    } while (0)

// Returns `hr` from the enclosing function when it is a failure code.
#define ZEL_RETURN_IF_FAILED(expr)          \
    do {                                    \
        const HRESULT zel_hr_ = (expr);     \
        if (FAILED(zel_hr_)) return zel_hr_; \
    } while (0)

// Ends a COM method body: `try { ... } ZEL_CATCH_RETURN()`.
#define ZEL_CATCH_RETURN() \
    catch (...) { return ::zel::ResultFromCaughtException(); }
