// The aligned table and CSV writers: placement, NULL and blob cells, quoting, footers.
#include <gtest/gtest.h>

#include "host/ResultWriters.h"

namespace zel::zeldb {
namespace {

TEST(ZelDbTableWriter, AlignsColumnsUnderCentredHeadings) {
    StringSink out;
    TableWriter table(out);
    table.Begin({{L"id", true}, {L"name"}, {L"qty", true}});
    table.Row({Cell::Text(L"1"), Cell::Text(L"Bolt"), Cell::Text(L"10")});
    table.Row({Cell::Text(L"22"), Cell::Text(L"Hex nut"), Cell::Text(L"5")});
    table.End({2, false});
    EXPECT_EQ(out.text(),
              L" id |  name   | qty\n"
              L"----+---------+-----\n"
              L"  1 | Bolt    |  10\n"
              L" 22 | Hex nut |   5\n"
              L"(2 rows)\n");
}

TEST(ZelDbTableWriter, NullIsAnEmptyCellAndBlobsShowTheirSize) {
    StringSink out;
    TableWriter table(out);
    table.Begin({{L"name"}, {L"photo"}});
    table.Row({Cell::Null(), Cell::Blob(1234)});
    table.Row({Cell::Text(L"x"), Cell::Null()});
    table.End({2, false});
    EXPECT_EQ(out.text(),
              L" name |       photo\n"
              L"------+-------------------\n"
              L"      | <blob 1234 bytes>\n"
              L" x    |\n"
              L"(2 rows)\n");
}

TEST(ZelDbTableWriter, FooterCountsOneRowAndTellsOfATruncatedListing) {
    StringSink one;
    TableWriter a(one);
    a.Begin({{L"n"}});
    a.Row({Cell::Text(L"7")});
    a.End({1, false});
    EXPECT_EQ(one.text(), L" n\n---\n 7\n(1 row)\n");

    StringSink some;
    TableWriter b(some);
    b.Begin({{L"n"}});
    b.Row({Cell::Text(L"7")});
    b.End({1, true});
    EXPECT_EQ(some.text(), L" n\n---\n 7\n(1 row; more rows not shown)\n");

    StringSink none;
    TableWriter c(none);
    c.Begin({{L"n"}});
    c.End({0, false});
    EXPECT_EQ(none.text(), L" n\n---\n(0 rows)\n");
}

TEST(ZelDbTableWriter, KeepsValuesExactlyAsGiven) {
    StringSink out;
    TableWriter table(out, false);
    table.Begin({{L"v"}});
    table.Row({Cell::Text(L"  padded")});
    table.Row({Cell::Text(L"5d")});
    table.End({2, false});
    EXPECT_EQ(out.text(), L"    v\n----------\n   padded\n 5d\n");
}

TEST(ZelDbCsvWriter, QuotesOnlyWhatNeedsQuotingAndTellsNullFromEmpty) {
    StringSink out;
    CsvWriter csv(out);
    csv.Begin({{L"id"}, {L"name"}, {L"note"}});
    csv.Row({Cell::Text(L"1"), Cell::Text(L"Bolt, M6"), Cell::Null()});
    csv.Row({Cell::Text(L"2"), Cell::Text(L"say \"hi\""), Cell::Text(L"")});
    csv.Row({Cell::Text(L"3"), Cell::Text(L"two\nlines"), Cell::Blob(16)});
    csv.End({3, false});
    EXPECT_EQ(out.text(),
              L"id,name,note\n"
              L"1,\"Bolt, M6\",\n"
              L"2,\"say \"\"hi\"\"\",\"\"\n"
              L"3,\"two\nlines\",<blob 16 bytes>\n");
}

TEST(ZelDbCsvWriter, QuotesHeadingsToo) {
    EXPECT_EQ(CsvWriter::Field(Cell::Text(L"a,b")), L"\"a,b\"");
    EXPECT_EQ(CsvWriter::Field(Cell::Text(L"cr\rhere")), L"\"cr\rhere\"");
    EXPECT_EQ(CsvWriter::Field(Cell::Text(L"plain text")), L"plain text");
}

TEST(ZelDbRowWriters, FormatChoosesTheWriter) {
    StringSink out;
    auto csv = MakeRowWriter(OutputFormat::Csv, out);
    csv->Begin({{L"a"}, {L"b"}});
    EXPECT_EQ(out.text(), L"a,b\n");
    EXPECT_NE(dynamic_cast<TableWriter*>(MakeRowWriter(OutputFormat::Table, out).get()), nullptr);
}

}  // namespace
}  // namespace zel::zeldb
