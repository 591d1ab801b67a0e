// SPDX-License-Identifier: MIT
#include "kit/keys/bar_wheel.h"

#include "fakes.h"

#include <gtest/gtest.h>

#include <vector>

using namespace kit::keys;
using namespace std::chrono_literals;
using keys_testing::FakeScrollMonitoring;

namespace {

WheelInput swipe(double deltaY, bool began = false)
{
    return {.precise = true, .began = began, .momentum = false, .deltaX = 0, .deltaY = deltaY};
}

WheelInput notch(double deltaY)
{
    return {.precise = false, .began = false, .momentum = false, .deltaX = 0, .deltaY = deltaY};
}

class WheelStepsTest : public testing::Test
{
protected:
    // Feeds a swipe of `points` downwards in events of 5 points, 10 ms apart, from `start`;
    // answers the steps it made.
    std::vector<int> swipeDown(double points, std::chrono::milliseconds start = 0ms)
    {
        std::vector<int> out;
        for (int i = 0; i * 5 < points; ++i) {
            if (int step = steps.step(swipe(-5, i == 0), at(start + i * 10ms))) {
                out.push_back(step);
            }
        }
        return out;
    }

    static Instant at(std::chrono::milliseconds offset) { return Instant{} + 1h + offset; }

    WheelSteps steps;
};

TEST_F(WheelStepsTest, ASwipeOfThirtyPointsDoesNotStep)
{
    EXPECT_TRUE(swipeDown(30).empty());
    EXPECT_EQ(steps.travelled(), -30);
}

TEST_F(WheelStepsTest, ASwipeOfFortyFivePointsStepsOnceToTheBarAfter)
{
    EXPECT_EQ(swipeDown(45), (std::vector<int>{1}));
}

TEST_F(WheelStepsTest, AnUpwardSwipeStepsToTheBarBefore)
{
    EXPECT_EQ(steps.step(swipe(25, true), at(0ms)), 0);
    EXPECT_EQ(steps.step(swipe(25), at(10ms)), -1);
}

TEST_F(WheelStepsTest, TwoNotchesWithinATenthOfASecondStepOnce)
{
    EXPECT_EQ(steps.step(notch(-1), at(0ms)), 1);
    EXPECT_EQ(steps.step(notch(-1), at(100ms)), 0);
    EXPECT_EQ(steps.step(notch(-1), at(260ms)), 1);
}

TEST_F(WheelStepsTest, APauseOfMoreThanHalfASecondStartsTheCountAgain)
{
    EXPECT_EQ(steps.step(swipe(-30, true), at(0ms)), 0);
    EXPECT_EQ(steps.step(swipe(-20), at(501ms)), 0);
    EXPECT_EQ(steps.travelled(), -20);
    // Without the pause the same travel steps.
    EXPECT_EQ(steps.step(swipe(-20), at(900ms)), 1);
}

TEST_F(WheelStepsTest, ANewGestureStartsTheCountAgain)
{
    EXPECT_EQ(steps.step(swipe(-30, true), at(0ms)), 0);
    EXPECT_EQ(steps.step(swipe(-30, true), at(10ms)), 0);
    EXPECT_EQ(steps.travelled(), -30);
}

TEST_F(WheelStepsTest, MomentumNeitherStepsNorKeepsTheGestureAlive)
{
    EXPECT_EQ(steps.step(swipe(-30, true), at(0ms)), 0);
    WheelInput coasting = swipe(-100);
    coasting.momentum = true;
    EXPECT_EQ(steps.step(coasting, at(400ms)), 0);
    EXPECT_EQ(steps.travelled(), -30);
    // Measured from the last real event, more than half a second has passed.
    EXPECT_EQ(steps.step(swipe(-20), at(600ms)), 0);
}

TEST_F(WheelStepsTest, TheLargerAxisDecidesAndATieGoesToTheVertical)
{
    WheelInput sideways{
        .precise = false, .began = false, .momentum = false, .deltaX = -3, .deltaY = 1};
    EXPECT_EQ(steps.step(sideways, at(0ms)), 1);
    WheelInput tie{.precise = false, .began = false, .momentum = false, .deltaX = -2, .deltaY = 2};
    EXPECT_EQ(steps.step(tie, at(1s)), -1);
    EXPECT_EQ(steps.step(notch(0), at(2s)), 0);
}

TEST_F(WheelStepsTest, TravelDuringTheGapIsDropped)
{
    EXPECT_EQ(swipeDown(45), (std::vector<int>{1}));
    // Another 40 points within 0.15 s of the step is swallowed and not carried over.
    EXPECT_EQ(steps.step(swipe(-40), at(100ms)), 0);
    EXPECT_EQ(steps.travelled(), 0);
}

class BarWheelTest : public testing::Test
{
protected:
    BarWheelTest()
    {
        wheel.onCycleBar = [this](int by) { cycles.push_back(by); };
        wheel.isOverIcon = [](WindowRef window) { return window == kIconWindow; };
        wheel.iconFrames = [] {
            return std::vector<ScreenRect>{{100, 0, 24, 24}, {130, 0, 24, 24}};
        };
    }

    ScrollEvent event(std::optional<WindowRef> window, ScreenPoint pointer)
    {
        m_time += 1s;
        return {notch(-1), m_time, window, pointer};
    }

    static constexpr WindowRef kIconWindow = 7;
    FakeScrollMonitoring monitoring;
    BarWheel wheel{monitoring};
    std::vector<int> cycles;

private:
    Instant m_time{};
};

TEST_F(BarWheelTest, CountsEventsOverIconsOnly)
{
    wheel.start();
    monitoring.sendLocal(event(kIconWindow, {0, 500}));
    monitoring.sendLocal(event(WindowRef{8}, {110, 10}));
    monitoring.sendGlobal(event(std::nullopt, {140, 5}));
    monitoring.sendGlobal(event(std::nullopt, {126, 5})); // between the two icons
    EXPECT_EQ(cycles, (std::vector<int>{1, 1}));
}

TEST_F(BarWheelTest, MonitorsLiveBetweenStartAndStop)
{
    wheel.start();
    wheel.start();
    EXPECT_EQ(monitoring.monitorCount(), 2U);
    EXPECT_TRUE(wheel.isOn());
    wheel.stop();
    EXPECT_EQ(monitoring.monitorCount(), 0U);
    monitoring.sendLocal(event(kIconWindow, {}));
    EXPECT_TRUE(cycles.empty());
}

} // namespace
