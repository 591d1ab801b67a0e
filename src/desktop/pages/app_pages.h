// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/page_presenters.h"
#include "desktop/pages/pages_loader.h"
#include "desktop/pages/profile_stores.h"
#include "kit/menubar/playing_pages.h"
#include "kit/menubar/status_bar.h"
#include "kit/opening/workspace_opening.h"
#include "kit/web/session_stores.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace kit::web {
class PageOptions;
}

namespace app {
class AppDependencies;
}

namespace desktop::pages {

// The application's in-app pages: the presenters the opener is handed, the pages playing in
// closed panels, each session's website data, and the loader of the engine's module. Made before
// the composition root (whose opener takes the presenters) and connected to it once it exists.
// Main thread; must outlive the composition root.
class AppPages
{
public:
    AppPages(kit::support::MainQueue& mainQueue,
             kit::menubar::StatusBar& statusBar,
             kit::opening::WorkspaceOpening& workspace);
    ~AppPages();
    AppPages(const AppPages&) = delete;
    AppPages& operator=(const AppPages&) = delete;

    PagePresenters& presenters() { return *m_presenters; }
    kit::menubar::PlayingPages& playing() { return m_playing; }
    PagesLoader& loader() { return *m_loader; }
    // Once connected.
    kit::web::SessionStores& sessionStores() { return *m_sessionStores; }

    // Gives the pages what they save into and read from; before any page opens.
    void connect(app::AppDependencies& dependencies);
    // Removes the website data of sessions no bar knows any more, without starting the engine.
    void removeOrphanSessions();
    // Closes every page, so the engine writes what it holds before the app goes.
    void close();

    // Where the blocking rules are: the build tree's share folder or the installed one.
    static std::optional<std::filesystem::path> rulesRoot();

private:
    kit::support::MainQueue& m_mainQueue;
    kit::menubar::StatusBar& m_statusBar;
    kit::opening::WorkspaceOpening& m_workspace;
    app::AppDependencies* m_dependencies = nullptr;
    kit::menubar::PlayingPages m_playing;
    kit::menubar::PageCounts m_counts;
    std::unique_ptr<kit::web::PageOptions> m_options;
    // The settings store's, which goes before this object and takes the observer with it.
    std::optional<size_t> m_optionsObservation;
    std::unique_ptr<PagesLoader> m_loader;
    std::unique_ptr<PagePresenters> m_presenters;
    std::unique_ptr<ProfileStores> m_profileStores;
    std::unique_ptr<kit::web::SessionStores> m_sessionStores;
};

} // namespace desktop::pages
