#include "host/DbSession.h"

#include <oledb.h>

#include "common/Bstr.h"
#include "common/SafeArray.h"
#include "common/Variant.h"

namespace zel::zeldb {

namespace {

// A call to the server that failed in transport or was refused outright.
void Check(HRESULT hr, const std::wstring& action) {
    if (FAILED(hr)) throw ZelDbError(action, hr);
}

std::wstring Text(const Bstr& value) { return value.str(); }

// The catalog getters answer E_FAIL for an empty field: that is an empty text here.
template <typename Getter>
std::wstring CatalogText(IZelOleDb* service, Getter getter, ULONG handle, const wchar_t* action) {
    Bstr value;
    const HRESULT hr = (service->*getter)(handle, value.put());
    if (hr == E_FAIL) return {};
    Check(hr, action);
    return value.str();
}

ComPtr<IUnknown> CreateServerObject(REFCLSID clsid, const wchar_t* what) {
    ComPtr<IUnknown> object;
    const HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, object.put_void());
    if (SUCCEEDED(hr)) return object;
    std::wstring action = std::wstring(L"cannot start the ZelPmDb32 server's ") + what;
    if (hr == REGDB_E_CLASSNOTREG) {
        action += L" (register the server with `ZelPmDb32.exe /RegServer`, or run zeldb through `./zel zeldb`)";
    }
    throw ZelDbError(action, hr);
}

// Owners of the enumeration handles; Destroy runs whatever happened in between.
struct TableHandle {
    IZelOleDb* service;
    ULONG value = 0;
    ~TableHandle() {
        if (value) service->TblDestroy(value);
    }
};
struct ColumnHandle {
    IZelOleDb* service;
    ULONG value = 0;
    ~ColumnHandle() {
        if (value) service->ColDestroy(value);
    }
};
struct IndexHandle {
    IZelOleDb* service;
    ULONG value = 0;
    ~IndexHandle() {
        if (value) service->IdxDestroy(value);
    }
};

}  // namespace

ComPtr<IZelOleDb> CreateServiceObject() {
    ComPtr<IUnknown> object = CreateServerObject(CLSID_ZelOleDbImpl, L"database service");
    ComPtr<IZelOleDb> service;
    Check(object.query(service), L"the server's database service has no IZelOleDb interface");
    return service;
}

ComPtr<IZelOleDbHelper> CreateHelperObject() {
    ComPtr<IUnknown> object = CreateServerObject(CLSID_ZelOleDbHelperImpl, L"connection-string helper");
    ComPtr<IZelOleDbHelper> helper;
    Check(object.query(helper), L"the server's helper has no IZelOleDbHelper interface");
    return helper;
}

std::wstring DbTypeName(LONG code) {
    switch (code) {
        case 0: return L"DBTYPE_EMPTY";
        case 1: return L"DBTYPE_NULL";
        case 2: return L"DBTYPE_I2";
        case 3: return L"DBTYPE_I4";
        case 4: return L"DBTYPE_R4";
        case 5: return L"DBTYPE_R8";
        case 6: return L"DBTYPE_CY";
        case 7: return L"DBTYPE_DATE";
        case 8: return L"DBTYPE_BSTR";
        case 9: return L"DBTYPE_IDISPATCH";
        case 10: return L"DBTYPE_ERROR";
        case 11: return L"DBTYPE_BOOL";
        case 12: return L"DBTYPE_VARIANT";
        case 13: return L"DBTYPE_IUNKNOWN";
        case 14: return L"DBTYPE_DECIMAL";
        case 16: return L"DBTYPE_I1";
        case 17: return L"DBTYPE_UI1";
        case 18: return L"DBTYPE_UI2";
        case 19: return L"DBTYPE_UI4";
        case 20: return L"DBTYPE_I8";
        case 21: return L"DBTYPE_UI8";
        case 64: return L"DBTYPE_FILETIME";
        case 72: return L"DBTYPE_GUID";
        case 128: return L"DBTYPE_BYTES";
        case 129: return L"DBTYPE_STR";
        case 130: return L"DBTYPE_WSTR";
        case 131: return L"DBTYPE_NUMERIC";
        case 132: return L"DBTYPE_UDT";
        case 133: return L"DBTYPE_DBDATE";
        case 134: return L"DBTYPE_DBTIME";
        case 135: return L"DBTYPE_DBTIMESTAMP";
        case 136: return L"DBTYPE_HCHAPTER";
        case 138: return L"DBTYPE_PROPVARIANT";
        case 139: return L"DBTYPE_VARNUMERIC";
        default: return std::to_wstring(code);
    }
}

