#include "ProviderTestSupport.h"

#include <msdasc.h>

#include <gtest/gtest.h>

#include "common/CoTaskMem.h"

namespace zel::test {

namespace {

std::wstring TempRoot() {
    wchar_t buffer[MAX_PATH];
    DWORD n = GetTempPathW(MAX_PATH, buffer);
    return std::wstring(buffer, n);
}

std::wstring UniqueName() {
    GUID g;
    CoCreateGuid(&g);
    wchar_t text[64];
    swprintf(text, 64, L"zellite-%08lX%04X%04X", static_cast<unsigned long>(g.Data1), g.Data2, g.Data3);
    return text;
}

}  // namespace

TempDatabase::TempDatabase() : TempDatabase(L"test.db") {}

TempDatabase::TempDatabase(const std::wstring& fileName) {
    m_directory = TempRoot() + UniqueName();
    CreateDirectoryW(m_directory.c_str(), nullptr);
    m_path = m_directory + L"\\" + fileName;
    HANDLE file = CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, file);
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
}

TempDatabase::~TempDatabase() {
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((m_directory + L"\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = data.cFileName;
            if (name != L"." && name != L"..") DeleteFileW((m_directory + L"\\" + name).c_str());
        } while (FindNextFileW(find, &data));
        FindClose(find);
    }
    RemoveDirectoryW(m_directory.c_str());
}

std::wstring TempDatabase::ConnectionString(const std::wstring& extra) const {
    std::wstring s = std::wstring(L"Provider=") + kProgId + L";Data Source=" + m_path;
    if (!extra.empty()) s += L";" + extra;
    return s;
}

HRESULT TryGetDataSource(const std::wstring& connectionString, ComPtr<IDBInitialize>& out) {
    ComPtr<IDataInitialize> init;
    HRESULT hr = TryCreateInstance(CLSID_MSDAINITIALIZE, init);
    if (FAILED(hr)) return hr;
    out.reset();
    return init->GetDataSource(nullptr, CLSCTX_INPROC_SERVER, const_cast<LPWSTR>(connectionString.c_str()),
                               IID_IDBInitialize, out.put_unknown());
}

ComPtr<IDBInitialize> GetDataSource(const std::wstring& connectionString) {
    ComPtr<IDBInitialize> source;
    HRESULT hr = TryGetDataSource(connectionString, source);
    EXPECT_EQ(S_OK, hr) << "GetDataSource failed for " << testing::PrintToString(connectionString);
    return source;
}

void RegisterProviderBesideProgram(const wchar_t* fileName) {
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    ASSERT_GT(length, 0u);
    std::wstring dll(path, length);
    dll = dll.substr(0, dll.find_last_of(L"\\/") + 1) + fileName;
    HMODULE module = LoadLibraryW(dll.c_str());
    ASSERT_NE(nullptr, module) << "cannot load " << testing::PrintToString(std::wstring(fileName))
                               << " next to the test program";
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    auto registerServer =
        reinterpret_cast<RegisterFunction>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    ASSERT_NE(nullptr, registerServer);
    ASSERT_EQ(S_OK, registerServer());
}

Connection Connection::Open(const std::wstring& connectionString) {
    Connection c;
    c.dataSource = GetDataSource(connectionString);
    if (!c.dataSource) return c;
    HRESULT hr = c.dataSource->Initialize();
    EXPECT_EQ(S_OK, hr);
    if (FAILED(hr)) return c;
    auto create = c.dataSource.as<IDBCreateSession>();
    EXPECT_EQ(S_OK, create->CreateSession(nullptr, IID_IOpenRowset, c.session.put_unknown()));
    return c;
}

ComPtr<ICommandText> Connection::NewCommand(const std::wstring& sql) const {
    auto create = session.as<IDBCreateCommand>();
    ComPtr<ICommandText> command;
    EXPECT_EQ(S_OK, create->CreateCommand(nullptr, IID_ICommandText, command.put_unknown()));
    EXPECT_EQ(S_OK, command->SetCommandText(DBGUID_DEFAULT, sql.c_str()));
    return command;
}

