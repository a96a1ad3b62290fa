// The reader side of the table-definition document: LoadTableDef/ReadTableDef and the
// column descriptions they hand out.
#include "xml/TableDefXml.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "tests/xml/TableDefTestColumns.h"

using zel::Bstr;
using zel::TableDefColumns;
using zel::TableDefXml;
using zel::test::TestColumn;

namespace {

constexpr wchar_t kDeclaration[] = L"<?xml version=\"1.0\" encoding=\"utf-16\"?>";

// Loads `text` and reads it; the outcome of each step is asserted by the caller.
struct ReadResult {
    bool loaded = false;
    bool read = false;
    Bstr name;
    TableDefColumns columns;
};

ReadResult LoadAndRead(const std::wstring& text) {
    ReadResult r;
    TableDefXml xml;
    r.loaded = xml.LoadTableDef(text.c_str());
    if (r.loaded) r.read = xml.ReadTableDef(r.name, r.columns);
    return r;
}

const DBPROPSET& ColumnSet(const DBCOLUMNDESC& c) { return c.rgPropertySets[0]; }
const DBPROPSET& JetSet(const DBCOLUMNDESC& c) { return c.rgPropertySets[1]; }

TEST(TableDefXmlReader, TextThatIsNotXmlIsRefused) {
    TableDefXml xml;
    EXPECT_FALSE(xml.LoadTableDef(L"this is not xml"));
    EXPECT_FALSE(xml.LoadTableDef(L"<TableDef Name=\"T\"><ColumnDef Name=\"A\"></TableDef>"));
    EXPECT_FALSE(xml.LoadTableDef(L""));
    Bstr name;
    TableDefColumns columns;
    EXPECT_FALSE(xml.ReadTableDef(name, columns));
    EXPECT_FALSE(name);
    EXPECT_EQ(nullptr, columns.get());
}

TEST(TableDefXmlReader, RootOtherThanTableDefIsRefused) {
    TableDefXml xml;
    EXPECT_FALSE(xml.LoadTableDef(L"<QueryData Name=\"T\"><ColumnDef Name=\"A\"/></QueryData>"));
    EXPECT_FALSE(xml.LoadTableDef(L"<TableDefs Name=\"T\"/>"));
}

TEST(TableDefXmlReader, RootNameIsCaseSensitive) {
    TableDefXml xml;
    EXPECT_FALSE(xml.LoadTableDef(L"<tabledef Name=\"T\"><ColumnDef Name=\"A\"/></tabledef>"));
    EXPECT_FALSE(xml.LoadTableDef(L"<TABLEDEF Name=\"T\"/>"));
    EXPECT_TRUE(xml.LoadTableDef(L"<TableDef Name=\"T\"/>"));
}

TEST(TableDefXmlReader, ReadWithoutLoadedDocumentIsFalse) {
    TableDefXml xml;
    Bstr name;
    TableDefColumns columns;
    EXPECT_FALSE(xml.ReadTableDef(name, columns));
}

TEST(TableDefXmlReader, MissingRootNameIsRefusedAndNothingIsHandedOut) {
    ReadResult r = LoadAndRead(L"<TableDef><ColumnDef Name=\"A\" Type=\"3\"/></TableDef>");
    EXPECT_TRUE(r.loaded);
    EXPECT_FALSE(r.read);
    EXPECT_FALSE(r.name);
    EXPECT_EQ(nullptr, r.columns.get());
}

TEST(TableDefXmlReader, RootNameInAnotherCaseCountsAsMissing) {
    ReadResult r = LoadAndRead(L"<TableDef name=\"T\"/>");
    EXPECT_TRUE(r.loaded);
    EXPECT_FALSE(r.read);
}

TEST(TableDefXmlReader, MissingColumnNameIsRefusedAndNothingIsHandedOut) {
    TableDefXml xml;
    ASSERT_TRUE(xml.LoadTableDef(L"<TableDef Name=\"T\">"
                                 L"<ColumnDef Name=\"A\" TypeName=\"Long\" Type=\"3\" DBPROP_COL_NULLABLE=\"-1\"/>"
                                 L"<ColumnDef Name=\"B\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"0\"/>"
                                 L"<ColumnDef Type=\"130\"/>"
                                 L"<ColumnDef Name=\"D\"/>"
                                 L"</TableDef>"));
    Bstr name(L"previous");
    TableDefColumns columns;
    EXPECT_FALSE(xml.ReadTableDef(name, columns));
    EXPECT_EQ(L"previous", name.str());
    EXPECT_EQ(nullptr, columns.get());
    EXPECT_EQ(0u, columns.count());
}

TEST(TableDefXmlReader, TableDefWithoutColumnDefsReadsAsZeroColumns) {
    ReadResult r = LoadAndRead(std::wstring(kDeclaration) + L"<TableDef Name=\"Empty\"/>");
    ASSERT_TRUE(r.loaded);
    ASSERT_TRUE(r.read);
    EXPECT_EQ(L"Empty", r.name.str());
    EXPECT_EQ(0u, r.columns.count());
    EXPECT_NE(nullptr, r.columns.get()) << "an (empty) array still comes back";
}

TEST(TableDefXmlReader, EmptyNamesArePresentNames) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"\"><ColumnDef Name=\"\"/></TableDef>");
    ASSERT_TRUE(r.read);
    EXPECT_TRUE(r.name);
    EXPECT_EQ(L"", r.name.str());
    ASSERT_EQ(1u, r.columns.count());
    ASSERT_NE(nullptr, r.columns[0].dbcid.uName.pwszName);
    EXPECT_STREQ(L"", r.columns[0].dbcid.uName.pwszName);
}

