// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/tools/installed_apps.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace app {

// The few shortcuts a first launch puts on the first bar, so the menu bar shows what Vantorel
// does before the person has made anything.
struct StarterBar
{
    // Desktop ids tried in turn for the one app on the bar: file managers, then terminals.
    static const std::vector<std::string>& candidateApps();

    // The first candidate among the installed apps.
    static std::optional<kit::tools::InstalledApp>
    chooseApp(const std::vector<kit::tools::InstalledApp>& installed);

    // The entries, given the home folder's bookmark (none: no folder entry) and the app (none:
    // no app entry).
    static std::vector<kit::library::Shortcut>
    shortcuts(const std::optional<kit::library::Bookmark>& home,
              const std::optional<kit::tools::InstalledApp>& app);

    // True on a first launch: nothing stored yet and the one bar empty.
    static bool wouldSeed(const kit::storage::LibraryStore& store);

    // Only on a first launch (nothing stored yet, the one bar empty); true when it seeded.
    static bool seed(kit::storage::LibraryStore& store,
                     const std::optional<kit::library::Bookmark>& home,
                     const std::optional<kit::tools::InstalledApp>& app);
};

} // namespace app
