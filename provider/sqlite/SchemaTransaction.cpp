#include "provider/sqlite/SchemaTransaction.h"

namespace zel::provider {

namespace {

constexpr char kSavepoint[] = "zel_lite_schema_change";

}  // namespace

SchemaTransaction::SchemaTransaction(Database& database)
    : m_database(database), m_ownTransaction(!database.InTransaction()) {
    // A transaction of our own takes the write lock at once, as the session's own ones do.
    m_database.Execute(m_ownTransaction ? std::string("BEGIN IMMEDIATE") : std::string("SAVEPOINT ") + kSavepoint);
}

SchemaTransaction::~SchemaTransaction() {
    if (m_finished) return;
    // Errors are ignored here: the change is being abandoned, and the error object the failure
    // published stays the one the caller reads.
    sqlite3* db = m_database.handle();
    ConnectionLock lock(db);
    if (m_ownTransaction) {
        if (!sqlite3_get_autocommit(db)) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    } else {
        std::string undo = std::string("ROLLBACK TO ") + kSavepoint + "; RELEASE " + kSavepoint;
        sqlite3_exec(db, undo.c_str(), nullptr, nullptr, nullptr);
    }
}

void SchemaTransaction::Commit() {
    m_database.Execute(m_ownTransaction ? std::string("COMMIT") : std::string("RELEASE ") + kSavepoint);
    m_finished = true;
}

}  // namespace zel::provider
