// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/subscription.h"

#include <chrono>
#include <functional>
#include <memory>

namespace kit::keys {

using Instant = std::chrono::steady_clock::time_point;

// The time now and repeating timers, both on the main thread. Tests substitute a clock that only
// moves when told to.
class Clock
{
public:
    virtual ~Clock() = default;

    virtual Instant now() const = 0;
    // Calls `tick` on the main thread every `interval` until the handle is destroyed. Destroying
    // the handle from inside `tick` is allowed.
    virtual std::unique_ptr<Subscription> repeat(std::chrono::milliseconds interval,
                                                 std::function<void()> tick) = 0;
};

} // namespace kit::keys
