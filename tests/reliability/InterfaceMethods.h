// Every IZelOleDb method as the type library declares it, and calls of any of them through
// the interface's vtable (DispCallFunc) with arguments made from that declaration, so that a
// suite can put one kind of bad input through all 86 methods without writing 86 calls.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <array>
#include <string>
#include <vector>

namespace zel::test {

struct DeclaredParameter {
    std::wstring name;
    USHORT flags = 0;          // PARAMFLAG_FIN, PARAMFLAG_FOUT, PARAMFLAG_FRETVAL
    VARTYPE type = VT_EMPTY;   // VT_PTR for a reference
    VARTYPE pointee = VT_EMPTY;  // for VT_PTR: the referenced type
    bool In() const { return (flags & PARAMFLAG_FIN) != 0; }
    bool Out() const { return (flags & PARAMFLAG_FOUT) != 0; }
    bool Retval() const { return (flags & PARAMFLAG_FRETVAL) != 0; }
};

struct DeclaredMethod {
    std::wstring name;
    MEMBERID dispid = 0;
    SHORT vtableOffset = 0;  // bytes, in this process's pointer size
    std::vector<DeclaredParameter> params;

    // "Cmd", "Tbl", "Col", "Idx" or "Con".
    std::wstring Family() const { return name.substr(0, 3); }
    // The first parameter is an existing handle ([in] unsigned long client).
    bool TakesHandle() const;
    // Parameters a late-bound caller passes (the return value excluded).
    UINT ArgumentCount() const;
};

// The methods of IZelOleDb in vtable order, read from the type library in `path` (the
// server's executable); empty when it cannot be read.
std::vector<DeclaredMethod> LoadZelOleDbMethods(const std::wstring& path);

// One call of a declared method through the vtable of an object. In-parameters: the handle
// given, column position 1, the text "x", the flag VARIANT_TRUE, the number 3, a column
// VARIANT of VT_UI4 1; an in/out handle starts as the handle given. Every out-parameter
// points at storage of its own that starts with a marker value, unless made null.
class VtableCall {
public:
    VtableCall(const DeclaredMethod& method, ULONG handle);
    VtableCall(const VtableCall&) = delete;
    VtableCall& operator=(const VtableCall&) = delete;
    ~VtableCall();

    // Passes a null pointer for parameter `index` (a reference parameter).
    void PassNull(size_t index);
    // Passes `text` for the in-parameter `index` of type BSTR instead of "x".
    void PassText(size_t index, const std::wstring& text);
    // Calls the method on `object`, which must be the method's interface; returns the
    // method's HRESULT (or DispCallFunc's own failure).
    HRESULT Invoke(IUnknown* object);
    // Whether the out-parameter `index` holds something other than its marker value.
    bool Written(size_t index) const;

private:
    struct Slot {
        UINT64 scalar = 0;
        BSTR text = nullptr;
        VARIANT variant;
    };
    static constexpr size_t kMax = 10;

    const DeclaredMethod& m_method;
    BSTR m_marker = nullptr;     // the BSTR every text out-parameter starts with
    BSTR m_inText = nullptr;     // "x"
    std::array<BSTR, kMax> m_texts{};  // texts given by PassText
    ULONG m_handle = 0;          // in/out handle
    VARIANT m_column;            // VT_UI4 1
    std::array<Slot, kMax> m_slots;
    std::array<VARIANTARG, kMax> m_args{};
    std::array<VARIANTARG*, kMax> m_argPointers{};
    std::array<VARTYPE, kMax> m_types{};
};

}  // namespace zel::test
