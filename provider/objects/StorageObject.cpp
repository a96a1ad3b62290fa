#include "provider/objects/StorageObject.h"

#include <algorithm>
#include <cstring>

namespace zel::provider {

HRESULT StorageObject::MakeAs(std::shared_ptr<const Bytes> data, REFIID iid, void** object) {
    return Make(std::move(data))->QueryInterface(iid, object);
}

HRESULT StorageObject::QueryExtra(REFIID riid, void** found) noexcept {
    if (riid != IID_ISequentialStream) return E_NOINTERFACE;
    *found = static_cast<ISequentialStream*>(static_cast<IStream*>(this));
    return S_OK;
}

STDMETHODIMP StorageObject::Read(void* buffer, ULONG count, ULONG* read) {
    try {
        if (!buffer && count) return STG_E_INVALIDPOINTER;
        std::lock_guard guard(m_lock);
        ULONGLONG size = m_data->size();
        ULONG n = m_position >= size ? 0 : static_cast<ULONG>(std::min<ULONGLONG>(count, size - m_position));
        if (n) memcpy(buffer, m_data->data() + m_position, n);
        m_position += n;
        if (read) *read = n;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP StorageObject::Write(const void*, ULONG, ULONG* written) {
    if (written) *written = 0;
    return STG_E_ACCESSDENIED;  // values are changed through IRowsetChange, not the stream
}

STDMETHODIMP StorageObject::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    try {
        std::lock_guard guard(m_lock);
        LONGLONG base;
        switch (origin) {
        case STREAM_SEEK_SET: base = 0; break;
        case STREAM_SEEK_CUR: base = static_cast<LONGLONG>(m_position); break;
        case STREAM_SEEK_END: base = static_cast<LONGLONG>(m_data->size()); break;
        default: return STG_E_INVALIDFUNCTION;
        }
        LONGLONG target = base + move.QuadPart;
        if (target < 0) return STG_E_INVALIDFUNCTION;
        m_position = static_cast<ULONGLONG>(target);
        if (position) position->QuadPart = m_position;
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP StorageObject::SetSize(ULARGE_INTEGER) { return STG_E_ACCESSDENIED; }

STDMETHODIMP StorageObject::CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                   ULARGE_INTEGER* written) {
    try {
        if (!target) return STG_E_INVALIDPOINTER;
        std::lock_guard guard(m_lock);
        ULONGLONG size = m_data->size();
        ULONGLONG n = m_position >= size ? 0 : std::min<ULONGLONG>(count.QuadPart, size - m_position);
        ULONGLONG done = 0;
        HRESULT hr = S_OK;
        while (done < n && SUCCEEDED(hr)) {
            ULONG chunk = static_cast<ULONG>(std::min<ULONGLONG>(n - done, 1u << 20));
            ULONG wrote = 0;
            hr = target->Write(m_data->data() + m_position + done, chunk, &wrote);
            done += wrote;
            if (wrote == 0) break;
        }
        m_position += done;
        if (read) read->QuadPart = done;
        if (written) written->QuadPart = done;
        return hr;
    }
    ZEL_CATCH_RETURN()
}

STDMETHODIMP StorageObject::Commit(DWORD) { return S_OK; }
STDMETHODIMP StorageObject::Revert() { return S_OK; }
STDMETHODIMP StorageObject::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }
STDMETHODIMP StorageObject::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) { return STG_E_INVALIDFUNCTION; }

STDMETHODIMP StorageObject::Stat(STATSTG* stat, DWORD) {
    if (!stat) return STG_E_INVALIDPOINTER;
    *stat = STATSTG{};
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_data->size();
    stat->grfMode = STGM_READ;
    return S_OK;
}

STDMETHODIMP StorageObject::Clone(IStream** clone) {
    if (!clone) return STG_E_INVALIDPOINTER;
    *clone = nullptr;
    try {
        std::lock_guard guard(m_lock);
        *clone = StorageObject::Make(m_data, m_position).detach();
        return S_OK;
    }
    ZEL_CATCH_RETURN()
}

}  // namespace zel::provider
