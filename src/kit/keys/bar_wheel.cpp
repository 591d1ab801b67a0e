// SPDX-License-Identifier: MIT
#include "kit/keys/bar_wheel.h"

#include <algorithm>
#include <cmath>

namespace kit::keys {

int WheelSteps::step(const WheelInput& input, Instant at)
{
    if (input.momentum) {
        return 0;
    }
    if (input.began || (m_last && at - *m_last > kPause)) {
        m_travelled = 0;
    }
    m_last = at;

    double delta = std::abs(input.deltaX) > std::abs(input.deltaY) ? input.deltaX : input.deltaY;
    if (delta == 0) {
        return 0;
    }
    double value = delta;
    if (input.precise) {
        m_travelled += delta;
        if (std::abs(m_travelled) < kStepDistance) {
            return 0;
        }
        value = m_travelled;
    }
    int direction = value < 0 ? 1 : -1;
    m_travelled = 0;
    if (m_stepped && at - *m_stepped < kStepGap) {
        return 0;
    }
    m_stepped = at;
    return direction;
}

BarWheel::BarWheel(ScrollMonitoring& monitoring)
    : m_monitoring(monitoring)
{}

void BarWheel::start()
{
    if (m_monitor) {
        return;
    }
    m_monitor = m_monitoring.addLocalMonitor([this](const ScrollEvent& e) { handleLocal(e); });
    m_globalMonitor =
        m_monitoring.addGlobalMonitor([this](const ScrollEvent& e) { handleGlobal(e); });
}

void BarWheel::stop()
{
    m_monitor.reset();
    m_globalMonitor.reset();
}

void BarWheel::handleLocal(const ScrollEvent& event)
{
    if (event.window && isOverIcon && isOverIcon(*event.window)) {
        count(event);
    }
}

void BarWheel::handleGlobal(const ScrollEvent& event)
{
    if (!iconFrames) {
        return;
    }
    auto frames = iconFrames();
    if (std::any_of(frames.begin(), frames.end(), [&event](const ScreenRect& frame) {
            return frame.contains(event.pointer);
        })) {
        count(event);
    }
}

void BarWheel::count(const ScrollEvent& event)
{
    int direction = m_steps.step(event.input, event.time);
    if (direction != 0 && onCycleBar) {
        onCycleBar(direction);
    }
}

} // namespace kit::keys