TEST(TableDefXmlReader, ReadsEveryAttributeIntoTheColumnDescription) {
    ReadResult r = LoadAndRead(
        L"<TableDef Name=\"Parts\">"
        L"<ColumnDef Name=\"Price\" TypeName=\"Decimal\" Type=\"131\" Precision=\"19\" Scale=\"4\" "
        L"DBPROP_COL_AUTOINCREMENT=\"0\" DBPROP_COL_NULLABLE=\"-1\" DBPROP_COL_FIXEDLENGTH=\"-1\" "
        L"DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"0\"/>"
        L"</TableDef>");
    ASSERT_TRUE(r.read);
    EXPECT_EQ(L"Parts", r.name.str());
    ASSERT_EQ(1u, r.columns.count());
    const DBCOLUMNDESC& c = r.columns[0];
    EXPECT_EQ(static_cast<DBKIND>(DBKIND_NAME), c.dbcid.eKind);
    EXPECT_STREQ(L"Price", c.dbcid.uName.pwszName);
    EXPECT_STREQ(L"Decimal", c.pwszTypeName);
    EXPECT_EQ(DBTYPE_NUMERIC, c.wType);
    EXPECT_EQ(19, c.bPrecision);
    EXPECT_EQ(4, c.bScale);
    EXPECT_EQ(0u, c.ulColumnSize);
    EXPECT_EQ(nullptr, c.pTypeInfo);
    EXPECT_EQ(nullptr, c.pclsid);

    ASSERT_EQ(2u, c.cPropertySets);
    EXPECT_TRUE(IsEqualGUID(DBPROPSET_COLUMN, ColumnSet(c).guidPropertySet));
    EXPECT_TRUE(IsEqualGUID(zel::DBPROPSET_JETOLEDB_COLUMN, JetSet(c).guidPropertySet));
    // Column properties in the order NULLABLE, AUTOINCREMENT, FIXEDLENGTH.
    ASSERT_EQ(3u, ColumnSet(c).cProperties);
    const DBPROP* p = ColumnSet(c).rgProperties;
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_NULLABLE), p[0].dwPropertyID);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_AUTOINCREMENT), p[1].dwPropertyID);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_FIXEDLENGTH), p[2].dwPropertyID);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&p[0].vValue));
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(&p[1].vValue));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&p[2].vValue));
    ASSERT_EQ(1u, JetSet(c).cProperties);
    const DBPROP& jet = JetSet(c).rgProperties[0];
    EXPECT_EQ(zel::DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, jet.dwPropertyID);
    EXPECT_EQ(VT_BOOL, V_VT(&jet.vValue));
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(&jet.vValue));

    // Every slot of both sets, read or not, is a required VT_BOOL on no particular column.
    for (ULONG s = 0; s < 2; ++s) {
        for (ULONG i = 0; i < zel::kTableDefPropertyRoom; ++i) {
            const DBPROP& slot = c.rgPropertySets[s].rgProperties[i];
            EXPECT_EQ(static_cast<DBPROPOPTIONS>(DBPROPOPTIONS_REQUIRED), slot.dwOptions) << s << "/" << i;
            EXPECT_EQ(VT_BOOL, V_VT(&slot.vValue)) << s << "/" << i;
            EXPECT_EQ(DB_NULLID.eKind, slot.colid.eKind) << s << "/" << i;
            EXPECT_TRUE(IsEqualGUID(DB_NULLID.uGuid.guid, slot.colid.uGuid.guid)) << s << "/" << i;
            EXPECT_EQ(DB_NULLID.uName.ulPropid, slot.colid.uName.ulPropid) << s << "/" << i;
        }
    }
}

