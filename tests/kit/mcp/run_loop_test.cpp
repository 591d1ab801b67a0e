// SPDX-License-Identifier: MIT
#include "kit/support/run_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kit::support::RunLoop;

TEST(RunLoop, RunsPostedTasksInOrderAndDelayedOnesWhenDue)
{
    // Checks when each task ran against when it was due, so a descheduled test thread cannot
    // make it fail.
    using Clock = std::chrono::steady_clock;
    RunLoop loop;
    std::vector<std::pair<int, Clock::time_point>> ran;
    const auto posted = Clock::now();
    loop.postAfter(40ms, [&] { ran.emplace_back(3, Clock::now()); });
    loop.postAfter(20ms, [&] { ran.emplace_back(2, Clock::now()); });
    loop.post([&] { ran.emplace_back(0, Clock::now()); });
    loop.post([&] { ran.emplace_back(1, Clock::now()); });
    ASSERT_TRUE(loop.runUntil([&] { return ran.size() == 4; }, 2s));

    std::vector<int> order;
    for (const auto& [task, at] : ran)
        order.push_back(task);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_GE(ran[2].second - posted, 20ms);
    EXPECT_GE(ran[3].second - posted, 40ms);
}

TEST(RunLoop, RunEndsOnQuitFromAnotherThreadAfterItsTasks)
{
    RunLoop loop;
    std::atomic<int> ran = 0;
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            loop.post([&] { ++ran; });
        }
        loop.post([&] { loop.quit(); });
    });
    loop.run();
    other.join();
    EXPECT_EQ(ran, 100);
}

TEST(RunLoop, QuitBeforeRunEndsTheNextRunAtOnce)
{
    RunLoop loop;
    loop.quit();
    loop.run();
    bool ran = false;
    loop.post([&] { ran = true; });
    EXPECT_TRUE(loop.runUntil([&] { return ran; }, 10s));
}

TEST(RunLoop, RunUntilTimesOutAndSeesOtherThreads)
{
    RunLoop loop;
    auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(loop.runUntil([] { return false; }, 30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);

    std::atomic<bool> flag = false;
    std::thread setter([&] {
        std::this_thread::sleep_for(10ms);
        flag = true;
    });
    EXPECT_TRUE(loop.runUntil([&] { return flag.load(); }, 2s));
    setter.join();
}

TEST(RunLoop, ATaskThatThrowsDoesNotStopTheLoop)
{
    RunLoop loop;
    bool after = false;
    loop.post([] { throw std::runtime_error("boom"); });
    loop.post([&] { after = true; });
    testing::internal::CaptureStderr();
    // Waits for the condition, not a fixed time: a loaded machine may take longer than any.
    EXPECT_TRUE(loop.runUntil([&] { return after; }, 10s));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("boom"), std::string::npos);
}

} // namespace
