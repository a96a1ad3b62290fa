#include "tests/reliability/DifferentialData.h"

#include <oledb.h>

#include <cwchar>
#include <cwctype>

#include "tests/reliability/ReliabilitySupport.h"

namespace zel::test::differential {
namespace {

constexpr int kParts = 50;
constexpr int kOrders = 70;
constexpr int kRowLimit = 25;  // rows per query: every value costs calls across the boundary

struct Column {
    const wchar_t* table;  // alias in the queries
    const wchar_t* name;
    Kind kind;
};

const Column kPartColumns[] = {
    {L"p", L"id", Kind::Int32},     {L"p", L"qty", Kind::Int32},     {L"p", L"big", Kind::Int64},
    {L"p", L"small", Kind::Int16},  {L"p", L"price", Kind::Double},  {L"p", L"weight", Kind::Single},
    {L"p", L"code", Kind::Text},    {L"p", L"name", Kind::Text},     {L"p", L"memo", Kind::LongText},
    {L"p", L"data", Kind::Blob},
};
const Column kOrderColumns[] = {
    {L"o", L"id", Kind::Int32},      {L"o", L"part", Kind::Int32}, {L"o", L"amount", Kind::Double},
    {L"o", L"note", Kind::Text},     {L"o", L"remark", Kind::LongText},
};

// Characters the texts are made of: ASCII with the ones XML and SQL escape, blanks, accented
// and CJK letters, and a character outside the basic plane (two UTF-16 units).
const std::wstring kAlphabet[] = {L"a", L"b", L"Z", L"q", L"7", L"0", L" ", L" ", L"-", L"'", L"\"", L"<", L">",
                                  L"&", L"%", L"_", L"\t", L"\n", L"\x00E9", L"\x00FC", L"\x4E2D", L"\x6587",
                                  L"\xD83D\xDE00", L"\xD834\xDD1E", L"x", L"y"};

class Generator {
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    Scenario Make(int queries) {
        Scenario scenario;
        scenario.setup.push_back(
            L"CREATE TABLE t_parts (id INTEGER PRIMARY KEY, qty INTEGER, big BIGINT, small SMALLINT, price DOUBLE, "
            L"weight REAL, code VARCHAR(12), name VARCHAR(60), memo TEXT, data BLOB)");
        scenario.setup.push_back(
            L"CREATE TABLE t_orders (id INTEGER PRIMARY KEY, part INTEGER, amount DOUBLE, note VARCHAR(30), remark TEXT)");
        for (int first = 1; first <= kParts; first += 10) {
            std::wstring sql = L"INSERT INTO t_parts VALUES ";
            for (int id = first; id < first + 10 && id <= kParts; ++id) {
                if (id != first) sql += L", ";
                sql += L"(" + std::to_wstring(id) + L", " + Maybe(Int(-2147483647 - 1, 2147483647)) + L", " +
                       Maybe(BigInt()) + L", " + Maybe(Int(-32768, 32767)) + L", " + Maybe(DoubleValue()) + L", " +
                       Maybe(Single()) + L", " + Maybe(TextValue(Pick(0, 12))) + L", " +
                       Maybe(TextValue(Pick(0, 60))) + L", " + Maybe(LongTextValue(), 5) + L", " + Maybe(Blob(), 5) + L")";
            }
            scenario.setup.push_back(sql);
        }
        for (int first = 1; first <= kOrders; first += 10) {
            std::wstring sql = L"INSERT INTO t_orders VALUES ";
            for (int id = first; id < first + 10 && id <= kOrders; ++id) {
                if (id != first) sql += L", ";
                sql += L"(" + std::to_wstring(id) + L", " + Maybe(std::to_wstring(Pick(1, kParts + 10)), 10) + L", " +
                       Maybe(DoubleValue()) + L", " + Maybe(TextValue(Pick(0, 30))) + L", " +
                       Maybe(Pick(0, 3) == 0 ? LongTextValue() : TextValue(Pick(0, 40)), 4) + L")";
            }
            scenario.setup.push_back(sql);
        }
        for (int i = 0; i < queries; ++i) {
            switch (Pick(0, 5)) {
                case 0:
                case 1: scenario.queries.push_back(SingleTable()); break;
                case 2:
                case 3: scenario.queries.push_back(Join()); break;
                case 4: scenario.queries.push_back(Aggregate()); break;
                default: scenario.queries.push_back(Expressions()); break;
            }
        }
        return scenario;
    }

private:
    int Pick(int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(m_random);
    }

    // NULL one time in `oneIn`.
    std::wstring Maybe(const std::wstring& literal, int oneIn = 6) { return Pick(1, oneIn) == 1 ? L"NULL" : literal; }

