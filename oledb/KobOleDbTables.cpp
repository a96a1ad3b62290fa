#include "oledb/KobOleDbTables.h"

#include <cstddef>

namespace zel {
namespace {

const std::vector<CatalogBinding>& TableBindings() {
    using R = KobOleDbTables::Record;
    static const std::vector<CatalogBinding> bindings = {
        {1, DBTYPE_WSTR, offsetof(R, catalog), sizeof(CatalogText)},
        {2, DBTYPE_WSTR, offsetof(R, schema), sizeof(CatalogText)},
        {3, DBTYPE_WSTR, offsetof(R, name), sizeof(CatalogText)},
        {4, DBTYPE_WSTR, offsetof(R, type), sizeof(CatalogText)},
        {5, DBTYPE_GUID, offsetof(R, guid), sizeof(GUID)},
        {6, DBTYPE_WSTR, offsetof(R, description), sizeof(CatalogText)},
    };
    return bindings;
}

}  // namespace

bool KobOleDbTables::Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema,
                          const wchar_t* name, const wchar_t* type) {
    if (!Usable(connection)) return false;
    Close();
    m_firstFetch = true;
    // The table type is copied into 128 code units: it is always a restriction.
    const wchar_t* tableType = type ? type : L"";
    if (wcslen(tableType) > 127) {
        CheckResult(E_INVALIDARG);
        return false;
    }
    m_reader = std::make_unique<SchemaReader>(4, &m_record, sizeof m_record);
    m_reader->SetRestriction(0, catalog);
    m_reader->SetRestriction(1, schema);
    m_reader->SetRestriction(2, name);
    m_reader->SetRestriction(3, tableType);
    bool ok = CheckResult(m_reader->Open(connection->GetSession().get(), DBSCHEMA_TABLES, TableBindings()));
    if (!ok) m_reader.reset();
    return ok;
}

std::wstring KobOleDbTables::GetField(unsigned index) const {
    if (!m_reader) return {};
    switch (index) {
        case kFieldTableName: return FieldText(m_record.name);
        case kFieldCatalog:
        case kFieldTableCatalog: return FieldText(m_record.catalog);
        case kFieldSchema:
        case kFieldTableSchema: return FieldText(m_record.schema);
        case kFieldDescription: return FieldText(m_record.description);
        case kFieldTableType: return FieldText(m_record.type);
        default: return {};
    }
}

}  // namespace zel
