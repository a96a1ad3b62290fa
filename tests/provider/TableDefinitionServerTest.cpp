// Column descriptions as the automation server builds them from a table-definition document,
// and its identity read of a definition without a string buffer.
#include <gtest/gtest.h>

#include "TableDefinitionSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// --- The automation server's use -----------------------------------------------------------

// Column descriptions built as the server's table-definition reader builds them: two property
// sets per column with room for five properties each, packed, every property REQUIRED with a
// VT_BOOL holding the document's number (so 1 as well as -1 means true), column size 0.
class ServerDescriptions {
public:
    struct Column {
        const wchar_t* name;
        const wchar_t* typeName;
        DBTYPE type;
        BYTE precision, scale;
        std::vector<std::pair<DBPROPID, SHORT>> column;  // in the reader's order
        std::optional<SHORT> allowZeroLength;
    };
    explicit ServerDescriptions(const std::vector<Column>& columns) : m_names(columns.size()), m_types(columns.size()) {
        m_props.resize(columns.size() * 2);
        m_sets.resize(columns.size() * 2);
        m_descs.resize(columns.size());
        for (size_t i = 0; i < columns.size(); ++i) {
            const Column& c = columns[i];
            for (int s = 0; s < 2; ++s) {
                auto& props = m_props[2 * i + s];
                props.assign(5, DBPROP{});
                for (auto& p : props) {
                    p.dwOptions = DBPROPOPTIONS_REQUIRED;
                    p.colid = DB_NULLID;
                    V_VT(&p.vValue) = VT_BOOL;
                }
            }
            ULONG n = 0;
            for (const auto& [id, value] : c.column) {
                m_props[2 * i][n].dwPropertyID = id;
                V_BOOL(&m_props[2 * i][n].vValue) = value;
                ++n;
            }
            m_sets[2 * i] = {m_props[2 * i].data(), n, DBPROPSET_COLUMN};
            ULONG jet = 0;
            if (c.allowZeroLength) {
                m_props[2 * i + 1][0].dwPropertyID = kAllowZeroLength;
                V_BOOL(&m_props[2 * i + 1][0].vValue) = *c.allowZeroLength;
                jet = 1;
            }
            m_sets[2 * i + 1] = {m_props[2 * i + 1].data(), jet, kJetColumnSet};
            m_names[i] = c.name;
            DBCOLUMNDESC& d = m_descs[i];
            d.dbcid.eKind = DBKIND_NAME;
            d.dbcid.uName.pwszName = m_names[i].data();
            if (c.typeName) {
                m_types[i] = c.typeName;
                d.pwszTypeName = m_types[i].data();
            }
            d.wType = c.type;
            d.bPrecision = c.precision;
            d.bScale = c.scale;
            d.ulColumnSize = 0;
            d.cPropertySets = 2;
            d.rgPropertySets = &m_sets[2 * i];
        }
    }
    DBORDINAL count() const { return m_descs.size(); }
    DBCOLUMNDESC* get() { return m_descs.data(); }

private:
    std::vector<std::wstring> m_names, m_types;
    std::vector<std::vector<DBPROP>> m_props;
    std::vector<DBPROPSET> m_sets;
    std::vector<DBCOLUMNDESC> m_descs;
};

