#include "provider/objects/RowsetChange.h"

#include <oledberr.h>

#include "provider/errors/Errors.h"
#include "provider/objects/Rowset.h"
#include "provider/rows/RowStore.h"
#include "provider/values/ValueWriter.h"

namespace zel::provider {

namespace {

constexpr wchar_t kNotChangeable[] =
    L"The rowset cannot be changed: its rows do not all come from one base table (a join, an expression or a view "
    L"over several tables), or the table has neither a rowid nor its key in the rowset.";

bool IsErrorStatus(DBSTATUS status) {
    return status != DBSTATUS_S_OK && status != DBSTATUS_S_ISNULL && status != DBSTATUS_S_IGNORE &&
           status != DBSTATUS_S_DEFAULT;
}

void RequireUpdatability(const Rowset& rowset, LONG bit, const wchar_t* what) {
    if (!(rowset.properties().GetI4(DBPROPSET_ROWSET, DBPROP_UPDATABILITY) & bit))
        Fail(DB_E_NOTSUPPORTED, std::wstring(L"The rowset's DBPROP_UPDATABILITY does not allow ") + what + L".");
}

struct CollectedValues {
    std::vector<std::pair<size_t, Cell>> values;
    size_t errors = 0;
    std::wstring firstError;
};

// Reads every binding of `accessor` from the consumer's buffer, writing back each status.
CollectedValues Collect(Rowset& rowset, const Accessor& accessor, void* data, bool inserting) {
    CollectedValues collected;
    const bool changeable = rowset.cache().source().target().has_value();
    for (const DBBINDING& b : accessor.bindings) {
        const ColumnDesc* column = rowset.ColumnAt(b.iOrdinal);
        DBSTATUS status;
        if (!changeable || b.iOrdinal == 0 || !column->writable) {
            status = DBSTATUS_E_PERMISSIONDENIED;
        } else {
            WriteValue value = ReadConsumerValue(b, data, *column);
            status = value.status;
            if (!IsErrorStatus(status)) {
                if (value.action == WriteAction::Store) {
                    collected.values.emplace_back(b.iOrdinal - 1, std::move(value.cell));
                } else if (value.action == WriteAction::UseDefault && !inserting) {
                    status = DBSTATUS_E_BADSTATUS;  // a column's default applies to new rows only
                }
            }
        }
        if (b.dwPart & DBPART_STATUS) *reinterpret_cast<DBSTATUS*>(static_cast<BYTE*>(data) + b.obStatus) = status;
        if (IsErrorStatus(status) && collected.errors++ == 0) {
            collected.firstError = !changeable ? std::wstring(kNotChangeable)
                                               : L"Column " + std::to_wstring(b.iOrdinal) +
                                                     (column ? L" (" + column->name + L")" : std::wstring()) +
                                                     L": the value cannot be stored (status " +
                                                     std::to_wstring(status) + L").";
        }
    }
    return collected;
}

}  // namespace

STDMETHODIMP RowsetChange::SetData(HROW handle, HACCESSOR accessorHandle, void* data) {
    try {
        std::lock_guard guard(m_rowset->lock());
        RequireUpdatability(*m_rowset, DBPROPVAL_UP_CHANGE, L"changing rows");
        CachedRow* row = m_rowset->cache().Find(handle);
        if (!row) Fail(DB_E_BADROWHANDLE);
        if (row->deleted) Fail(DB_E_DELETEDROW);
        auto accessor = m_rowset->accessors().Get(accessorHandle);
        if (!(accessor->flags & DBACCESSOR_ROWDATA)) Fail(DB_E_BADACCESSORTYPE);
        if (accessor->bindings.empty()) return S_OK;
        if (!data) Fail(E_INVALIDARG, L"No buffer holds the new values.");
        CollectedValues collected = Collect(*m_rowset, *accessor, data, false);
        if (collected.errors) Fail(DB_E_ERRORSOCCURRED, collected.firstError);
        m_rowset->cache().ReadToEnd();

        const auto& target = *m_rowset->cache().source().target();
        RowStore& store = *m_rowset->store();
        const size_t index = m_rowset->cache().IndexOf(handle);
        SourceRow updated = m_rowset->cache().Values(index);
        if (!store.Update(target, m_rowset->columns(), updated, collected.values))
            Fail(DB_E_CONCURRENCYVIOLATION, L"The row is no longer in the table: another change deleted or altered it.");
        for (auto& [column, cell] : collected.values) updated.cells[column] = cell;
        m_rowset->cache().Replace(index, store.Reload(target, m_rowset->columns(), updated).value_or(std::move(updated)));
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP RowsetChange::InsertRow(HCHAPTER chapter, HACCESSOR accessorHandle, void* data, HROW* handle) {
    try {
        if (handle) *handle = DB_NULL_HROW;
        if (chapter != DB_NULL_HCHAPTER) Fail(DB_E_BADCHAPTER);
        std::lock_guard guard(m_rowset->lock());
        RequireUpdatability(*m_rowset, DBPROPVAL_UP_INSERT, L"inserting rows");
        auto accessor = m_rowset->accessors().Get(accessorHandle);
        if (!(accessor->flags & DBACCESSOR_ROWDATA)) Fail(DB_E_BADACCESSORTYPE);
        if (!accessor->bindings.empty() && !data) Fail(E_INVALIDARG, L"No buffer holds the new row's values.");
        if (!m_rowset->cache().source().target()) Fail(DB_E_NOTSUPPORTED, kNotChangeable);
        CollectedValues collected = Collect(*m_rowset, *accessor, data, true);
        if (collected.errors) Fail(DB_E_ERRORSOCCURRED, collected.firstError);
        m_rowset->cache().ReadToEnd();

        const auto& target = *m_rowset->cache().source().target();
        size_t index = m_rowset->cache().Append(m_rowset->store()->Insert(target, m_rowset->columns(), collected.values));
        if (handle) {
            *handle = RowCache::HandleOf(index);
            m_rowset->cache().FindAny(*handle)->refs = 1;
        }
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP RowsetChange::DeleteRows(HCHAPTER chapter, DBCOUNTITEM count, const HROW rows[], DBROWSTATUS statuses[]) {
    try {
        if (chapter != DB_NULL_HCHAPTER) Fail(DB_E_BADCHAPTER);
        if (count && !rows) Fail(E_INVALIDARG);
        std::lock_guard guard(m_rowset->lock());
        RequireUpdatability(*m_rowset, DBPROPVAL_UP_DELETE, L"deleting rows");
        const auto& target = m_rowset->cache().source().target();
        if (target) m_rowset->cache().ReadToEnd();
        DBCOUNTITEM errors = 0;
        std::wstring firstError;
        for (DBCOUNTITEM i = 0; i < count; ++i) {
            DBROWSTATUS status = DBROWSTATUS_S_OK;
            CachedRow* row = m_rowset->cache().Find(rows[i]);
            if (!row) {
                status = DBROWSTATUS_E_INVALID;
            } else if (row->deleted) {
                status = DBROWSTATUS_E_DELETED;
            } else if (!target) {
                status = DBROWSTATUS_E_PERMISSIONDENIED;
                if (firstError.empty()) firstError = kNotChangeable;
            } else {
                try {
                    if (!m_rowset->store()->Delete(*target, m_rowset->columns(),
                                                   m_rowset->cache().Values(m_rowset->cache().IndexOf(rows[i]))))
                        status = DBROWSTATUS_E_DELETED;
                    row->deleted = true;
                } catch (const ComError& e) {
                    status = e.code() == DB_E_INTEGRITYVIOLATION ? DBROWSTATUS_E_INTEGRITYVIOLATION : DBROWSTATUS_E_FAIL;
                    if (firstError.empty()) firstError = L"A row could not be deleted; see its status.";
                }
            }
            if (statuses) statuses[i] = status;
            if (status != DBROWSTATUS_S_OK) ++errors;
        }
        if (errors == 0) return S_OK;
        if (firstError.empty()) firstError = L"Some rows could not be deleted; see each row's status.";
        if (errors == count) Fail(DB_E_ERRORSOCCURRED, firstError);
        PublishError(DB_S_ERRORSOCCURRED, firstError);
        return DB_S_ERRORSOCCURRED;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
