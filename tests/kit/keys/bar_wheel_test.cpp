// SPDX-License-Identifier: MIT
#include "kit/keys/bar_wheel.h"

#include "fakes.h"

#include <gtest/gtest.h>

#include <optional>
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

Instant at(std::chrono::milliseconds offset)
{
    return Instant{} + 1h + offset;
}

WheelInput tilt(double deltaX, double deltaY)
{
    return {
        .precise = false, .began = false, .momentum = false, .deltaX = deltaX, .deltaY = deltaY};
}

WheelInput coasting(double deltaY)
{
    WheelInput input = swipe(deltaY);
    input.momentum = true;
    return input;
}

struct WheelEvent
{
    WheelInput input;
    std::chrono::milliseconds at;
    int step; // what this event answers
};

struct WheelCase
{
    const char* name;
    std::vector<WheelEvent> events;
    std::optional<double> travelled; // after the last event
};

TEST(WheelSteps, StepsAsTheGestureRulesSay)
{
    const WheelCase cases[] = {
        {"UpwardSwipeStepsBack", {{swipe(25, true), 0ms, 0}, {swipe(25), 10ms, -1}}, {}},
        {"TwoNotchesWithinATenthStepOnce",
         {{notch(-1), 0ms, 1}, {notch(-1), 100ms, 0}, {notch(-1), 260ms, 1}},
         {}},
        // A pause of more than half a second starts the count again; without it the same
        // travel steps.
        {"PauseRestarts",
         {{swipe(-30, true), 0ms, 0}, {swipe(-20), 501ms, 0}, {swipe(-20), 900ms, 1}},
         {}},
        {"NewGestureRestarts", {{swipe(-30, true), 0ms, 0}, {swipe(-30, true), 10ms, 0}}, -30},
        // Momentum neither steps nor keeps the gesture alive: the pause counts from the last
        // real event.
        {"MomentumIsIgnored",
         {{swipe(-30, true), 0ms, 0}, {coasting(-100), 400ms, 0}, {swipe(-20), 600ms, 0}},
         -20},
        // Travel within 0.15 s of a step is swallowed, not carried over.
        {"TravelInTheGapIsDropped", {{swipe(-45, true), 0ms, 1}, {swipe(-40), 100ms, 0}}, 0},
        {"LargerAxisDecidesATieIsVertical",
         {{tilt(-3, 1), 0ms, 1}, {tilt(-2, 2), 1000ms, -1}, {notch(0), 2000ms, 0}},
         {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        WheelSteps fresh;
        for (const auto& event : c.events) {
            EXPECT_EQ(fresh.step(event.input, at(event.at)), event.step) << event.at.count();
        }
        if (c.travelled) {
            EXPECT_EQ(fresh.travelled(), *c.travelled);
        }
    }
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
