// SPDX-License-Identifier: MIT
#pragma once

#include "kit/opening/bookmark_resolver.h"
#include "kit/opening/presenters.h"
#include "kit/opening/workspace_opening.h"
#include "support/manual_queue.h"

#include <map>
#include <set>

namespace testing_support {

using namespace kit::opening;
using kit::library::ResolvedBrowsing;
using kit::library::Shortcut;
using kit::library::ShortcutID;

class FakeWorkspace final : public WorkspaceOpening
{
public:
    struct OpenWith
    {
        std::vector<std::string> urls;
        std::string application;
        bool operator==(const OpenWith&) const = default;
    };

    std::map<std::string, std::string> installed; // bundle id -> location
    bool canOpen = true;
    OpenFailure why = OpenFailure::Other;
    std::vector<std::string> opened;
    std::vector<OpenWith> openedWith;
    std::vector<std::string> launched;
    std::vector<Completion> completions;

    OpenResult open(const std::string& url) override
    {
        opened.push_back(url);
        return canOpen ? OpenResult::opened() : OpenResult::failed(why);
    }
    void open(const std::vector<std::string>& urls,
              const std::string& application,
              Completion completion) override
    {
        openedWith.push_back({urls, application});
        completions.push_back(std::move(completion));
    }
    void openApplication(const std::string& application, Completion completion) override
    {
        launched.push_back(application);
        completions.push_back(std::move(completion));
    }
    std::optional<std::string> urlForApplication(const std::string& bundleID) override
    {
        const auto found = installed.find(bundleID);
        return found == installed.end() ? std::nullopt : std::optional(found->second);
    }
};

class FakeAppleShortcuts final : public AppleShortcutRunning
{
public:
    std::vector<std::string> names;
    std::vector<Done> pending;

    void run(const std::string& name, Done done) override
    {
        names.push_back(name);
        pending.push_back(std::move(done));
    }
};

// Resolves by display path from a table; counts the access it gives out.
class FakeBookmarks final : public BookmarkResolver
{
public:
    std::map<std::string, ResolvedBookmark> places; // display path -> where it leads
    bool canMake = true;
    std::set<std::string> accessing;
    int accessCount = 0;

    std::optional<ResolvedBookmark> resolve(const kit::library::Bookmark& bookmark) override
    {
        const auto found = places.find(bookmark.displayPath);
        return found == places.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<kit::library::Bookmark> make(const std::string& path) override
    {
        if (!canMake) {
            return std::nullopt;
        }
        return kit::library::Bookmark{{'n', 'e', 'w'}, path};
    }
    bool startAccessing(const std::string& path) override
    {
        ++accessCount;
        return accessing.insert(path).second;
    }
    void stopAccessing(const std::string& path) override { accessing.erase(path); }
};

class FakePanels final : public PagePresenter
{
public:
    std::map<ShortcutID, Anchor> icons;
    std::vector<std::pair<ShortcutID, Anchor>> shown;

    std::optional<Anchor> anchorFallback(const ShortcutID& shortcut) override
    {
        const auto found = icons.find(shortcut);
        return found == icons.end() ? std::nullopt : std::optional(found->second);
    }
    void showPanel(const Shortcut& shortcut, const ResolvedBrowsing&, Anchor anchor) override
    {
        shown.emplace_back(shortcut.id, anchor);
    }
};

class FakeWindows final : public WindowPresenter
{
public:
    std::set<ShortcutID> open;
    std::vector<ShortcutID> shown;
    std::vector<ShortcutID> broughtForward;
    std::vector<ResolvedBrowsing> settings;

    bool bringToFront(const ShortcutID& shortcut) override
    {
        if (!open.contains(shortcut)) {
            return false;
        }
        broughtForward.push_back(shortcut);
        return true;
    }
    void showWindow(const Shortcut& shortcut, const ResolvedBrowsing& resolved) override
    {
        shown.push_back(shortcut.id);
        settings.push_back(resolved);
        open.insert(shortcut.id);
    }
};

class FakeAlerts final : public AlertPresenter
{
public:
    std::vector<std::pair<std::string, std::string>> shown; // title, message

    void showAlert(const std::string& title, const std::string& message) override
    {
        shown.emplace_back(title, message);
    }
};

} // namespace testing_support
