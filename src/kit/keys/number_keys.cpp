// SPDX-License-Identifier: MIT
#include "kit/keys/number_keys.h"

#include "kit/support/platform_words.h"

#include <array>
#include <utility>

namespace kit::keys {

namespace {

constexpr std::array<std::pair<DigitKeys, std::string_view>, 5> kStoredNames{{
    {DigitKeys::OptionCommand, "optionCommand"},
    {DigitKeys::ControlCommand, "controlCommand"},
    {DigitKeys::ShiftControl, "shiftControl"},
    {DigitKeys::Custom, "custom"},
    {DigitKeys::Off, "off"},
}};

} // namespace

std::string_view storedName(DigitKeys keys)
{
    for (const auto& [value, name] : kStoredNames) {
        if (value == keys) {
            return name;
        }
    }
    return "controlCommand";
}

DigitKeys digitKeysFromStored(std::optional<std::string_view> stored)
{
    if (stored) {
        for (const auto& [value, name] : kStoredNames) {
            if (name == *stored) {
                return value;
            }
        }
    }
    return DigitKeys::ControlCommand;
}

ModifierSet customPairFromStored(std::optional<int64_t> raw)
{
    if (!raw || *raw < 0) {
        return kDefaultCustomPair;
    }
    return ModifierSet::fromRaw(static_cast<uint64_t>(*raw));
}

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
        return pair.symbols() + std::to_string(n);
    }
    auto second = secondNine();
    if (n >= 10 && n <= 18 && second) {
        return second->symbols() + std::to_string(n - 9);
    }
    return std::nullopt;
}

std::string displayText(DigitKeys keys, ModifierSet custom)
{
    switch (keys) {
    case DigitKeys::OptionCommand:
        return "⌥⌘ Option Command";
    case DigitKeys::ControlCommand:
        return "⌃⌘ Control Command";
    case DigitKeys::ShiftControl:
        return "⇧⌃ Shift Control";
    case DigitKeys::Custom:
        break;
    case DigitKeys::Off:
        return support::inPlatformWords("Off, so nothing in the menu bar answers to a number and "
                                        "the arrows do not move between bars.");
    }
    auto pair = NumberKeys::resolve(DigitKeys::Custom, custom)->pair;
    return pair.symbols() + " " + pair.names();
}

} // namespace kit::keys
