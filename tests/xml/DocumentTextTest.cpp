// The check that a document's text ends with its document element, which turns a text cut
// short by a failed serialisation into an error instead of a document.
#include "xml/DomDocument.h"

#include <gtest/gtest.h>

namespace {

using zel::EndsWithDocumentElement;

TEST(DocumentTextTest, TextEndingWithTheDocumentElementsEndTagIsWhole) {
    EXPECT_TRUE(EndsWithDocumentElement(L"<?xml version=\"1.0\"?>\r\n<QueryData Version=\"5.0\">\r\n\t<Metadata/>\r\n"
                                        L"</QueryData>\r\n",
                                        L"QueryData"));
    EXPECT_TRUE(EndsWithDocumentElement(L"<QueryData></QueryData>", L"QueryData"));
}

TEST(DocumentTextTest, EmptyDocumentElementAsTheLastTagIsWhole) {
    EXPECT_TRUE(EndsWithDocumentElement(L"<?xml version=\"1.0\"?>\r\n<TableDef Name=\"t\"/>\r\n", L"TableDef"));
    EXPECT_TRUE(EndsWithDocumentElement(L"<TableDef/>", L"TableDef"));
}

TEST(DocumentTextTest, TextCutInsideARowIsNotWhole) {
    EXPECT_FALSE(EndsWithDocumentElement(L"<QueryData Version=\"5.0\">\r\n\t<Resultset>\r\n\t\t<Rowset C1=\"1\" C2=\"Sh",
                                         L"QueryData"));
}

TEST(DocumentTextTest, TextCutAfterAWholeRowIsNotWhole) {
    EXPECT_FALSE(EndsWithDocumentElement(L"<QueryData Version=\"5.0\">\r\n\t<Resultset>\r\n\t\t<Rowset C1=\"1\"/>\r\n",
                                         L"QueryData"));
    EXPECT_FALSE(EndsWithDocumentElement(L"<QueryData Version=\"5.0\">\r\n\t<Resultset>\r\n\t</Resultset>\r\n",
                                         L"QueryData"));
}

TEST(DocumentTextTest, EmptyTextOrOnlyWhiteSpaceIsNotWhole) {
    EXPECT_FALSE(EndsWithDocumentElement(L"", L"QueryData"));
    EXPECT_FALSE(EndsWithDocumentElement(L"\r\n\t ", L"QueryData"));
}

TEST(DocumentTextTest, AnElementWhoseNameOnlyStartsWithTheRootsIsNotTheRoot) {
    EXPECT_FALSE(EndsWithDocumentElement(L"<QueryData>\r\n\t<QueryDataX/>", L"QueryData"));
    EXPECT_FALSE(EndsWithDocumentElement(L"<QueryData>\r\n\t</QueryDataX>", L"QueryData"));
}

}  // namespace