// --- Statement -------------------------------------------------------------------------

Statement::Statement(IZelOleDb* service) : m_service(service) {
    Check(m_service->CmdSetConnection(&m_handle), L"cannot create a command on the server");
}

Statement::~Statement() {
    if (m_handle) m_service->CmdDestroy(m_handle);
}

void Statement::Execute(const std::wstring& sql) {
    const Bstr text(sql);
    Check(m_service->CmdSetCommandText(m_handle, text.get()), L"cannot pass the statement to the server");
    short result = 0;
    Bstr xml;
    Bstr errorText;
    Bstr errorStmt;
    Check(m_service->CmdExecute(m_handle, &result, xml.put(), errorText.put(), errorStmt.put()),
          L"the statement could not be run (no open connection?)");
    if (result != 1) throw ZelDbError(L"the statement failed", E_FAIL, Text(errorText), Text(errorStmt));
    m_xml.reset();
    if (xml.get()) m_xml = xml.str();
}

IZelOleDbRows* Statement::Rows() {
    if (!m_rows) Check(ComPtr<IZelOleDb>(m_service).query(m_rows), L"the server has no batch interface IZelOleDbRows");
    return m_rows.get();
}

namespace {

// Rows in a batch: the second dimension of the 2-D array.
LONG BatchRowCount(const Variant& rows) {
    if (rows.vt() != (VT_ARRAY | VT_VARIANT) || !V_ARRAY(rows.get())) return 0;
    LONG lower = 0;
    LONG upper = -1;
    SafeArrayGetLBound(V_ARRAY(rows.get()), 2, &lower);
    SafeArrayGetUBound(V_ARRAY(rows.get()), 2, &upper);
    return upper - lower + 1;
}

}  // namespace

void Statement::ExecuteBatched(const std::wstring& sql, LONG batchRows) {
    const Bstr text(sql);
    Check(m_service->CmdSetCommandText(m_handle, text.get()), L"cannot pass the statement to the server");
    short result = 0;
    Bstr errorText;
    Bstr errorStmt;
    m_firstBatch.clear();
    Check(Rows()->RowsExecute(m_handle, batchRows, &result, errorText.put(), errorStmt.put(), m_firstBatch.put()),
          L"the statement could not be run (no open connection?)");
    if (result != 1) throw ZelDbError(L"the statement failed", E_FAIL, Text(errorText), Text(errorStmt));
    m_xml.reset();
    m_hasFirstBatch = batchRows > 0;
    m_endSeen = batchRows > 0 && BatchRowCount(m_firstBatch) < batchRows;
}

std::vector<Statement::BatchColumn> Statement::DescribeColumns() {
    std::vector<BatchColumn> columns;
    Variant described;
    Check(Rows()->RowsGetColumns(m_handle, described.put()), L"cannot read the result's columns");
    if (described.vt() != (VT_ARRAY | VT_VARIANT) || !V_ARRAY(described.get())) return columns;
    SAFEARRAY* array = V_ARRAY(described.get());
    LONG attributes = 0;
    LONG count = 0;
    LONG upper = -1;
    SafeArrayGetUBound(array, 1, &upper);
    attributes = upper + 1;
    SafeArrayGetUBound(array, 2, &upper);
    count = upper + 1;
    if (attributes < 2) return columns;
    SafeArrayData data(array);
    const VARIANT* cells = data.as<VARIANT>();
    for (LONG c = 0; c < count; ++c) {
        const VARIANT* column = cells + static_cast<size_t>(c) * attributes;
        BatchColumn entry;
        if (V_VT(&column[0]) == VT_BSTR && V_BSTR(&column[0])) entry.name = V_BSTR(&column[0]);
        if (V_VT(&column[1]) == VT_I4) entry.type = V_I4(&column[1]);
        // Right-aligned as with the server's texts: the integral and numeric types.
        switch (entry.type) {
            case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_I8: case DBTYPE_UI8:
            case DBTYPE_DECIMAL: case DBTYPE_NUMERIC: case DBTYPE_VARNUMERIC:
                entry.alignRight = true;
                break;
            default: break;
        }
        columns.push_back(std::move(entry));
    }
    return columns;
}

