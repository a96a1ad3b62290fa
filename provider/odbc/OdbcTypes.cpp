#include "provider/odbc/OdbcTypes.h"

#include <cstdio>
#include <cstring>

#include "provider/odbc/OdbcConnection.h"
#include "provider/values/DateTime.h"

namespace zel::provider::odbc {

namespace {

// Beyond this a character or binary column counts as long (drivers report their text types
// with sizes such as 8190 or 2^31-1).
constexpr SQLULEN kLongerThan = 8000;

// The first read of a long value; later pieces double it.
constexpr size_t kFirstPiece = 4096;

OdbcColumnType Fixed(DBTYPE type, ReadAs readAs) { return {FixedType(type), readAs}; }

void ReadChars(SQLHSTMT statement, SQLUSMALLINT ordinal, Cell& cell, std::wstring_view statementText) {
    std::wstring& text = Holding<std::wstring>(cell);
    size_t have = 0;
    size_t piece = kFirstPiece;
    for (;;) {
        text.resize(have + piece + 1);
        SQLLEN indicator = 0;
        SQLRETURN rc = SQLGetData(statement, ordinal, SQL_C_WCHAR, text.data() + have,
                                  static_cast<SQLLEN>((piece + 1) * sizeof(SQLWCHAR)), &indicator);
        if (rc == SQL_NO_DATA) break;
        if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement, statementText);
        if (indicator == SQL_NULL_DATA) {
            cell = std::monostate{};
            return;
        }
        const bool whole = indicator != SQL_NO_TOTAL && static_cast<size_t>(indicator) / sizeof(SQLWCHAR) <= piece;
        if (whole) {
            have += static_cast<size_t>(indicator) / sizeof(SQLWCHAR);
            break;
        }
        have += piece;
        if (indicator != SQL_NO_TOTAL) {
            // The driver says how much is left: read the rest in one piece.
            piece = static_cast<size_t>(indicator) / sizeof(SQLWCHAR) - piece;
        } else {
            piece *= 2;
        }
    }
    text.resize(have);
}

void ReadBytes(SQLHSTMT statement, SQLUSMALLINT ordinal, Cell& cell, std::wstring_view statementText) {
    Bytes& bytes = Holding<Bytes>(cell);
    size_t have = 0;
    size_t piece = kFirstPiece;
    for (;;) {
        bytes.resize(have + piece);
        SQLLEN indicator = 0;
        SQLRETURN rc = SQLGetData(statement, ordinal, SQL_C_BINARY, bytes.data() + have, static_cast<SQLLEN>(piece),
                                  &indicator);
        if (rc == SQL_NO_DATA) break;
        if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement, statementText);
        if (indicator == SQL_NULL_DATA) {
            cell = std::monostate{};
            return;
        }
        if (indicator != SQL_NO_TOTAL && static_cast<size_t>(indicator) <= piece) {
            have += static_cast<size_t>(indicator);
            break;
        }
        have += piece;
        piece = indicator != SQL_NO_TOTAL ? static_cast<size_t>(indicator) - piece : piece * 2;
    }
    bytes.resize(have);
}

// Reads a fixed-size C value; false for NULL.
template <typename T>
bool ReadFixed(SQLHSTMT statement, SQLUSMALLINT ordinal, SQLSMALLINT cType, T& value, std::wstring_view statementText) {
    SQLLEN indicator = 0;
    SQLRETURN rc = SQLGetData(statement, ordinal, cType, &value, sizeof(T), &indicator);
    if (!Succeeded(rc)) FailOdbc(SQL_HANDLE_STMT, statement, statementText);
    return indicator != SQL_NULL_DATA;
}

}  // namespace

