// Long values: handed out as storage objects (ISequentialStream, IStream when asked) when bound
// as DBTYPE_IUNKNOWN, and as truncated text or bytes with the full length when bound inline.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

std::wstring LongText() {
    std::wstring text;
    for (int i = 0; i < 10000; ++i) text += static_cast<wchar_t>(L'A' + i % 26);  // 20,000 bytes
    return text;
}

class LongValue : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE memo (id INTEGER, body MEMO, data LONGBINARY)");
        c.Run(L"INSERT INTO memo VALUES (1, '" + text + L"', zeroblob(30000))");
        c.Run(L"INSERT INTO memo VALUES (2, NULL, NULL)");
        ServerRowsetProperties server;
        rowset = c.Query(L"SELECT body, data FROM memo ORDER BY id", &server.set, 1);
        ASSERT_TRUE(rowset);
        for (HROW& row : rows) {
            DBCOUNTITEM obtained = 0;
            HROW* out = &row;
            ASSERT_EQ(S_OK, rowset->GetNextRows(DB_NULL_HCHAPTER, 0, 1, &obtained, &out));
        }
    }
    void TearDown() override {
        if (rowset) rowset->ReleaseRows(2, rows, nullptr, nullptr, nullptr);
    }
    // Binds `ordinal` as a storage object with the given interface and reads it.
    struct StorageRead {
        HRESULT hr;
        DBSTATUS status;
        DBLENGTH length;
        ComPtr<IUnknown> object;
    };
    StorageRead ReadStorage(int row, DBORDINAL ordinal, REFIID iid) {
        DBOBJECT object{STGM_READ, iid};
        DBBINDING b = Binding::Make(ordinal, DBTYPE_IUNKNOWN, sizeof(IUnknown*), 0, 8, 8 + sizeof(DBLENGTH));
        b.pObject = &object;
        HACCESSOR accessor = DB_NULL_HACCESSOR;
        EXPECT_EQ(S_OK, rowset.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, 1, &b, 0, &accessor, nullptr));
        BYTE buffer[32] = {};
        StorageRead read{};
        read.hr = rowset->GetData(rows[row], accessor, buffer);
        memcpy(&read.status, buffer + 8 + sizeof(DBLENGTH), sizeof(DBSTATUS));
        memcpy(&read.length, buffer + 8, sizeof(DBLENGTH));
        IUnknown* unknown = nullptr;
        memcpy(&unknown, buffer, sizeof(unknown));
        if (read.status == DBSTATUS_S_OK) read.object = ComPtr<IUnknown>::attach(unknown);
        rowset.as<IAccessor>()->ReleaseAccessor(accessor, nullptr);
        return read;
    }
    const std::wstring text = LongText();
    TempDatabase db;
    Connection c;
    ComPtr<IRowset> rowset;
    HROW rows[2] = {};
};

TEST_F(LongValue, MemoColumnsAreLongAndUnbounded) {
    auto columns = ColumnsOf(rowset.get());
    ASSERT_EQ(2u, columns.size());
    EXPECT_NE(0u, columns[0].flags & DBCOLUMNFLAGS_ISLONG);
    EXPECT_GT(columns[0].size, 8000u);
    EXPECT_EQ(DBTYPE_BYTES, columns[1].type);
    EXPECT_NE(0u, columns[1].flags & DBCOLUMNFLAGS_ISLONG);
}

TEST_F(LongValue, TwentyThousandBytesOfTextReadThroughASequentialStreamInChunks) {
    StorageRead read = ReadStorage(0, 1, IID_ISequentialStream);
    ASSERT_EQ(S_OK, read.hr);
    ASSERT_EQ(DBSTATUS_S_OK, read.status);
    EXPECT_EQ(20000u, read.length);
    auto stream = read.object.as<ISequentialStream>();
    std::vector<BYTE> all;
    std::vector<ULONG> chunks;
    BYTE chunk[10000];
    for (;;) {
        ULONG got = 0;
        HRESULT hr = stream->Read(chunk, sizeof(chunk), &got);
        if (FAILED(hr) || got == 0) break;
        chunks.push_back(got);
        all.insert(all.end(), chunk, chunk + got);
    }
    ASSERT_EQ(2u, chunks.size());
    EXPECT_EQ(10000u, chunks[0]);
    EXPECT_EQ(10000u, chunks[1]);
    ASSERT_EQ(20000u, all.size());
    EXPECT_EQ(0, memcmp(all.data(), text.data(), all.size()));
}

