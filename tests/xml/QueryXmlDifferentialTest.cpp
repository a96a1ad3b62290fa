// The server's direct writer of the query-result document against MSXML 6.0 building the same
// tree (the oracle): over generated results, both texts must be equal code unit for code unit.
// Also what the direct writer does with values XML cannot carry, which the oracle decides.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "common/Bstr.h"
#include "oledb/KobOleDbCommand.h"
#include "tests/oledb/FakeRowset.h"
#include "tests/xml/DomQueryDataXml.h"
#include "xml/KobOleDbXML.h"

using namespace zel;
using namespace zel::test;

namespace {

// A column kind of the generated results: its declared column and how its values are made.
enum class Kind { Fixed, Text, AnsiText, Bytes, LongText, LongBytes };

struct ColumnKind {
    DBTYPE type;
    DBLENGTH size;  // bytes of a fixed value; characters or bytes for the others
    Kind kind;
};

// Every type the server reads as field text or blob data.
const ColumnKind kKinds[] = {
    {DBTYPE_I1, 1, Kind::Fixed},        {DBTYPE_UI1, 1, Kind::Fixed},       {DBTYPE_I2, 2, Kind::Fixed},
    {DBTYPE_UI2, 2, Kind::Fixed},       {DBTYPE_I4, 4, Kind::Fixed},        {DBTYPE_UI4, 4, Kind::Fixed},
    {DBTYPE_I8, 8, Kind::Fixed},        {DBTYPE_UI8, 8, Kind::Fixed},       {DBTYPE_R4, 4, Kind::Fixed},
    {DBTYPE_R8, 8, Kind::Fixed},        {DBTYPE_CY, 8, Kind::Fixed},        {DBTYPE_BOOL, 2, Kind::Fixed},
    {DBTYPE_DECIMAL, 16, Kind::Fixed},  {DBTYPE_DATE, 8, Kind::Fixed},      {DBTYPE_GUID, 16, Kind::Fixed},
    {DBTYPE_DBDATE, 6, Kind::Fixed},    {DBTYPE_DBTIME, 6, Kind::Fixed},    {DBTYPE_DBTIMESTAMP, 16, Kind::Fixed},
    {DBTYPE_FILETIME, 8, Kind::Fixed},  {DBTYPE_WSTR, 40, Kind::Text},      {DBTYPE_STR, 40, Kind::AnsiText},
    {DBTYPE_BYTES, 40, Kind::Bytes},    {DBTYPE_WSTR, 0, Kind::LongText},   {DBTYPE_BYTES, 0, Kind::LongBytes},
};

// Code units the generated texts are made of: plain text, markup, white space, control
// characters, characters beyond ASCII, halves of surrogate pairs, non-characters, NUL.
const wchar_t kUnits[] = {L'a',   L'Z',   L'0',   L' ',   L'<',   L'>',   L'&',   L'"',   L'\'',  L'\r',
                          L'\n',  L'\t',  0x0001, 0x0008, 0x000B, 0x001F, 0x007F, 0x0085, 0x00A0, 0x00E9,
                          0x20AC, 0x2028, 0xD83D, 0xDE00, 0xDBFF, 0xDC00, 0xFFFD, 0xFFFE, 0xFFFF, 0x0000};

class Generator {
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    size_t Below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(m_random); }
    bool Chance(int percent) { return Below(100) < static_cast<size_t>(percent); }

    // Mostly characters of kUnits, now and then a whole surrogate pair (a character outside
    // the Basic Multilingual Plane); NUL only when `nul` allows it.
    std::wstring Units(size_t count, bool nul) {
        std::wstring text;
        while (text.size() < count) {
            if (Chance(10)) {
                text += L"\xD83D\xDE00";
                continue;
            }
            wchar_t unit = kUnits[Below(std::size(kUnits) - (nul ? 0 : 1))];
            text += unit;
        }
        return text;
    }

    std::vector<BYTE> RandomBytes(size_t count) {
        std::vector<BYTE> bytes(count);
        for (BYTE& b : bytes) b = static_cast<BYTE>(Below(256));
        return bytes;
    }

