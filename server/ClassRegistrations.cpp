#include "server/ClassRegistrations.h"

#include <objbase.h>

#include <functional>
#include <utility>

#include "common/ComObject.h"
#include "helper/ZelOleDbHelperImpl.h"
#include "service/ZelOleDbImpl.h"

namespace zel {
namespace {

// Activations Absorb makes per class before it gives up: each one takes the oldest
// registration of the class from the service, which is this server's once the registrations
// of the processes registered before it are taken (those register again behind it).
constexpr int kAbsorbAttempts = 16;

}  // namespace

HRESULT ClassRegistrations::Register(bool singleUse) {
    m_thread = GetCurrentThreadId();
    m_singleUse = singleUse;
    const CLSID* clsids[] = {&CLSID_ZelOleDbHelperImpl, &CLSID_ZelOleDbImpl};
    for (WPARAM index = 0; index < 2; ++index) {
        Class& c = m_classes[index];
        c.clsid = *clsids[index];
        std::function<void()> onHandOut;
        if (singleUse) {
            const DWORD thread = m_thread;
            onHandOut = [this, index, thread] {
                m_classes[index].taken = true;
                PostThreadMessageW(thread, kHandOutMessage, index, 0);
            };
        }
        if (index == 0)
            c.factory = ComPtr<IClassFactory>(ClassFactory<ZelOleDbHelperImpl>::Make(std::move(onHandOut)));
        else
            c.factory = ComPtr<IClassFactory>(ClassFactory<ZelOleDbImpl>::Make(std::move(onHandOut)));
        const HRESULT hr = RegisterClass(c);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT ClassRegistrations::RegisterClass(Class& c) noexcept {
    c.taken = false;
    const DWORD use = m_singleUse ? REGCLS_SINGLEUSE : REGCLS_MULTIPLEUSE;
    return CoRegisterClassObject(c.clsid, c.factory.get(), CLSCTX_LOCAL_SERVER, use | REGCLS_SUSPENDED, &c.cookie);
}

HRESULT ClassRegistrations::Resume() noexcept { return CoResumeClassObjects(); }

void ClassRegistrations::OnHandOut(WPARAM index) noexcept {
    if (index >= 2 || m_withdrawn.load()) return;
    Class& c = m_classes[index];
    // Several notices come for one activation (the factory is asked for IClassFactory again
    // while it is marshalled): only the first finds the registration taken.
    if (!c.taken.load()) return;
    // The taken registration is no longer in the service: revoking it races nothing. The
    // activation that took it already holds the factory.
    Revoke(c.cookie);
    RegisterClass(c);
}

void ClassRegistrations::Withdraw() noexcept {
    if (m_withdrawn.load()) return;
    m_withdrawn = true;
    if (!m_singleUse) {
        RevokeAll();
        m_absorbed = true;
    }
}

void ClassRegistrations::Absorb() noexcept {
    if (!m_withdrawn.load() || m_absorbed.load()) return;
    for (Class& c : m_classes) {
        for (int attempt = 0; attempt < kAbsorbAttempts && !c.taken.load(); ++attempt) {
            ComPtr<IClassFactory> factory;
            // Whichever server's registration comes back, taking it is harmless: that server
            // registers again (or, ending, no longer needs it).
            if (FAILED(CoGetClassObject(c.clsid, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory, factory.put_void())))
                break;
        }
    }
    m_absorbed = true;
}

void ClassRegistrations::RevokeAll() noexcept {
    for (Class& c : m_classes) Revoke(c.cookie);
}

void ClassRegistrations::Revoke(DWORD& cookie) noexcept {
    if (cookie) CoRevokeClassObject(cookie);
    cookie = 0;
}

}  // namespace zel
