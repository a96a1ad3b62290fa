// The server's class objects as the platform hands them to activations.
//
// Under Wine 8.0 an activation asks the RPC service (rpcss) for the first class object
// registered for the CLSID (the oldest registration of any server process), then calls into
// the process that registered it, which looks the class up again in its own table. A server
// that revokes its class objects in between, as it does when it ends, fails that activation
// ("ActiveX component can't create object" in a script): Wine's client does not try again the
// way Windows' does for a server that is stopping. The service forgets a single-use
// registration once it has handed it out, while the server's own table keeps it, and that is
// the only way a registration leaves the service without a revoke. So under Wine each class
// is registered for single use, and registered again (at the back of the service's list)
// each time an activation took it. A server that ends stops registering again and takes its
// own last registration out of the service by an activation of its own (Absorb), so that
// when it revokes, no activation can be on its way to it. On Windows the classes are
// registered once for multiple use; COM suspends them when the server's last reference goes.
#pragma once

#include <windows.h>

#include <atomic>

#include "common/ComPtr.h"

namespace zel {

class ClassRegistrations {
public:
    // Posted to the registering thread when an activation took a class object; WPARAM is the
    // class's index. The thread's message loop passes it to OnHandOut.
    static constexpr UINT kHandOutMessage = WM_APP + 2;

    ClassRegistrations() = default;
    ClassRegistrations(const ClassRegistrations&) = delete;
    ClassRegistrations& operator=(const ClassRegistrations&) = delete;

    // Registers the helper and service class objects, suspended (Resume makes them
    // available); `singleUse`: the single-use scheme described above. Call on the thread of
    // the server's apartment, which must run a message loop. Returns the first failure; what
    // was registered stays until RevokeAll.
    HRESULT Register(bool singleUse);
    // Makes the suspended class objects available to activations.
    static HRESULT Resume() noexcept;
    // An activation took class `index`: registers it again unless the server is ending.
    void OnHandOut(WPARAM index) noexcept;
    // New activations are no longer sent to this server once Absorbed() is true: on Windows
    // at once, under Wine after Absorb.
    void Withdraw() noexcept;
    // Under Wine, after Withdraw: takes this server's registrations still offered by the
    // service out of it through activations of its own. Runs on another thread of the
    // process (its own apartment) while the server's thread serves calls; gives up after a
    // bounded number of activations, which leaves the revoke to race as it would anyway.
    void Absorb() noexcept;
    // Whether nothing of this server is offered to activations any more (or Absorb gave up).
    bool Absorbed() const noexcept { return m_absorbed.load(); }
    bool Withdrawn() const noexcept { return m_withdrawn.load(); }
    // Revokes every registration left; on the registering thread.
    void RevokeAll() noexcept;

private:
    struct Class {
        CLSID clsid{};
        ComPtr<IClassFactory> factory;
        DWORD cookie = 0;  // the current registration; 0 when none
        std::atomic<bool> taken{false};  // an activation took the current registration
    };
    HRESULT RegisterClass(Class& c) noexcept;
    static void Revoke(DWORD& cookie) noexcept;

    Class m_classes[2];
    DWORD m_thread = 0;
    bool m_singleUse = false;
    std::atomic<bool> m_withdrawn{false};
    std::atomic<bool> m_absorbed{false};
};

}  // namespace zel
