// Database files as files: resolving a name to the full path the data source reports, creating
// a new empty database file, writing a compacted copy of a database, and deleting a database
// file. Every failure publishes an error object naming the file and throws (provider/Errors.h).
#pragma once

#include <string>

#include "provider/sqlite/Database.h"

namespace zel::provider {

// The absolute, normalized form of `path` (a relative name resolves against the current
// directory); `path` unchanged when Windows cannot resolve it.
std::wstring FullPath(const std::wstring& path);

// Creates `path` (a full path) as a new, empty SQLite database file with its header written.
// The name is claimed with an exclusive create, so an existing file, or one that a racing
// creator makes first, is never opened for writing. Failures leave no file behind:
//   STG_E_FILEALREADYEXISTS  a file or directory of that name exists (it is left untouched)
//   STG_E_PATHNOTFOUND       the directory does not exist
//   STG_E_ACCESSDENIED, STG_E_INVALIDNAME, STG_E_MEDIUMFULL or another Windows error
//   SQLite's error           the header could not be written
void CreateDatabaseFile(const std::wstring& path);

// Writes a compacted copy of the database that `source` names to `target` (a full path), with
// every table, index, view and trigger and no free pages. The source is read through a
// read-only connection of its own, so its file is never written, whatever mode the caller has
// it open in. `target` is claimed as CreateDatabaseFile claims its file, with the same
// failures; a copy that fails part-way (SQLite's error, e.g. DB_E_TIMEOUT while another
// connection holds an exclusive lock) is removed.
void WriteCompactedCopy(const OpenOptions& source, const std::wstring& target);

// Deletes the database file `path` and the journal files SQLite may have left beside it.
// Fails, deleting nothing, with STG_E_SHAREVIOLATION while another connection holds the file
// open, STG_E_ACCESSDENIED, STG_E_FILENOTFOUND or another Windows error.
void DeleteDatabaseFile(const std::wstring& path);

}  // namespace zel::provider
