// ITableDefinition, ITableCreation and IIndexDefinition on a session: tables, columns and
// indexes made from OLE DB descriptions, their definitions read back, and the column properties
// a table keeps (identity seed and increment, zero-length strings, fixed length, defaults,
// descriptions) enforced for every way of inserting.
#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <memory>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using zel::Variant;
using namespace zel::test;

// The Jet provider's column property set, which carries ALLOWZEROLENGTH.
const GUID kJetColumnSet = {0x820BF922, 0x6AC8, 0x11D1, {0x9F, 0x02, 0x00, 0xC0, 0x4F, 0xC2, 0xC2, 0xE0}};
constexpr DBPROPID kAllowZeroLength = 0xE0;
constexpr DBLENGTH kLong = ~DBLENGTH{0};

Variant Text(std::wstring_view text) { return Variant(text); }

Variant Number(LONG value) { return Variant::FromI4(value); }

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

void FreeId(DBID* id) {
    if (!id) return;
    if (id->eKind == DBKIND_NAME) CoTaskMemFree(id->uName.pwszName);
    CoTaskMemFree(id);
}

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
    ~Definition() {
        for (DBORDINAL i = 0; columns && i < count; ++i) {
            for (ULONG s = 0; s < columns[i].cPropertySets; ++s) {
                for (ULONG p = 0; p < columns[i].rgPropertySets[s].cProperties; ++p)
                    VariantClear(&columns[i].rgPropertySets[s].rgProperties[p].vValue);
                CoTaskMemFree(columns[i].rgPropertySets[s].rgProperties);
            }
            CoTaskMemFree(columns[i].rgPropertySets);
        }
        CoTaskMemFree(columns);
        for (ULONG i = 0; constraints && i < constraintCount; ++i) {
            CoTaskMemFree(constraints[i].pConstraintID);
            CoTaskMemFree(constraints[i].rgColumnList);
            CoTaskMemFree(constraints[i].pReferencedTableID);
            CoTaskMemFree(constraints[i].rgForeignKeyColumnList);
        }
        CoTaskMemFree(constraints);
        CoTaskMemFree(tableSets);
        CoTaskMemFree(strings);
    }
    const DBCOLUMNDESC* Column(const std::wstring& name) const {
        for (DBORDINAL i = 0; i < count; ++i)
            if (columns[i].dbcid.uName.pwszName && name == columns[i].dbcid.uName.pwszName) return &columns[i];
        ADD_FAILURE() << "no column " << testing::PrintToString(name);
        return nullptr;
    }
};

const DBPROP* FindProperty(const DBCOLUMNDESC& d, const GUID& set, DBPROPID id) {
    for (ULONG s = 0; s < d.cPropertySets; ++s)
        if (d.rgPropertySets[s].guidPropertySet == set)
            for (ULONG p = 0; p < d.rgPropertySets[s].cProperties; ++p)
                if (d.rgPropertySets[s].rgProperties[p].dwPropertyID == id) return &d.rgPropertySets[s].rgProperties[p];
    return nullptr;
}

// A VARIANT as text that says its type: "bool:-1", "i4:100", "bstr:abc", "empty".
std::wstring Show(const VARIANT& v) {
    wchar_t text[64];
    switch (V_VT(&v)) {
    case VT_EMPTY: return L"empty";
    case VT_NULL: return L"null";
    case VT_BOOL: return L"bool:" + std::to_wstring(V_BOOL(&v));
    case VT_I2: return L"i2:" + std::to_wstring(V_I2(&v));
    case VT_I4: return L"i4:" + std::to_wstring(V_I4(&v));
    case VT_I8: return L"i8:" + std::to_wstring(V_I8(&v));
    case VT_UI1: return L"ui1:" + std::to_wstring(V_UI1(&v));
    case VT_R4: swprintf(text, 64, L"r4:%.9g", V_R4(&v)); return text;
    case VT_R8: swprintf(text, 64, L"r8:%.17g", V_R8(&v)); return text;
    case VT_DATE: swprintf(text, 64, L"date:%.17g", V_DATE(&v)); return text;
    case VT_BSTR: return L"bstr:" + std::wstring(V_BSTR(&v), SysStringLen(V_BSTR(&v)));
    case VT_ARRAY | VT_UI1: {
        std::wstring hex = L"bytes:";
        auto bytes = static_cast<const BYTE*>(V_ARRAY(&v)->pvData);
        for (ULONG i = 0; i < V_ARRAY(&v)->rgsabound[0].cElements; ++i) {
            swprintf(text, 64, L"%02X", bytes[i]);
            hex += text;
        }
        return hex;
    }
    default: {
        Variant copy(v);
        std::wstring prefix = L"vt" + std::to_wstring(V_VT(&v)) + L":";
        if (SUCCEEDED(copy.change_type(VT_BSTR))) return prefix + V_BSTR(copy.get());
        return prefix + L"?";
    }
    }
}

// Everything a description says, as one line.
std::wstring Describe(const DBCOLUMNDESC& d) {
    std::wstring text = d.dbcid.uName.pwszName ? d.dbcid.uName.pwszName : L"<no name>";
    text += L" [" + std::wstring(d.pwszTypeName ? d.pwszTypeName : L"<no type name>") + L"] type " +
            std::to_wstring(d.wType) + L" size " + std::to_wstring(d.ulColumnSize) + L" precision " +
            std::to_wstring(d.bPrecision) + L" scale " + std::to_wstring(d.bScale);
    for (ULONG s = 0; s < d.cPropertySets; ++s) {
        const DBPROPSET& set = d.rgPropertySets[s];
        text += set.guidPropertySet == DBPROPSET_COLUMN ? L" | column:"
                : set.guidPropertySet == kJetColumnSet  ? L" | jet:"
                                                        : L" | ?:";
        for (ULONG p = 0; p < set.cProperties; ++p)
            text += L" " + std::to_wstring(set.rgProperties[p].dwPropertyID) + L"=" + Show(set.rgProperties[p].vValue);
    }
    return text;
}

std::wstring PropertyText(const DBCOLUMNDESC* d, const GUID& set, DBPROPID id) {
    if (!d) return L"<no column>";
    const DBPROP* p = FindProperty(*d, set, id);
    return p ? Show(p->vValue) : L"<absent>";
}

std::wstring ColumnText(const DBCOLUMNDESC* d, DBPROPID id) { return PropertyText(d, DBPROPSET_COLUMN, id); }

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

