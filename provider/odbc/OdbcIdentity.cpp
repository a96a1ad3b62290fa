#include "provider/odbc/OdbcIdentity.h"

#include "provider/errors/Errors.h"

namespace zel::provider {

const ErrorOrigin& ProviderErrorOrigin() noexcept {
    static constexpr ErrorOrigin origin{odbc::kProviderClsid, odbc::kErrorSource};
    return origin;
}

}  // namespace zel::provider
