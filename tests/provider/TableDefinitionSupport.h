// What the table-definition tests share: column descriptions built as a consumer builds them,
// GetTableDefinition's out-parameters with their owner, readers that show a description as
// text, and the fixture with a session's ITableDefinition, ITableCreation and
// IIndexDefinition.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ProviderTestSupport.h"

namespace zel::test {

// The Jet provider's column property set, which carries ALLOWZEROLENGTH.
inline const GUID kJetColumnSet = {0x820BF922, 0x6AC8, 0x11D1, {0x9F, 0x02, 0x00, 0xC0, 0x4F, 0xC2, 0xC2, 0xE0}};
inline constexpr DBPROPID kAllowZeroLength = 0xE0;
inline constexpr DBLENGTH kLong = ~DBLENGTH{0};

inline Variant Text(std::wstring_view text) { return Variant(text); }

inline Variant Number(LONG value) { return Variant::FromI4(value); }

// A DBKIND_NAME id over its own copy of the name.
class Name {
public:
    explicit Name(std::wstring name) : m_text(std::move(name)) {
        m_id.eKind = DBKIND_NAME;
        m_id.uName.pwszName = m_text.data();
    }
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;
    DBID* get() { return &m_id; }

private:
    std::wstring m_text;
    DBID m_id{};
};

// Frees a DBID a provider handed out, with its name.
void FreeId(DBID* id);

// One column description under construction.
struct ColumnBuilder {
    struct Set {
        GUID guid;
        std::vector<DBPROP> props;
    };
    std::wstring name;
    std::wstring typeName;
    bool hasTypeName = false;
    DBTYPE type = DBTYPE_EMPTY;
    DBLENGTH size = 0;
    BYTE precision = 0;
    BYTE scale = 0;
    std::vector<Set> sets;

    ColumnBuilder& TypeName(const wchar_t* text) {
        typeName = text;
        hasTypeName = true;
        return *this;
    }
    ColumnBuilder& Size(DBLENGTH value) {
        size = value;
        return *this;
    }
    ColumnBuilder& Digits(BYTE p, BYTE s) {
        precision = p;
        scale = s;
        return *this;
    }
    ColumnBuilder& In(const GUID& set, DBPROPID id, Variant value, DBPROPOPTIONS options = DBPROPOPTIONS_REQUIRED) {
        if (sets.empty() || sets.back().guid != set) sets.push_back({set, {}});
        DBPROP prop{};
        prop.dwPropertyID = id;
        prop.dwOptions = options;
        prop.colid = DB_NULLID;
        value.detach(&prop.vValue);
        sets.back().props.push_back(prop);
        return *this;
    }
    ColumnBuilder& Prop(DBPROPID id, Variant value, DBPROPOPTIONS options = DBPROPOPTIONS_REQUIRED) {
        return In(DBPROPSET_COLUMN, id, std::move(value), options);
    }
    ColumnBuilder& Flag(DBPROPID id, bool value, DBPROPOPTIONS options = DBPROPOPTIONS_REQUIRED) {
        return Prop(id, Variant::FromBool(value), options);
    }
    ColumnBuilder& AllowZeroLength(bool value) { return In(kJetColumnSet, kAllowZeroLength, Variant::FromBool(value)); }
    ColumnBuilder& Identity(LONG seed, LONG increment) {
        return Flag(DBPROP_COL_AUTOINCREMENT, true)
            .Prop(DBPROP_COL_SEED, Number(seed))
            .Prop(DBPROP_COL_INCREMENT, Number(increment));
    }
};

// Column descriptions as a consumer hands them to CreateTable; owns their property values.
class ColumnList {
public:
    ColumnList() = default;
    ColumnList(const ColumnList&) = delete;
    ColumnList& operator=(const ColumnList&) = delete;
    ~ColumnList() {
        for (auto& c : m_columns)
            for (auto& s : c.sets)
                for (auto& p : s.props) VariantClear(&p.vValue);
    }
    ColumnBuilder& Add(const std::wstring& name, DBTYPE type) {
        m_columns.push_back({});
        m_columns.back().name = name;
        m_columns.back().type = type;
        return m_columns.back();
    }
    DBORDINAL count() const { return m_columns.size(); }
    DBCOLUMNDESC* get() {
        m_sets.clear();
        m_descs.clear();
        for (auto& c : m_columns) {
            std::vector<DBPROPSET> sets;
            for (auto& s : c.sets) sets.push_back({s.props.data(), static_cast<ULONG>(s.props.size()), s.guid});
            m_sets.push_back(std::move(sets));
        }
        for (size_t i = 0; i < m_columns.size(); ++i) {
            ColumnBuilder& c = m_columns[i];
            DBCOLUMNDESC d{};
            d.dbcid.eKind = DBKIND_NAME;
            d.dbcid.uName.pwszName = c.name.data();
            d.pwszTypeName = c.hasTypeName ? c.typeName.data() : nullptr;
            d.wType = c.type;
            d.ulColumnSize = c.size;
            d.bPrecision = c.precision;
            d.bScale = c.scale;
            d.cPropertySets = static_cast<ULONG>(m_sets[i].size());
            d.rgPropertySets = m_sets[i].empty() ? nullptr : m_sets[i].data();
            m_descs.push_back(d);
        }
        return m_descs.data();
    }
    // The property as the provider left it (its status), after get() was handed to a call.
    const DBPROP& Property(size_t column, const GUID& set, DBPROPID id) const {
        for (const auto& s : m_columns[column].sets)
            if (s.guid == set)
                for (const auto& p : s.props)
                    if (p.dwPropertyID == id) return p;
        ADD_FAILURE() << "no such property";
        return m_columns[column].sets[0].props[0];
    }

private:
    std::deque<ColumnBuilder> m_columns;
    std::vector<std::vector<DBPROPSET>> m_sets;
    std::vector<DBCOLUMNDESC> m_descs;
};

// GetTableDefinition's out-parameters, freed as the OLE DB memory rules say.
struct Definition {
    HRESULT hr = E_FAIL;
    DBORDINAL count = 0;
    DBCOLUMNDESC* columns = nullptr;
    ULONG tableSetCount = 0;
    DBPROPSET* tableSets = nullptr;
    ULONG constraintCount = 0;
    DBCONSTRAINTDESC* constraints = nullptr;
    OLECHAR* strings = nullptr;

