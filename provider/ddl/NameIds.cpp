#include "provider/ddl/NameIds.h"

#include "common/OleDbMemory.h"

namespace zel::provider {

std::optional<std::wstring> NameOf(const DBID* id) {
    if (!id || id->eKind != DBKIND_NAME || !id->uName.pwszName || !*id->uName.pwszName) return std::nullopt;
    return std::wstring(id->uName.pwszName);
}

void FreeNameId(DBID* id) noexcept {
    if (!id) return;
    CoTaskMemFree(id->uName.pwszName);
    CoTaskMemFree(id);
}

NameId NewNameId(std::wstring_view name) {
    CoTaskMem<DBID> id(AllocateZeroed<DBID>(1));
    CoTaskMem<OLECHAR> text = CopyToCoTaskMem(name);
    id->eKind = DBKIND_NAME;
    id->uName.pwszName = text.release();
    return NameId(id.release());
}

}  // namespace zel::provider
