// IRowsetChange of a rowset, as an object aggregated by the rowset (which offers it only when
// it was asked for). Changes go to the rowset's one base table at once (no deferred update
// mode); a rowset over a join or over expressions refuses them with a clear error.
#pragma once

#include <windows.h>
#include <oledb.h>

#include "common/ComObject.h"
#include "common/OleDbIids.h"

namespace zel::provider {

class Rowset;

class RowsetChange final : public ComObject<RowsetChange, IRowsetChange> {
public:
    explicit RowsetChange(Rowset* rowset) : m_rowset(rowset) {}

    // SetData: DB_E_ERRORSOCCURRED, nothing written, when a value cannot be stored (each
    // binding's status says why: DBSTATUS_E_PERMISSIONDENIED on a rowset that cannot be
    // changed or for the bookmark, _E_CANTCONVERTVALUE, _E_DATAOVERFLOW...);
    // DB_E_INTEGRITYVIOLATION when the table's constraints refuse the row.
    STDMETHODIMP SetData(HROW row, HACCESSOR accessor, void* data) override;
    // InsertRow: columns that are not bound, or bound with DBSTATUS_S_DEFAULT, take their
    // defaults. The new row joins the rowset; *row (when asked for) holds one reference.
    STDMETHODIMP InsertRow(HCHAPTER chapter, HACCESSOR accessor, void* data, HROW* row) override;
    // DeleteRows: per-row statuses; deleted rows are skipped by later fetches.
    STDMETHODIMP DeleteRows(HCHAPTER chapter, DBCOUNTITEM count, const HROW rows[], DBROWSTATUS statuses[]) override;

private:
    Rowset* m_rowset;  // the outer object, which owns this one
};

}  // namespace zel::provider
