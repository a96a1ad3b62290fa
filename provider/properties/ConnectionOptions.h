// The provider-specific connection options carried by DBPROP_INIT_PROVIDERSTRING entries: each
// entry is a list of "key=value;" pairs. ZelLite knows "Busy Timeout" (milliseconds SQLite waits
// for another connection's lock, default 5000); other keys, such as Jet's, are accepted and
// ignored so that connection strings written for other providers still open.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel::provider {

inline constexpr int kDefaultBusyTimeoutMs = 5000;

class ConnectionOptions {
public:
    // Adds the options of one entry; false (nothing added) when the entry is malformed or a
    // known option has an invalid value.
    bool Add(std::wstring_view entry);
    void Clear() { m_pairs.clear(); }

    int busyTimeoutMs() const;
    // All entries joined as "key=value;key=value", the value GetProperties reports.
    std::wstring Text() const;

private:
    std::vector<std::pair<std::wstring, std::wstring>> m_pairs;
};

}  // namespace zel::provider
