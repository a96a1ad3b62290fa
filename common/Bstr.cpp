#include "common/Bstr.h"

#include "common/ComError.h"

namespace zel {

Bstr::Bstr(const wchar_t* text) {
    if (text) {
        reset(SysAllocString(text));
        if (!get()) ThrowHr(E_OUTOFMEMORY);
    }
}

Bstr::Bstr(std::wstring_view text) {
    reset(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    if (!get()) ThrowHr(E_OUTOFMEMORY);
}

Bstr Bstr::Attach(BSTR value) noexcept {
    Bstr b;
    b.reset(value);
    return b;
}

Bstr Bstr::Copy(BSTR value) {
    Bstr b;
    if (value) {
        b.reset(SysAllocStringByteLen(reinterpret_cast<const char*>(value), SysStringByteLen(value)));
        if (!b.get()) ThrowHr(E_OUTOFMEMORY);
    }
    return b;
}

}  // namespace zel
