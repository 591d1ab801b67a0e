// SPDX-License-Identifier: MIT
#include "desktop/qt_main_queue.h"

#include "spin.h"

#include <gtest/gtest.h>

#include <QThread>
#include <QTimer>

#include <atomic>
#include <thread>
#include <vector>

namespace desktop {
namespace {

TEST(QtMainQueueTest, TasksPostedFromOtherThreadsRunOnTheGuiThreadInOrderAndWhenDue)
{
    QtMainQueue queue;
    const QThread* gui = QThread::currentThread();
    std::vector<int> seen;
    std::atomic<int> offThread{0};
    const auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point lateAt;
    std::thread worker([&] {
        queue.postAfter(80ms, [&] {
            lateAt = std::chrono::steady_clock::now();
            offThread += QThread::currentThread() != gui ? 1 : 0;
            seen.push_back(-1);
        });
        for (int i = 0; i < 100; ++i) {
            queue.post([&, i] {
                offThread += QThread::currentThread() != gui ? 1 : 0;
                seen.push_back(i);
            });
        }
    });
    worker.join();
    ASSERT_TRUE(spinUntil([&] { return seen.size() == 101; }));
    EXPECT_EQ(offThread.load(), 0);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(seen[static_cast<size_t>(i)], i);
    }
    EXPECT_EQ(seen.back(), -1);
    EXPECT_GE(lateAt - start, 80ms);
}

TEST(QtMainQueueTest, ShorterDelaysRunFirstAndNothingRunsBeforePostReturns)
{
    QtMainQueue queue;
    std::vector<int> seen;
    queue.postAfter(60ms, [&] { seen.push_back(2); });
    queue.postAfter(10ms, [&] { seen.push_back(1); });
    queue.post([&] { seen.push_back(0); });
    EXPECT_TRUE(seen.empty());
    ASSERT_TRUE(spinUntil([&] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2}));
}

TEST(QtMainQueueTest, TasksLeftWhenTheQueueGoesAreDropped)
{
    bool ran = false;
    {
        QtMainQueue queue;
        queue.post([&] { ran = true; });
        queue.postAfter(5ms, [&] { ran = true; });
    }
    spinUntil([] { return false; }, 50ms);
    EXPECT_FALSE(ran);
}

} // namespace
} // namespace desktop
