// The writer side of the table-definition document: what BeginTableDef/AddColumnDef put
// into the document for given OLE DB column descriptions.
#include "xml/TableDefXml.h"

#include <gtest/gtest.h>

#include <string>

#include "common/ComError.h"
#include "tests/xml/TableDefTestColumns.h"

using zel::Bstr;
using zel::ComPtr;
using zel::TableDefColumns;
using zel::TableDefXml;
using zel::test::TestColumn;

namespace {

// The ColumnDef element's attributes as name="value" pairs, in document order.
std::wstring AttributesOf(TableDefXml& xml, long columnIndex) {
    ComPtr<IXMLDOMElement> root;
    EXPECT_EQ(S_OK, xml.Document()->get_documentElement(root.put()));
    ComPtr<IXMLDOMNodeList> children;
    EXPECT_EQ(S_OK, root->get_childNodes(children.put()));
    ComPtr<IXMLDOMNode> column;
    EXPECT_EQ(S_OK, children->get_item(columnIndex, column.put()));
    if (!column) return L"<no such column>";
    ComPtr<IXMLDOMNamedNodeMap> attributes;
    EXPECT_EQ(S_OK, column->get_attributes(attributes.put()));
    long count = 0;
    EXPECT_EQ(S_OK, attributes->get_length(&count));
    std::wstring text;
    for (long i = 0; i < count; ++i) {
        ComPtr<IXMLDOMNode> attribute;
        EXPECT_EQ(S_OK, attributes->get_item(i, attribute.put()));
        Bstr name, value;
        EXPECT_EQ(S_OK, attribute->get_nodeName(name.put()));
        EXPECT_EQ(S_OK, attribute->get_text(value.put()));
        if (!text.empty()) text += L' ';
        text += name.str() + L"=\"" + value.str() + L"\"";
    }
    return text;
}

VARIANT I4Variant(LONG value) {
    VARIANT v;
    V_VT(&v) = VT_I4;
    V_I4(&v) = value;
    return v;
}

TEST(TableDefXmlWriter, WritesExactDocumentForTwoColumnTable) {
    TestColumn id, title;
    id.Named(L"ID").TypeName(L"Long").Type(DBTYPE_I4).Precision(10)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_AUTOINCREMENT, true).Bool(DBPROP_COL_NULLABLE, false);
    title.Named(L"Title").TypeName(L"VarChar").Type(DBTYPE_WSTR).Size(50)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_NULLABLE, true).Bool(DBPROP_COL_FIXEDLENGTH, false)
        .Set(zel::DBPROPSET_JETOLEDB_COLUMN).Bool(zel::DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, true);

    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"Parts"));
    ASSERT_TRUE(xml.AddColumnDef(id.Desc()));
    ASSERT_TRUE(xml.AddColumnDef(title.Desc()));
    EXPECT_EQ(2u, xml.ColumnDefCount());

    // Layout (line breaks, tab indentation, empty-element form) as Wine's MSXML 6.0 writes it.
    const std::wstring expected =
        L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n"
        L"<TableDef Name=\"Parts\">\r\n"
        L"\t<ColumnDef Name=\"ID\" TypeName=\"Long\" Type=\"3\" Precision=\"10\" "
        L"DBPROP_COL_AUTOINCREMENT=\"-1\" DBPROP_COL_NULLABLE=\"0\"/>\r\n"
        L"\t<ColumnDef Name=\"Title\" TypeName=\"VarChar\" Type=\"130\" DBPROP_COL_NULLABLE=\"-1\" "
        L"DBPROP_COL_FIXEDLENGTH=\"0\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"-1\"/>\r\n"
        L"</TableDef>\r\n";
    EXPECT_EQ(expected, xml.Xml().str());

    // The same text through the document's own IXMLDOMNode, as TblGetDef takes it.
    ComPtr<IXMLDOMNode> node = ComPtr<IXMLDOMDocument2>(xml.Document()).as<IXMLDOMNode>();
    Bstr text;
    ASSERT_EQ(S_OK, node->get_xml(text.put()));
    EXPECT_EQ(expected, text.str());
}

TEST(TableDefXmlWriter, ProcessingInstructionIsXmlWithLowerCaseUtf16) {
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ComPtr<IXMLDOMNode> first;
    ASSERT_EQ(S_OK, xml.Document()->get_firstChild(first.put()));
    DOMNodeType type = NODE_INVALID;
    ASSERT_EQ(S_OK, first->get_nodeType(&type));
    EXPECT_EQ(NODE_PROCESSING_INSTRUCTION, type);
    Bstr target, data;
    ASSERT_EQ(S_OK, first->get_nodeName(target.put()));
    ASSERT_EQ(S_OK, first->get_text(data.put()));
    EXPECT_EQ(L"xml", target.str());
    EXPECT_EQ(L"version=\"1.0\" encoding=\"utf-16\"", data.str());

    ComPtr<IXMLDOMElement> root;
    ASSERT_EQ(S_OK, xml.Document()->get_documentElement(root.put()));
    Bstr rootName;
    ASSERT_EQ(S_OK, root->get_nodeName(rootName.put()));
    EXPECT_EQ(L"TableDef", rootName.str());
}

