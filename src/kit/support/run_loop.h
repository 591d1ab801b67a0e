// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/main_queue.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

namespace kit::support {

// A main-thread loop of the core's own, for the headless app, tools and tests. post, postAfter and
// quit are safe from any thread; run, runUntil and runFor belong to the one thread that owns the
// loop. A task that throws is logged and dropped. Tasks still queued at destruction never run.
class RunLoop final : public MainQueue
{
public:
    using Clock = std::chrono::steady_clock;

    RunLoop() = default;
    ~RunLoop() override = default;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void post(std::function<void()> task) override;
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override;

    // Runs tasks as they come due until quit() is called; a quit() before run() makes the next
    // run() return at once.
    void run();
    void quit();

    // Runs tasks until `done` answers true or the timeout passes; answers `done()`. `done` is
    // asked after every task and at least every few milliseconds, so it may watch other threads.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
    // Runs the tasks that come due in the next `duration`.
    void runFor(std::chrono::milliseconds duration);

private:
    // Due time, then submission order, so tasks due together run first in, first out.
    using Key = std::pair<Clock::time_point, uint64_t>;

    void enqueue(Clock::time_point due, std::function<void()> task);
    // Runs at most one task due by `until`, waiting for it no later than `until`; answers whether
    // a task ran. With `stopOnQuit` it returns early, running nothing, once quit() is called.
    bool runOne(Clock::time_point until, bool stopOnQuit);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::map<Key, std::function<void()>> m_tasks;
    uint64_t m_nextSequence = 0;
    bool m_quit = false;
};

} // namespace kit::support