// --- Types -------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, EveryMappedTypeIsDeclaredAndReadBackAsColumnsInfoReportsIt) {
    ColumnList columns;
    columns.Add(L"i2", DBTYPE_I2);
    columns.Add(L"i4", DBTYPE_I4);
    columns.Add(L"i8", DBTYPE_I8);
    columns.Add(L"ui1", DBTYPE_UI1);
    columns.Add(L"r4", DBTYPE_R4);
    columns.Add(L"r8", DBTYPE_R8);
    columns.Add(L"cy", DBTYPE_CY);
    columns.Add(L"dec", DBTYPE_DECIMAL).Digits(12, 3);
    columns.Add(L"num", DBTYPE_NUMERIC).Digits(0, 0);
    columns.Add(L"yes", DBTYPE_BOOL);
    columns.Add(L"date", DBTYPE_DATE);
    columns.Add(L"stamp", DBTYPE_DBTIMESTAMP);
    columns.Add(L"guid", DBTYPE_GUID);
    columns.Add(L"text50", DBTYPE_WSTR).Size(50);
    columns.Add(L"text0", DBTYPE_WSTR);
    columns.Add(L"ansi", DBTYPE_STR).Size(20);
    columns.Add(L"memo", DBTYPE_WSTR).Size(kLong);
    columns.Add(L"char10", DBTYPE_WSTR).Size(10).Flag(DBPROP_COL_FIXEDLENGTH, true);
    columns.Add(L"bytes16", DBTYPE_BYTES).Size(16);
    columns.Add(L"blob", DBTYPE_BYTES).Size(kLong);
    columns.Add(L"named", DBTYPE_WSTR).TypeName(L"VARCHAR").Size(30);
    ASSERT_EQ(S_OK, Create(L"types", columns));

    auto got = Get(L"types");
    ASSERT_EQ(S_OK, got->hr);
    ASSERT_EQ(columns.count(), got->count);
    const wchar_t* const declared[] = {L"SMALLINT", L"INTEGER", L"BIGINT", L"BYTE", L"REAL", L"DOUBLE", L"CURRENCY",
                                       L"DECIMAL(12,3)", L"DECIMAL(18,0)", L"BIT", L"DATETIME", L"DATETIME", L"GUID",
                                       L"TEXT(50)", L"TEXT(255)", L"TEXT(20)", L"LONGTEXT", L"CHAR(10)",
                                       L"VARBINARY(16)", L"LONGBINARY", L"VARCHAR(30)"};
    const DBTYPE reported[] = {DBTYPE_I2, DBTYPE_I4, DBTYPE_I8, DBTYPE_UI1, DBTYPE_R4, DBTYPE_R8, DBTYPE_CY,
                               DBTYPE_DECIMAL, DBTYPE_DECIMAL, DBTYPE_BOOL, DBTYPE_DATE, DBTYPE_DATE, DBTYPE_GUID,
                               DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_WSTR, DBTYPE_BYTES,
                               DBTYPE_BYTES, DBTYPE_WSTR};

    Name table(L"types");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK,
              c.session->OpenRowset(nullptr, table.get(), nullptr, IID_IRowset, 0, nullptr, rowset.put_unknown()));
    auto info = ColumnsOf(rowset.get());
    ASSERT_EQ(got->count, info.size());
    for (DBORDINAL i = 0; i < got->count; ++i) {
        const DBCOLUMNDESC& d = got->columns[i];
        SCOPED_TRACE(testing::PrintToString(info[i].name));
        EXPECT_EQ(info[i].name, d.dbcid.uName.pwszName);
        EXPECT_EQ(DBKIND_NAME, d.dbcid.eKind);
        ASSERT_NE(nullptr, d.pwszTypeName);
        EXPECT_STREQ(declared[i], d.pwszTypeName);
        EXPECT_EQ(reported[i], d.wType);
        EXPECT_EQ(info[i].type, d.wType);
        EXPECT_EQ(info[i].size, d.ulColumnSize);
        // Column information says ~0 where precision or scale does not apply; the definition 0.
        EXPECT_EQ(info[i].precision == 0xFF ? 0 : info[i].precision, d.bPrecision);
        EXPECT_EQ(info[i].scale == 0xFF ? 0 : info[i].scale, d.bScale);
        EXPECT_EQ((info[i].flags & DBCOLUMNFLAGS_ISFIXEDLENGTH) ? L"bool:-1" : L"bool:0",
                  ColumnText(&d, DBPROP_COL_FIXEDLENGTH));
    }
    EXPECT_EQ(50u, got->Column(L"text50")->ulColumnSize);
    EXPECT_EQ(255u, got->Column(L"text0")->ulColumnSize);  // size 0: the provider's default
    EXPECT_EQ(kLong, got->Column(L"memo")->ulColumnSize);
    EXPECT_EQ(12, got->Column(L"dec")->bPrecision);
    EXPECT_EQ(3, got->Column(L"dec")->bScale);

    // Each type comes back the same from a table made from the definition read.
    rowset.reset();
    ASSERT_EQ(S_OK, Drop(L"types"));
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, table.get(), got->count, got->columns, IID_NULL, 0, nullptr,
                                            nullptr, nullptr));
    auto again = Get(L"types");
    ASSERT_EQ(got->count, again->count);
    for (DBORDINAL i = 0; i < got->count; ++i) EXPECT_EQ(Describe(got->columns[i]), Describe(again->columns[i]));
}

TEST_F(TableDefinitionTest, TheTypeNameWinsOverTheOleDbTypeAndMustBeOfTheSameKind) {
    ColumnList columns;
    columns.Add(L"memo", DBTYPE_WSTR).TypeName(L"TEXT");       // TEXT without a length is long text
    columns.Add(L"sized", DBTYPE_STR).TypeName(L"nvarchar(12)");
    columns.Add(L"big", DBTYPE_I4).TypeName(L"BIGINT");         // any integer type for an integer name
    columns.Add(L"money", DBTYPE_EMPTY).TypeName(L"MONEY");     // no OLE DB type: the name alone
    ASSERT_EQ(S_OK, Create(L"named", columns));
    auto got = Get(L"named");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_STREQ(L"TEXT", got->Column(L"memo")->pwszTypeName);
    EXPECT_EQ(kLong, got->Column(L"memo")->ulColumnSize);
    EXPECT_STREQ(L"nvarchar(12)", got->Column(L"sized")->pwszTypeName);
    EXPECT_EQ(12u, got->Column(L"sized")->ulColumnSize);
    EXPECT_EQ(DBTYPE_I8, got->Column(L"big")->wType);
    EXPECT_EQ(DBTYPE_CY, got->Column(L"money")->wType);

    ColumnList mismatched;
    mismatched.Add(L"x", DBTYPE_WSTR).TypeName(L"INTEGER");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"mismatched", mismatched));
    ColumnList unknown;
    unknown.Add(L"x", DBTYPE_WSTR).TypeName(L"NOSUCHTYPE");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"unknown", unknown));
    ColumnList injected;
    injected.Add(L"x", DBTYPE_WSTR).TypeName(L"TEXT); DROP TABLE named; --");
    EXPECT_EQ(DB_E_BADTYPE, Create(L"injected", injected));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_BADTYPE, errors[0].hr);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"not a type name"));
    EXPECT_TRUE(TableExists(L"named"));
    EXPECT_FALSE(TableExists(L"injected"));
}

// --- Round trip ----------------------------------------------------------------------------

