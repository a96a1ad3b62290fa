// DBIDs that name tables, columns and indexes: reading a consumer's id, and making the ids the
// catalog methods hand out (ppTableID, ppColumnID, ppIndexID).
#pragma once

#include <windows.h>
#include <oledb.h>

#include <optional>
#include <string>
#include <string_view>

#include "common/UniqueResource.h"

namespace zel::provider {

// The name in a DBKIND_NAME id; nothing for a null id, another kind, or a null or empty name.
std::optional<std::wstring> NameOf(const DBID* id);

// Frees a DBID made by NewNameId: its name, then the DBID.
void FreeNameId(DBID* id) noexcept;

// Owner of a DBID made by NewNameId until it is handed out (release()).
using NameId = UniqueResource<DBID*, &FreeNameId>;

// A new DBKIND_NAME id for `name`. The DBID and its name are separate blocks from the COM task
// allocator, the caller's to free (the name first, then the DBID). Throws std::bad_alloc.
NameId NewNameId(std::wstring_view name);

}  // namespace zel::provider
