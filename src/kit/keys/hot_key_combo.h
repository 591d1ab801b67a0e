// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/modifiers.h"
#include "kit/settings/app_settings.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kit::keys {

// Virtual key codes as the settings store them (the ANSI layout codes of the platform the settings
// format comes from); the desktop layer maps them to its own keys.
namespace key_code {
inline constexpr uint16_t kA = 0;
inline constexpr uint16_t kG = 5;
inline constexpr uint16_t kLeftArrow = 123;
inline constexpr uint16_t kRightArrow = 124;
inline constexpr uint16_t kDownArrow = 125;
inline constexpr uint16_t kUpArrow = 126;
} // namespace key_code

// The key code of digit 0 to 9 on the main keyboard row; the codes are not in digit order.
uint16_t digitKeyCode(int digit);

// A global key combination as the settings keep it. `modifiers` holds raw flag bits as stored;
// only the four modifiers are ever acted on.
struct HotKeyCombo
{
    uint16_t keyCode = 0;
    uint32_t modifiers = 0;

    constexpr HotKeyCombo() = default;
    constexpr HotKeyCombo(uint16_t keyCode, uint32_t modifiers)
        : keyCode(keyCode)
        , modifiers(modifiers)
    {}
    // Implicit, so the settings' hot keys pass straight to registration.
    // NOLINTNEXTLINE(google-explicit-constructor): the two types are one value in two layers.
    constexpr HotKeyCombo(const settings::HotKeyCombo& stored)
        : keyCode(stored.keyCode)
        , modifiers(stored.modifiers)
    {}

    ModifierSet modifierSet() const { return ModifierSet::fromRaw(modifiers); }
    // The modifiers' words and the key's name joined by +, such as "Ctrl+Super+G" or
    // "Alt+Shift+F5".
    std::string display() const;

    // False for a key without modifiers other than a function key: grabbing it system-wide would
    // take the key from every other application.
    bool isUsable() const;

    // "A", "1", "Space", "Left", "F5"; a code without a name reads "Key 200".
    static std::string name(uint16_t keyCode);
    // 1 for F1 and so on; none for any other key.
    static std::optional<int> functionNumber(uint16_t keyCode);

    bool operator==(const HotKeyCombo&) const = default;
};

} // namespace kit::keys
