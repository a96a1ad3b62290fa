// The rowset properties every command of the server asks for, public so that measurements
// of the server's command path set exactly the same ones.
#pragma once

#include <windows.h>
#include <oledb.h>

namespace zel {

// Sets on `command` (ICommandProperties) a scrollable, updatable rowset with storage objects
// for long values: IRowsetChange, ISequentialStream and IStream optional, DBPROP_UPDATABILITY
// (change, delete, insert) and DBPROP_CANSCROLLBACKWARDS required. Returns the failing
// QueryInterface's or SetProperties' HRESULT.
HRESULT SetServerRowsetProperties(ICommand* command) noexcept;

}  // namespace zel