    std::wstring Int(long long low, long long high) {
        if (Pick(0, 2) == 0) return std::to_wstring(Pick(-100, 100));
        return std::to_wstring(std::uniform_int_distribution<long long>(low, high)(m_random));
    }

    std::wstring BigInt() {
        switch (Pick(0, 3)) {
            case 0: return std::to_wstring(Pick(-1000, 1000));
            case 1: return std::to_wstring((1ll << 32) + Pick(-5, 5));  // the low half is what shows
            default: return std::to_wstring(static_cast<long long>(m_random()));
        }
    }

    static std::wstring Literal(double value) {
        wchar_t text[64];
        swprintf(text, 64, L"%.17g", value);
        return text;
    }

    std::wstring DoubleValue() {
        switch (Pick(0, 4)) {
            case 0: return Literal(Pick(-1000, 1000));                 // integral
            case 1: return Literal(Pick(-4000, 4000) / 8.0);           // exact fractions
            case 2: return Literal(std::uniform_real_distribution<double>(-1e15, 1e15)(m_random));
            case 3: return Literal(std::uniform_real_distribution<double>(-1, 1)(m_random) * 1e-5);
            default: return Literal(std::uniform_real_distribution<double>(-1e6, 1e6)(m_random));
        }
    }

    std::wstring Single() { return Literal(std::uniform_real_distribution<double>(-1e5, 1e5)(m_random)); }

    // A text of at most `units` UTF-16 units.
    std::wstring Text(int units) {
        std::wstring text;
        const int length = Pick(0, units);
        while (static_cast<int>(text.size()) < length) {
            const std::wstring& piece = kAlphabet[Pick(0, static_cast<int>(std::size(kAlphabet)) - 1)];
            if (static_cast<int>(text.size() + piece.size()) > length) break;
            text += piece;
        }
        return text;
    }

    static std::wstring Quote(const std::wstring& text) {
        std::wstring quoted = L"'";
        for (wchar_t c : text) quoted += c == L'\'' ? std::wstring(L"''") : std::wstring(1, c);
        return quoted + L"'";
    }

    std::wstring TextValue(int units) { return Quote(Text(units)); }
    std::wstring LongTextValue() { return Quote(Text(Pick(0, 2) == 0 ? 12000 : 300)); }

    std::wstring Blob() {
        static const wchar_t digits[] = L"0123456789ABCDEF";
        const int length = Pick(0, 3) == 0 ? 0 : Pick(1, 2000);
        std::wstring literal = L"X'";
        for (int i = 0; i < length; ++i) {
            const int b = Pick(0, 255);
            literal += digits[b >> 4];
            literal += digits[b & 15];
        }
        return literal + L"'";
    }

    std::wstring Condition(const wchar_t* alias) {
        const std::wstring a = alias;
        switch (Pick(0, 11)) {
            case 0: return a + L".qty > " + std::to_wstring(Pick(-100, 100));
            case 1: return a + L".price BETWEEN " + std::to_wstring(Pick(-1000, 0)) + L" AND " + std::to_wstring(Pick(0, 1000000));
            case 2: return a + L".code LIKE '" + std::wstring(1, L"abZq7 -x"[Pick(0, 7)]) + L"%'";
            case 3: return a + L".name IS NULL";
            case 4: return a + L".memo IS NOT NULL";
            case 5: return a + L".id IN (" + std::to_wstring(Pick(1, 50)) + L", " + std::to_wstring(Pick(1, 50)) + L", " + std::to_wstring(Pick(1, 50)) + L")";
            case 6: return a + L".small < 0";
            case 7: return a + L".big % 3 = 0";
            case 8: return L"length(" + a + L".name) > " + std::to_wstring(Pick(0, 30));
            case 9: return a + L".data IS NULL";
            case 10: return L"(" + a + L".qty IS NULL OR " + a + L".weight > 0)";
            default: return a + L".id % 2 = " + std::to_wstring(Pick(0, 1));
        }
    }

    std::wstring Where(const wchar_t* alias) {
        switch (Pick(0, 3)) {
            case 0: return L"";
            case 1: return L" WHERE " + Condition(alias);
            case 2: return L" WHERE " + Condition(alias) + L" AND " + Condition(alias);
            default: return L" WHERE " + Condition(alias) + L" OR " + Condition(alias);
        }
    }

    void AddColumns(const Column* columns, size_t count, int wanted, Query& query, std::wstring& list,
                    std::vector<const Column*>& picked) {
        for (int i = 0; i < wanted; ++i) {
            const Column& c = columns[Pick(0, static_cast<int>(count) - 1)];
            if (!list.empty()) list += L", ";
            list += std::wstring(c.table) + L"." + c.name;
            query.columns.push_back(c.kind);
            picked.push_back(&c);
        }
    }

