// Consumer data to stored values, for IRowsetChange: reads one bound value (value, length and
// status parts) from the consumer's buffer and makes it the value its column stores: integers
// range-checked against the declared type, dates as ISO text, booleans as 0/1, GUIDs as
// "{...}" text, text checked against the declared length.
#pragma once

#include <windows.h>
#include <oledb.h>

#include "provider/values/Cell.h"
#include "provider/values/ColumnDesc.h"

namespace zel::provider {

enum class WriteAction { Store, Skip, UseDefault };

struct WriteValue {
    WriteAction action = WriteAction::Store;
    Cell cell;
    DBSTATUS status = DBSTATUS_S_OK;  // an error status means the value cannot be stored
};

// Reads binding `b` from `data`. A storage object given as the value is read to its end and
// released, as OLE DB asks of the provider.
WriteValue ReadConsumerValue(const DBBINDING& b, void* data, const ColumnDesc& column);

}  // namespace zel::provider