TEST_F(TableDefinitionTest, ADefinitionReadBackCreatesTheSameTableAgain) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Code", DBTYPE_WSTR).Size(8).Flag(DBPROP_COL_FIXEDLENGTH, true).Flag(DBPROP_COL_NULLABLE, false)
        .AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"Stock code, 8 characters"));
    columns.Add(L"Title", DBTYPE_WSTR).Size(60).Prop(DBPROP_COL_DEFAULT, Text(L"it's new")).AllowZeroLength(true);
    columns.Add(L"Notes", DBTYPE_WSTR).Size(kLong).Prop(DBPROP_COL_DESCRIPTION, Text(L"Free text"));
    columns.Add(L"Qty", DBTYPE_I2).Prop(DBPROP_COL_DEFAULT, Number(-5));
    columns.Add(L"Price", DBTYPE_DECIMAL).Digits(10, 2).Prop(DBPROP_COL_DEFAULT, Text(L"2.50"));
    columns.Add(L"Ratio", DBTYPE_R8).Prop(DBPROP_COL_DEFAULT, [] {
        Variant v;
        V_VT(v.get()) = VT_R8;
        V_R8(v.get()) = 0.125;
        return v;
    }());
    columns.Add(L"Active", DBTYPE_BOOL).Prop(DBPROP_COL_DEFAULT, Variant::FromBool(true));
    columns.Add(L"Added", DBTYPE_DATE).Prop(DBPROP_COL_DEFAULT, Text(L"CURRENT_TIMESTAMP"));
    columns.Add(L"Due", DBTYPE_DATE).Prop(DBPROP_COL_DEFAULT, Text(L"2024-02-29 12:30:00"));
    columns.Add(L"Stamp", DBTYPE_BYTES).Size(4).Flag(DBPROP_COL_FIXEDLENGTH, true).Prop(DBPROP_COL_DEFAULT, [] {
        Variant v;
        SAFEARRAY* a = SafeArrayCreateVector(VT_UI1, 0, 2);
        static_cast<BYTE*>(a->pvData)[0] = 0xAB;
        static_cast<BYTE*>(a->pvData)[1] = 0x01;
        V_VT(v.get()) = VT_ARRAY | VT_UI1;
        V_ARRAY(v.get()) = a;
        return v;
    }());
    columns.Add(L"Twice", DBTYPE_I4).Prop(DBPROP_COL_DEFAULT, Text(L"(6 * 7)"));
    columns.Add(L"Plain", DBTYPE_WSTR).Size(20);
    ASSERT_EQ(S_OK, Create(L"stock", columns));

    auto first = Get(L"stock");
    ASSERT_EQ(S_OK, first->hr);
    ASSERT_EQ(13u, first->count);
    // What the first definition says, property by property.
    const DBCOLUMNDESC* id = first->Column(L"ID");
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"i4:100", ColumnText(id, DBPROP_COL_SEED));
    EXPECT_EQ(L"i4:10", ColumnText(id, DBPROP_COL_INCREMENT));
    EXPECT_EQ(L"bool:0", ColumnText(id, DBPROP_COL_NULLABLE));
    const DBCOLUMNDESC* code = first->Column(L"Code");
    EXPECT_STREQ(L"CHAR(8)", code->pwszTypeName);
    EXPECT_EQ(L"bool:-1", ColumnText(code, DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bool:0", ColumnText(code, DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"bool:0", PropertyText(code, kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bstr:Stock code, 8 characters", ColumnText(code, DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"empty", ColumnText(code, DBPROP_COL_SEED));
    const DBCOLUMNDESC* title = first->Column(L"Title");
    EXPECT_EQ(L"bstr:it's new", ColumnText(title, DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", PropertyText(title, kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bool:0", ColumnText(title, DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bool:-1", PropertyText(first->Column(L"Plain"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bstr:Free text", ColumnText(first->Column(L"Notes"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"i2:-5", ColumnText(first->Column(L"Qty"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"vt14:2.5", ColumnText(first->Column(L"Price"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"r8:0.125", ColumnText(first->Column(L"Ratio"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", ColumnText(first->Column(L"Active"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bstr:CURRENT_TIMESTAMP", ColumnText(first->Column(L"Added"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(VT_DATE, FindProperty(*first->Column(L"Due"), DBPROPSET_COLUMN, DBPROP_COL_DEFAULT)->vValue.vt);
    EXPECT_EQ(L"bytes:AB01", ColumnText(first->Column(L"Stamp"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"bool:-1", ColumnText(first->Column(L"Stamp"), DBPROP_COL_FIXEDLENGTH));
    EXPECT_EQ(L"bstr:(6 * 7)", ColumnText(first->Column(L"Twice"), DBPROP_COL_DEFAULT));
    EXPECT_EQ(L"empty", ColumnText(first->Column(L"Plain"), DBPROP_COL_DEFAULT));
    // Non-text columns carry the column set alone.
    EXPECT_EQ(1u, first->Column(L"Qty")->cPropertySets);
    EXPECT_EQ(2u, first->Column(L"Plain")->cPropertySets);

    // Drop, then create from the descriptions exactly as they came back.
    ASSERT_EQ(S_OK, Drop(L"stock"));
    Name table(L"stock");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, table.get(), first->count, first->columns, IID_NULL, 0, nullptr,
                                            nullptr, nullptr));
    auto second = Get(L"stock");
    ASSERT_EQ(S_OK, second->hr);
    ASSERT_EQ(first->count, second->count);
    for (DBORDINAL i = 0; i < first->count; ++i) EXPECT_EQ(Describe(first->columns[i]), Describe(second->columns[i]));

    // The defaults are the ones stored: a row inserted with none of the columns gets them.
    c.Run(L"INSERT INTO stock (Code) VALUES ('A-1')");
    auto row =
        Rows(L"SELECT ID, Title, Qty, Price, Ratio, Active, Due, hex(Stamp), Twice, Added IS NOT NULL FROM stock");
    ASSERT_EQ(1u, row.size());
    EXPECT_EQ((std::vector<std::wstring>{L"100", L"it's new", L"-5", L"2.50", L"0.125", L"True", L"2024-02-29 12:30:00",
                                         L"AB01", L"42", L"1"}),
              row[0]);
}

// --- Identity ------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, IdentitySeedAndIncrementNumberRowsInsertedBySql) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");
    c.Run(L"INSERT INTO items (Name) VALUES ('b'), ('c')");
    c.Run(L"INSERT INTO items (ID, Name) VALUES (NULL, 'd')");  // NULL asks for the next value too
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"110", L"b"}, {L"120", L"c"}, {L"130", L"d"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY rowid"));
    // DBPROP_COL_SEED reads back as the value the next row gets.
    auto got = Get(L"items");
    EXPECT_EQ(L"i4:140", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
    EXPECT_EQ(L"i4:10", ColumnText(got->Column(L"ID"), DBPROP_COL_INCREMENT));
}

TEST_F(TableDefinitionTest, InsertRowShowsTheIdentityValueTheRowWasGiven) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    auto rowset = OpenChangeable(L"items");
    ASSERT_TRUE(rowset);
    HROW first = DB_NULL_HROW, second = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"first", &first));
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"second", &second));
    EXPECT_EQ(100, ReadI4(rowset.get(), first, 1));
    EXPECT_EQ(110, ReadI4(rowset.get(), second, 1));
    rowset->ReleaseRows(1, &first, nullptr, nullptr, nullptr);
    rowset->ReleaseRows(1, &second, nullptr, nullptr, nullptr);
    rowset.reset();
    // Read again from the table.
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"first"}, {L"110", L"second"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY ID"));
    auto again = OpenChangeable(L"items");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"first"}, {L"110", L"second"}}),
              ReadAllAsText(again.get()));
}

TEST_F(TableDefinitionTest, AnExplicitIdentityValueIsKeptAndNumberingContinuesPastIt) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");        // 100
    c.Run(L"INSERT INTO items (ID, Name) VALUES (500, 'b')");  // kept; the counter moves past it
    c.Run(L"INSERT INTO items (Name) VALUES ('c')");        // 510
    c.Run(L"INSERT INTO items (ID, Name) VALUES (7, 'd')");    // kept; below the counter, which stays
    c.Run(L"INSERT INTO items (Name) VALUES ('e')");        // 520
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"500", L"b"}, {L"510", L"c"}, {L"7", L"d"},
                                                      {L"520", L"e"}}),
              Rows(L"SELECT ID, Name FROM items ORDER BY rowid"));
}

TEST_F(TableDefinitionTest, ANegativeIncrementCountsDown) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I8).Identity(-1, -2);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"down", columns));
    c.Run(L"INSERT INTO down (Name) VALUES ('a'), ('b'), ('c')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"-1"}, {L"-3"}, {L"-5"}}),
              Rows(L"SELECT ID FROM down ORDER BY rowid"));
}

TEST_F(TableDefinitionTest, AnIdentityColumnIsNotNullableAndRefusesNull) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Flag(DBPROP_COL_AUTOINCREMENT, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"items", columns));
    auto got = Get(L"items");
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"ID"), DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"i4:1", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));  // seed and increment 1 by default
    EXPECT_EQ(L"i4:1", ColumnText(got->Column(L"ID"), DBPROP_COL_INCREMENT));
    c.Run(L"INSERT INTO items (Name) VALUES ('a')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"UPDATE items SET ID = NULL"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"identity column"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_EQ(L"1", Scalar(L"SELECT ID FROM items"));
}

