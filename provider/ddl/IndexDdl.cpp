#include "provider/ddl/IndexDdl.h"

#include <oledberr.h>

#include <vector>

#include "provider/ddl/NameIds.h"
#include "provider/errors/Errors.h"
#include "provider/sqlite/Query.h"
#include "provider/sqlite/TableCatalog.h"
#include "provider/text/SqlText.h"
#include "provider/text/Utf.h"

namespace zel::provider {

namespace {

struct IndexOptions {
    bool unique = false;
    LONG nulls = DBPROPVAL_IN_ALLOWNULL;
    bool requiredFailed = false;
    bool optionalFailed = false;
};

bool IsBool(const VARIANT& v) { return V_VT(&v) == VT_BOOL; }
bool IsTrue(const VARIANT& v) { return V_VT(&v) == VT_BOOL && V_BOOL(&v) != 0; }

// The status of one DBPROPSET_INDEX property; `options` takes what is honoured.
DBPROPSTATUS ReadIndexProperty(const DBPROP& prop, IndexOptions& options) {
    const VARIANT& v = prop.vValue;
    if (V_VT(&v) == VT_EMPTY) return DBPROPSTATUS_OK;  // the default, which SQLite has
    switch (prop.dwPropertyID) {
    case DBPROP_INDEX_UNIQUE:
        if (!IsBool(v)) return DBPROPSTATUS_BADVALUE;
        options.unique = IsTrue(v);
        return DBPROPSTATUS_OK;
    case DBPROP_INDEX_NULLS: {
        if (V_VT(&v) != VT_I4 && V_VT(&v) != VT_I2) return DBPROPSTATUS_BADVALUE;
        LONG nulls = V_VT(&v) == VT_I4 ? V_I4(&v) : V_I2(&v);
        if (nulls == DBPROPVAL_IN_DISALLOWNULL) return DBPROPSTATUS_NOTSUPPORTED;
        if (nulls != DBPROPVAL_IN_ALLOWNULL && nulls != DBPROPVAL_IN_IGNORENULL && nulls != DBPROPVAL_IN_IGNOREANYNULL)
            return DBPROPSTATUS_BADVALUE;
        options.nulls = nulls;
        return DBPROPSTATUS_OK;
    }
    case DBPROP_INDEX_TYPE:
        if (V_VT(&v) != VT_I4) return DBPROPSTATUS_BADVALUE;
        return V_I4(&v) == DBPROPVAL_IT_BTREE ? DBPROPSTATUS_OK : DBPROPSTATUS_NOTSUPPORTED;
    case DBPROP_INDEX_PRIMARYKEY:
    case DBPROP_INDEX_CLUSTERED:
    case DBPROP_INDEX_TEMPINDEX:
    case DBPROP_INDEX_SORTBOOKMARKS:
        if (!IsBool(v)) return DBPROPSTATUS_BADVALUE;
        return IsTrue(v) ? DBPROPSTATUS_NOTSUPPORTED : DBPROPSTATUS_OK;
    case DBPROP_INDEX_AUTOUPDATE:
        if (!IsBool(v)) return DBPROPSTATUS_BADVALUE;
        return IsTrue(v) ? DBPROPSTATUS_OK : DBPROPSTATUS_NOTSUPPORTED;
    default: return DBPROPSTATUS_NOTSUPPORTED;
    }
}

IndexOptions ReadIndexProperties(ULONG setCount, DBPROPSET sets[], std::wstring& firstFailure) {
    IndexOptions options;
    for (ULONG s = 0; s < setCount; ++s) {
        for (ULONG p = 0; p < sets[s].cProperties; ++p) {
            DBPROP& prop = sets[s].rgProperties[p];
            DBPROPSTATUS status;
            if (prop.dwOptions != DBPROPOPTIONS_REQUIRED && prop.dwOptions != DBPROPOPTIONS_OPTIONAL)
                status = DBPROPSTATUS_BADOPTION;
            else if (sets[s].guidPropertySet != DBPROPSET_INDEX)
                status = DBPROPSTATUS_NOTSUPPORTED;
            else
                status = ReadIndexProperty(prop, options);
            prop.dwStatus = status;
            if (status == DBPROPSTATUS_OK) continue;
            (prop.dwOptions == DBPROPOPTIONS_OPTIONAL ? options.optionalFailed : options.requiredFailed) = true;
            if (firstFailure.empty()) {
                firstFailure =
                    prop.dwPropertyID == DBPROP_INDEX_PRIMARYKEY && sets[s].guidPropertySet == DBPROPSET_INDEX
                        ? L"SQLite cannot add a primary key to an existing table; declare the key when "
                          L"the table is created (DBPROP_COL_PRIMARYKEY)."
                        : L"Index property " + std::to_wstring(prop.dwPropertyID) + L" cannot be honoured (status " +
                              std::to_wstring(status) + L").";
            }
        }
    }
    return options;
}

std::wstring StoredColumnName(const std::vector<StoredColumn>& columns, const std::wstring& name) {
    for (const auto& c : columns)
        if (EqualsNoCase(c.name, name)) return c.name;
    return {};
}

}  // namespace

CreatedIndex CreateIndexOn(Database& database, const std::wstring& table, const std::optional<std::wstring>& name,
                           DBORDINAL columnCount, const DBINDEXCOLUMNDESC columns[], ULONG setCount, DBPROPSET sets[]) {
    // Every property's status is written first, whatever fails after.
    std::wstring failure;
    IndexOptions options = ReadIndexProperties(setCount, sets, failure);
    const std::vector<StoredColumn> stored = ReadStoredColumns(database, table);
    std::vector<std::wstring> keyNames;
    std::wstring keyList;
    for (DBORDINAL i = 0; i < columnCount; ++i) {
        const DBINDEXCOLUMNDESC& c = columns[i];
        if (c.eIndexColOrder != DBINDEX_COL_ORDER_ASC && c.eIndexColOrder != DBINDEX_COL_ORDER_DESC)
            Fail(E_INVALIDARG, L"An index column's order is neither DBINDEX_COL_ORDER_ASC nor DBINDEX_COL_ORDER_DESC.");
        std::optional<std::wstring> given = NameOf(c.pColumnID);
        std::wstring column = given ? StoredColumnName(stored, *given) : std::wstring();
        if (column.empty())
            Fail(DB_E_NOCOLUMN,
                 L"The table '" + table + L"' has no column " + (given ? L"'" + *given + L"'" : L"with that id") + L".",
                 L"42S22");
        keyNames.push_back(column);
        keyList += (keyList.empty() ? L"" : L", ") + QuoteName(column) +
                   (c.eIndexColOrder == DBINDEX_COL_ORDER_DESC ? L" DESC" : L"");
    }

    if (options.requiredFailed) Fail(DB_E_ERRORSOCCURRED, failure);

    CreatedIndex created;
    if (name) {
        if (SchemaNameExists(database, *name))
            Fail(DB_E_DUPLICATEINDEXID, L"The name '" + *name + L"' is already used by an index or a table.", L"42S11");
        created.name = *name;
    } else {
        std::wstring base = L"IX_" + table;
        for (const auto& k : keyNames) base += L"_" + k;
        created.name = base;
        for (int n = 2; SchemaNameExists(database, created.name); ++n) created.name = base + L"_" + std::to_wstring(n);
    }

    std::wstring sql = std::wstring(L"CREATE ") + (options.unique ? L"UNIQUE " : L"") + L"INDEX " +
                       QuoteName(created.name) + L" ON " + QuoteName(table) + L" (" + keyList + L")";
    if (options.nulls != DBPROPVAL_IN_ALLOWNULL) {
        const wchar_t* joint = options.nulls == DBPROPVAL_IN_IGNOREANYNULL ? L" AND " : L" OR ";
        std::wstring condition;
        for (const auto& k : keyNames) condition += (condition.empty() ? L"" : joint) + QuoteName(k) + L" IS NOT NULL";
        sql += L" WHERE " + condition;
    }
    Query(database, sql).Run();
    if (options.optionalFailed) created.result = DB_S_ERRORSOCCURRED;
    return created;
}

void DropIndexOf(Database& database, const std::wstring& table, const std::optional<std::wstring>& name) {
    std::vector<std::wstring> names;
    if (name) {
        std::optional<IndexOwner> owner = FindIndex(database, *name);
        if (!owner || !EqualsNoCase(owner->table, table))
            Fail(DB_E_NOINDEX, L"The table '" + table + L"' has no index named '" + *name + L"'.", L"42S12");
        if (owner->madeByConstraint)
            Fail(DB_E_INDEXINUSE, L"The index '" + owner->index +
                                      L"' belongs to a PRIMARY KEY or UNIQUE constraint of the table; it goes only "
                                      L"with the table.");
        names.push_back(owner->index);
    } else {
        Query list(database, L"SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = ?1 COLLATE NOCASE "
                             L"AND sql IS NOT NULL");
        list.Bind(1, std::wstring_view(table));
        while (list.Step()) names.push_back(list.Text(0));
    }
    for (const auto& index : names) Query(database, L"DROP INDEX " + QuoteName(index)).Run();
}

}  // namespace zel::provider
