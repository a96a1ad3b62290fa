#include "provider/values/DeclaredType.h"

#include <oledberr.h>

#include <cwctype>

#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

// Families of OLE DB types that one declared type can serve.
enum class Family { Text, Binary, Integer, Real, Exact, Date, Boolean, Guid, None };

Family FamilyOf(DBTYPE type) {
    switch (type) {
    case DBTYPE_STR: case DBTYPE_WSTR: case DBTYPE_BSTR: return Family::Text;
    case DBTYPE_BYTES: return Family::Binary;
    case DBTYPE_I1: case DBTYPE_I2: case DBTYPE_I4: case DBTYPE_I8:
    case DBTYPE_UI1: case DBTYPE_UI2: case DBTYPE_UI4: case DBTYPE_UI8: return Family::Integer;
    case DBTYPE_R4: case DBTYPE_R8: return Family::Real;
    case DBTYPE_CY: case DBTYPE_DECIMAL: case DBTYPE_NUMERIC: case DBTYPE_VARNUMERIC: return Family::Exact;
    case DBTYPE_DATE: case DBTYPE_DBDATE: case DBTYPE_DBTIME: case DBTYPE_DBTIMESTAMP: case DBTYPE_FILETIME:
        return Family::Date;
    case DBTYPE_BOOL: return Family::Boolean;
    case DBTYPE_GUID: return Family::Guid;
    default: return Family::None;
    }
}

// A type name as SQLite reads one: words of letters, digits and underscores, then optionally
// one or two signed numbers in parentheses. Anything else could not be put into a statement.
bool IsTypeNameSyntax(std::wstring_view name) {
    size_t i = 0;
    auto word = [&](wchar_t c) { return std::iswalnum(c) || c == L'_'; };
    if (name.empty() || !(std::iswalpha(name[0]) || name[0] == L'_')) return false;
    while (i < name.size() && (word(name[i]) || name[i] == L' ')) ++i;
    if (i == name.size()) return true;
    if (name[i] != L'(' || name.back() != L')') return false;
    std::wstring_view arguments = name.substr(i + 1, name.size() - i - 2);
    int numbers = 0;
    size_t j = 0;
    for (;;) {
        while (j < arguments.size() && arguments[j] == L' ') ++j;
        if (j < arguments.size() && (arguments[j] == L'+' || arguments[j] == L'-')) ++j;
        size_t digits = j;
        while (j < arguments.size() && std::iswdigit(arguments[j])) ++j;
        if (j == digits) return false;
        ++numbers;
        while (j < arguments.size() && arguments[j] == L' ') ++j;
        if (j == arguments.size()) return numbers <= 2;
        if (arguments[j] != L',') return false;
        ++j;
    }
}

DeclaredType Declared(std::wstring declaration) {
    DeclaredType d;
    d.type = MapDeclaredType(declaration);
    d.declaration = std::move(declaration);
    return d;
}

DeclaredType Failed(HRESULT error, std::wstring message) {
    DeclaredType d;
    d.error = error;
    d.message = std::move(message);
    return d;
}

std::wstring Sized(const wchar_t* name, DBLENGTH size) {
    return std::wstring(name) + L"(" + std::to_wstring(size) + L")";
}

DeclaredType Exact(BYTE precision, BYTE scale) {
    if (precision == 0) precision = 18;
    if (scale == kNoPrecision) scale = 0;
    if (precision > 28)
        return Failed(DB_E_BADPRECISION, L"A decimal column holds at most 28 digits; the precision asked for is " +
                                             std::to_wstring(precision) + L".");
    if (scale > precision)
        return Failed(DB_E_BADSCALE, L"The scale " + std::to_wstring(scale) + L" is larger than the precision " +
                                         std::to_wstring(precision) + L".");
    return Declared(L"DECIMAL(" + std::to_wstring(precision) + L"," + std::to_wstring(scale) + L")");
}

