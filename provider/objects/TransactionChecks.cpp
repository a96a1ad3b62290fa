#include "provider/objects/TransactionChecks.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"

namespace zel::provider {

void CheckStartTransaction(ISOLEVEL level, ULONG flags) {
    if (flags != 0) Fail(XACT_E_NOISORETAIN, L"Isolation flags are not supported.");
    switch (static_cast<ULONG>(level)) {
    case ISOLATIONLEVEL_UNSPECIFIED:
    case ISOLATIONLEVEL_READUNCOMMITTED:
    case ISOLATIONLEVEL_READCOMMITTED:
    case ISOLATIONLEVEL_REPEATABLEREAD:
    case ISOLATIONLEVEL_SERIALIZABLE: return;
    default: Fail(XACT_E_ISOLATIONLEVEL);
    }
}

void CheckCommit(DWORD commitType, DWORD resourceManagerFlags) {
    if (commitType != 0 && commitType != XACTTC_SYNC && commitType != XACTTC_SYNC_PHASEONE) Fail(XACT_E_NOTSUPPORTED);
    if (resourceManagerFlags != 0) Fail(XACT_E_NOTSUPPORTED);
}

void CheckAbort(BOOL async) {
    if (async) Fail(XACT_E_NOTSUPPORTED);
}

}  // namespace zel::provider
