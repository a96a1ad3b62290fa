// The methods of IZelOleDbRows: execution without a query-result document, rows in batches
// and the column descriptions, all on the command handles of the service object.
#include <cstring>
#include <vector>

#include "common/ComError.h"
#include "common/SafeArray.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"
#include "service/ZelOleDbRows.h"

namespace zel {
namespace {

// VARIANTs gathered for one array; whatever was not handed to the array is cleared.
class VariantCells {
public:
    VariantCells() = default;
    VariantCells(const VariantCells&) = delete;
    VariantCells& operator=(const VariantCells&) = delete;
    ~VariantCells() {
        for (VARIANT& cell : m_cells) VariantClear(&cell);
    }

    void Reserve(size_t count) { m_cells.reserve(count); }
    VARIANT& Add() {
        VARIANT& cell = m_cells.emplace_back();
        VariantInit(&cell);
        return cell;
    }
    size_t Size() const noexcept { return m_cells.size(); }

    // Moves the cells into a 2-D SAFEARRAY of VARIANT, `width` by Size() / width (the first
    // index varies fastest, so each group of `width` cells is one column of the array's
    // second dimension), and hands it out in `out` as VT_ARRAY|VT_VARIANT.
    void MoveInto(ULONG width, VARIANT* out) {
        SAFEARRAYBOUND bounds[2] = {{width, 0}, {static_cast<ULONG>(m_cells.size() / width), 0}};
        SafeArray array(SafeArrayCreate(VT_VARIANT, 2, bounds));
        if (!array) ThrowHr(E_OUTOFMEMORY);
        {
            SafeArrayData data(array.get());
            std::memcpy(data.as<VARIANT>(), m_cells.data(), m_cells.size() * sizeof(VARIANT));
        }
        m_cells.clear();  // the array owns the values now
        V_VT(out) = VT_ARRAY | VT_VARIANT;
        V_ARRAY(out) = array.release();
    }

private:
    std::vector<VARIANT> m_cells;
};

// Up to `maxRows` rows after the current one into `rows` (VT_EMPTY when none), each read
// with FieldAsNaturalVariant right after its FetchNext.
void FetchBatch(KobOleDbCommand& command, LONG maxRows, VARIANT* rows) {
    const ULONG columns = command.GetColumnCount();
    if (columns == 0 || !command.HasRowset()) return;
    VariantCells cells;
    LONG count = 0;
    while (count < maxRows && command.FetchNext() == kTriTrue) {
        if (count == 0) cells.Reserve(static_cast<size_t>(columns) * (maxRows < 1024 ? maxRows : 1024));
        for (ULONG position = 1; position <= columns; ++position) command.FieldAsNaturalVariant(position, &cells.Add());
        ++count;
    }
    if (count > 0) cells.MoveInto(columns, rows);
}

LONG SizeAttribute(DBLENGTH size) {
    return size > static_cast<DBLENGTH>(0x7FFFFFFF) ? -1 : static_cast<LONG>(size);
}

}  // namespace

STDMETHODIMP ZelOleDbRows::RowsExecute(ULONG client, LONG maxRows, short* result, BSTR* errorText,
                                       BSTR* errorStmt, VARIANT* rows) {
    try {
        if (!result || !rows) return E_POINTER;
        VariantInit(rows);
        if (maxRows < 0 || maxRows > kMaxBatchRows) return E_INVALIDARG;
        KobOleDbCommand* command = m_owner.FindCommand(client);
        if (!command) return E_HANDLE;
        if (!command->IsConnected()) return E_FAIL;
        *result = command->Execute();
        PutString(errorText, command->GetErrorText());
        PutString(errorStmt, command->GetErrorStatement());
        if (*result == kTriTrue && maxRows > 0) FetchBatch(*command, maxRows, rows);
        // Failure of the statement is told by *result and the texts, as CmdExecute tells it.
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbRows::RowsFetch(ULONG client, LONG maxRows, VARIANT* rows) {
    try {
        if (!rows) return E_POINTER;
        VariantInit(rows);
        if (maxRows < 1 || maxRows > kMaxBatchRows) return E_INVALIDARG;
        KobOleDbCommand* command = m_owner.FindCommand(client);
        if (!command) return E_HANDLE;
        if (!command->IsConnected()) return E_FAIL;
        if (!command->IsOpen()) return E_ILLEGAL_METHOD_CALL;
        FetchBatch(*command, maxRows, rows);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbRows::RowsGetColumns(ULONG client, VARIANT* columns) {
    try {
        if (!columns) return E_POINTER;
        VariantInit(columns);
        KobOleDbCommand* command = m_owner.FindCommand(client);
        if (!command) return E_HANDLE;
        if (!command->IsOpen()) return E_ILLEGAL_METHOD_CALL;
        const std::vector<ColumnDescription> described = command->DescribeColumns();
        if (described.empty()) return S_OK;
        VariantCells cells;
        cells.Reserve(described.size() * kColumnAttributes);
        for (const ColumnDescription& column : described) {
            VARIANT& name = cells.Add();
            V_VT(&name) = VT_BSTR;
            V_BSTR(&name) = SysAllocStringLen(column.name.data(), static_cast<UINT>(column.name.size()));
            if (!V_BSTR(&name)) ThrowHr(E_OUTOFMEMORY);
            const LONG numbers[] = {static_cast<LONG>(column.type), SizeAttribute(column.size), column.precision,
                                    column.scale};
            for (LONG number : numbers) {
                VARIANT& cell = cells.Add();
                V_VT(&cell) = VT_I4;
                V_I4(&cell) = number;
            }
            VARIANT& nullable = cells.Add();
            V_VT(&nullable) = VT_BOOL;
            V_BOOL(&nullable) = ToVariantBool(column.nullable);
        }
        cells.MoveInto(kColumnAttributes, columns);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
