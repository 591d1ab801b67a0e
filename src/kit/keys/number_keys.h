// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/modifiers.h"
#include "kit/settings/app_settings.h"

#include <optional>
#include <string>
#include <string_view>

namespace kit::keys {

// Which modifiers, held with a digit, press the n-th numbered icon: the setting's own choice.
using DigitKeys = settings::DigitKeys;

// The pair a custom choice uses when the stored one is unusable.
inline constexpr ModifierSet kDefaultCustomPair{Modifier::Control, Modifier::Option};
static_assert(kDefaultCustomPair.raw() == settings::AppSettings::kCustomModifiersDefault);

// A pair must hold two modifiers at least, one of them Super or Ctrl, and must not be exactly
// Shift+Super (the screenshot keys).
bool isAllowedPair(ModifierSet pair);
// What the recording field says while it waits for a pair.
inline constexpr std::string_view kPairRule =
    "Hold the pair you want in the field beside this. Two modifiers at least, one of them Super or "
    "Ctrl, and not Shift+Super, which is what takes screenshots.";

// The resolved pair held with a digit, and the keys that press each numbered icon.
struct NumberKeys
{
    ModifierSet pair;

    // The pair for a setting; none for Off. A stored custom set that breaks the pair rules falls
    // back to kDefaultCustomPair, as an unreadable one does.
    static std::optional<NumberKeys> resolve(DigitKeys keys, ModifierSet custom);
    // The pair the settings choose now.
    static std::optional<NumberKeys> fromSettings(const settings::AppSettings& settings);

    static std::string words(ModifierSet modifiers) { return modifiers.words(); }

    // The modifier added for icons 10 to 18; none when the pair leaves no room for one.
    std::optional<Modifier> extra() const;
    // The pair plus the extra modifier, when there is a second nine.
    std::optional<ModifierSet> secondNine() const;
    // The keys that press icon n (counted from 1), such as "Alt+Super+3"; none when icon n has no
    // key.
    std::optional<std::string> display(int n) const;

    bool operator==(const NumberKeys&) const = default;
};

// How a choice is named in Settings ("Alt+Super"); a custom choice shows its pair.
std::string displayText(DigitKeys keys, ModifierSet custom);

} // namespace kit::keys
