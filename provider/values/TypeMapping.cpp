#include "provider/values/TypeMapping.h"

#include <cwctype>
#include <string>

namespace zel::provider {

namespace {

// Splits "NAME (a, b)" into the upper-case name and up to two numeric arguments.
struct Declaration {
    std::wstring name;
    int args[2] = {-1, -1};
    int count = 0;
};

Declaration Parse(std::wstring_view declared) {
    Declaration d;
    size_t open = declared.find(L'(');
    std::wstring_view head = declared.substr(0, open);
    // Collapse inner white space: "DOUBLE PRECISION", "LONG VARCHAR".
    std::wstring name;
    bool space = false;
    for (wchar_t c : head) {
        if (std::iswspace(c)) {
            space = !name.empty();
            continue;
        }
        if (space) name += L' ';
        space = false;
        name += static_cast<wchar_t>(std::towupper(c));
    }
    d.name = name;
    if (open != std::wstring_view::npos) {
        std::wstring_view rest = declared.substr(open + 1);
        int value = -1;
        for (wchar_t c : rest) {
            if (c >= L'0' && c <= L'9') {
                value = (value < 0 ? 0 : value) * 10 + (c - L'0');
                if (value > 100000000) value = 100000000;
            } else if (c == L',' || c == L')') {
                if (d.count < 2) d.args[d.count++] = value;
                value = -1;
                if (c == L')') break;
            }
        }
    }
    return d;
}

bool Is(const std::wstring& name, std::initializer_list<const wchar_t*> names) {
    for (const wchar_t* n : names)
        if (name == n) return true;
    return false;
}

// A text or binary type of `size` (characters for text, bytes for binary data).
ColumnType Sized(DBTYPE type, DBLENGTH size, DBCOLUMNFLAGS flags = 0) {
    ColumnType t;
    t.type = type;
    t.size = size;
    t.flags = flags;
    return t;
}


}  // namespace

ColumnType TextType(DBLENGTH size, bool fixed) {
    return Sized(DBTYPE_WSTR, size, fixed ? DBCOLUMNFLAGS_ISFIXEDLENGTH : 0);
}
ColumnType LongTextType() { return Sized(DBTYPE_WSTR, kLongColumnSize, DBCOLUMNFLAGS_ISLONG); }
ColumnType BinaryType(DBLENGTH size) { return Sized(DBTYPE_BYTES, size); }
ColumnType LongBinaryType() { return Sized(DBTYPE_BYTES, kLongColumnSize, DBCOLUMNFLAGS_ISLONG); }

ColumnType DecimalType(int precision, int scale) {
    ColumnType t = FixedType(DBTYPE_DECIMAL);
    if (precision < 1 || precision > 28) precision = 18;
    if (scale < 0) scale = 0;
    if (scale > precision) scale = precision;
    t.precision = static_cast<BYTE>(precision);
    t.scale = static_cast<BYTE>(scale);
    return t;
}

ColumnType FixedType(DBTYPE type) {
    ColumnType t;
    t.type = type;
    t.flags = DBCOLUMNFLAGS_ISFIXEDLENGTH;
    switch (type) {
    case DBTYPE_I1: t.size = 1; t.precision = 3; break;
    case DBTYPE_UI1: t.size = 1; t.precision = 3; break;
    case DBTYPE_I2: t.size = 2; t.precision = 5; break;
    case DBTYPE_UI2: t.size = 2; t.precision = 5; break;
    case DBTYPE_I4: t.size = 4; t.precision = 10; break;
    case DBTYPE_UI4: t.size = 4; t.precision = 10; break;
    case DBTYPE_I8: t.size = 8; t.precision = 19; break;
    case DBTYPE_UI8: t.size = 8; t.precision = 20; break;
    case DBTYPE_R4: t.size = 4; t.precision = 7; break;
    case DBTYPE_R8: t.size = 8; t.precision = 15; break;
    case DBTYPE_CY: t.size = 8; t.precision = 19; t.scale = 4; break;
    case DBTYPE_DECIMAL: t.size = sizeof(DECIMAL); t.precision = 28; t.scale = 0; break;
    case DBTYPE_NUMERIC: t.size = sizeof(DB_NUMERIC); t.precision = 38; t.scale = 0; break;
    case DBTYPE_BOOL: t.size = sizeof(VARIANT_BOOL); break;
    case DBTYPE_DATE: t.size = sizeof(DATE); break;
    case DBTYPE_GUID: t.size = sizeof(GUID); break;
    default: t.flags = 0; break;
    }
    return t;
}

ColumnType MapDeclaredType(std::wstring_view declared) {
    Declaration d = Parse(declared);
    const std::wstring& n = d.name;
    if (n.empty()) {
        ColumnType unknown = TextType(kExpressionTextSize, false);
        unknown.known = false;
        return unknown;
    }
    if (Is(n, {L"INTEGER", L"LONG", L"INT", L"INT4", L"INTEGER4", L"MEDIUMINT", L"COUNTER", L"AUTOINCREMENT", L"IDENTITY"}))
        return FixedType(DBTYPE_I4);
    if (Is(n, {L"SHORT", L"SMALLINT", L"INT2", L"INTEGER2"})) return FixedType(DBTYPE_I2);
    if (Is(n, {L"BYTE", L"TINYINT", L"INTEGER1"})) return FixedType(DBTYPE_UI1);
    if (Is(n, {L"BIGINT", L"INT8", L"INTEGER8", L"UNSIGNED BIG INT"})) return FixedType(DBTYPE_I8);
    if (Is(n, {L"SINGLE", L"REAL", L"FLOAT4", L"IEEESINGLE"})) return FixedType(DBTYPE_R4);
    if (Is(n, {L"DOUBLE", L"FLOAT", L"FLOAT8", L"DOUBLE PRECISION", L"IEEEDOUBLE", L"NUMBER"})) return FixedType(DBTYPE_R8);
    if (Is(n, {L"CURRENCY", L"MONEY", L"SMALLMONEY"})) return FixedType(DBTYPE_CY);
    if (Is(n, {L"DECIMAL", L"NUMERIC", L"DEC"})) return DecimalType(d.args[0] < 0 ? 18 : d.args[0], d.args[1] < 0 ? 0 : d.args[1]);
    if (Is(n, {L"BIT", L"YESNO", L"BOOLEAN", L"BOOL", L"LOGICAL"})) return FixedType(DBTYPE_BOOL);
    if (Is(n, {L"DATETIME", L"DATE", L"TIME", L"TIMESTAMP", L"SMALLDATETIME"})) return FixedType(DBTYPE_DATE);
    if (Is(n, {L"GUID", L"UNIQUEIDENTIFIER", L"UUID"})) return FixedType(DBTYPE_GUID);
    if (Is(n, {L"TEXT", L"VARCHAR", L"NVARCHAR", L"CHARACTER VARYING", L"STRING", L"VARCHAR2", L"NVARCHAR2",
               L"NATIONAL CHARACTER VARYING", L"ALPHANUMERIC"})) {
        if (d.args[0] > 0) return TextType(static_cast<DBLENGTH>(d.args[0]), false);
        // TEXT without a length is a memo; VARCHAR without one keeps Jet's default of 255.
        return n == L"TEXT" || n == L"STRING" ? LongTextType() : TextType(255, false);
    }
    if (Is(n, {L"CHAR", L"NCHAR", L"CHARACTER", L"NATIONAL CHARACTER"}))
        return TextType(d.args[0] > 0 ? static_cast<DBLENGTH>(d.args[0]) : 255, true);
    if (Is(n, {L"MEMO", L"LONGTEXT", L"LONGCHAR", L"NOTE", L"NTEXT", L"CLOB", L"MEDIUMTEXT", L"TINYTEXT",
               L"LONG VARCHAR", L"HYPERLINK", L"XML", L"JSON"}))
        return LongTextType();
    if (Is(n, {L"BINARY", L"VARBINARY", L"BINARY VARYING"}))
        return d.args[0] > 0 ? BinaryType(static_cast<DBLENGTH>(d.args[0])) : BinaryType(510);
    if (Is(n, {L"BLOB", L"LONGBINARY", L"IMAGE", L"GENERAL", L"OLEOBJECT", L"LONGBLOB",
               L"MEDIUMBLOB", L"BYTEA", L"LONG VARBINARY"}))
        return LongBinaryType();

    // SQLite's affinity rules for names not listed above.
    if (n.find(L"INT") != std::wstring::npos) return FixedType(DBTYPE_I4);
    if (n.find(L"CHAR") != std::wstring::npos || n.find(L"CLOB") != std::wstring::npos ||
        n.find(L"TEXT") != std::wstring::npos)
        return d.args[0] > 0 ? TextType(static_cast<DBLENGTH>(d.args[0]), false) : LongTextType();
    if (n.find(L"BLOB") != std::wstring::npos) return LongBinaryType();
    if (n.find(L"REAL") != std::wstring::npos || n.find(L"FLOA") != std::wstring::npos ||
        n.find(L"DOUB") != std::wstring::npos)
        return FixedType(DBTYPE_R8);
    ColumnType unknown = TextType(kExpressionTextSize, false);
    unknown.known = false;
    return unknown;
}

ColumnType TypeFromValue(const Cell& value) {
    switch (value.index()) {
    case 1: return FixedType(DBTYPE_I8);
    case 2: return FixedType(DBTYPE_R8);
    case 3: {
        const auto& text = std::get<std::wstring>(value);
        return text.size() > kExpressionTextSize ? LongTextType() : TextType(kExpressionTextSize, false);
    }
    case 4: return LongBinaryType();
    default: return TextType(kExpressionTextSize, false);
    }
}

}  // namespace zel::provider
