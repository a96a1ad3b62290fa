// The conventions every IZelOleDb method follows for its parameters.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <string>

#include "common/Bstr.h"

namespace zel {

// Writes a fresh copy of `text`, up to its first NUL, to `*out` when `out` is not null; an
// empty text gives an empty, non-null BSTR. The copy is made even for a null `out`, so a
// failed allocation ends the call with E_OUTOFMEMORY either way.
inline void PutString(BSTR* out, const std::wstring& text) {
    Bstr copy(text.c_str());
    if (out) *out = copy.release();
}

// An input string as the methods take it: copied up to its first NUL; null reads as empty.
inline std::wstring InputText(BSTR text) { return text ? std::wstring(text) : std::wstring(); }

inline VARIANT_BOOL ToVariantBool(bool value) { return value ? VARIANT_TRUE : VARIANT_FALSE; }

// Only 0xFFFF counts as true for an input flag.
inline bool IsTrueFlag(VARIANT_BOOL flag) { return static_cast<USHORT>(flag) == 0xFFFF; }

// A column position arrives as 64 bits, of which only the low 32 are used.
inline ULONG ColumnPosition(ULONGLONG colpos) { return static_cast<ULONG>(colpos); }

}  // namespace zel