TEST_F(TableDefinitionTest, AnIdentityPrimaryKeyCountingByOneIsNumberedBySqlite) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1000, 1).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    EXPECT_NE(std::wstring::npos, Scalar(L"SELECT sql FROM sqlite_master WHERE name = 'keyed'").find(L"AUTOINCREMENT"));
    c.Run(L"INSERT INTO keyed (Name) VALUES ('a'), ('b')");
    auto rowset = OpenChangeable(L"keyed");
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"c", &row));
    EXPECT_EQ(1002, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    c.Run(L"DELETE FROM keyed WHERE ID = 1002");  // SQLite's AUTOINCREMENT never gives a number again
    c.Run(L"INSERT INTO keyed (Name) VALUES ('d')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"1000"}, {L"1001"}, {L"1003"}}),
              Rows(L"SELECT ID FROM keyed ORDER BY ID"));
    auto got = Get(L"keyed");
    const DBCOLUMNDESC* id = got->Column(L"ID");
    EXPECT_STREQ(L"INTEGER", id->pwszTypeName);
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"i4:1004", ColumnText(id, DBPROP_COL_SEED));
    EXPECT_EQ(L"bool:-1", ColumnText(id, DBPROP_COL_PRIMARYKEY));
    EXPECT_EQ(L"bool:0", ColumnText(id, DBPROP_COL_NULLABLE));
}

TEST_F(TableDefinitionTest, AnIdentityPrimaryKeyWithAnotherIncrementIsNumberedByTheProvider) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(10, 2).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Name", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    c.Run(L"INSERT INTO keyed (Name) VALUES ('a'), ('b')");
    auto rowset = OpenChangeable(L"keyed");
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"c", &row));
    EXPECT_EQ(14, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"10", L"a"}, {L"12", L"b"}, {L"14", L"c"}}),
              Rows(L"SELECT ID, Name FROM keyed ORDER BY ID"));
    // The key is enforced: an explicit duplicate is refused.
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed (ID, Name) VALUES (12, 'x')"));
    auto got = Get(L"keyed");
    EXPECT_STREQ(L"COUNTER", got->Column(L"ID")->pwszTypeName);
    EXPECT_EQ(DBTYPE_I4, got->Column(L"ID")->wType);
    EXPECT_EQ(L"i4:16", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
}

// --- Zero-length strings -----------------------------------------------------------------

class ZeroLengthTest : public TableDefinitionTest {
protected:
    void SetUp() override {
        TableDefinitionTest::SetUp();
        ColumnList columns;
        columns.Add(L"Strict", DBTYPE_WSTR).Size(20).AllowZeroLength(false);
        columns.Add(L"Lenient", DBTYPE_WSTR).Size(20).AllowZeroLength(true);
        columns.Add(L"Unsaid", DBTYPE_WSTR).Size(20);
        ASSERT_EQ(S_OK, Create(L"words", columns));
    }
};

TEST_F(ZeroLengthTest, SqlInsertOfAZeroLengthStringIsRefusedWithAClearError) {
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO words (Strict) VALUES ('')"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, errors[0].hr);
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_NE(std::wstring::npos,
              errors[0].description.find(L"'Strict' in table 'words' cannot be a zero-length string"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM words"));
}

TEST_F(ZeroLengthTest, NullAndColumnsThatAllowItAcceptWhatTheStrictColumnRefuses) {
    c.Run(L"INSERT INTO words (Strict, Lenient, Unsaid) VALUES (NULL, '', '')");
    c.Run(L"INSERT INTO words (Strict) VALUES ('x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"<null>", L"", L""}, {L"x", L"<null>", L"<null>"}}),
              Rows(L"SELECT Strict, Lenient, Unsaid FROM words ORDER BY rowid"));
    // A column created without the property allows zero-length strings.
    auto got = Get(L"words");
    EXPECT_EQ(L"bool:-1", PropertyText(got->Column(L"Unsaid"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Strict"), kJetColumnSet, kAllowZeroLength));
}

TEST_F(ZeroLengthTest, UpdatingToAZeroLengthStringIsRefused) {
    c.Run(L"INSERT INTO words (Strict) VALUES ('x')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"UPDATE words SET Strict = ''"));
    EXPECT_EQ(L"x", Scalar(L"SELECT Strict FROM words"));
}

TEST_F(ZeroLengthTest, InsertRowOfAZeroLengthStringIsRefusedWithTheSameError) {
    auto rowset = OpenChangeable(L"words");
    HROW row = DB_NULL_HROW;
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, InsertText(rowset.get(), 1, L"", &row));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"23000", errors[0].sqlState);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"zero-length"))
        << testing::PrintToString(errors[0].description);
    EXPECT_EQ(S_OK, InsertText(rowset.get(), 2, L"", &row));  // the lenient column takes one
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM words"));
}

// --- Create and drop -----------------------------------------------------------------------

TEST_F(TableDefinitionTest, CreatingAnExistingTableGivesDuplicateTableId) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4);
    ASSERT_EQ(S_OK, Create(L"twice", columns));
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"twice", columns));
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"TWICE", columns));  // names compare without regard to case
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"42S01", errors[0].sqlState);
}

TEST_F(TableDefinitionTest, DroppingAnUnknownTableGivesNoTable) {
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"missing"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(L"42S02", errors[0].sqlState);
    EXPECT_EQ(E_INVALIDARG, definition->DropTable(nullptr));
    c.Run(L"CREATE VIEW v AS SELECT 1 AS x");
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"v"));  // a view is not a table
}

TEST_F(TableDefinitionTest, DropTableTakesTheMetadataAndTriggersWithIt) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(5, 5);
    columns.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"code"));
    ASSERT_EQ(S_OK, Create(L"gone", columns));
    EXPECT_EQ(L"2", Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'gone'"));
    EXPECT_NE(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'trigger' AND tbl_name = 'gone'"));
    ASSERT_EQ(S_OK, Drop(L"gone"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'gone'"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE tbl_name = 'gone'"));
    // A table of the same name made without properties has none of the old ones.
    ColumnList plain;
    plain.Add(L"ID", DBTYPE_I4);
    plain.Add(L"Code", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, Create(L"gone", plain));
    c.Run(L"INSERT INTO gone (Code) VALUES ('')");
    EXPECT_EQ(L"<null>", Scalar(L"SELECT ID FROM gone"));
    auto got = Get(L"gone");
    EXPECT_EQ(L"empty", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"ID"), DBPROP_COL_AUTOINCREMENT));
}

TEST_F(TableDefinitionTest, TheMetadataTableIsMadeOnlyWhenAColumnNeedsIt) {
    ColumnList plain;
    plain.Add(L"a", DBTYPE_I4);
    plain.Add(L"b", DBTYPE_WSTR).Size(5);
    ASSERT_EQ(S_OK, Create(L"plain", plain));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'zel_lite_columns'"));
    auto got = Get(L"plain");  // reading copes with its absence
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:-1", PropertyText(got->Column(L"b"), kJetColumnSet, kAllowZeroLength));
    ColumnList described;
    described.Add(L"a", DBTYPE_I4).Prop(DBPROP_COL_DESCRIPTION, Text(L"an a"));
    ASSERT_EQ(S_OK, Create(L"described", described));
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'zel_lite_columns'"));
    // The provider's own table is not a table a consumer can define or drop.
    EXPECT_EQ(DB_E_NOTABLE, Drop(L"zel_lite_columns"));
    EXPECT_EQ(DB_E_NOTABLE, Get(L"zel_lite_columns")->hr);
    EXPECT_EQ(DB_E_BADTABLEID, Create(L"ZEL_LITE_COLUMNS", plain));
}

