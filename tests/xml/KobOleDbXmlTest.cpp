// The query-result document: its exact tree, attribute order, flags and text, built from
// results of the in-memory test provider.
#include "xml/KobOleDbXML.h"

#include <gtest/gtest.h>

#include "common/Bstr.h"
#include "oledb/KobOleDbCommand.h"
#include "tests/oledb/FakeRowset.h"

using namespace zel;
using namespace zel::test;

namespace {

class QueryXmlTest : public testing::Test {
protected:
    // Executes a command over `columns` and `rows` and builds its document.
    bool Build(std::vector<FakeColumn> columns, std::vector<std::vector<FakeValue>> rows) {
        auto result = std::make_shared<FakeResult>();
        result->columns = std::move(columns);
        result->rows = std::move(rows);
        connection = std::make_unique<FakeConnection>(result);
        command.SetConnection(connection.get());
        command.SetCommandText(L"SELECT");
        EXPECT_EQ(kTriTrue, command.Execute());
        KobOleDbXML writer;
        return writer.BuildQueryDataXml(&command, xml);
    }

    // The document parsed back, for tree comparisons.
    ComPtr<IXMLDOMDocument2> Parse() {
        auto doc = CreateInstance<IXMLDOMDocument2>(CLSID_DOMDocument60, CLSCTX_ALL);
        VARIANT_BOOL ok = VARIANT_FALSE;
        EXPECT_EQ(S_OK, doc->loadXML(Bstr(std::wstring_view(xml)).get(), &ok));
        EXPECT_EQ(VARIANT_TRUE, ok);
        return doc;
    }

    // The attributes of the element at `path`, as name=value pairs in document order.
    std::vector<std::wstring> Attributes(const wchar_t* path) {
        auto doc = Parse();
        ComPtr<IXMLDOMNode> node;
        EXPECT_EQ(S_OK, doc->selectSingleNode(Bstr(path).get(), node.put()));
        std::vector<std::wstring> out;
        if (!node) return out;
        ComPtr<IXMLDOMNamedNodeMap> attributes;
        node->get_attributes(attributes.put());
        long count = 0;
        attributes->get_length(&count);
        for (long i = 0; i < count; ++i) {
            ComPtr<IXMLDOMNode> attribute;
            attributes->get_item(i, attribute.put());
            Bstr name, value;
            attribute->get_nodeName(name.put());
            attribute->get_text(value.put());
            out.push_back(name.str() + L"=" + value.str());
        }
        return out;
    }

    std::unique_ptr<FakeConnection> connection;
    KobOleDbCommand command;
    std::wstring xml;
};

using Strings = std::vector<std::wstring>;

}  // namespace

TEST_F(QueryXmlTest, ExampleDocumentMatchesExactText) {
    ASSERT_TRUE(Build({{L"ID", DBTYPE_I4, 4}, {L"Title", DBTYPE_WSTR, 50}},
                      {{Value<LONG>(1), Text(L"Shaft")}, {Value<LONG>(2), Null()}}));
    // The layout (line breaks, tab indentation) is MSXML's serialisation of the tree.
    EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
              L"<QueryData Version=\"5.0\">\r\n"
              L"\t<Metadata>\r\n"
              L"\t\t<ColumnDef Name=\"ID\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\" ColSize=\"4\"/>\r\n"
              L"\t\t<ColumnDef Name=\"Title\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"130\" ColSize=\"10\"/>\r\n"
              L"\t</Metadata>\r\n"
              L"\t<Resultset>\r\n"
              L"\t\t<Rowset C1=\"1\" C2=\"Shaft\"/>\r\n"
              L"\t\t<Rowset C1=\"2\"/>\r\n"
              L"\t</Resultset>\r\n"
              L"</QueryData>\r\n",
              xml);
}

TEST_F(QueryXmlTest, ExampleDocumentTree) {
    ASSERT_TRUE(Build({{L"ID", DBTYPE_I4, 4}, {L"Title", DBTYPE_WSTR, 50}},
                      {{Value<LONG>(1), Text(L"Shaft")}, {Value<LONG>(2), Null()}}));
    EXPECT_EQ(Strings{L"Version=5.0"}, Attributes(L"/QueryData"));
    EXPECT_EQ((Strings{L"Name=ID", L"Integral=Y", L"Numeric=N", L"BlobData=N", L"Datatype=3", L"ColSize=4"}),
              Attributes(L"/QueryData/Metadata/ColumnDef[1]"));
    EXPECT_EQ((Strings{L"Name=Title", L"Integral=N", L"Numeric=N", L"BlobData=N", L"Datatype=130", L"ColSize=10"}),
              Attributes(L"/QueryData/Metadata/ColumnDef[2]"));
    EXPECT_EQ((Strings{L"C1=1", L"C2=Shaft"}), Attributes(L"/QueryData/Resultset/Rowset[1]"));
    EXPECT_EQ((Strings{L"C1=2"}), Attributes(L"/QueryData/Resultset/Rowset[2]"));
}

TEST_F(QueryXmlTest, ResultWithColumnsButNoRowsGivesNoDocument) {
    xml = L"untouched";
    EXPECT_FALSE(Build({{L"ID", DBTYPE_I4, 4}}, {}));
    EXPECT_EQ(L"untouched", xml);
}