    // Blob bytes: code units from kUnits (NUL rarely, so that most values go on past it), or
    // bytes at random; odd lengths now and then.
    std::vector<BYTE> BlobBytes() {
        const size_t units = Chance(10) ? 0 : Below(24);
        std::vector<BYTE> bytes;
        if (Chance(30)) {
            bytes = RandomBytes(units * 2);
        } else {
            const std::wstring text = Units(units, Chance(10));
            bytes.assign(reinterpret_cast<const BYTE*>(text.data()),
                         reinterpret_cast<const BYTE*>(text.data() + text.size()));
        }
        if (Chance(40)) bytes.push_back(static_cast<BYTE>(Below(256)));
        return bytes;
    }

    FakeValue MakeValue(const ColumnKind& kind) {
        switch (kind.kind) {
            case Kind::Fixed: return FakeValue{RandomBytes(kind.size), false};
            case Kind::Text: return Text(Units(Chance(10) ? 0 : Below(kind.size), false));
            case Kind::AnsiText: {
                std::vector<BYTE> bytes;
                const size_t n = Chance(10) ? 0 : Below(kind.size);
                for (size_t i = 0; i < n; ++i) bytes.push_back(static_cast<BYTE>(1 + Below(255)));
                return Bytes(bytes);
            }
            case Kind::Bytes: return Bytes(RandomBytes(Below(kind.size)));
            case Kind::LongText:
            case Kind::LongBytes: return Bytes(BlobBytes());
        }
        return Null();
    }

    // A column name made of the same units (no NUL, never empty).
    std::wstring Name(size_t c) { return Chance(70) ? L"col" + std::to_wstring(c) : L"c" + Units(1 + Below(6), false); }

    // A result of `columns` columns and `rows` rows; NULLs anywhere with `nullPercent`, and
    // every fifth row (when there are several) all NULL.
    std::shared_ptr<FakeResult> Result(size_t columns, size_t rows, int nullPercent) {
        auto result = std::make_shared<FakeResult>();
        std::vector<ColumnKind> kinds;
        for (size_t c = 0; c < columns; ++c) {
            const ColumnKind& kind = kKinds[Below(std::size(kKinds))];
            kinds.push_back(kind);
            const bool isLong = kind.kind == Kind::LongText || kind.kind == Kind::LongBytes;
            DBCOLUMNFLAGS flags = DBCOLUMNFLAGS_MAYBENULL | (isLong ? DBCOLUMNFLAGS_ISLONG : 0);
            result->columns.push_back({Name(c + 1), kind.type, isLong ? ~DBLENGTH(0) : kind.size, flags, 10, 2});
        }
        for (size_t r = 0; r < rows; ++r) {
            const bool allNull = rows > 1 && r % 5 == 4;
            std::vector<FakeValue> row;
            for (size_t c = 0; c < columns; ++c)
                row.push_back(allNull || Chance(nullPercent) ? Null() : MakeValue(kinds[c]));
            result->rows.push_back(std::move(row));
        }
        return result;
    }

private:
    std::mt19937 m_random;
};

// Both documents of the same result, each from a fresh execution.
struct Documents {
    bool directBuilt = false;
    bool domBuilt = false;
    std::wstring direct;
    std::wstring dom;
};

Documents BuildBoth(std::shared_ptr<FakeResult> result) {
    FakeConnection connection(std::move(result));
    KobOleDbCommand command;
    command.SetConnection(&connection);
    command.SetCommandText(L"SELECT");
    Documents d;
    EXPECT_EQ(kTriTrue, command.Execute());
    KobOleDbXML writer;
    d.directBuilt = writer.BuildQueryDataXml(&command, d.direct);
    EXPECT_EQ(kTriFalse, command.FetchNext()) << "the direct writer stops before the last row";
    EXPECT_EQ(kTriTrue, command.Execute());
    DomQueryDataXml oracle;
    Bstr dom;
    d.domBuilt = oracle.Build(&command, dom);
    d.dom = dom.str();
    return d;
}

