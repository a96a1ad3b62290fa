// The server's half of the differential test (run by differential.sh between the two steps
// of SQLite's own shell on the same file):
//
//   ZelDifferential setup DIR SEED QUERIES
//       makes the seed's tables in DIR\diff.db through the server and writes the shell's
//       script of the seed's queries to DIR\shell.sql
//   ZelDifferential compare DIR SEED QUERIES
//       runs the same queries through the server, row by row and as documents, and compares
//       every value with the shell's output in DIR\shell.txt; exits 0 when all agree
//
// Both register this build's server and provider and put back the registration they found.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/Bstr.h"
#include "common/Variant.h"
#include "tests/reliability/DifferentialData.h"
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;
using namespace zel::test::differential;
using zel::Bstr;
using zel::Variant;

namespace {

constexpr size_t kMaxReported = 25;

bool WriteText(const std::wstring& path, const std::string& text) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    BOOL ok = WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return ok && written == text.size();
}

std::string Shorten(const std::wstring& text) {
    return ToUtf8(text.size() > 80 ? text.substr(0, 80) + L"..." : text);
}

class Comparison {
public:
    explicit Comparison(ServiceClient& client) : m_client(client) {}

    void Check(size_t index, const differential::Query& query, const std::vector<ShellRow>& shell) {
        m_where = "query " + std::to_string(index) + " (" + ToUtf8(query.sql) + ")";
        ULONG handle = 0;
        if (FAILED(m_client->CmdSetConnection(&handle))) return Mismatch("no command");
        Bstr sql(query.sql), xml, errorText, errorStmt;
        SHORT result = 0;
        m_client->CmdSetCommandText(handle, sql.get());
        HRESULT hr = m_client->CmdExecute(handle, &result, xml.put(), errorText.put(), errorStmt.put());
        if (FAILED(hr) || result != 1) {
            m_client->CmdDestroy(handle);
            return Mismatch("the server refused it: " + ToUtf8(errorText.str()));
        }
        ++m_queries;
        ULONGLONG columns = 0;
        m_client->CmdGetColumnCount(handle, &columns);
        if (columns != query.columns.size()) Mismatch("column count " + std::to_string(columns));
        // An expression is typed from its first value: without rows there is none to type it by.
        for (size_t c = 0; c < query.columns.size() && c < columns && !shell.empty(); ++c) {
            ULONG raw = 0;
            m_client->CmdGetRawType(handle, c + 1, &raw);
            if (raw != RawType(query.columns[c]))
                Mismatch("column " + std::to_string(c + 1) + " has type " + std::to_string(raw));
        }
        Rows(handle, query, shell);
        Document(xml, query, shell);
        m_client->CmdDestroy(handle);
    }

    void Print() const {
        std::printf("differential: %zu queries, %zu rows, %zu values read row by row, %zu values in documents "
                    "(%zu binary blob values not comparable as document text), %zu mismatches\n",
                    m_queries, m_rows, m_values, m_documentValues, m_documentSkipped, m_mismatches);
    }

    size_t Mismatches() const { return m_mismatches; }

private:
    void Mismatch(const std::string& what) {
        if (m_mismatches++ < kMaxReported) std::printf("MISMATCH %s: %s\n", m_where.c_str(), what.c_str());
    }

    void Rows(ULONG handle, const differential::Query& query, const std::vector<ShellRow>& shell) {
        SHORT moved = 0;
        HRESULT hr = m_client->CmdFetchFirst(handle, &moved);
        size_t row = 0;
        for (; SUCCEEDED(hr) && moved == 1; ++row, hr = m_client->CmdFetchNext(handle, &moved)) {
            if (row >= shell.size()) continue;
            ++m_rows;
            for (size_t c = 0; c < query.columns.size() && c < shell[row].size(); ++c) {
                const Expected expected = ExpectedValue(query.columns[c], shell[row][c]);
                const std::string at = "row " + std::to_string(row + 1) + " column " + std::to_string(c + 1);
                ++m_values;
                SHORT isNull = 0;
                m_client->CmdIsNull(handle, c + 1, &isNull);
                if ((isNull == 1) != expected.isNull) {
                    Mismatch(at + ": null is " + std::to_string(isNull));
                    continue;
                }
                if (expected.isNull) continue;
                if (query.columns[c] == Kind::LongText || query.columns[c] == Kind::Blob) {
                    Variant blob;
                    m_client->CmdGetBlobData(handle, c + 1, blob.get());
                    if (VariantBytes(*blob.get()) != expected.bytes)
                        Mismatch(at + ": blob of " + std::to_string(VariantBytes(*blob.get()).size()) +
                                 " bytes instead of " + std::to_string(expected.bytes.size()));
                } else {
                    Bstr text;
                    m_client->CmdFieldAsString(handle, c + 1, text.put());
                    if (text.str() != expected.text)
                        Mismatch(at + ": '" + Shorten(text.str()) + "' instead of '" + Shorten(expected.text) + "'");
                }
            }
        }
        if (row != shell.size())
            Mismatch(std::to_string(row) + " rows instead of " + std::to_string(shell.size()));
    }

