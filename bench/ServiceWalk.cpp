#include "bench/ServiceWalk.h"

#include <oleauto.h>

#include <cwchar>

#include "common/Bstr.h"
#include "common/ComError.h"

namespace zel::bench {

std::string PrepareServiceCommand(IZelOleDb* service, const std::wstring& connectionString, const std::wstring& query,
                                  ULONG& handle, ULONG& columns) {
    Bstr errorText, errorStmt;
    HRESULT hr = service->ConOpenFromInitializationString(Bstr(connectionString).get(), VARIANT_FALSE,
                                                          errorText.put(), errorStmt.put());
    if (FAILED(hr)) return "ConOpenFromInitializationString " + HresultText(hr) + ": " + ToUtf8(errorText.str());
    handle = 0;
    hr = service->CmdSetConnection(&handle);
    if (FAILED(hr)) return "CmdSetConnection " + HresultText(hr);
    hr = service->CmdSetCommandText(handle, Bstr(query).get());
    if (FAILED(hr)) return "CmdSetCommandText " + HresultText(hr);
    short result = 0;
    Bstr xml;
    errorText.reset();
    errorStmt.reset();
    hr = service->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put());
    if (FAILED(hr)) return "CmdExecute " + HresultText(hr);
    if (result != 1) return "CmdExecute answered " + std::to_string(result) + ": " + ToUtf8(errorText.str());
    ULONGLONG count = 0;
    hr = service->CmdGetColumnCount(handle, &count);
    if (FAILED(hr)) return "CmdGetColumnCount " + HresultText(hr);
    columns = static_cast<ULONG>(count);
    return {};
}

RunSample WalkRows(IZelOleDb* service, ULONG handle, ULONG columns, unsigned long long maxRows) {
    RunSample sample;
    Stopwatch clock;
    short more = 0;
    ZEL_THROW_IF_FAILED(service->CmdFetchFirst(handle, &more));
    ++sample.calls;
    while (more == 1) {
        for (ULONG c = 1; c <= columns; ++c) {
            BSTR text = nullptr;
            ZEL_THROW_IF_FAILED(service->CmdFieldAsString(handle, c, &text));
            sample.bytes += SysStringByteLen(text);
            SysFreeString(text);
        }
        sample.calls += columns;
        if (++sample.rows == maxRows) break;
        ZEL_THROW_IF_FAILED(service->CmdFetchNext(handle, &more));
        ++sample.calls;
    }
    sample.seconds = clock.Seconds();
    return sample;
}

RunSample ExecuteWithDocument(IZelOleDb* service, ULONG handle) {
    RunSample sample;
    short result = 0;
    BSTR xml = nullptr;
    BSTR errorText = nullptr;
    BSTR errorStmt = nullptr;
    Stopwatch clock;
    HRESULT hr = service->CmdExecute(handle, &result, &xml, &errorText, &errorStmt);
    sample.seconds = clock.Seconds();
    sample.calls = 1;
    Bstr document = Bstr::Attach(xml);
    Bstr ownedText = Bstr::Attach(errorText);
    Bstr ownedStmt = Bstr::Attach(errorStmt);
    if (FAILED(hr)) ThrowHr(hr);
    if (result != 1) ThrowHr(E_FAIL);
    sample.bytes = SysStringByteLen(document.get());
    sample.rows = CountDocumentRows(document.c_str(), document.length());
    return sample;
}

unsigned long long CountDocumentRows(const wchar_t* xml, size_t length) {
    static const wchar_t kTag[] = L"<Rowset";
    const size_t tag = std::wcslen(kTag);
    unsigned long long rows = 0;
    for (size_t i = 0; i + tag <= length; ++i)
        if (xml[i] == L'<' && std::wcsncmp(xml + i, kTag, tag) == 0) ++rows;
    return rows;
}

}  // namespace zel::bench