// Where two texts first differ, with the code units around it in hexadecimal.
std::string FirstDifference(const std::wstring& a, const std::wstring& b) {
    size_t at = 0;
    while (at < a.size() && at < b.size() && a[at] == b[at]) ++at;
    auto around = [at](const std::wstring& s) {
        std::string out;
        char unit[8];
        for (size_t i = at > 8 ? at - 8 : 0; i < s.size() && i < at + 16; ++i) {
            snprintf(unit, sizeof unit, i == at ? "[%04X]" : "%04X ", static_cast<unsigned>(s[i]));
            out += unit;
        }
        return out;
    };
    return "first difference at code unit " + std::to_string(at) + " of " + std::to_string(a.size()) + "/" +
           std::to_string(b.size()) + "\n direct: " + around(a) + "\n    dom: " + around(b);
}

void ExpectSameDocument(std::shared_ptr<FakeResult> result) {
    const size_t rows = result->rows.size();
    Documents d = BuildBoth(std::move(result));
    ASSERT_EQ(rows > 0, d.domBuilt);
    ASSERT_EQ(d.domBuilt, d.directBuilt);
    if (rows > 0) {
        ASSERT_FALSE(d.direct.empty());
    }
    EXPECT_TRUE(d.direct == d.dom) << FirstDifference(d.direct, d.dom);
}

struct Shape {
    size_t columns;
    size_t rows;
    int nullPercent;
};

class QueryXmlDifferentialTest : public testing::TestWithParam<Shape> {};

