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

TEST_F(ModifierWatchTest, AHoldOfAThirdOfASecondShowsNothing)
{
    holdFromNextTick(kOptionCommand);
    clock.advance(300ms);
    source.heldNow = {};
    clock.advance(1s);
    EXPECT_TRUE(changes.empty());
}

TEST_F(ModifierWatchTest, AHoldOfFourTenthsShowsTheFirstNine)
{
    holdFromNextTick(kOptionCommand);
    EXPECT_EQ(watch.interval(), ModifierWatch::kHeldInterval);
    clock.advance(390ms);
    EXPECT_TRUE(changes.empty());
    clock.advance(10ms);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{1}));
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

TEST_F(ModifierWatchTest, StartingWithTheSecondNineWaitsForTheHoldToo)
{
    holdFromNextTick(kControlOptionCommand);
    clock.advance(320ms);
    EXPECT_TRUE(changes.empty());
    clock.advance(80ms);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{2}));
}

TEST_F(ModifierWatchTest, OneModifierTooManyOrTooFewShowsNothing)
{
    holdFromNextTick(kOptionCommand.with(Modifier::Shift));
    clock.advance(2s);
    holdFromNextTick({Modifier::Command});
    clock.advance(2s);
    EXPECT_TRUE(changes.empty());
    EXPECT_EQ(watch.interval(), ModifierWatch::kRestInterval);
}

TEST_F(ModifierWatchTest, LettingGoBrieflyStartsTheHoldAgain)
{
    holdFromNextTick(kOptionCommand);
    clock.advance(240ms);
    source.heldNow = {};
    clock.advance(80ms);
    holdFromNextTick(kOptionCommand);
    clock.advance(320ms);
    EXPECT_TRUE(changes.empty());
    clock.advance(80ms);
    EXPECT_EQ(changes, (std::vector<std::optional<int>>{1}));
}

TEST_F(ModifierWatchTest, WithNumberKeysOffNothingShows)
{
    watch.setKeys(std::nullopt);
    holdFromNextTick(kOptionCommand);
    clock.advance(2s);
    EXPECT_TRUE(changes.empty());
}

TEST_F(ModifierWatchTest, StartingAtTheRunningIntervalKeepsTheTimer)
{
    const int created = clock.timersCreated();
    watch.start(ModifierWatch::kRestInterval);
    EXPECT_EQ(clock.timersCreated(), created);
    watch.start(ModifierWatch::kHeldInterval);
    EXPECT_EQ(clock.timersCreated(), created + 1);
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
