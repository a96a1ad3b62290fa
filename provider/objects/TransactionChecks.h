// The argument checks of ITransactionLocal and ITransaction that every provider makes the same
// way; each publishes its error object and throws ComError when the call cannot be honoured.
#pragma once

#include <windows.h>
#include <transact.h>

namespace zel::provider {

// StartTransaction: isolation flags are refused (XACT_E_NOISORETAIN); the level must be one of
// OLE DB's (XACT_E_ISOLATIONLEVEL). ISOLATIONLEVEL_UNSPECIFIED is accepted.
void CheckStartTransaction(ISOLEVEL level, ULONG flags);
// Commit: synchronous commits only, no resource-manager flags (XACT_E_NOTSUPPORTED).
void CheckCommit(DWORD commitType, DWORD resourceManagerFlags);
// Abort: synchronous only (XACT_E_NOTSUPPORTED).
void CheckAbort(BOOL async);

}  // namespace zel::provider
