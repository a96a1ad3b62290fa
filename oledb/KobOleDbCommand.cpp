#include "oledb/KobOleDbCommand.h"

#include <oaidl.h>

#include "oledb/ServerRowsetProperties.h"

namespace zel {

KobOleDbCommand::~KobOleDbCommand() {
    ReleaseRowset();
    m_command.reset();
}

void KobOleDbCommand::SetConnection(KobOleDbConnection* connection) { m_connection = connection; }

void KobOleDbCommand::SetCommandText(const std::wstring& text) { m_commandText = text; }

KobOleDbConnection* KobOleDbCommand::GetConnection() { return m_connection; }

bool KobOleDbCommand::IsConnected() { return m_connection && m_connection->IsConnected(); }

LONG KobOleDbCommand::GetRowsAffected() { return m_rowsAffected; }

bool KobOleDbCommand::HasResults() { return true; }

void KobOleDbCommand::ReleaseCurrentRow() noexcept {
    m_accessor.ReleaseRowValues();
    if (m_currentRow != DB_NULL_HROW && m_rowset) m_rowset->ReleaseRows(1, &m_currentRow, nullptr, nullptr, nullptr);
    m_currentRow = DB_NULL_HROW;
}

void KobOleDbCommand::ReleaseRowset() noexcept {
    ReleaseCurrentRow();
    m_accessor.Release();
    m_rowsetChange.reset();
    m_rowset.reset();
}

void KobOleDbCommand::Close() {
    ReleaseRowset();
    m_isOpen = false;
}

HRESULT KobOleDbCommand::ExecuteSteps() {
    m_command.reset();
    ComPtr<IDBCreateCommand> createCommand;
    HRESULT hr = m_connection->GetSession().query(createCommand);
    if (hr != S_OK) return FAILED(hr) ? hr : E_FAIL;
    hr = createCommand->CreateCommand(nullptr, IID_ICommand, m_command.put_unknown());
    createCommand.reset();
    if (hr != S_OK) return hr;

    ComPtr<ICommandText> text;
    hr = m_command.query(text);
    if (hr == S_OK) hr = text->SetCommandText(DBGUID_DEFAULT, m_commandText.c_str());
    if (hr != S_OK) return hr;

    // Every command asks for a scrollable, updatable rowset with storage objects for long
    // values; a provider that cannot scroll backwards or update fails the execution.
    hr = SetServerRowsetProperties(m_command.get());
    if (hr != S_OK) return hr;

    DBROWCOUNT affected = 0;
    hr = m_command->Execute(nullptr, IID_IRowset, nullptr, &affected, m_rowset.put_unknown());
    m_rowsAffected = static_cast<LONG>(affected);
    if (hr != S_OK) return hr;

    if (m_rowset) {
        m_rowsetChange = m_rowset.try_as<IRowsetChange>();
        hr = m_accessor.Bind(m_rowset.get());
    }
    return hr;
}

short KobOleDbCommand::Execute() {
    if (m_rowset) ReleaseRowset();
    m_isOpen = false;
    if (!m_connection || !m_connection->IsConnected() || m_commandText.empty()) return kTriNotApplicable;

    m_columnCountCache = 0xFFFFFFFF;
    m_rowsAffected = 0;
    if (!CheckResult(ExecuteSteps())) {
        ReleaseRowset();
        SetErrorStatement(m_commandText);
        return kTriNotApplicable;
    }
    m_isOpen = true;
    m_atEnd = false;
    m_beforeFirst = true;
    return kTriTrue;
}

ULONG KobOleDbCommand::GetColumnCount() {
    if (m_columnCountCache != 0xFFFFFFFF) return m_columnCountCache;
    m_columnCountCache = static_cast<ULONG>(m_accessor.ColumnCount());
    if (m_columnCountCache == 0) return 0;
    if (m_accessor.HasBookmark()) m_columnCountCache -= 1;
    return m_columnCountCache;
}

HRESULT KobOleDbCommand::FetchOne(DBROWOFFSET skip, bool dataFailureIsSuccess) {
    DBCOUNTITEM obtained = 0;
    HROW* rows = &m_currentRow;
    HRESULT hr = m_rowset->GetNextRows(DB_NULL_HCHAPTER, skip, 1, &obtained, &rows);
    if (hr != S_OK) {
        m_currentRow = DB_NULL_HROW;
        return hr;
    }
    HRESULT data = m_rowset->GetData(m_currentRow, m_accessor.Handle(), m_accessor.Buffer());
    if (FAILED(data)) {
        ReleaseCurrentRow();
        return dataFailureIsSuccess ? S_OK : data;
    }
    return data;
}

short KobOleDbCommand::FetchNext() {
    if (!m_isOpen) return kTriNotApplicable;
    if (m_atEnd || !m_rowset) return kTriFalse;
    ReleaseCurrentRow();
    HRESULT hr = S_OK;
    if (m_beforeFirst) {
        m_beforeFirst = false;
        hr = m_rowset->RestartPosition(DB_NULL_HCHAPTER);
        hr = FAILED(hr) ? hr : FetchOne(0);
    } else {
        hr = FetchOne(0);
    }
    bool ok = CheckResult(hr);
    m_atEnd = !ok;
    return ok ? kTriTrue : kTriFalse;
}

short KobOleDbCommand::FetchPrev() {
    if (!m_isOpen) return kTriNotApplicable;
    if (m_beforeFirst || !m_rowset) return kTriFalse;
    ReleaseCurrentRow();
    // From the position after the last fetched row: back two rows, then one forward.
    bool ok = CheckResult(FetchOne(-2));
    m_atEnd = false;
    m_beforeFirst = !ok;
    return ok ? kTriTrue : kTriFalse;
}

short KobOleDbCommand::FetchFirst() {
    if (!m_isOpen) return kTriNotApplicable;
    if (!m_rowset) return kTriFalse;
    ReleaseCurrentRow();
    HRESULT hr = m_rowset->RestartPosition(DB_NULL_HCHAPTER);
    hr = FAILED(hr) ? hr : FetchOne(0);
    bool ok = CheckResult(hr);
    m_beforeFirst = false;
    m_atEnd = !ok;
    return ok ? kTriTrue : kTriFalse;
}

short KobOleDbCommand::FetchLast() {
    if (!m_isOpen) return kTriNotApplicable;
    if (!m_rowset) return kTriFalse;
    ReleaseCurrentRow();
    // The restart's status is ignored, and a failed GetData still counts as success.
    m_rowset->RestartPosition(DB_NULL_HCHAPTER);
    bool ok = CheckResult(FetchOne(-1, true));
    m_beforeFirst = false;
    m_atEnd = !ok;
    return ok ? kTriTrue : kTriFalse;
}

long KobOleDbCommand::ColumnIndex(ULONG position) {
    if (!m_isOpen || position == 0 || position > GetColumnCount()) return -1;
    DBORDINAL index = position - 1 + (m_accessor.HasBookmark() ? 1 : 0);
    if (index >= m_accessor.ColumnCount()) return -1;
    return static_cast<long>(index);
}

ULONG KobOleDbCommand::ReadStorage(IUnknown* storage, std::vector<BYTE>& buffer) {
    buffer.clear();
    if (!storage) return 0;
    ComPtr<IUnknown> object(storage);
    ComPtr<ISequentialStream> stream = object.try_as<ISequentialStream>();
    if (!stream) {
        // IStream derives from ISequentialStream, so it reads the same way.
        ComPtr<IStream> full = object.try_as<IStream>();
        if (full) stream = ComPtr<ISequentialStream>(full.get());
    }
    if (!stream) return 0;
    BYTE chunk[10000];
    for (;;) {
        ULONG read = 0;
        HRESULT hr = stream->Read(chunk, sizeof chunk, &read);
        if (FAILED(hr) || read == 0) break;
        buffer.insert(buffer.end(), chunk, chunk + read);
    }
    return static_cast<ULONG>(buffer.size());
}

}  // namespace zel