DeclaredType FromOleDbType(const TypeRequest& r) {
    const bool isLong = r.isLong || (r.size > kLargestSizedColumn);
    switch (r.wType) {
    case DBTYPE_I1:
    case DBTYPE_I2: return Declared(L"SMALLINT");
    case DBTYPE_UI1: return Declared(L"BYTE");
    case DBTYPE_UI2:
    case DBTYPE_I4: return Declared(L"INTEGER");
    case DBTYPE_UI4:
    case DBTYPE_I8:
    case DBTYPE_UI8: return Declared(L"BIGINT");
    case DBTYPE_R4: return Declared(L"REAL");
    case DBTYPE_R8: return Declared(L"DOUBLE");
    case DBTYPE_CY: return Declared(L"CURRENCY");
    case DBTYPE_DECIMAL:
    case DBTYPE_NUMERIC:
    case DBTYPE_VARNUMERIC: return Exact(r.precision, r.scale);
    case DBTYPE_BOOL: return Declared(L"BIT");
    case DBTYPE_DATE:
    case DBTYPE_DBDATE:
    case DBTYPE_DBTIME:
    case DBTYPE_DBTIMESTAMP:
    case DBTYPE_FILETIME: return Declared(L"DATETIME");
    case DBTYPE_GUID: return Declared(L"GUID");
    case DBTYPE_STR:
    case DBTYPE_WSTR:
    case DBTYPE_BSTR:
        if (isLong) return Declared(L"LONGTEXT");
        return Declared(Sized(r.fixedLength ? L"CHAR" : L"TEXT", r.size ? r.size : 255));
    case DBTYPE_BYTES:
        if (isLong) return Declared(L"LONGBINARY");
        return Declared(Sized(r.fixedLength ? L"BINARY" : L"VARBINARY", r.size ? r.size : 510));
    default:
        return Failed(DB_E_BADTYPE, L"ZelLite cannot make a column of OLE DB type " + std::to_wstring(r.wType) +
                                        L"; give a type the provider maps, or a type name.");
    }
}

DeclaredType FromTypeName(const TypeRequest& r) {
    std::wstring name = Trim(r.typeName);
    if (!IsTypeNameSyntax(name))
        return Failed(DB_E_BADTYPE, L"'" + name + L"' is not a type name (a type name is a word, optionally with "
                                                  L"one or two numbers in parentheses).");
    ColumnType mapped = MapDeclaredType(name);
    if (!mapped.known) return Failed(DB_E_BADTYPE, L"'" + name + L"' is not a type ZelLite knows.");
    if (r.wType != DBTYPE_EMPTY && FamilyOf(r.wType) != FamilyOf(mapped.type))
        return Failed(DB_E_BADTYPE, L"The type name '" + name + L"' does not match the OLE DB type " +
                                        std::to_wstring(r.wType) + L" given with it.");
    if (name.find(L'(') == std::wstring::npos) {
        // Without arguments the name takes its own default; a size or precision given with it
        // is appended when the name accepts one.
        std::wstring candidate;
        if ((mapped.type == DBTYPE_WSTR || mapped.type == DBTYPE_BYTES) && r.size > 0 &&
            r.size <= kLargestSizedColumn) {
            candidate = Sized(name.c_str(), r.size);
            ColumnType sized = MapDeclaredType(candidate);
            if (sized.size != r.size || (sized.flags & DBCOLUMNFLAGS_ISLONG)) candidate.clear();
        } else if (mapped.type == DBTYPE_DECIMAL && r.precision > 0 && r.precision != kNoPrecision) {
            if (r.precision > 28 || (r.scale != kNoPrecision && r.scale > r.precision)) {
                DeclaredType check = Exact(r.precision, r.scale);
                return Failed(check.error, check.message);
            }
            candidate = name + L"(" + std::to_wstring(r.precision) + L"," +
                        std::to_wstring(r.scale == kNoPrecision ? 0 : r.scale) + L")";
            if (MapDeclaredType(candidate).precision != r.precision) candidate.clear();
        }
        if (!candidate.empty()) return Declared(candidate);
    }
    return Declared(name);
}

}  // namespace

bool IsIntegerType(DBTYPE type) noexcept { return FamilyOf(type) == Family::Integer; }

DeclaredType ResolveDeclaredType(const TypeRequest& request) {
    if (request.typeName && *request.typeName) return FromTypeName(request);
    return FromOleDbType(request);
}

}  // namespace zel::provider
