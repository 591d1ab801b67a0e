// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/clock.h"
#include "kit/keys/modifiers.h"
#include "kit/keys/number_keys.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace kit::keys {

// The modifiers held on the keyboard right now, polled on the main thread.
class ModifierSource
{
public:
    virtual ~ModifierSource() = default;
    virtual ModifierSet held() const = 0;
};

// Watches for the number-key pair being held and, after a short hold, asks for the icons' numbers
// to show: tier 1 for the pair (icons 1 to 9), tier 2 for the pair plus its extra modifier (icons
// 10 to 18), none otherwise. Polls slowly at rest and quickly while the pair is held. Main thread.
class ModifierWatch
{
public:
    static constexpr std::chrono::milliseconds kRestInterval{250};
    static constexpr std::chrono::milliseconds kHeldInterval{80};
    // Long enough that pressing the pair with a digit does not flash the numbers.
    static constexpr std::chrono::milliseconds kHoldBeforeShowing{350};

    // The tier to show now, or none to hide the numbers.
    std::function<void(std::optional<int>)> onChange;

    ModifierWatch(ModifierSource& source, Clock& clock);

    // The pair to watch for; none while number keys are off (nothing is then shown).
    void setKeys(const std::optional<NumberKeys>& keys) { m_keys = keys; }
    // Polls every `every`; does nothing when already polling at that interval.
    void start(std::chrono::milliseconds every = kRestInterval);
    // Ends polling and hides any numbers showing.
    void stop();
    void tick();

    bool isRunning() const { return m_timer != nullptr; }
    std::chrono::milliseconds interval() const { return m_interval; }
    std::optional<int> showing() const { return m_showing; }

private:
    void pollEvery(std::chrono::milliseconds interval);
    std::optional<int> tierOf(ModifierSet held) const;
    void show(std::optional<int> tier);

    ModifierSource& m_source;
    Clock& m_clock;
    std::unique_ptr<Subscription> m_timer;
    std::chrono::milliseconds m_interval{0};
    std::optional<NumberKeys> m_keys;
    std::optional<Instant> m_since;
    std::optional<int> m_showing;
};

} // namespace kit::keys
