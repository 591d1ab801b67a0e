// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/ids.h"

#include <cstddef>
#include <functional>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kit::menubar {

// The shortcuts whose page keeps playing after it was closed. The in-app browser sets it; the
// menu bar observes it. Observers are told once per change that alters the set, on the main
// thread.
class PlayingPages
{
public:
    using Observer = std::function<void()>;

    const std::unordered_set<library::ShortcutID>& ids() const { return m_ids; }

    void setIDs(std::unordered_set<library::ShortcutID> ids);
    void insert(const library::ShortcutID& id);
    void erase(const library::ShortcutID& id);

    size_t observe(Observer observer);
    void removeObserver(size_t token);

private:
    void notify();

    std::unordered_set<library::ShortcutID> m_ids;
    std::vector<std::pair<size_t, Observer>> m_observers;
    size_t m_nextObserver = 1;
};

} // namespace kit::menubar
