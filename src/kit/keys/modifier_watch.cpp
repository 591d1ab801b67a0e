// SPDX-License-Identifier: MIT
#include "kit/keys/modifier_watch.h"

namespace kit::keys {

ModifierWatch::ModifierWatch(ModifierSource& source, Clock& clock)
    : m_source(source)
    , m_clock(clock)
{}

void ModifierWatch::start(std::chrono::milliseconds every)
{
    if (m_timer && m_interval == every) {
        return;
    }
    // The old timer goes first: it may be the one whose tick is calling us.
    m_timer.reset();
    m_interval = every;
    m_timer = m_clock.repeat(every, [this] { tick(); });
}

void ModifierWatch::stop()
{
    m_timer.reset();
    m_since.reset();
    show(std::nullopt);
}

void ModifierWatch::tick()
{
    auto tier = tierOf(m_source.held());
    if (!tier) {
        m_since.reset();
        show(std::nullopt);
        pollEvery(kRestInterval);
        return;
    }
    pollEvery(kHeldInterval);
    Instant now = m_clock.now();
    if (!m_since) {
        m_since = now;
    }
    if (!m_showing && now - *m_since < kHoldBeforeShowing) {
        return;
    }
    show(tier);
}

void ModifierWatch::pollEvery(std::chrono::milliseconds interval)
{
    // A tick run by hand while stopped must not start the timer.
    if (m_timer) {
        start(interval);
    }
}

std::optional<int> ModifierWatch::tierOf(ModifierSet held) const
{
    if (!m_keys) {
        return std::nullopt;
    }
    if (held == m_keys->pair) {
        return 1;
    }
    if (auto second = m_keys->secondNine(); second && held == *second) {
        return 2;
    }
    return std::nullopt;
}

void ModifierWatch::show(std::optional<int> tier)
{
    if (tier == m_showing) {
        return;
    }
    m_showing = tier;
    if (onChange) {
        onChange(tier);
    }
}

} // namespace kit::keys
