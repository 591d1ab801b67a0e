// SPDX-License-Identifier: MIT
#include "kit/web/page_sleep.h"

#include <gtest/gtest.h>

namespace kit::web {

inline void PrintTo(const PageSleep::Due& due, std::ostream* out)
{
    *out << due.page << (due.step == PageSleep::Step::Freeze ? " freeze" : " discard");
}

namespace {

using namespace std::chrono_literals;
using Step = PageSleep::Step;
using Due = PageSleep::Due;

// A clock that starts anywhere and moves only when told.
struct FakeClock
{
    PageSleep::Clock::time_point now{std::chrono::hours(1000)};
    PageSleep::Clock::time_point after(std::chrono::seconds passed) const { return now + passed; }
};

TEST(PageSleep, HiddenPagesFreezeThenGo)
{
    // Each row: what happens to page "a" after it is hidden, and the steps seen at each time.
    const struct
    {
        const char* name;
        std::optional<std::chrono::minutes> discardAfter;
        bool playing;
        bool typing;
        std::vector<std::pair<std::chrono::seconds, std::vector<Due>>> checks;
    } rows[] = {
        {"frozen after a minute, discarded after the setting's",
         15min,
         false,
         false,
         {{59s, {}},
          {60s, {{"a", Step::Freeze}}},
          {14min, {}},
          {15min, {{"a", Step::Discard}}},
          {60min, {}}}},
        {"never discarded when the setting is off",
         std::nullopt,
         false,
         false,
         {{60s, {{"a", Step::Freeze}}}, {24h, {}}}},
        {"a page holding typing stays frozen",
         5min,
         false,
         true,
         {{60s, {{"a", Step::Freeze}}}, {24h, {}}}},
        {"a playing page stays awake", 5min, true, false, {{24h, {}}}},
    };
    for (const auto& row : rows) {
        FakeClock clock;
        PageSleep sleep(row.discardAfter);
        sleep.shown("a");
        sleep.playing("a", row.playing, clock.now);
        sleep.hidden("a", clock.now);
        for (const auto& [passed, expected] : row.checks) {
            const auto steps = sleep.due(clock.after(passed));
            EXPECT_EQ(steps, expected) << row.name << " at " << passed.count() << " s";
            for (const auto& step : steps) {
                if (step.step == Step::Freeze) {
                    sleep.typed(step.page, row.typing);
                }
            }
        }
    }
}

TEST(PageSleep, ShowingStartsTheRestOverAndNextDueSaysWhenToLookAgain)
{
    FakeClock clock;
    PageSleep sleep(5min);
    sleep.hidden("a", clock.now);
    EXPECT_EQ(sleep.nextDue(), clock.after(60s));
    EXPECT_EQ(sleep.due(clock.after(60s)), (std::vector<Due>{{"a", Step::Freeze}}));
    EXPECT_EQ(sleep.nextDue(), clock.after(5min));

    // Shown and hidden again just before it would have gone: the rest starts over.
    sleep.shown("a");
    EXPECT_EQ(sleep.nextDue(), std::nullopt);
    sleep.hidden("a", clock.after(299s));
    EXPECT_EQ(sleep.due(clock.after(5min)), std::vector<Due>{});
    EXPECT_EQ(sleep.due(clock.after(299s + 60s)), (std::vector<Due>{{"a", Step::Freeze}}));

    sleep.forget("a");

    // A page that stops playing rests from then on.
    sleep.playing("b", true, clock.now);
    sleep.hidden("b", clock.now);
    sleep.playing("b", false, clock.after(10min));
    EXPECT_EQ(sleep.due(clock.after(10min + 59s)), std::vector<Due>{});
    EXPECT_EQ(sleep.due(clock.after(11min)), (std::vector<Due>{{"b", Step::Freeze}}));

    sleep.forget("b");
    EXPECT_EQ(sleep.nextDue(), std::nullopt);
}

} // namespace
} // namespace kit::web
