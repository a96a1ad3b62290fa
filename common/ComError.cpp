#include "common/ComError.h"

#include <new>

namespace zel {

void ThrowHr(HRESULT hr) { throw ComError(hr); }

HRESULT ResultFromCaughtException() noexcept {
    try {
        throw;
    } catch (const ComError& e) {
        return e.code();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

}  // namespace zel
