#include "host/Progress.h"

#include <windows.h>

#include <string>

namespace zel::zeldb {

ProgressMeter::Clock ProgressMeter::SystemClock() {
    return [] { return static_cast<std::uint64_t>(GetTickCount64()); };
}

ProgressMeter::ProgressMeter(TextSink& err, Clock clock)
    : m_err(err), m_clock(std::move(clock)), m_enabled(err.IsTerminal()), m_last(m_enabled ? m_clock() : 0) {}

void ProgressMeter::Update(std::uint64_t rows) {
    if (!m_enabled) return;
    const std::uint64_t now = m_clock();
    if (now - m_last < kIntervalMs) return;
    m_last = now;
    const std::wstring text = std::to_wstring(rows) + (rows == 1 ? L" row fetched..." : L" rows fetched...");
    m_width = text.size();
    m_err.Write(L"\r" + text);
    m_err.Flush();
    m_shown = true;
}

void ProgressMeter::Finish() {
    if (!m_shown) return;
    m_err.Write(L"\r" + std::wstring(m_width, L' ') + L"\r");
    m_err.Flush();
    m_shown = false;
}

}  // namespace zel::zeldb
