// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kit::web {

// When hidden pages rest: frozen a minute after they were hidden, so their scripts stop, and
// discarded later, so their memory goes (they load again at the same address when shown). A page
// that plays is left awake, and one holding a form the person was typing in is never discarded.
// The page is asked about its form as it is frozen, the last moment its scripts still run.
// Single-threaded; time is whatever the caller's clock says.
class PageSleep
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::minutes kFreezeAfter{1};
    static constexpr std::chrono::minutes kDiscardAfterDefault{15};
    // The choices offered; nothing is never.
    static constexpr std::chrono::minutes kDiscardChoices[] = {
        std::chrono::minutes{5}, std::chrono::minutes{15}, std::chrono::minutes{60}};

    enum class Step {
        // Ask the page whether it holds typing, report it with `typed`, then freeze it.
        Freeze,
        Discard,
    };
    struct Due
    {
        std::string page;
        Step step;

        bool operator==(const Due&) const = default;
    };

    explicit PageSleep(std::optional<std::chrono::minutes> discardAfter = kDiscardAfterDefault);

    // Nothing: hidden pages are frozen but never discarded. Applies to pages already hidden.
    void setDiscardAfter(std::optional<std::chrono::minutes> discardAfter);

    void shown(const std::string& page);
    void hidden(const std::string& page, Clock::time_point now);
    // A playing page is left awake; one that stops rests as if hidden just then.
    void playing(const std::string& page, bool playing, Clock::time_point now);
    // What the page said when asked at its freezing.
    void typed(const std::string& page, bool typing);
    void forget(const std::string& page);

    // The steps due by `now`, each given once; the caller applies them in order.
    std::vector<Due> due(Clock::time_point now);
    // When `due` next has something to give, if ever.
    std::optional<Clock::time_point> nextDue() const;

private:
    enum class Rest {
        Awake,
        Frozen,
        Discarded,
    };
    struct Page
    {
        bool visible = true;
        bool playing = false;
        bool typing = false;
        Rest rest = Rest::Awake;
        Clock::time_point hiddenAt;
    };
    std::optional<Clock::time_point> nextFor(const Page& page) const;

    std::optional<std::chrono::minutes> m_discardAfter;
    std::map<std::string, Page> m_pages;
};

} // namespace kit::web