TEST_F(LongValue, AnIStreamIsHandedOutWhenAskedForAndCanSeek) {
    StorageRead read = ReadStorage(0, 1, IID_IStream);
    ASSERT_EQ(DBSTATUS_S_OK, read.status);
    auto stream = read.object.as<IStream>();
    STATSTG stat{};
    ASSERT_EQ(S_OK, stream->Stat(&stat, STATFLAG_NONAME));
    EXPECT_EQ(20000u, stat.cbSize.QuadPart);
    LARGE_INTEGER move;
    move.QuadPart = 19990;
    ULARGE_INTEGER position{};
    ASSERT_EQ(S_OK, stream->Seek(move, STREAM_SEEK_SET, &position));
    EXPECT_EQ(19990u, position.QuadPart);
    wchar_t tail[10] = {};
    ULONG got = 0;
    ASSERT_EQ(S_OK, stream->Read(tail, sizeof(tail), &got));
    EXPECT_EQ(10u, got);
    EXPECT_EQ(0, memcmp(tail, text.data() + 9995, 10));
}

TEST_F(LongValue, TheStreamIsReadOnly) {
    StorageRead read = ReadStorage(0, 1, IID_ISequentialStream);
    auto stream = read.object.as<ISequentialStream>();
    ULONG written = 1;
    EXPECT_EQ(STG_E_ACCESSDENIED, stream->Write("x", 1, &written));
    EXPECT_EQ(0u, written);
}

TEST_F(LongValue, LongBinaryDataReadsThroughAStream) {
    StorageRead read = ReadStorage(0, 2, IID_ISequentialStream);
    ASSERT_EQ(DBSTATUS_S_OK, read.status);
    EXPECT_EQ(30000u, read.length);
    auto stream = read.object.as<ISequentialStream>();
    std::vector<BYTE> buffer(40000, 0xFF);
    ULONG got = 0;
    ASSERT_EQ(S_OK, stream->Read(buffer.data(), 40000, &got));
    EXPECT_EQ(30000u, got);
    EXPECT_EQ(0, buffer[0]);
    EXPECT_EQ(0, buffer[29999]);
}

TEST_F(LongValue, ANullLongValueGivesIsNullAndNoStream) {
    StorageRead read = ReadStorage(1, 1, IID_ISequentialStream);
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(DBSTATUS_S_ISNULL, read.status);
    EXPECT_FALSE(read.object);
}

TEST_F(LongValue, BoundInlineTheTextIsTruncatedWithTheFullLength) {
    ValueRead read = ReadValue(rowset.get(), rows[0], 1, DBTYPE_WSTR, 8002);
    EXPECT_EQ(S_OK, read.hr);
    EXPECT_EQ(DBSTATUS_S_TRUNCATED, read.status);
    EXPECT_EQ(20000u, read.length);
    std::wstring got(reinterpret_cast<const wchar_t*>(read.value.data()));
    EXPECT_EQ(4000u, got.size());
    EXPECT_EQ(text.substr(0, 4000), got);
}

TEST_F(LongValue, BoundInlineTheBytesAreTruncatedWithTheFullLength) {
    ValueRead read = ReadValue(rowset.get(), rows[0], 2, DBTYPE_BYTES, 100);
    EXPECT_EQ(DBSTATUS_S_TRUNCATED, read.status);
    EXPECT_EQ(30000u, read.length);
}

TEST_F(LongValue, SeveralStorageObjectsMayBeOpenAtOnce) {
    StorageRead first = ReadStorage(0, 1, IID_ISequentialStream);
    StorageRead second = ReadStorage(0, 2, IID_ISequentialStream);
    EXPECT_EQ(DBSTATUS_S_OK, first.status);
    EXPECT_EQ(DBSTATUS_S_OK, second.status);
}

}  // namespace
