// RAII owners for SQLite's connection and statement handles, and a scoped hold on a
// connection's own mutex (so that a step and the error message it leaves belong together).
#pragma once

#include <sqlite3.h>

#include "common/UniqueResource.h"

namespace zel::provider {

inline void CloseConnection(sqlite3* db) noexcept { sqlite3_close_v2(db); }
inline void FinalizeStatement(sqlite3_stmt* statement) noexcept { sqlite3_finalize(statement); }

using SqliteConnection = UniqueResource<sqlite3*, &CloseConnection>;
using SqliteStatement = UniqueResource<sqlite3_stmt*, &FinalizeStatement>;

class ConnectionLock {
public:
    explicit ConnectionLock(sqlite3* db) noexcept : m_mutex(sqlite3_db_mutex(db)) { sqlite3_mutex_enter(m_mutex); }
    ConnectionLock(const ConnectionLock&) = delete;
    ConnectionLock& operator=(const ConnectionLock&) = delete;
    ~ConnectionLock() { sqlite3_mutex_leave(m_mutex); }

private:
    sqlite3_mutex* m_mutex;
};

}  // namespace zel::provider