HRESULT Connection::TryExecute(const std::wstring& sql, ComPtr<IRowset>* rowset, DBROWCOUNT* affected,
                               const DBPROPSET* properties, ULONG propertySets) const {
    auto command = NewCommand(sql);
    if (!command) return E_FAIL;
    if (propertySets) {
        HRESULT hr = command.as<ICommandProperties>()->SetProperties(propertySets, const_cast<DBPROPSET*>(properties));
        if (hr != S_OK) return hr;
    }
    DBROWCOUNT count = 0;
    ComPtr<IRowset> result;
    HRESULT hr = command->Execute(nullptr, rowset ? IID_IRowset : IID_NULL, nullptr, &count,
                                  rowset ? result.put_unknown() : nullptr);
    if (rowset) *rowset = result;
    if (affected) *affected = count;
    return hr;
}

DBROWCOUNT Connection::Run(const std::wstring& sql) const {
    DBROWCOUNT affected = 0;
    HRESULT hr = TryExecute(sql, nullptr, &affected);
    EXPECT_EQ(S_OK, hr) << testing::PrintToString(sql);
    return affected;
}

ComPtr<IRowset> Connection::Query(const std::wstring& sql, const DBPROPSET* properties, ULONG propertySets) const {
    ComPtr<IRowset> rowset;
    HRESULT hr = TryExecute(sql, &rowset, nullptr, properties, propertySets);
    EXPECT_EQ(S_OK, hr) << testing::PrintToString(sql);
    EXPECT_TRUE(rowset) << testing::PrintToString(sql);
    return rowset;
}

DBPROP BoolProperty(DBPROPID id, bool value, DBPROPOPTIONS options) {
    DBPROP p{};
    p.dwPropertyID = id;
    p.dwOptions = options;
    p.colid = DB_NULLID;
    V_VT(&p.vValue) = VT_BOOL;
    V_BOOL(&p.vValue) = value ? VARIANT_TRUE : VARIANT_FALSE;
    return p;
}

ServerRowsetProperties::ServerRowsetProperties() {
    const struct {
        DBPROPID id;
        DBPROPOPTIONS options;
        bool isI4;
    } wanted[5] = {{DBPROP_IRowsetChange, DBPROPOPTIONS_OPTIONAL, false},
                 {DBPROP_UPDATABILITY, DBPROPOPTIONS_REQUIRED, true},
                 {DBPROP_CANSCROLLBACKWARDS, DBPROPOPTIONS_REQUIRED, false},
                 {DBPROP_ISequentialStream, DBPROPOPTIONS_OPTIONAL, false},
                 {DBPROP_IStream, DBPROPOPTIONS_OPTIONAL, false}};
    for (int i = 0; i < 5; ++i) {
        DBPROP& p = props[i];
        p = DBPROP{};
        p.dwPropertyID = wanted[i].id;
        p.dwOptions = wanted[i].options;
        p.colid = DB_NULLID;
        VariantInit(&p.vValue);
        if (wanted[i].isI4) {
            V_VT(&p.vValue) = VT_I4;
            V_I4(&p.vValue) = DBPROPVAL_UP_CHANGE | DBPROPVAL_UP_DELETE | DBPROPVAL_UP_INSERT;
        } else {
            V_VT(&p.vValue) = VT_BOOL;
            V_BOOL(&p.vValue) = VARIANT_TRUE;
        }
    }
    set.guidPropertySet = DBPROPSET_ROWSET;
    set.cProperties = 5;
    set.rgProperties = props;
}

ServerRowsetProperties::~ServerRowsetProperties() {
    for (auto& p : props) VariantClear(&p.vValue);
}