bool Statement::NextBatch(LONG batchRows, Variant& rows) {
    rows.clear();
    if (m_hasFirstBatch) {
        m_hasFirstBatch = false;
        m_firstBatch.detach(rows.get());
        return BatchRowCount(rows) > 0;
    }
    if (m_endSeen) return false;
    Check(Rows()->RowsFetch(m_handle, batchRows, rows.put()), L"cannot fetch rows");
    const LONG count = BatchRowCount(rows);
    m_endSeen = count < batchRows;
    return count > 0;
}

std::uint64_t Statement::ColumnCount() {
    UINT64 count = 0;
    Check(m_service->CmdGetColumnCount(m_handle, &count), L"cannot read the result's column count");
    return count;
}

std::int64_t Statement::RowsAffected() {
    INT64 rows = 0;
    Check(m_service->CmdGetRowsAffected(m_handle, &rows), L"cannot read the number of rows affected");
    return rows;
}

std::vector<Statement::Column> Statement::Columns() {
    std::vector<Column> columns;
    const std::uint64_t count = ColumnCount();
    for (std::uint64_t c = 1; c <= count; ++c) {
        Column column;
        Bstr name;
        Check(m_service->CmdGetColumnName(m_handle, c, name.put()), L"cannot read a column name");
        column.name = name.str();
        Check(m_service->CmdGetRawType(m_handle, c, &column.rawType), L"cannot read a column type");
        short blob = 0;
        short integral = 0;
        short numeric = 0;
        Check(m_service->CmdIsBlob(m_handle, c, &blob), L"cannot classify a column");
        Check(m_service->CmdIsIntegral(m_handle, c, &integral), L"cannot classify a column");
        Check(m_service->CmdIsNumeric(m_handle, c, &numeric), L"cannot classify a column");
        column.blob = blob == 1;
        column.alignRight = integral == 1 || numeric == 1;
        columns.push_back(std::move(column));
    }
    return columns;
}

bool Statement::Move(HRESULT (STDMETHODCALLTYPE IZelOleDb::*move)(ULONG, short*)) {
    short result = 0;
    Check((m_service->*move)(m_handle, &result), L"cannot fetch a row");
    return result == 1;
}

bool Statement::First() { return Move(&IZelOleDb::CmdFetchFirst); }
bool Statement::Next() { return Move(&IZelOleDb::CmdFetchNext); }

Cell Statement::ReadCell(ULONG position, const Column& column) {
    const UINT64 pos = position;
    if (column.blob) {
        short isNull = 0;
        Check(m_service->CmdIsNull(m_handle, pos, &isNull), L"cannot read a field");
        if (isNull == 1) return Cell::Null();
        if (column.rawType == 128) {
            // Short binary values stay in the row buffer; their length is the field's size.
            UINT64 size = 0;
            Check(m_service->CmdGetColumnSize(m_handle, pos, &size), L"cannot read a field's size");
            return Cell::Blob(size);
        }
        Variant bytes;
        Check(m_service->CmdGetBlobData(m_handle, pos, bytes.get()), L"cannot read a long field");
        std::uint64_t size = 0;
        if (bytes.vt() == (VT_ARRAY | VT_UI1) && V_ARRAY(bytes.get())) {
            LONG lower = 0;
            LONG upper = -1;
            SafeArrayGetLBound(V_ARRAY(bytes.get()), 1, &lower);
            SafeArrayGetUBound(V_ARRAY(bytes.get()), 1, &upper);
            size = upper >= lower ? static_cast<std::uint64_t>(upper - lower + 1) : 0;
        }
        return Cell::Blob(size);
    }
    Bstr text;
    Check(m_service->CmdFieldAsStringEx(m_handle, pos, text.put()), L"cannot read a field");
    if (!text.empty()) return Cell::Text(text.str());
    short isNull = 0;
    Check(m_service->CmdIsNull(m_handle, pos, &isNull), L"cannot read a field");
    return isNull == 1 ? Cell::Null() : Cell::Text(L"");
}

