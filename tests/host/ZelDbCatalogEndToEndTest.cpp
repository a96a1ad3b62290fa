// zeldb.exe against the server and the embedded provider's catalog: database files (create,
// compact), tables, columns, indexes, table definitions, drop, and the shell's dot commands.
#include <gtest/gtest.h>

#include <regex>

#include "host/TextStreams.h"
#include "tests/host/ZelDbServerFixture.h"

namespace zel::zeldb::test {
namespace {

using Row = std::vector<std::wstring>;

// The body rows of zeldb's aligned table, cells trimmed; checks the heading, the rule and
// the footer's count on the way.
std::vector<Row> TableRows(const std::wstring& text, const Row& headings) {
    const std::vector<std::wstring> lines = Lines(text);
    std::vector<Row> rows;
    if (lines.size() < 3) {
        ADD_FAILURE() << "not a table: " << ToUtf8(text);
        return rows;
    }
    auto split = [](const std::wstring& line) {
        Row cells;
        size_t start = 0;
        for (;;) {
            // Cells are separated by " | "; a line whose last cell is empty ends in " |", the
            // writer dropping trailing blanks. No cell of these tests holds a bar itself.
            const size_t bar = line.find(L'|', start);
            cells.push_back(Trim(line.substr(start, bar == std::wstring::npos ? std::wstring::npos : bar - start)));
            if (bar == std::wstring::npos) break;
            start = bar + 1;
        }
        return cells;
    };
    EXPECT_EQ(split(lines[0]), headings);
    EXPECT_EQ(lines[1].find_first_not_of(L"-+"), std::wstring::npos);
    for (size_t i = 2; i + 1 < lines.size(); ++i) {
        Row cells = split(lines[i]);
        cells.resize(headings.size());  // trailing empty cells are not written
        rows.push_back(cells);
    }
    const std::wstring count = std::to_wstring(rows.size());
    EXPECT_EQ(lines.back(), L"(" + count + (rows.size() == 1 ? L" row)" : L" rows)"));
    return rows;
}

const Row kTableHeadings = {L"name", L"type", L"description"};
const Row kColumnHeadings = {L"name",     L"position", L"type",    L"code",     L"size", L"precision",
                             L"scale",    L"nullable", L"default", L"identity", L"seed", L"increment"};
const Row kIndexHeadings = {L"table", L"index", L"column"};

bool HasRow(const std::vector<Row>& rows, const Row& row) {
    for (const auto& r : rows)
        if (r == row) return true;
    return false;
}

class ZelDbCatalogTest : public ZelDbServerTest {
protected:
    static std::wstring InventoryDatabase(const std::wstring& name) {
        const std::wstring db = NewDatabase(name);
        ZelDbOk({L"exec", db,
                 L"CREATE TABLE Suppliers (SupplierId INTEGER PRIMARY KEY, Name VARCHAR(40) NOT NULL, "
                 L"City VARCHAR(30) DEFAULT 'Leeds')"});
        ZelDbOk({L"exec", db,
                 L"CREATE TABLE Parts (PartNo VARCHAR(12) NOT NULL, Name VARCHAR(40), SupplierId INTEGER, "
                 L"Qty INTEGER, UnitPrice DOUBLE)"});
        ZelDbOk({L"exec", db, L"CREATE UNIQUE INDEX PartsByNo ON Parts (PartNo)"});
        ZelDbOk({L"exec", db, L"CREATE INDEX PartsBySupplier ON Parts (SupplierId, Name)"});
        ZelDbOk({L"exec", db, L"CREATE VIEW LowStock AS SELECT PartNo, Qty FROM Parts WHERE Qty < 5"});
        return db;
    }
};

TEST_F(ZelDbCatalogTest, CreateMakesADatabaseFileOnlyOnce) {
    const std::wstring db = NewDatabase(L"created.db");
    EXPECT_NE(GetFileAttributesW(db.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(ZelDbOk({L"exec", db, L"CREATE TABLE T (A INTEGER)"}), L"0 rows affected\n");
    const ProcessResult again = RunZelDb({L"create", db});
    EXPECT_EQ(again.exitCode, 1u);
    EXPECT_EQ(again.out, L"");
    EXPECT_EQ(Lines(again.err)[0].rfind(L"zeldb: cannot create database file \"" + db + L"\"", 0), 0u)
        << ToUtf8(again.err);
}

TEST_F(ZelDbCatalogTest, TablesListsTablesAndViewsAndFiltersByType) {
    const std::wstring db = InventoryDatabase(L"tables.db");
    const std::vector<Row> all = TableRows(ZelDbOk({L"tables", db}), kTableHeadings);
    EXPECT_TRUE(HasRow(all, {L"Parts", L"TABLE", L""}));
    EXPECT_TRUE(HasRow(all, {L"Suppliers", L"TABLE", L""}));
    EXPECT_TRUE(HasRow(all, {L"LowStock", L"VIEW", L""}));

    const std::vector<Row> tables = TableRows(ZelDbOk({L"tables", db, L"--type", L"TABLE"}), kTableHeadings);
    EXPECT_EQ(tables, (std::vector<Row>{{L"Parts", L"TABLE", L""}, {L"Suppliers", L"TABLE", L""}}));
    const std::vector<Row> views = TableRows(ZelDbOk({L"tables", db, L"--type", L"VIEW"}), kTableHeadings);
    EXPECT_EQ(views, (std::vector<Row>{{L"LowStock", L"VIEW", L""}}));
}

TEST_F(ZelDbCatalogTest, ColumnsDescribeEveryColumn) {
    const std::wstring db = InventoryDatabase(L"columns.db");
    const std::vector<Row> rows = TableRows(ZelDbOk({L"columns", db, L"Suppliers"}), kColumnHeadings);
    ASSERT_EQ(rows.size(), 3u);
    // name, position, type, code, size, precision, scale, nullable
    EXPECT_EQ(Row(rows[0].begin(), rows[0].begin() + 8),
              (Row{L"SupplierId", L"1", L"DBTYPE_I4", L"3", L"4", L"10", L"0", L"no"}));
    EXPECT_EQ(Row(rows[1].begin(), rows[1].begin() + 9),
              (Row{L"Name", L"2", L"DBTYPE_WSTR", L"130", L"40", L"0", L"0", L"no", L""}));
    EXPECT_EQ(Row(rows[2].begin(), rows[2].begin() + 8),
              (Row{L"City", L"3", L"DBTYPE_WSTR", L"130", L"30", L"0", L"0", L"yes"}));
    EXPECT_NE(rows[2][8].find(L"Leeds"), std::wstring::npos) << ToUtf8(rows[2][8]);
    for (const auto& row : rows) {
        EXPECT_TRUE(row[9] == L"yes" || row[9] == L"no") << ToUtf8(row[9]);
        if (row[9] == L"no") {
            EXPECT_EQ(row[10], L"");
            EXPECT_EQ(row[11], L"");
        }
    }
}

TEST_F(ZelDbCatalogTest, ColumnsOfAMissingTableIsAnError) {
    const std::wstring db = InventoryDatabase(L"nocolumns.db");
    const ProcessResult r = RunZelDb({L"columns", db, L"Nope"});
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(r.out, L"");
    EXPECT_EQ(r.err, L"zeldb: no table named \"Nope\" (the provider lists no columns for it)\n");
}

TEST_F(ZelDbCatalogTest, IndexesListOneLinePerIndexedColumn) {
    const std::wstring db = InventoryDatabase(L"indexes.db");
    const std::vector<Row> parts = TableRows(ZelDbOk({L"indexes", db, L"Parts"}), kIndexHeadings);
    EXPECT_TRUE(HasRow(parts, {L"Parts", L"PartsByNo", L"PartNo"}));
    EXPECT_TRUE(HasRow(parts, {L"Parts", L"PartsBySupplier", L"SupplierId"}));
    EXPECT_TRUE(HasRow(parts, {L"Parts", L"PartsBySupplier", L"Name"}));
    for (const auto& row : parts) EXPECT_EQ(row[0], L"Parts");
    const std::vector<Row> all = TableRows(ZelDbOk({L"indexes", db}), kIndexHeadings);
    EXPECT_GE(all.size(), parts.size());
    EXPECT_TRUE(HasRow(all, {L"Parts", L"PartsByNo", L"PartNo"}));
}

TEST_F(ZelDbCatalogTest, TableDefinitionRoundTripsThroughAFile) {
    const std::wstring db = InventoryDatabase(L"tabledef.db");
    const std::wstring xml = ZelDbOk({L"tabledef", L"get", db, L"Suppliers"});
    EXPECT_EQ(xml.rfind(L"<?xml version=\"1.0\" encoding=\"utf-16\"?>", 0), 0u) << ToUtf8(xml);
    EXPECT_NE(xml.find(L"<TableDef Name=\"Suppliers\">"), std::wstring::npos);
    EXPECT_NE(xml.find(L"<ColumnDef Name=\"SupplierId\""), std::wstring::npos);
    EXPECT_NE(xml.find(L"<ColumnDef Name=\"City\""), std::wstring::npos);

    // Saved as a user would (`zeldb tabledef get ... > file`), the document makes the table again.
    const std::wstring file = WriteFile(L"suppliers.xml", ToUtf8(xml));
    const std::wstring other = NewDatabase(L"tabledef-copy.db");
    EXPECT_EQ(ZelDbOk({L"tabledef", L"create", other, file}), L"created the table defined in " + file + L"\n");
    const std::vector<Row> copied = TableRows(ZelDbOk({L"columns", other, L"Suppliers"}), kColumnHeadings);
    ASSERT_EQ(copied.size(), 3u);
    EXPECT_EQ(Row({copied[0][0], copied[0][2], copied[1][0], copied[1][2], copied[2][0], copied[2][2]}),
              (Row{L"SupplierId", L"DBTYPE_I4", L"Name", L"DBTYPE_WSTR", L"City", L"DBTYPE_WSTR"}));
    EXPECT_EQ(copied[1][7], L"no");  // NOT NULL travels with the document

    const ProcessResult twice = RunZelDb({L"tabledef", L"create", other, file});
    EXPECT_EQ(twice.exitCode, 1u);
    EXPECT_EQ(Lines(twice.err)[0].rfind(L"zeldb: cannot create the table: 0x", 0), 0u) << ToUtf8(twice.err);
}

TEST_F(ZelDbCatalogTest, TableDefCreateRefusesADocumentThatIsNotATableDefinition) {
    const std::wstring db = NewDatabase(L"badtabledef.db");
    const std::wstring file = WriteFile(L"bad.xml", "<Table Name=\"X\"/>");
    const ProcessResult r = RunZelDb({L"tabledef", L"create", db, file});
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(r.err, L"zeldb: cannot create the table: 0x80004005 E_FAIL: the operation failed\n");
    const ProcessResult missing = RunZelDb({L"tabledef", L"create", db, PathOf(L"missing.xml")});
    EXPECT_EQ(missing.exitCode, 1u);
    EXPECT_EQ(Lines(missing.err)[0].rfind(L"zeldb: cannot read \"" + PathOf(L"missing.xml") + L"\": 0x80070002", 0),
              0u)
        << ToUtf8(missing.err);
}

TEST_F(ZelDbCatalogTest, DropRemovesATableAndRefusesAMissingOne) {
    const std::wstring db = InventoryDatabase(L"drop.db");
    EXPECT_EQ(ZelDbOk({L"drop", db, L"Suppliers"}), L"dropped table Suppliers\n");
    const std::vector<Row> tables = TableRows(ZelDbOk({L"tables", db, L"--type", L"TABLE"}), kTableHeadings);
    EXPECT_EQ(tables, (std::vector<Row>{{L"Parts", L"TABLE", L""}}));
    const ProcessResult r = RunZelDb({L"drop", db, L"Suppliers"});
    EXPECT_EQ(r.exitCode, 1u);
    EXPECT_EQ(Lines(r.err)[0].rfind(L"zeldb: cannot drop table \"Suppliers\": 0x", 0), 0u) << ToUtf8(r.err);
}

TEST_F(ZelDbCatalogTest, CompactShrinksTheFileAndKeepsTheData) {
    const std::wstring db = InventoryDatabase(L"compact.db");
    ZelDbOk({L"exec", db,
             L"WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < 3000) "
             L"INSERT INTO Parts SELECT 'P' || x, 'part number ' || x, 1, x, 1.5 FROM c"});
    ZelDbOk({L"exec", db, L"DELETE FROM Parts WHERE Qty > 10"});
    const std::wstring out = ZelDbOk({L"compact", db});
    std::wsmatch match;
    const std::wregex line(L"compacted (.*) \\((\\d+) bytes before, (\\d+) after\\)\n");
    ASSERT_TRUE(std::regex_match(out, match, line)) << ToUtf8(out);
    EXPECT_EQ(match[1].str(), db);
    EXPECT_LT(std::stoull(match[3].str()), std::stoull(match[2].str()));
    EXPECT_EQ(ZelDbOk({L"query", db, L"SELECT COUNT(*) AS n FROM Parts", L"--csv"}), L"n\n10\n");
}

TEST_F(ZelDbCatalogTest, ShellDotCommandsBrowseTheCatalog) {
    const std::wstring db = InventoryDatabase(L"shelldot.db");
    const ProcessResult r = RunZelDb({L"shell", db}, ".tables\n.columns Suppliers\n.indexes Parts\n.help\n");
    EXPECT_EQ(r.exitCode, 0u);
    EXPECT_EQ(r.err, L"");
    // The shell prints exactly what the subcommands print, one after another.
    const std::wstring expected = ZelDbOk({L"tables", db}) + ZelDbOk({L"columns", db, L"Suppliers"}) +
                                  ZelDbOk({L"indexes", db, L"Parts"});
    EXPECT_EQ(r.out.substr(0, expected.size()), expected);
    EXPECT_EQ(r.out.substr(expected.size()).rfind(L".tables          list the tables\n", 0), 0u);
}

}  // namespace
}  // namespace zel::zeldb::test
