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

// Reads column `ordinal` of the row the statement stands on into `cell` (NULL as the empty
// cell). Fails (error published) with the driver's diagnostics; `statementText` names the
// statement in the error.
void ReadCell(SQLHSTMT statement, SQLUSMALLINT ordinal, ReadAs readAs, Cell& cell, std::wstring_view statementText);

}  // namespace zel::provider::odbc
