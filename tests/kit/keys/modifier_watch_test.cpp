// SPDX-License-Identifier: MIT
#include "kit/keys/modifier_watch.h"

#include "fakes.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace kit::keys;
using namespace std::chrono_literals;
using keys_testing::FakeClock;
using keys_testing::FakeModifierSource;

namespace {

constexpr ModifierSet kOptionCommand{Modifier::Option, Modifier::Command};
constexpr ModifierSet kControlOptionCommand{Modifier::Control, Modifier::Option, Modifier::Command};

class ModifierWatchTest : public testing::Test
{
protected:
    ModifierWatchTest()
    {
        watch.onChange = [this](std::optional<int> tier) { changes.push_back(tier); };
        watch.setKeys(NumberKeys{kOptionCommand});
        watch.start();
    }

    // Presses `held` just before a resting tick, so the hold counts from that tick.
    void holdFromNextTick(ModifierSet held)
    {
        source.heldNow = held;
        clock.advance(ModifierWatch::kRestInterval);
    }

    FakeClock clock;
    FakeModifierSource source;
    ModifierWatch watch{source, clock};
    std::vector<std::optional<int>> changes;
};

struct Hold
{
    std::optional<ModifierSet> fromNextTick; // nothing: let go at once
    std::chrono::milliseconds then;
};

struct HoldCase
{
    const char* name;
    std::vector<Hold> holds;
    std::vector<std::optional<int>> changes;
    bool keysOff = false;
};

TEST_F(ModifierWatchTest, OnlyAHoldOfFourTenthsOfTheRightModifiersShowsNumbers)
{
    const HoldCase cases[] = {
        {"JustShortOfFourTenths", {{kOptionCommand, 390ms}}, {}},
        {"FourTenthsShowsTheFirstNine", {{kOptionCommand, 400ms}}, {1}},
        {"SecondNineAfterTheHold", {{kControlOptionCommand, 400ms}}, {2}},
        {"OneTooMany", {{kOptionCommand.with(Modifier::Shift), 2s}}, {}},
        {"LettingGoBrieflyStartsAgain",
         {{kOptionCommand, 240ms}, {std::nullopt, 80ms}, {kOptionCommand, 320ms}},
         {}},
        {"AfterLettingGoTheFullHoldShows",
         {{kOptionCommand, 240ms}, {std::nullopt, 80ms}, {kOptionCommand, 400ms}},
         {1}},
        {"NumberKeysOff", {{kOptionCommand, 2s}}, {}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FakeClock clock;
        FakeModifierSource source;
        ModifierWatch watch{source, clock};
        std::vector<std::optional<int>> heard;
        watch.onChange = [&](std::optional<int> tier) { heard.push_back(tier); };
        watch.setKeys(c.keysOff ? std::nullopt : std::optional(NumberKeys{kOptionCommand}));
        watch.start();
        for (const auto& hold : c.holds) {
            if (hold.fromNextTick) {
                source.heldNow = *hold.fromNextTick;
                clock.advance(ModifierWatch::kRestInterval);
            } else {
                source.heldNow = {};
            }
            clock.advance(hold.then);
        }
        EXPECT_EQ(heard, c.changes);
    }
}

TEST_F(ModifierWatchTest, AddingTheExtraModifierSwitchesAndLettingGoClearsWithinAQuarter)
{
    holdFromNextTick(kOptionCommand);
    clock.advance(400ms);
    ASSERT_EQ(changes, (std::vector<std::optional<int>>{1}));

    source.heldNow = kControlOptionCommand;
    clock.advance(ModifierWatch::kHeldInterval);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{1, 2}));

    source.heldNow = {};
    clock.advance(250ms);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{1, 2, std::nullopt}));
    EXPECT_EQ(watch.interval(), ModifierWatch::kRestInterval);
    EXPECT_EQ(clock.liveTimers(), 1U);
}

TEST_F(ModifierWatchTest, StopEndsPollingAndHidesTheNumbers)
{
    holdFromNextTick(kOptionCommand);
    clock.advance(400ms);
    watch.stop();
    EXPECT_FALSE(watch.isRunning());
    EXPECT_EQ(clock.liveTimers(), 0U);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{1, std::nullopt}));

    watch.tick(); // a stray tick after stop must not start polling again
    EXPECT_EQ(clock.liveTimers(), 0U);
}

} // namespace