TEST_F(QueryXmlTest, SingleRowGivesExactlyOneRowset) {
    ASSERT_TRUE(Build({{L"ID", DBTYPE_I4, 4}}, {{Value<LONG>(42)}}));
    auto doc = Parse();
    ComPtr<IXMLDOMNodeList> rows;
    ASSERT_EQ(S_OK, doc->selectNodes(Bstr(L"/QueryData/Resultset/Rowset").get(), rows.put()));
    long count = 0;
    rows->get_length(&count);
    EXPECT_EQ(1, count);
}

TEST_F(QueryXmlTest, NullFieldLeavesItsAttributeOutWithoutRenumbering) {
    ASSERT_TRUE(Build({{L"a", DBTYPE_I4, 4}, {L"b", DBTYPE_I4, 4}, {L"c", DBTYPE_I4, 4}},
                      {{Value<LONG>(1), Null(), Value<LONG>(3)}}));
    EXPECT_EQ((Strings{L"C1=1", L"C3=3"}), Attributes(L"/QueryData/Resultset/Rowset"));
}

TEST_F(QueryXmlTest, AllNullRowGivesEmptyRowset) {
    ASSERT_TRUE(Build({{L"a", DBTYPE_I4, 4}}, {{Null()}}));
    EXPECT_EQ(Strings{}, Attributes(L"/QueryData/Resultset/Rowset"));
}

TEST_F(QueryXmlTest, BlobOfFiveBytesGivesTwoCodeUnits) {
    std::vector<BYTE> bytes = {'A', 0, 'B', 0, 'C'};
    ASSERT_TRUE(Build({{L"Memo", DBTYPE_WSTR, ~DBLENGTH(0), DBCOLUMNFLAGS_ISLONG}}, {{Bytes(bytes)}}));
    EXPECT_EQ(Strings{L"C1=AB"}, Attributes(L"/QueryData/Resultset/Rowset"));
    EXPECT_EQ((Strings{L"Name=Memo", L"Integral=N", L"Numeric=N", L"BlobData=Y", L"Datatype=13", L"ColSize=5"}),
              Attributes(L"/QueryData/Metadata/ColumnDef"));
}

TEST_F(QueryXmlTest, ZeroLengthBlobGivesEmptyAttribute) {
    ASSERT_TRUE(Build({{L"Memo", DBTYPE_WSTR, ~DBLENGTH(0), DBCOLUMNFLAGS_ISLONG}}, {{Bytes({})}}));
    EXPECT_EQ(Strings{L"C1="}, Attributes(L"/QueryData/Resultset/Rowset"));
}

TEST_F(QueryXmlTest, IntegralFlagFollowsTheNarrowIntegralSet) {
    ASSERT_TRUE(Build({{L"ui1", DBTYPE_UI1, 1}, {L"i1", DBTYPE_I1, 1}, {L"i2", DBTYPE_I2, 2}, {L"i4", DBTYPE_I4, 4},
                       {L"ui2", DBTYPE_UI2, 2}, {L"ui4", DBTYPE_UI4, 4}, {L"i8", DBTYPE_I8, 8}, {L"ui8", DBTYPE_UI8, 8}},
                      {{Value<BYTE>(1), Value<signed char>('x'), Value<SHORT>(1), Value<LONG>(1), Value<USHORT>(1),
                        Value<ULONG>(1), Value<LONGLONG>(1), Value<ULONGLONG>(1)}}));
    const wchar_t* expected[] = {L"Integral=N", L"Integral=N", L"Integral=Y", L"Integral=Y",
                                 L"Integral=Y", L"Integral=Y", L"Integral=Y", L"Integral=Y"};
    for (int i = 0; i < 8; ++i) {
        std::wstring path = L"/QueryData/Metadata/ColumnDef[" + std::to_wstring(i + 1) + L"]";
        EXPECT_EQ(expected[i], Attributes(path.c_str())[1]) << i;
    }
}

TEST_F(QueryXmlTest, ProcessingInstructionNamesUpperCaseUtf16) {
    ASSERT_TRUE(Build({{L"ID", DBTYPE_I4, 4}}, {{Value<LONG>(1)}}));
    EXPECT_EQ(0u, xml.find(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<QueryData"));
}

TEST_F(QueryXmlTest, WriterLeavesCommandAfterItsLastRow) {
    ASSERT_TRUE(Build({{L"ID", DBTYPE_I4, 4}}, {{Value<LONG>(1)}, {Value<LONG>(2)}}));
    EXPECT_EQ(kTriFalse, command.FetchNext());
    EXPECT_EQ(kTriTrue, command.FetchFirst());
    EXPECT_EQ(1, command.FieldAsLong(1));
}

TEST_F(QueryXmlTest, MarkupCharactersInValuesAreEscaped) {
    ASSERT_TRUE(Build({{L"T", DBTYPE_WSTR, 20}}, {{Text(L"a<b&c\"d")}}));
    EXPECT_EQ(Strings{L"C1=a<b&c\"d"}, Attributes(L"/QueryData/Resultset/Rowset"));
}

TEST(QueryXml, NoCommandOrClosedConnectionGivesNoDocument) {
    KobOleDbXML writer;
    std::wstring xml = L"untouched";
    EXPECT_FALSE(writer.BuildQueryDataXml(nullptr, xml));
    KobOleDbCommand command;
    EXPECT_FALSE(writer.BuildQueryDataXml(&command, xml));
    EXPECT_EQ(L"untouched", xml);
}
