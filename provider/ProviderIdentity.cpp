#include "provider/ProviderIdentity.h"

#include "provider/errors/Errors.h"

namespace zel::provider {

const ErrorOrigin& ProviderErrorOrigin() noexcept {
    static constexpr ErrorOrigin origin{kProviderClsid, kErrorSource};
    return origin;
}

}  // namespace zel::provider
