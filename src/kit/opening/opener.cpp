// SPDX-License-Identifier: MIT
#include "kit/opening/opener.h"

#include "kit/support/log.h"
#include "kit/support/platform_words.h"

#include <algorithm>

namespace kit::opening {

using library::Shortcut;
using library::Target;

namespace {

constexpr support::Logger kLog("opening");

std::string nothingCanOpen(const std::string& address)
{
    // Only the fixed words are translated: an address may well contain "Mac".
    return support::inPlatformWords("Nothing on this Mac can open ") + address + ".";
}

} // namespace

Opener::Opener(Services services)
    : m_services(std::move(services))
    , m_self(std::make_shared<Opener*>(this))
{}

Opener::~Opener()
{
    *m_self = nullptr;
}

Opener::Outcome Opener::open(const Shortcut& shortcut, std::optional<Anchor> from)
{
    return reported(dispatch(shortcut, from), shortcut);
}

Opener::Outcome Opener::openInBrowser(const std::string& address,
                                      const std::optional<std::string>& browserBundleID,
                                      const Shortcut& shortcut)
{
    return reported(browse(address, browserBundleID, shortcut), shortcut);
}

Opener::Outcome Opener::openApp(const Shortcut& shortcut)
{
    return reported(launch(shortcut), shortcut);
}

Opener::Outcome Opener::openFile(const Shortcut& shortcut)
{
    return reported(openFileTarget(shortcut), shortcut);
}

Opener::Outcome Opener::dispatch(const Shortcut& shortcut, std::optional<Anchor> from)
{
    switch (shortcut.target.kind()) {
    case Target::Kind::App:
        return launch(shortcut);
    case Target::Kind::File:
    case Target::Kind::Folder:
        return openFileTarget(shortcut);
    case Target::Kind::Url:
        return openURL(shortcut, from);
    case Target::Kind::Group:
    case Target::Kind::Divider:
        break;
    }
    return Outcome::skipped();
}

Opener::Outcome Opener::openURL(const Shortcut& shortcut, std::optional<Anchor> from)
{
    const auto& target = *shortcut.target.urlTarget();
    const auto settings = library::ResolvedBrowsing::resolve(
        target,
        m_services.browsing ? m_services.browsing() : library::BrowsingDefaults::standard());
    PagePresenter* panels = m_services.panels;
    WindowPresenter* windows = m_services.windows;

    switch (settings.openMode) {
    case library::OpenMode::System:
        if (auto name = AppleShortcutLink::name(target.url)) {
            return runAppleShortcut(*name, target.url, shortcut);
        }
        break;
    case library::OpenMode::Popover:
        // A page already moved into a window stays there rather than opening a second copy.
        if (windows && windows->bringToFront(shortcut.id)) {
            return Outcome::opened();
        }
        if (panels) {
            if (auto anchor = from ? from : panels->anchorFallback(shortcut.id)) {
                panels->showPanel(shortcut, settings, *anchor);
                return Outcome::opened();
            }
        }
        [[fallthrough]];
    case library::OpenMode::Window:
        if (windows) {
            windows->showWindow(shortcut, settings);
            return Outcome::opened();
        }
        break;
    }
    return browse(target.url, settings.browserBundleID, shortcut);
}

Opener::Outcome Opener::browse(const std::string& address,
                               const std::optional<std::string>& browserBundleID,
                               const Shortcut& shortcut)
{
    if (browserBundleID) {
        if (auto browser = m_services.workspace.urlForApplication(*browserBundleID)) {
            m_services.workspace.open({address}, *browser, completion(shortcut.name, nullptr));
            return Outcome::opened();
        }
        notice("The browser chosen for " + shortcut.name
               + " is not installed any more; opened with your default instead.");
    }
    if (!m_services.workspace.open(address)) {
        return Outcome::missing(nothingCanOpen(address));
    }
    return Outcome::opened();
}

Opener::Outcome Opener::launch(const Shortcut& shortcut)
{
    const auto* app = shortcut.target.appTarget();
    if (!app) {
        return Outcome::skipped();
    }
    if (!app->bundleID.empty()) {
        if (auto location = m_services.workspace.urlForApplication(app->bundleID)) {
            m_services.workspace.openApplication(*location, completion(shortcut.name, nullptr));
            return Outcome::opened();
        }
    }
    if (app->bookmark) {
        if (auto resolved = m_services.bookmarks.resolve(*app->bookmark)) {
            if (resolved->isStale) {
                refresh(shortcut.id, *resolved);
            }
            auto hold = std::make_shared<BookmarkHold>(m_services.bookmarks, resolved->path);
            m_services.workspace.openApplication(resolved->path,
                                                 completion(shortcut.name, std::move(hold)));
            return Outcome::opened();
        }
    }
    return Outcome::missing(shortcut.name + " is not installed any more.");
}

Opener::Outcome Opener::openFileTarget(const Shortcut& shortcut)
{
    const auto* file = shortcut.target.fileTarget();
    if (!file) {
        return Outcome::skipped();
    }
    const auto resolved = m_services.bookmarks.resolve(file->bookmark);
    if (!resolved) {
        return Outcome::missing(
            shortcut.name
            + " cannot be found. It may have been deleted, or be on a disk that is not connected.");
    }
    if (resolved->isStale) {
        refresh(shortcut.id, *resolved);
    }
    const std::string url = fileURL(resolved->path);
    if (file->openWith) {
        if (auto app = m_services.workspace.urlForApplication(*file->openWith)) {
            auto hold = std::make_shared<BookmarkHold>(m_services.bookmarks, resolved->path);
            m_services.workspace.open({url}, *app, completion(shortcut.name, std::move(hold)));
            return Outcome::opened();
        }
        notice("The app chosen for " + shortcut.name
               + " is not installed any more; opened with the default instead.");
    }
    OpenResult opened;
    {
        BookmarkHold hold(m_services.bookmarks, resolved->path);
        opened = m_services.workspace.open(url);
    }
    if (!opened) {
        return Outcome::failed(couldNotOpen(shortcut.name, *opened.failure));
    }
    return Outcome::opened();
}

Opener::Outcome Opener::runAppleShortcut(const std::string& name,
                                         const std::string& address,
                                         const Shortcut& shortcut)
{
    std::weak_ptr<Opener*> weak = m_self;
    support::MainQueue& queue = m_services.mainQueue;
    m_services.appleShortcuts.run(
        name, [weak, &queue, name, address, shortcutName = shortcut.name](AppleShortcutRun run) {
            queue.post([weak, run = std::move(run), name, address, shortcutName] {
                if (auto self = weak.lock(); self && *self) {
                    (*self)->appleShortcutFinished(run, name, address, shortcutName);
                }
            });
        });
    return Outcome::opened();
}

void Opener::appleShortcutFinished(const AppleShortcutRun& run,
                                   const std::string& name,
                                   const std::string& address,
                                   const std::string& shortcutName)
{
    switch (run.kind) {
    case AppleShortcutRun::Kind::Ran:
    case AppleShortcutRun::Kind::Cancelled:
        return;
    case AppleShortcutRun::Kind::Unavailable:
        // The system may still have something that runs Shortcuts by their address.
        if (!m_services.workspace.open(address)) {
            report(nothingCanOpen(address), shortcutName);
        }
        return;
    case AppleShortcutRun::Kind::NotFound:
        report("There is no Shortcut called " + name + support::inPlatformWords(" on this Mac."),
               shortcutName);
        return;
    case AppleShortcutRun::Kind::Failed:
        report(run.message, shortcutName);
        return;
    }
}

void Opener::refresh(const library::ShortcutID& shortcut, const ResolvedBookmark& resolved)
{
    // Without a new bookmark the old one keeps working, only more slowly.
    auto bookmark = m_services.bookmarks.make(resolved.path);
    if (!bookmark) {
        return;
    }
    m_services.store.mutate(
        [&](library::Library& library) { library.refreshBookmark(shortcut, *bookmark); });
}

WorkspaceOpening::Completion Opener::completion(std::string shortcutName,
                                                std::shared_ptr<BookmarkHold> hold)
{
    std::weak_ptr<Opener*> weak = m_self;
    support::MainQueue& queue = m_services.mainQueue;
    return [weak, &queue, shortcutName = std::move(shortcutName), hold = std::move(hold)](
               std::optional<std::string> error) mutable {
        // The hold ends on the main thread, after the report, whichever thread this runs on.
        queue.post([weak, shortcutName, error = std::move(error), hold = std::move(hold)] {
            if (!error) {
                return;
            }
            if (auto self = weak.lock(); self && *self) {
                (*self)->report(*error, shortcutName);
            }
        });
    };
}

Opener::Outcome Opener::reported(Outcome outcome, const Shortcut& shortcut)
{
    if (outcome.isFailure()) {
        report(outcome.message, shortcut.name);
    }
    return outcome;
}

void Opener::report(const std::string& message, const std::string& shortcutName)
{
    setLastFailure(message);
    kLog.error("open " + shortcutName + ": " + message);
    m_services.alerts.showAlert(shortcutName, message);
}

void Opener::notice(std::string message)
{
    kLog.info(message);
    setLastFailure(std::move(message));
}

void Opener::setLastFailure(std::string message)
{
    m_lastFailure = std::move(message);
    const auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer();
    }
}

size_t Opener::observeLastFailure(std::function<void()> observer)
{
    const size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void Opener::removeObserver(size_t token)
{
    std::erase_if(m_observers, [token](const auto& entry) { return entry.first == token; });
}

} // namespace kit::opening
