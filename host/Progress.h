// Progress of long fetches on standard error: shown only when standard error is a terminal,
// at most every half second, and wiped before the result is printed.
#pragma once

#include <cstdint>
#include <functional>

#include "host/TextStreams.h"

namespace zel::zeldb {

class ProgressMeter {
public:
    using Clock = std::function<std::uint64_t()>;  // milliseconds, monotonic

    static constexpr std::uint64_t kIntervalMs = 500;

    // Shows nothing at all unless `err` is a terminal.
    explicit ProgressMeter(TextSink& err, Clock clock = SystemClock());
    ProgressMeter(const ProgressMeter&) = delete;
    ProgressMeter& operator=(const ProgressMeter&) = delete;
    ~ProgressMeter() { Finish(); }

    // Reports `rows` fetched so far; writes "\r<rows> rows fetched..." when half a second has
    // passed since the start or the last report.
    void Update(std::uint64_t rows);
    // Wipes the line if anything was shown.
    void Finish();

    bool enabled() const noexcept { return m_enabled; }
    static Clock SystemClock();

private:
    TextSink& m_err;
    Clock m_clock;
    bool m_enabled;
    bool m_shown = false;
    std::uint64_t m_last;
    std::size_t m_width = 0;
};

}  // namespace zel::zeldb