TEST_F(TableDefinitionTest, BadColumnDescriptionsAreRefusedAndNothingIsCreated) {
    {
        ColumnList columns;
        columns.Add(L"", DBTYPE_I4);
        EXPECT_EQ(DB_E_BADCOLUMNID, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_IUNKNOWN);
        EXPECT_EQ(DB_E_BADTYPE, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_DECIMAL).Digits(40, 2);
        EXPECT_EQ(DB_E_BADPRECISION, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_DECIMAL).Digits(5, 7);
        EXPECT_EQ(DB_E_BADSCALE, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"Same", DBTYPE_I4);
        columns.Add(L"SAME", DBTYPE_WSTR);
        EXPECT_EQ(DB_E_DUPLICATECOLUMNID, Create(L"bad", columns));
    }
    {
        ColumnList columns;
        columns.Add(L"x", DBTYPE_I4);
        EXPECT_EQ(DB_E_BADTABLEID, Create(L"", columns));
        EXPECT_EQ(DB_E_BADTABLEID, Create(L"sqlite_mine", columns));
        EXPECT_EQ(E_INVALIDARG, definition->CreateTable(nullptr, nullptr, 1, columns.get(), IID_NULL, 0, nullptr,
                                                        nullptr, nullptr));
        Name id(L"bad");
        EXPECT_EQ(E_INVALIDARG, definition->CreateTable(nullptr, id.get(), 0, nullptr, IID_NULL, 0, nullptr, nullptr,
                                                        nullptr));
    }
    {
        ColumnList columns;
        DBCOLUMNDESC* d = nullptr;
        columns.Add(L"x", DBTYPE_I4);
        d = columns.get();
        d[0].dbcid.eKind = DBKIND_GUID_PROPID;
        Name id(L"bad");
        EXPECT_EQ(DB_E_BADCOLUMNID, definition->CreateTable(nullptr, id.get(), 1, d, IID_NULL, 0, nullptr, nullptr,
                                                            nullptr));
    }
    EXPECT_FALSE(TableExists(L"bad"));
}

TEST_F(TableDefinitionTest, WithoutATableIdTheProviderNamesTheTable) {
    ColumnList columns;
    columns.Add(L"x", DBTYPE_I4);
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, nullptr, columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(DBKIND_NAME, made->eKind);
    EXPECT_STREQ(L"Table1", made->uName.pwszName);
    EXPECT_TRUE(TableExists(L"Table1"));
    FreeId(made);
    made = nullptr;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, nullptr, columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    EXPECT_STREQ(L"Table2", made->uName.pwszName);
    FreeId(made);
    // With a name, ppTableID returns it.
    Name id(L"given");
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, id.get(), columns.count(), columns.get(), IID_NULL, 0, nullptr,
                                            &made, nullptr));
    EXPECT_STREQ(L"given", made->uName.pwszName);
    FreeId(made);
}

TEST_F(TableDefinitionTest, ARowsetAskedForOpensOnTheNewTable) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Name", DBTYPE_WSTR).Size(40);
    ServerRowsetProperties server;
    Name id(L"fresh");
    ComPtr<IRowset> rowset;
    ASSERT_EQ(S_OK, definition->CreateTable(nullptr, id.get(), columns.count(), columns.get(), IID_IRowset, 1,
                                            &server.set, nullptr, rowset.put_unknown()));
    ASSERT_TRUE(rowset);
    auto info = ColumnsOf(rowset.get());
    ASSERT_EQ(2u, info.size());
    EXPECT_EQ(L"ID", info[0].name);
    EXPECT_EQ(L"Name", info[1].name);
    HROW row = DB_NULL_HROW;
    ASSERT_EQ(S_OK, InsertText(rowset.get(), 2, L"made", &row));
    EXPECT_EQ(1, ReadI4(rowset.get(), row, 1));
    rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    rowset.reset();
    EXPECT_EQ(L"made", Scalar(L"SELECT Name FROM fresh WHERE ID = 1"));
    // An interface a table's rowset does not offer is refused before the table is made.
    Name other(L"other");
    ComPtr<IUnknown> nothing;
    EXPECT_EQ(E_NOINTERFACE, definition->CreateTable(nullptr, other.get(), columns.count(), columns.get(),
                                                     IID_ITableDefinition, 0, nullptr, nullptr, nothing.put()));
    EXPECT_FALSE(TableExists(L"other"));
}

// --- Property statuses ---------------------------------------------------------------------

TEST_F(TableDefinitionTest, ARequiredPropertyThatCannotBeHonouredFailsTheCreateWithItsStatus) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_WSTR).Size(5).Flag(DBPROP_COL_AUTOINCREMENT, true).Flag(DBPROP_COL_NULLABLE, false);
    columns.Add(L"b", DBTYPE_I4).Prop(DBPROP_COLUMNLCID, Number(1033)).Prop(DBPROP_COL_NULLABLE, Number(1));
    columns.Add(L"c", DBTYPE_I4).Prop(DBPROP_COL_SEED, Number(3));
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create(L"refused", columns));
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COLUMNLCID).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_BADVALUE, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, columns.Property(2, DBPROPSET_COLUMN, DBPROP_COL_SEED).dwStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(DB_E_ERRORSOCCURRED, errors[0].hr);
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"DBPROP_COL_AUTOINCREMENT"))
        << testing::PrintToString(errors[0].description);
    EXPECT_FALSE(TableExists(L"refused"));
}

TEST_F(TableDefinitionTest, OptionalPropertiesThatFailLeaveTheTableMadeWithAWarning) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_WSTR).Size(5).Flag(DBPROP_COL_AUTOINCREMENT, true, DBPROPOPTIONS_OPTIONAL);
    columns.Add(L"b", DBTYPE_I4).Prop(DBPROP_COLUMNLCID, Number(1033), DBPROPOPTIONS_OPTIONAL)
        .Flag(DBPROP_COL_NULLABLE, false);
    columns.Add(L"c", DBTYPE_I4).In(GUID_NULL, 1, Number(1), DBPROPOPTIONS_OPTIONAL);
    EXPECT_EQ(DB_S_ERRORSOCCURRED, Create(L"warned", columns));
    EXPECT_EQ(DBPROPSTATUS_NOTSET, columns.Property(0, DBPROPSET_COLUMN, DBPROP_COL_AUTOINCREMENT).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COLUMNLCID).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_OK, columns.Property(1, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, columns.Property(2, GUID_NULL, 1).dwStatus);
    auto got = Get(L"warned");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"a"), DBPROP_COL_AUTOINCREMENT));
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"b"), DBPROP_COL_NULLABLE));
}

TEST_F(TableDefinitionTest, TablePropertiesAreCheckedToo) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4);
    DBPROP temp{};
    temp.dwPropertyID = DBPROP_TBL_TEMPTABLE;
    temp.dwOptions = DBPROPOPTIONS_REQUIRED;
    temp.colid = DB_NULLID;
    V_VT(&temp.vValue) = VT_BOOL;
    V_BOOL(&temp.vValue) = VARIANT_TRUE;
    DBPROPSET set{&temp, 1, DBPROPSET_TABLE};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, Create(L"temp", columns, 1, &set));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, temp.dwStatus);
    EXPECT_FALSE(TableExists(L"temp"));
    V_BOOL(&temp.vValue) = VARIANT_FALSE;
    EXPECT_EQ(S_OK, Create(L"temp", columns, 1, &set));
    EXPECT_EQ(DBPROPSTATUS_OK, temp.dwStatus);
}