    void Document(const Bstr& xml, const differential::Query& query, const std::vector<ShellRow>& shell) {
        if (shell.empty()) {
            if (xml.get()) Mismatch("a document for a result without rows");
            return;
        }
        std::vector<XmlAttributes> rows = XmlElements(xml.str(), L"Rowset");
        if (rows.size() != shell.size())
            return Mismatch("document has " + std::to_string(rows.size()) + " rows instead of " + std::to_string(shell.size()));
        for (size_t row = 0; row < rows.size(); ++row) {
            for (size_t c = 0; c < query.columns.size() && c < shell[row].size(); ++c) {
                const Expected expected = ExpectedValue(query.columns[c], shell[row][c]);
                const std::wstring name = L"C" + std::to_wstring(c + 1);
                const auto found = rows[row].find(name);
                const std::string at = "document row " + std::to_string(row + 1) + " " + ToUtf8(name);
                if ((found == rows[row].end()) != expected.isNull) {
                    Mismatch(at + (expected.isNull ? ": present for NULL" : ": missing"));
                    continue;
                }
                if (expected.isNull) continue;
                if (!expected.documentComparable) {
                    ++m_documentSkipped;
                    continue;
                }
                ++m_documentValues;
                if (found->second != expected.documentText)
                    Mismatch(at + ": '" + Shorten(found->second) + "' instead of '" + Shorten(expected.documentText) + "'");
            }
        }
    }

    ServiceClient& m_client;
    std::string m_where;
    size_t m_queries = 0, m_rows = 0, m_values = 0, m_documentValues = 0, m_documentSkipped = 0, m_mismatches = 0;
};

int Run(const std::wstring& mode, const std::wstring& dir, unsigned seed, int queries) {
    if (RunServer(L"/RegServer").value_or(~0u) != 0 || !RegisterProvider()) {
        std::printf("registering the server and the provider failed\n");
        return 3;
    }
    const Scenario scenario = MakeScenario(seed, queries);
    ServiceClient client;
    std::wstring errorText;
    if (client.Create() != S_OK || client.Open(ProviderConnection(dir + L"\\diff.db"), &errorText) != S_OK) {
        std::printf("the server cannot open the database: %s\n", ToUtf8(errorText).c_str());
        return 3;
    }
    int code = 0;
    if (mode == L"setup") {
        for (const std::wstring& sql : scenario.setup) {
            Outcome outcome = client.Execute(sql);
            if (outcome.result != 1) {
                std::printf("setup failed: %s\n%s\n", Shorten(sql).c_str(), ToUtf8(outcome.errorText).c_str());
                code = 1;
                break;
            }
        }
        if (code == 0 && !WriteText(dir + L"\\shell.sql", ShellScript(scenario))) code = 3;
    } else {
        std::vector<std::vector<ShellRow>> shell;
        if (!ReadShellOutput(FromUtf8(ReadText(dir + L"\\shell.txt")), scenario.queries.size(), shell)) {
            std::printf("the shell's output cannot be read\n");
            code = 3;
        } else {
            Comparison comparison(client);
            for (size_t i = 0; i < scenario.queries.size(); ++i) comparison.Check(i, scenario.queries[i], shell[i]);
            comparison.Print();
            code = comparison.Mismatches() == 0 ? 0 : 1;
        }
    }
    client->ConClose();
    return code;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 5 || (std::wstring(argv[1]) != L"setup" && std::wstring(argv[1]) != L"compare")) {
        std::fprintf(stderr, "usage: ZelDifferential setup|compare DIR SEED QUERIES\n");
        return 2;
    }
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 3;
    int code = 0;
    {
        RegistrationRestorer restorer;
        code = Run(argv[1], argv[2], static_cast<unsigned>(_wtoi(argv[3])), _wtoi(argv[4]));
    }
    CoUninitialize();
    return code;
}
