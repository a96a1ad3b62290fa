// Error objects built by the tests, to drive the server's error capture with exactly the
// records a provider would publish: plain IErrorInfo objects, IErrorRecords collections,
// and ISQLErrorInfo custom objects.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <optional>
#include <string>
#include <vector>

#include "common/ComPtr.h"

namespace zel::test {

struct TestErrorRecord {
    std::optional<std::wstring> source;
    std::optional<std::wstring> description;
    std::optional<std::wstring> helpFile;
    DWORD helpContext = 0;
    GUID guid = GUID_NULL;
    std::optional<std::wstring> sqlState;  // a record with a state has an ISQLErrorInfo object
    LONG nativeError = 0;
};

// A single error object without IErrorRecords.
ComPtr<IErrorInfo> MakeErrorInfo(const TestErrorRecord& record);
// An error object with IErrorRecords holding `records`.
ComPtr<IErrorInfo> MakeErrorRecords(const std::vector<TestErrorRecord>& records);

}  // namespace zel::test
