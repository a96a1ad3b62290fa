// Schema rowsets read the automation server's way: value-only bindings into fixed records
// whose text fields hold 128 characters and a terminator, one row held at a time, and a row
// that counts only when GetData answers exactly S_OK, NULL columns and over-long names
// included.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "ProviderTestSupport.h"
#include "SchemaRowsetReader.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

// The server's schema reader: one accessor over the given ordinals and types.
class ServerStyleReader {
public:
    ServerStyleReader(IRowset* rowset, const std::vector<std::pair<DBORDINAL, DBTYPE>>& columns) : m_rowset(rowset) {
        std::vector<DBBINDING> bindings;
        DBBYTEOFFSET offset = 0;
        for (const auto& [ordinal, type] : columns) {
            const DBLENGTH size = type == DBTYPE_WSTR   ? 258
                                  : type == DBTYPE_GUID ? 16
                                  : type == DBTYPE_UI4 || type == DBTYPE_I4 ? 4
                                                                            : 2;
            const DBBYTEOFFSET alignment = size >= 4 ? 4 : 2;
            offset = (offset + alignment - 1) / alignment * alignment;
            DBBINDING b{};
            b.iOrdinal = ordinal;
            b.obValue = offset;
            b.dwPart = DBPART_VALUE;
            b.dwMemOwner = DBMEMOWNER_CLIENTOWNED;
            b.eParamIO = DBPARAMIO_NOTPARAM;
            b.cbMaxLen = size;
            b.wType = type;
            bindings.push_back(b);
            m_offsets[ordinal] = offset;
            offset += size;
        }
        m_record.assign(offset, 0);
        m_accessor = m_rowset.as<IAccessor>();
        EXPECT_EQ(S_OK, m_accessor->CreateAccessor(DBACCESSOR_ROWDATA, bindings.size(), bindings.data(), offset,
                                                   &m_handle, nullptr));
        EXPECT_EQ(S_OK, m_rowset->RestartPosition(DB_NULL_HCHAPTER));
    }
    ~ServerStyleReader() {
        if (m_row != DB_NULL_HROW) m_rowset->ReleaseRows(1, &m_row, nullptr, nullptr, nullptr);
        if (m_handle != DB_NULL_HACCESSOR) m_accessor->ReleaseAccessor(m_handle, nullptr);
    }
    // The server's move: release the held row, fetch one, read it; S_OK only for a row read.
    HRESULT Next() {
        if (m_row != DB_NULL_HROW) m_rowset->ReleaseRows(1, &m_row, nullptr, nullptr, nullptr);
        m_row = DB_NULL_HROW;
        DBCOUNTITEM obtained = 0;
        HROW* rows = &m_row;
        HRESULT hr = m_rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &rows);
        if (hr != S_OK || obtained != 1) return hr == S_OK ? DB_S_ENDOFROWSET : hr;
        return m_rowset->GetData(m_row, m_handle, m_record.data());
    }
    std::wstring Text(DBORDINAL ordinal) const {
        const wchar_t* p = reinterpret_cast<const wchar_t*>(m_record.data() + m_offsets.at(ordinal));
        return std::wstring(p, wcsnlen(p, 129));
    }
    template <typename T>
    T Value(DBORDINAL ordinal) const {
        T value;
        memcpy(&value, m_record.data() + m_offsets.at(ordinal), sizeof value);
        return value;
    }

private:
    ComPtr<IRowset> m_rowset;
    ComPtr<IAccessor> m_accessor;
    HACCESSOR m_handle = DB_NULL_HACCESSOR;
    HROW m_row = DB_NULL_HROW;
    std::map<DBORDINAL, DBBYTEOFFSET> m_offsets;
    std::vector<BYTE> m_record;
};

class SchemaRowsetServerPattern : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        schemas = c.session.as<IDBSchemaRowset>();
    }
    TempDatabase db;
    Connection c;
    ComPtr<IDBSchemaRowset> schemas;
};

