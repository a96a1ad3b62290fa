#include "SchemaRowsetReader.h"

#include <gtest/gtest.h>

#include <cstring>

#include "ProviderTestSupport.h"

namespace zel::test {

namespace {

// The OLE DB reference's schema rowset columns, in ordinal order.
const StandardColumn kTables[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR}, {L"TABLE_SCHEMA", DBTYPE_WSTR},  {L"TABLE_NAME", DBTYPE_WSTR},
    {L"TABLE_TYPE", DBTYPE_WSTR},    {L"TABLE_GUID", DBTYPE_GUID},    {L"DESCRIPTION", DBTYPE_WSTR},
    {L"TABLE_PROPID", DBTYPE_UI4},   {L"DATE_CREATED", DBTYPE_DATE},  {L"DATE_MODIFIED", DBTYPE_DATE},
};

const StandardColumn kColumns[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR},         {L"TABLE_SCHEMA", DBTYPE_WSTR},
    {L"TABLE_NAME", DBTYPE_WSTR},            {L"COLUMN_NAME", DBTYPE_WSTR},
    {L"COLUMN_GUID", DBTYPE_GUID},           {L"COLUMN_PROPID", DBTYPE_UI4},
    {L"ORDINAL_POSITION", DBTYPE_UI4},       {L"COLUMN_HASDEFAULT", DBTYPE_BOOL},
    {L"COLUMN_DEFAULT", DBTYPE_WSTR},        {L"COLUMN_FLAGS", DBTYPE_UI4},
    {L"IS_NULLABLE", DBTYPE_BOOL},           {L"DATA_TYPE", DBTYPE_UI2},
    {L"TYPE_GUID", DBTYPE_GUID},             {L"CHARACTER_MAXIMUM_LENGTH", DBTYPE_UI4},
    {L"CHARACTER_OCTET_LENGTH", DBTYPE_UI4}, {L"NUMERIC_PRECISION", DBTYPE_UI2},
    {L"NUMERIC_SCALE", DBTYPE_I2},           {L"DATETIME_PRECISION", DBTYPE_UI4},
    {L"CHARACTER_SET_CATALOG", DBTYPE_WSTR}, {L"CHARACTER_SET_SCHEMA", DBTYPE_WSTR},
    {L"CHARACTER_SET_NAME", DBTYPE_WSTR},    {L"COLLATION_CATALOG", DBTYPE_WSTR},
    {L"COLLATION_SCHEMA", DBTYPE_WSTR},      {L"COLLATION_NAME", DBTYPE_WSTR},
    {L"DOMAIN_CATALOG", DBTYPE_WSTR},        {L"DOMAIN_SCHEMA", DBTYPE_WSTR},
    {L"DOMAIN_NAME", DBTYPE_WSTR},           {L"DESCRIPTION", DBTYPE_WSTR},
};

const StandardColumn kIndexes[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR},  {L"TABLE_SCHEMA", DBTYPE_WSTR},    {L"TABLE_NAME", DBTYPE_WSTR},
    {L"INDEX_CATALOG", DBTYPE_WSTR},  {L"INDEX_SCHEMA", DBTYPE_WSTR},    {L"INDEX_NAME", DBTYPE_WSTR},
    {L"PRIMARY_KEY", DBTYPE_BOOL},    {L"UNIQUE", DBTYPE_BOOL},          {L"CLUSTERED", DBTYPE_BOOL},
    {L"TYPE", DBTYPE_UI2},            {L"FILL_FACTOR", DBTYPE_I4},       {L"INITIAL_SIZE", DBTYPE_I4},
    {L"NULLS", DBTYPE_I4},            {L"SORT_BOOKMARKS", DBTYPE_BOOL},  {L"AUTO_UPDATE", DBTYPE_BOOL},
    {L"NULL_COLLATION", DBTYPE_I4},   {L"ORDINAL_POSITION", DBTYPE_UI4}, {L"COLUMN_NAME", DBTYPE_WSTR},
    {L"COLUMN_GUID", DBTYPE_GUID},    {L"COLUMN_PROPID", DBTYPE_UI4},    {L"COLLATION", DBTYPE_I2},
    {L"CARDINALITY", DBTYPE_UI8},     {L"PAGES", DBTYPE_I4},             {L"FILTER_CONDITION", DBTYPE_WSTR},
    {L"INTEGRATED", DBTYPE_BOOL},
};

