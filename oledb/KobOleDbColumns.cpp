#include "oledb/KobOleDbColumns.h"

#include <oaidl.h>

#include <cstddef>

#include "common/Variant.h"
#include "oledb/ProviderColumnDescs.h"

namespace zel {
namespace {

const std::vector<CatalogBinding>& ColumnBindings() {
    using R = KobOleDbColumns::Record;
    const size_t text = sizeof(CatalogText);
    static const std::vector<CatalogBinding> bindings = {
        {1, DBTYPE_WSTR, offsetof(R, tableCatalog), text},
        {2, DBTYPE_WSTR, offsetof(R, tableSchema), text},
        {3, DBTYPE_WSTR, offsetof(R, tableName), text},
        {4, DBTYPE_WSTR, offsetof(R, columnName), text},
        {5, DBTYPE_GUID, offsetof(R, columnGuid), sizeof(GUID)},
        {6, DBTYPE_UI4, offsetof(R, columnPropId), 4},
        {7, DBTYPE_UI4, offsetof(R, ordinalPosition), 4},
        {8, DBTYPE_BOOL, offsetof(R, hasDefault), 2},
        {9, DBTYPE_WSTR, offsetof(R, columnDefault), text},
        {10, DBTYPE_UI4, offsetof(R, columnFlags), 4},
        {11, DBTYPE_BOOL, offsetof(R, isNullable), 2},
        {12, DBTYPE_UI2, offsetof(R, dataType), 2},
        {13, DBTYPE_GUID, offsetof(R, typeGuid), sizeof(GUID)},
        {14, DBTYPE_UI4, offsetof(R, characterMaximumLength), 4},
        {15, DBTYPE_UI4, offsetof(R, characterOctetLength), 4},
        {16, DBTYPE_UI2, offsetof(R, numericPrecision), 2},
        {17, DBTYPE_I2, offsetof(R, numericScale), 2},
        {18, DBTYPE_UI4, offsetof(R, datetimePrecision), 4},
        {19, DBTYPE_WSTR, offsetof(R, characterSetCatalog), text},
        {20, DBTYPE_WSTR, offsetof(R, characterSetSchema), text},
        {21, DBTYPE_WSTR, offsetof(R, characterSetName), text},
        {22, DBTYPE_WSTR, offsetof(R, collationCatalog), text},
        {23, DBTYPE_WSTR, offsetof(R, collationSchema), text},
        {24, DBTYPE_WSTR, offsetof(R, collationName), text},
        {25, DBTYPE_WSTR, offsetof(R, domainCatalog), text},
        {26, DBTYPE_WSTR, offsetof(R, domainSchema), text},
        {27, DBTYPE_WSTR, offsetof(R, domainName), text},
        {28, DBTYPE_WSTR, offsetof(R, description), text},
    };
    return bindings;
}

}  // namespace

bool KobOleDbColumns::Open(KobOleDbConnection* connection, const wchar_t* catalog, const wchar_t* schema,
                           const wchar_t* table, const wchar_t* column, VARIANT_BOOL extendedData) {
    if (!Usable(connection) || !table) return false;
    Close();
    m_firstFetch = true;
    m_reader = std::make_unique<SchemaReader>(4, &m_record, sizeof m_record);
    m_reader->SetRestriction(0, catalog);
    m_reader->SetRestriction(1, schema);
    m_reader->SetRestriction(2, table);
    m_reader->SetRestriction(3, column);
    bool ok = CheckResult(m_reader->Open(connection->GetSession().get(), DBSCHEMA_COLUMNS, ColumnBindings()));
    if (!ok) {
        m_reader.reset();
        return false;
    }
    // Only exactly VARIANT_TRUE asks for identity data; its failure leaves the reader open.
    if (static_cast<USHORT>(extendedData) == 0xFFFF) ok = SUCCEEDED(ReadIdentityData(connection, table));
    return ok;
}

HRESULT KobOleDbColumns::ReadIdentityData(KobOleDbConnection* connection, const wchar_t* table) {
    if (!Usable(connection)) return E_FAIL;
    ProviderColumnDescs descriptions;
    HRESULT hr = connection->GetTableDefinition(table, descriptions, false);
    if (FAILED(hr)) return hr;
    for (DBORDINAL i = 0; descriptions.get() && i < descriptions.count(); ++i) {
        const DBCOLUMNDESC& d = descriptions[i];
        Identity identity = {false, 0, 1};
        for (ULONG s = 0; s < d.cPropertySets; ++s) {
            const DBPROPSET& set = d.rgPropertySets[s];
            for (ULONG p = 0; set.guidPropertySet == DBPROPSET_COLUMN && p < set.cProperties; ++p) {
                const DBPROP& prop = set.rgProperties[p];
                if (prop.dwPropertyID == DBPROP_COL_AUTOINCREMENT)
                    identity.isIdentity = V_VT(&prop.vValue) == VT_BOOL && V_BOOL(&prop.vValue) == VARIANT_TRUE;
                // Seed and increment both land in the seed: the later of the two wins, and
                // the increment stays 1.
                if (prop.dwPropertyID == DBPROP_COL_SEED || prop.dwPropertyID == DBPROP_COL_INCREMENT) {
                    Variant number;
                    if (SUCCEEDED(VariantChangeType(number.get(), const_cast<VARIANT*>(&prop.vValue), 0, VT_I4)))
                        identity.seed = V_I4(number.get());
                }
            }
        }
        m_identities.push_back(identity);
    }
    return hr;
}

bool KobOleDbColumns::FetchNext() { return Move(true); }

std::wstring KobOleDbColumns::GetField(unsigned index) const {
    if (!m_reader) return {};
    switch (index) {
        case kFieldTableName: return FieldText(m_record.tableName);
        case kFieldCatalog: return FieldText(m_record.tableCatalog);
        case kFieldSchema: return FieldText(m_record.tableSchema);
        case kFieldDescription: return FieldText(m_record.description);
        case kFieldColumnName: return FieldText(m_record.columnName);
        default: return {};
    }
}

const KobOleDbColumns::Identity* KobOleDbColumns::CurrentIdentity() const noexcept {
    const ULONG position = m_reader ? m_record.ordinalPosition : 0xFFFFFFFF;
    if (m_identities.empty() || position > m_identities.size() || position == 0) return nullptr;
    return &m_identities[position - 1];
}

LONG KobOleDbColumns::Precision() const noexcept {
    const Record& r = m_record;
    switch (r.dataType) {
        case DBTYPE_I2: case DBTYPE_UI2: return 2;
        case DBTYPE_I4: case DBTYPE_UI4: case DBTYPE_HCHAPTER: return 4;
        case DBTYPE_I1: case DBTYPE_UI1: return 1;
        case DBTYPE_I8: case DBTYPE_UI8: return 8;
        case DBTYPE_ERROR: return 32;
        case DBTYPE_DATE: case DBTYPE_DBDATE: case DBTYPE_DBTIME: case DBTYPE_DBTIMESTAMP:
            return static_cast<LONG>(r.datetimePrecision);
        case DBTYPE_BSTR: case DBTYPE_BYTES: case DBTYPE_STR: case DBTYPE_WSTR:
            return static_cast<LONG>(r.characterMaximumLength != 0 ? r.characterMaximumLength : r.characterOctetLength);
        case DBTYPE_DECIMAL: case DBTYPE_NUMERIC: case DBTYPE_VARNUMERIC:
            return r.numericPrecision;
        default:
            if (r.characterMaximumLength != 0) return static_cast<LONG>(r.characterMaximumLength);
            if (r.numericPrecision != 0) return r.numericPrecision;
            if (r.datetimePrecision != 0) return static_cast<LONG>(r.datetimePrecision);
            return static_cast<LONG>(r.characterOctetLength);
    }
}

}  // namespace zel
