// All or nothing for one schema change (a table, a column or an index, with the provider's
// metadata rows and triggers that go with it). Without a transaction open on the session the
// change runs in a transaction of its own; inside the session's transaction it runs in a
// savepoint, so that a failed step leaves nothing behind and the session's Abort still undoes a
// change that succeeded.
#pragma once

#include "provider/sqlite/Database.h"

namespace zel::provider {

class SchemaTransaction {
public:
    // Begins the transaction or the savepoint. Throws (error published) when the database
    // cannot be locked for writing.
    explicit SchemaTransaction(Database& database);
    SchemaTransaction(const SchemaTransaction&) = delete;
    SchemaTransaction& operator=(const SchemaTransaction&) = delete;
    // Rolls back whatever the change did unless Commit ran.
    ~SchemaTransaction();

    // Commits the transaction or releases the savepoint. Throws on failure (then the destructor
    // still rolls back).
    void Commit();

private:
    Database& m_database;
    bool m_ownTransaction;
    bool m_finished = false;
};

}  // namespace zel::provider