const StandardColumn kPrimaryKeys[] = {
    {L"TABLE_CATALOG", DBTYPE_WSTR}, {L"TABLE_SCHEMA", DBTYPE_WSTR}, {L"TABLE_NAME", DBTYPE_WSTR},
    {L"COLUMN_NAME", DBTYPE_WSTR},   {L"COLUMN_GUID", DBTYPE_GUID},  {L"COLUMN_PROPID", DBTYPE_UI4},
    {L"ORDINAL", DBTYPE_UI4},        {L"PK_NAME", DBTYPE_WSTR},
};

const StandardColumn kProviderTypes[] = {
    {L"TYPE_NAME", DBTYPE_WSTR},          {L"DATA_TYPE", DBTYPE_UI2},         {L"COLUMN_SIZE", DBTYPE_UI4},
    {L"LITERAL_PREFIX", DBTYPE_WSTR},     {L"LITERAL_SUFFIX", DBTYPE_WSTR},   {L"CREATE_PARAMS", DBTYPE_WSTR},
    {L"IS_NULLABLE", DBTYPE_BOOL},        {L"CASE_SENSITIVE", DBTYPE_BOOL},   {L"SEARCHABLE", DBTYPE_UI4},
    {L"UNSIGNED_ATTRIBUTE", DBTYPE_BOOL}, {L"FIXED_PREC_SCALE", DBTYPE_BOOL}, {L"AUTO_UNIQUE_VALUE", DBTYPE_BOOL},
    {L"LOCAL_TYPE_NAME", DBTYPE_WSTR},    {L"MINIMUM_SCALE", DBTYPE_I2},      {L"MAXIMUM_SCALE", DBTYPE_I2},
    {L"GUID", DBTYPE_GUID},               {L"TYPELIB", DBTYPE_WSTR},          {L"VERSION", DBTYPE_WSTR},
    {L"IS_LONG", DBTYPE_BOOL},            {L"BEST_MATCH", DBTYPE_BOOL},       {L"IS_FIXEDLENGTH", DBTYPE_BOOL},
};

constexpr DBLENGTH kTextBytes = 4096 * sizeof(wchar_t);

DBLENGTH ValueSize(DBTYPE type) {
    switch (type) {
    case DBTYPE_WSTR: return kTextBytes;
    case DBTYPE_GUID: return sizeof(GUID);
    default: return 8;
    }
}

long long ReadNumber(DBTYPE type, const BYTE* p) {
    switch (type) {
    case DBTYPE_BOOL: { VARIANT_BOOL v; memcpy(&v, p, sizeof v); return v; }
    case DBTYPE_I2: { SHORT v; memcpy(&v, p, sizeof v); return v; }
    case DBTYPE_UI2: { USHORT v; memcpy(&v, p, sizeof v); return v; }
    case DBTYPE_I4: { LONG v; memcpy(&v, p, sizeof v); return v; }
    case DBTYPE_UI4: { ULONG v; memcpy(&v, p, sizeof v); return v; }
    case DBTYPE_UI8: { ULONGLONG v; memcpy(&v, p, sizeof v); return static_cast<long long>(v); }
    default: return 0;
    }
}

}  // namespace

std::span<const StandardColumn> StandardColumnsOf(REFGUID schema) {
    if (schema == DBSCHEMA_TABLES) return kTables;
    if (schema == DBSCHEMA_COLUMNS) return kColumns;
    if (schema == DBSCHEMA_INDEXES) return kIndexes;
    if (schema == DBSCHEMA_PRIMARY_KEYS) return kPrimaryKeys;
    if (schema == DBSCHEMA_PROVIDER_TYPES) return kProviderTypes;
    ADD_FAILURE() << "no standard column list for this schema";
    return {};
}

const SchemaRow::Field& SchemaRow::At(DBORDINAL ordinal) const {
    static const Field missing;
    EXPECT_TRUE(ordinal >= 1 && ordinal <= m_fields.size()) << "ordinal " << ordinal;
    return ordinal >= 1 && ordinal <= m_fields.size() ? m_fields[ordinal - 1] : missing;
}

