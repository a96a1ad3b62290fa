// The text of a fixed-size value as FieldAsString gives it, by the value's bound type. The
// number formats are the printf formats hosts have always received (each named beside its
// case), written by oledb/NumberText.h; their odd results from mismatched arguments are kept.
#include <cstring>

#include "oledb/FieldText.h"

namespace zel {
namespace {

template <typename T>
T Read(const BYTE* value) {
    T result;
    std::memcpy(&result, value, sizeof result);
    return result;
}

// A 64-bit pattern read as the double the platform formatter would take from it.
double BitsAsDouble(unsigned long long bits) {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

}  // namespace

std::wstring ValueText(DBTYPE type, const BYTE* v) {
    switch (type) {
        case DBTYPE_I1: {
            // "%c" of the signed byte: one character, not a number (a 0 byte ends the text).
            int c = Read<signed char>(v);
            return c == 0 ? std::wstring() : std::wstring(1, static_cast<wchar_t>(c));
        }
        case DBTYPE_UI1: return UnsignedText(Read<BYTE>(v));    // "%hu"
        case DBTYPE_I2: return SignedText(Read<SHORT>(v));      // "%hd"
        case DBTYPE_UI2: return UnsignedText(Read<USHORT>(v));  // "%hu"
        case DBTYPE_I4:
        case DBTYPE_ERROR: return SignedText(Read<LONG>(v));    // "%ld"
        case DBTYPE_UI4: return UnsignedText(Read<ULONG>(v));   // "%lu"
        case DBTYPE_I8:
            // "%d" given the two halves: only the low half appears, as a signed number.
            return SignedText(static_cast<int>(Read<ULONG>(v)));
        case DBTYPE_UI8:
            // "%ud" given the two halves: the low half as an unsigned number, then the letter d.
            return UnsignedText(Read<ULONG>(v)) + L'd';
        case DBTYPE_R4: return RealText(static_cast<double>(Read<float>(v)));  // "%g"
        case DBTYPE_R8: return RealText(Read<double>(v));                       // "%lg"
        case DBTYPE_CY:
            // "%l.%l" given quotient and remainder as halves: the format has no conversion
            // letters; the formatter writes the point between the two incomplete
            // specifications and takes no argument, whatever the value.
            return L".";
        case DBTYPE_DATE: return DateText(Read<DATE>(v), 0);
        case DBTYPE_DBDATE: return DbDateText(Read<DBDATE>(v));
        case DBTYPE_DBTIME: return DbTimeText(Read<DBTIME>(v));
        case DBTYPE_DBTIMESTAMP: return DbTimestampText(Read<DBTIMESTAMP>(v));
        case DBTYPE_FILETIME: return FileTimeText(Read<FILETIME>(v));
        case DBTYPE_BOOL: {
            // "%f" given the value sign-extended to 32 bits: the formatter reads a double
            // whose low half is that value and whose high half is zero.
            LONG extended = Read<SHORT>(v);
            return FixedRealText(BitsAsDouble(static_cast<ULONG>(extended)));
        }
        case DBTYPE_VARIANT:
            // "%f" given the VARIANT: its first 8 bytes are read as the double.
            return FixedRealText(Read<double>(v));
        case DBTYPE_DECIMAL: return DecimalText(Read<DECIMAL>(v));
        case DBTYPE_GUID: return GuidText(Read<GUID>(v));
        case DBTYPE_IDISPATCH: return PointerText(Read<void*>(v));  // "%p"
        default: return {};
    }
}

}  // namespace zel
