// What the reliability suites share: a client of the service object in the server process
// that runs statements and reads their results back as text, snapshots of a database's
// content for "nothing changed" checks, and conversions for readable failure messages.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "common/Utf8.h"

namespace zel::test {

// UTF-8 as the programs outside Windows (shell, files, pipes) read and write it.
using zel::FromUtf8;
using zel::ToUtf8;


// The whole content of a file as bytes; empty when it cannot be read.
std::string ReadText(const std::wstring& path);
// ZelReliabilityHost.exe, the host program built next to the running test program.
std::wstring HostPath();

// "Provider=ZelLite.OLEDB.1;Data Source=<path>" followed by `extra`.
std::wstring ProviderConnection(const std::wstring& path, const std::wstring& extra = L"");

// Everything one CmdExecute handed back.
struct Outcome {
    HRESULT hr = E_FAIL;
    SHORT result = -1;        // the tri-state answer: 1 ran, 2 failed or not applicable
    bool xmlWritten = false;  // whether the document out-parameter was written
    std::wstring xml;
    std::wstring errorText;
    std::wstring errorStmt;
};

// One field as text; no value for NULL. A blob field reads as "x'<hex bytes>'".
using Value = std::optional<std::wstring>;
using Row = std::vector<Value>;
using Rows = std::vector<Row>;

std::wstring HexBytes(const std::vector<BYTE>& bytes);
// The bytes of a VT_ARRAY|VT_UI1 VARIANT; empty for any other VARIANT.
std::vector<BYTE> VariantBytes(const VARIANT& value);
std::string Describe(const Rows& rows);

// The service object, activated out of process, and the statements a test runs on it.
class ServiceClient {
public:
    ServiceClient() = default;
    explicit ServiceClient(ComPtr<IZelOleDb> service) : m_service(std::move(service)) {}

    // CoCreateInstance of the service class in a local server.
    HRESULT Create();
    void Release() { m_service.reset(); }
    IZelOleDb* get() const { return m_service.get(); }
    IZelOleDb* operator->() const { return m_service.get(); }
    explicit operator bool() const { return static_cast<bool>(m_service); }

    // ConOpenFromInitializationString without a prompt.
    HRESULT Open(std::wstring_view initString, std::wstring* errorText = nullptr);
    // Runs `sql` (embedded NULs are passed on) on a new command, which is destroyed afterwards.
    Outcome Execute(std::wstring_view sql);
    // Runs `sql` and adds a test failure unless it succeeded.
    bool Run(std::wstring_view sql);
    // Every row of `sql` through the row methods (FetchFirst, FetchNext, FieldAsString,
    // GetBlobData for blob columns). Nothing, and `errorText` set, when the statement failed.
    std::optional<Rows> Query(std::wstring_view sql, std::wstring* errorText = nullptr);
    // The single value of a one-row, one-column query; empty when there is none.
    std::wstring Scalar(std::wstring_view sql);

private:
    ComPtr<IZelOleDb> m_service;
};

// The attributes of every element named `name` in a document as the server writes it (one
// element per tag, attributes in double quotes), with the five predefined entities and
// character references decoded; in document order.
using XmlAttributes = std::map<std::wstring, std::wstring>;
std::vector<XmlAttributes> XmlElements(const std::wstring& xml, const std::wstring& name);

// What a database holds, for before-and-after comparisons: the schema entries, then every
// row of every table in rowid order, as text.
std::string DatabaseSnapshot(ServiceClient& client);

}  // namespace zel::test