TEST_F(SchemaRowsetServerPattern, TheServersTableReaderReadsEveryRowAndCutsLongNames) {
    const std::wstring name(200, L'q');
    c.Run(L"CREATE TABLE " + name + L" (v INTEGER)");
    c.Run(L"CREATE VIEW v AS SELECT 1 AS one");
    auto rowset = OpenSchema(schemas.get(), DBSCHEMA_TABLES, Restrict({{}, {}, {}, L""}));
    ServerStyleReader reader(rowset.get(), {{1, DBTYPE_WSTR}, {2, DBTYPE_WSTR}, {3, DBTYPE_WSTR}, {4, DBTYPE_WSTR},
                                            {5, DBTYPE_GUID}, {6, DBTYPE_WSTR}});
    std::vector<std::wstring> got;
    HRESULT hr;
    while ((hr = reader.Next()) == S_OK) {
        got.push_back(reader.Text(4) + L":" + reader.Text(3));
        EXPECT_EQ(L"", reader.Text(1));  // NULL leaves the cleared field as it was
        EXPECT_EQ(L"", reader.Text(6));
    }
    EXPECT_EQ(DB_S_ENDOFROWSET, hr);
    EXPECT_EQ((std::vector<std::wstring>{L"SYSTEM TABLE:sqlite_master", L"TABLE:" + name.substr(0, 128), L"VIEW:v"}),
              got);
}

TEST_F(SchemaRowsetServerPattern, TheServersColumnReaderReadsEveryColumnOfEveryType) {
    c.Run(L"CREATE TABLE typed (id INTEGER PRIMARY KEY, v VARCHAR(40) DEFAULT 'x', tx MEMO, n DECIMAL(10,2), "
          L"t DATETIME, g GUID, f BIT, bl LONGBINARY)");
    std::vector<std::pair<DBORDINAL, DBTYPE>> bindings;
    for (const auto& column : StandardColumnsOf(DBSCHEMA_COLUMNS))
        bindings.emplace_back(bindings.size() + 1, column.type);
    auto rowset = OpenSchema(schemas.get(), DBSCHEMA_COLUMNS, Restrict({{}, {}, L"typed"}));
    ServerStyleReader reader(rowset.get(), bindings);
    std::vector<std::wstring> names;
    while (reader.Next() == S_OK) {
        names.push_back(reader.Text(4));
        EXPECT_EQ(names.size(), reader.Value<ULONG>(7));
        if (names.back() == L"v") {
            EXPECT_EQ(VARIANT_TRUE, reader.Value<VARIANT_BOOL>(8));
            EXPECT_EQ(L"'x'", reader.Text(9));
            EXPECT_EQ(DBTYPE_WSTR, reader.Value<USHORT>(12));
            EXPECT_EQ(40u, reader.Value<ULONG>(14));
        }
        if (names.back() == L"n") {
            EXPECT_EQ(10, reader.Value<USHORT>(16));
            EXPECT_EQ(2, reader.Value<SHORT>(17));
        }
    }
    EXPECT_EQ((std::vector<std::wstring>{L"id", L"v", L"tx", L"n", L"t", L"g", L"f", L"bl"}), names);
}

TEST_F(SchemaRowsetServerPattern, TheServersIndexReaderReadsEveryIndexColumn) {
    c.Run(L"CREATE TABLE t (id INTEGER PRIMARY KEY, a INTEGER, b INTEGER)");
    c.Run(L"CREATE INDEX ix_ab ON t (a, b DESC)");
    std::vector<std::pair<DBORDINAL, DBTYPE>> bindings;
    for (const auto& column : StandardColumnsOf(DBSCHEMA_INDEXES)) {
        if (bindings.size() == 23) break;
        // CARDINALITY is read into a 32-bit field.
        const DBTYPE type = column.type == DBTYPE_UI8 ? static_cast<DBTYPE>(DBTYPE_I4) : column.type;
        bindings.emplace_back(bindings.size() + 1, type);
    }
    bindings.emplace_back(25, DBTYPE_WSTR);  // the server reads its filter field from ordinal 25
    auto rowset = OpenSchema(schemas.get(), DBSCHEMA_INDEXES, Restrict({{}, {}, {}, {}, L"t"}));
    ServerStyleReader reader(rowset.get(), bindings);
    std::vector<std::wstring> got;
    while (reader.Next() == S_OK)
        got.push_back(reader.Text(6) + L"." + reader.Text(18) + (reader.Value<VARIANT_BOOL>(7) ? L":pk" : L""));
    EXPECT_EQ((std::vector<std::wstring>{L"PrimaryKey.id:pk", L"ix_ab.a", L"ix_ab.b"}), got);
}

}  // namespace
