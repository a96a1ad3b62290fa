// Owner of one BSTR.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>
#include <string_view>

#include "common/UniqueResource.h"

namespace zel {

class Bstr : public UniqueResource<BSTR, &SysFreeString> {
public:
    Bstr() noexcept = default;
    // Copies a NUL-terminated string; null gives a null BSTR. Throws E_OUTOFMEMORY.
    explicit Bstr(const wchar_t* text);
    // Copies `text` (embedded NULs kept). Throws E_OUTOFMEMORY.
    explicit Bstr(std::wstring_view text);
    // Takes ownership of an existing BSTR.
    static Bstr Attach(BSTR value) noexcept;
    // Byte-exact copy of a BSTR (length prefix, odd byte counts and embedded NULs kept);
    // null stays null. Throws E_OUTOFMEMORY.
    static Bstr Copy(BSTR value);

    // Length in characters; 0 for null.
    UINT length() const noexcept { return SysStringLen(get()); }
    bool empty() const noexcept { return length() == 0; }
    // Never null: an empty string for a null BSTR.
    const wchar_t* c_str() const noexcept { return get() ? get() : L""; }
    std::wstring str() const { return std::wstring(c_str(), length()); }
};

}  // namespace zel
