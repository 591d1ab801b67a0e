// SPDX-License-Identifier: MIT
#include "kit/menubar/playing_pages.h"

namespace kit::menubar {

void PlayingPages::setIDs(std::unordered_set<library::ShortcutID> ids)
{
    if (ids == m_ids) {
        return;
    }
    m_ids = std::move(ids);
    notify();
}

void PlayingPages::insert(const library::ShortcutID& id)
{
    if (m_ids.insert(id).second) {
        notify();
    }
}

void PlayingPages::erase(const library::ShortcutID& id)
{
    if (m_ids.erase(id) > 0) {
        notify();
    }
}

size_t PlayingPages::observe(Observer observer)
{
    size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void PlayingPages::removeObserver(size_t token)
{
    std::erase_if(m_observers, [&](const auto& entry) { return entry.first == token; });
}

void PlayingPages::notify()
{
    // A copy, so an observer may add or remove observers while being told.
    auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer();
    }
}

} // namespace kit::menubar
