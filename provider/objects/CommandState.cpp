#include "provider/objects/CommandState.h"

#include <oledberr.h>

#include "common/OleDbMemory.h"
#include "provider/errors/Errors.h"
#include "provider/properties/RowsetProperties.h"

namespace zel::provider {

CommandState::CommandState() : m_properties(MakeRowsetProperties()) {}

HRESULT CommandState::GetCommandText(GUID* dialect, LPOLESTR* text) {
    if (!text) Fail(E_INVALIDARG);
    *text = nullptr;
    std::lock_guard guard(m_lock);
    if (!m_hasText) Fail(DB_E_NOCOMMAND);
    *text = CopyToCoTaskMem(m_text).release();
    HRESULT hr = S_OK;
    if (dialect) {
        if (*dialect != DBGUID_DEFAULT && *dialect != DBGUID_SQL && *dialect != GUID_NULL) hr = DB_S_DIALECTIGNORED;
        *dialect = DBGUID_SQL;
    }
    return hr == S_OK ? S_OK : ClearErrorAndReturn(hr);
}

HRESULT CommandState::SetCommandText(REFGUID dialect, LPCOLESTR text) {
    if (dialect != DBGUID_DEFAULT && dialect != DBGUID_SQL) Fail(DB_E_DIALECTNOTSUPPORTED);
    std::lock_guard guard(m_lock);
    if (HasOpenRowset()) Fail(DB_E_OBJECTOPEN, L"A rowset of this command is still open.");
    m_hasText = text && *text;
    m_text = m_hasText ? text : L"";
    m_prepared = false;
    return S_OK;
}

HRESULT CommandState::GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount, DBPROPSET** sets) {
    std::lock_guard guard(m_lock);
    return FailOrReturn(m_properties.GetProperties(idSetCount, idSets, setCount, sets, RowsetPropertySets()));
}

HRESULT CommandState::SetProperties(ULONG setCount, DBPROPSET sets[]) {
    std::lock_guard guard(m_lock);
    if (HasOpenRowset()) Fail(DB_E_OBJECTOPEN, L"A rowset of this command is still open.");
    HRESULT hr = m_properties.SetProperties(setCount, sets, RowsetPropertySets(), ValidateRowsetProperty);
    if (FAILED(hr)) Fail(hr, L"The rowset properties cannot be satisfied; see each property's status.");
    if (hr != S_OK) PublishError(hr, L"Some optional rowset properties were not set; see each property's status.");
    return hr;
}

}  // namespace zel::provider
