#include "oledb/CatalogEnumeration.h"

namespace zel {

bool CatalogEnumeration::FetchNext() { return Move(false); }

bool CatalogEnumeration::Move(bool recordErrors) {
    if (!m_reader) return false;
    if (m_firstFetch) {
        m_firstFetch = false;
        HRESULT hr = m_reader->Restart();
        if (recordErrors ? !CheckResult(hr) : FAILED(hr)) return false;
    }
    HRESULT hr = m_reader->FetchNext();
    return recordErrors ? CheckResult(hr) : hr == S_OK;
}

}  // namespace zel