TEST(TableDefXmlWriter, AddColumnDefBeforeBeginReturnsFalse) {
    TestColumn column;
    column.Named(L"A").Type(DBTYPE_I4);
    TableDefXml xml;
    EXPECT_FALSE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(0u, xml.ColumnDefCount());
    EXPECT_EQ(nullptr, xml.Document());
}

TEST(TableDefXmlWriter, TypeIsAlwaysWrittenAndZeroPrecisionAndScaleAreLeftOut) {
    TestColumn column;
    column.Named(L"Flag").Type(DBTYPE_EMPTY);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"Flag\" Type=\"0\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, PrecisionAndScaleAreWrittenAsDecimalWhenNotZero) {
    TestColumn column;
    column.Named(L"Price").Type(DBTYPE_NUMERIC).Precision(255).Scale(4);
    TestColumn wide;
    wide.Named(L"W").Type(65535);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    ASSERT_TRUE(xml.AddColumnDef(wide.Desc()));
    EXPECT_EQ(L"Name=\"Price\" Type=\"131\" Precision=\"255\" Scale=\"4\"", AttributesOf(xml, 0));
    EXPECT_EQ(L"Name=\"W\" Type=\"65535\"", AttributesOf(xml, 1));
}

TEST(TableDefXmlWriter, ColumnIdThatIsNotANameIsWrittenWithoutName) {
    TestColumn byPropid;
    byPropid.Type(DBTYPE_I4);
    byPropid.Raw().dbcid.eKind = DBKIND_PROPID;
    byPropid.Raw().dbcid.uName.ulPropid = 7;
    TestColumn byGuid;
    byGuid.Type(DBTYPE_I2);
    byGuid.Raw().dbcid.eKind = DBKIND_GUID;
    byGuid.Raw().dbcid.uGuid.guid = DBPROPSET_COLUMN;

    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(byPropid.Desc()));
    ASSERT_TRUE(xml.AddColumnDef(byGuid.Desc()));
    EXPECT_EQ(L"Type=\"3\"", AttributesOf(xml, 0));
    EXPECT_EQ(L"Type=\"2\"", AttributesOf(xml, 1));

    // The reader refuses such a document: every ColumnDef needs a Name.
    TableDefXml reader;
    ASSERT_TRUE(reader.LoadTableDef(xml.Xml().c_str()));
    Bstr name;
    TableDefColumns columns;
    EXPECT_FALSE(reader.ReadTableDef(name, columns));
    EXPECT_FALSE(name);
    EXPECT_EQ(nullptr, columns.get());
}

