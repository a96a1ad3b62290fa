#include "provider/ddl/TableDefinitionOutput.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "common/OleDbMemory.h"
#include "provider/ddl/DefaultValue.h"
#include "provider/text/Utf.h"

namespace zel::provider {

const GUID DBPROPSET_JETOLEDB_COLUMN = {0x820BF922, 0x6AC8, 0x11D1, {0x9F, 0x02, 0x00, 0xC0, 0x4F, 0xC2, 0xC2, 0xE0}};

namespace {

// Every array handed out is non-null, even an empty one.
template <typename T>
T* Allocate(size_t count) {
    return AllocateZeroed<T>(std::max<size_t>(count, 1));
}

// The string buffer is made last: every name is recorded with the place its pointer goes, and
// the pointers are set once the buffer exists (the structures they live in never move).
class StringPool {
public:
    explicit StringPool(bool wanted) : m_wanted(wanted) {}
    void Add(OLECHAR** target, const std::wstring& text) {
        *target = nullptr;
        if (!m_wanted) return;
        m_places.emplace_back(target, m_text.size());
        m_text.append(text);
        m_text.push_back(L'\0');
    }
    OLECHAR* Finish() {
        if (!m_wanted) return nullptr;
        CoTaskMem<OLECHAR> buffer(Allocate<OLECHAR>(m_text.size()));
        if (!m_text.empty()) memcpy(buffer.get(), m_text.data(), m_text.size() * sizeof(OLECHAR));
        for (auto& [target, offset] : m_places) *target = buffer.get() + offset;
        return buffer.release();
    }

private:
    bool m_wanted;
    std::wstring m_text;
    std::vector<std::pair<OLECHAR**, size_t>> m_places;
};

void ClearConstraintDesc(DBCONSTRAINTDESC& desc) noexcept {
    CoTaskMemFree(desc.pConstraintID);
    CoTaskMemFree(desc.rgColumnList);
    CoTaskMemFree(desc.pReferencedTableID);
    CoTaskMemFree(desc.rgForeignKeyColumnList);
    desc = DBCONSTRAINTDESC{};
}

using ConstraintDescs = CoTaskMemArray<DBCONSTRAINTDESC, &ClearConstraintDesc>;

Variant Number(std::int64_t value) {
    Variant v;
    if (value >= LONG_MIN && value <= LONG_MAX) {
        V_VT(v.get()) = VT_I4;
        V_I4(v.get()) = static_cast<LONG>(value);
    } else {
        V_VT(v.get()) = VT_I8;
        V_I8(v.get()) = value;
    }
    return v;
}

struct Property {
    DBPROPID id;
    Variant value;
};

void FillSet(DBPROPSET& set, const GUID& guid, std::vector<Property>& properties) {
    set.guidPropertySet = guid;
    set.rgProperties = Allocate<DBPROP>(properties.size());
    set.cProperties = static_cast<ULONG>(properties.size());
    for (size_t i = 0; i < properties.size(); ++i) {
        DBPROP& prop = set.rgProperties[i];
        prop.dwPropertyID = properties[i].id;
        prop.dwOptions = DBPROPOPTIONS_REQUIRED;
        prop.dwStatus = DBPROPSTATUS_OK;
        prop.colid = DB_NULLID;
        properties[i].value.detach(&prop.vValue);
    }
}

void FillColumn(DBCOLUMNDESC& desc, const ColumnDefinition& c, StringPool& strings) {
    desc.dbcid.eKind = DBKIND_NAME;
    strings.Add(&desc.dbcid.uName.pwszName, c.name);
    if (!c.declaredType.empty()) strings.Add(&desc.pwszTypeName, c.declaredType);
    desc.wType = c.type.type;
    desc.ulColumnSize = c.type.size;
    // Column descriptions carry 0 where precision or scale does not apply (column information
    // says ~0 there), so that a definition written out shows only what means something.
    desc.bPrecision = c.type.precision == 0xFF ? 0 : c.type.precision;
    desc.bScale = c.type.scale == 0xFF ? 0 : c.type.scale;

    const bool identity = c.identity != Identity::None;
    std::vector<Property> column;
    column.push_back({DBPROP_COL_AUTOINCREMENT, Variant::FromBool(identity)});
    column.push_back({DBPROP_COL_SEED, identity ? Number(c.seed) : Variant()});
    column.push_back({DBPROP_COL_INCREMENT, identity ? Number(c.increment) : Variant()});
    column.push_back({DBPROP_COL_NULLABLE, Variant::FromBool(c.nullable)});
    column.push_back({DBPROP_COL_FIXEDLENGTH, Variant::FromBool(c.FixedLength())});
    column.push_back({DBPROP_COL_DEFAULT, DefaultToVariant(c.defaultSql, c.type)});
    column.push_back({DBPROP_COL_DESCRIPTION, c.description ? Variant(*c.description) : Variant()});
    column.push_back({DBPROP_COL_PRIMARYKEY, Variant::FromBool(c.primaryKey)});
    column.push_back({DBPROP_COL_UNIQUE, Variant::FromBool(c.unique)});
    std::vector<Property> jet;
    if (c.IsText()) jet.push_back({DBPROP_JETOLEDB_COL_ALLOWZEROLENGTH, Variant::FromBool(c.AllowsZeroLength())});

    const ULONG sets = jet.empty() ? 1 : 2;
    desc.rgPropertySets = Allocate<DBPROPSET>(sets);
    desc.cPropertySets = sets;
    FillSet(desc.rgPropertySets[0], DBPROPSET_COLUMN, column);
    if (sets == 2) FillSet(desc.rgPropertySets[1], DBPROPSET_JETOLEDB_COLUMN, jet);
}

DBID* NameIds(const std::vector<std::wstring>& names, StringPool& strings) {
    DBID* ids = Allocate<DBID>(names.size());
    for (size_t i = 0; i < names.size(); ++i) {
        ids[i].eKind = DBKIND_NAME;
        strings.Add(&ids[i].uName.pwszName, names[i]);
    }
    return ids;
}

void FillConstraint(DBCONSTRAINTDESC& desc, const TableConstraint& c, StringPool& strings) {
    desc.ConstraintType = c.type;
    desc.pConstraintID = NameIds({c.name}, strings);
    desc.cColumns = c.columns.size();
    desc.rgColumnList = NameIds(c.columns, strings);
    if (c.type == DBCONSTRAINTTYPE_FOREIGNKEY) {
        desc.pReferencedTableID = NameIds({c.referencedTable}, strings);
        desc.cForeignKeyColumns = c.foreignKeyColumns.size();
        desc.rgForeignKeyColumnList = NameIds(c.foreignKeyColumns, strings);
    }
    desc.UpdateRule = c.updateRule;
    desc.DeleteRule = c.deleteRule;
    desc.MatchType = c.matchType;
}

}  // namespace

void WriteTableDefinition(const std::vector<ColumnDefinition>& columns, const std::vector<TableConstraint>& constraints,
                          const TableDefinitionOut& out) {
    StringPool strings(out.strings != nullptr);
    const bool wantColumns = out.columnCount && out.columns;
    const bool wantConstraints = out.constraintCount && out.constraints;
    ColumnDescs descs(Allocate<DBCOLUMNDESC>(wantColumns ? columns.size() : 0), wantColumns ? columns.size() : 0);
    if (wantColumns)
        for (size_t i = 0; i < columns.size(); ++i) FillColumn(descs[i], columns[i], strings);
    ConstraintDescs keys(Allocate<DBCONSTRAINTDESC>(wantConstraints ? constraints.size() : 0),
                         wantConstraints ? constraints.size() : 0);
    if (wantConstraints)
        for (size_t i = 0; i < constraints.size(); ++i) FillConstraint(keys[i], constraints[i], strings);
    OLECHAR* buffer = strings.Finish();  // the last step that can fail

    if (out.strings) *out.strings = buffer;
    if (wantColumns) {
        *out.columnCount = columns.size();
        *out.columns = descs.release();
    }
    if (wantConstraints) {
        *out.constraintCount = static_cast<ULONG>(constraints.size());
        *out.constraints = constraints.empty() ? nullptr : keys.release();
    }
}

}  // namespace zel::provider
