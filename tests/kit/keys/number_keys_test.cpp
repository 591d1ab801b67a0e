// SPDX-License-Identifier: MIT
#include "kit/keys/number_keys.h"

#include "kit/keys/hot_key_combo.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace kit::keys;

namespace {

constexpr Modifier kShift = Modifier::Shift;
constexpr Modifier kControl = Modifier::Control;
constexpr Modifier kOption = Modifier::Option;
constexpr Modifier kCommand = Modifier::Command;
constexpr HotKeyCombo kMenu = kit::settings::AppSettings::kMenuHotKeyDefault;

TEST(ModifierSet, ShowsWordsInFixedOrderAndDropsBitsOtherThanTheFourModifiers)
{
    EXPECT_EQ((ModifierSet{kCommand, kShift, kOption, kControl}.words()), "Ctrl+Alt+Shift+Super");
    // Caps Lock (0x10000) and the device bits must not make a held pair look different.
    auto set = ModifierSet::fromRaw(0x10000 | 0x40000 | 0x100000 | 0xFF);
    EXPECT_EQ(set, (ModifierSet{kControl, kCommand}));
    EXPECT_EQ(set.raw(), 0x140000U);
}

TEST(NumberKeys, TheSecondNineAddsTheFirstModifierThePairLeavesRoomFor)
{
    EXPECT_EQ((NumberKeys{{kOption, kCommand}}.secondNine()),
              (ModifierSet{kControl, kOption, kCommand}));
    EXPECT_EQ((NumberKeys{{kShift, kControl}}.secondNine()),
              (ModifierSet{kControl, kOption, kShift}));
    EXPECT_EQ((NumberKeys{{kControl, kOption, kCommand}}.secondNine()), std::nullopt);
}

TEST(NumberKeys, DisplaysTheKeysOfEachIcon)
{
    NumberKeys keys{{kOption, kCommand}};
    EXPECT_EQ(keys.display(9), "Alt+Super+9");
    EXPECT_EQ(keys.display(18), "Ctrl+Alt+Super+9");
    EXPECT_EQ(keys.display(19), std::nullopt);
    EXPECT_EQ(keys.display(0), std::nullopt);

    NumberKeys full{{kControl, kOption, kCommand}};
    EXPECT_EQ(full.display(9), "Ctrl+Alt+Super+9");
    EXPECT_EQ(full.display(10), std::nullopt);
}

TEST(NumberKeys, AllowedPairsFollowThePairRules)
{
    EXPECT_TRUE(isAllowedPair({kControl, kOption}));
    EXPECT_TRUE(isAllowedPair({kShift, kOption, kCommand}));
    EXPECT_FALSE(isAllowedPair({kShift, kCommand})); // screenshots
    EXPECT_FALSE(isAllowedPair({kShift, kOption}));  // no ⌘ or ⌃
}

TEST(NumberKeys, ResolvesEachChoiceAndGuardsTheCustomPair)
{
    EXPECT_EQ(NumberKeys::resolve(DigitKeys::Off, {}), std::nullopt);
    EXPECT_EQ(NumberKeys::resolve(DigitKeys::ShiftControl, {})->pair,
              (ModifierSet{kShift, kControl}));
    EXPECT_EQ(NumberKeys::resolve(DigitKeys::Custom, {kShift, kOption, kCommand})->pair,
              (ModifierSet{kShift, kOption, kCommand}));
    // A stored set no recording could have produced takes the unreadable path.
    EXPECT_EQ(NumberKeys::resolve(DigitKeys::Custom, {kShift, kCommand})->pair, kDefaultCustomPair);
    EXPECT_EQ(NumberKeys::resolve(DigitKeys::Custom, {})->pair, kDefaultCustomPair);
}

TEST(DigitKeysText, NamesEachChoice)
{
    EXPECT_EQ(displayText(DigitKeys::OptionCommand, {}), "Alt+Super");
    EXPECT_EQ(displayText(DigitKeys::Custom, {kCommand, kControl, kShift}), "Ctrl+Shift+Super");
    // An unusable custom pair shows the pair that is used instead.
    EXPECT_EQ(displayText(DigitKeys::Custom, {kShift, kCommand}), "Ctrl+Alt");
    EXPECT_EQ(displayText(DigitKeys::Off, {}).rfind("Off, so nothing in the menu bar", 0), 0U);
}

TEST(HotKeyCombo, DisplaysModifierWordsThenTheKeyName)
{
    EXPECT_EQ(kMenu.display(), "Ctrl+Super+G");
    EXPECT_EQ((HotKeyCombo{96, 0x80000 | 0x20000}.display()), "Alt+Shift+F5");
    EXPECT_EQ((HotKeyCombo{122, 0}.display()), "F1");
    EXPECT_EQ(HotKeyCombo::name(200), "Key 200");
    EXPECT_EQ(HotKeyCombo::functionNumber(122), 1);
    EXPECT_EQ(HotKeyCombo::functionNumber(90), 20);
    EXPECT_EQ(HotKeyCombo::functionNumber(0), std::nullopt);
}

TEST(HotKeyCombo, WithoutModifiersOnlyAFunctionKeyIsUsable)
{
    EXPECT_TRUE((HotKeyCombo{105, 0}.isUsable())); // F13
    EXPECT_FALSE((HotKeyCombo{key_code::kG, 0}.isUsable()));
    EXPECT_FALSE((HotKeyCombo{key_code::kG, 0x10000}.isUsable())); // Caps Lock is no modifier
}

TEST(HotKeyCombo, DigitKeyCodesNameTheirDigits)
{
    for (int digit = 0; digit <= 9; ++digit) {
        EXPECT_EQ(HotKeyCombo::name(digitKeyCode(digit)), std::to_string(digit));
    }
}

} // namespace
