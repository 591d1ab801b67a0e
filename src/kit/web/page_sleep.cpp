// SPDX-License-Identifier: MIT
#include "kit/web/page_sleep.h"

#include <algorithm>

namespace kit::web {

PageSleep::PageSleep(std::optional<std::chrono::minutes> discardAfter)
    : m_discardAfter(discardAfter)
{}

void PageSleep::setDiscardAfter(std::optional<std::chrono::minutes> discardAfter)
{
    m_discardAfter = discardAfter;
}

void PageSleep::shown(const std::string& page)
{
    // Showing wakes a frozen or discarded page by itself; nothing is left to do.
    Page& state = m_pages[page];
    state.visible = true;
    state.rest = Rest::Awake;
    state.typing = false;
}

void PageSleep::hidden(const std::string& page, Clock::time_point now)
{
    Page& state = m_pages[page];
    if (!state.visible) {
        return;
    }
    state.visible = false;
    state.hiddenAt = now;
}

void PageSleep::playing(const std::string& page, bool playing, Clock::time_point now)
{
    Page& state = m_pages[page];
    if (state.playing && !playing) {
        state.hiddenAt = now;
    }
    state.playing = playing;
}

void PageSleep::typed(const std::string& page, bool typing)
{
    if (auto found = m_pages.find(page); found != m_pages.end()) {
        found->second.typing = typing;
    }
}

void PageSleep::forget(const std::string& page)
{
    m_pages.erase(page);
}

std::optional<PageSleep::Clock::time_point> PageSleep::nextFor(const Page& page) const
{
    if (page.visible || page.playing) {
        return std::nullopt;
    }
    switch (page.rest) {
    case Rest::Awake:
        return page.hiddenAt + kFreezeAfter;
    case Rest::Frozen:
        if (!m_discardAfter || page.typing) {
            return std::nullopt;
        }
        // Never discarded before it was frozen.
        return page.hiddenAt + std::max<std::chrono::minutes>(*m_discardAfter, kFreezeAfter);
    case Rest::Discarded:
        return std::nullopt;
    }
    return std::nullopt;
}

std::vector<PageSleep::Due> PageSleep::due(Clock::time_point now)
{
    std::vector<Due> steps;
    for (auto& [name, page] : m_pages) {
        const auto next = nextFor(page);
        if (!next || *next > now) {
            continue;
        }
        if (page.rest == Rest::Awake) {
            page.rest = Rest::Frozen;
            steps.push_back({name, Step::Freeze});
        } else {
            page.rest = Rest::Discarded;
            steps.push_back({name, Step::Discard});
        }
    }
    return steps;
}

std::optional<PageSleep::Clock::time_point> PageSleep::nextDue() const
{
    std::optional<Clock::time_point> soonest;
    for (const auto& [name, page] : m_pages) {
        if (const auto next = nextFor(page); next && (!soonest || *next < *soonest)) {
            soonest = next;
        }
    }
    return soonest;
}

} // namespace kit::web
