#include "common/ComObject.h"

namespace zel {
namespace {
LONG g_moduleCount = 0;
ModuleLifetime::Hook g_hook = nullptr;
}  // namespace

void ModuleLifetime::Lock() noexcept {
    if (g_hook)
        g_hook(true);
    else
        InterlockedIncrement(&g_moduleCount);
}

void ModuleLifetime::Unlock() noexcept {
    if (g_hook)
        g_hook(false);
    else
        InterlockedDecrement(&g_moduleCount);
}

LONG ModuleLifetime::Count() noexcept { return InterlockedCompareExchange(&g_moduleCount, 0, 0); }

void ModuleLifetime::SetHook(Hook hook) noexcept { g_hook = hook; }

}  // namespace zel
