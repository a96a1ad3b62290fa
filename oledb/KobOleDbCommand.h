// The server's unit of query execution: one command text run on the session of one
// connection, the single rowset it produced with every column bound into one row buffer,
// and moves forwards and backwards over its rows. Moves and classifications answer the
// tri-state numbers of TriState.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <string>
#include <string_view>
#include <vector>

#include "common/ComPtr.h"
#include "common/OleDbIids.h"
#include "oledb/DynamicColumnAccessor.h"
#include "oledb/KobOleDbConnection.h"
#include "oledb/KobOleDbErrorInfo.h"

namespace zel {

// Answers of moves and classifications, passed to the host unchanged.
enum TriState : short {
    kTriFalse = 0,          // no row / the answer is no
    kTriTrue = 1,           // a row is current / the answer is yes
    kTriNotApplicable = 2,  // no rowset, no connection, or a position outside the columns
};

// One column of a result as the provider describes it (long columns keep their own type).
struct ColumnDescription {
    std::wstring name;
    DBTYPE type = DBTYPE_EMPTY;
    DBLENGTH size = 0;       // declared size; ~0 for unbounded
    BYTE precision = 0;
    BYTE scale = 0;
    bool nullable = false;
};

class KobOleDbCommand : public KobOleDbErrorInfo {
public:
    KobOleDbCommand() = default;
    KobOleDbCommand(const KobOleDbCommand&) = delete;
    KobOleDbCommand& operator=(const KobOleDbCommand&) = delete;

    // The virtual operations, in their fixed order.
    virtual ~KobOleDbCommand();
    // Stores the connection (not owned); nothing is closed.
    virtual void SetConnection(KobOleDbConnection* connection);
    // Replaces the text; an open rowset stays open until the next Execute or Close.
    virtual void SetCommandText(const std::wstring& text);
    // Runs the text and binds the rowset: 1 on success (also for statements without rows),
    // 2 when there is no open connection or text (error text untouched) or on a provider
    // failure (error text set, error statement = the command text).
    virtual short Execute();
    // Columns of the result, the bookmark column not counted; cached per execution.
    virtual ULONG GetColumnCount();
    virtual LONG GetRowsAffected();
    virtual short FetchNext();
    virtual short FetchPrev();
    virtual short FetchFirst();
    virtual short FetchLast();
    // Field readers (positions are 1-based, bookmark excluded). See KobOleDbFieldReaders.cpp.
    virtual std::wstring FieldAsString(ULONG position);
    virtual std::wstring FieldAsStringEx(ULONG position);
    virtual bool FieldAsVariantByName(const std::wstring& name, VARIANT* variant);
    virtual bool FieldAsVariant(ULONG position, VARIANT* variant);
    virtual LONG FieldAsLong(ULONG position);
    virtual short IsBlob(ULONG position);
    virtual short IsNull(ULONG position);
    virtual short IsNumeric(ULONG position);
    virtual short IsIntegral(ULONG position);
    virtual DBTYPE GetRawType(ULONG position);
    virtual std::wstring GetColumnName(ULONG position);
    virtual ULONG GetColumnIndex(const std::wstring& name);
    virtual ULONG GetColumnSize(ULONG position);
    // Always true.
    virtual bool HasResults();
    // Bytes of a long column read through its storage object into `buffer`; the returned
    // count may differ from buffer.size() (a null value answers 3 with no bytes).
    virtual ULONG GetBlobData(ULONG position, std::vector<BYTE>& buffer);
    // Reads a storage-bound column like GetBlobData; not reached from the service interface.
    virtual ULONG ReadStreamColumn(ULONG position, std::vector<BYTE>& buffer);
    // Releases the row, the accessor, the buffers and the rowset; flags and counts stay.
    virtual void Close();
    virtual bool IsConnected();
    virtual KobOleDbConnection* GetConnection();

    // Reading whole rows for batches (KobOleDbNaturalValues.cpp); not virtual, so the fixed
    // operation order above is untouched.
    // Writes the current row's field at `position` into `variant` (cleared first) in its
    // natural automation type: VT_NULL for NULL, numbers, CY, DECIMAL, BOOL and DATE as
    // themselves, text as VT_BSTR and binary as VT_ARRAY|VT_UI1 whatever their length (long
    // values are read from their storage objects), a GUID as its "{...}" text. A value the
    // provider could not deliver, or a type without an automation form, gives VT_EMPTY.
    // False for a closed command or a position outside the columns.
    bool FieldAsNaturalVariant(ULONG position, VARIANT* variant);
    // The result's columns, bookmark excluded; empty when no rowset is held.
    std::vector<ColumnDescription> DescribeColumns();
    // Whether a rowset with rows to read is held (false for a statement without rows).
    bool HasRowset() const noexcept { return m_isOpen && static_cast<bool>(m_rowset); }
    // The text FieldAsStringEx gives for the current row's field at `position`, without making
    // a string of it where the row already holds it: wide text is a view into the row buffer
    // (or the bound BSTR), every other type is written into `scratch` and viewed there. Valid
    // until the next fetch, close or call with the same scratch. Not virtual, like the batch
    // readers above.
    std::wstring_view FieldTextView(ULONG position, std::wstring& scratch);
    bool IsOpen() const noexcept { return m_isOpen; }

protected:
    // Index into the bound columns for a 1-based position, or -1 when the common
    // precondition of the readers fails (closed, position 0 or past the last column).
    long ColumnIndex(ULONG position);
    // Reads a storage object's bytes in 10,000-byte chunks.
    static ULONG ReadStorage(IUnknown* storage, std::vector<BYTE>& buffer);
    // The field's text as FieldAsString gives it: a view into the row buffer (or the bound
    // BSTR) for wide text, written into `scratch` and viewed there for every other type.
    std::wstring_view FieldText(ULONG position, std::wstring& scratch);

private:
    void ReleaseCurrentRow() noexcept;
    void ReleaseRowset() noexcept;
    // GetNextRows of one row from the current position, then GetData into the row buffer.
    HRESULT FetchOne(DBROWOFFSET skip, bool dataFailureIsSuccess = false);
    HRESULT ExecuteSteps();

    KobOleDbConnection* m_connection = nullptr;
    DynamicColumnAccessor m_accessor;
    ComPtr<IRowset> m_rowset;
    ComPtr<IRowsetChange> m_rowsetChange;
    HROW m_currentRow = DB_NULL_HROW;
    ComPtr<ICommand> m_command;
    std::wstring m_commandText;
    bool m_beforeFirst = false;
    bool m_isOpen = false;
    bool m_atEnd = false;
    LONG m_rowsAffected = 0;
    ULONG m_columnCountCache = 0xFFFFFFFF;
};

}  // namespace zel
