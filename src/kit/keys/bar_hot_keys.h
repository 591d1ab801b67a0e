// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/hot_key_combo.h"
#include "kit/keys/number_keys.h"
#include "kit/keys/subscription.h"
#include "kit/support/main_queue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit::keys {

// "VNTL": every hot key this application registers carries it, so presses meant for others are
// told apart.
inline constexpr uint32_t kHotKeySignature =
    (uint32_t{'V'} << 24) | (uint32_t{'N'} << 16) | (uint32_t{'T'} << 8) | uint32_t{'L'};

namespace hot_key_id {
inline constexpr uint32_t kMenu = 100;
inline constexpr uint32_t kActiveBar = 101;
// Icon n has id kDigitBase + n, n from 1 to 18.
inline constexpr uint32_t kDigitBase = 200;
inline constexpr uint32_t kPreviousBar = 300;
inline constexpr uint32_t kNextBar = 301;
} // namespace hot_key_id

// The system's global hot keys. registerHotKey answers null when the system refuses the
// combination (another application holds it); destroying the handle unregisters the key. Presses
// may be delivered on any thread.
class HotKeyService
{
public:
    virtual ~HotKeyService() = default;

    virtual void installHandler(std::function<void(uint32_t signature, uint32_t id)> onPress) = 0;
    virtual std::unique_ptr<Subscription>
    registerHotKey(uint16_t keyCode, ModifierSet modifiers, uint32_t signature, uint32_t id) = 0;
};

// The application's global hot keys: digits for the numbered icons, arrows between bars, and the
// menu and showing-bar keys. Registers them as one set, replacing the previous set whole; carries
// each press to the main thread before any action runs. Main thread only, apart from presses.
class BarHotKeys
{
public:
    // The icon with that number, counted from 1 among the numbered icons.
    std::function<void(int)> onItem;
    // -1 for the bar before, +1 for the bar after.
    std::function<void(int)> onCycleBar;
    std::function<void()> onOpenMenu;
    std::function<void()> onOpenActiveBar;

    BarHotKeys(HotKeyService& service, support::MainQueue& mainQueue);
    BarHotKeys(const BarHotKeys&) = delete;
    BarHotKeys& operator=(const BarHotKeys&) = delete;

    // Replaces every registered hot key with the set for `itemCount` numbered icons, the pair (none
    // when number keys are off) and the two optional combos. A key the system refuses is logged
    // and skipped; the others still work.
    void registerKeys(int itemCount,
                      const std::optional<NumberKeys>& keys,
                      const std::optional<HotKeyCombo>& menu,
                      const std::optional<HotKeyCombo>& activeBar);

    size_t registeredCount() const { return m_refs.size(); }
    // The display texts of the keys refused by the last registration, for Settings to show.
    const std::vector<std::string>& refused() const { return m_refused; }

private:
    void registerDigits(int count, const std::optional<NumberKeys>& keys, uint32_t base);
    void registerMenuKey(const std::optional<HotKeyCombo>& combo, uint32_t id);
    bool registerKey(uint16_t keyCode, ModifierSet modifiers, uint32_t id, const std::string& name);
    void dispatch(uint32_t id) const;

    HotKeyService& m_service;
    support::MainQueue& m_mainQueue;
    bool m_handlerInstalled = false;
    std::vector<std::unique_ptr<Subscription>> m_refs;
    // The key code and modifiers of each key in m_refs.
    std::vector<std::pair<uint16_t, uint32_t>> m_combos;
    std::vector<std::string> m_refused;
    // Presses queued for the main thread hold this weakly, so none runs after destruction.
    std::shared_ptr<BarHotKeys*> m_self;
};

} // namespace kit::keys
