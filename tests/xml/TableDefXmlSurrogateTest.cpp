// Names holding UTF-16 surrogates. A paired surrogate is an ordinary character; an unpaired
// one is not a character at all, and what becomes of it is the DOM's decision. These tests
// pin down what MSXML 6.0 does under Wine, so that a change shows up here first.
#include "xml/TableDefXml.h"

#include <gtest/gtest.h>

#include <string>

using zel::Bstr;
using zel::TableDefColumns;
using zel::TableDefXml;

namespace {

struct RoundTrip {
    std::wstring text;
    bool loaded = false;
    bool read = false;
    Bstr name;
};

RoundTrip WriteThenRead(const std::wstring& tableName) {
    RoundTrip r;
    TableDefXml writer;
    EXPECT_TRUE(writer.BeginTableDef(tableName.c_str()));
    r.text = writer.Xml().str();
    TableDefXml reader;
    r.loaded = reader.LoadTableDef(r.text.c_str());
    TableDefColumns columns;
    if (r.loaded) r.read = reader.ReadTableDef(r.name, columns);
    return r;
}

const std::wstring kDeclaration = L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\r\n";

TEST(TableDefXmlSurrogates, PairedSurrogatesSurviveWriteThenRead) {
    const std::wstring name = L"ok\xD83D\xDE00";  // U+1F600 as a surrogate pair
    RoundTrip r = WriteThenRead(name);
    EXPECT_EQ(kDeclaration + L"<TableDef Name=\"" + name + L"\"/>\r\n", r.text);
    ASSERT_TRUE(r.read);
    EXPECT_EQ(name, r.name.str());
}

TEST(TableDefXmlSurrogates, UnpairedSurrogateInAWrittenNameBecomesReplacementCharacter) {
    // Unpaired high surrogate inside, unpaired low surrogate at the end, one alone.
    const std::wstring names[] = {L"A\xD800" L"B", L"A\xDC00", L"\xD800"};
    const std::wstring expected[] = {L"A\xFFFD" L"B", L"A\xFFFD", L"\xFFFD"};
    for (size_t i = 0; i < 3; ++i) {
        RoundTrip r = WriteThenRead(names[i]);
        EXPECT_EQ(kDeclaration + L"<TableDef Name=\"" + expected[i] + L"\"/>\r\n", r.text) << i;
        ASSERT_TRUE(r.read) << i;
        EXPECT_EQ(expected[i], r.name.str()) << i;
    }
}

TEST(TableDefXmlSurrogates, TextWithAnUnpairedSurrogateDoesNotLoad) {
    TableDefXml reader;
    EXPECT_FALSE(reader.LoadTableDef(L"<TableDef Name=\"A\xD800" L"B\"/>"));
    EXPECT_FALSE(reader.LoadTableDef(L"<TableDef Name=\"A&#xD800;B\"/>"));
    Bstr name;
    TableDefColumns columns;
    EXPECT_FALSE(reader.ReadTableDef(name, columns));
    EXPECT_EQ(nullptr, columns.get());
}

}  // namespace