    Query SingleTable() {
        Query query;
        std::wstring list;
        std::vector<const Column*> picked;
        AddColumns(kPartColumns, std::size(kPartColumns), Pick(1, 6), query, list, picked);
        const Column& order = kPartColumns[Pick(0, static_cast<int>(std::size(kPartColumns)) - 3)];  // not memo, data
        query.sql = L"SELECT " + list + L" FROM t_parts p" + Where(L"p") + L" ORDER BY p." + order.name +
                    (Pick(0, 1) ? L" DESC" : L"") + L", p.id LIMIT " + std::to_wstring(kRowLimit) +
                    (Pick(0, 3) == 0 ? L" OFFSET " + std::to_wstring(Pick(1, 10)) : L"");
        return query;
    }

    Query Join() {
        Query query;
        std::wstring list;
        std::vector<const Column*> picked;
        AddColumns(kPartColumns, std::size(kPartColumns), Pick(1, 3), query, list, picked);
        AddColumns(kOrderColumns, std::size(kOrderColumns), Pick(1, 3), query, list, picked);
        query.sql = L"SELECT " + list + L" FROM t_parts p " + (Pick(0, 1) ? L"LEFT " : L"") +
                    L"JOIN t_orders o ON o.part = p.id" + Where(L"p") + L" ORDER BY p.id, o.id LIMIT " +
                    std::to_wstring(kRowLimit);
        return query;
    }

    Query Aggregate() {
        // Expressions are typed from their first value: each is kept from being NULL so that
        // its type does not depend on the row order.
        Query query;
        query.sql = L"SELECT COALESCE(p.qty % 4, -1) AS k, COUNT(*), COUNT(p.name), COALESCE(SUM(p.price), 0.5), "
                    L"COALESCE(MIN(p.small), 0), COALESCE(MAX(p.code), '') FROM t_parts p" +
                    Where(L"p") + L" GROUP BY k ORDER BY k";
        query.columns = {Kind::Int64, Kind::Int64, Kind::Int64, Kind::Double, Kind::Int64, Kind::Text};
        return query;
    }

    Query Expressions() {
        Query query;
        query.sql = L"SELECT p.id, COALESCE(length(p.memo), -1), COALESCE(upper(p.code), ''), "
                    L"COALESCE(p.price * 2, 0.25), COALESCE(p.qty + 1, 0), "
                    L"CASE WHEN p.small > 0 THEN 'positive' ELSE 'not positive' END, COALESCE(length(p.data), -1) "
                    L"FROM t_parts p" + Where(L"p") + L" ORDER BY p.id LIMIT " + std::to_wstring(kRowLimit);
        query.columns = {Kind::Int32, Kind::Int64, Kind::Text, Kind::Double, Kind::Int64, Kind::Text, Kind::Int64};
        return query;
    }

    std::mt19937 m_random;
};

// The server formats with msvcrt's own printf (three-digit exponents, halves rounded away
// from zero), which is not the C99 printf that mingw's swprintf stands for.
std::wstring FormatG(double value) {
    wchar_t text[64] = {};
    _snwprintf(text, 63, L"%g", value);
    return text;
}

std::vector<BYTE> Utf16Bytes(const std::wstring& text) {
    const BYTE* begin = reinterpret_cast<const BYTE*>(text.data());
    return std::vector<BYTE>(begin, begin + text.size() * sizeof(wchar_t));
}

std::wstring TrimEnd(std::wstring text) {
    while (!text.empty() && std::iswspace(text.back())) text.pop_back();
    return text;
}

class ShellReader {
public:
    explicit ShellReader(const std::wstring& text) : m_text(text) {}

