// SPDX-License-Identifier: MIT
#include "kit/keys/bar_hot_keys.h"

#include "kit/support/log.h"

#include <algorithm>

namespace kit::keys {

namespace {

constexpr support::Logger kLog("menubar");
constexpr int kNine = 9;

} // namespace

BarHotKeys::BarHotKeys(HotKeyService& service, support::MainQueue& mainQueue)
    : m_service(service)
    , m_mainQueue(mainQueue)
    , m_self(std::make_shared<BarHotKeys*>(this))
{}

void BarHotKeys::registerKeys(int itemCount,
                              const std::optional<NumberKeys>& keys,
                              const std::optional<HotKeyCombo>& menu,
                              const std::optional<HotKeyCombo>& activeBar)
{
    if (!m_handlerInstalled) {
        m_handlerInstalled = true;
        std::weak_ptr<BarHotKeys*> weak = m_self;
        support::MainQueue* mainQueue = &m_mainQueue;
        m_service.installHandler([weak, mainQueue](uint32_t signature, uint32_t id) {
            if (signature != kHotKeySignature) {
                return;
            }
            mainQueue->post([weak, id] {
                if (auto self = weak.lock()) {
                    (*self)->dispatch(id);
                }
            });
        });
    }

    // The old set goes before the new one is registered: a key in both would otherwise be
    // refused as held by another application.
    m_refs.clear();
    m_combos.clear();
    m_refused.clear();

    registerDigits(itemCount, keys, hot_key_id::kDigitBase);
    if (keys) {
        registerKey(key_code::kLeftArrow,
                    keys->pair,
                    hot_key_id::kPreviousBar,
                    HotKeyCombo{key_code::kLeftArrow, keys->pair.raw()}.display());
        registerKey(key_code::kRightArrow,
                    keys->pair,
                    hot_key_id::kNextBar,
                    HotKeyCombo{key_code::kRightArrow, keys->pair.raw()}.display());
    }
    registerMenuKey(menu, hot_key_id::kMenu);
    registerMenuKey(activeBar, hot_key_id::kActiveBar);
}

void BarHotKeys::registerDigits(int count, const std::optional<NumberKeys>& keys, uint32_t base)
{
    if (!keys) {
        return;
    }
    for (int n = 1; n <= std::min(count, kNine); ++n) {
        registerKey(
            digitKeyCode(n), keys->pair, base + static_cast<uint32_t>(n), *keys->display(n));
    }
    auto second = keys->secondNine();
    if (!second) {
        return;
    }
    for (int n = kNine + 1; n <= std::min(count, 2 * kNine); ++n) {
        registerKey(
            digitKeyCode(n - kNine), *second, base + static_cast<uint32_t>(n), *keys->display(n));
    }
}

void BarHotKeys::registerMenuKey(const std::optional<HotKeyCombo>& combo, uint32_t id)
{
    if (combo && !combo->isUsable()) {
        kLog.error(combo->display() + " needs a modifier key to work everywhere; it is not set up");
        return;
    }
    if (combo) {
        registerKey(combo->keyCode, combo->modifierSet(), id, combo->display());
    }
}

bool BarHotKeys::registerKey(uint16_t keyCode,
                             ModifierSet modifiers,
                             uint32_t id,
                             const std::string& name)
{
    // The menu keys are free to choose and may repeat one of our own keys; the first one
    // registered keeps it rather than the second being blamed on another app.
    auto combo = std::make_pair(keyCode, modifiers.raw());
    if (std::find(m_combos.begin(), m_combos.end(), combo) != m_combos.end()) {
        kLog.error(name + " already does something else here");
        m_refused.push_back(name);
        return false;
    }
    auto ref = m_service.registerHotKey(keyCode, modifiers, kHotKeySignature, id);
    if (!ref) {
        kLog.error(name + " is taken by another app");
        m_refused.push_back(name);
        return false;
    }
    m_refs.push_back(std::move(ref));
    m_combos.push_back(combo);
    return true;
}

void BarHotKeys::dispatch(uint32_t id) const
{
    if (id == hot_key_id::kMenu) {
        if (onOpenMenu) {
            onOpenMenu();
        }
    } else if (id == hot_key_id::kActiveBar) {
        if (onOpenActiveBar) {
            onOpenActiveBar();
        }
    } else if (id == hot_key_id::kPreviousBar || id == hot_key_id::kNextBar) {
        if (onCycleBar) {
            onCycleBar(id == hot_key_id::kPreviousBar ? -1 : 1);
        }
    } else if (id > hot_key_id::kDigitBase && id <= hot_key_id::kDigitBase + 2 * kNine) {
        if (onItem) {
            onItem(static_cast<int>(id - hot_key_id::kDigitBase));
        }
    }
}

} // namespace kit::keys
