// ITableDefinition and ITableCreation of ZelOdbc's session: CREATE TABLE written with the
// driver's own type names, DROP TABLE, and definitions read back from SQLColumns and
// SQLPrimaryKeys.
#include <oledberr.h>

#include <algorithm>
#include <vector>

#include "provider/ddl/ColumnDescReader.h"
#include "provider/ddl/NameIds.h"
#include "provider/ddl/TableDefinitionOutput.h"
#include "provider/errors/Errors.h"
#include "provider/odbc/OdbcCatalog.h"
#include "provider/odbc/OdbcRowSource.h"
#include "provider/odbc/OdbcSession.h"
#include "provider/odbc/OdbcTypes.h"
#include "provider/text/Utf.h"

namespace zel::provider::odbc {

namespace {

std::wstring TableNameOrFail(DBID* tableId, HRESULT hr) {
    if (!tableId) Fail(E_INVALIDARG, L"No table id was given.");
    std::optional<std::wstring> name = NameOf(tableId);
    if (!name) Fail(hr, L"Tables are named by DBKIND_NAME ids with a non-empty name.", L"42S02");
    return *name;
}

// The column's type in CREATE TABLE: the consumer's own type name when it gave one, else the
// driver's name for the OLE DB type with the size, precision and scale its CREATE_PARAMS ask for.
std::wstring DeclaredTypeSql(Connection& c, const DBCOLUMNDESC& desc, const ColumnDefinition& column) {
    const bool named = desc.pwszTypeName && *desc.pwszTypeName;
    const bool isLong = (column.type.flags & DBCOLUMNFLAGS_ISLONG) != 0 || column.type.size == kLongColumnSize;
    std::optional<DriverType> driverType = DriverTypeFor(c, column.type.type, isLong);
    if (named) {
        // A bare name of the driver's own type for this OLE DB type takes the precision and
        // scale (or length) the description gives, as the driver's type would: a table
        // definition read back names "numeric" with precision 10 and scale 2 for numeric(10,2).
        const std::wstring name = desc.pwszTypeName;
        if (!driverType || name.find(L'(') != std::wstring::npos || _wcsicmp(name.c_str(), driverType->name.c_str()))
            return name;
    } else if (!driverType) {
        Fail(DB_E_BADTYPE, L"The ODBC driver has no type for the column \"" + column.name + L"\" (OLE DB type " +
                               std::to_wstring(column.type.type) + L").");
    }
    std::wstring sql = named ? std::wstring(desc.pwszTypeName) : driverType->name;
    const std::wstring& params = driverType->createParams;
    if (params.find(L"precision") != std::wstring::npos && column.type.precision != kNoPrecision &&
        (column.type.type == DBTYPE_DECIMAL || column.type.type == DBTYPE_NUMERIC)) {
        sql += L"(" + std::to_wstring(column.type.precision);
        if (params.find(L"scale") != std::wstring::npos && column.type.scale != kNoPrecision)
            sql += L"," + std::to_wstring(column.type.scale);
        sql += L")";
    } else if (params.find(L"length") != std::wstring::npos && !isLong && column.type.size > 0) {
        sql += L"(" + std::to_wstring(column.type.size) + L")";
    }
    return sql;
}

}  // namespace

STDMETHODIMP OdbcSession::CreateTable(IUnknown* outer, DBID* tableId, DBORDINAL columnCount,
                                      const DBCOLUMNDESC columnDescs[], REFIID riid, ULONG setCount, DBPROPSET sets[],
                                      DBID** newTableId, IUnknown** rowset) {
    try {
        if (newTableId) *newTableId = nullptr;
        if (rowset) *rowset = nullptr;
        if (columnCount && !columnDescs) Fail(E_INVALIDARG, L"Column descriptions are missing.");
        if (setCount && !sets) Fail(E_INVALIDARG, L"cPropertySets is not zero and rgPropertySets is null.");
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        if (!tableId) Fail(E_INVALIDARG, L"ZelOdbc does not name tables itself: give the table's name.");
        const std::wstring table = TableNameOrFail(tableId, DB_E_BADTABLEID);
        if (columnCount == 0) Fail(DB_E_BADCOLUMNID, L"A table needs at least one column.");
        for (DBORDINAL i = 0; i < columnCount; ++i)
            if (!HasValidShape(columnDescs[i])) Fail(E_INVALIDARG, L"A column description's arrays do not match their counts.");
        NewTableColumns read = ReadNewTableColumns(columnCount, columnDescs);

        std::wstring sql = L"CREATE TABLE " + QuoteName(table) + L" (";
        std::vector<std::wstring> keys;
        {
            std::lock_guard guard(m_connection->lock());
            for (size_t i = 0; i < read.columns.size(); ++i) {
                const ColumnDefinition& column = read.columns[i];
                if (column.identity != Identity::None)
                    Fail(DB_E_NOTSUPPORTED, L"ZelOdbc does not make identity (AUTOINCREMENT) columns; the column \"" +
                                                column.name + L"\" asks for one.");
                if (i) sql += L", ";
                sql += QuoteName(column.name) + L" " + DeclaredTypeSql(*m_connection, columnDescs[i], column);
                if (column.defaultSql) sql += L" DEFAULT " + *column.defaultSql;
                if (!column.nullable) sql += L" NOT NULL";
                if (column.unique) sql += L" UNIQUE";
                if (column.primaryKey) keys.push_back(QuoteName(column.name));
            }
        }
        if (!keys.empty()) {
            sql += L", PRIMARY KEY (";
            for (size_t i = 0; i < keys.size(); ++i) sql += (i ? L", " : L"") + keys[i];
            sql += L")";
        }
        sql += L")";
        RunStatement(m_connection, sql, 0);

        if (newTableId) *newTableId = NewNameId(table).release();
        if (rowset && riid != IID_NULL) {
            DBID id = {};
            id.eKind = DBKIND_NAME;
            id.uName.pwszName = const_cast<wchar_t*>(table.c_str());
            HRESULT hr = OpenRowset(outer, &id, nullptr, riid, setCount, sets, rowset);
            if (FAILED(hr)) return hr;
        }
        if (read.optionalFailed) {
            PublishError(DB_S_ERRORSOCCURRED, read.warning);
            return DB_S_ERRORSOCCURRED;
        }
        return ClearErrorAndReturn(S_OK);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::DropTable(DBID* tableId) {
    try {
        const std::wstring table = TableNameOrFail(tableId, DB_E_NOTABLE);
        RunStatement(m_connection, L"DROP TABLE " + QuoteName(table), 0);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::AddColumn(DBID*, DBCOLUMNDESC*, DBID** newColumnId) {
    try {
        if (newColumnId) *newColumnId = nullptr;
        Fail(DB_E_NOTSUPPORTED, L"ZelOdbc does not add columns to tables; run ALTER TABLE as a command.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::DropColumn(DBID*, DBID*) {
    try {
        Fail(DB_E_NOTSUPPORTED, L"ZelOdbc does not drop columns; run ALTER TABLE as a command.");
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP OdbcSession::GetTableDefinition(DBID* tableId, DBORDINAL* columnCount, DBCOLUMNDESC** columnDescs,
                                             ULONG* propertySetCount, DBPROPSET** propertySets,
                                             ULONG* constraintCount, DBCONSTRAINTDESC** constraints,
                                             OLECHAR** stringBuffer) {
    try {
        if (columnCount) *columnCount = 0;
        if (columnDescs) *columnDescs = nullptr;
        if (propertySetCount) *propertySetCount = 0;
        if (propertySets) *propertySets = nullptr;
        if (constraintCount) *constraintCount = 0;
        if (constraints) *constraints = nullptr;
        if (stringBuffer) *stringBuffer = nullptr;
        const std::wstring table = TableNameOrFail(tableId, DB_E_NOTABLE);

        std::vector<ColumnDefinition> columns;
        TableConstraint key;
        key.type = DBCONSTRAINTTYPE_PRIMARYKEY;
        {
            std::lock_guard guard(m_connection->lock());
            Connection& c = *m_connection;
            const std::wstring escape = c.InfoText(SQL_SEARCH_PATTERN_ESCAPE);
            std::wstring pattern;
            for (wchar_t ch : table) {
                if (!escape.empty() && (ch == L'_' || ch == L'%' || ch == escape[0])) pattern += escape;
                pattern += ch;
            }
            StatementHandle s = c.NewStatement();
            CheckOdbc(SQLColumnsW(s.get(), nullptr, 0, nullptr, 0, reinterpret_cast<SQLWCHAR*>(pattern.data()),
                                  static_cast<SQLSMALLINT>(pattern.size()), nullptr, 0),
                      SQL_HANDLE_STMT, s.get());
            for (;;) {
                SQLRETURN rc = SQLFetch(s.get());
                if (rc == SQL_NO_DATA) break;
                CheckOdbc(rc, SQL_HANDLE_STMT, s.get());
                std::wstring tableName;
                ReadText(s.get(), 3, tableName);
                if (tableName != table) continue;
                ColumnDefinition d;
                ReadText(s.get(), 4, d.name);
                SQLBIGINT sqlType = 0, size = 0, digits = 0, nullable = SQL_NULLABLE_UNKNOWN;
                ReadInteger(s.get(), 5, sqlType);
                ReadText(s.get(), 6, d.declaredType);
                ReadInteger(s.get(), 7, size);
                ReadInteger(s.get(), 9, digits);
                ReadInteger(s.get(), 11, nullable);
                std::wstring text;
                if (ReadText(s.get(), 12, text) && !text.empty()) d.description = text;
                if (ReadText(s.get(), 13, text)) d.defaultSql = text;
                OdbcColumnType mapped = MapSqlType(static_cast<SQLSMALLINT>(sqlType),
                                                   static_cast<SQLULEN>(std::max<SQLBIGINT>(0, size)),
                                                   static_cast<SQLSMALLINT>(digits), false);
                if (c.IsSqlite())
                    mapped = SqliteColumnType(mapped, static_cast<SQLSMALLINT>(sqlType),
                                              static_cast<SQLULEN>(std::max<SQLBIGINT>(0, size)), d.declaredType,
                                              false, -1);
                d.type = mapped.type;
                d.nullable = nullable != SQL_NO_NULLS;
                columns.push_back(std::move(d));
            }
            if (columns.empty()) Fail(DB_E_NOTABLE, L"no such table: " + table, L"42S02");

            StatementHandle k = c.NewStatement();
            CheckOdbc(SQLPrimaryKeysW(k.get(), nullptr, 0, nullptr, 0,
                                      reinterpret_cast<SQLWCHAR*>(const_cast<wchar_t*>(table.c_str())),
                                      static_cast<SQLSMALLINT>(table.size())),
                      SQL_HANDLE_STMT, k.get());
            std::vector<std::pair<SQLBIGINT, std::wstring>> keyColumns;
            for (;;) {
                SQLRETURN rc = SQLFetch(k.get());
                if (rc == SQL_NO_DATA) break;
                CheckOdbc(rc, SQL_HANDLE_STMT, k.get());
                std::wstring column;
                SQLBIGINT position = 0;
                ReadText(k.get(), 4, column);
                ReadInteger(k.get(), 5, position);
                if (key.name.empty()) ReadText(k.get(), 6, key.name);
                keyColumns.emplace_back(position, std::move(column));
            }
            std::sort(keyColumns.begin(), keyColumns.end());
            for (auto& [position, column] : keyColumns) {
                key.columns.push_back(column);
                for (ColumnDefinition& d : columns)
                    if (d.name == column) d.primaryKey = true;
            }
        }
        std::vector<TableConstraint> tableConstraints;
        if (!key.columns.empty()) {
            if (key.name.empty()) key.name = L"PrimaryKey";
            tableConstraints.push_back(std::move(key));
        }
        TableDefinitionOut out;
        out.columnCount = columnCount;
        out.columns = columnDescs;
        out.constraintCount = constraintCount;
        out.constraints = constraints;
        out.strings = stringBuffer;
        WriteTableDefinition(columns, tableConstraints, out);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider::odbc