    bool Read(size_t queries, std::vector<std::vector<ShellRow>>& results) {
        results.assign(queries, {});
        long current = -1;
        while (m_pos < m_text.size()) {
            if (m_text.compare(m_pos, 3, L"#Q ") == 0) {
                const size_t end = m_text.find(L'\n', m_pos);
                current = std::wcstol(m_text.substr(m_pos + 3, end - m_pos - 3).c_str(), nullptr, 10);
                if (current < 0 || static_cast<size_t>(current) >= queries) return false;
                m_pos = end == std::wstring::npos ? m_text.size() : end + 1;
                continue;
            }
            if (current < 0) return false;
            ShellRow row;
            for (;;) {
                ShellValue value;
                if (!ReadValue(value)) return false;
                row.push_back(std::move(value));
                if (m_pos < m_text.size() && m_text[m_pos] == L',') {
                    ++m_pos;
                    continue;
                }
                if (m_pos < m_text.size() && m_text[m_pos] == L'\r') ++m_pos;
                if (m_pos < m_text.size() && m_text[m_pos] != L'\n') return false;
                ++m_pos;
                break;
            }
            results[static_cast<size_t>(current)].push_back(std::move(row));
        }
        return true;
    }

private:
    bool ReadValue(ShellValue& value) {
        if (m_text.compare(m_pos, 4, L"NULL") == 0) {
            m_pos += 4;
            return true;
        }
        if (m_text.compare(m_pos, 2, L"X'") == 0) {
            value.type = ShellValue::Type::Blob;
            m_pos += 2;
            while (m_pos + 1 < m_text.size() && m_text[m_pos] != L'\'') {
                value.bytes.push_back(static_cast<BYTE>(std::wcstoul(m_text.substr(m_pos, 2).c_str(), nullptr, 16)));
                m_pos += 2;
            }
            return m_pos < m_text.size() && m_text[m_pos++] == L'\'';
        }
        if (m_pos < m_text.size() && m_text[m_pos] == L'\'') {
            value.type = ShellValue::Type::Text;
            ++m_pos;
            for (;;) {
                if (m_pos >= m_text.size()) return false;
                if (m_text[m_pos] == L'\'') {
                    if (m_pos + 1 < m_text.size() && m_text[m_pos + 1] == L'\'') {
                        value.text += L'\'';
                        m_pos += 2;
                        continue;
                    }
                    ++m_pos;
                    return true;
                }
                value.text += m_text[m_pos++];
            }
        }
        const size_t start = m_pos;
        while (m_pos < m_text.size() && m_text[m_pos] != L',' && m_text[m_pos] != L'\n' && m_text[m_pos] != L'\r') ++m_pos;
        const std::wstring number = m_text.substr(start, m_pos - start);
        if (number.empty()) return false;
        if (number.find_first_of(L".eE") == std::wstring::npos) {
            value.type = ShellValue::Type::Integer;
            value.integer = std::wcstoll(number.c_str(), nullptr, 10);
        } else {
            value.type = ShellValue::Type::Real;
            value.real = std::wcstod(number.c_str(), nullptr);
        }
        return true;
    }

    const std::wstring& m_text;
    size_t m_pos = 0;
};

}  // namespace

ULONG RawType(Kind kind) {
    switch (kind) {
        case Kind::Int32: return DBTYPE_I4;
        case Kind::Int64: return DBTYPE_I8;
        case Kind::Int16: return DBTYPE_I2;
        case Kind::Double: return DBTYPE_R8;
        case Kind::Single: return DBTYPE_R4;
        case Kind::Text: return DBTYPE_WSTR;
        case Kind::LongText:
        case Kind::Blob: return DBTYPE_IUNKNOWN;  // long values are bound as storage objects
    }
    return DBTYPE_EMPTY;
}

Scenario MakeScenario(unsigned seed, int queries) { return Generator(seed).Make(queries); }

std::string ShellScript(const Scenario& scenario) {
    std::string script = ".mode quote\n.headers off\n";
    for (size_t i = 0; i < scenario.queries.size(); ++i)
        script += ".print #Q " + std::to_string(i) + "\n" + ToUtf8(scenario.queries[i].sql) + ";\n";
    return script;
}

bool ReadShellOutput(const std::wstring& text, size_t queries, std::vector<std::vector<ShellRow>>& results) {
    return ShellReader(text).Read(queries, results);
}

Expected ExpectedValue(Kind kind, const ShellValue& value) {
    Expected expected;
    if (value.type == ShellValue::Type::Null) return expected;
    expected.isNull = false;
    const double real = value.type == ShellValue::Type::Real ? value.real : static_cast<double>(value.integer);
    switch (kind) {
        case Kind::Int32: expected.text = std::to_wstring(static_cast<int>(value.integer)); break;
        // Only the low 32 bits of a 64-bit integer show, as a signed number.
        case Kind::Int64: expected.text = std::to_wstring(static_cast<int>(static_cast<unsigned>(value.integer))); break;
        case Kind::Int16: expected.text = std::to_wstring(static_cast<short>(value.integer)); break;
        case Kind::Double: expected.text = FormatG(real); break;
        case Kind::Single: expected.text = FormatG(static_cast<double>(static_cast<float>(real))); break;
        case Kind::Text: expected.text = value.text; break;
        case Kind::LongText:
        case Kind::Blob:
            if (value.type == ShellValue::Type::Blob) {
                expected.bytes = value.bytes;
                expected.documentComparable = value.bytes.empty();
            } else {
                expected.bytes = Utf16Bytes(value.text);
            }
            break;
    }
    // The document carries the text without its trailing blanks, and a blob's bytes read as
    // UTF-16 code units.
    if (kind == Kind::LongText || kind == Kind::Blob)
        expected.documentText = value.type == ShellValue::Type::Text ? value.text : std::wstring();
    else
        expected.documentText = TrimEnd(expected.text);
    return expected;
}

}  // namespace zel::test::differential
