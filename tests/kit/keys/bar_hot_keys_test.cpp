// SPDX-License-Identifier: MIT
#include "kit/keys/bar_hot_keys.h"

#include "fakes.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace kit::keys;
using keys_testing::FakeHotKeyService;
using keys_testing::FakeMainQueue;
using keys_testing::Registration;

namespace {

constexpr ModifierSet kOptionCommand{Modifier::Option, Modifier::Command};
constexpr ModifierSet kControlOptionCommand{Modifier::Control, Modifier::Option, Modifier::Command};
constexpr HotKeyCombo kDefaultMenuHotKey = kit::settings::AppSettings::kMenuHotKeyDefault;
constexpr HotKeyCombo kDefaultActiveBarHotKey = kit::settings::AppSettings::kActiveBarHotKeyDefault;

class BarHotKeysTest : public testing::Test
{
protected:
    BarHotKeysTest()
    {
        hotKeys.onItem = [this](int n) { actions.push_back("item " + std::to_string(n)); };
        hotKeys.onCycleBar = [this](int by) { actions.push_back("cycle " + std::to_string(by)); };
        hotKeys.onOpenMenu = [this] { actions.push_back("menu"); };
        hotKeys.onOpenActiveBar = [this] { actions.push_back("active bar"); };
    }

    void registerWith(int itemCount,
                      std::optional<NumberKeys> keys,
                      std::optional<HotKeyCombo> menu = kDefaultMenuHotKey,
                      std::optional<HotKeyCombo> activeBar = kDefaultActiveBarHotKey)
    {
        hotKeys.registerKeys(itemCount, keys, menu, activeBar);
    }

    std::vector<std::string> press(uint32_t id, uint32_t signature = kHotKeySignature)
    {
        actions.clear();
        service.press(signature, id);
        mainQueue.runAll();
        return actions;
    }

