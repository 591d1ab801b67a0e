// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/start_marks.h"
#include "kit/library/shortcut.h"
#include "kit/menubar/page_counts.h"
#include "kit/menubar/playing_pages.h"
#include "kit/settings/app_settings.h"
#include "kit/support/main_queue.h"
#include "kit/support/uuid.h"
#include "kit/web/page_notifications.h"
#include "kit/web/web_engine.h"

#include <QRect>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

class QIcon;
class QWidget;

namespace desktop::pages {

// What the pages module needs from the application. Every callback runs on the main thread;
// the pointed-to services outlive the module.
struct Host
{
    kit::support::MainQueue* mainQueue = nullptr;
    // Shortcuts whose closed panel still plays.
    kit::menubar::PlayingPages* playing = nullptr;
    // The counts pages show, for their icons; null shows none.
    kit::menubar::PageCounts* counts = nullptr;
    // Whether the shortcut's count is shown; read at each change of the count.
    std::function<bool(const kit::library::ShortcutID&)> showsCount;
    // Compiled blocking rules; null leaves pages unblocked.
    kit::web::ContentRuleListStore* ruleLists = nullptr;
    // The folder holding AdBlock/adblock-rules.json.
    std::filesystem::path rulesRoot;
    // One folder per session profile, named by the session's UUID.
    std::filesystem::path storageRoot;
    std::filesystem::path cacheRoot;

    std::function<bool()> asksWhereToSaveDownloads;
    std::function<void(const std::string& address)> openInBrowser;
    std::function<void(const kit::library::ShortcutID&, const kit::library::ContentSize&)>
        savePopoverSize;
    std::function<void(const kit::library::ShortcutID&, const kit::library::ContentSize&)>
        saveWindowSize;
    std::function<void(const kit::library::ShortcutID&, const std::string& address)>
        saveLastVisited;
    // A zoom the person chose with the keys, kept for the next opening.
    std::function<void(const kit::library::ShortcutID&, double zoom)> saveZoom;
    // When the latest page was asked for.
    std::chrono::steady_clock::time_point askedAt;
    // The icon a shortcut's page reported, with the page's address; never for private pages.
    std::function<void(const std::string& address, const QIcon& icon)> pageIcon;
    // Each finished load of a shortcut's page, for whoever measures or waits.
    std::function<void(const kit::library::ShortcutID&, bool ok)> loaded;
    // After how long a hidden panel's page is discarded; nothing keeps it. Read at each hiding.
    std::function<std::optional<std::chrono::minutes>()> discardAfter;
    // What a site asking to notify from the shortcut's page gets; none refuses every site.
    // Private pages never notify.
    std::function<kit::web::PermissionStep(const kit::library::ShortcutID&,
                                           const std::string& site)>
        notificationStep;
    // The person's answer when a site was asked about.
    std::function<void(const kit::library::ShortcutID&, const std::string& site, bool allowed)>
        notificationAnswered;
    // A notification a site of the shortcut's page sent.
    std::function<void(const kit::library::ShortcutID&,
                       const std::string& site,
                       const std::string& title,
                       const std::string& body)>
        notify;
    // The app's appearance, which the frames round pages (header, edge) take on at each showing;
    // none follows the system.
    std::function<kit::settings::AppAppearance()> appearance;
    // How long a minute lasts to resting pages; a benchmark shortens it.
    std::chrono::milliseconds restMinute = std::chrono::minutes(1);
    // Where a cold first page's time goes; null marks nothing.
    std::shared_ptr<StartMarks> startMarks;
};

// The in-app pages, in a module loaded on the first page so the idle app never maps the web
// engine. Main thread only; destroying it closes every page before its profile.
class Pages
{
public:
    virtual ~Pages() = default;

    // `icon` is the icon's screen rectangle; an empty one places the panel under the pointer.
    virtual void showPanel(const kit::library::Shortcut& shortcut,
                           const kit::library::ResolvedBrowsing& settings,
                           QRect icon) = 0;
    virtual void showWindow(const kit::library::Shortcut& shortcut,
                            const kit::library::ResolvedBrowsing& settings) = 0;
    virtual bool bringToFront(const kit::library::ShortcutID& shortcut) = 0;
    // Gets the engine ready for the shortcut's page without loading the page: the engine started
    // and the shortcut's profile made.
    virtual void prepare(const kit::library::Shortcut& shortcut) = 0;
    // The panel or window holding the shortcut's page, while there is one.
    virtual QWidget* panel(const kit::library::ShortcutID& shortcut) const = 0;
    virtual QWidget* window(const kit::library::ShortcutID& shortcut) const = 0;

    // No session means the shared default profile.
    virtual void siteCount(const std::optional<kit::support::Uuid>& session,
                           std::function<void(int)> done) = 0;
    virtual void removeAllData(const std::optional<kit::support::Uuid>& session,
                               std::function<void()> done) = 0;
    // Closes the session's pages and drops its profile, so its folders can go.
    virtual void releaseSession(const kit::support::Uuid& session) = 0;
};

// The module's one exported entry: `Pages* vantorel_make_pages(const Host*)`.
using MakePages = Pages* (*)(const Host*);
inline constexpr const char* kMakePagesSymbol = "vantorel_make_pages";
inline constexpr const char* kModuleFileName = "vantorel-pages.so";

} // namespace desktop::pages
