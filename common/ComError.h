// Error handling shared by every binary: a C++ exception that carries an HRESULT inside
// the server and the provider, and the one conversion back to an HRESULT at each COM
// method boundary. No exception may cross a COM interface.
//
// A ComError remembers where it was raised (source file, line, and the failing expression
// when a check macro raised it). With the error trace on, each raise and each conversion at
// a boundary is written with OutputDebugStringW, which Wine 8.0 shows as a warning of its seh
// channel (WINEDEBUG=warn+seh; +debugstr alone shows nothing there). The trace is off unless ZEL_ERROR_TRACE is set to a value other
// than 0 in the environment (read once per module) or ErrorTrace::Enable turns it on; while
// it is off nothing is formatted.
#pragma once

#include <windows.h>

#include <exception>
#include <source_location>
#include <string>

// "A method was called at an unexpected time" (winerror.h on Windows; missing from the mingw
// headers): the batch interface's answer for a command that holds no result.
#ifndef E_ILLEGAL_METHOD_CALL
#define E_ILLEGAL_METHOD_CALL ((HRESULT)0x8000000EL)
#endif

namespace zel {

// Where a failure was raised. The strings are literals of the program: nothing is copied.
struct ErrorOrigin {
    const char* file = "";
    unsigned line = 0;
    const char* expression = "";  // the failing expression of a check macro, or ""

    static ErrorOrigin At(const std::source_location& where) noexcept {
        return ErrorOrigin{where.file_name(), static_cast<unsigned>(where.line()), ""};
    }
};

// Thrown for a failed call or a refused operation; `hr` is what the COM method returns.
class ComError : public std::exception {
public:
    explicit ComError(HRESULT hr, ErrorOrigin origin = {}) noexcept : m_hr(hr), m_origin(origin) {}
    HRESULT code() const noexcept { return m_hr; }
    const ErrorOrigin& origin() const noexcept { return m_origin; }
    const char* what() const noexcept override { return "COM error"; }

private:
    HRESULT m_hr;
    ErrorOrigin m_origin;
};

// Throws ComError(hr) recording the caller's file and line.
[[noreturn]] void ThrowHr(HRESULT hr, const std::source_location& where = std::source_location::current());
// Throws ComError(hr, origin); what the check macros call.
[[noreturn]] void ThrowHrAt(HRESULT hr, const ErrorOrigin& origin);

// Maps the exception in flight to an HRESULT, the one place where that mapping is made:
// ComError gives its code, std::bad_alloc E_OUTOFMEMORY, any other std::exception and
// anything else E_UNEXPECTED. Call only from inside a catch block.
HRESULT ResultFromCaughtException() noexcept;

// The optional trace of failures.
class ErrorTrace {
public:
    using Sink = void (*)(const wchar_t* line);

    // Whether the trace is on. The first call reads ZEL_ERROR_TRACE from the environment.
    static bool TraceIsOn() noexcept;
    static void TraceEnable(bool on) noexcept;
    // Reads ZEL_ERROR_TRACE again (set and not "0": on); returns the new state.
    static bool TraceEnableFromEnvironment() noexcept;
    // Where trace lines go: OutputDebugStringW unless replaced; null restores it.
    static void TraceSetSink(Sink sink) noexcept;

    // The text of a trace line, for example
    // "zel: 0x80004005 raised at provider/x.cpp:12: Open(path)".
    static std::wstring TraceFormat(const wchar_t* event, HRESULT hr, const ErrorOrigin& origin);
    // Writes `event` for `hr` raised at `origin` when the trace is on; never throws.
    static void TraceError(const wchar_t* event, HRESULT hr, const ErrorOrigin& origin) noexcept;
};

}  // namespace zel

// Throws ComError when `hr` is a failure code; success codes (S_FALSE included) pass. The
// error records this file and line and the expression as written.
#define ZEL_THROW_IF_FAILED(expr)                                                            \
    do {                                                                                     \
        const HRESULT zel_hr_ = (expr);                                                      \
        if (FAILED(zel_hr_)) ::zel::ThrowHrAt(zel_hr_, ::zel::ErrorOrigin{__FILE__, __LINE__, #expr}); \
    } while (0)

// Returns `hr` from the enclosing function when it is a failure code (traced as returned
// from here when the trace is on).
#define ZEL_RETURN_IF_FAILED(expr)                                                          \
    do {                                                                                    \
        const HRESULT zel_hr_ = (expr);                                                     \
        if (FAILED(zel_hr_)) {                                                              \
            ::zel::ErrorTrace::TraceError(L"returned", zel_hr_, ::zel::ErrorOrigin{__FILE__, __LINE__, #expr}); \
            return zel_hr_;                                                                 \
        }                                                                                   \
    } while (0)

// Ends a COM method body: `try { ... } ZEL_CATCH_RETURN()`.
#define ZEL_CATCH_RETURN() \
    catch (...) { return ::zel::ResultFromCaughtException(); }
