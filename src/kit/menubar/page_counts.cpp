// SPDX-License-Identifier: MIT
#include "kit/menubar/page_counts.h"

namespace kit::menubar {

void PageCounts::set(const library::ShortcutID& id, const std::string& text)
{
    const auto found = m_counts.find(id);
    const std::string before = found == m_counts.end() ? std::string() : found->second;
    if (before == text) {
        return;
    }
    if (text.empty()) {
        m_counts.erase(id);
    } else {
        m_counts[id] = text;
    }
    // A copy, so an observer may add or remove observers while being told.
    auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer();
    }
}

size_t PageCounts::observe(Observer observer)
{
    const size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void PageCounts::removeObserver(size_t token)
{
    std::erase_if(m_observers, [&](const auto& entry) { return entry.first == token; });
}

} // namespace kit::menubar
