#include "provider/ddl/NameIds.h"

#include <cstring>
#include <new>

#include "common/CoTaskMem.h"

namespace zel::lite {

std::optional<std::wstring> NameOf(const DBID* id) {
    if (!id || id->eKind != DBKIND_NAME || !id->uName.pwszName || !*id->uName.pwszName) return std::nullopt;
    return std::wstring(id->uName.pwszName);
}

DBID* NewNameId(std::wstring_view name) {
    CoTaskMem<DBID> id(static_cast<DBID*>(CoTaskMemAlloc(sizeof(DBID))));
    CoTaskMem<OLECHAR> text(static_cast<OLECHAR*>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR))));
    if (!id || !text) throw std::bad_alloc();
    memcpy(text.get(), name.data(), name.size() * sizeof(OLECHAR));
    text[name.size()] = L'\0';
    *id.get() = DBID{};
    id->eKind = DBKIND_NAME;
    id->uName.pwszName = text.release();
    return id.release();
}

}  // namespace zel::lite
