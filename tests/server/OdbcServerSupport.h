// What the ODBC suites need around the server: the test cluster's connection string, a client
// of the server's IZelOleDb interface with short helpers for statements and rows, and the
// registration of this build's ZelOdbc.dll beside ZelLite.dll.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"
#include "tests/server/DispatchTestSupport.h"
#include "tests/server/ServerProcessSupport.h"

namespace zel::test::odbc {

// An environment variable of the test run; empty when unset.
inline std::wstring Environment(const wchar_t* name) {
    wchar_t buffer[4096];
    const DWORD length = GetEnvironmentVariableW(name, buffer, 4096);
    return length && length < 4096 ? std::wstring(buffer, length) : std::wstring();
}

// The Windows path under Wine's Z: drive of a Unix path.
inline std::wstring WinePath(const std::wstring& unixPath) {
    std::wstring out = L"Z:" + unixPath;
    for (wchar_t& c : out)
        if (c == L'/') c = L'\\';
    return out;
}

// The cluster's directory (Unix path, ZEL_PG_DIR) and its ODBC connection string.
inline std::wstring ClusterDir() { return Environment(L"ZEL_PG_DIR"); }
inline std::wstring ReadConnectionText() {
    const std::wstring file = WinePath(ClusterDir() + L"/connection.txt");
    HANDLE h = CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return L"";
    char buffer[2048];
    DWORD read = 0;
    ReadFile(h, buffer, sizeof buffer - 1, &read, nullptr);
    CloseHandle(h);
    std::wstring text(buffer, buffer + read);
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r')) text.pop_back();
    return text;
}

inline bool Contains(const std::wstring& text, const std::wstring& part) { return text.find(part) != std::wstring::npos; }

// The outcome of one CmdExecute.
struct Execution {
    HRESULT hr = E_FAIL;
    SHORT result = 0;  // 1 done, 2 failed
    std::wstring xml;
    bool xmlNull = true;
    std::wstring errorText;
    std::wstring errorStmt;
    ULONG handle = 0;
};

// One object of the server, on a connection opened by the test.
class Client {
public:
    Client() { m_hr = zel::TryCreateInstance(CLSID_ZelOleDbImpl, m_db, CLSCTX_LOCAL_SERVER); }
    ~Client() {
        for (ULONG h : m_handles) m_db->CmdDestroy(h);
        if (m_db) m_db->ConClose();
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    HRESULT created() const { return m_hr; }
    IZelOleDb* operator->() const { return m_db.get(); }
    IZelOleDb* get() const { return m_db.get(); }

    // Opens `init`; the result and the error text.
    HRESULT Open(const std::wstring& init, std::wstring* errorText = nullptr) {
        Bstr text(init), error, stmt;
        const HRESULT hr = m_db->ConOpenFromInitializationString(text.get(), VARIANT_FALSE, error.put(), stmt.put());
        if (errorText) *errorText = error.str();
        return hr;
    }

    Execution Execute(const std::wstring& sql) {
        Execution out;
        EXPECT_EQ(S_OK, m_db->CmdSetConnection(&out.handle));
        m_handles.push_back(out.handle);
        Bstr text(sql);
        EXPECT_EQ(S_OK, m_db->CmdSetCommandText(out.handle, text.get()));
        Bstr xml, errorText, errorStmt;
        out.hr = m_db->CmdExecute(out.handle, &out.result, xml.put(), errorText.put(), errorStmt.put());
        out.xmlNull = xml.get() == nullptr;
        out.xml = xml.str();
        out.errorText = errorText.str();
        out.errorStmt = errorStmt.str();
        return out;
    }

    // Runs a statement that must succeed; its rows affected.
    LONGLONG Run(const std::wstring& sql) {
        Execution e = Execute(sql);
        EXPECT_EQ(S_OK, e.hr);
        EXPECT_EQ(1, e.result) << testing::PrintToString(sql) << "\n" << testing::PrintToString(e.errorText);
        LONGLONG affected = -2;
        EXPECT_EQ(S_OK, m_db->CmdGetRowsAffected(e.handle, &affected));
        return affected;
    }

    // A statement that must fail with `sqlState` in the error text.
    void Fails(const std::wstring& sql, const std::wstring& sqlState) {
        Execution e = Execute(sql);
        EXPECT_EQ(2, e.result) << testing::PrintToString(sql);
        EXPECT_TRUE(Contains(e.errorText, L"SQLState: " + sqlState))
            << testing::PrintToString(sql) << " gave " << testing::PrintToString(e.errorText);
        EXPECT_EQ(sql, e.errorStmt);
    }

    std::wstring Text(ULONG h, ULONGLONG column) {
        Bstr text;
        EXPECT_EQ(S_OK, m_db->CmdFieldAsString(h, column, text.put()));
        return text.str();
    }

    Variant Value(ULONG h, ULONGLONG column) {
        Variant position = UI4(static_cast<ULONG>(column)), value;
        EXPECT_EQ(S_OK, m_db->CmdFieldAsVariant(h, position.get(), value.put()));
        return value;
    }

    // Every row of `sql` as the server's field texts, each row's texts joined by '|'; NULL as
    // "<null>". The first line holds the column names.
    std::vector<std::wstring> Texts(const std::wstring& sql, std::wstring* xml = nullptr) {
        std::vector<std::wstring> out;
        Execution e = Execute(sql);
        EXPECT_EQ(1, e.result) << testing::PrintToString(sql) << " " << testing::PrintToString(e.errorText);
        if (xml) *xml = e.xml;
        ULONGLONG columns = 0;
        EXPECT_EQ(S_OK, m_db->CmdGetColumnCount(e.handle, &columns));
        std::wstring names;
        for (ULONGLONG c = 1; c <= columns; ++c) {
            Bstr name;
            m_db->CmdGetColumnName(e.handle, c, name.put());
            names += (c > 1 ? L"|" : L"") + name.str();
        }
        out.push_back(names);
        SHORT moved = 0;
        for (HRESULT hr = m_db->CmdFetchFirst(e.handle, &moved); hr == S_OK && moved == 1;
             hr = m_db->CmdFetchNext(e.handle, &moved)) {
            std::wstring row;
            for (ULONGLONG c = 1; c <= columns; ++c) {
                SHORT isNull = 0;
                m_db->CmdIsNull(e.handle, c, &isNull);
                row += (c > 1 ? L"|" : L"") + (isNull == 1 ? std::wstring(L"<null>") : Text(e.handle, c));
            }
            out.push_back(row);
        }
        return out;
    }

    // The names TblGetTableList gives for tables of type TABLE.
    std::vector<std::wstring> TableNames() {
        ULONG h = 0;
        Bstr empty(L""), type(L"TABLE"), errorText, errorStmt;
        EXPECT_EQ(S_OK, m_db->TblOpen(&h, empty.get(), empty.get(), empty.get(), type.get(), errorText.put(),
                                      errorStmt.put()))
            << testing::PrintToString(errorText.str());
        Variant list;
        EXPECT_EQ(S_OK, m_db->TblGetTableList(h, list.get()));
        m_db->TblDestroy(h);
        return Strings(*list.get());
    }

    static std::vector<std::wstring> Strings(const VARIANT& value) {
        std::vector<std::wstring> out;
        if (V_VT(&value) != (VT_ARRAY | VT_BSTR) || !V_ARRAY(&value)) return out;
        LONG lower = 0, upper = -1;
        SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
        SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
        zel::SafeArrayData data(V_ARRAY(&value));
        for (LONG i = 0; i <= upper - lower; ++i) out.push_back(BstrText(data.as<BSTR>()[i]));
        return out;
    }

private:
    HRESULT m_hr = E_FAIL;
    ComPtr<IZelOleDb> m_db;
    std::vector<ULONG> m_handles;
};

// Registers the server and both providers of this build (ZEL_PROVIDER_DLL, ZEL_ODBC_DLL) with
// the 32-bit regsvr32.
inline bool RegisterServerAndProviders() {
    if (RunServer(L"/RegServer").value_or(~0u) != 0) return false;
    if (!RegisterProvider()) return false;
    wchar_t system[MAX_PATH];
    if (!GetSystemWow64DirectoryW(system, MAX_PATH)) return false;
    const std::wstring dll = Environment(L"ZEL_ODBC_DLL");
    if (dll.empty()) return false;
    auto code = RunToCompletion(L"\"" + std::wstring(system) + L"\\regsvr32.exe\" /s \"" + dll + L"\"");
    return code && *code == 0;
}

}  // namespace zel::test::odbc