TEST(TableDefXmlWriter, NullNameAndNullTypeNameAreLeftOut) {
    TestColumn column;
    column.Type(DBTYPE_BOOL);
    column.Raw().dbcid.eKind = DBKIND_NAME;  // a name id whose name is null
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Type=\"11\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, PropertyAttributesFollowTheOrderOfTheProperties) {
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_WSTR)
        .Set(zel::DBPROPSET_JETOLEDB_COLUMN).Bool(zel::DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, false)
        .Set(DBPROPSET_COLUMN).Bool(DBPROP_COL_FIXEDLENGTH, true).Bool(DBPROP_COL_NULLABLE, false)
        .Bool(DBPROP_COL_AUTOINCREMENT, false);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"130\" DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH=\"0\" DBPROP_COL_FIXEDLENGTH=\"-1\" "
              L"DBPROP_COL_NULLABLE=\"0\" DBPROP_COL_AUTOINCREMENT=\"0\"",
              AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, OtherPropertiesAndOtherPropertySetsAreLeftOut) {
    VARIANT text;
    V_VT(&text) = VT_BSTR;
    V_BSTR(&text) = SysAllocString(L"a description");
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4)
        .Set(DBPROPSET_COLUMN).Property(DBPROP_COL_DEFAULT, I4Variant(5)).Property(DBPROP_COL_DESCRIPTION, text)
        .Bool(DBPROP_COL_UNIQUE, true)
        .Set(DBPROPSET_DBINIT).Bool(DBPROP_COL_AUTOINCREMENT, true).Bool(zel::DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, true)
        .Set(zel::DBPROPSET_JETOLEDB_COLUMN).Bool(DBPROP_COL_NULLABLE, true).Bool(0xE1, true);
    VariantClear(&text);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"3\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, PropertyStatusIsNotLookedAt) {
    VARIANT on;
    V_VT(&on) = VT_BOOL;
    V_BOOL(&on) = VARIANT_TRUE;
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN).Property(DBPROP_COL_NULLABLE, on, DBPROPSTATUS_NOTSUPPORTED);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"3\" DBPROP_COL_NULLABLE=\"-1\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, BooleanValuesAreWrittenAsMinusOneAndZeroAndOtherBoolBitsAsTrue) {
    VARIANT one;
    V_VT(&one) = VT_BOOL;
    V_BOOL(&one) = 1;  // not VARIANT_TRUE, but not false either
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN)
        .Bool(DBPROP_COL_AUTOINCREMENT, true).Bool(DBPROP_COL_NULLABLE, false).Property(DBPROP_COL_FIXEDLENGTH, one);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"3\" DBPROP_COL_AUTOINCREMENT=\"-1\" DBPROP_COL_NULLABLE=\"0\" "
              L"DBPROP_COL_FIXEDLENGTH=\"-1\"",
              AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, ByReferenceValueIsDereferenced) {
    VARIANT_BOOL target = VARIANT_TRUE;
    VARIANT byRef;
    V_VT(&byRef) = VT_BYREF | VT_BOOL;
    V_BOOLREF(&byRef) = &target;
    LONG number = 42;
    VARIANT numberRef;
    V_VT(&numberRef) = VT_BYREF | VT_I4;
    V_I4REF(&numberRef) = &number;
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN)
        .Property(DBPROP_COL_NULLABLE, byRef).Property(DBPROP_COL_AUTOINCREMENT, numberRef);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"3\" DBPROP_COL_NULLABLE=\"-1\" DBPROP_COL_AUTOINCREMENT=\"42\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, NonBooleanValueIsWrittenAsTheDomConvertsIt) {
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN).Property(DBPROP_COL_NULLABLE, I4Variant(-7));
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(L"Name=\"C\" Type=\"3\" DBPROP_COL_NULLABLE=\"-7\"", AttributesOf(xml, 0));
}

TEST(TableDefXmlWriter, ValueTheDomCannotConvertRaisesComError) {
    VARIANT null;
    V_VT(&null) = VT_NULL;
    TestColumn column;
    column.Named(L"C").Type(DBTYPE_I4).Set(DBPROPSET_COLUMN).Property(DBPROP_COL_NULLABLE, null);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"T"));
    try {
        xml.AddColumnDef(column.Desc());
        ADD_FAILURE() << "a VT_NULL property value was written";
    } catch (const zel::ComError& e) {
        EXPECT_TRUE(FAILED(e.code())) << std::hex << e.code();
    }
}

TEST(TableDefXmlWriter, SpecialCharactersInNamesAreEscapedAndReadBack) {
    const wchar_t* tableName = L"a<b & \"c\" 'd'>";
    TestColumn column;
    column.Named(L"x&y<z>\"q\"").TypeName(L"Var'Char").Type(DBTYPE_WSTR);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(tableName));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));

    TableDefXml reader;
    ASSERT_TRUE(reader.LoadTableDef(xml.Xml().c_str()));
    Bstr name;
    TableDefColumns columns;
    ASSERT_TRUE(reader.ReadTableDef(name, columns));
    EXPECT_EQ(tableName, name.str());
    ASSERT_EQ(1u, columns.count());
    EXPECT_STREQ(L"x&y<z>\"q\"", columns[0].dbcid.uName.pwszName);
    EXPECT_STREQ(L"Var'Char", columns[0].pwszTypeName);
}

TEST(TableDefXmlWriter, BeginAgainStartsAFreshDocument) {
    TestColumn column;
    column.Named(L"A").Type(DBTYPE_I4);
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(L"First"));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    ASSERT_TRUE(xml.AddColumnDef(column.Desc()));
    EXPECT_EQ(2u, xml.ColumnDefCount());
    ComPtr<IXMLDOMDocument2> first(xml.Document());  // kept alive so its address stays taken

    ASSERT_TRUE(xml.BeginTableDef(L"Second"));
    EXPECT_EQ(0u, xml.ColumnDefCount());
    EXPECT_NE(first.get(), xml.Document());
    EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n<TableDef Name=\"Second\"/>\r\n", xml.Xml().str());
}

TEST(TableDefXmlWriter, NullTableNameIsWrittenAsEmptyName) {
    TableDefXml xml;
    ASSERT_TRUE(xml.BeginTableDef(nullptr));
    EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n<TableDef Name=\"\"/>\r\n", xml.Xml().str());
}

TEST(TableDefXmlWriter, XmlWithoutDocumentRaisesPointerError) {
    TableDefXml xml;
    try {
        (void)xml.Xml();
        ADD_FAILURE() << "text without a document";
    } catch (const zel::ComError& e) {
        EXPECT_EQ(E_POINTER, e.code());
    }
}

}  // namespace
