#include "common/ComError.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

HRESULT Boundary(void (*body)()) {
    try {
        body();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

HRESULT ReturnIfFailed(HRESULT inner, bool* reachedEnd) {
    ZEL_RETURN_IF_FAILED(inner);
    *reachedEnd = true;
    return S_OK;
}

HRESULT FailingCall() { return E_ACCESSDENIED; }

bool EndsWith(const char* text, const char* tail) {
    const size_t n = std::strlen(text), m = std::strlen(tail);
    return n >= m && std::strcmp(text + n - m, tail) == 0;
}

// Collects the trace lines while it lives, with the trace on; restores both afterwards.
class TraceCapture {
public:
    TraceCapture() {
        s_lines.clear();
        m_wasOn = zel::ErrorTrace::TraceIsOn();
        zel::ErrorTrace::TraceSetSink([](const wchar_t* line) { s_lines.emplace_back(line); });
        zel::ErrorTrace::TraceEnable(true);
    }
    ~TraceCapture() {
        zel::ErrorTrace::TraceEnable(m_wasOn);
        zel::ErrorTrace::TraceSetSink(nullptr);
    }
    const std::vector<std::wstring>& lines() const { return s_lines; }

private:
    static inline std::vector<std::wstring> s_lines;
    bool m_wasOn = false;
};

}  // namespace

TEST(ComError, BoundaryReturnsCarriedHresult) {
    EXPECT_EQ(E_INVALIDARG, Boundary([] { zel::ThrowHr(E_INVALIDARG); }));
}

TEST(ComError, BoundaryMapsBadAllocToOutOfMemory) {
    EXPECT_EQ(E_OUTOFMEMORY, Boundary([] { throw std::bad_alloc(); }));
}

TEST(ComError, BoundaryMapsUnknownExceptionToUnexpected) {
    EXPECT_EQ(E_UNEXPECTED, Boundary([] { throw std::runtime_error("x"); }));
}

TEST(ComError, BoundaryPassesSuccess) {
    EXPECT_EQ(S_OK, Boundary([] {}));
}

TEST(ComError, ThrowIfFailedIgnoresSuccessCodes) {
    EXPECT_EQ(S_OK, Boundary([] { ZEL_THROW_IF_FAILED(S_FALSE); }));
    EXPECT_EQ(E_FAIL, Boundary([] { ZEL_THROW_IF_FAILED(E_FAIL); }));
}

TEST(ComError, ReturnIfFailedStopsOnlyOnFailure) {
    bool reached = false;
    EXPECT_EQ(E_ACCESSDENIED, ReturnIfFailed(E_ACCESSDENIED, &reached));
    EXPECT_FALSE(reached);
    EXPECT_EQ(S_OK, ReturnIfFailed(S_FALSE, &reached));
    EXPECT_TRUE(reached);
}

TEST(ComError, ThrowIfFailedRecordsFileLineAndExpression) {
    TraceCapture trace;
    unsigned line = 0;
    try {
        line = __LINE__ + 1;
        ZEL_THROW_IF_FAILED(FailingCall());
        FAIL() << "no exception";
    } catch (const zel::ComError& e) {
        EXPECT_EQ(E_ACCESSDENIED, e.code());
        EXPECT_TRUE(EndsWith(e.origin().file, "ComErrorTest.cpp")) << e.origin().file;
        EXPECT_EQ(line, e.origin().line);
        EXPECT_STREQ("FailingCall()", e.origin().expression);
    }
}

TEST(ComError, ThrowHrRecordsTheCallersFileAndLine) {
    unsigned line = 0;
    try {
        line = __LINE__ + 1;
        zel::ThrowHr(E_INVALIDARG);
    } catch (const zel::ComError& e) {
        EXPECT_EQ(E_INVALIDARG, e.code());
        EXPECT_TRUE(EndsWith(e.origin().file, "ComErrorTest.cpp")) << e.origin().file;
        EXPECT_EQ(line, e.origin().line);
        EXPECT_STREQ("", e.origin().expression);
    }
}

TEST(ComError, TraceShowsWhereAFailureWasRaisedAndWhatTheBoundaryReturned) {
    TraceCapture trace;
    const unsigned line = __LINE__ + 1;
    EXPECT_EQ(E_ACCESSDENIED, Boundary([] { ZEL_THROW_IF_FAILED(FailingCall()); }));
    ASSERT_EQ(2u, trace.lines().size());
    const std::wstring where = L"ComErrorTest.cpp:" + std::to_wstring(line) + L": FailingCall()\n";
    EXPECT_EQ(0u, trace.lines()[0].find(L"zel: 0x80070005 raised at ")) << trace.lines()[0];
    EXPECT_NE(std::wstring::npos, trace.lines()[0].find(where)) << trace.lines()[0];
    EXPECT_EQ(0u, trace.lines()[1].find(L"zel: 0x80070005 returned at ")) << trace.lines()[1];
    EXPECT_NE(std::wstring::npos, trace.lines()[1].find(where)) << trace.lines()[1];
}

TEST(ComError, TraceKeepsTheMappingOfEveryExceptionKind) {
    TraceCapture trace;
    EXPECT_EQ(E_INVALIDARG, Boundary([] { zel::ThrowHr(E_INVALIDARG); }));
    EXPECT_EQ(E_OUTOFMEMORY, Boundary([] { throw std::bad_alloc(); }));
    EXPECT_EQ(E_UNEXPECTED, Boundary([] { throw std::runtime_error("the reason"); }));
    EXPECT_EQ(E_UNEXPECTED, Boundary([] { throw 7; }));
    EXPECT_EQ(S_OK, Boundary([] {}));
    ASSERT_EQ(5u, trace.lines().size());  // raised + returned, then one line per other kind
    EXPECT_EQ(L"zel: 0x8007000E returned: std::bad_alloc\n", trace.lines()[2]);
    EXPECT_EQ(L"zel: 0x8000FFFF returned: the reason\n", trace.lines()[3]);
    EXPECT_EQ(L"zel: 0x8000FFFF returned: unknown exception\n", trace.lines()[4]);
}

TEST(ComError, ReturnIfFailedIsTracedWithItsExpression) {
    TraceCapture trace;
    bool reached = false;
    EXPECT_EQ(E_ACCESSDENIED, ReturnIfFailed(E_ACCESSDENIED, &reached));
    ASSERT_EQ(1u, trace.lines().size());
    EXPECT_NE(std::wstring::npos, trace.lines()[0].find(L"zel: 0x80070005 returned at ")) << trace.lines()[0];
    EXPECT_NE(std::wstring::npos, trace.lines()[0].find(L": inner\n")) << trace.lines()[0];
}

TEST(ComError, TraceIsOffWithoutTheEnvironmentVariableAndWritesNothing) {
    static std::vector<std::wstring> lines;
    lines.clear();
    const bool wasOn = zel::ErrorTrace::TraceIsOn();
    SetEnvironmentVariableW(L"ZEL_ERROR_TRACE", nullptr);
    EXPECT_FALSE(zel::ErrorTrace::TraceEnableFromEnvironment());
    zel::ErrorTrace::TraceSetSink([](const wchar_t* line) { lines.emplace_back(line); });
    EXPECT_EQ(E_FAIL, Boundary([] { ZEL_THROW_IF_FAILED(E_FAIL); }));
    EXPECT_EQ(E_UNEXPECTED, Boundary([] { throw std::runtime_error("x"); }));
    zel::ErrorTrace::TraceSetSink(nullptr);
    zel::ErrorTrace::TraceEnable(wasOn);
    EXPECT_TRUE(lines.empty());
}

TEST(ComError, EnvironmentVariableTurnsTheTraceOn) {
    const bool wasOn = zel::ErrorTrace::TraceIsOn();
    ASSERT_TRUE(SetEnvironmentVariableW(L"ZEL_ERROR_TRACE", L"1"));
    EXPECT_TRUE(zel::ErrorTrace::TraceEnableFromEnvironment());
    EXPECT_TRUE(zel::ErrorTrace::TraceIsOn());
    ASSERT_TRUE(SetEnvironmentVariableW(L"ZEL_ERROR_TRACE", L"0"));
    EXPECT_FALSE(zel::ErrorTrace::TraceEnableFromEnvironment());
    EXPECT_FALSE(zel::ErrorTrace::TraceIsOn());
    SetEnvironmentVariableW(L"ZEL_ERROR_TRACE", nullptr);
    zel::ErrorTrace::TraceEnable(wasOn);
}
