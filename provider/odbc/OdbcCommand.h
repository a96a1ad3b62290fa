// ZelOdbc's command: SQL text run on the session's ODBC connection (SQLExecDirect). Execute
// returns a rowset for a statement that returns rows and the change count, without a rowset,
// for the others. The text goes to the driver as it is: several statements in one text are the
// driver's to accept, and the first result with columns is the one returned.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <atomic>

#include "provider/objects/CommandObject.h"
#include "provider/odbc/OdbcConnection.h"

namespace zel::provider::odbc {

class OdbcSession;

class OdbcCommand final : public CommandObject<OdbcCommand, OdbcSession> {
public:
    explicit OdbcCommand(ComPtr<OdbcSession> session);

    // ICommand. Execute: DB_E_NOCOMMAND without text; parameters are not supported
    // (DB_E_PARAMNOTOPTIONAL when values are given); otherwise the driver's failure with its
    // SQLSTATE (DB_E_ERRORSINCOMMAND for 42xxx, DB_E_NOTABLE for 42S02...). *rowsAffected is the
    // number of rows changed, or DB_COUNTUNAVAILABLE for statements that return rows. The
    // rowset property DBPROP_COMMANDTIMEOUT becomes the query timeout. Cancel asks the driver to
    // cancel a statement another thread is executing (SQLCancel).
    STDMETHODIMP Cancel() override;
    STDMETHODIMP Execute(IUnknown* outer, REFIID riid, DBPARAMS* params, DBROWCOUNT* rowsAffected,
                         IUnknown** rowset) override;

    // For CommandObject: the driver prepares the text (SQLPrepare), so that its errors show;
    // a rowset without rows describes the prepared statement's columns.
    void PrepareText();
    ComPtr<IColumnsInfo> DescribePrepared();

private:
    std::atomic<SQLHSTMT> m_running{nullptr};
};

}  // namespace zel::provider::odbc
