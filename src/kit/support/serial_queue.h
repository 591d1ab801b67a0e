// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace kit::support {

// Runs tasks one at a time, in order of due time and then of submission. Callable from any thread.
// Tests substitute a scheduler whose time moves only when they say so.
class Scheduler
{
public:
    virtual ~Scheduler() = default;

    // Runs `task` once `delay` has passed; returns at once.
    virtual void after(std::chrono::nanoseconds delay, std::function<void()> task) = 0;
    // Runs `task` after the tasks already due and returns once it has run. Called from a task of
    // this scheduler, it runs `task` inline.
    virtual void sync(std::function<void()> task) = 0;
};

// A Scheduler with one worker thread of its own. An exception escaping an `after` task is logged
// and dropped; one escaping a `sync` task is rethrown to the caller. Destruction runs every task
// still scheduled at once, due or not (so pending writes reach the disk), then joins the worker;
// it must not happen on the worker itself.
class SerialQueue final : public Scheduler
{
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void after(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void sync(std::function<void()> task) override;

    const std::string& label() const { return m_label; }
    // True on the worker thread.
    bool isCurrent() const { return std::this_thread::get_id() == m_worker.get_id(); }

private:
    using Clock = std::chrono::steady_clock;
    // Due time, then submission order: tasks with the same due time run first in, first out.
    using Key = std::pair<Clock::time_point, uint64_t>;

    void enqueue(Clock::time_point due, std::function<void()> task);
    void run();

    std::string m_label;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::map<Key, std::function<void()>> m_tasks;
    uint64_t m_nextSequence = 0;
    bool m_stopping = false;
    // Last, so that everything above exists before the worker starts.
    std::thread m_worker;
};

} // namespace kit::support
