// SPDX-License-Identifier: MIT
#pragma once

namespace kit::keys {

// Something registered with the platform (a timer, an event monitor, a hot key) that ends when
// this handle is destroyed.
class Subscription
{
public:
    virtual ~Subscription() = default;
};

} // namespace kit::keys
