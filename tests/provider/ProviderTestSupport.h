// What the provider tests share: a fresh database file per test, data sources obtained through
// IDataInitialize exactly as a client obtains them, commands, and readers for rowsets and
// error records. Nothing here links to the provider's own code.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <oledberr.h>

#include <string>
#include <vector>

#include "common/Bstr.h"
#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"

namespace zel::test {

inline constexpr wchar_t kProgId[] = L"ZelLite.OLEDB.1";

// Loads the provider DLL `fileName` that sits next to the test program and runs its
// DllRegisterServer, so that a suite exercises the provider of its own build tree. Fails the
// test (fatally) when it cannot.
void RegisterProviderBesideProgram(const wchar_t* fileName);

// An empty file (a valid empty SQLite database) in a new directory under the temp path.
class TempDatabase {
public:
    TempDatabase();
    explicit TempDatabase(const std::wstring& fileName);
    TempDatabase(const TempDatabase&) = delete;
    TempDatabase& operator=(const TempDatabase&) = delete;
    ~TempDatabase();
    const std::wstring& path() const { return m_path; }
    const std::wstring& directory() const { return m_directory; }
    std::wstring ConnectionString(const std::wstring& extra = L"") const;

private:
    std::wstring m_directory;
    std::wstring m_path;
};

// IDataInitialize::GetDataSource with the caller's string; the data source is not initialized.
HRESULT TryGetDataSource(const std::wstring& connectionString, ComPtr<IDBInitialize>& out);
ComPtr<IDBInitialize> GetDataSource(const std::wstring& connectionString);

// An initialized data source with one session.
struct Connection {
    ComPtr<IDBInitialize> dataSource;
    ComPtr<IOpenRowset> session;

    static Connection Open(const std::wstring& connectionString);
    // Executes a statement that returns no rows; returns the rows affected. Fails the test on error.
    DBROWCOUNT Run(const std::wstring& sql) const;
    // Executes and returns the HRESULT (and the rowset, when one is asked for).
    HRESULT TryExecute(const std::wstring& sql, ComPtr<IRowset>* rowset = nullptr, DBROWCOUNT* affected = nullptr,
                       const DBPROPSET* properties = nullptr, ULONG propertySets = 0) const;
    ComPtr<IRowset> Query(const std::wstring& sql, const DBPROPSET* properties = nullptr, ULONG propertySets = 0) const;
    ComPtr<ICommandText> NewCommand(const std::wstring& sql) const;
};

// A VT_BOOL property for a DBPROPSET (nothing to free).
DBPROP BoolProperty(DBPROPID id, bool value = true, DBPROPOPTIONS options = DBPROPOPTIONS_REQUIRED);

// The rowset property set the automation server asks for on every command.
struct ServerRowsetProperties {
    DBPROP props[5];
    DBPROPSET set;
    ServerRowsetProperties();
    ~ServerRowsetProperties();
};

// One property of one set, read through IDBProperties / IRowsetInfo style interfaces.
Variant GetDataSourceProperty(IUnknown* dataSource, REFGUID set, DBPROPID id, HRESULT* result = nullptr);

// Column metadata as IColumnsInfo reports it.
struct ColumnMeta {
    std::wstring name;
    DBORDINAL ordinal;
    DBTYPE type;
    DBLENGTH size;
    BYTE precision;
    BYTE scale;
    DBCOLUMNFLAGS flags;
};
std::vector<ColumnMeta> ColumnsOf(IUnknown* rowsetOrCommand);

// Reads every column of the rows of a rowset as text (DBTYPE_WSTR bound inline, 4000 chars);
// a NULL reads as "<null>".
std::vector<std::vector<std::wstring>> ReadAllAsText(IRowset* rowset);
// Fetches one row with the given skip/count and returns column 1 of it as text, or "<none>"
// when no row came back. Releases the row. `hr` receives GetNextRows' result.
std::wstring FetchFirstColumn(IRowset* rowset, DBROWOFFSET skip, DBROWCOUNT count, HRESULT* hr = nullptr);

// The thread's error object as text: one entry per record.
struct ErrorRecordText {
    HRESULT hr = S_OK;
    std::wstring source;
    std::wstring description;
    std::wstring sqlState;  // empty without ISQLErrorInfo
    LONG nativeError = 0;
};
std::vector<ErrorRecordText> TakeErrorRecords();

// A binding of `ordinal` as `type` at offset 0 with length and status after the value.
struct Binding {
    static DBBINDING Make(DBORDINAL ordinal, DBTYPE type, DBLENGTH maxLength, DBBYTEOFFSET valueOffset,
                          DBBYTEOFFSET lengthOffset, DBBYTEOFFSET statusOffset);
};

// Reads one value of the current row: binds `ordinal` as `type` (with `maxLength` bytes for
// variable types) and calls GetData. Buffer layout: value at 0, length at maxLength rounded up,
// status after it.
struct ValueRead {
    HRESULT hr = E_FAIL;
    DBSTATUS status = 0;
    DBLENGTH length = 0;
    std::vector<BYTE> value;
    template <typename T>
    T as() const {
        T t{};
        memcpy(&t, value.data(), sizeof(T));
        return t;
    }
};
ValueRead ReadValue(IRowset* rowset, HROW row, DBORDINAL ordinal, DBTYPE type, DBLENGTH maxLength = 0,
                    BYTE precision = 0, BYTE scale = 0);

}  // namespace zel::test
