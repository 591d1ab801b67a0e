// SPDX-License-Identifier: MIT
#include "kit/support/blocking_work.h"

#include "kit/support/log.h"

#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace kit::support {

namespace {
constexpr Logger kLog("blocking-work");
}

struct BlockingWork::Shared
{
    mutable std::mutex mutex;
    // Cleared when the owner goes, so a late answer neither posts to a queue that may be gone
    // nor runs against an owner that is.
    MainQueue* mainQueue = nullptr;
    size_t running = 0;
};

BlockingWork::BlockingWork(MainQueue& mainQueue)
    : m_shared(std::make_shared<Shared>())
{
    m_shared->mainQueue = &mainQueue;
}

BlockingWork::~BlockingWork()
{
    std::lock_guard lock(m_shared->mutex);
    m_shared->mainQueue = nullptr;
}

bool BlockingWork::start(Work work)
{
    {
        std::lock_guard lock(m_shared->mutex);
        if (m_shared->running >= kMostRunning) {
            return false;
        }
        ++m_shared->running;
    }
    auto body = [shared = m_shared, work = std::move(work)]() mutable {
        Then then;
        try {
            then = work();
        } catch (const std::exception& error) {
            kLog.error(std::string("work off the main thread failed: ") + error.what());
        }
        work = nullptr;
        std::lock_guard lock(shared->mutex);
        --shared->running;
        if (!shared->mainQueue || !then) {
            return;
        }
        shared->mainQueue->post([shared, then = std::move(then)] {
            {
                std::lock_guard lock(shared->mutex);
                if (!shared->mainQueue) {
                    return;
                }
            }
            then();
        });
    };
    try {
        std::thread(std::move(body)).detach();
    } catch (const std::system_error& error) {
        kLog.error(std::string("cannot start a thread: ") + error.what());
        std::lock_guard lock(m_shared->mutex);
        --m_shared->running;
        return false;
    }
    return true;
}

size_t BlockingWork::running() const
{
    std::lock_guard lock(m_shared->mutex);
    return m_shared->running;
}

} // namespace kit::support
