#include "tests/reliability/ReliabilitySupport.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <cwctype>

#include "common/Bstr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"

namespace zel::test {

std::string ReadText(const std::wstring& path) {
    std::string text;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return text;
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read > 0) text.append(buffer, read);
    CloseHandle(file);
    return text;
}

std::wstring HostPath() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring self(path, length);
    return self.substr(0, self.find_last_of(L"\\/") + 1) + L"ZelReliabilityHost.exe";
}

std::wstring ProviderConnection(const std::wstring& path, const std::wstring& extra) {
    return L"Provider=ZelLite.OLEDB.1;Data Source=" + path + extra;
}

std::wstring HexBytes(const std::vector<BYTE>& bytes) {
    static const wchar_t digits[] = L"0123456789abcdef";
    std::wstring text;
    text.reserve(bytes.size() * 2);
    for (BYTE b : bytes) {
        text += digits[b >> 4];
        text += digits[b & 15];
    }
    return text;
}

std::vector<BYTE> VariantBytes(const VARIANT& value) {
    std::vector<BYTE> bytes;
    if (V_VT(&value) != (VT_ARRAY | VT_UI1) || !V_ARRAY(&value)) return bytes;
    LONG lower = 0, upper = -1;
    SafeArrayGetLBound(V_ARRAY(&value), 1, &lower);
    SafeArrayGetUBound(V_ARRAY(&value), 1, &upper);
    if (upper < lower) return bytes;
    SafeArrayData data(V_ARRAY(&value));
    bytes.assign(data.as<BYTE>(), data.as<BYTE>() + (upper - lower + 1));
    return bytes;
}

std::string Describe(const Rows& rows) {
    std::string text;
    for (const Row& row : rows) {
        text += "(";
        for (size_t i = 0; i < row.size(); ++i) {
            if (i) text += ", ";
            text += row[i] ? "'" + ToUtf8(*row[i]) + "'" : std::string("NULL");
        }
        text += ")\n";
    }
    return text;
}

HRESULT ServiceClient::Create() {
    return TryCreateInstance(CLSID_ZelOleDbImpl, m_service, CLSCTX_LOCAL_SERVER);
}

HRESULT ServiceClient::Open(std::wstring_view initString, std::wstring* errorText) {
    Bstr init(initString), text, stmt;
    HRESULT hr = m_service->ConOpenFromInitializationString(init.get(), VARIANT_FALSE, text.put(), stmt.put());
    if (errorText) *errorText = text.str();
    return hr;
}

Outcome ServiceClient::Execute(std::wstring_view sql) {
    Outcome outcome;
    ULONG handle = 0;
    outcome.hr = m_service->CmdSetConnection(&handle);
    if (FAILED(outcome.hr)) return outcome;
    Bstr text(sql);
    outcome.hr = m_service->CmdSetCommandText(handle, text.get());
    if (SUCCEEDED(outcome.hr)) {
        Bstr xml, errorText, errorStmt;
        outcome.hr = m_service->CmdExecute(handle, &outcome.result, xml.put(), errorText.put(), errorStmt.put());
        outcome.xmlWritten = xml.get() != nullptr;
        outcome.xml = xml.str();
        outcome.errorText = errorText.str();
        outcome.errorStmt = errorStmt.str();
    }
    m_service->CmdDestroy(handle);
    return outcome;
}

bool ServiceClient::Run(std::wstring_view sql) {
    Outcome outcome = Execute(sql);
    const bool ok = outcome.hr == S_OK && outcome.result == 1;
    if (!ok) {
        ADD_FAILURE() << "statement failed: " << ToUtf8(sql.substr(0, 200)) << "\nhr " << std::hex << outcome.hr
                      << " result " << std::dec << outcome.result << "\n"
                      << ToUtf8(outcome.errorText);
    }
    return ok;
}

