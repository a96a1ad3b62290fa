#include "provider/sqlite/DatabaseFile.h"

#include <windows.h>

#include <cwchar>
#include <initializer_list>
#include <iterator>

#include "common/Win32Handles.h"
#include "provider/errors/Errors.h"
#include "provider/sqlite/SqliteErrors.h"
#include "provider/sqlite/SqliteHandles.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// The storage error for a failed file operation on `path`, with a description naming it.
[[noreturn]] void FailFile(DWORD error, const std::wstring& action, const std::wstring& path) {
    const std::wstring subject = L"Cannot " + action + L" '" + path + L"': ";
    switch (error) {
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
        Fail(STG_E_FILEALREADYEXISTS, subject + L"a file of that name already exists; it is never overwritten.",
             L"HY000");
    case ERROR_PATH_NOT_FOUND: Fail(STG_E_PATHNOTFOUND, subject + L"its directory does not exist.", L"HY000");
    case ERROR_FILE_NOT_FOUND: Fail(STG_E_FILENOTFOUND, subject + L"the file does not exist.", L"HY000");
    case ERROR_ACCESS_DENIED: Fail(STG_E_ACCESSDENIED, subject + L"access is denied.", L"42000");
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        Fail(STG_E_SHAREVIOLATION, subject + L"another connection or program has the file open.", L"HY000");
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_DIRECTORY: Fail(STG_E_INVALIDNAME, subject + L"the name is not a valid file name.", L"HY000");
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: Fail(STG_E_MEDIUMFULL, subject + L"the disk is full.", L"HY000");
    default: {
        wchar_t code[32];
        swprintf(code, std::size(code), L"Windows error %lu.", static_cast<unsigned long>(error));
        Fail(HRESULT_FROM_WIN32(error), subject + code, L"HY000");
    }
    }
}

// Removes a file this code created unless the work on it completed; declared before the
// SQLite connection that writes the file, so that the connection is closed first.
class RemoveUnlessKept {
public:
    explicit RemoveUnlessKept(std::wstring path) : m_path(std::move(path)) {}
    RemoveUnlessKept(const RemoveUnlessKept&) = delete;
    RemoveUnlessKept& operator=(const RemoveUnlessKept&) = delete;
    ~RemoveUnlessKept() {
        if (!m_kept) DeleteFileW(m_path.c_str());
    }
    void Keep() noexcept { m_kept = true; }

private:
    std::wstring m_path;
    bool m_kept = false;
};

// Creates `path` as a new, empty file; fails when anything of that name exists. CREATE_NEW
// makes the check and the creation one step, so a racing creator's file is never taken over.
void ClaimNewFile(const std::wstring& path, const std::wstring& action) {
    if (path.empty()) FailFile(ERROR_INVALID_NAME, action, path);
    // A directory of that name counts as existing too, with the same error.
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) FailFile(ERROR_FILE_EXISTS, action, path);
    UniqueHandle file = AdoptFileHandle(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) FailFile(GetLastError(), action, path);
    // nothing is written; the empty file only reserves the name
}

// Flushes `path` to the disk, so that a copy about to replace its original is complete there.
void FlushFile(const std::wstring& path, const std::wstring& action) {
    UniqueHandle file = AdoptFileHandle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) FailFile(GetLastError(), action, path);
    const bool flushed = FlushFileBuffers(file.get()) != FALSE;
    const DWORD error = GetLastError();
    file.reset();  // closed before a failure throws
    if (!flushed) FailFile(error, action, path);
}

}  // namespace

std::wstring FullPath(const std::wstring& path) {
    DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (size == 0) return path;
    std::wstring full(size, L'\0');
    size = GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
    full.resize(size);
    return full;
}

void CreateDatabaseFile(const std::wstring& path) {
    const std::wstring action = L"create the database file";
    ClaimNewFile(path, action);
    RemoveUnlessKept remove(path);
    // An empty file is already an empty database to SQLite; writing the header makes it one
    // to every other reader too, and fixes the page size and text encoding.
    SqliteConnection db;
    int rc = sqlite3_open_v2(ToUtf8(path).c_str(), db.put(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (rc != SQLITE_OK) FailSqlite(db.get(), rc, L"(creating '" + path + L"')");
    {
        ConnectionLock lock(db.get());
        rc = sqlite3_exec(db.get(), "PRAGMA user_version = 0", nullptr, nullptr, nullptr);
        if (rc != SQLITE_OK) FailSqlite(db.get(), rc, L"(creating '" + path + L"')");
    }
    db.reset();
    remove.Keep();
}

void WriteCompactedCopy(const OpenOptions& source, const std::wstring& target) {
    const std::wstring action = L"write the compacted copy";
    ClaimNewFile(target, action);
    RemoveUnlessKept remove(target);
    OpenOptions readOnly = source;
    readOnly.readOnly = true;
    std::shared_ptr<Database> reader = Database::Open(readOnly);
    {
        // VACUUM INTO writes a fresh database holding every object of the source, packed, into
        // a file that does not exist or is empty (the one just claimed). The name goes in as a
        // parameter, in UTF-8, which SQLite's Windows layer opens with the wide-character API.
        sqlite3* db = reader->handle();
        ConnectionLock lock(db);
        const std::wstring statement = L"VACUUM INTO '" + target + L"'";
        SqliteStatement vacuum;
        int rc = sqlite3_prepare_v2(db, "VACUUM INTO ?1", -1, vacuum.put(), nullptr);
        if (rc != SQLITE_OK) FailSqlite(db, rc, statement);
        const std::string name = ToUtf8(target);
        rc = sqlite3_bind_text(vacuum.get(), 1, name.c_str(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
        if (rc == SQLITE_OK) rc = sqlite3_step(vacuum.get());
        if (rc != SQLITE_DONE) FailSqlite(db, rc, statement);
    }
    reader.reset();
    FlushFile(target, action);
    remove.Keep();
}

void DeleteDatabaseFile(const std::wstring& path) {
    if (!DeleteFileW(path.c_str())) FailFile(GetLastError(), L"delete the database file", path);
    // A rollback journal left by a crash, or a write-ahead log and its index, belong to the
    // deleted database; absent ones are the usual case.
    for (const wchar_t* suffix : {L"-journal", L"-wal", L"-shm"}) DeleteFileW((path + suffix).c_str());
}

}  // namespace zel::provider