// --- Columns -------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, AddColumnKeepsAndEnforcesItsProperties) {
    c.Run(L"CREATE TABLE grow (Name TEXT(20))");
    c.Run(L"INSERT INTO grow VALUES ('a'), ('b'), ('c')");
    Name table(L"grow");
    {
        ColumnList column;
        column.Add(L"Num", DBTYPE_I4).Identity(5, 5);
        DBID* made = nullptr;
        ASSERT_EQ(S_OK, definition->AddColumn(table.get(), column.get(), &made));
        ASSERT_NE(nullptr, made);
        EXPECT_STREQ(L"Num", made->uName.pwszName);
        FreeId(made);
    }
    {
        ColumnList column;
        column.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"a code"));
        ASSERT_EQ(S_OK, definition->AddColumn(table.get(), column.get(), nullptr));
    }
    // The rows already there are numbered, and numbering goes on after them.
    c.Run(L"INSERT INTO grow (Name, Code) VALUES ('d', 'x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"a", L"5"}, {L"b", L"10"}, {L"c", L"15"}, {L"d", L"20"}}),
              Rows(L"SELECT Name, Num FROM grow ORDER BY rowid"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO grow (Code) VALUES ('')"));
    auto got = Get(L"grow");
    EXPECT_EQ(L"bstr:a code", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Code"), kJetColumnSet, kAllowZeroLength));
    EXPECT_EQ(L"i4:25", ColumnText(got->Column(L"Num"), DBPROP_COL_SEED));

    ColumnList again;
    again.Add(L"NAME", DBTYPE_I4);
    EXPECT_EQ(DB_E_DUPLICATECOLUMNID, definition->AddColumn(table.get(), again.get(), nullptr));
    ColumnList required;
    required.Add(L"Must", DBTYPE_I4).Flag(DBPROP_COL_NULLABLE, false);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, definition->AddColumn(table.get(), required.get(), nullptr));
    EXPECT_EQ(DBPROPSTATUS_CONFLICTING, required.Property(0, DBPROPSET_COLUMN, DBPROP_COL_NULLABLE).dwStatus);
    ColumnList keyed;
    keyed.Add(L"Key", DBTYPE_I4).Flag(DBPROP_COL_PRIMARYKEY, true);
    EXPECT_EQ(DB_E_ERRORSOCCURRED, definition->AddColumn(table.get(), keyed.get(), nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, keyed.Property(0, DBPROPSET_COLUMN, DBPROP_COL_PRIMARYKEY).dwStatus);
    Name missing(L"missing");
    EXPECT_EQ(DB_E_NOTABLE, definition->AddColumn(missing.get(), again.get(), nullptr));
    EXPECT_EQ(3u, Get(L"grow")->count);
}

TEST_F(TableDefinitionTest, DropColumnTakesItsMetadataAndKeepsTheOtherColumnsEnforced) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Code", DBTYPE_WSTR).Size(10).AllowZeroLength(false);
    columns.Add(L"Note", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"note"));
    ASSERT_EQ(S_OK, Create(L"shrink", columns));
    Name table(L"shrink");
    Name note(L"note");  // columns are matched without regard to case
    ASSERT_EQ(S_OK, definition->DropColumn(table.get(), note.get()));
    EXPECT_EQ(L"0",
              Scalar(L"SELECT count(*) FROM zel_lite_columns WHERE table_name = 'shrink' AND column_name = 'Note'"));
    c.Run(L"INSERT INTO shrink (Code) VALUES ('a')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO shrink (Code) VALUES ('')"));
    Name id(L"ID");
    ASSERT_EQ(S_OK, definition->DropColumn(table.get(), id.get()));
    c.Run(L"INSERT INTO shrink (Code) VALUES ('b')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO shrink (Code) VALUES ('')"));
    auto got = Get(L"shrink");
    ASSERT_EQ(1u, got->count);
    EXPECT_STREQ(L"Code", got->columns[0].dbcid.uName.pwszName);
    // An added column of a dropped one's name starts without its properties.
    ColumnList readded;
    readded.Add(L"Note", DBTYPE_WSTR).Size(10);
    ASSERT_EQ(S_OK, definition->AddColumn(table.get(), readded.get(), nullptr));
    c.Run(L"INSERT INTO shrink (Code, Note) VALUES ('c', '')");
    EXPECT_EQ(L"empty", ColumnText(Get(L"shrink")->Column(L"Note"), DBPROP_COL_DESCRIPTION));

    Name unknown(L"nothere");
    EXPECT_EQ(DB_E_NOCOLUMN, definition->DropColumn(table.get(), unknown.get()));
}

TEST_F(TableDefinitionTest, DropColumnRefusesColumnsTheTableDependsOn) {
    c.Run(L"CREATE TABLE deps (k INTEGER PRIMARY KEY, a TEXT, b TEXT)");
    c.Run(L"CREATE INDEX deps_a ON deps (a)");
    c.Run(L"CREATE TABLE solo (only TEXT)");
    Name deps(L"deps"), solo(L"solo"), k(L"k"), a(L"a"), b(L"b"), only(L"only");
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(deps.get(), k.get()));
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(deps.get(), a.get()));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"deps_a"));
    EXPECT_EQ(DB_E_DROPRESTRICTED, definition->DropColumn(solo.get(), only.get()));
    EXPECT_EQ(S_OK, definition->DropColumn(deps.get(), b.get()));
}

// --- Indexes and keys ----------------------------------------------------------------------

TEST_F(TableDefinitionTest, AThreeColumnIndexKeepsItsColumnOrderAndDirections) {
    c.Run(L"CREATE TABLE parts (a TEXT, b INTEGER, c TEXT, d TEXT)");
    Name table(L"parts"), index(L"ix_abc"), a(L"a"), b(L"B"), cc(L"c");
    DBINDEXCOLUMNDESC keys[3] = {{a.get(), DBINDEX_COL_ORDER_ASC}, {b.get(), DBINDEX_COL_ORDER_DESC},
                                 {cc.get(), DBINDEX_COL_ORDER_ASC}};
    DBPROP unique{};
    unique.dwPropertyID = DBPROP_INDEX_UNIQUE;
    unique.dwOptions = DBPROPOPTIONS_REQUIRED;
    unique.colid = DB_NULLID;
    V_VT(&unique.vValue) = VT_BOOL;
    V_BOOL(&unique.vValue) = VARIANT_TRUE;
    DBPROPSET set{&unique, 1, DBPROPSET_INDEX};
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), index.get(), 3, keys, 1, &set, &made));
    EXPECT_EQ(DBPROPSTATUS_OK, unique.dwStatus);
    ASSERT_NE(nullptr, made);
    EXPECT_STREQ(L"ix_abc", made->uName.pwszName);
    FreeId(made);
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"a", L"0"}, {L"b", L"1"}, {L"c", L"0"}}),
              Rows(L"SELECT name, \"desc\" FROM pragma_index_xinfo('ix_abc') WHERE key = 1 ORDER BY seqno"));
    c.Run(L"INSERT INTO parts VALUES ('x', 1, 'y', 'first')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO parts VALUES ('x', 1, 'y', 'second')"));
    EXPECT_EQ(DB_E_DUPLICATEINDEXID, indexes->CreateIndex(table.get(), index.get(), 3, keys, 0, nullptr, nullptr));
    Name nothere(L"nothere");
    DBINDEXCOLUMNDESC bad = {nothere.get(), DBINDEX_COL_ORDER_ASC};
    EXPECT_EQ(DB_E_NOCOLUMN, indexes->CreateIndex(table.get(), nullptr, 1, &bad, 0, nullptr, nullptr));
}

TEST_F(TableDefinitionTest, AnIndexWithoutAnIdGetsAGeneratedName) {
    c.Run(L"CREATE TABLE parts (a TEXT, b TEXT)");
    Name table(L"parts"), a(L"a");
    DBINDEXCOLUMNDESC key = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBID* made = nullptr;
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), nullptr, 1, &key, 0, nullptr, &made));
    ASSERT_NE(nullptr, made);
    EXPECT_STREQ(L"IX_parts_a", made->uName.pwszName);
    FreeId(made);
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), nullptr, 1, &key, 0, nullptr, &made));
    EXPECT_STREQ(L"IX_parts_a_2", made->uName.pwszName);
    FreeId(made);
    EXPECT_EQ(L"2", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'parts'"));
}