// --- DbSession -------------------------------------------------------------------------

DbSession::DbSession() : m_service(CreateServiceObject()) {}

DbSession::~DbSession() {
    if (m_open && m_service) m_service->ConClose();
}

void DbSession::Open(const std::wstring& initString) {
    const Bstr init(initString);
    Bstr errorText;
    Bstr errorStmt;
    const HRESULT hr = m_service->ConOpenFromInitializationString(init.get(), VARIANT_FALSE, errorText.put(),
                                                                 errorStmt.put());
    if (FAILED(hr)) {
        throw ZelDbError(L"cannot open \"" + initString + L"\"", hr, Text(errorText), Text(errorStmt));
    }
    m_open = true;
}

std::wstring DbSession::DataSourceName() {
    Bstr source;
    if (FAILED(m_service->ConGetDatasource(source.put()))) return {};
    return source.str();
}

std::vector<TableInfo> DbSession::Tables(const std::optional<std::wstring>& type) {
    TableHandle handle{m_service.get()};
    const Bstr typeText(type ? *type : std::wstring());
    Bstr errorText;
    Bstr errorStmt;
    const HRESULT hr = m_service->TblOpen(&handle.value, nullptr, nullptr, nullptr, typeText.get(),
                                          errorText.put(), errorStmt.put());
    if (FAILED(hr)) throw ZelDbError(L"cannot list the tables", hr, Text(errorText), Text(errorStmt));
    std::vector<TableInfo> tables;
    for (;;) {
        VARIANT_BOOL more = VARIANT_FALSE;
        Check(m_service->TblFetchNext(handle.value, &more), L"cannot list the tables");
        if (more != VARIANT_TRUE) break;
        TableInfo table;
        table.name = CatalogText(m_service.get(), &IZelOleDb::TblGetName, handle.value, L"cannot read a table name");
        table.type = CatalogText(m_service.get(), &IZelOleDb::TblGetType, handle.value, L"cannot read a table type");
        table.description = CatalogText(m_service.get(), &IZelOleDb::TblGetDescription, handle.value,
                                        L"cannot read a table description");
        tables.push_back(std::move(table));
    }
    return tables;
}

std::vector<ColumnInfo> DbSession::Columns(const std::wstring& table) {
    const Bstr tableName(table);
    IZelOleDb* svc = m_service.get();

    // First with the identity data of the table definition; a provider that cannot describe
    // the table refuses that part without error text, and the plain listing still works.
    auto open = [&](ColumnHandle& handle, VARIANT_BOOL extended, Bstr& errorText, Bstr& errorStmt) {
        return svc->ColOpen(&handle.value, nullptr, nullptr, tableName.get(), nullptr, extended, errorText.put(),
                            errorStmt.put());
    };
    std::optional<ColumnHandle> handle;
    handle.emplace(ColumnHandle{svc});
    Bstr errorText;
    Bstr errorStmt;
    bool identityKnown = true;
    HRESULT hr = open(*handle, VARIANT_TRUE, errorText, errorStmt);
    if (FAILED(hr) && errorText.empty()) {
        identityKnown = false;
        handle.emplace(ColumnHandle{svc});
        hr = open(*handle, VARIANT_FALSE, errorText, errorStmt);
    }
    if (FAILED(hr)) {
        throw ZelDbError(L"cannot list the columns of \"" + table + L"\"", hr, Text(errorText), Text(errorStmt));
    }
    const ULONG h = handle->value;
    std::vector<ColumnInfo> columns;
    for (;;) {
        VARIANT_BOOL more = VARIANT_FALSE;
        Check(svc->ColFetchNext(h, &more), L"cannot list the columns");
        if (more != VARIANT_TRUE) break;
        ColumnInfo c;
        const wchar_t* action = L"cannot read a column's description";
        c.name = CatalogText(svc, &IZelOleDb::ColGetName, h, action);
        Check(svc->ColOrdinalPosition(h, &c.position), action);
        Check(svc->ColDataType(h, &c.dataType), action);
        Check(svc->ColPrecision(h, &c.size), action);
        Check(svc->ColNumericPrecision(h, &c.precision), action);
        Check(svc->ColNumericScale(h, &c.scale), action);
        VARIANT_BOOL flag = VARIANT_FALSE;
        Check(svc->ColIsNullable(h, &flag), action);
        c.nullable = flag == VARIANT_TRUE;
        Check(svc->ColHasDefault(h, &flag), action);
        c.hasDefault = flag == VARIANT_TRUE;
        Bstr defaultValue;
        Check(svc->ColGetDefault(h, defaultValue.put()), action);
        c.defaultValue = defaultValue.str();
        c.identityKnown = identityKnown;
        if (identityKnown) {
            Check(svc->ColIsIdentity(h, &flag), action);
            c.identity = flag == VARIANT_TRUE;
            Check(svc->ColSeed(h, &c.seed), action);
            Check(svc->ColIncrement(h, &c.increment), action);
        }
        columns.push_back(std::move(c));
    }
    return columns;
}