    FakeHotKeyService service;
    FakeMainQueue mainQueue;
    BarHotKeys hotKeys{service, mainQueue};
    std::vector<std::string> actions;
};

TEST_F(BarHotKeysTest, TwelveIconsUseTheSecondNineForTenToTwelve)
{
    registerWith(12, NumberKeys{kOptionCommand});
    std::vector<Registration> expected;
    for (uint32_t n = 1; n <= 12; ++n) {
        expected.push_back(
            n <= 9 ? Registration{digitKeyCode(int(n)), kOptionCommand, 200 + n}
                   : Registration{digitKeyCode(int(n - 9)), kControlOptionCommand, 200 + n});
    }
    expected.push_back({key_code::kLeftArrow, kOptionCommand, 300});
    expected.push_back({key_code::kRightArrow, kOptionCommand, 301});
    expected.push_back({key_code::kG, kDefaultMenuHotKey.modifierSet(), 100});
    expected.push_back({key_code::kA, kDefaultActiveBarHotKey.modifierSet(), 101});
    EXPECT_EQ(service.registered(), expected);
    EXPECT_EQ(service.signatures, (std::set<uint32_t>{kHotKeySignature}));
}

TEST_F(BarHotKeysTest, APairWithoutAnExtraModifierStopsAtNine)
{
    registerWith(20, NumberKeys{kControlOptionCommand});
    EXPECT_NE(service.withID(209), nullptr);
    EXPECT_EQ(service.withID(210), nullptr);
}

TEST_F(BarHotKeysTest, EachRegistrationReplacesTheWholeSet)
{
    registerWith(12, NumberKeys{kOptionCommand});
    // The same keys again: the fake refuses a key that is still held, so this only succeeds if the
    // old set is gone first.
    registerWith(3, NumberKeys{kOptionCommand}, std::nullopt, kDefaultActiveBarHotKey);
    EXPECT_TRUE(hotKeys.refused().empty());
    std::vector<uint32_t> ids;
    for (const auto& registration : service.registered()) {
        ids.push_back(registration.id);
    }
    EXPECT_EQ(ids, (std::vector<uint32_t>{201, 202, 203, 300, 301, 101}));
    EXPECT_EQ(hotKeys.registeredCount(), 6U);
    EXPECT_EQ(service.handlersInstalled, 1);
}

TEST_F(BarHotKeysTest, AKeyHeldElsewhereIsSkippedAndTheRestWork)
{
    service.taken.insert({digitKeyCode(3), kOptionCommand.raw()});
    service.taken.insert({key_code::kG, kDefaultMenuHotKey.modifiers});

    testing::internal::CaptureStderr();
    registerWith(5, NumberKeys{kOptionCommand});
    std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(hotKeys.refused(), (std::vector<std::string>{"Alt+Super+3", "Ctrl+Super+G"}));
    EXPECT_NE(log.find("Alt+Super+3 is taken by another app"), std::string::npos) << log;
    EXPECT_EQ(service.withID(203), nullptr);
    EXPECT_NE(service.withID(204), nullptr);
    EXPECT_NE(service.withID(101), nullptr);
    EXPECT_EQ(press(204), (std::vector<std::string>{"item 4"}));
}

TEST_F(BarHotKeysTest, AMenuKeyRepeatingOneOfOurOwnKeysLeavesItToTheFirst)
{
    HotKeyCombo digitOne{digitKeyCode(1), kOptionCommand.raw()};
    testing::internal::CaptureStderr();
    registerWith(3, NumberKeys{kOptionCommand}, digitOne, digitOne);
    std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(hotKeys.refused(), (std::vector<std::string>{"Alt+Super+1", "Alt+Super+1"}));
    EXPECT_NE(log.find("Alt+Super+1 already does something else here"), std::string::npos) << log;
    EXPECT_EQ(service.withID(100), nullptr);
    EXPECT_EQ(service.withID(101), nullptr);
    EXPECT_EQ(press(201), (std::vector<std::string>{"item 1"}));

    // Once number keys are off the same combo is free for the menu.
    registerWith(3, std::nullopt, digitOne, std::nullopt);
    EXPECT_TRUE(hotKeys.refused().empty());
    EXPECT_NE(service.withID(100), nullptr);
    EXPECT_EQ(service.registered().size(), 1U);
}

TEST_F(BarHotKeysTest, AStoredComboWithoutModifiersIsNotGrabbed)
{
    testing::internal::CaptureStderr();
    registerWith(0, std::nullopt, HotKeyCombo{key_code::kG, 0}, HotKeyCombo{105, 0});
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(service.withID(100), nullptr);
    EXPECT_NE(service.withID(101), nullptr);
    EXPECT_NE(log.find("G needs a modifier key"), std::string::npos) << log;
}

TEST_F(BarHotKeysTest, APressRunsItsActionOnTheMainThread)
{
    registerWith(18, NumberKeys{kOptionCommand});
    const std::pair<uint32_t, std::vector<std::string>> presses[] = {
        {100, {"menu"}},
        {101, {"active bar"}},
        {300, {"cycle -1"}},
        {218, {"item 18"}},
        {200, {}},
        {219, {}},
    };
    for (const auto& [id, expected] : presses) {
        SCOPED_TRACE(id);
        actions.clear();
        service.press(kHotKeySignature, id);
        EXPECT_TRUE(actions.empty()) << "an action ran before reaching the main thread";
        mainQueue.runAll();
        EXPECT_EQ(actions, expected);
    }
}

TEST_F(BarHotKeysTest, IgnoresPressesWithAnotherSignature)
{
    registerWith(3, NumberKeys{kOptionCommand});
    EXPECT_TRUE(press(201, 0x41424344).empty());
    EXPECT_EQ(mainQueue.pending(), 0U);
}

TEST(BarHotKeysLifetime, APressQueuedBeforeDestructionDoesNothing)
{
    FakeHotKeyService service;
    FakeMainQueue mainQueue;
    bool ran = false;
    {
        BarHotKeys hotKeys{service, mainQueue};
        hotKeys.onOpenMenu = [&ran] { ran = true; };
        hotKeys.registerKeys(0, std::nullopt, kDefaultMenuHotKey, std::nullopt);
        service.press(kHotKeySignature, hot_key_id::kMenu);
    }
    EXPECT_TRUE(service.registered().empty());
    mainQueue.runAll();
    EXPECT_FALSE(ran);
}

} // namespace
