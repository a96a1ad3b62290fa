// A small in-memory OLE DB provider for the database layer's tests: a data source, a
// session, a command and a rowset over columns and rows the test defines, with any DBTYPE
// (DBTYPE_UI8, DBTYPE_DECIMAL, DBTYPE_FILETIME, a bookmark column...), which a real
// provider cannot be made to return from SQL. The rowset follows the OLE DB scrolling rules
// (negative skips count from the position after the last fetched row; after a restart they
// count from the end) and hands out long values as ISequentialStream storage objects.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "common/Variant.h"
#include "oledb/KobOleDbConnection.h"

namespace zel::test {

struct FakeColumn {
    std::wstring name;
    DBTYPE type;
    DBLENGTH size;           // declared size (bytes; characters for text)
    DBCOLUMNFLAGS flags = DBCOLUMNFLAGS_MAYBENULL;
    BYTE precision = 0;
    BYTE scale = 0;
    DBORDINAL ordinal = 0;   // 0 with DBCOLUMNFLAGS_ISBOOKMARK marks the bookmark column
};

struct FakeValue {
    std::vector<BYTE> bytes;  // the value as the provider stores it
    bool isNull = false;
};

// A value's bytes, for the tests to build rows with.
template <typename T>
FakeValue Value(const T& value) {
    FakeValue v;
    v.bytes.resize(sizeof(T));
    memcpy(v.bytes.data(), &value, sizeof(T));
    return v;
}
FakeValue Text(const std::wstring& text);        // DBTYPE_WSTR bytes (no terminator)
FakeValue Bytes(const std::vector<BYTE>& bytes);  // DBTYPE_BYTES / DBTYPE_STR bytes
FakeValue Null();

struct FakeResult {
    std::vector<FakeColumn> columns;
    std::vector<std::vector<FakeValue>> rows;
    HRESULT executeResult = S_OK;  // what ICommand::Execute answers
    bool returnsRowset = true;
    DBROWCOUNT rowsAffected = -1;
};

// Counters the tests read to see what the server asked the provider for.
struct FakeLog {
    int restarts = 0;
    int getNextRows = 0;
    std::vector<DBROWOFFSET> skips;
    std::vector<std::wstring> commandTexts;
    std::vector<DBPROPID> rowsetProperties;
    std::vector<DBPROPOPTIONS> rowsetOptions;
    int liveRows = 0;     // handles handed out and not yet released
    int liveStreams = 0;  // storage objects alive
};

// One column property of a table definition.
struct FakeColumnProperty {
    GUID set;
    DBPROPID id;
    Variant value;
};

// One column of a table definition, as ITableCreation hands it out and CreateTable takes it.
struct FakeColumnDesc {
    std::wstring name;
    DBTYPE type = DBTYPE_WSTR;
    DBLENGTH size = 0;
    BYTE precision = 0;
    BYTE scale = 0;
    std::wstring typeName;  // empty: no type name
    std::vector<FakeColumnProperty> properties;
    // Property sets of one GUID with no property (kept so readers see the set).
    std::vector<GUID> emptySets;
};

// The catalog side of the test provider: schema rowsets by schema GUID, the restrictions
// each GetRowset call received, and table definitions for ITableCreation/ITableDefinition.
struct FakeCatalog {
    std::vector<std::pair<GUID, std::shared_ptr<FakeResult>>> schemas;
    // Per GetRowset call: the schema and each restriction ("<empty>" for VT_EMPTY).
    std::vector<std::pair<GUID, std::vector<std::wstring>>> requests;
    std::map<std::wstring, std::vector<FakeColumnDesc>> tables;
    std::vector<std::wstring> dropped;
    bool offersTableCreation = true;
    int createCalls = 0;
};

// The session object of the fake provider: CreateCommand yields a command whose Execute
// returns `result` (whatever the text); with a catalog it also offers IDBSchemaRowset,
// ITableDefinition and ITableCreation over it.
ComPtr<IOpenRowset> MakeFakeSession(std::shared_ptr<FakeResult> result, std::shared_ptr<FakeLog> log,
                                    std::shared_ptr<FakeCatalog> catalog = nullptr);
// A data-source object the connection can hold; it answers no property (so the server
// takes it as connected).
ComPtr<IDBInitialize> MakeFakeDataSource();

// A connection already open on the fake provider.
class FakeConnection : public KobOleDbConnection {
public:
    explicit FakeConnection(std::shared_ptr<FakeResult> result,
                            std::shared_ptr<FakeLog> log = std::make_shared<FakeLog>(),
                            std::shared_ptr<FakeCatalog> catalog = nullptr);
    void Disconnect() { Close(); }
    std::shared_ptr<FakeResult> result;
    std::shared_ptr<FakeLog> log;
    std::shared_ptr<FakeCatalog> catalog;
};

}  // namespace zel::test
