#include "provider/ddl/DefaultValue.h"

#include <cmath>
#include <cwchar>

#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"
#include "provider/values/DataConversion.h"
#include "provider/values/ValueReader.h"
#include "provider/values/ValueWriter.h"

namespace zel::provider {

namespace {

const wchar_t* const kTimeKeywords[] = {L"CURRENT_TIMESTAMP", L"CURRENT_DATE", L"CURRENT_TIME"};

const wchar_t* TimeKeyword(std::wstring_view text) {
    for (const wchar_t* keyword : kTimeKeywords)
        if (EqualsNoCase(text, keyword)) return keyword;
    return nullptr;
}

bool Parenthesized(std::wstring_view text) { return text.size() >= 2 && text.front() == L'(' && text.back() == L')'; }

std::wstring HexLiteral(const Bytes& bytes) {
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring sql = L"X'";
    for (BYTE b : bytes) {
        sql += kDigits[b >> 4];
        sql += kDigits[b & 15];
    }
    return sql + L"'";
}

// The constant `cell` as SQL; nothing when it cannot be written as one.
std::optional<std::wstring> Literal(const Cell& cell) {
    switch (cell.index()) {
    case 1: return std::to_wstring(std::get<std::int64_t>(cell));
    case 2: {
        double value = std::get<double>(cell);
        if (!std::isfinite(value)) return std::nullopt;
        wchar_t text[40];
        swprintf(text, std::size(text), L"%.17g", value);
        return std::wstring(text);
    }
    case 3: return QuoteText(std::get<std::wstring>(cell));
    case 4: return HexLiteral(std::get<Bytes>(cell));
    default: return std::nullopt;
    }
}

int HexValue(wchar_t c) {
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    return -1;
}

// Reads the constant SQL text of a DEFAULT clause; false for anything that is not a constant.
bool ParseConstant(std::wstring_view sql, Cell& out) {
    if (sql.size() >= 2 && sql.front() == L'\'' && sql.back() == L'\'') {
        std::wstring text;
        for (size_t i = 1; i + 1 < sql.size(); ++i) {
            if (sql[i] == L'\'') {
                if (i + 2 >= sql.size() || sql[i + 1] != L'\'') return false;  // a quote not doubled
                ++i;
            }
            text += sql[i];
        }
        out = std::move(text);
        return true;
    }
    if (sql.size() >= 3 && (sql[0] == L'x' || sql[0] == L'X') && sql[1] == L'\'' && sql.back() == L'\'') {
        std::wstring_view hex = sql.substr(2, sql.size() - 3);
        if (hex.size() % 2) return false;
        Bytes bytes;
        for (size_t i = 0; i < hex.size(); i += 2) {
            int high = HexValue(hex[i]), low = HexValue(hex[i + 1]);
            if (high < 0 || low < 0) return false;
            bytes.push_back(static_cast<BYTE>(high * 16 + low));
        }
        out = std::move(bytes);
        return true;
    }
    if (EqualsNoCase(sql, L"TRUE") || EqualsNoCase(sql, L"FALSE")) {
        out = std::int64_t{EqualsNoCase(sql, L"TRUE") ? 1 : 0};
        return true;
    }
    std::int64_t integer;
    if (ParseInteger(sql, &integer)) {
        out = integer;
        return true;
    }
    double real;
    if (ParseReal(sql, &real)) {
        out = real;
        return true;
    }
    return false;
}

Variant TextVariant(std::wstring_view text) { return Variant(text); }

}  // namespace

DefaultClause DefaultFromVariant(const VARIANT& value, const ColumnType& column) {
    DefaultClause clause;
    Variant given;
    if (V_VT(&value) & VT_BYREF) {
        // VariantCopyInd does not modify its source; its signature is not const-correct.
        if (FAILED(VariantCopyInd(given.get(), const_cast<VARIANT*>(&value)))) {
            clause.status = DBPROPSTATUS_BADVALUE;
            return clause;
        }
    } else {
        given = Variant(value);
    }
    if (given.vt() == VT_EMPTY || given.vt() == VT_NULL) return clause;

    // The value goes through the conversion IRowsetChange uses, so that a default is stored
    // exactly as a value inserted into the column would be.
    DBBINDING binding{};
    binding.iOrdinal = 1;
    binding.obValue = 0;
    binding.dwPart = DBPART_VALUE;
    binding.wType = DBTYPE_VARIANT;
    binding.cbMaxLen = sizeof(VARIANT);
    ColumnDesc desc;
    desc.type = column;
    WriteValue converted = ReadConsumerValue(binding, given.get(), desc);
    if (converted.status == DBSTATUS_S_OK && converted.action == WriteAction::Store) {
        clause.sql = Literal(converted.cell);
        if (!clause.sql) clause.status = DBPROPSTATUS_BADVALUE;
        clause.zeroLengthText = std::holds_alternative<std::wstring>(converted.cell) &&
                                std::get<std::wstring>(converted.cell).empty();
        return clause;
    }
    if (given.vt() == VT_BSTR && column.type != DBTYPE_WSTR) {
        std::wstring text = Trim(std::wstring_view(V_BSTR(given.get()), SysStringLen(V_BSTR(given.get()))));
        if (const wchar_t* keyword = TimeKeyword(text)) {
            clause.sql = keyword;
            clause.expression = true;
            return clause;
        }
        if (Parenthesized(text)) {
            clause.sql = text;
            clause.expression = true;
            return clause;
        }
    }
    clause.status = DBPROPSTATUS_BADVALUE;
    return clause;
}

Variant DefaultToVariant(const std::optional<std::wstring>& sql, const ColumnType& column) {
    if (!sql) return Variant();
    std::wstring text = Trim(*sql);
    if (text.empty() || EqualsNoCase(text, L"NULL")) return Variant();
    Cell constant;
    if (!ParseConstant(text, constant)) {
        // An expression: the time keywords as they are, anything else in parentheses (SQLite
        // reports "DEFAULT (1+2)" as 1+2), which is how DefaultFromVariant takes it back.
        if (TimeKeyword(text) || Parenthesized(text)) return TextVariant(text);
        return TextVariant(L"(" + text + L")");
    }
    Scalar scalar = ReadValue(constant, column);
    BindingTarget target;
    target.type = DBTYPE_VARIANT;
    Variant result;
    ConversionResult converted = ConvertForBinding(scalar, column, target, result.get());
    if (converted.status != DBSTATUS_S_OK) return TextVariant(text);
    return result;
}

}  // namespace zel::provider