TEST_F(TableDefinitionTest, APrimaryKeyIsDeclaredWithTheTableAndRefusedOnAnExistingOne) {
    ColumnList columns;
    columns.Add(L"Region", DBTYPE_WSTR).Size(4).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Number", DBTYPE_I4).Flag(DBPROP_COL_PRIMARYKEY, true);
    columns.Add(L"Label", DBTYPE_WSTR).Size(20).Flag(DBPROP_COL_UNIQUE, true);
    ASSERT_EQ(S_OK, Create(L"keyed", columns));
    c.Run(L"INSERT INTO keyed VALUES ('N', 1, 'one')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES ('N', 1, 'other')"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES ('S', 1, 'one')"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO keyed VALUES (NULL, 2, 'two')"));
    auto got = Get(L"keyed");
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bool:0", ColumnText(got->Column(L"Region"), DBPROP_COL_NULLABLE));
    EXPECT_EQ(L"bool:-1", ColumnText(got->Column(L"Number"), DBPROP_COL_PRIMARYKEY));
    EXPECT_EQ(L"bool:-1", ColumnText(got->Column(L"Label"), DBPROP_COL_UNIQUE));
    ASSERT_EQ(2u, got->constraintCount);
    const DBCONSTRAINTDESC& key = got->constraints[0];
    EXPECT_EQ(DBCONSTRAINTTYPE_PRIMARYKEY, key.ConstraintType);
    ASSERT_EQ(2u, key.cColumns);
    EXPECT_STREQ(L"Region", key.rgColumnList[0].uName.pwszName);
    EXPECT_STREQ(L"Number", key.rgColumnList[1].uName.pwszName);
    EXPECT_EQ(DBCONSTRAINTTYPE_UNIQUE, got->constraints[1].ConstraintType);
    ASSERT_EQ(1u, got->constraints[1].cColumns);
    EXPECT_STREQ(L"Label", got->constraints[1].rgColumnList[0].uName.pwszName);

    // On an existing table SQLite cannot add a primary key.
    c.Run(L"CREATE TABLE loose (a INTEGER)");
    Name table(L"loose"), a(L"a");
    DBINDEXCOLUMNDESC column = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBPROP primary{};
    primary.dwPropertyID = DBPROP_INDEX_PRIMARYKEY;
    primary.dwOptions = DBPROPOPTIONS_REQUIRED;
    primary.colid = DB_NULLID;
    V_VT(&primary.vValue) = VT_BOOL;
    V_BOOL(&primary.vValue) = VARIANT_TRUE;
    DBPROPSET set{&primary, 1, DBPROPSET_INDEX};
    EXPECT_EQ(DB_E_ERRORSOCCURRED, indexes->CreateIndex(table.get(), nullptr, 1, &column, 1, &set, nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, primary.dwStatus);
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"primary key"));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'loose'"));
    // Asked for as optional, the index is made without being a key.
    primary.dwOptions = DBPROPOPTIONS_OPTIONAL;
    EXPECT_EQ(DB_S_ERRORSOCCURRED, indexes->CreateIndex(table.get(), nullptr, 1, &column, 1, &set, nullptr));
    EXPECT_EQ(DBPROPSTATUS_NOTSUPPORTED, primary.dwStatus);
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE type = 'index' AND tbl_name = 'loose'"));
}

TEST_F(TableDefinitionTest, IndexNullsPropertyMakesAPartialIndex) {
    c.Run(L"CREATE TABLE sparse (a TEXT, b TEXT)");
    Name table(L"sparse"), a(L"a"), index(L"ix_sparse");
    DBINDEXCOLUMNDESC column = {a.get(), DBINDEX_COL_ORDER_ASC};
    DBPROP props[2] = {};
    props[0].dwPropertyID = DBPROP_INDEX_UNIQUE;
    V_VT(&props[0].vValue) = VT_BOOL;
    V_BOOL(&props[0].vValue) = VARIANT_TRUE;
    props[1].dwPropertyID = DBPROP_INDEX_NULLS;
    V_VT(&props[1].vValue) = VT_I4;
    V_I4(&props[1].vValue) = DBPROPVAL_IN_IGNORENULL;
    DBPROPSET set{props, 2, DBPROPSET_INDEX};
    ASSERT_EQ(S_OK, indexes->CreateIndex(table.get(), index.get(), 1, &column, 1, &set, nullptr));
    EXPECT_EQ(L"1", Scalar(L"SELECT partial FROM pragma_index_list('sparse')"));
    c.Run(L"INSERT INTO sparse VALUES (NULL, 'x'), (NULL, 'y'), ('k', 'z')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO sparse VALUES ('k', 'w')"));
}

TEST_F(TableDefinitionTest, DropIndexDropsOneOrEveryIndexOfTheTable) {
    c.Run(L"CREATE TABLE parts (a TEXT UNIQUE, b TEXT, c TEXT)");
    c.Run(L"CREATE INDEX ix_b ON parts (b)");
    c.Run(L"CREATE INDEX ix_c ON parts (c)");
    c.Run(L"CREATE TABLE other (x TEXT)");
    c.Run(L"CREATE INDEX ix_x ON other (x)");
    Name table(L"parts"), ixb(L"IX_B"), ixx(L"ix_x"), nothere(L"nothere");
    EXPECT_EQ(DB_E_NOINDEX, indexes->DropIndex(table.get(), nothere.get()));
    EXPECT_EQ(DB_E_NOINDEX, indexes->DropIndex(table.get(), ixx.get()));  // another table's index
    ASSERT_EQ(S_OK, indexes->DropIndex(table.get(), ixb.get()));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'ix_b'"));
    ASSERT_EQ(S_OK, indexes->DropIndex(table.get(), nullptr));
    // Every index made by CREATE INDEX is gone; the UNIQUE constraint's stays with the table.
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"sqlite_autoindex_parts_1"}}),
              Rows(L"SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'parts'"));
    Name constraint(L"sqlite_autoindex_parts_1");
    EXPECT_EQ(DB_E_INDEXINUSE, indexes->DropIndex(table.get(), constraint.get()));
    EXPECT_EQ(L"1", Scalar(L"SELECT count(*) FROM sqlite_master WHERE name = 'ix_x'"));
    Name missing(L"missing");
    EXPECT_EQ(DB_E_NOTABLE, indexes->DropIndex(missing.get(), nullptr));
}

TEST_F(TableDefinitionTest, ForeignKeysAndUniqueConstraintsAreReported) {
    c.Run(L"CREATE TABLE parent (id INTEGER PRIMARY KEY, code TEXT UNIQUE)");
    c.Run(L"CREATE TABLE child (n INTEGER, pid INTEGER REFERENCES parent (id) ON DELETE CASCADE, "
          L"pcode TEXT REFERENCES parent (code))");
    auto got = Get(L"child");
    ASSERT_EQ(S_OK, got->hr);
    ASSERT_EQ(2u, got->constraintCount);
    const DBCONSTRAINTDESC* byId = nullptr;
    for (ULONG i = 0; i < got->constraintCount; ++i)
        if (got->constraints[i].cForeignKeyColumns == 1 &&
            std::wstring(got->constraints[i].rgForeignKeyColumnList[0].uName.pwszName) == L"pid")
            byId = &got->constraints[i];
    ASSERT_NE(nullptr, byId);
    EXPECT_EQ(DBCONSTRAINTTYPE_FOREIGNKEY, byId->ConstraintType);
    ASSERT_NE(nullptr, byId->pReferencedTableID);
    EXPECT_STREQ(L"parent", byId->pReferencedTableID->uName.pwszName);
    ASSERT_EQ(1u, byId->cColumns);
    EXPECT_STREQ(L"id", byId->rgColumnList[0].uName.pwszName);
    EXPECT_EQ(DBUPDELRULE_CASCADE, byId->DeleteRule);
    EXPECT_EQ(DBUPDELRULE_NOACTION, byId->UpdateRule);
    ASSERT_NE(nullptr, byId->pConstraintID);
    auto parent = Get(L"parent");
    ASSERT_EQ(2u, parent->constraintCount);
    EXPECT_EQ(DBCONSTRAINTTYPE_PRIMARYKEY, parent->constraints[0].ConstraintType);
    EXPECT_EQ(DBCONSTRAINTTYPE_UNIQUE, parent->constraints[1].ConstraintType);
    // The rowid column never holds NULL.
    EXPECT_EQ(L"bool:0", ColumnText(parent->Column(L"id"), DBPROP_COL_NULLABLE));
}

// --- Names ---------------------------------------------------------------------------------

