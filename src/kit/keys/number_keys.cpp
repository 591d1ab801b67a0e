// SPDX-License-Identifier: MIT
#include "kit/keys/number_keys.h"

#include "kit/support/platform_words.h"

namespace kit::keys {

bool isAllowedPair(ModifierSet pair)
{
    if (pair.count() < 2) {
        return false;
    }
    if (!pair.contains(Modifier::Command) && !pair.contains(Modifier::Control)) {
        return false;
    }
    return pair != ModifierSet{Modifier::Shift, Modifier::Command};
}

std::optional<NumberKeys> NumberKeys::resolve(DigitKeys keys, ModifierSet custom)
{
    switch (keys) {
    case DigitKeys::OptionCommand:
        return NumberKeys{{Modifier::Option, Modifier::Command}};
    case DigitKeys::ControlCommand:
        return NumberKeys{{Modifier::Control, Modifier::Command}};
    case DigitKeys::ShiftControl:
        return NumberKeys{{Modifier::Shift, Modifier::Control}};
    case DigitKeys::Custom:
        return NumberKeys{isAllowedPair(custom) ? custom : kDefaultCustomPair};
    case DigitKeys::Off:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<NumberKeys> NumberKeys::fromSettings(const settings::AppSettings& settings)
{
    return resolve(settings.shortcutKeys(),
                   ModifierSet::fromRaw(settings.customShortcutModifiers()));
}

std::optional<Modifier> NumberKeys::extra() const
{
    if (!pair.contains(Modifier::Option)) {
        return Modifier::Option;
    }
    if (!pair.contains(Modifier::Control)) {
        return Modifier::Control;
    }
    if (!pair.contains(Modifier::Shift) && !pair.contains(Modifier::Command)) {
        return Modifier::Shift;
    }
    return std::nullopt;
}

std::optional<ModifierSet> NumberKeys::secondNine() const
{
    if (auto added = extra()) {
        return pair.with(*added);
    }
    return std::nullopt;
}

std::optional<std::string> NumberKeys::display(int n) const
{
    if (n >= 1 && n <= 9) {
        return pair.words() + "+" + std::to_string(n);
    }
    auto second = secondNine();
    if (n >= 10 && n <= 18 && second) {
        return second->words() + "+" + std::to_string(n - 9);
    }
    return std::nullopt;
}

std::string displayText(DigitKeys keys, ModifierSet custom)
{
    switch (keys) {
    case DigitKeys::OptionCommand:
    case DigitKeys::ControlCommand:
    case DigitKeys::ShiftControl:
    case DigitKeys::Custom:
        break;
    case DigitKeys::Off:
        return support::inPlatformWords("Off, so nothing in the menu bar answers to a number and "
                                        "the arrows do not move between bars.");
    }
    return NumberKeys::resolve(keys, custom)->pair.words();
}

} // namespace kit::keys