    Definition() = default;
    Definition(const Definition&) = delete;
    Definition& operator=(const Definition&) = delete;
    ~Definition();
    const DBCOLUMNDESC* Column(const std::wstring& name) const {
        for (DBORDINAL i = 0; i < count; ++i)
            if (columns[i].dbcid.uName.pwszName && name == columns[i].dbcid.uName.pwszName) return &columns[i];
        ADD_FAILURE() << "no column " << testing::PrintToString(name);
        return nullptr;
    }
};

const DBPROP* FindProperty(const DBCOLUMNDESC& d, const GUID& set, DBPROPID id);

// A VARIANT as text that says its type: "bool:-1", "i4:100", "bstr:abc", "empty".
std::wstring Show(const VARIANT& v);

// Everything a description says, as one line.
std::wstring Describe(const DBCOLUMNDESC& d);

std::wstring PropertyText(const DBCOLUMNDESC* d, const GUID& set, DBPROPID id);

inline std::wstring ColumnText(const DBCOLUMNDESC* d, DBPROPID id) { return PropertyText(d, DBPROPSET_COLUMN, id); }

struct Values {
    wchar_t text[41];
    DBLENGTH length;
    DBSTATUS status;
};

class TableDefinitionTest : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        definition = c.session.as<ITableDefinition>();
        creation = c.session.as<ITableCreation>();
        indexes = c.session.as<IIndexDefinition>();
    }

    HRESULT Create(const std::wstring& table, ColumnList& columns, ULONG setCount = 0, DBPROPSET* sets = nullptr) {
        Name id(table);
        return definition->CreateTable(nullptr, id.get(), columns.count(), columns.get(), IID_NULL, setCount, sets,
                                       nullptr, nullptr);
    }
    HRESULT Drop(const std::wstring& table) {
        Name id(table);
        return definition->DropTable(id.get());
    }
    std::unique_ptr<Definition> Get(const std::wstring& table) {
        auto d = std::make_unique<Definition>();
        Name id(table);
        d->hr = creation->GetTableDefinition(id.get(), &d->count, &d->columns, &d->tableSetCount, &d->tableSets,
                                             &d->constraintCount, &d->constraints, &d->strings);
        return d;
    }
    std::vector<std::vector<std::wstring>> Rows(const std::wstring& sql) { return ReadAllAsText(c.Query(sql).get()); }
    std::wstring Scalar(const std::wstring& sql) {
        auto rows = Rows(sql);
        return rows.empty() || rows[0].empty() ? L"<none>" : rows[0][0];
    }
    bool TableExists(const std::wstring& table) {
        return Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = '" + table + L"'") == L"1";
    }
    // A rowset over the table that can insert rows, as the automation server opens one.
    ComPtr<IRowset> OpenChangeable(const std::wstring& table) {
        Name id(table);
        ServerRowsetProperties server;
        ComPtr<IRowset> rowset;
        EXPECT_EQ(S_OK, c.session->OpenRowset(nullptr, id.get(), nullptr, IID_IRowset, 1, &server.set,
                                              rowset.put_unknown()));
        return rowset;
    }
    // Inserts a row through IRowsetChange::InsertRow with only the text column `ordinal` bound.
    HRESULT InsertText(IRowset* rowset, DBORDINAL ordinal, const wchar_t* text, HROW* row) {
        DBBINDING b = Binding::Make(ordinal, DBTYPE_WSTR, sizeof(Values::text), offsetof(Values, text),
                                    offsetof(Values, length), offsetof(Values, status));
        HACCESSOR accessor = DB_NULL_HACCESSOR;
        ComPtr<IRowset> r(rowset);
        EXPECT_EQ(S_OK,
                  r.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, 1, &b, sizeof(Values), &accessor, nullptr));
        Values v{};
        wcscpy(v.text, text);
        v.length = wcslen(text) * sizeof(wchar_t);
        v.status = DBSTATUS_S_OK;
        HRESULT hr = r.as<IRowsetChange>()->InsertRow(DB_NULL_HCHAPTER, accessor, &v, row);
        r.as<IAccessor>()->ReleaseAccessor(accessor, nullptr);
        return hr;
    }
    static LONG ReadI4(IRowset* rowset, HROW row, DBORDINAL ordinal) {
        ValueRead read = ReadValue(rowset, row, ordinal, DBTYPE_I4);
        EXPECT_EQ(S_OK, read.hr);
        EXPECT_EQ(DBSTATUS_S_OK, read.status);
        return read.as<LONG>();
    }

    TempDatabase db;
    Connection c;
    ComPtr<ITableDefinition> definition;
    ComPtr<ITableCreation> creation;
    ComPtr<IIndexDefinition> indexes;
};

}  // namespace zel::test