TEST(TableDefXmlReader, PropertiesArePackedWithoutGaps) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"T\"><ColumnDef Name=\"A\" DBPROP_COL_FIXEDLENGTH=\"-1\"/>"
                               L"<ColumnDef Name=\"B\"/></TableDef>");
    ASSERT_TRUE(r.read);
    ASSERT_EQ(2u, r.columns.count());
    ASSERT_EQ(1u, ColumnSet(r.columns[0]).cProperties);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_FIXEDLENGTH), ColumnSet(r.columns[0]).rgProperties[0].dwPropertyID);
    EXPECT_EQ(0u, JetSet(r.columns[0]).cProperties);
    EXPECT_EQ(2u, r.columns[1].cPropertySets);
    EXPECT_EQ(0u, ColumnSet(r.columns[1]).cProperties);
    EXPECT_EQ(0u, JetSet(r.columns[1]).cProperties);
}

TEST(TableDefXmlReader, MissingOptionalAttributesReadAsZeroAndAbsent) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"T\"><ColumnDef Name=\"Only\"/></TableDef>");
    ASSERT_TRUE(r.read);
    ASSERT_EQ(1u, r.columns.count());
    const DBCOLUMNDESC& c = r.columns[0];
    EXPECT_EQ(nullptr, c.pwszTypeName);
    EXPECT_EQ(0, c.wType);
    EXPECT_EQ(0, c.bPrecision);
    EXPECT_EQ(0, c.bScale);
    EXPECT_EQ(0u, c.ulColumnSize);
}

TEST(TableDefXmlReader, AllowZeroLengthMinusOneIsVariantTrueAndOneStaysOne) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"T\">"
                               L"<ColumnDef Name=\"A\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"-1\"/>"
                               L"<ColumnDef Name=\"B\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"1\"/>"
                               L"</TableDef>");
    ASSERT_TRUE(r.read);
    ASSERT_EQ(2u, r.columns.count());
    const DBPROP& a = JetSet(r.columns[0]).rgProperties[0];
    const DBPROP& b = JetSet(r.columns[1]).rgProperties[0];
    EXPECT_EQ(VT_BOOL, V_VT(&a.vValue));
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&a.vValue));
    EXPECT_EQ(VT_BOOL, V_VT(&b.vValue));
    EXPECT_EQ(1, V_BOOL(&b.vValue));
    EXPECT_NE(VARIANT_TRUE, V_BOOL(&b.vValue));
}

TEST(TableDefXmlReader, AttributeOrderDoesNotMatter) {
    ReadResult r = LoadAndRead(
        L"<TableDef Name=\"T\"><ColumnDef DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"-1\" Scale=\"2\" "
        L"DBPROP_COL_FIXEDLENGTH=\"0\" Type=\"131\" DBPROP_COL_NULLABLE=\"-1\" Precision=\"9\" "
        L"TypeName=\"Decimal\" Name=\"Amount\" DBPROP_COL_AUTOINCREMENT=\"0\"/></TableDef>");
    ASSERT_TRUE(r.read);
    const DBCOLUMNDESC& c = r.columns[0];
    EXPECT_STREQ(L"Amount", c.dbcid.uName.pwszName);
    EXPECT_STREQ(L"Decimal", c.pwszTypeName);
    EXPECT_EQ(131, c.wType);
    EXPECT_EQ(9, c.bPrecision);
    EXPECT_EQ(2, c.bScale);
    ASSERT_EQ(3u, ColumnSet(c).cProperties);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_NULLABLE), ColumnSet(c).rgProperties[0].dwPropertyID);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&ColumnSet(c).rgProperties[0].vValue));
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_AUTOINCREMENT), ColumnSet(c).rgProperties[1].dwPropertyID);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_FIXEDLENGTH), ColumnSet(c).rgProperties[2].dwPropertyID);
    ASSERT_EQ(1u, JetSet(c).cProperties);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&JetSet(c).rgProperties[0].vValue));
}

