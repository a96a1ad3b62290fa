// The storage object a rowset hands out for a long value bound as DBTYPE_IUNKNOWN: a read-only
// stream over a snapshot of the value's bytes (UTF-16 for text, raw for binary data). It
// answers ISequentialStream and IStream; several may be open at once.
#pragma once

#include <windows.h>
#include <objidl.h>

#include <memory>
#include <mutex>

#include "common/ComObject.h"
#include "provider/values/Cell.h"

namespace zel::provider {

class StorageObject final : public ComObject<StorageObject, IStream> {
public:
    explicit StorageObject(std::shared_ptr<const Bytes> data, ULONGLONG position = 0)
        : m_data(std::move(data)), m_position(position) {}

    // A new stream over `data`, queried for `iid` into `object` (a StorageMaker for bindings).
    static HRESULT MakeAs(std::shared_ptr<const Bytes> data, REFIID iid, void** object);

    HRESULT QueryExtra(REFIID riid, void** found) noexcept;

    // ISequentialStream
    STDMETHODIMP Read(void* buffer, ULONG count, ULONG* read) override;
    STDMETHODIMP Write(const void* buffer, ULONG count, ULONG* written) override;
    // IStream
    STDMETHODIMP Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override;
    STDMETHODIMP SetSize(ULARGE_INTEGER size) override;
    STDMETHODIMP CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read, ULARGE_INTEGER* written) override;
    STDMETHODIMP Commit(DWORD flags) override;
    STDMETHODIMP Revert() override;
    STDMETHODIMP LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) override;
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count, DWORD type) override;
    STDMETHODIMP Stat(STATSTG* stat, DWORD flags) override;
    STDMETHODIMP Clone(IStream** clone) override;

private:
    std::shared_ptr<const Bytes> m_data;
    std::mutex m_lock;
    ULONGLONG m_position;
};

}  // namespace zel::provider
