// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/serial_queue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace testing_support {

// A Scheduler whose clock moves only in advance(): tasks run on the thread that advances, in due
// order, so debounce tests are exact. `sync` runs at once on the calling thread, as a real queue
// would once everything due has run. `after` may be called from any thread.
class ManualScheduler final : public kit::support::Scheduler
{
public:
    void after(std::chrono::nanoseconds delay, std::function<void()> task) override
    {
        std::lock_guard lock(m_mutex);
        m_tasks.emplace(Key{m_now + delay, m_nextSequence++}, std::move(task));
    }

    void sync(std::function<void()> task) override { task(); }

    // Moves the clock forward by `by`, running each task that comes due on the way (including
    // tasks scheduled by those tasks) with the clock at its due time.
    void advance(std::chrono::nanoseconds by)
    {
        std::chrono::nanoseconds end;
        {
            std::lock_guard lock(m_mutex);
            end = m_now + by;
        }
        while (auto task = takeDue(end)) {
            task();
        }
        std::lock_guard lock(m_mutex);
        m_now = end;
    }

    std::chrono::nanoseconds now() const
    {
        std::lock_guard lock(m_mutex);
        return m_now;
    }

    size_t scheduledCount() const
    {
        std::lock_guard lock(m_mutex);
        return m_tasks.size();
    }

private:
    using Key = std::pair<std::chrono::nanoseconds, uint64_t>;

    std::function<void()> takeDue(std::chrono::nanoseconds end)
    {
        std::lock_guard lock(m_mutex);
        if (m_tasks.empty() || m_tasks.begin()->first.first > end) {
            return nullptr;
        }
        auto first = m_tasks.begin();
        m_now = first->first.first;
        auto task = std::move(first->second);
        m_tasks.erase(first);
        return task;
    }

    mutable std::mutex m_mutex;
    std::chrono::nanoseconds m_now{0};
    uint64_t m_nextSequence = 0;
    std::map<Key, std::function<void()>> m_tasks;
};

} // namespace testing_support