TEST(TableDefXmlReader, UnknownAttributesAndElementsAreIgnored) {
    ReadResult r = LoadAndRead(
        L"<TableDef Name=\"T\" Version=\"2\" Owner=\"x\">"
        L"<Comment>about the table</Comment>"
        L"<ColumnDef Name=\"A\" Type=\"3\" Size=\"50\" DBPROP_COL_DEFAULT=\"7\" DBPROP_COL_DESCRIPTION=\"d\" "
        L"DBPROP_COL_UNIQUE=\"-1\"><Index Name=\"i\"/>text</ColumnDef>"
        L"<!-- a comment --><?pi data?>"
        L"<columndef Name=\"lower case, not a ColumnDef\"/>"
        L"<ColumnDef Name=\"B\"/>"
        L"</TableDef>");
    ASSERT_TRUE(r.read);
    ASSERT_EQ(2u, r.columns.count());
    EXPECT_STREQ(L"A", r.columns[0].dbcid.uName.pwszName);
    EXPECT_EQ(3, r.columns[0].wType);
    EXPECT_EQ(0u, r.columns[0].ulColumnSize);
    EXPECT_EQ(0u, ColumnSet(r.columns[0]).cProperties);
    EXPECT_EQ(0u, JetSet(r.columns[0]).cProperties);
    EXPECT_STREQ(L"B", r.columns[1].dbcid.uName.pwszName);
}

TEST(TableDefXmlReader, NestedColumnDefsAreIgnored) {
    ReadResult r = LoadAndRead(
        L"<TableDef Name=\"T\">"
        L"<ColumnDef Name=\"A\"><ColumnDef Name=\"InsideColumn\"/></ColumnDef>"
        L"<Group><ColumnDef Name=\"InsideGroup\"/><ColumnDef/></Group>"
        L"<ColumnDef Name=\"B\"/>"
        L"</TableDef>");
    ASSERT_TRUE(r.read) << "a nested ColumnDef without Name must not count either";
    ASSERT_EQ(2u, r.columns.count());
    EXPECT_STREQ(L"A", r.columns[0].dbcid.uName.pwszName);
    EXPECT_STREQ(L"B", r.columns[1].dbcid.uName.pwszName);
}

TEST(TableDefXmlReader, OutOfRangeNumbersKeepTheirLowBits) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"T\">"
                               L"<ColumnDef Name=\"A\" Type=\"70000\" Precision=\"300\" Scale=\"261\"/>"
                               L"<ColumnDef Name=\"B\" Type=\"-1\" Precision=\"-1\" Scale=\"256\" "
                               L"DBPROP_COL_NULLABLE=\"65537\" DBPROP_COL_AUTOINCREMENT=\"65535\"/>"
                               L"</TableDef>");
    ASSERT_TRUE(r.read);
    ASSERT_EQ(2u, r.columns.count());
    EXPECT_EQ(70000 & 0xFFFF, r.columns[0].wType);
    EXPECT_EQ(4464, r.columns[0].wType);
    EXPECT_EQ(300 & 0xFF, r.columns[0].bPrecision);
    EXPECT_EQ(44, r.columns[0].bPrecision);
    EXPECT_EQ(5, r.columns[0].bScale);
    EXPECT_EQ(0xFFFF, r.columns[1].wType);
    EXPECT_EQ(0xFF, r.columns[1].bPrecision);
    EXPECT_EQ(0, r.columns[1].bScale);
    const DBPROPSET& set = ColumnSet(r.columns[1]);
    ASSERT_EQ(2u, set.cProperties);
    EXPECT_EQ(1, V_BOOL(&set.rgProperties[0].vValue));   // 65537 cut to 16 bits
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&set.rgProperties[1].vValue));  // 65535 is the pattern of -1
}