Variant GetDataSourceProperty(IUnknown* dataSource, REFGUID set, DBPROPID id, HRESULT* result) {
    Variant value;
    ComPtr<IUnknown> unknown(dataSource);
    auto properties = unknown.try_as<IDBProperties>();
    HRESULT hr = E_NOINTERFACE;
    if (properties) {
        DBPROPIDSET idSet{&id, 1, set};
        ULONG count = 0;
        DBPROPSET* sets = nullptr;
        hr = properties->GetProperties(1, &idSet, &count, &sets);
        if (SUCCEEDED(hr) && count == 1 && sets[0].cProperties == 1) {
            value = Variant(sets[0].rgProperties[0].vValue);
            VariantClear(&sets[0].rgProperties[0].vValue);
        }
        if (sets) {
            for (ULONG i = 0; i < count; ++i) CoTaskMemFree(sets[i].rgProperties);
            CoTaskMemFree(sets);
        }
    }
    if (result) *result = hr;
    return value;
}

std::vector<ColumnMeta> ColumnsOf(IUnknown* object) {
    std::vector<ColumnMeta> columns;
    ComPtr<IUnknown> unknown(object);
    auto info = unknown.as<IColumnsInfo>();
    DBORDINAL count = 0;
    DBCOLUMNINFO* infos = nullptr;
    OLECHAR* names = nullptr;
    HRESULT hr = info->GetColumnInfo(&count, &infos, &names);
    EXPECT_EQ(S_OK, hr);
    if (FAILED(hr)) return columns;
    for (DBORDINAL i = 0; i < count; ++i) {
        const DBCOLUMNINFO& c = infos[i];
        columns.push_back({c.pwszName ? c.pwszName : L"", c.iOrdinal, c.wType, c.ulColumnSize, c.bPrecision,
                           c.bScale, c.dwFlags});
    }
    CoTaskMemFree(infos);
    CoTaskMemFree(names);
    return columns;
}

DBBINDING Binding::Make(DBORDINAL ordinal, DBTYPE type, DBLENGTH maxLength, DBBYTEOFFSET valueOffset,
                        DBBYTEOFFSET lengthOffset, DBBYTEOFFSET statusOffset) {
    DBBINDING b{};
    b.iOrdinal = ordinal;
    b.obValue = valueOffset;
    b.obLength = lengthOffset;
    b.obStatus = statusOffset;
    b.dwPart = DBPART_VALUE | DBPART_LENGTH | DBPART_STATUS;
    b.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
    b.eParamIO = DBPARAMIO_NOTPARAM;
    b.cbMaxLen = maxLength;
    b.wType = type;
    return b;
}

ValueRead ReadValue(IRowset* rowset, HROW row, DBORDINAL ordinal, DBTYPE type, DBLENGTH maxLength, BYTE precision,
                    BYTE scale) {
    ValueRead read;
    ComPtr<IRowset> r(rowset);
    auto accessor = r.as<IAccessor>();
    DBLENGTH valueSize = maxLength ? maxLength : 32;
    DBBYTEOFFSET lengthOffset = (valueSize + 7) / 8 * 8;
    DBBINDING b = Binding::Make(ordinal, type, maxLength ? maxLength : valueSize, 0, lengthOffset,
                                lengthOffset + sizeof(DBLENGTH));
    b.bPrecision = precision;
    b.bScale = scale;
    HACCESSOR handle = DB_NULL_HACCESSOR;
    DBBINDSTATUS bindStatus = DBBINDSTATUS_OK;
    read.hr = accessor->CreateAccessor(DBACCESSOR_ROWDATA, 1, &b, 0, &handle, &bindStatus);
    if (FAILED(read.hr)) return read;
    std::vector<BYTE> buffer(lengthOffset + sizeof(DBLENGTH) + sizeof(DBSTATUS) + 8, 0xCC);
    read.hr = rowset->GetData(row, handle, buffer.data());
    memcpy(&read.length, buffer.data() + lengthOffset, sizeof(DBLENGTH));
    memcpy(&read.status, buffer.data() + lengthOffset + sizeof(DBLENGTH), sizeof(DBSTATUS));
    read.value.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(valueSize));
    accessor->ReleaseAccessor(handle, nullptr);
    return read;
}

