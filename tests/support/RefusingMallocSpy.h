// An IMallocSpy that makes the COM task allocator refuse the allocations its `refuse` function
// picks, by asking the allocator for 0 bytes (Wine's and Windows' allocators then return null).
// Everything else passes through. Register it with CoRegisterMallocSpy; it lives as long as
// the test program (no reference counting).
#pragma once

#include <windows.h>
#include <objidl.h>

namespace zel::test {

class RefusingMallocSpy final : public IMallocSpy {
public:
    // `refuse` is asked once per allocation of a non-zero size.
    explicit RefusingMallocSpy(bool (*refuse)()) noexcept : m_refuse(refuse) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IMallocSpy) {
            *object = static_cast<IMallocSpy*>(this);
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP_(SIZE_T) PreAlloc(SIZE_T request) override { return request && m_refuse() ? 0 : request; }
    STDMETHODIMP_(void*) PostAlloc(void* actual) override { return actual; }
    STDMETHODIMP_(void*) PreFree(void* request, BOOL) override { return request; }
    STDMETHODIMP_(void) PostFree(BOOL) override {}
    STDMETHODIMP_(SIZE_T) PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL) override {
        *newRequest = request;
        return size;
    }
    STDMETHODIMP_(void*) PostRealloc(void* actual, BOOL) override { return actual; }
    STDMETHODIMP_(void*) PreGetSize(void* request, BOOL) override { return request; }
    STDMETHODIMP_(SIZE_T) PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    STDMETHODIMP_(void*) PreDidAlloc(void* request, BOOL) override { return request; }
    STDMETHODIMP_(int) PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    STDMETHODIMP_(void) PreHeapMinimize() override {}
    STDMETHODIMP_(void) PostHeapMinimize() override {}

private:
    bool (*m_refuse)();
};

}  // namespace zel::test
