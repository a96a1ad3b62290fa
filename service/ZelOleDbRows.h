// IZelOleDbRows, the batch interface of the service object: a part of ZelOleDbImpl with its
// own vtable and its own late-bound dispatch, working on the object's command handles. Its
// IUnknown is the service object's (QueryInterface, AddRef and Release go to the
// controlling unknown), so IDispatch asked of it yields IZelOleDb's, as COM identity wants;
// only calls made through this interface's own IDispatch slots reach the rows dispatcher.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include "ZelPmDb32.h"

namespace zel {

class ZelOleDbImpl;

class ZelOleDbRows final : public IZelOleDbRows {
public:
    // The most rows one call hands out; a larger batch size is refused with E_INVALIDARG.
    static constexpr LONG kMaxBatchRows = 100000;
    // Attributes per column in RowsGetColumns: name, DBTYPE, size, precision, scale, nullable.
    static constexpr ULONG kColumnAttributes = 6;

    explicit ZelOleDbRows(ZelOleDbImpl& owner) noexcept : m_owner(owner) {}
    ZelOleDbRows(const ZelOleDbRows&) = delete;
    ZelOleDbRows& operator=(const ZelOleDbRows&) = delete;

    // IUnknown: the service object's.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IDispatch of this interface: type information of IZelOleDbRows, the rows dispatcher.
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID lcid, DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID member, REFIID riid, LCID lcid, WORD flags, DISPPARAMS* params, VARIANT* result,
                        EXCEPINFO* excepInfo, UINT* argErr) override;

    // The methods (ZelOleDbRowsMethods.cpp). Common answers: E_POINTER for a null out-pointer
    // the method needs, E_INVALIDARG for a batch size outside its range, E_HANDLE for a handle
    // that names no command. `*rows` and `*columns` are [out]: never read, always written
    // (VT_EMPTY when there is nothing to hand out).
    //
    // Runs the command's text (no query-result document is made) and hands out the first
    // batch of up to `maxRows` rows (0..kMaxBatchRows; 0 only executes). `*result`, the error
    // texts and the HRESULT are those of CmdExecute: S_OK with *result 1 on success, 2 with
    // the provider's error text and the failing statement on failure; E_FAIL when the
    // command's connection is not open. Afterwards the command stands on the batch's last
    // row, as that many CmdFetchNext calls would leave it.
    STDMETHODIMP RowsExecute(ULONG client, LONG maxRows, short* result, BSTR* errorText, BSTR* errorStmt,
                             VARIANT* rows) override;
    // The next batch of up to `maxRows` rows (1..kMaxBatchRows) after the current row, moving
    // the command as repeated CmdFetchNext would. Fewer rows than asked for mean the end was
    // reached; none gives VT_EMPTY. E_ILLEGAL_METHOD_CALL when the command holds no result
    // (never executed, failed or closed); E_FAIL when its connection is not open.
    STDMETHODIMP RowsFetch(ULONG client, LONG maxRows, VARIANT* rows) override;
    // The result's columns as a 2-D SAFEARRAY of VARIANT, attributes by columns: name
    // (VT_BSTR), DBTYPE as the provider reports it (VT_I4), declared size (VT_I4, -1 when
    // unbounded), precision and scale (VT_I4), nullable (VT_BOOL). VT_EMPTY for a statement
    // without rows; E_ILLEGAL_METHOD_CALL when the command holds no result.
    STDMETHODIMP RowsGetColumns(ULONG client, VARIANT* columns) override;

private:
    ZelOleDbImpl& m_owner;
};

}  // namespace zel