std::vector<std::vector<std::wstring>> ReadAllAsText(IRowset* rowset) {
    std::vector<std::vector<std::wstring>> rows;
    auto columns = ColumnsOf(rowset);
    const DBLENGTH width = 4000 * sizeof(wchar_t) + sizeof(wchar_t);
    const DBBYTEOFFSET stride = (width + sizeof(DBLENGTH) + sizeof(DBSTATUS) + 7) / 8 * 8;
    std::vector<DBBINDING> bindings;
    for (size_t i = 0; i < columns.size(); ++i) {
        DBBYTEOFFSET base = stride * i;
        bindings.push_back(Binding::Make(columns[i].ordinal, DBTYPE_WSTR, width, base, base + width,
                                         base + width + sizeof(DBLENGTH)));
    }
    ComPtr<IRowset> r(rowset);
    auto accessor = r.as<IAccessor>();
    HACCESSOR handle = DB_NULL_HACCESSOR;
    EXPECT_EQ(S_OK, accessor->CreateAccessor(DBACCESSOR_ROWDATA, bindings.size(), bindings.data(), 0, &handle, nullptr));
    std::vector<BYTE> buffer(stride * (columns.size() + 1));
    EXPECT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    for (;;) {
        DBCOUNTITEM obtained = 0;
        HROW rowHandle = DB_NULL_HROW;
        HROW* handles = &rowHandle;
        HRESULT hr = rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &handles);
        if (hr != S_OK || obtained != 1) break;
        EXPECT_EQ(S_OK, rowset->GetData(rowHandle, handle, buffer.data()));
        std::vector<std::wstring> row;
        for (size_t i = 0; i < columns.size(); ++i) {
            DBBYTEOFFSET base = stride * i;
            DBSTATUS status;
            memcpy(&status, buffer.data() + base + width + sizeof(DBLENGTH), sizeof(DBSTATUS));
            row.push_back(status == DBSTATUS_S_ISNULL ? L"<null>"
                                                      : std::wstring(reinterpret_cast<wchar_t*>(buffer.data() + base)));
        }
        rows.push_back(std::move(row));
        rowset->ReleaseRows(1, &rowHandle, nullptr, nullptr, nullptr);
    }
    accessor->ReleaseAccessor(handle, nullptr);
    return rows;
}

std::wstring FetchFirstColumn(IRowset* rowset, DBROWOFFSET skip, DBROWCOUNT count, HRESULT* result) {
    DBCOUNTITEM obtained = 0;
    HROW rowHandle = DB_NULL_HROW;
    HROW* handles = &rowHandle;
    HRESULT hr = rowset->GetNextRows(DB_NULL_HCHAPTER, skip, count, &obtained, &handles);
    if (result) *result = hr;
    if (obtained == 0) return L"<none>";
    ValueRead read = ReadValue(rowset, rowHandle, 1, DBTYPE_WSTR, 200);
    rowset->ReleaseRows(1, &rowHandle, nullptr, nullptr, nullptr);
    if (read.status == DBSTATUS_S_ISNULL) return L"<null>";
    return reinterpret_cast<const wchar_t*>(read.value.data());
}

std::vector<ErrorRecordText> TakeErrorRecords() {
    std::vector<ErrorRecordText> records;
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.put()) != S_OK || !info) return records;
    auto list = info.try_as<IErrorRecords>();
    if (!list) return records;
    ULONG count = 0;
    list->GetRecordCount(&count);
    for (ULONG i = 0; i < count; ++i) {
        ErrorRecordText text;
        ERRORINFO basic{};
        list->GetBasicErrorInfo(i, &basic);
        text.hr = basic.hrError;
        ComPtr<IErrorInfo> record;
        if (SUCCEEDED(list->GetErrorInfo(i, GetUserDefaultLCID(), record.put())) && record) {
            Bstr source, description;
            record->GetSource(source.put());
            record->GetDescription(description.put());
            text.source = source.str();
            text.description = description.str();
        }
        ComPtr<IUnknown> custom;
        if (SUCCEEDED(list->GetCustomErrorObject(i, IID_ISQLErrorInfo, custom.put())) && custom) {
            auto sql = custom.as<ISQLErrorInfo>();
            Bstr state;
            sql->GetSQLInfo(state.put(), &text.nativeError);
            text.sqlState = state.str();
        }
        records.push_back(std::move(text));
    }
    return records;
}

}  // namespace zel::test
