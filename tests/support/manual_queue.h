// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/main_queue.h"

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace testing_support {

// A main queue whose tasks run only in runAll(), as the main thread would later; post is safe
// from any thread. Delays are ignored: a delayed task runs with the next runAll().
class ManualQueue final : public kit::support::MainQueue
{
public:
    void post(std::function<void()> task) override
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    void postAfter(std::chrono::milliseconds, std::function<void()> task) override
    {
        post(std::move(task));
    }

    // Runs tasks, those they post included, until none is left; answers how many ran.
    size_t runAll()
    {
        size_t ran = 0;
        for (;;) {
            std::function<void()> task;
            {
                std::lock_guard lock(m_mutex);
                if (m_tasks.empty()) {
                    return ran;
                }
                task = std::move(m_tasks.front());
                m_tasks.pop_front();
            }
            task();
            ++ran;
        }
    }

    size_t pending() const
    {
        std::lock_guard lock(m_mutex);
        return m_tasks.size();
    }

private:
    mutable std::mutex m_mutex;
    std::deque<std::function<void()>> m_tasks;
};

} // namespace testing_support
