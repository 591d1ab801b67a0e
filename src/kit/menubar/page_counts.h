// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/ids.h"

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kit::menubar {

// The count each shortcut's page shows (unread mail, messages), as its icon's badge reads it
// ("3", "99+"). The in-app browser sets it; the menu bar observes it. Observers are told once per
// change, on the main thread.
class PageCounts
{
public:
    using Observer = std::function<void()>;

    const std::unordered_map<library::ShortcutID, std::string>& counts() const { return m_counts; }

    // An empty text clears the shortcut's count.
    void set(const library::ShortcutID& id, const std::string& text);

    size_t observe(Observer observer);
    void removeObserver(size_t token);

private:
    std::unordered_map<library::ShortcutID, std::string> m_counts;
    std::vector<std::pair<size_t, Observer>> m_observers;
    size_t m_nextObserver = 1;
};

} // namespace kit::menubar
