// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

namespace kit::support {

// The main thread's queue: the model and every window are touched only from tasks run here.
// The desktop layer posts to Qt's event loop; the headless app and the tests use RunLoop.
// post and postAfter are safe from any thread.
class MainQueue
{
public:
    virtual ~MainQueue() = default;

    // Runs the task on the main thread after the tasks already queued.
    virtual void post(std::function<void()> task) = 0;
    // Runs the task on the main thread once the delay has passed.
    virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> task) = 0;
};

} // namespace kit::support
