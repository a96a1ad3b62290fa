#include "host/ZelDbError.h"

#include <cwchar>

namespace zel::zeldb {

namespace {

struct KnownCode {
    HRESULT hr;
    const wchar_t* name;
    const wchar_t* meaning;
};

const KnownCode kKnownCodes[] = {
    {static_cast<HRESULT>(0x80004005L), L"E_FAIL", L"the operation failed"},
    {static_cast<HRESULT>(0x80004001L), L"E_NOTIMPL", L"not implemented"},
    {static_cast<HRESULT>(0x80004002L), L"E_NOINTERFACE", L"the provider does not support this operation"},
    {static_cast<HRESULT>(0x8000FFFFL), L"E_UNEXPECTED", L"unexpected failure"},
    {static_cast<HRESULT>(0x80070057L), L"E_INVALIDARG", L"an argument is not valid"},
    {static_cast<HRESULT>(0x8007000EL), L"E_OUTOFMEMORY", L"out of memory"},
    {static_cast<HRESULT>(0x80070002L), L"ERROR_FILE_NOT_FOUND", L"the file does not exist"},
    {static_cast<HRESULT>(0x80070005L), L"E_ACCESSDENIED", L"access denied"},
    {static_cast<HRESULT>(0x80040154L), L"REGDB_E_CLASSNOTREG", L"the class is not registered"},
    {static_cast<HRESULT>(0x80080005L), L"CO_E_SERVER_EXEC_FAILURE", L"the server process could not be started"},
    {static_cast<HRESULT>(0x800706BAL), L"RPC_S_SERVER_UNAVAILABLE", L"the server process is gone"},
    {static_cast<HRESULT>(0x800706BEL), L"RPC_S_CALL_FAILED", L"the call to the server process failed"},
    {static_cast<HRESULT>(0x80010108L), L"RPC_E_DISCONNECTED", L"the server process is gone"},
    {static_cast<HRESULT>(0x80010105L), L"RPC_E_SERVERFAULT", L"the server failed while running the call"},
    {static_cast<HRESULT>(0x80040E07L), L"DB_E_CANTCONVERTVALUE", L"a value cannot be converted"},
    {static_cast<HRESULT>(0x80040E09L), L"DB_SEC_E_PERMISSIONDENIED", L"permission denied"},
    {static_cast<HRESULT>(0x80040E0CL), L"DB_E_NOCOMMAND", L"no command text was set"},
    {static_cast<HRESULT>(0x80040E11L), L"DB_E_BADCOLUMNID", L"a column is not valid"},
    {static_cast<HRESULT>(0x80040E14L), L"DB_E_ERRORSINCOMMAND", L"the command contains errors"},
    {static_cast<HRESULT>(0x80040E19L), L"DB_E_NOTFOUND", L"not found"},
    {static_cast<HRESULT>(0x80040E21L), L"DB_E_ERRORSOCCURRED", L"errors occurred"},
    {static_cast<HRESULT>(0x80040E2FL), L"DB_E_INTEGRITYVIOLATION", L"the change violates an integrity constraint"},
    {static_cast<HRESULT>(0x80040E35L), L"DB_E_NOINDEX", L"the index does not exist"},
    {static_cast<HRESULT>(0x80040E37L), L"DB_E_NOTABLE", L"the table does not exist"},
    {static_cast<HRESULT>(0x80040E3CL), L"DB_E_BADTABLEID", L"the table name is not valid"},
    {static_cast<HRESULT>(0x80040E3DL), L"DB_E_BADTYPE", L"a column type is not valid"},
    {static_cast<HRESULT>(0x80040E3EL), L"DB_E_DUPLICATECOLUMNID", L"a column name is used twice"},
    {static_cast<HRESULT>(0x80040E3FL), L"DB_E_DUPLICATETABLEID", L"the table already exists"},
    {static_cast<HRESULT>(0x80040E40L), L"DB_E_TABLEINUSE", L"the table is in use"},
    {static_cast<HRESULT>(0x80040E4DL), L"DB_SEC_E_AUTH_FAILED", L"authentication failed"},
    {static_cast<HRESULT>(0x80040E52L), L"DB_E_ALREADYINITIALIZED", L"the data source is already initialized"},
    {static_cast<HRESULT>(0x80040E53L), L"DB_E_NOTSUPPORTED", L"the provider does not support this"},
    {static_cast<HRESULT>(0x80040E57L), L"DB_E_DATAOVERFLOW", L"a value is out of range"},
    {static_cast<HRESULT>(0x80040E72L), L"DB_E_BADINDEXID", L"the index name is not valid"},
    {static_cast<HRESULT>(0x80040E94L), L"DB_E_READONLY", L"the data source is read-only"},
};

std::wstring HexCode(HRESULT hr) {
    wchar_t buffer[16];
    std::swprintf(buffer, std::size(buffer), L"0x%08lX", static_cast<unsigned long>(hr));
    return buffer;
}

std::wstring SystemMessage(HRESULT hr) {
    wchar_t* text = nullptr;
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, static_cast<DWORD>(hr), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::wstring message;
    if (length && text) message.assign(text, length);
    if (text) LocalFree(text);
    while (!message.empty() && (message.back() == L'\n' || message.back() == L'\r' || message.back() == L' ' ||
                                message.back() == L'.')) {
        message.pop_back();
    }
    return message;
}

}  // namespace

std::wstring DescribeHresult(HRESULT hr) {
    for (const auto& known : kKnownCodes) {
        if (known.hr == hr) return HexCode(hr) + L" " + known.name + L": " + known.meaning;
    }
    const std::wstring system = SystemMessage(hr);
    if (!system.empty()) return HexCode(hr) + L": " + system;
    return HexCode(hr);
}

void PrintError(TextSink& err, const ZelDbError& error) {
    if (error.errorText().empty() && error.code() == S_OK) {
        err.Write(L"zeldb: " + error.action() + L"\n");
        return;
    }
    if (error.errorText().empty()) {
        std::wstring line = L"zeldb: " + error.action() + L": " + DescribeHresult(error.code()) + L"\n";
        if (!error.errorStmt().empty()) line += L"statement: " + error.errorStmt() + L"\n";
        err.Write(line);
        return;
    }
    std::wstring text = L"zeldb: " + error.action() + L"\n" + error.errorText();
    if (text.back() != L'\n') text += L'\n';
    if (!error.errorStmt().empty()) text += L"statement: " + error.errorStmt() + L"\n";
    err.Write(text);
}

}  // namespace zel::zeldb
