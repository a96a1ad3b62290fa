// Unpacking of IDispatch::Invoke arguments into the typed values and references that the
// interface methods take, and of a method's return value into the caller's result VARIANT.
// Shared by the dispatchers of IZelOleDb and IZelOleDbHelper.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include "common/Variant.h"

namespace zel::dispatch {

// How a parameter travels through Invoke.
enum class Passing : unsigned char {
    In,       // by value, converted to the declared type
    Out,      // by reference; the method writes a value of the declared type
    InOut,    // by reference; carries the caller's value in and the method's value back
    Variant,  // a VARIANT handed on as it is (a VT_BYREF|VT_VARIANT one dereferenced)
};

struct ParamSpec {
    Passing passing;
    VARTYPE type;           // the declared automation type; VT_VARIANT for Passing::Variant
    bool handle = false;    // an unsigned 32-bit handle carried as VT_I4
    constexpr bool operator==(const ParamSpec&) const = default;
};

// The parameter kinds of the two interfaces.
inline constexpr ParamSpec kHandle{Passing::In, VT_I4, true};          // [in] unsigned long client
inline constexpr ParamSpec kHandleInOut{Passing::InOut, VT_I4, true};  // [in,out] unsigned long* client
inline constexpr ParamSpec kText{Passing::In, VT_BSTR};                // [in] BSTR
inline constexpr ParamSpec kFlag{Passing::In, VT_BOOL};                // [in] VARIANT_BOOL
inline constexpr ParamSpec kLong{Passing::In, VT_I4};                  // [in] long
inline constexpr ParamSpec kColumnPosition{Passing::In, VT_UI8};       // [in] unsigned __int64 colpos
inline constexpr ParamSpec kVariantIn{Passing::Variant, VT_VARIANT};   // [in] VARIANT or VARIANT*
inline constexpr ParamSpec kTextOut{Passing::Out, VT_BSTR};            // [out] BSTR*
inline constexpr ParamSpec kShortOut{Passing::Out, VT_I2};             // [out] short*
inline constexpr ParamSpec kLongOut{Passing::Out, VT_I4};              // [out] long*

// One argument of an Invoke call, made ready for the method in two steps: Bind checks and
// converts without changing anything the caller owns, so that a later argument's failure
// leaves the caller's VARIANTs untouched; Attach then prepares the caller's by-reference
// VARIANTs to receive the method's values. The object must stay where it is from Bind on
// (it may hand out the address of its own storage).
//
// Out and in/out arguments: a VT_BYREF|VT_VARIANT argument is cleared and given the declared
// type, and the method writes straight into it; a direct VT_BYREF argument is used as it is
// when it points to a value of the declared size (a VT_BYREF of another type is refused
// rather than overwritten); an argument passed by value, or a null reference, gets a local
// stand-in whose value is discarded. An in/out handle keeps the caller's value, converted
// to VT_I4, as the method's input.
class BoundArgument {
public:
    BoundArgument() = default;
    BoundArgument(const BoundArgument&) = delete;
    BoundArgument& operator=(const BoundArgument&) = delete;

    // DISP_E_TYPEMISMATCH when the value cannot be converted to the declared type or a
    // reference has the wrong type; E_OUTOFMEMORY when a converted copy cannot be made.
    HRESULT Bind(VARIANT& arg, ParamSpec parameter) noexcept;
    void Attach() noexcept;

    // The method's view of the argument. Each accessor belongs to one parameter kind and
    // throws ComError(E_UNEXPECTED) when asked of another (a fault in a dispatch table).
    BSTR Text() const;
    VARIANT_BOOL Flag() const;
    LONG Long() const;
    ULONG Handle() const;
    UINT64 ColumnPosition() const;
    VARIANT* VariantRef() const;  // a VARIANT* parameter
    VARIANT VariantValue() const;  // a VARIANT parameter taken by value (shallow: not to be cleared)
    ULONG* HandleInOut() const;
    BSTR* TextOut() const;
    short* ShortOut() const;
    LONG* LongOut() const;

private:
    HRESULT ConvertIn(const VARIANT& value) noexcept;
    const VARIANT& InValue(ParamSpec expected) const;
    void* Reference(ParamSpec expected) const;

    ParamSpec m_spec{Passing::In, VT_EMPTY};
    const VARIANT* m_in = nullptr;  // the converted in-value (in m_local) once bound
    VARIANT* m_variant = nullptr;   // Passing::Variant: the VARIANT handed on
    VARIANT* m_target = nullptr;    // out, in/out: the caller's VARIANT behind VT_BYREF|VT_VARIANT
    void* m_reference = nullptr;    // out, in/out: the location the method writes
    Variant m_local;                // converted in-value, or the stand-in of an out argument
};

// The return value ([out,retval]) of a method: typed storage the method writes, then moved
// into the caller's result VARIANT with the declared type.
class MethodResult {
public:
    // VT_EMPTY: the method has no return value. VT_VARIANT: the method writes a VARIANT.
    explicit MethodResult(VARTYPE type) noexcept;
    MethodResult(const MethodResult&) = delete;
    MethodResult& operator=(const MethodResult&) = delete;

    // Typed addresses for the method; each throws ComError(E_UNEXPECTED) for another type.
    VARIANT_BOOL* Bool();
    short* Short();
    LONG* Long();
    ULONG* ULong();  // unsigned 32-bit, delivered as VT_I4
    UINT64* UInt64();
    INT64* Int64();
    BSTR* Text();
    VARIANT* Variant();

    // Moves the value into `result` (already initialised by the dispatcher), or drops it when
    // `result` is null.
    void Deliver(VARIANT* result) noexcept;

private:
    void* Address(VARTYPE expected);

    VARTYPE m_type;
    zel::Variant m_value;
};

}  // namespace zel::dispatch