TEST_F(TableDefinitionTest, DescriptionsAsTheServerReadsThemFromADocumentCreateTheTable) {
    ServerDescriptions columns({
        {L"ID", nullptr, DBTYPE_I4, 0, 0, {{DBPROP_COL_NULLABLE, 0}, {DBPROP_COL_AUTOINCREMENT, 1}}, std::nullopt},
        {L"Title", L"TEXT", DBTYPE_WSTR, 0, 0, {{DBPROP_COL_NULLABLE, -1}}, SHORT{0}},
        {L"Code", nullptr, DBTYPE_WSTR, 0, 0, {{DBPROP_COL_FIXEDLENGTH, 0}}, SHORT{1}},
        {L"Price", nullptr, DBTYPE_DECIMAL, 10, 2, {}, std::nullopt},
        {L"Qty",
         L"INTEGER",
         DBTYPE_I4,
         10,
         255,
         {{DBPROP_COL_NULLABLE, -1}, {DBPROP_COL_FIXEDLENGTH, -1}},
         std::nullopt},
    });
    Name table(L"parts");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, table.get(), columns.count(), columns.get(), GUID_NULL, 0,
                                            nullptr, nullptr, nullptr));
    auto got = Get(L"parts");
    ASSERT_EQ(S_OK, got->hr);
    const DBCOLUMNDESC* id = got->Column(L"ID");
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"bool:0", ColumnText(id, DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"i4:1", ColumnText(id, DBPROP_COL_SEED));
    const DBCOLUMNDESC* title = got->Column(L"Title");
    EXPECT_STREQ(L"TEXT", title->pwszTypeName);
    EXPECT_EQ(L"bool:0", PropertyText(title, kJetColumnSet, kAllowZeroLength));
    const DBCOLUMNDESC* code = got->Column(L"Code");
    EXPECT_EQ(255u, code->ulColumnSize);  // size 0: the provider's default
    EXPECT_EQ(L"bool:-1", PropertyText(code, kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bool:0", ColumnText(code, DBPROP_COL_FIXEDLENGTH));
    const DBCOLUMNDESC* price = got->Column(L"Price");
    EXPECT_STREQ(L"DECIMAL(10,2)", price->pwszTypeName);
    EXPECT_EQ(10, price->bPrecision);
    EXPECT_EQ(2, price->bScale);
    EXPECT_STREQ(L"INTEGER", got->Column(L"Qty")->pwszTypeName);

    c.Run(L"INSERT INTO parts (Title, Code, Price) VALUES ('Shaft', '', 2.5)");
    c.Run(L"INSERT INTO parts (Title) VALUES ('Gear')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO parts (Title) VALUES ('')"));
    EXPECT_EQ(
        (std::vector<std::vector<std::wstring>>{{L"1", L"Shaft", L"", L"2.50"}, {L"2", L"Gear", L"<null>", L"<null>"}}),
        Rows(L"SELECT ID, Title, Code, Price FROM parts ORDER BY ID"));
}

TEST_F(TableDefinitionTest, TheServersIdentityReadGetsPropertiesWithoutAStringBuffer) {
    ColumnList columns;
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    columns.Add(L"ID", DBTYPE_I4).Identity(5, 2);
    ASSERT_EQ(S_OK, Create(L"ids", columns));
    Name table(L"ids");
    Definition got;
    ASSERT_EQ(S_OK, creation->GetTableDefinition(table.get(), &got.count, &got.columns, nullptr, nullptr, nullptr,
                                                 nullptr, nullptr));
    ASSERT_EQ(2u, got.count);
    EXPECT_EQ(nullptr, got.columns[0].dbcid.uName.pwszName);  // names live in the string buffer only
    EXPECT_EQ(L"bool:0", ColumnText(&got.columns[0], DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"bool:-1", ColumnText(&got.columns[1], DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"i4:5", ColumnText(&got.columns[1], DBPROP_COL_SEED));
    EXPECT_EQ(L"i4:2", ColumnText(&got.columns[1], DBPROP_COL_INCREMENT));
    Name missing(L"missing");
    DBORDINAL count = 99;
    DBCOLUMNDESC* none = reinterpret_cast<DBCOLUMNDESC*>(1);
    EXPECT_EQ(DB_E_NOTABLE, creation->GetTableDefinition(missing.get(), &count, &none, nullptr, nullptr, nullptr,
                                                         nullptr, nullptr));
    EXPECT_EQ(0u, count);
    EXPECT_EQ(nullptr, none);
}

}  // namespace
