// Hands batches of rows from the thread that fetches them across the process boundary to the
// thread that prints them, so that printing one batch and fetching the next overlap. At most
// `depth` batches wait; the fetching side waits when the printer is that far behind.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>

#include "common/Variant.h"

namespace zel::zeldb {

class BatchHandOver {
public:
    explicit BatchHandOver(size_t depth) : m_depth(depth) {}
    BatchHandOver(const BatchHandOver&) = delete;
    BatchHandOver& operator=(const BatchHandOver&) = delete;

    // Fetching side. Queues a batch; false (the batch dropped) once the printer has stopped,
    // so that no further batch is fetched.
    bool Put(Variant&& batch);
    // No batch follows.
    void Close();

    // Printing side. The next batch, waiting for it; false when the fetching side closed and
    // every batch was taken.
    bool Take(Variant& batch);
    // The printer needs no more batches (enough rows printed), or failed: `error` is thrown
    // again by RethrowFailure on the fetching side.
    void Stop(std::exception_ptr error = nullptr);

    // After both sides are done: throws what the printer failed with, if it did.
    void RethrowFailure() const;

private:
    const size_t m_depth;
    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<Variant> m_batches;
    bool m_closed = false;
    bool m_stopped = false;
    std::exception_ptr m_error;
};

}  // namespace zel::zeldb
