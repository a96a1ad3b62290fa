// ODBC's SQL types as the provider's column types, and reading one value of a fetched row into
// a Cell (the stored-value form the shared conversions read).
//
// Integers and BIT are read as 64-bit integers, REAL, FLOAT and DOUBLE as doubles, DECIMAL and
// NUMERIC as their exact text, dates and times as ISO text ("YYYY-MM-DD HH:MM:SS[.fff]"), GUIDs
// as "{...}" text, character data as UTF-16 text and binary data as bytes. Long values are read
// in pieces (SQLGetData), whatever their length.
#pragma once

#include <windows.h>
#include <sql.h>
#include <sqlext.h>

#include <string_view>

#include "provider/values/Cell.h"
#include "provider/values/TypeMapping.h"

namespace zel::provider::odbc {

// How a column is read: the C type asked of SQLGetData and what the cell holds.
enum class ReadAs { Integer, Real, Text, Bytes, Date, Time, Timestamp, Guid };

struct OdbcColumnType {
    ColumnType type;  // as the rowset reports it
    ReadAs readAs = ReadAs::Text;
    // Text whose length has a known bound: the most characters a value holds (0: unbounded, or
    // not text). Such a column can be bound to a buffer instead of read in pieces.
    SQLULEN boundedChars = 0;
};

// How a column is bound to a row array buffer (SQLBindCol): the C type and the bytes one
// value takes. A text buffer holds two UTF-16 code units per declared character (every
// character fits, surrogate pairs included) and the terminator.
struct OdbcBinding {
    SQLSMALLINT cType = 0;
    SQLLEN bytes = 0;  // 0: the column is not bound (long values, bytes)
};
OdbcBinding BindingFor(const OdbcColumnType& column);

// Turns one bound value (its buffer and length/indicator) into a cell, as ReadCell would.
// Returns false when a text value did not fit its buffer (the caller reads it again with
// SQLGetData); the cell is then unchanged.
bool CellFromBound(ReadAs readAs, SQLSMALLINT cType, const void* value, SQLLEN bytes, SQLLEN indicator, Cell& cell);

// Maps a column described by SQLDescribeCol (its SQL type, size and decimal digits) and
// SQL_DESC_UNSIGNED. Character columns without a useful size (0, or beyond 8000 characters),
// and the LONGVARCHAR and LONGVARBINARY types, are long. Types without an OLE DB counterpart
// (intervals, driver-specific types) are read as text.
OdbcColumnType MapSqlType(SQLSMALLINT sqlType, SQLULEN size, SQLSMALLINT digits, bool isUnsigned);

// What a column of a SQLite database through the SQLite3 driver really holds, from the driver's
// mapping and the declared type name it reports (SQL_DESC_TYPE_NAME, or TYPE_NAME of SQLColumns).
// SQLite keeps any value in any column, so:
// - binary columns are long: the driver gives BLOB a nominal size of 255 bytes that no value
//   is held to;
// - integer expressions (`expression`: no base column) are 64-bit: the driver types them
//   SQL_INTEGER, while SUM or COUNT can pass 32 bits;
// - DECIMAL(p,s), which the driver does not know and reports as VARCHAR(p), is DECIMAL(p,s);
//   `scale` is the s the driver reads from the declaration (it hands it over as
//   SQL_DESC_PRECISION of a result column), or -1 to take it from `typeName` ("DECIMAL(10,2)").
OdbcColumnType SqliteColumnType(const OdbcColumnType& mapped, SQLSMALLINT sqlType, SQLULEN size,
                                std::wstring_view typeName, bool expression, int scale);

// Reads column `ordinal` of the row the statement stands on into `cell` (NULL as the empty
// cell). Fails (error published) with the driver's diagnostics; `statementText` names the
// statement in the error.
void ReadCell(SQLHSTMT statement, SQLUSMALLINT ordinal, ReadAs readAs, Cell& cell, std::wstring_view statementText);

}  // namespace zel::provider::odbc
