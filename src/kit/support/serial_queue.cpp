// SPDX-License-Identifier: MIT
#include "kit/support/serial_queue.h"

#include "kit/support/log.h"

#include <pthread.h>

#include <exception>
#include <future>

namespace kit::support {

namespace {

constexpr Logger kLog("support");

// Linux keeps 15 characters of a thread's name; the end of the label is the telling part.
void nameThisThread(const std::string& label)
{
    constexpr size_t kLimit = 15;
    std::string name = label.size() > kLimit ? label.substr(label.size() - kLimit) : label;
    pthread_setname_np(pthread_self(), name.c_str());
}

} // namespace

SerialQueue::SerialQueue(std::string label)
    : m_label(std::move(label))
    , m_worker([this] { run(); })
{}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_one();
    m_worker.join();
}

void SerialQueue::after(std::chrono::nanoseconds delay, std::function<void()> task)
{
    enqueue(Clock::now() + std::chrono::duration_cast<Clock::duration>(delay), std::move(task));
}

void SerialQueue::sync(std::function<void()> task)
{
    if (isCurrent()) {
        // Waiting here for ourselves would never end.
        task();
        return;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    enqueue(Clock::now(), [&task, &done] {
        try {
            task();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    finished.get();
}

void SerialQueue::enqueue(Clock::time_point due, std::function<void()> task)
{
    bool earliest = false;
    {
        std::lock_guard lock(m_mutex);
        auto it = m_tasks.emplace(Key{due, m_nextSequence++}, std::move(task)).first;
        earliest = it == m_tasks.begin();
    }
    // A later task changes nothing for a worker already waiting for an earlier one.
    if (earliest) {
        m_wake.notify_one();
    }
}

void SerialQueue::run()
{
    nameThisThread(m_label);
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (m_tasks.empty()) {
            if (m_stopping) {
                return;
            }
            m_wake.wait(lock);
            continue;
        }
        auto first = m_tasks.begin();
        if (!m_stopping && first->first.first > Clock::now()) {
            m_wake.wait_until(lock, first->first.first);
            continue;
        }
        auto task = std::move(first->second);
        m_tasks.erase(first);
        lock.unlock();
        try {
            task();
        } catch (const std::exception& e) {
            kLog.error(m_label + ": a task failed: " + e.what());
        } catch (...) {
            kLog.error(m_label + ": a task failed");
        }
        // Destroy the task's captures before taking the lock: they may enqueue or sync.
        task = nullptr;
        lock.lock();
    }
}

} // namespace kit::support
