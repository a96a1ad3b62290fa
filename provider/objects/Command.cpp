#include "provider/objects/Command.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/objects/Rowset.h"
#include "provider/objects/Session.h"
#include "provider/properties/RowsetProperties.h"
#include "provider/rows/RowWriter.h"
#include "provider/rows/StatementRowSource.h"
#include "provider/values/DataConversion.h"

namespace zel::provider {

namespace {

// Whether the rest of a command text holds no further statement (only blanks, ';' and comments).
bool OnlyTrivia(std::wstring_view rest) {
    size_t i = 0;
    while (i < rest.size()) {
        wchar_t c = rest[i];
        if (c == L' ' || c == L'\t' || c == L'\r' || c == L'\n' || c == L';') {
            ++i;
        } else if (c == L'-' && i + 1 < rest.size() && rest[i + 1] == L'-') {
            while (i < rest.size() && rest[i] != L'\n') ++i;
        } else if (c == L'/' && i + 1 < rest.size() && rest[i + 1] == L'*') {
            size_t end = rest.find(L"*/", i + 2);
            if (end == std::wstring_view::npos) return true;
            i = end + 2;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

Command::Command(ComPtr<Session> session) : CommandObject(std::move(session)) {}

STDMETHODIMP Command::Cancel() {
    // Execute runs to its end on the caller's thread; a cancel from another thread interrupts
    // SQLite's work.
    sqlite3_interrupt(m_session->database()->handle());
    return S_OK;
}

STDMETHODIMP Command::Execute(IUnknown* outer, REFIID riid, DBPARAMS* params, DBROWCOUNT* rowsAffected,
                              IUnknown** rowset) {
    try {
        if (rowset) *rowset = nullptr;
        if (rowsAffected) *rowsAffected = DB_COUNTUNAVAILABLE;
        if (outer && riid != IID_IUnknown) Fail(DB_E_NOAGGREGATION);
        std::lock_guard guard(m_state.lock());
        if (!m_state.hasText()) Fail(DB_E_NOCOMMAND);
        const auto& database = m_session->database();
        sqlite3* db = database->handle();
        const bool wantRowset = rowset && riid != IID_NULL;

        std::wstring_view rest = m_state.text();
        DBROWCOUNT changes = 0;
        bool anyChange = false;
        while (!OnlyTrivia(rest)) {
            std::wstring_view tail;
            std::wstring_view statementText = rest;
            SqliteStatement statement = database->Prepare(rest, &tail);
            statementText = rest.substr(0, rest.size() - tail.size());
            rest = tail;
            if (!statement) continue;
            if (sqlite3_bind_parameter_count(statement.get()) > 0 && (!params || !params->pData))
                Fail(DB_E_PARAMNOTOPTIONAL, L"The statement has parameters ('?') and no values were given for them.",
                     L"07002");
            const bool last = OnlyTrivia(rest);
            if (sqlite3_column_count(statement.get()) > 0 && last) {
                auto source = std::make_unique<StatementRowSource>(database, std::move(statement), false,
                                                                   std::wstring(statementText));
                if (rowsAffected) *rowsAffected = DB_COUNTUNAVAILABLE;
                if (!wantRowset) return S_OK;
                PropertyStore properties = m_state.properties();
                HRESULT hr = Rowset::CreateInstance(outer, riid, reinterpret_cast<void**>(rowset),
                                                    std::make_shared<SqliteRowStore>(database),
                                                    std::unique_ptr<RowSource>(std::move(source)),
                                                    std::move(properties), ComPtr<IUnknown>(ControllingUnknown()),
                                                    m_state.OpenToken());
                if (FAILED(hr)) Fail(hr);
                return S_OK;
            }
            ConnectionLock lock(db);
            const auto before = sqlite3_total_changes64(db);
            int rc;
            while ((rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
            }
            if (rc != SQLITE_DONE) FailSqlite(db, rc, statementText);
            if (sqlite3_stmt_readonly(statement.get()) == 0) {
                // Rows the statement itself changed: sqlite3_changes leaves out what triggers did
                // (the provider's own column triggers among them) but keeps the count of an
                // earlier statement when this one changed nothing, which the total tells.
                if (sqlite3_total_changes64(db) != before) changes += static_cast<DBROWCOUNT>(sqlite3_changes64(db));
                anyChange = true;
            }
        }
        if (rowsAffected) *rowsAffected = anyChange ? changes : 0;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

void Command::PrepareText() {
    std::wstring_view tail;
    m_session->database()->Prepare(m_state.text(), &tail);
}

ComPtr<IColumnsInfo> Command::DescribePrepared() {
    const auto& database = m_session->database();
    SqliteStatement statement = database->Prepare(m_state.text());
    // Only a statement that changes nothing may be stepped to type its expressions.
    std::unique_ptr<RowSource> source;
    if (statement && sqlite3_stmt_readonly(statement.get()))
        source = std::make_unique<StatementRowSource>(database, std::move(statement), false, m_state.text());
    else
        source = std::make_unique<MemoryRowSource>(std::vector<ColumnDesc>{}, std::vector<SourceRow>{});
    ComPtr<IColumnsInfo> info;
    ZEL_THROW_IF_FAILED(Rowset::CreateInstance(nullptr, IID_IColumnsInfo, info.put_void(),
                                               std::make_shared<SqliteRowStore>(database),
                                               std::move(source), m_state.properties(), ComPtr<IUnknown>()));
    return info;
}

}  // namespace zel::provider