ComPtr<IRowset> OpenSchema(IDBSchemaRowset* schemas, REFGUID schema, const std::vector<Variant>& restrictions) {
    std::vector<VARIANT> values(restrictions.size());
    for (size_t i = 0; i < restrictions.size(); ++i) values[i] = *restrictions[i].get();  // borrowed
    ComPtr<IRowset> rowset;
    EXPECT_EQ(S_OK, schemas->GetRowset(nullptr, schema, static_cast<ULONG>(values.size()),
                                       values.empty() ? nullptr : values.data(), IID_IRowset, 0, nullptr,
                                       rowset.put_unknown()));
    return rowset;
}

std::vector<SchemaRow> ReadRows(IRowset* rowset, std::span<const StandardColumn> columns) {
    std::vector<SchemaRow> rows;
    if (!rowset) return rows;
    std::vector<DBBINDING> bindings;
    std::vector<DBBYTEOFFSET> values, statuses;
    DBBYTEOFFSET offset = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        DBBYTEOFFSET value = offset;
        DBBYTEOFFSET length = (value + ValueSize(columns[i].type) + 7) / 8 * 8;
        DBBYTEOFFSET status = length + sizeof(DBLENGTH);
        offset = (status + sizeof(DBSTATUS) + 7) / 8 * 8;
        bindings.push_back(Binding::Make(i + 1, columns[i].type, ValueSize(columns[i].type), value, length, status));
        values.push_back(value);
        statuses.push_back(status);
    }
    ComPtr<IRowset> r(rowset);
    auto accessor = r.as<IAccessor>();
    HACCESSOR handle = DB_NULL_HACCESSOR;
    EXPECT_EQ(S_OK, accessor->CreateAccessor(DBACCESSOR_ROWDATA, bindings.size(), bindings.data(), offset, &handle,
                                             nullptr));
    if (handle == DB_NULL_HACCESSOR) return rows;
    EXPECT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
    std::vector<BYTE> buffer(offset);
    for (;;) {
        DBCOUNTITEM obtained = 0;
        HROW row = DB_NULL_HROW;
        HROW* handles = &row;
        HRESULT hr = rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &handles);
        if (obtained != 1) {
            EXPECT_EQ(DB_S_ENDOFROWSET, hr);
            break;
        }
        std::fill(buffer.begin(), buffer.end(), BYTE{0});
        EXPECT_EQ(S_OK, rowset->GetData(row, handle, buffer.data()));
        std::vector<SchemaRow::Field> fields(columns.size());
        for (size_t i = 0; i < columns.size(); ++i) {
            DBSTATUS status;
            memcpy(&status, buffer.data() + statuses[i], sizeof status);
            EXPECT_TRUE(status == DBSTATUS_S_OK || status == DBSTATUS_S_ISNULL)
                << "column " << (i + 1) << " status " << status;
            SchemaRow::Field& field = fields[i];
            field.null = status == DBSTATUS_S_ISNULL;
            if (field.null) continue;
            const BYTE* p = buffer.data() + values[i];
            if (columns[i].type == DBTYPE_WSTR)
                field.text = reinterpret_cast<const wchar_t*>(p);
            else if (columns[i].type == DBTYPE_GUID)
                memcpy(&field.guid, p, sizeof(GUID));
            else
                field.number = ReadNumber(columns[i].type, p);
        }
        rows.emplace_back(std::move(fields));
        rowset->ReleaseRows(1, &row, nullptr, nullptr, nullptr);
    }
    accessor->ReleaseAccessor(handle, nullptr);
    return rows;
}

std::vector<SchemaRow> ReadSchema(IDBSchemaRowset* schemas, REFGUID schema, const std::vector<Variant>& restrictions) {
    auto rowset = OpenSchema(schemas, schema, restrictions);
    return ReadRows(rowset.get(), StandardColumnsOf(schema));
}

std::vector<Variant> Restrict(std::initializer_list<RestrictionValue> values) {
    std::vector<Variant> out;
    for (const RestrictionValue& v : values) out.push_back(v.value);
    return out;
}

Variant UnsignedShort(USHORT value) {
    Variant v;
    V_VT(v.get()) = VT_UI2;
    V_UI2(v.get()) = value;
    return v;
}

}  // namespace zel::test
