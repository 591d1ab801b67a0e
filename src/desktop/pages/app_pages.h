// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/desktop_notices.h"
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
class NotificationSites;
class PageOptions;
} // namespace kit::web

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

    // The person's choices about pages; once connected.
    kit::web::PageOptions& options() { return *m_options; }
    // The sites each session answered about notifications; once connected.
    kit::web::NotificationSites& notificationSites() { return *m_notificationSites; }
    // The picture a shortcut's notifications carry; none leaves it to the service.
    std::function<QImage(const kit::library::Shortcut&)> noticeIcon;

    // Where the blocking rules are: the build tree's share folder or the installed one.
    static std::optional<std::filesystem::path> rulesRoot();

private:
    void connectNotifications(app::AppDependencies& dependencies);
    std::optional<kit::library::Shortcut> shortcut(const kit::library::ShortcutID& id) const;

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
    std::unique_ptr<kit::web::NotificationSites> m_notificationSites;
    // Made with the first notification, so an app whose pages never notify never asks the bus.
    std::unique_ptr<DesktopNotices> m_notices;
};

} // namespace desktop::pages
