// The automation server's way of using a provider, step by step: the rowset properties it
// sets, one accessor binding every column (text inline at column size * 2 + 2 bytes, columns
// over 8000 bytes as DBTYPE_IUNKNOWN storage objects), value/length/status laid out in one row
// buffer, and its four moves: next (restart first), previous (skip -2), first, last (restart,
// skip -1), releasing each row before the next move.
#include <gtest/gtest.h>

#include "ProviderTestSupport.h"

namespace {

using zel::ComPtr;
using namespace zel::test;

class ServerPattern : public testing::Test {
protected:
    void SetUp() override {
        c = Connection::Open(db.ConnectionString());
        ASSERT_TRUE(c.session);
        c.Run(L"CREATE TABLE notes (id INTEGER PRIMARY KEY, title TEXT(40), body MEMO, amount CURRENCY)");
        std::wstring body(5000, L'x');  // 10,000 bytes
        c.Run(L"INSERT INTO notes VALUES (1, 'first', '" + body + L"', 1.5)");
        c.Run(L"INSERT INTO notes VALUES (2, 'second', NULL, 2.25)");
        c.Run(L"INSERT INTO notes VALUES (3, 'third', 'short', NULL)");
        ServerRowsetProperties server;
        rowset = c.Query(L"SELECT id, title, body, amount FROM notes ORDER BY id", &server.set, 1);
        ASSERT_TRUE(rowset);
        Bind();
    }
    void TearDown() override {
        Release();
        if (accessor != DB_NULL_HACCESSOR) rowset.as<IAccessor>()->ReleaseAccessor(accessor, nullptr);
    }
    // One binding per column, the server's way.
    void Bind() {
        auto columns = ColumnsOf(rowset.get());
        DBBYTEOFFSET offset = 0;
        for (const auto& column : columns) {
            Slot slot;
            slot.type = column.type;
            DBLENGTH size = column.size;
            if (column.type == DBTYPE_WSTR) size = column.size * 2 + 2;
            if (column.size > 8000 || column.type == DBTYPE_IUNKNOWN) {
                slot.type = DBTYPE_IUNKNOWN;
                size = sizeof(IUnknown*);
            }
            offset = (offset + 7) / 8 * 8;
            slot.value = offset;
            offset += size;
            offset = (offset + 3) / 4 * 4;
            slot.length = offset;
            offset += sizeof(DBLENGTH);
            slot.status = offset;
            offset += sizeof(DBSTATUS);
            DBBINDING b = Binding::Make(column.ordinal, slot.type, size, slot.value, slot.length, slot.status);
            if (slot.type == DBTYPE_IUNKNOWN) b.pObject = &storage;
            bindings.push_back(b);
            slots.push_back(slot);
        }
        buffer.assign(offset + 16, 0);
        ASSERT_EQ(S_OK, rowset.as<IAccessor>()->CreateAccessor(DBACCESSOR_ROWDATA, bindings.size(), bindings.data(), 0,
                                                               &accessor, nullptr));
    }
    void Release() {
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].type == DBTYPE_IUNKNOWN && Status(i) == DBSTATUS_S_OK) {
                IUnknown* object = nullptr;
                memcpy(&object, buffer.data() + slots[i].value, sizeof(object));
                if (object) object->Release();  // the server releases each storage object before a move
                memset(buffer.data() + slots[i].value, 0, sizeof(object));
                SetStatus(i, DBSTATUS_S_ISNULL);
            }
        if (current != DB_NULL_HROW) rowset->ReleaseRows(1, &current, nullptr, nullptr, nullptr);
        current = DB_NULL_HROW;
    }
    // One move: true when a row is current afterwards.
    bool Move(bool restart, DBROWOFFSET skip) {
        Release();
        if (restart) {
            EXPECT_EQ(S_OK, rowset->RestartPosition(DB_NULL_HCHAPTER));
        }
        DBCOUNTITEM obtained = 0;
        HROW* rows = &current;
        HRESULT hr = rowset->GetNextRows(DB_NULL_HCHAPTER, skip, 1, &obtained, &rows);
        if (hr != S_OK) {
            current = DB_NULL_HROW;
            return false;
        }
        EXPECT_EQ(S_OK, rowset->GetData(current, accessor, buffer.data()));
        return true;
    }
    DBSTATUS Status(size_t column) {
        DBSTATUS s;
        memcpy(&s, buffer.data() + slots[column].status, sizeof(s));
        return s;
    }
    void SetStatus(size_t column, DBSTATUS s) { memcpy(buffer.data() + slots[column].status, &s, sizeof(s)); }
    DBLENGTH Length(size_t column) {
        DBLENGTH l;
        memcpy(&l, buffer.data() + slots[column].length, sizeof(l));
        return l;
    }
    std::wstring Title() { return reinterpret_cast<const wchar_t*>(buffer.data() + slots[1].value); }
    LONG Id() {
        LONG id;
        memcpy(&id, buffer.data() + slots[0].value, sizeof(id));
        return id;
    }
    // Reads the body's storage object in chunks of 10,000 bytes, as the server's blob reader does.
    size_t BodyBytes() {
        IUnknown* object = nullptr;
        memcpy(&object, buffer.data() + slots[2].value, sizeof(object));
        ComPtr<IUnknown> unknown(object);
        auto stream = unknown.as<ISequentialStream>();
        std::vector<BYTE> chunk(10000);
        size_t total = 0;
        for (;;) {
            ULONG got = 0;
            if (FAILED(stream->Read(chunk.data(), 10000, &got)) || got == 0) break;
            total += got;
        }
        return total;
    }

    struct Slot {
        DBTYPE type;
        DBBYTEOFFSET value, length, status;
    };
    TempDatabase db;
    Connection c;
    ComPtr<IRowset> rowset;
    DBOBJECT storage{STGM_READ, IID_ISequentialStream};
    std::vector<DBBINDING> bindings;
    std::vector<Slot> slots;
    std::vector<BYTE> buffer;
    HACCESSOR accessor = DB_NULL_HACCESSOR;
    HROW current = DB_NULL_HROW;
};

