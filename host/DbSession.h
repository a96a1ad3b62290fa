// zeldb's side of the conversation with the ZelPmDb32 server: one service object reached out
// of process, the connection it holds, and thin owners of the server's command, table,
// column and index handles. Every failure becomes a ZelDbError.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZelPmDb32.h"
#include "common/ComPtr.h"
#include "common/Variant.h"
#include "host/ResultWriters.h"
#include "host/ZelDbError.h"

namespace zel::zeldb {

// Creates the server's objects with CLSCTX_LOCAL_SERVER. Throws ZelDbError with advice when
// the server is not registered or does not start.
ComPtr<IZelOleDb> CreateServiceObject();
ComPtr<IZelOleDbHelper> CreateHelperObject();

struct TableInfo {
    std::wstring name;
    std::wstring type;
    std::wstring description;
};

struct ColumnInfo {
    std::wstring name;
    LONG position = 0;
    LONG dataType = 0;
    LONG size = 0;
    LONG precision = 0;
    LONG scale = 0;
    bool nullable = false;
    bool hasDefault = false;
    std::wstring defaultValue;
    bool identityKnown = false;  // the provider described the table's identity columns
    bool identity = false;
    LONG seed = 0;
    LONG increment = 0;
};

struct IndexInfo {
    std::wstring table;
    std::wstring index;
    std::wstring column;
};

// The name of a DBTYPE code ("DBTYPE_WSTR"); the number itself for codes it does not know.
std::wstring DbTypeName(LONG code);

// One executed statement on the server (a command handle, destroyed with the object).
class Statement {
public:
    struct Column {
        std::wstring name;
        ULONG rawType = 0;
        bool blob = false;
        bool alignRight = false;
    };

    explicit Statement(IZelOleDb* service);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // Runs `sql` through CmdExecute (the server builds its query-result document); throws
    // ZelDbError with the server's error text when it fails.
    void Execute(const std::wstring& sql);

    // The batch interface (IZelOleDbRows): runs `sql` without a document and keeps the first
    // batch of up to `batchRows` rows (0: none) for NextBatch. Throws as Execute does.
    void ExecuteBatched(const std::wstring& sql, LONG batchRows);
    // The result's columns as RowsGetColumns describes them; empty for a statement without rows.
    struct BatchColumn {
        std::wstring name;
        LONG type = 0;  // DBTYPE
        bool alignRight = false;  // integral and numeric (DECIMAL, NUMERIC) columns
    };
    std::vector<BatchColumn> DescribeColumns();
    // The next batch of rows as a 2-D SAFEARRAY of VARIANT (columns by rows) in `rows`: the
    // one ExecuteBatched kept first, then up to `batchRows` more per call. False (and `rows`
    // VT_EMPTY) when no rows are left.
    bool NextBatch(LONG batchRows, Variant& rows);
    // The query-result document the execution produced (none for a result without rows).
    const std::optional<std::wstring>& xml() const noexcept { return m_xml; }
    std::uint64_t ColumnCount();
    std::int64_t RowsAffected();
    std::vector<Column> Columns();
    // Row movement; true when a row is current.
    bool First();
    bool Next();
    // The current row's field as the server gives it: its text (CmdFieldAsStringEx), NULL,
    // or a blob's size.
    Cell ReadCell(ULONG position, const Column& column);

private:
    bool Move(HRESULT (STDMETHODCALLTYPE IZelOleDb::*move)(ULONG, short*));

    IZelOleDbRows* Rows();

    IZelOleDb* m_service;
    ComPtr<IZelOleDbRows> m_rows;
    Variant m_firstBatch;
    bool m_hasFirstBatch = false;
    bool m_endSeen = false;  // a batch came back short: no further call is needed
    ULONG m_handle = 0;
    std::optional<std::wstring> m_xml;
};

class DbSession {
public:
    // Starts (or reaches) the server.
    DbSession();
    explicit DbSession(ComPtr<IZelOleDb> service) : m_service(std::move(service)) {}
    ~DbSession();

    IZelOleDb* service() const noexcept { return m_service.get(); }

    void Open(const std::wstring& initString);
    // The data source's name as the provider reports it (the database file); empty if none.
    std::wstring DataSourceName();

    std::vector<TableInfo> Tables(const std::optional<std::wstring>& type);
    std::vector<ColumnInfo> Columns(const std::wstring& table);
    std::vector<IndexInfo> Indexes(const std::optional<std::wstring>& table);
    std::wstring TableDefinition(const std::wstring& table);
    void CreateTable(const std::wstring& tableDefXml);
    void DropTable(const std::wstring& table);
    void Compact();
    // Creates a new database file; `initString` chooses the provider.
    void CreateDatabaseFile(const std::wstring& initString, const std::wstring& file);

private:
    ComPtr<IZelOleDb> m_service;
    bool m_open = false;
};

}  // namespace zel::zeldb
