#include "oledb/KobOleDbIndexes.h"

#include <cstddef>

namespace zel {
namespace {

const std::vector<CatalogBinding>& IndexBindings() {
    using R = KobOleDbIndexes::Record;
    const size_t text = sizeof(CatalogText);
    static const std::vector<CatalogBinding> bindings = {
        {1, DBTYPE_WSTR, offsetof(R, tableCatalog), text},
        {2, DBTYPE_WSTR, offsetof(R, tableSchema), text},
        {3, DBTYPE_WSTR, offsetof(R, tableName), text},
        {4, DBTYPE_WSTR, offsetof(R, indexCatalog), text},
        {5, DBTYPE_WSTR, offsetof(R, indexSchema), text},
        {6, DBTYPE_WSTR, offsetof(R, indexName), text},
        {7, DBTYPE_BOOL, offsetof(R, primaryKey), 2},
        {8, DBTYPE_BOOL, offsetof(R, unique), 2},
        {9, DBTYPE_BOOL, offsetof(R, clustered), 2},
        {10, DBTYPE_UI2, offsetof(R, type), 2},
        {11, DBTYPE_I4, offsetof(R, fillFactor), 4},
        {12, DBTYPE_I4, offsetof(R, initialSize), 4},
        {13, DBTYPE_I4, offsetof(R, nulls), 4},
        {14, DBTYPE_BOOL, offsetof(R, sortBookmarks), 2},
        {15, DBTYPE_BOOL, offsetof(R, autoUpdate), 2},
        {16, DBTYPE_I4, offsetof(R, nullCollation), 4},
        {17, DBTYPE_UI4, offsetof(R, ordinalPosition), 4},
        {18, DBTYPE_WSTR, offsetof(R, columnName), text},
        {19, DBTYPE_GUID, offsetof(R, columnGuid), sizeof(GUID)},
        {20, DBTYPE_UI4, offsetof(R, columnPropId), 4},
        {21, DBTYPE_I2, offsetof(R, collation), 2},
        {22, DBTYPE_I4, offsetof(R, cardinality), 4},
        {23, DBTYPE_I4, offsetof(R, pages), 4},
        {25, DBTYPE_WSTR, offsetof(R, filterCondition), text},
    };
    return bindings;
}

}  // namespace

bool KobOleDbIndexes::Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema,
                           const wchar_t* table, const wchar_t* index) {
    if (!Usable(connection)) return false;
    Close();
    m_firstFetch = true;
    m_reader = std::make_unique<SchemaReader>(5, &m_record, sizeof m_record);
    m_reader->SetRestriction(0, catalog);
    m_reader->SetRestriction(1, schema);
    m_reader->SetRestriction(2, index);
    m_reader->SetRestriction(4, table);  // restriction 4, the index type, stays empty
    bool ok = CheckResult(m_reader->Open(connection->GetSession().get(), DBSCHEMA_INDEXES, IndexBindings()));
    if (!ok) m_reader.reset();
    return ok;
}

std::wstring KobOleDbIndexes::GetField(unsigned index) const {
    if (!m_reader) return {};
    switch (index) {
        case kFieldTableName: return FieldText(m_record.tableName);
        case kFieldCatalog: return FieldText(m_record.indexCatalog);
        case kFieldSchema: return FieldText(m_record.indexSchema);
        case kFieldColumnName: return FieldText(m_record.columnName);
        case kFieldIndexName: return FieldText(m_record.indexName);
        case kFieldTableSchema: return FieldText(m_record.tableSchema);
        case kFieldTableCatalog: return FieldText(m_record.tableCatalog);
        default: return {};
    }
}

}  // namespace zel
