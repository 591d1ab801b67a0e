// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"
#include "kit/opening/bookmark_resolver.h"
#include "kit/opening/presenters.h"
#include "kit/opening/workspace_opening.h"
#include "kit/storage/library_store.h"
#include "kit/support/main_queue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit::opening {

// Turns a shortcut's target into an action on the system: a page in a panel, a window or a
// browser, an application, a file or folder, a link into another application or an Apple Shortcut.
// Every failure ends in one sentence naming the shortcut, shown in an alert and kept as
// lastFailure. Main thread only; launches and runs complete later, their failures reported back
// on the main queue. Everything passed in must outlive it, and the bookmark resolver and queue
// must outlive opens still in flight; completions that arrive after it is gone do nothing.
class Opener
{
public:
    struct Outcome
    {
        enum class Kind {
            Missing, // what the shortcut names is not there
            Failed,  // it is there but the system refused it
            Opened,  // started; a launch or run may still fail later and report itself
            Skipped, // nothing to open (a group or a divider)
        };
        Kind kind = Kind::Opened;
        std::string message;

        static Outcome missing(std::string message) { return {Kind::Missing, std::move(message)}; }
        static Outcome failed(std::string message) { return {Kind::Failed, std::move(message)}; }
        static Outcome opened() { return {Kind::Opened, {}}; }
        static Outcome skipped() { return {Kind::Skipped, {}}; }
        bool isFailure() const { return kind == Kind::Missing || kind == Kind::Failed; }

        bool operator==(const Outcome&) const = default;
    };

    struct Services
    {
        storage::LibraryStore& store; // refreshed bookmarks are written through it
        std::function<library::BrowsingDefaults()> browsing; // none: the standard defaults
        WorkspaceOpening& workspace;
        AppleShortcutRunning& appleShortcuts;
        BookmarkResolver& bookmarks;
        AlertPresenter& alerts;
        support::MainQueue& mainQueue;
        PagePresenter* panels = nullptr;    // none: pages never open in panels
        WindowPresenter* windows = nullptr; // none: pages never open in windows
    };

    explicit Opener(Services services);
    ~Opener();
    Opener(const Opener&) = delete;
    Opener& operator=(const Opener&) = delete;

    // Opens the shortcut, from the icon it was clicked on if any; reports a failure.
    Outcome open(const library::Shortcut& shortcut, std::optional<Anchor> from = std::nullopt);

    // The parts of open, for callers that already know what to do; each reports its failure.
    Outcome openInBrowser(const std::string& address,
                          const std::optional<std::string>& browserBundleID,
                          const library::Shortcut& shortcut);
    Outcome openApp(const library::Shortcut& shortcut);
    Outcome openFile(const library::Shortcut& shortcut);

    // The last sentence reported or noticed; observers hear each time it is set.
    const std::optional<std::string>& lastFailure() const { return m_lastFailure; }
    size_t observeLastFailure(std::function<void()> observer);
    void removeObserver(size_t token);

    // Sets lastFailure, logs it and shows an alert titled with the shortcut's name.
    void report(const std::string& message, const std::string& shortcutName);

private:
    Outcome dispatch(const library::Shortcut& shortcut, std::optional<Anchor> from);
    Outcome openURL(const library::Shortcut& shortcut, std::optional<Anchor> from);
    Outcome browse(const std::string& address,
                   const std::optional<std::string>& browserBundleID,
                   const library::Shortcut& shortcut);
    Outcome launch(const library::Shortcut& shortcut);
    Outcome openFileTarget(const library::Shortcut& shortcut);
    Outcome runAppleShortcut(const std::string& name,
                             const std::string& address,
                             const library::Shortcut& shortcut);
    void appleShortcutFinished(const AppleShortcutRun& run,
                               const std::string& name,
                               const std::string& address,
                               const std::string& shortcutName);
    void refresh(const library::ShortcutID& shortcut, const ResolvedBookmark& resolved);
    // Reports an error a completion brings, on the main queue, then gives the hold back.
    WorkspaceOpening::Completion completion(std::string shortcutName,
                                            std::shared_ptr<BookmarkHold> hold);
    Outcome reported(Outcome outcome, const library::Shortcut& shortcut);
    // A failure that is not worth an alert because the item opened anyway.
    void notice(std::string message);
    void setLastFailure(std::string message);

    Services m_services;
    std::optional<std::string> m_lastFailure;
    std::vector<std::pair<size_t, std::function<void()>>> m_observers;
    size_t m_nextObserver = 1;
    // Held weakly by completions, which do nothing once the opener is gone.
    std::shared_ptr<Opener*> m_self;
};

} // namespace kit::opening