TEST(TableDefXmlReader, NumbersAreReadAsLeadingDecimalIntegers) {
    ReadResult r = LoadAndRead(
        L"<TableDef Name=\"T\">"
        L"<ColumnDef Name=\"A\" Type=\"abc\" Precision=\"  12abc\" Scale=\"+7\" DBPROP_COL_NULLABLE=\"true\" "
        L"DBPROP_COL_AUTOINCREMENT=\"\" DBPROP_COL_FIXEDLENGTH=\"0x10\"/>"
        L"<ColumnDef Name=\"B\" Type=\"1e3\" Precision=\"3.9\" Scale=\"- 4\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"True\"/>"
        L"</TableDef>");
    ASSERT_TRUE(r.read);
    const DBCOLUMNDESC& a = r.columns[0];
    EXPECT_EQ(0, a.wType);
    EXPECT_EQ(12, a.bPrecision);
    EXPECT_EQ(7, a.bScale);
    ASSERT_EQ(3u, ColumnSet(a).cProperties) << "present attributes count even when their text is no number";
    EXPECT_EQ(0, V_BOOL(&ColumnSet(a).rgProperties[0].vValue));
    EXPECT_EQ(0, V_BOOL(&ColumnSet(a).rgProperties[1].vValue));
    EXPECT_EQ(0, V_BOOL(&ColumnSet(a).rgProperties[2].vValue));
    const DBCOLUMNDESC& b = r.columns[1];
    EXPECT_EQ(1, b.wType);
    EXPECT_EQ(3, b.bPrecision);
    EXPECT_EQ(0, b.bScale);
    ASSERT_EQ(1u, JetSet(b).cProperties);
    EXPECT_EQ(0, V_BOOL(&JetSet(b).rgProperties[0].vValue));
}

TEST(TableDefXmlReader, LoadingAgainReplacesThePreviousDocument) {
    TableDefXml xml;
    ASSERT_TRUE(xml.LoadTableDef(L"<TableDef Name=\"One\"><ColumnDef Name=\"A\"/></TableDef>"));
    ASSERT_TRUE(xml.LoadTableDef(L"<TableDef Name=\"Two\"><ColumnDef Name=\"B\"/><ColumnDef Name=\"C\"/></TableDef>"));
    Bstr name;
    TableDefColumns columns;
    ASSERT_TRUE(xml.ReadTableDef(name, columns));
    EXPECT_EQ(L"Two", name.str());
    ASSERT_EQ(2u, columns.count());
    EXPECT_STREQ(L"C", columns[1].dbcid.uName.pwszName);

    // A failed load leaves nothing to read.
    EXPECT_FALSE(xml.LoadTableDef(L"<broken"));
    EXPECT_FALSE(xml.ReadTableDef(name, columns));
    EXPECT_EQ(L"Two", name.str());
    EXPECT_EQ(2u, columns.count());
}

TEST(TableDefXmlReader, ReleasedColumnsCanBeTakenOverByTheCaller) {
    ReadResult r = LoadAndRead(L"<TableDef Name=\"T\"><ColumnDef Name=\"A\" TypeName=\"Long\" "
                               L"DBPROP_COL_NULLABLE=\"-1\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"0\"/></TableDef>");
    ASSERT_TRUE(r.read);
    DBORDINAL count = r.columns.count();
    DBCOLUMNDESC* raw = r.columns.release();
    EXPECT_EQ(nullptr, r.columns.get());
    EXPECT_EQ(0u, r.columns.count());
    ASSERT_NE(nullptr, raw);
    EXPECT_STREQ(L"A", raw[0].dbcid.uName.pwszName);
    zel::FreeTableDefColumns(raw, count);  // the release rule, as a caller applies it
    zel::FreeTableDefColumns(nullptr, 0);
}

