// SPDX-License-Identifier: MIT
#include "kit/support/serial_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using kit::support::SerialQueue;
using testing::ElementsAre;

TEST(SerialQueue, RunsDueTasksInOrderAndSyncAfterThemButBeforeLaterOnes)
{
    // Written on the worker, read only once a sync or the destruction has waited for it.
    std::vector<std::string> journal;
    {
        SerialQueue queue("test.order");
        queue.after(1h, [&] { journal.push_back("later"); });
        queue.after(0s, [&] { journal.push_back("first"); });
        queue.after(0s, [&] { journal.push_back("second"); });
        queue.sync([&] { journal.push_back("sync"); });
        EXPECT_THAT(journal, ElementsAre("first", "second", "sync"));
    }
    // Destruction does not wait an hour: what is still scheduled runs at once.
    EXPECT_THAT(journal, ElementsAre("first", "second", "sync", "later"));
}

TEST(SerialQueue, DoesNotRunATaskBeforeItsDelay)
{
    SerialQueue queue("test.delay");
    auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point ran;
    std::promise<void> done;
    queue.after(30ms, [&] {
        ran = std::chrono::steady_clock::now();
        done.set_value();
    });
    done.get_future().wait();
    EXPECT_GE(ran - start, 30ms);
}

TEST(SerialQueue, SyncFromItsOwnWorkerRunsInlineInsteadOfDeadlocking)
{
    SerialQueue queue("test.reentry");
    bool innerRan = false;
    bool onWorker = false;
    queue.sync([&] {
        queue.sync([&] {
            innerRan = true;
            onWorker = queue.isCurrent();
        });
    });
    EXPECT_TRUE(innerRan);
    EXPECT_TRUE(onWorker);
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueue, SyncRethrowsAndAFailingTaskLeavesTheWorkerRunning)
{
    SerialQueue queue("test.throw");
    queue.after(0s, [] { throw std::runtime_error("dropped"); });
    EXPECT_THROW(queue.sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
    bool ran = false;
    queue.sync([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(SerialQueue, TasksFromManyThreadsNeverOverlap)
{
    SerialQueue queue("test.threads");
    int counter = 0; // deliberately unguarded: only the worker touches it
    constexpr int kThreads = 4;
    constexpr int kEach = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&queue, &counter, t] {
            for (int i = 0; i < kEach; ++i) {
                if ((i + t) % 2 == 0) {
                    queue.sync([&] { ++counter; });
                } else {
                    queue.after(0s, [&] { ++counter; });
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    int seen = 0;
    queue.sync([&] { seen = counter; });
    EXPECT_EQ(seen, kThreads * kEach);
}
