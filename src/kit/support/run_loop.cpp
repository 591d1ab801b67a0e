// SPDX-License-Identifier: MIT
#include "kit/support/run_loop.h"

#include "kit/support/log.h"

#include <algorithm>
#include <exception>
#include <string>

namespace kit::support {

namespace {

constexpr Logger kLog("main");

// How often runUntil asks its predicate when no task comes due, so a predicate watching another
// thread is noticed promptly without a busy loop.
constexpr std::chrono::milliseconds kPredicatePoll{2};

} // namespace

void RunLoop::post(std::function<void()> task)
{
    enqueue(Clock::now(), std::move(task));
}

void RunLoop::postAfter(std::chrono::milliseconds delay, std::function<void()> task)
{
    enqueue(Clock::now() + delay, std::move(task));
}

void RunLoop::enqueue(Clock::time_point due, std::function<void()> task)
{
    {
        std::lock_guard lock(m_mutex);
        m_tasks.emplace(Key{due, m_nextSequence++}, std::move(task));
    }
    m_wake.notify_one();
}

void RunLoop::quit()
{
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_one();
}

void RunLoop::run()
{
    for (;;) {
        {
            std::lock_guard lock(m_mutex);
            if (m_quit) {
                m_quit = false;
                return;
            }
        }
        runOne(Clock::time_point::max(), true);
    }
}

bool RunLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    while (!done()) {
        auto now = Clock::now();
        if (now >= deadline) {
            return false;
        }
        runOne(std::min(deadline, now + kPredicatePoll), false);
    }
    return true;
}

void RunLoop::runFor(std::chrono::milliseconds duration)
{
    const auto deadline = Clock::now() + duration;
    while (Clock::now() < deadline) {
        runOne(deadline, false);
    }
}

bool RunLoop::runOne(Clock::time_point until, bool stopOnQuit)
{
    std::function<void()> task;
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (stopOnQuit && m_quit) {
                return false;
            }
            auto now = Clock::now();
            if (!m_tasks.empty() && m_tasks.begin()->first.first <= now) {
                break;
            }
            if (now >= until) {
                return false;
            }
            auto wakeAt = until;
            if (!m_tasks.empty()) {
                wakeAt = std::min(wakeAt, m_tasks.begin()->first.first);
            }
            if (wakeAt == Clock::time_point::max()) {
                m_wake.wait(lock);
            } else {
                m_wake.wait_until(lock, wakeAt);
            }
        }
        auto first = m_tasks.begin();
        task = std::move(first->second);
        m_tasks.erase(first);
    }
    try {
        task();
    } catch (const std::exception& error) {
        kLog.error(std::string("a main-thread task failed: ") + error.what());
    } catch (...) {
        kLog.error("a main-thread task failed");
    }
    return true;
}

} // namespace kit::support