OdbcColumnType MapSqlType(SQLSMALLINT sqlType, SQLULEN size, SQLSMALLINT digits, bool isUnsigned) {
    switch (sqlType) {
    case SQL_BIT: return Fixed(DBTYPE_BOOL, ReadAs::Integer);
    case SQL_TINYINT: return Fixed(isUnsigned ? DBTYPE_UI1 : DBTYPE_I2, ReadAs::Integer);
    case SQL_SMALLINT: return Fixed(isUnsigned ? DBTYPE_I4 : DBTYPE_I2, ReadAs::Integer);
    case SQL_INTEGER: return Fixed(isUnsigned ? DBTYPE_I8 : DBTYPE_I4, ReadAs::Integer);
    case SQL_BIGINT:
        return isUnsigned ? OdbcColumnType{DecimalType(20, 0), ReadAs::Text, 20} : Fixed(DBTYPE_I8, ReadAs::Integer);
    case SQL_REAL: return Fixed(DBTYPE_R4, ReadAs::Real);
    case SQL_FLOAT:
    case SQL_DOUBLE: return Fixed(DBTYPE_R8, ReadAs::Real);
    case SQL_DECIMAL:
    case SQL_NUMERIC: {
        // DECIMAL holds 28 digits; wider numbers keep their exact text as NUMERIC(38).
        // The text of a number: its digits, a sign and a decimal point.
        const SQLULEN chars = size >= 1 && size <= 1000 ? size + 2 : 0;
        if (size >= 1 && size <= 28) return {DecimalType(static_cast<int>(size), digits), ReadAs::Text, chars};
        ColumnType t = FixedType(DBTYPE_NUMERIC);
        if (size >= 1 && size <= 38) t.precision = static_cast<BYTE>(size);
        t.scale = static_cast<BYTE>(digits >= 0 && digits <= t.precision ? digits : 0);
        return {t, ReadAs::Text, chars};
    }
    case SQL_TYPE_DATE:
    case SQL_DATE: return Fixed(DBTYPE_DATE, ReadAs::Date);
    case SQL_TYPE_TIME:
    case SQL_TIME: return Fixed(DBTYPE_DATE, ReadAs::Time);
    case SQL_TYPE_TIMESTAMP:
    case SQL_TIMESTAMP: return Fixed(DBTYPE_DATE, ReadAs::Timestamp);
    case SQL_GUID: return Fixed(DBTYPE_GUID, ReadAs::Guid);
    case SQL_CHAR:
    case SQL_WCHAR:
        if (size == 0 || size > kLongerThan) return {LongTextType(), ReadAs::Text};
        return {TextType(size, true), ReadAs::Text, size};
    case SQL_VARCHAR:
    case SQL_WVARCHAR:
        if (size == 0 || size > kLongerThan) return {LongTextType(), ReadAs::Text};
        return {TextType(size, false), ReadAs::Text, size};
    case SQL_LONGVARCHAR:
    case SQL_WLONGVARCHAR: return {LongTextType(), ReadAs::Text};
    case SQL_BINARY:
    case SQL_VARBINARY:
        if (size == 0 || size > kLongerThan) return {LongBinaryType(), ReadAs::Bytes};
        return {BinaryType(size), ReadAs::Bytes};
    case SQL_LONGVARBINARY: return {LongBinaryType(), ReadAs::Bytes};
    default: return {LongTextType(), ReadAs::Text};
    }
}

OdbcColumnType SqliteColumnType(const OdbcColumnType& mapped, SQLSMALLINT sqlType, SQLULEN size,
                                std::wstring_view typeName, bool expression, int scale) {
    switch (sqlType) {
    case SQL_BINARY:
    case SQL_VARBINARY:
    case SQL_LONGVARBINARY: return {LongBinaryType(), ReadAs::Bytes};
    case SQL_TINYINT:
    case SQL_SMALLINT:
    case SQL_INTEGER:
        if (expression) return {FixedType(DBTYPE_I8), ReadAs::Integer};
        return mapped;
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_WCHAR:
    case SQL_WVARCHAR: {
        // The shared mapping of declared types reads "DECIMAL(10,2)" and "DEC(5)" as ZelLite does.
        const ColumnType declared = MapDeclaredType(typeName);
        if (declared.type != DBTYPE_DECIMAL) return mapped;
        if (scale < 0) return {declared, ReadAs::Text};
        return {DecimalType(size > 0 && size <= 28 ? static_cast<int>(size) : 18, scale), ReadAs::Text};
    }
    default: return mapped;
    }
}

namespace {

void DateCell(const SQL_DATE_STRUCT& d, Cell& cell) {
    Timestamp t;
    t.year = d.year;
    t.month = d.month;
    t.day = d.day;
    cell = FormatIsoDateTime(t);
}

void TimeCell(const SQL_TIME_STRUCT& d, Cell& cell) {
    wchar_t text[16];
    swprintf(text, std::size(text), L"%02u:%02u:%02u", d.hour, d.minute, d.second);
    cell = std::wstring(text);
}

void TimestampCell(const SQL_TIMESTAMP_STRUCT& d, Cell& cell) {
    Timestamp t;
    t.year = d.year;
    t.month = d.month;
    t.day = d.day;
    t.hour = d.hour;
    t.minute = d.minute;
    t.second = d.second;
    t.fraction = d.fraction;
    cell = FormatIsoDateTime(t);
}

void GuidCell(const SQLGUID& g, Cell& cell) {
    wchar_t text[40];
    StringFromGUID2(reinterpret_cast<const GUID&>(g), text, static_cast<int>(std::size(text)));
    cell = std::wstring(text);
}

template <typename T>
T Load(const void* value) {
    T t;
    std::memcpy(&t, value, sizeof t);
    return t;
}

}  // namespace