std::optional<Rows> ServiceClient::Query(std::wstring_view sql, std::wstring* errorText) {
    ULONG handle = 0;
    if (FAILED(m_service->CmdSetConnection(&handle))) return std::nullopt;
    std::optional<Rows> rows;
    Bstr text(sql);
    SHORT result = 0;
    Bstr xml, error, stmt;
    if (SUCCEEDED(m_service->CmdSetCommandText(handle, text.get())) &&
        SUCCEEDED(m_service->CmdExecute(handle, &result, xml.put(), error.put(), stmt.put())) && result == 1) {
        rows.emplace();
        ULONGLONG columns = 0;
        m_service->CmdGetColumnCount(handle, &columns);
        SHORT moved = 0;
        HRESULT hr = m_service->CmdFetchFirst(handle, &moved);
        while (SUCCEEDED(hr) && moved == 1) {
            Row row;
            for (ULONGLONG c = 1; c <= columns; ++c) {
                SHORT isNull = 0, isBlob = 0;
                m_service->CmdIsNull(handle, c, &isNull);
                m_service->CmdIsBlob(handle, c, &isBlob);
                if (isNull == 1) {
                    row.emplace_back();
                } else if (isBlob == 1) {
                    Variant blob;
                    m_service->CmdGetBlobData(handle, c, blob.get());
                    row.emplace_back(L"x'" + HexBytes(VariantBytes(*blob.get())) + L"'");
                } else {
                    Bstr field;
                    m_service->CmdFieldAsString(handle, c, field.put());
                    row.emplace_back(field.str());
                }
            }
            rows->push_back(std::move(row));
            hr = m_service->CmdFetchNext(handle, &moved);
        }
    }
    if (errorText) *errorText = error.str();
    m_service->CmdDestroy(handle);
    return rows;
}

std::wstring ServiceClient::Scalar(std::wstring_view sql) {
    std::optional<Rows> rows = Query(sql);
    if (!rows || rows->empty() || rows->front().empty() || !rows->front().front()) return L"";
    return *rows->front().front();
}

namespace {

std::wstring DecodeXmlText(std::wstring_view text) {
    std::wstring out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != L'&') {
            out += text[i];
            continue;
        }
        const size_t end = text.find(L';', i);
        if (end == std::wstring_view::npos) {
            out += text.substr(i);
            break;
        }
        const std::wstring_view entity = text.substr(i + 1, end - i - 1);
        if (entity == L"amp") out += L'&';
        else if (entity == L"lt") out += L'<';
        else if (entity == L"gt") out += L'>';
        else if (entity == L"quot") out += L'"';
        else if (entity == L"apos") out += L'\'';
        else if (!entity.empty() && entity[0] == L'#') {
            const bool hex = entity.size() > 1 && (entity[1] == L'x' || entity[1] == L'X');
            const unsigned long code = std::wcstoul(std::wstring(entity.substr(hex ? 2 : 1)).c_str(), nullptr, hex ? 16 : 10);
            if (code >= 0x10000) {
                out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
                out += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
            } else {
                out += static_cast<wchar_t>(code);
            }
        } else {
            out += text.substr(i, end - i + 1);
        }
        i = end;
    }
    return out;
}

}  // namespace

std::vector<XmlAttributes> XmlElements(const std::wstring& xml, const std::wstring& name) {
    std::vector<XmlAttributes> elements;
    const std::wstring open = L"<" + name;
    for (size_t at = xml.find(open); at != std::wstring::npos; at = xml.find(open, at + 1)) {
        size_t pos = at + open.size();
        if (pos < xml.size() && xml[pos] != L' ' && xml[pos] != L'/' && xml[pos] != L'>') continue;
        XmlAttributes attributes;
        for (;;) {
            while (pos < xml.size() && std::iswspace(xml[pos])) ++pos;
            if (pos >= xml.size() || xml[pos] == L'/' || xml[pos] == L'>') break;
            const size_t equals = xml.find(L'=', pos);
            if (equals == std::wstring::npos || equals + 1 >= xml.size()) break;
            const wchar_t quote = xml[equals + 1];
            const size_t close = xml.find(quote, equals + 2);
            if (close == std::wstring::npos) break;
            attributes[xml.substr(pos, equals - pos)] =
                DecodeXmlText(std::wstring_view(xml).substr(equals + 2, close - equals - 2));
            pos = close + 1;
        }
        elements.push_back(std::move(attributes));
    }
    return elements;
}

std::string DatabaseSnapshot(ServiceClient& client) {
    std::optional<Rows> schema =
        client.Query(L"SELECT type, name, tbl_name, sql FROM sqlite_master ORDER BY type, name");
    if (!schema) return "(the schema cannot be read)";
    std::string snapshot = "schema:\n" + Describe(*schema);
    for (const Row& entry : *schema) {
        if (!entry[0] || *entry[0] != L"table" || !entry[1]) continue;
        std::wstring name = *entry[1];
        std::wstring quoted = L"\"";
        for (wchar_t c : name) quoted += c == L'"' ? std::wstring(L"\"\"") : std::wstring(1, c);
        quoted += L"\"";
        std::optional<Rows> rows = client.Query(L"SELECT * FROM " + quoted + L" ORDER BY rowid");
        snapshot += "table " + ToUtf8(name) + ":\n" + (rows ? Describe(*rows) : std::string("(unreadable)\n"));
    }
    return snapshot;
}

}  // namespace zel::test
