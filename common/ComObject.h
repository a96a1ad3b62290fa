// IUnknown, aggregation and the class factory, written once. An object derives from
// ComObject<Derived, I1, I2, ...>; QueryInterface is generated from the interface list, and
// its file then holds only its behaviour.
//
// Hooks a Derived class may declare (found through the CRTP cast, so a declaration in
// Derived hides the default here):
//   HRESULT QueryExtra(REFIID riid, void** found)   further IIDs (base interfaces, tear-offs):
//                                      S_OK with *found set (no reference added: QueryInterface
//                                      adds it), E_NOINTERFACE when not answered, or the failure
//                                      QueryInterface returns (E_OUTOFMEMORY when a tear-off
//                                      cannot be made)
//   HRESULT NonDelegatingQueryInterface(REFIID, void**)   to refuse listed interfaces at run time
//   ULONG NonDelegatingAddRef()        reference counting (default: interlocked)
//   ULONG NonDelegatingRelease()       (an override ends with ReleaseFinish, which keeps the
//                                      final-release guard)
//   static constexpr bool kModuleLock  whether a live object keeps the module loaded (default true)
#pragma once

#include <windows.h>
#include <objbase.h>

#include <new>
#include <tuple>
#include <utility>

#include "common/ComPtr.h"
#include "common/ExceptionState.h"

namespace zel {

// Module-wide count of live objects and server locks. A DLL answers DllCanUnloadNow from
// Count(); the server process installs a hook that ties locks to its own shutdown rule.
class ModuleLifetime {
public:
    using Hook = void (*)(bool lock);
    static void Lock() noexcept;
    static void Unlock() noexcept;
    static LONG Count() noexcept;
    // Replaces the default counter; called once at process start.
    static void SetHook(Hook hook) noexcept;
};

template <typename Derived, typename... Interfaces>
class ComObject : public Interfaces... {
    static_assert(sizeof...(Interfaces) > 0, "a COM object implements at least one interface");

public:
    static constexpr bool kModuleLock = true;

    // The IUnknown methods of every interface go to the controlling unknown: the outer
    // object when aggregated, this object's own inner unknown otherwise.
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return m_controlling->QueryInterface(riid, ppv);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return m_controlling->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return m_controlling->Release(); }

    // Class-factory entry: creates a Derived, aggregated when `outer` is given (then only
    // IID_IUnknown may be asked for: CLASS_E_NOAGGREGATION otherwise). `*ppv` receives the
    // interface with one reference, or null on failure.
    template <typename... Args>
    static HRESULT CreateInstance(IUnknown* outer, REFIID riid, void** ppv, Args&&... args) noexcept {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (outer && riid != IID_IUnknown) return CLASS_E_NOAGGREGATION;
        try {
            Derived* object = new Derived(std::forward<Args>(args)...);
            object->SetOuter(outer);
            IUnknown* inner = &object->m_inner;
            inner->AddRef();  // keeps the object alive across the query
            HRESULT hr = inner->QueryInterface(riid, ppv);
            inner->Release();
            return hr;
        }
        ZEL_CATCH_RETURN()
    }

    // Creates a stand-alone Derived and returns it with one reference. Throws on failure.
    template <typename... Args>
    static ComPtr<Derived> Make(Args&&... args) {
        Derived* object = new Derived(std::forward<Args>(args)...);
        return ComPtr<Derived>(object);
    }

    // Non-delegating IUnknown, reached through the inner unknown.
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) noexcept {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        void* found = nullptr;
        if (riid == IID_IUnknown) {
            found = static_cast<IUnknown*>(&m_inner);
        } else if (!(TryInterface<Interfaces>(riid, found) || ...)) {
            const HRESULT hr = static_cast<Derived*>(this)->QueryExtra(riid, &found);
            if (FAILED(hr)) return hr;
        }
        if (!found) return E_NOINTERFACE;
        static_cast<IUnknown*>(found)->AddRef();
        *ppv = found;
        return S_OK;
    }
    ULONG NonDelegatingAddRef() noexcept { return static_cast<ULONG>(InterlockedIncrement(&m_refs)); }
    ULONG NonDelegatingRelease() noexcept { return ReleaseFinish(InterlockedDecrement(&m_refs)); }

    // The count during final release: clean-up code that AddRefs and Releases the object can
    // never bring it back to zero a second time.
    static constexpr LONG kFinalReleaseGuard = -1073741823;  // 0xC0000001

protected:
    ComObject() noexcept {
        // The thread that makes an object is the one that calls it in an apartment.
        ReserveThreadExceptionState();
        m_inner.m_owner = this;
        if (Derived::kModuleLock) ModuleLifetime::Lock();
    }
    virtual ~ComObject() {
        if (Derived::kModuleLock) ModuleLifetime::Unlock();
    }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT QueryExtra(REFIID, void**) noexcept { return E_NOINTERFACE; }

    // The end of a Release: `refs` is the count after the decrement. At zero the count is set
    // to kFinalReleaseGuard before the object is deleted; the module lock is given back last,
    // by ~ComObject, after the derived destructor has finished.
    ULONG ReleaseFinish(LONG refs) noexcept {
        if (refs != 0) return static_cast<ULONG>(refs);
        m_refs = kFinalReleaseGuard;
        delete static_cast<Derived*>(this);
        return 0;
    }

    // The identity clients see: the outer unknown when aggregated.
    IUnknown* ControllingUnknown() const noexcept { return m_controlling; }
    bool IsAggregated() const noexcept { return m_controlling != &m_inner; }
    IUnknown* InnerUnknown() noexcept { return &m_inner; }

    LONG m_refs = 0;

private:
    template <typename I>
    bool TryInterface(REFIID riid, void*& found) noexcept {
        if (riid != IidOf<I>()) return false;
        found = static_cast<I*>(this);
        return true;
    }
    void SetOuter(IUnknown* outer) noexcept { m_controlling = outer ? outer : &m_inner; }

    struct Inner final : IUnknown {
        ComObject* m_owner = nullptr;
        STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
            return static_cast<Derived*>(m_owner)->NonDelegatingQueryInterface(riid, ppv);
        }
        STDMETHODIMP_(ULONG) AddRef() override {
            return static_cast<Derived*>(m_owner)->NonDelegatingAddRef();
        }
        STDMETHODIMP_(ULONG) Release() override {
            return static_cast<Derived*>(m_owner)->NonDelegatingRelease();
        }
    };
    Inner m_inner;
    IUnknown* m_controlling = &m_inner;
};

// Class object for T: CreateInstance goes to T::CreateInstance (aggregation rules there),
// LockServer to the module count. The factory itself does not keep the module alive, so a
// server whose class objects are registered can still end when its last client leaves.
template <typename T>
class ClassFactory final : public ComObject<ClassFactory<T>, IClassFactory> {
public:
    static constexpr bool kModuleLock = false;

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        return T::CreateInstance(outer, riid, ppv);
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        if (lock)
            ModuleLifetime::Lock();
        else
            ModuleLifetime::Unlock();
        return S_OK;
    }
};

}  // namespace zel