OdbcBinding BindingFor(const OdbcColumnType& column) {
    switch (column.readAs) {
    case ReadAs::Integer: return {SQL_C_SBIGINT, sizeof(SQLBIGINT)};
    case ReadAs::Real: return {SQL_C_DOUBLE, sizeof(double)};
    case ReadAs::Date: return {SQL_C_TYPE_DATE, sizeof(SQL_DATE_STRUCT)};
    case ReadAs::Time: return {SQL_C_TYPE_TIME, sizeof(SQL_TIME_STRUCT)};
    case ReadAs::Timestamp: return {SQL_C_TYPE_TIMESTAMP, sizeof(SQL_TIMESTAMP_STRUCT)};
    case ReadAs::Guid: return {SQL_C_GUID, sizeof(SQLGUID)};
    case ReadAs::Text:
        if (column.boundedChars == 0) return {};
        return {SQL_C_WCHAR, static_cast<SQLLEN>((2 * column.boundedChars + 1) * sizeof(SQLWCHAR))};
    case ReadAs::Bytes: return {};
    }
    return {};
}

bool CellFromBound(ReadAs readAs, SQLSMALLINT cType, const void* value, SQLLEN bytes, SQLLEN indicator, Cell& cell) {
    if (indicator == SQL_NULL_DATA) {
        cell = std::monostate{};
        return true;
    }
    switch (readAs) {
    case ReadAs::Integer: cell = static_cast<std::int64_t>(Load<SQLBIGINT>(value)); return true;
    case ReadAs::Real: cell = Load<double>(value); return true;
    case ReadAs::Date: DateCell(Load<SQL_DATE_STRUCT>(value), cell); return true;
    case ReadAs::Time: TimeCell(Load<SQL_TIME_STRUCT>(value), cell); return true;
    case ReadAs::Timestamp: TimestampCell(Load<SQL_TIMESTAMP_STRUCT>(value), cell); return true;
    case ReadAs::Guid: GuidCell(Load<SQLGUID>(value), cell); return true;
    case ReadAs::Text: {
        if (cType != SQL_C_WCHAR) return false;
        // The buffer keeps one code unit for the terminator; a value that needed more (or whose
        // length the driver does not know) was cut short.
        if (indicator < 0 || indicator > bytes - static_cast<SQLLEN>(sizeof(SQLWCHAR))) return false;
        const auto* chars = static_cast<const SQLWCHAR*>(value);
        Holding<std::wstring>(cell).assign(reinterpret_cast<const wchar_t*>(chars),
                                           static_cast<size_t>(indicator) / sizeof(SQLWCHAR));
        return true;
    }
    case ReadAs::Bytes: return false;
    }
    return false;
}

void ReadCell(SQLHSTMT statement, SQLUSMALLINT ordinal, ReadAs readAs, Cell& cell, std::wstring_view statementText) {
    switch (readAs) {
    case ReadAs::Integer: {
        SQLBIGINT value = 0;
        if (ReadFixed(statement, ordinal, SQL_C_SBIGINT, value, statementText))
            cell = static_cast<std::int64_t>(value);
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Real: {
        double value = 0;
        if (ReadFixed(statement, ordinal, SQL_C_DOUBLE, value, statementText))
            cell = value;
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Date: {
        SQL_DATE_STRUCT d{};
        if (ReadFixed(statement, ordinal, SQL_C_TYPE_DATE, d, statementText))
            DateCell(d, cell);
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Time: {
        SQL_TIME_STRUCT d{};
        if (ReadFixed(statement, ordinal, SQL_C_TYPE_TIME, d, statementText))
            TimeCell(d, cell);
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Timestamp: {
        SQL_TIMESTAMP_STRUCT d{};
        if (ReadFixed(statement, ordinal, SQL_C_TYPE_TIMESTAMP, d, statementText))
            TimestampCell(d, cell);
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Guid: {
        SQLGUID g{};
        if (ReadFixed(statement, ordinal, SQL_C_GUID, g, statementText))
            GuidCell(g, cell);
        else
            cell = std::monostate{};
        return;
    }
    case ReadAs::Bytes: ReadBytes(statement, ordinal, cell, statementText); return;
    case ReadAs::Text: ReadChars(statement, ordinal, cell, statementText); return;
    }
}

}  // namespace zel::provider::odbc
