#include "common/ComError.h"

#include <cstdio>
#include <new>

namespace zel {

namespace {

// -1: not yet read from the environment; 0 off; 1 on.
LONG g_traceState = -1;
ErrorTrace::Sink g_traceSink = nullptr;

void TraceWrite(const std::wstring& line) noexcept {
    ErrorTrace::Sink sink = g_traceSink;
    if (sink)
        sink(line.c_str());
    else
        OutputDebugStringW(line.c_str());
}

std::wstring Widen(const char* text) {
    std::wstring wide;
    for (; text && *text; ++text) wide += static_cast<wchar_t>(static_cast<unsigned char>(*text));
    return wide;
}

}  // namespace

void ThrowHr(HRESULT hr, const std::source_location& where) { ThrowHrAt(hr, ErrorOrigin::At(where)); }

void ThrowHrAt(HRESULT hr, const ErrorOrigin& origin) {
    ErrorTrace::TraceError(L"raised", hr, origin);
    throw ComError(hr, origin);
}

HRESULT ResultFromCaughtException() noexcept {
    try {
        throw;
    } catch (const ComError& e) {
        ErrorTrace::TraceError(L"returned", e.code(), e.origin());
        return e.code();
    } catch (const std::bad_alloc&) {
        ErrorTrace::TraceError(L"returned", E_OUTOFMEMORY, ErrorOrigin{"", 0, "std::bad_alloc"});
        return E_OUTOFMEMORY;
    } catch (const std::exception& e) {
        // A C++ library failure nobody turned into an HRESULT; what() names it in the trace.
        ErrorTrace::TraceError(L"returned", E_UNEXPECTED, ErrorOrigin{"", 0, e.what()});
        return E_UNEXPECTED;
    } catch (...) {
        ErrorTrace::TraceError(L"returned", E_UNEXPECTED, ErrorOrigin{"", 0, "unknown exception"});
        return E_UNEXPECTED;
    }
}

bool ErrorTrace::TraceIsOn() noexcept {
    LONG state = InterlockedCompareExchange(&g_traceState, -1, -1);
    if (state < 0) return TraceEnableFromEnvironment();
    return state != 0;
}

void ErrorTrace::TraceEnable(bool on) noexcept { InterlockedExchange(&g_traceState, on ? 1 : 0); }

bool ErrorTrace::TraceEnableFromEnvironment() noexcept {
    wchar_t value[8] = {};
    DWORD n = GetEnvironmentVariableW(L"ZEL_ERROR_TRACE", value, 8);
    bool on = n > 0 && !(n == 1 && value[0] == L'0');
    TraceEnable(on);
    return on;
}

void ErrorTrace::TraceSetSink(Sink sink) noexcept { g_traceSink = sink; }

std::wstring ErrorTrace::TraceFormat(const wchar_t* event, HRESULT hr, const ErrorOrigin& origin) {
    wchar_t code[16];
    swprintf(code, 16, L"0x%08lX", static_cast<unsigned long>(hr));
    std::wstring line = L"zel: ";
    line += code;
    line += L' ';
    line += event;
    if (origin.file && *origin.file) {
        line += L" at ";
        line += Widen(origin.file);
        line += L':';
        line += std::to_wstring(origin.line);
    }
    if (origin.expression && *origin.expression) {
        line += L": ";
        line += Widen(origin.expression);
    }
    line += L'\n';
    return line;
}

void ErrorTrace::TraceError(const wchar_t* event, HRESULT hr, const ErrorOrigin& origin) noexcept {
    if (!TraceIsOn()) return;
    try {
        TraceWrite(TraceFormat(event, hr, origin));
    } catch (...) {
        // Out of memory while tracing: the failure itself is still reported by its HRESULT.
    }
}

}  // namespace zel
