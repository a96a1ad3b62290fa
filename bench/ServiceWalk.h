// The row-by-row walk a host makes over IZelOleDb, shared by the out-of-process figure and
// its in-process counterpart so that both make exactly the same calls.
#pragma once

#include <windows.h>

#include <string>

#include "ZelPmDb32.h"
#include "bench/BenchHarness.h"

namespace zel::bench {

// Opens the connection, makes a command with `query` and executes it (the execution builds
// the query-result document, as it always does). Fills `handle` and `columns`; returns an
// empty string or what failed.
std::string PrepareServiceCommand(IZelOleDb* service, const std::wstring& connectionString, const std::wstring& query,
                                  ULONG& handle, ULONG& columns);

// CmdFetchFirst, then for every row CmdFieldAsString of each column and CmdFetchNext, until
// a fetch answers 0 or `maxRows` rows were read. Counts rows, calls and the UTF-16 bytes of
// the field texts. Throws ComError when a call fails.
RunSample WalkRows(IZelOleDb* service, ULONG handle, ULONG columns, unsigned long long maxRows = ~0ULL);

// CmdExecute with the document asked for; rows are counted in the document afterwards.
// Throws ComError when the call fails or the execution does not succeed.
RunSample ExecuteWithDocument(IZelOleDb* service, ULONG handle);

// Occurrences of "<Rowset" in a query-result document: its rows.
unsigned long long CountDocumentRows(const wchar_t* xml, size_t length);

}  // namespace zel::bench