std::vector<IndexInfo> DbSession::Indexes(const std::optional<std::wstring>& table) {
    IndexHandle handle{m_service.get()};
    const Bstr tableName(table ? table->c_str() : nullptr);
    Bstr errorText;
    Bstr errorStmt;
    const HRESULT hr = m_service->IdxOpen(&handle.value, nullptr, nullptr, tableName.get(), nullptr, errorText.put(),
                                          errorStmt.put());
    if (FAILED(hr)) throw ZelDbError(L"cannot list the indexes", hr, Text(errorText), Text(errorStmt));
    std::vector<IndexInfo> indexes;
    IZelOleDb* svc = m_service.get();
    for (;;) {
        VARIANT_BOOL more = VARIANT_FALSE;
        Check(svc->IdxFetchNext(handle.value, &more), L"cannot list the indexes");
        if (more != VARIANT_TRUE) break;
        IndexInfo index;
        const wchar_t* action = L"cannot read an index's description";
        index.table = CatalogText(svc, &IZelOleDb::IdxGetTableName, handle.value, action);
        index.index = CatalogText(svc, &IZelOleDb::IdxGetName, handle.value, action);
        index.column = CatalogText(svc, &IZelOleDb::IdxGetColumnName, handle.value, action);
        indexes.push_back(std::move(index));
    }
    return indexes;
}

std::wstring DbSession::TableDefinition(const std::wstring& table) {
    const Bstr name(table);
    Bstr xml;
    const HRESULT hr = m_service->TblGetDef(name.get(), xml.put());
    if (FAILED(hr)) throw ZelDbError(L"cannot read the definition of table \"" + table + L"\"", hr);
    return xml.str();
}

void DbSession::CreateTable(const std::wstring& tableDefXml) {
    const Bstr xml(tableDefXml);
    const HRESULT hr = m_service->TblCreate(xml.get());
    if (FAILED(hr)) throw ZelDbError(L"cannot create the table", hr);
}

void DbSession::DropTable(const std::wstring& table) {
    const Bstr name(table);
    const HRESULT hr = m_service->TblDelete(name.get());
    if (FAILED(hr)) throw ZelDbError(L"cannot drop table \"" + table + L"\"", hr);
}

void DbSession::Compact() {
    const HRESULT hr = m_service->ConCompactMdb();
    // Compaction leaves the connection closed whatever the outcome.
    m_open = false;
    if (FAILED(hr)) throw ZelDbError(L"cannot compact the database", hr);
}

void DbSession::CreateDatabaseFile(const std::wstring& initString, const std::wstring& file) {
    const Bstr init(initString);
    const Bstr path(file);
    Bstr errorText;
    Bstr errorStmt;
    const HRESULT hr = m_service->ConCreateMdbFile(init.get(), path.get(), errorText.put(), errorStmt.put());
    if (FAILED(hr)) {
        throw ZelDbError(L"cannot create database file \"" + file + L"\"", hr, Text(errorText), Text(errorStmt));
    }
}

}  // namespace zel::zeldb
