#include "server/ClassRegistrations.h"

#include <objbase.h>

#include "common/ComObject.h"
#include "helper/ZelOleDbHelperImpl.h"
#include "service/ZelOleDbImpl.h"

namespace zel {

HRESULT ClassRegistrations::Register(bool underWine) {
    m_underWine = underWine;
    const CLSID* clsids[] = {&CLSID_ZelOleDbHelperImpl, &CLSID_ZelOleDbImpl};
    for (size_t index = 0; index < 2; ++index) {
        Class& c = m_classes[index];
        c.clsid = *clsids[index];
        if (index == 0)
            c.factory = ComPtr<IClassFactory>(ClassFactory<ZelOleDbHelperImpl>::Make());
        else
            c.factory = ComPtr<IClassFactory>(ClassFactory<ZelOleDbImpl>::Make());
        const HRESULT hr = CoRegisterClassObject(c.clsid, c.factory.get(), CLSCTX_LOCAL_SERVER,
                                                 REGCLS_MULTIPLEUSE | REGCLS_SUSPENDED, &c.cookie);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT ClassRegistrations::Resume() noexcept { return CoResumeClassObjects(); }

void ClassRegistrations::Withdraw() noexcept {
    if (m_withdrawn.exchange(true)) return;
    if (!m_underWine) {
        RevokeAll();
        m_absorbed = true;
        return;
    }
    for (Class& c : m_classes) {
        // Both on this thread, with no call served in between: a host's activation that got the
        // multiple-use registration before the revoke finds the single-use one here.
        Revoke(c.cookie);
        if (FAILED(CoRegisterClassObject(c.clsid, c.factory.get(), CLSCTX_LOCAL_SERVER, REGCLS_SINGLEUSE, &c.cookie)))
            c.cookie = 0;
    }
}

void ClassRegistrations::Absorb() noexcept {
    if (!m_withdrawn.load() || m_absorbed.load()) return;
    for (Class& c : m_classes) {
        if (!c.cookie) continue;
        ComPtr<IClassFactory> factory;
        // Whichever server's registration comes back, taking it does no harm: a multiple-use
        // one stays, and a single-use one belongs to a server that is ending too.
        CoGetClassObject(c.clsid, CLSCTX_LOCAL_SERVER, nullptr, IID_IClassFactory, factory.put_void());
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
