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

struct ExtraCase
{
    ModifierSet pair;
    std::optional<ModifierSet> secondNine;
};

class SecondNine : public testing::TestWithParam<ExtraCase>
{};

TEST_P(SecondNine, AddsTheFirstModifierThePairLeavesRoomFor)
{
    EXPECT_EQ(NumberKeys{GetParam().pair}.secondNine(), GetParam().secondNine);
}

INSTANTIATE_TEST_SUITE_P(
    Pairs,
    SecondNine,
    testing::Values(ExtraCase{{kOption, kCommand}, ModifierSet{kControl, kOption, kCommand}},
                    ExtraCase{{kShift, kControl}, ModifierSet{kControl, kOption, kShift}},
                    ExtraCase{{kControl, kOption, kCommand}, std::nullopt}));

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

struct PairCase
{
    ModifierSet pair;
    bool allowed;
};

class AllowedPair : public testing::TestWithParam<PairCase>
{};

TEST_P(AllowedPair, FollowsThePairRules)
{
    EXPECT_EQ(isAllowedPair(GetParam().pair), GetParam().allowed) << GetParam().pair.words();
}

INSTANTIATE_TEST_SUITE_P(Sets,
                         AllowedPair,
                         testing::Values(PairCase{{kControl, kOption}, true},
                                         PairCase{{kShift, kOption, kCommand}, true},
                                         PairCase{{kShift, kCommand}, false},  // screenshots
                                         PairCase{{kShift, kOption}, false})); // no ⌘ or ⌃

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