TEST(TableDefXmlRoundTrip, EveryAttributeAndPropertySurvivesWriteThenRead) {
    TestColumn id, price, note;
    id.Named(L"ID").TypeName(L"Long").Type(DBTYPE_I4).Precision(10)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_AUTOINCREMENT, true).Bool(DBPROP_COL_NULLABLE, false)
        .Bool(DBPROP_COL_FIXEDLENGTH, true);
    price.Named(L"Price").TypeName(L"Decimal").Type(DBTYPE_NUMERIC).Precision(28).Scale(6)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_NULLABLE, true);
    note.Named(L"Note").TypeName(L"VarChar").Type(DBTYPE_WSTR).Size(50)
        .Set(zel::DBPROPSET_JETOLEDB_COLUMN).Bool(zel::DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, true)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_FIXEDLENGTH, false).Bool(DBPROP_COL_NULLABLE, true);

    TableDefXml writer;
    ASSERT_TRUE(writer.BeginTableDef(L"Orders"));
    ASSERT_TRUE(writer.AddColumnDef(id.Desc()));
    ASSERT_TRUE(writer.AddColumnDef(price.Desc()));
    ASSERT_TRUE(writer.AddColumnDef(note.Desc()));

    ReadResult r = LoadAndRead(writer.Xml().str());
    ASSERT_TRUE(r.loaded);
    ASSERT_TRUE(r.read);
    EXPECT_EQ(L"Orders", r.name.str());
    ASSERT_EQ(3u, r.columns.count());

    const DBCOLUMNDESC& c0 = r.columns[0];
    EXPECT_STREQ(L"ID", c0.dbcid.uName.pwszName);
    EXPECT_STREQ(L"Long", c0.pwszTypeName);
    EXPECT_EQ(DBTYPE_I4, c0.wType);
    EXPECT_EQ(10, c0.bPrecision);
    EXPECT_EQ(0, c0.bScale);
    ASSERT_EQ(3u, ColumnSet(c0).cProperties);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_NULLABLE), ColumnSet(c0).rgProperties[0].dwPropertyID);
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(&ColumnSet(c0).rgProperties[0].vValue));
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_AUTOINCREMENT), ColumnSet(c0).rgProperties[1].dwPropertyID);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&ColumnSet(c0).rgProperties[1].vValue));
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_FIXEDLENGTH), ColumnSet(c0).rgProperties[2].dwPropertyID);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&ColumnSet(c0).rgProperties[2].vValue));
    EXPECT_EQ(0u, JetSet(c0).cProperties);

    const DBCOLUMNDESC& c1 = r.columns[1];
    EXPECT_STREQ(L"Price", c1.dbcid.uName.pwszName);
    EXPECT_STREQ(L"Decimal", c1.pwszTypeName);
    EXPECT_EQ(DBTYPE_NUMERIC, c1.wType);
    EXPECT_EQ(28, c1.bPrecision);
    EXPECT_EQ(6, c1.bScale);
    ASSERT_EQ(1u, ColumnSet(c1).cProperties);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&ColumnSet(c1).rgProperties[0].vValue));

    const DBCOLUMNDESC& c2 = r.columns[2];
    EXPECT_STREQ(L"Note", c2.dbcid.uName.pwszName);
    EXPECT_STREQ(L"VarChar", c2.pwszTypeName);
    EXPECT_EQ(DBTYPE_WSTR, c2.wType);
    EXPECT_EQ(0, c2.bPrecision);
    EXPECT_EQ(0, c2.bScale);
    EXPECT_EQ(0u, c2.ulColumnSize) << "the column size is not carried by the document";
    ASSERT_EQ(2u, ColumnSet(c2).cProperties);
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_NULLABLE), ColumnSet(c2).rgProperties[0].dwPropertyID);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&ColumnSet(c2).rgProperties[0].vValue));
    EXPECT_EQ(static_cast<DBPROPID>(DBPROP_COL_FIXEDLENGTH), ColumnSet(c2).rgProperties[1].dwPropertyID);
    EXPECT_EQ(VARIANT_FALSE, V_BOOL(&ColumnSet(c2).rgProperties[1].vValue));
    ASSERT_EQ(1u, JetSet(c2).cProperties);
    EXPECT_EQ(VARIANT_TRUE, V_BOOL(&JetSet(c2).rgProperties[0].vValue));
}

