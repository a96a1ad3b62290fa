// A command: SQL text run on the session's connection. Execute returns a rowset for statements
// that return rows and the change count, without a rowset, for the others; several statements
// separated by ';' run in order and the last one's rows are returned.
#pragma once

#include <windows.h>
#include <oledb.h>

#include "provider/objects/CommandObject.h"
#include "provider/sqlite/SqliteHandles.h"

#include <memory>

namespace zel::provider {

class Session;

class Command final : public CommandObject<Command, Session> {
public:
    explicit Command(ComPtr<Session> session);

    // ICommand. Execute: DB_E_NOCOMMAND without text, DB_E_ERRORSINCOMMAND (and SQLSTATE
    // 42000) for bad SQL, DB_E_NOTABLE for a missing table, DB_E_INTEGRITYVIOLATION for a
    // broken constraint, DB_E_READONLY on a read-only data source, DB_E_TIMEOUT when another
    // connection keeps the file locked past the busy timeout. *rowsAffected is the number of
    // rows changed, or DB_COUNTUNAVAILABLE (-1) for statements that return rows.
    STDMETHODIMP Cancel() override;
    STDMETHODIMP Execute(IUnknown* outer, REFIID riid, DBPARAMS* params, DBROWCOUNT* rowsAffected,
                         IUnknown** rowset) override;

    // For CommandObject: Prepare checks the SQL (DB_E_ERRORSINCOMMAND); a rowset describes the
    // prepared statement's columns (IColumnsInfo before Execute).
    void PrepareText();
    ComPtr<IColumnsInfo> DescribePrepared();
};

}  // namespace zel::provider