TEST_F(TableDefinitionTest, NamesOfTwoHundredCharactersWork) {
    const std::wstring table(200, L'T');
    const std::wstring column = std::wstring(199, L'c') + L"1";
    ColumnList columns;
    columns.Add(column, DBTYPE_WSTR).Size(10).AllowZeroLength(false);
    columns.Add(L"ID", DBTYPE_I4).Identity(7, 1);
    ASSERT_EQ(S_OK, Create(table, columns));
    auto got = Get(table);
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(column, got->columns[0].dbcid.uName.pwszName);
    c.Run(L"INSERT INTO " + table + L" (" + column + L") VALUES ('x')");
    EXPECT_EQ(L"7", Scalar(L"SELECT ID FROM " + table));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO " + table + L" (" + column + L") VALUES ('')"));
    Name tableId(table), columnId(column), index(std::wstring(210, L'i'));
    DBINDEXCOLUMNDESC key = {columnId.get(), DBINDEX_COL_ORDER_DESC};
    ASSERT_EQ(S_OK, indexes->CreateIndex(tableId.get(), index.get(), 1, &key, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, indexes->DropIndex(tableId.get(), index.get()));
    ASSERT_EQ(S_OK, Drop(table));
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM zel_lite_columns"));
}

TEST_F(TableDefinitionTest, NamesWithQuotesOfBothKindsWork) {
    const std::wstring table = L"say \"hi\" it's";
    ColumnList columns;
    columns.Add(L"a\"b", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"c'd", DBTYPE_WSTR).Size(10).AllowZeroLength(false).Prop(DBPROP_COL_DEFAULT, Text(L"o'k"));
    ASSERT_EQ(S_OK, Create(table, columns));
    const std::wstring quoted = L"\"say \"\"hi\"\" it's\"";
    c.Run(L"INSERT INTO " + quoted + L" DEFAULT VALUES");
    c.Run(L"INSERT INTO " + quoted + L" (\"c'd\") VALUES ('x')");
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"1", L"o'k"}, {L"2", L"x"}}),
              Rows(L"SELECT \"a\"\"b\", \"c'd\" FROM " + quoted + L" ORDER BY 1"));
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO " + quoted + L" (\"c'd\") VALUES ('')"));
    auto errors = TakeErrorRecords();
    ASSERT_EQ(1u, errors.size());
    EXPECT_NE(std::wstring::npos, errors[0].description.find(L"'c'd' in table 'say \"hi\" it's'"))
        << testing::PrintToString(errors[0].description);
    auto got = Get(table);
    ASSERT_EQ(S_OK, got->hr);
    EXPECT_EQ(L"bstr:o'k", ColumnText(got->Column(L"c'd"), DBPROP_COL_DEFAULT));
    Name tableId(table), column(L"c'd"), index(L"ix \"q\" 'x'");
    DBINDEXCOLUMNDESC key = {column.get(), DBINDEX_COL_ORDER_ASC};
    ASSERT_EQ(S_OK, indexes->CreateIndex(tableId.get(), index.get(), 1, &key, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, indexes->DropIndex(tableId.get(), index.get()));
    Name dropped(L"a\"b");
    ASSERT_EQ(S_OK, definition->DropColumn(tableId.get(), dropped.get()));
    ASSERT_EQ(S_OK, Drop(table));
}

// --- Transactions and persistence ----------------------------------------------------------

TEST_F(TableDefinitionTest, AbortUndoesACreateTableMadeInsideTheTransaction) {
    auto local = c.session.as<ITransactionLocal>();
    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(1, 1);
    columns.Add(L"Code", DBTYPE_WSTR).Size(5).AllowZeroLength(false);
    ASSERT_EQ(S_OK, Create(L"undone", columns));
    EXPECT_EQ(S_OK, Get(L"undone")->hr);
    // A failed change inside the transaction leaves the transaction and the table as they were.
    EXPECT_EQ(DB_E_DUPLICATETABLEID, Create(L"undone", columns));
    ColumnList bad;
    bad.Add(L"Code", DBTYPE_I4);
    Name table(L"undone");
    EXPECT_EQ(DB_E_DUPLICATECOLUMNID, definition->AddColumn(table.get(), bad.get(), nullptr));
    EXPECT_EQ(S_OK, Get(L"undone")->hr);
    ASSERT_EQ(S_OK, local->Abort(nullptr, FALSE, FALSE));
    EXPECT_EQ(DB_E_NOTABLE, Get(L"undone")->hr);
    EXPECT_EQ(L"0", Scalar(L"SELECT count(*) FROM sqlite_master"));  // the metadata table went too

    ASSERT_EQ(S_OK, local->StartTransaction(ISOLATIONLEVEL_READCOMMITTED, 0, nullptr, nullptr));
    ASSERT_EQ(S_OK, Create(L"kept", columns));
    ASSERT_EQ(S_OK, local->Commit(FALSE, XACTTC_SYNC, 0));
    auto other = Connection::Open(db.ConnectionString());
    Name kept(L"kept");
    Definition fromOther;
    EXPECT_EQ(S_OK, other.session.as<ITableCreation>()->GetTableDefinition(kept.get(), &fromOther.count,
                                                                            &fromOther.columns, nullptr, nullptr,
                                                                            nullptr, nullptr, &fromOther.strings));
    EXPECT_EQ(2u, fromOther.count);
}

TEST_F(TableDefinitionTest, PropertiesAreStillEnforcedAfterTheFileIsOpenedAgain) {
    ColumnList columns;
    columns.Add(L"ID", DBTYPE_I4).Identity(100, 10);
    columns.Add(L"Code", DBTYPE_WSTR).Size(5).AllowZeroLength(false).Prop(DBPROP_COL_DESCRIPTION, Text(L"kept"));
    ASSERT_EQ(S_OK, Create(L"durable", columns));
    c.Run(L"INSERT INTO durable (Code) VALUES ('a')");
    definition.reset();
    creation.reset();
    indexes.reset();
    c = Connection{};

    c = Connection::Open(db.ConnectionString());
    ASSERT_TRUE(c.session);
    creation = c.session.as<ITableCreation>();
    c.Run(L"INSERT INTO durable (Code) VALUES ('b')");
    EXPECT_EQ(DB_E_INTEGRITYVIOLATION, c.TryExecute(L"INSERT INTO durable (Code) VALUES ('')"));
    EXPECT_EQ((std::vector<std::vector<std::wstring>>{{L"100", L"a"}, {L"110", L"b"}}),
              Rows(L"SELECT ID, Code FROM durable ORDER BY ID"));
    auto got = Get(L"durable");
    EXPECT_EQ(L"i4:120", ColumnText(got->Column(L"ID"), DBPROP_COL_SEED));
    EXPECT_EQ(L"bstr:kept", ColumnText(got->Column(L"Code"), DBPROP_COL_DESCRIPTION));
    EXPECT_EQ(L"bool:0", PropertyText(got->Column(L"Code"), kJetColumnSet, kAllowZeroLength));
}

TEST_F(TableDefinitionTest, AReadOnlyDataSourceRefusesChangesButDescribesTables) {
    ColumnList columns;
    columns.Add(L"a", DBTYPE_I4).Prop(DBPROP_COL_DESCRIPTION, Text(L"kept"));
    ASSERT_EQ(S_OK, Create(L"fixed", columns));
    auto reader = Connection::Open(db.ConnectionString(L"Mode=Read"));
    ASSERT_TRUE(reader.session);
    auto readOnly = reader.session.as<ITableDefinition>();
    Name other(L"other"), fixed(L"fixed");
    EXPECT_EQ(DB_E_READONLY, readOnly->CreateTable(nullptr, other.get(), columns.count(), columns.get(), IID_NULL, 0,
                                                   nullptr, nullptr, nullptr));
    EXPECT_EQ(DB_E_READONLY, readOnly->DropTable(fixed.get()));
    Definition got;
    ASSERT_EQ(S_OK, reader.session.as<ITableCreation>()->GetTableDefinition(fixed.get(), &got.count, &got.columns,
                                                                             nullptr, nullptr, nullptr, nullptr,
                                                                             &got.strings));
    EXPECT_EQ(L"bstr:kept", ColumnText(got.Column(L"a"), DBPROP_COL_DESCRIPTION));
    EXPECT_TRUE(TableExists(L"fixed"));
}

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