TEST_P(QueryXmlDifferentialTest, DirectWriterGivesTheDomsTextCodeUnitForCodeUnit) {
    const Shape shape = GetParam();
    for (unsigned seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Generator generator(seed * 7919 + static_cast<unsigned>(shape.columns * 31 + shape.rows));
        ExpectSameDocument(generator.Result(shape.columns, shape.rows, shape.nullPercent));
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, QueryXmlDifferentialTest,
                         testing::Values(Shape{1, 1, 0}, Shape{1, 1, 100}, Shape{1, 300, 20}, Shape{6, 1, 0},
                                         Shape{6, 200, 25}, Shape{24, 100, 30}, Shape{255, 1, 10},
                                         Shape{255, 12, 40}),
                         [](const testing::TestParamInfo<Shape>& info) {
                             return std::to_string(info.param.columns) + "Columns" + std::to_string(info.param.rows) +
                                    "Rows" + std::to_string(info.param.nullPercent) + "PercentNull";
                         });

// Each column type alone, with all of its generated values and NULLs.
TEST(QueryXmlDifferential, EveryColumnTypeAlone) {
    Generator generator(17);
    for (const ColumnKind& kind : kKinds) {
        SCOPED_TRACE("type " + std::to_string(kind.type) + " size " + std::to_string(kind.size));
        auto result = std::make_shared<FakeResult>();
        const bool isLong = kind.kind == Kind::LongText || kind.kind == Kind::LongBytes;
        const DBCOLUMNFLAGS flags = DBCOLUMNFLAGS_MAYBENULL | (isLong ? DBCOLUMNFLAGS_ISLONG : 0);
        result->columns.push_back({L"V", kind.type, isLong ? ~DBLENGTH(0) : kind.size, flags, 10, 2});
        for (int r = 0; r < 60; ++r) result->rows.push_back({r % 7 == 3 ? Null() : generator.MakeValue(kind)});
        ExpectSameDocument(result);
    }
}

TEST(QueryXmlDifferential, NoRowsGivesNoDocumentFromEither) {
    Generator generator(3);
    ExpectSameDocument(generator.Result(4, 0, 0));
}

// The direct writer's text for one value of a long-text column given as code units.
std::wstring DirectValue(const std::wstring& units) {
    auto result = std::make_shared<FakeResult>();
    result->columns.push_back({L"M", DBTYPE_WSTR, ~DBLENGTH(0), DBCOLUMNFLAGS_ISLONG});
    result->rows.push_back({Bytes(std::vector<BYTE>(reinterpret_cast<const BYTE*>(units.data()),
                                                    reinterpret_cast<const BYTE*>(units.data() + units.size())))});
    Documents d = BuildBoth(result);
    EXPECT_TRUE(d.directBuilt);
    EXPECT_EQ(d.dom, d.direct);
    const std::wstring start = L"<Rowset C1=\"";
    const size_t from = d.direct.find(start);
    const size_t to = d.direct.find(L"\"/>", from);
    if (from == std::wstring::npos || to == std::wstring::npos) return L"<no value>";
    return d.direct.substr(from + start.size(), to - from - start.size());
}

TEST(QueryXmlValues, MarkupAndLineBreaksAreEscapedApostropheIsNot) {
    EXPECT_EQ(L"&lt;&gt;&amp;&quot;' a&#9;b&#13;c&#10;d", DirectValue(L"<>&\"' a\tb\rc\nd"));
}

// Control characters other than TAB, CR and LF, and U+FFFE/U+FFFF, have no form in XML 1.0;
// they are written as themselves, as MSXML writes them (the document is then not
// well-formed, as it never was for such values).
TEST(QueryXmlValues, OtherControlCharactersAndNonCharactersAreWrittenAsThemselves) {
    const std::wstring units = {0x0001, 0x0008, 0x000B, 0x000C, 0x001F, 0x007F, 0x0085, 0xFFFE, 0xFFFF};
    EXPECT_EQ(units, DirectValue(units));
}

TEST(QueryXmlValues, SurrogatePairsStayUnpairedSurrogatesBecomeReplacementCharacters) {
    EXPECT_EQ(std::wstring(L"x\xD83D\xDE00y"), DirectValue(L"x\xD83D\xDE00y"));
    EXPECT_EQ(std::wstring(L"a\xFFFD" L"b"), DirectValue(std::wstring(L"a\xD800" L"b")));
    EXPECT_EQ(std::wstring(L"a\xFFFD" L"b"), DirectValue(std::wstring(L"a\xDC00" L"b")));
    EXPECT_EQ(std::wstring(L"a\xFFFD"), DirectValue(std::wstring(L"a\xD800")));
    EXPECT_EQ(std::wstring(L"\xFFFD\xFFFDx"), DirectValue(std::wstring(L"\xDC00\xD800x")));
    EXPECT_EQ(std::wstring(L"\xFFFD\xD800\xDC00"), DirectValue(std::wstring(L"\xD800\xD800\xDC00")));
}

// Values long enough to be scanned eight code units at a time: each code unit that is not
// written as itself, at every position of the groups and of the tail, the same as the DOM
// writes it; a surrogate pair across two groups stays whole.
TEST(QueryXmlValues, EveryEscapedUnitIsFoundAtEveryPositionOfALongValue) {
    const std::pair<wchar_t, std::wstring> specials[] = {
        {L'<', L"&lt;"},    {L'>', L"&gt;"},     {L'&', L"&amp;"},    {L'"', L"&quot;"}, {L'\t', L"&#9;"},
        {L'\n', L"&#10;"}, {L'\r', L"&#13;"}, {0xD800, L"\xFFFD"}, {0xDC00, L"\xFFFD"}};
    for (const auto& [special, escaped] : specials) {
        for (size_t at = 0; at < 21; ++at) {
            std::wstring value(21, L'a');
            value[at] = special;
            EXPECT_EQ(std::wstring(at, L'a') + escaped + std::wstring(20 - at, L'a'), DirectValue(value))
                << "code unit " << static_cast<int>(special) << " at " << at;
        }
    }
    std::wstring pair(16, L'b');
    pair[7] = 0xD83D;
    pair[8] = 0xDE00;
    EXPECT_EQ(pair, DirectValue(pair));
    std::wstring cut(20, L'c');
    cut[17] = L'\0';
    EXPECT_EQ(std::wstring(17, L'c'), DirectValue(cut));
}

TEST(QueryXmlValues, ValueEndsAtItsFirstNul) {
    EXPECT_EQ(L"a", DirectValue(std::wstring(L"a\0b", 3)));
    EXPECT_EQ(L"", DirectValue(std::wstring(L"\0b", 2)));
}

TEST(QueryXmlValues, ResultWithoutColumnsGivesEmptyMetadataAndRowsets) {
    auto result = std::make_shared<FakeResult>();
    result->rows.push_back({});
    Documents d = BuildBoth(result);
    ASSERT_TRUE(d.directBuilt);
    EXPECT_EQ(d.dom, d.direct);
}

}  // namespace
