// The server's class objects as the platform hands them to activations.
//
// Under Wine 8.0 an activation asks the RPC service (rpcss) for the oldest class object
// registered for the CLSID by any server process, then calls into the process that registered
// it, which looks the class up again in its own table. A server that revokes its class object
// in between, as it does when it ends, fails that activation ("ActiveX component can't create
// object" in a script): Wine's client does not try again the way Windows' does for a server
// that is stopping. Two properties of Wine's registrations close that window:
//   - the service forgets a single-use registration once it has handed it out, while the
//     server's own table keeps it: the only way out of the service without a revoke;
//   - a registration goes to the back of the service's list, so activations keep going to the
//     oldest server, and a new single-use one is seen only once no older server registers.
// So a server registers each class once for multiple use (every host of a burst of
// activations shares the oldest server). To end, it swaps that registration for a single-use
// one in one step on its apartment's thread, so that an activation that was already on its
// way still finds the class; then it takes the single-use registration out of the service
// through an activation of its own (Absorb), so that no activation can be on its way when it
// finally revokes. On Windows the classes are revoked at once: COM suspends them when the
// server's last reference goes, and its clients try another server when one is stopping.
#pragma once

#include <windows.h>

#include <atomic>

#include "common/ComPtr.h"

namespace zel {

class ClassRegistrations {
public:
    ClassRegistrations() = default;
    ClassRegistrations(const ClassRegistrations&) = delete;
    ClassRegistrations& operator=(const ClassRegistrations&) = delete;

    // Registers the helper and service class objects for multiple use, suspended (Resume makes
    // them available); `underWine`: withdraw them as described above. On the thread of the
    // server's apartment. Returns the first failure; what was registered stays until RevokeAll.
    HRESULT Register(bool underWine);
    // Makes the suspended class objects available to activations.
    static HRESULT Resume() noexcept;
    // New activations are no longer sent to this server: on Windows the classes are revoked;
    // under Wine each is swapped for a single-use registration (Absorb takes it back). On the
    // apartment's thread; once only.
    void Withdraw() noexcept;
    // Under Wine, after Withdraw: asks for each class once from another apartment of this
    // process, which takes this server's single-use registration out of the service when it
    // is the oldest one offered (otherwise activations go to an older server and cannot reach
    // it). Runs while the apartment's thread serves calls.
    void Absorb() noexcept;
    bool Withdrawn() const noexcept { return m_withdrawn.load(); }
    // Whether the withdrawal is complete (Windows at once; under Wine after Absorb).
    bool Absorbed() const noexcept { return m_absorbed.load(); }
    // Revokes every registration left; on the apartment's thread.
    void RevokeAll() noexcept;

private:
    struct Class {
        CLSID clsid{};
        ComPtr<IClassFactory> factory;
        DWORD cookie = 0;  // the current registration; 0 when none
    };
    static void Revoke(DWORD& cookie) noexcept;

    Class m_classes[2];
    bool m_underWine = false;
    std::atomic<bool> m_withdrawn{false};
    std::atomic<bool> m_absorbed{false};
};

}  // namespace zel