TEST(TableDefXmlRoundTrip, PrecisionAndScaleZeroAreAbsentAndReadBackAsZero) {
    TestColumn column;
    column.Named(L"Text").Type(DBTYPE_WSTR).Size(255);
    TableDefXml writer;
    ASSERT_TRUE(writer.BeginTableDef(L"T"));
    ASSERT_TRUE(writer.AddColumnDef(column.Desc()));
    const std::wstring text = writer.Xml().str();
    EXPECT_EQ(std::wstring::npos, text.find(L"Precision"));
    EXPECT_EQ(std::wstring::npos, text.find(L"Scale"));
    ReadResult r = LoadAndRead(text);
    ASSERT_TRUE(r.read);
    EXPECT_EQ(0, r.columns[0].bPrecision);
    EXPECT_EQ(0, r.columns[0].bScale);
    EXPECT_EQ(0u, r.columns[0].ulColumnSize);
}

TEST(TableDefXmlRoundTrip, LoadAfterBeginReusesTheHeldDocument) {
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"Written"));
    IXMLDOMDocument2* document = xml.Document();
    ASSERT_TRUE(xml.LoadTableDef(L"<TableDef Name=\"Loaded\"/>"));
    EXPECT_EQ(document, xml.Document());
    Bstr name;
    TableDefColumns columns;
    ASSERT_TRUE(xml.ReadTableDef(name, columns));
    EXPECT_EQ(L"Loaded", name.str());
}

TEST(TableDefXmlLimits, TenThousandColumnDefsAreRead) {
    constexpr int kColumns = 10000;
    std::wstring text = L"<TableDef Name=\"Wide\">";
    for (int i = 0; i < kColumns; ++i)
        text += L"<ColumnDef Name=\"C" + std::to_wstring(i) + L"\" Type=\"" + std::to_wstring(i % 200) +
                L"\" DBPROP_COL_NULLABLE=\"-1\"/>";
    text += L"</TableDef>";

    const auto start = std::chrono::steady_clock::now();
    ReadResult r = LoadAndRead(text);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(r.read);
    ASSERT_EQ(static_cast<DBORDINAL>(kColumns), r.columns.count());
    for (int i : {0, 1, 4999, 9998, 9999}) {
        EXPECT_EQ(L"C" + std::to_wstring(i), std::wstring(r.columns[i].dbcid.uName.pwszName));
        EXPECT_EQ(i % 200, r.columns[i].wType);
        EXPECT_EQ(1u, ColumnSet(r.columns[i]).cProperties);
    }
    EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count(), 30);
    std::printf("10,000 ColumnDefs loaded and read in %lld ms\n",
                static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()));
}

TEST(TableDefXmlLimits, TenThousandColumnDefsAreWritten) {
    TableDefXml writer;
    ASSERT_TRUE(writer.BeginTableDef(L"Wide"));
    TestColumn column;
    column.Named(L"Same").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_NULLABLE, true);
    for (int i = 0; i < 10000; ++i) ASSERT_TRUE(writer.AddColumnDef(column.Desc()));
    EXPECT_EQ(10000u, writer.ColumnDefCount());
    ReadResult r = LoadAndRead(writer.Xml().str());
    ASSERT_TRUE(r.read);
    EXPECT_EQ(10000u, r.columns.count());
}

TEST(TableDefXmlLimits, OneMegabyteTableNameSurvivesWriteThenRead) {
    std::wstring name(1 << 20, L'x');  // 1,048,576 characters
    for (size_t i = 0; i < name.size(); i += 1000) name[i] = static_cast<wchar_t>(L'a' + (i / 1000) % 26);
    TableDefXml writer;
    ASSERT_TRUE(writer.BeginTableDef(name.c_str()));
    const std::wstring text = writer.Xml().str();
    EXPECT_GT(text.size(), name.size());
    ReadResult r = LoadAndRead(text);
    ASSERT_TRUE(r.loaded);
    ASSERT_TRUE(r.read);
    EXPECT_EQ(name.size(), r.name.length());
    EXPECT_TRUE(r.name.str() == name);
    EXPECT_EQ(0u, r.columns.count());
}

}  // namespace