TEST_F(ServerPattern, LongColumnsAreBoundAsStorageObjectsAndOthersInline) {
    ASSERT_EQ(4u, slots.size());
    EXPECT_EQ(DBTYPE_I4, slots[0].type);
    EXPECT_EQ(DBTYPE_WSTR, slots[1].type);
    EXPECT_EQ(DBTYPE_IUNKNOWN, slots[2].type);
    EXPECT_EQ(DBTYPE_CY, slots[3].type);
}

TEST_F(ServerPattern, NextNextPreviousLastPreviousFirstVisitTheExpectedRows) {
    ASSERT_TRUE(Move(true, 0));  // the first FetchNext restarts
    EXPECT_EQ(1, Id());
    EXPECT_EQ(L"first", Title());
    ASSERT_TRUE(Move(false, 0));
    EXPECT_EQ(2, Id());
    ASSERT_TRUE(Move(false, -2));  // FetchPrev
    EXPECT_EQ(1, Id());
    ASSERT_TRUE(Move(true, -1));  // FetchLast
    EXPECT_EQ(3, Id());
    ASSERT_TRUE(Move(false, -2));  // FetchPrev after FetchLast
    EXPECT_EQ(2, Id());
    ASSERT_TRUE(Move(true, 0));  // FetchFirst
    EXPECT_EQ(1, Id());
    EXPECT_FALSE(Move(false, -2));  // FetchPrev before the first row
    ASSERT_TRUE(Move(true, 0));  // FetchNext after that starts over
    EXPECT_EQ(1, Id());
}

TEST_F(ServerPattern, ReadingForwardToTheEndThenFirstAgain) {
    int rows = 0;
    for (bool more = Move(true, 0); more; more = Move(false, 0)) ++rows;
    EXPECT_EQ(3, rows);
    EXPECT_FALSE(Move(false, 0));
    ASSERT_TRUE(Move(true, 0));
    EXPECT_EQ(1, Id());
}

TEST_F(ServerPattern, TheLongValueComesThroughItsStorageObjectWithItsLength) {
    ASSERT_TRUE(Move(true, 0));
    EXPECT_EQ(DBSTATUS_S_OK, Status(2));
    EXPECT_EQ(10000u, Length(2));
    EXPECT_EQ(10000u, BodyBytes());
    ASSERT_TRUE(Move(false, 0));
    EXPECT_EQ(DBSTATUS_S_ISNULL, Status(2));
    EXPECT_EQ(DBSTATUS_S_OK, Status(3));
    ASSERT_TRUE(Move(false, 0));
    EXPECT_EQ(DBSTATUS_S_ISNULL, Status(3));
    EXPECT_EQ(10u, BodyBytes());
}

TEST_F(ServerPattern, TextLengthIsTheValuesLengthInBytes) {
    ASSERT_TRUE(Move(true, 0));
    EXPECT_EQ(DBSTATUS_S_OK, Status(1));
    EXPECT_EQ(10u, Length(1));  // "first" in UTF-16
}

}  // namespace
