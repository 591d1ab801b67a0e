// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/clock.h"
#include "kit/keys/subscription.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kit::keys {

// One scroll event as the wheel logic sees it. Deltas are in points; negative is down or right.
struct WheelInput
{
    bool precise = false;  // a trackpad or other device reporting precise deltas
    bool began = false;    // the first event of a gesture
    bool momentum = false; // the coasting after the fingers have left
    double deltaX = 0;
    double deltaY = 0;
};

// Turns a stream of scroll events into bar steps: a precise device must travel 40 points, a wheel
// steps with each notch, and steps closer than 0.15 s apart collapse into one.
class WheelSteps
{
public:
    static constexpr double kStepDistance = 40;
    // A longer pause starts the count again.
    static constexpr std::chrono::milliseconds kPause{500};
    static constexpr std::chrono::milliseconds kStepGap{150};

    // -1 for the bar before, +1 for the bar after (down or right), 0 for no step.
    int step(const WheelInput& input, Instant at);

    double travelled() const { return m_travelled; }

private:
    double m_travelled = 0;
    std::optional<Instant> m_last;
    std::optional<Instant> m_stepped;
};

struct ScreenPoint
{
    double x = 0;
    double y = 0;
};

struct ScreenRect
{
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool contains(ScreenPoint point) const
    {
        return point.x >= x && point.x < x + width && point.y >= y && point.y < y + height;
    }
};

// Identifies one of the application's windows to the menu bar.
using WindowRef = std::uintptr_t;

// A scroll event from a monitor: `window` is set for events inside the application, `pointer` is
// the pointer's screen location (used for events elsewhere).
struct ScrollEvent
{
    WheelInput input;
    Instant time;
    std::optional<WindowRef> window;
    ScreenPoint pointer;
};

// Scroll-event monitors, delivering on the main thread until their handle is destroyed: the local
// one sees events sent to the application's windows, the global one events sent to other
// applications.
class ScrollMonitoring
{
public:
    virtual ~ScrollMonitoring() = default;
    virtual std::unique_ptr<Subscription>
    addLocalMonitor(std::function<void(const ScrollEvent&)> handler) = 0;
    virtual std::unique_ptr<Subscription>
    addGlobalMonitor(std::function<void(const ScrollEvent&)> handler) = 0;
};

// Switches bars when the wheel rolls or a swipe passes over an icon in the menu bar. Monitors
// exist between start() and stop(). Main thread.
class BarWheel
{
public:
    // -1 for the bar before, +1 for the bar after.
    std::function<void(int)> onCycleBar;
    // Whether a window of the application is one of the icons.
    std::function<bool(WindowRef)> isOverIcon;
    // The icons' frames on screen.
    std::function<std::vector<ScreenRect>()> iconFrames;

    explicit BarWheel(ScrollMonitoring& monitoring);
    BarWheel(const BarWheel&) = delete;
    BarWheel& operator=(const BarWheel&) = delete;

    // Does nothing when the monitors exist already.
    void start();
    void stop();
    bool isOn() const { return m_monitor != nullptr; }

private:
    void handleLocal(const ScrollEvent& event);
    void handleGlobal(const ScrollEvent& event);
    void count(const ScrollEvent& event);

    ScrollMonitoring& m_monitoring;
    std::unique_ptr<Subscription> m_monitor;
    std::unique_ptr<Subscription> m_globalMonitor;
    WheelSteps m_steps;
};

} // namespace kit::keys
