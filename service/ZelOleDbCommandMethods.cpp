// The command methods of IZelOleDb: each looks its handle up, checks its out-parameter and
// calls one operation of the command; CmdExecute also hands out the error texts and the
// query-result document.
#include <new>

#include "common/SafeArray.h"
#include "service/OutParams.h"
#include "service/ZelOleDbImpl.h"
#include "xml/KobOleDbXML.h"

namespace zel {
namespace {

// Runs `read` on the command when the handle named one and `out` is not null; E_FAIL
// otherwise, with nothing written.
template <typename Out, typename Read>
HRESULT ReadCommand(KobOleDbCommand* command, Out* out, Read&& read) noexcept {
    try {
        if (!command || !out) return E_FAIL;
        read(*command, *out);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

// Moves answer only on a command whose connection is open.
template <typename Move>
HRESULT MoveCommand(KobOleDbCommand* command, SHORT* result, Move&& move) noexcept {
    try {
        if (!command || !result) return E_FAIL;
        if (!command->IsConnected()) return E_FAIL;
        *result = move(*command);
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace

STDMETHODIMP ZelOleDbImpl::CmdSetConnection(ULONG* client) {
    try {
        return IssueHandle(m_commands, client, [this](KobOleDbCommand& command) {
            command.SetConnection(m_connection.get());
            return S_OK;
        });
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::CmdExecute(ULONG client, SHORT* result, BSTR* xml, BSTR* errorText, BSTR* errorStmt) {
    try {
        KobOleDbCommand* command = FindCommand(client);
        if (!command || !result) return E_FAIL;
        if (!command->IsConnected()) return E_FAIL;
        *result = command->Execute();
        PutString(errorText, command->GetErrorText());
        PutString(errorStmt, command->GetErrorStatement());
        if (*result == kTriTrue && command->HasResults()) {
            // Every successful execution walks the result to its end, leaving the command
            // after its last row; the document's text is made only for a caller that asked.
            if (xml) {
                KobOleDbXML writer;
                Bstr document;
                if (writer.BuildQueryDataXml(command, document)) *xml = document.release();
            } else {
                while (command->FetchNext() == kTriTrue) {
                }
            }
        }
        // Failure of the statement is told by *result and the texts, never by the HRESULT.
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::CmdSetCommandText(ULONG client, BSTR cmd) {
    try {
        KobOleDbCommand* command = FindCommand(client);
        if (!command) return E_FAIL;
        command->SetCommandText(InputText(cmd));
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::CmdGetColumnCount(ULONG client, ULONGLONG* result) {
    return ReadCommand(FindCommand(client), result, [](KobOleDbCommand& c, ULONGLONG& r) { r = c.GetColumnCount(); });
}

STDMETHODIMP ZelOleDbImpl::CmdGetRowsAffected(ULONG client, LONGLONG* result) {
    return ReadCommand(FindCommand(client), result, [](KobOleDbCommand& c, LONGLONG& r) { r = c.GetRowsAffected(); });
}

STDMETHODIMP ZelOleDbImpl::CmdFetchNext(ULONG client, SHORT* result) {
    return MoveCommand(FindCommand(client), result, [](KobOleDbCommand& c) { return c.FetchNext(); });
}

STDMETHODIMP ZelOleDbImpl::CmdFetchPrev(ULONG client, SHORT* result) {
    return MoveCommand(FindCommand(client), result, [](KobOleDbCommand& c) { return c.FetchPrev(); });
}

STDMETHODIMP ZelOleDbImpl::CmdFetchFirst(ULONG client, SHORT* result) {
    return MoveCommand(FindCommand(client), result, [](KobOleDbCommand& c) { return c.FetchFirst(); });
}

STDMETHODIMP ZelOleDbImpl::CmdFetchLast(ULONG client, SHORT* result) {
    return MoveCommand(FindCommand(client), result, [](KobOleDbCommand& c) { return c.FetchLast(); });
}

STDMETHODIMP ZelOleDbImpl::CmdFieldAsStringEx(ULONG client, ULONGLONG colpos, BSTR* result) {
    return ReadCommand(FindCommand(client), result, [colpos](KobOleDbCommand& c, BSTR& r) {
        PutString(&r, c.FieldAsStringEx(ColumnPosition(colpos)));
    });
}

STDMETHODIMP ZelOleDbImpl::CmdFieldAsString(ULONG client, ULONGLONG colpos, BSTR* result) {
    return ReadCommand(FindCommand(client), result, [colpos](KobOleDbCommand& c, BSTR& r) {
        PutString(&r, c.FieldAsString(ColumnPosition(colpos)));
    });
}

STDMETHODIMP ZelOleDbImpl::CmdFieldAsLong(ULONG client, ULONGLONG colpos, LONG* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, LONG& r) { r = c.FieldAsLong(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdIsBlob(ULONG client, ULONGLONG colpos, SHORT* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, SHORT& r) { r = c.IsBlob(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdIsNull(ULONG client, ULONGLONG colpos, SHORT* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, SHORT& r) { r = c.IsNull(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdGetRawType(ULONG client, ULONGLONG colpos, ULONG* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, ULONG& r) { r = c.GetRawType(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdIsIntegral(ULONG client, ULONGLONG colpos, SHORT* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, SHORT& r) { r = c.IsIntegral(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdIsNumeric(ULONG client, ULONGLONG colpos, SHORT* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, SHORT& r) { r = c.IsNumeric(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdGetColumnName(ULONG client, ULONGLONG colpos, BSTR* result) {
    return ReadCommand(FindCommand(client), result, [colpos](KobOleDbCommand& c, BSTR& r) {
        PutString(&r, c.GetColumnName(ColumnPosition(colpos)));
    });
}

STDMETHODIMP ZelOleDbImpl::CmdGetColumnIndex(ULONG client, BSTR colName, ULONGLONG* result) {
    return ReadCommand(FindCommand(client), result,
                       [colName](KobOleDbCommand& c, ULONGLONG& r) { r = c.GetColumnIndex(InputText(colName)); });
}

STDMETHODIMP ZelOleDbImpl::CmdGetColumnSize(ULONG client, ULONGLONG colpos, ULONGLONG* result) {
    return ReadCommand(FindCommand(client), result,
                       [colpos](KobOleDbCommand& c, ULONGLONG& r) { r = c.GetColumnSize(ColumnPosition(colpos)); });
}

STDMETHODIMP ZelOleDbImpl::CmdHasResults(ULONG client, VARIANT_BOOL* result) {
    return ReadCommand(FindCommand(client), result,
                       [](KobOleDbCommand& c, VARIANT_BOOL& r) { r = ToVariantBool(c.HasResults()); });
}

STDMETHODIMP ZelOleDbImpl::CmdGetBlobData(ULONG client, ULONGLONG colpos, VARIANT* result) {
    return ReadCommand(FindCommand(client), result, [colpos](KobOleDbCommand& c, VARIANT& r) {
        std::vector<BYTE> bytes;
        c.GetBlobData(ColumnPosition(colpos), bytes);
        // No bytes (also a null value, which reports a count but no buffer): the caller's
        // VARIANT stays as it was.
        if (bytes.empty()) return;
        SafeArray array(SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size())));
        if (!array) ThrowHr(E_FAIL);
        {
            SafeArrayData data(array.get());
            std::copy(bytes.begin(), bytes.end(), data.as<BYTE>());
        }
        VariantClear(&r);
        V_VT(&r) = VT_ARRAY | VT_UI1;
        V_ARRAY(&r) = array.release();
    });
}

STDMETHODIMP ZelOleDbImpl::CmdClose(ULONG client) {
    try {
        KobOleDbCommand* command = FindCommand(client);
        if (!command) return E_FAIL;
        command->Close();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::CmdDestroy(ULONG client) {
    try {
        return DestroyHandle(m_commands, client);
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP ZelOleDbImpl::CmdFieldAsVariant(ULONG client, VARIANT* column, VARIANT* result) {
    try {
        KobOleDbCommand* command = FindCommand(client);
        if (!command || !column || !result) return E_FAIL;
        bool stored = false;
        switch (V_VT(column)) {
            case VT_UI8: stored = command->FieldAsVariant(static_cast<ULONG>(V_UI8(column)), result); break;
            case VT_UI4: stored = command->FieldAsVariant(V_UI4(column), result); break;
            case VT_BSTR: stored = command->FieldAsVariantByName(InputText(V_BSTR(column)), result); break;
            default: return E_INVALIDARG;  // VT_I4 and VT_I2 positions included
        }
        return stored ? S_OK : E_FAIL;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel
