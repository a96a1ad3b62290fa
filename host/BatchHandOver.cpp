#include "host/BatchHandOver.h"

#include <utility>

namespace zel::zeldb {

bool BatchHandOver::Put(Variant&& batch) {
    std::unique_lock guard(m_lock);
    m_changed.wait(guard, [this] { return m_stopped || m_batches.size() < m_depth; });
    if (m_stopped) return false;
    m_batches.push_back(std::move(batch));
    m_changed.notify_all();
    return true;
}

void BatchHandOver::Close() {
    std::lock_guard guard(m_lock);
    m_closed = true;
    m_changed.notify_all();
}

bool BatchHandOver::Take(Variant& batch) {
    std::unique_lock guard(m_lock);
    m_changed.wait(guard, [this] { return m_closed || !m_batches.empty(); });
    if (m_batches.empty()) return false;
    batch = std::move(m_batches.front());
    m_batches.pop_front();
    m_changed.notify_all();
    return true;
}

void BatchHandOver::Stop(std::exception_ptr error) {
    std::lock_guard guard(m_lock);
    m_stopped = true;
    if (error && !m_error) m_error = std::move(error);
    m_batches.clear();
    m_changed.notify_all();
}

void BatchHandOver::RethrowFailure() const {
    std::lock_guard guard(m_lock);
    if (m_error) std::rethrow_exception(m_error);
}

}  // namespace zel::zeldb
