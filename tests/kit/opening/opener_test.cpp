// SPDX-License-Identifier: MIT
#include "kit/opening/opener.h"

#include "fakes.h"
#include "kit/library/fixtures.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

namespace {

using namespace testing_support;
using kit::library::AppTarget;
using kit::library::Bookmark;
using kit::library::BrowsingDefaults;
using kit::library::FileTarget;
using kit::library::OpenMode;
using kit::library::Target;
using kit::library::URLTarget;
using kit::storage::LibraryStore;
using kit::storage::SupportDirectory;
using Outcome = Opener::Outcome;

constexpr const char* kGone =
    " cannot be found. It may have been deleted, or be on a disk that is not connected.";

class OpenerTest : public testing::Test
{
protected:
    TempDir m_dir;
    LibraryStore m_store{SupportDirectory{m_dir.path(), true},
                         LibraryStore::Options{std::chrono::milliseconds(60'000), nullptr}};
    BrowsingDefaults m_defaults = BrowsingDefaults::standard();
    // Before the workspace and the queue, whose pending completions hold access through it.
    FakeBookmarks m_bookmarks;
    FakeWorkspace m_workspace;
    FakeAppleShortcuts m_appleShortcuts;
    FakeAlerts m_alerts;
    ManualQueue m_queue;
    FakePanels m_panels;
    FakeWindows m_windows;
    std::unique_ptr<Opener> m_opener;

    void SetUp() override { make(&m_panels, &m_windows); }

    void make(PagePresenter* panels, WindowPresenter* windows)
    {
        m_opener = std::make_unique<Opener>(Opener::Services{m_store,
                                                             [this] { return m_defaults; },
                                                             m_workspace,
                                                             m_appleShortcuts,
                                                             m_bookmarks,
                                                             m_alerts,
                                                             m_queue,
                                                             panels,
                                                             windows});
    }

    // Added to the showing bar, so refreshed bookmarks have somewhere to go.
    Shortcut added(Shortcut shortcut)
    {
        m_store.mutate([&](kit::library::Library& library) { library.add(shortcut); });
        return shortcut;
    }

    static Shortcut link(const std::string& url,
                         std::optional<OpenMode> mode,
                         std::optional<std::string> browser = std::nullopt)
    {
        URLTarget target;
        target.url = url;
        target.openMode = mode;
        target.browserBundleID = std::move(browser);
        return Shortcut::make("Mail", Target::url(target));
    }

    static Shortcut app(const std::string& bundleID, std::optional<Bookmark> bookmark)
    {
        return Shortcut::make("Editor", Target::app(AppTarget{bundleID, std::move(bookmark)}));
    }

    static Shortcut file(const std::string& path, std::optional<std::string> openWith = {})
    {
        return Shortcut::make("Notes",
                              Target::file(FileTarget{Bookmark{{1}, path}, std::move(openWith)}));
    }

    const Shortcut* stored(const ShortcutID& id) const { return m_store.library().shortcut(id); }
};

// Page surfaces: panel, window, browser and the fallbacks between them.

// Where a page opens, by its mode, the presenters there are and where it was asked from.
struct SurfaceCase
{
    const char* name;
    std::optional<OpenMode> mode;
    const char* presenters; // "both", "windows" or "none"
    std::uint64_t clicked;  // the icon it was opened from; 0: from the keyboard
    std::uint64_t icon;     // the page's own icon; 0: none
    bool inAWindow;         // the page is already showing in a window
    const char* expected;   // "panel N", "window", "forward" or "browser"
};

class OpenerSurface : public OpenerTest, public testing::WithParamInterface<SurfaceCase>
{};

TEST_P(OpenerSurface, is_chosen_with_its_fallbacks)
{
    const auto& c = GetParam();
    const std::string presenters = c.presenters;
    make(presenters == "both" ? &m_panels : nullptr, presenters != "none" ? &m_windows : nullptr);
    const auto page = link("https://mail.example.com/", c.mode);
    if (c.icon != 0) {
        m_panels.icons[page.id] = Anchor{c.icon};
    }
    if (c.inAWindow) {
        m_windows.open.insert(page.id);
    }
    EXPECT_EQ(c.clicked != 0 ? m_opener->open(page, Anchor{c.clicked}) : m_opener->open(page),
              Outcome::opened());
    std::vector<std::string> where;
    for (const auto& [id, anchor] : m_panels.shown) {
        where.push_back("panel " + std::to_string(anchor.value));
    }
    where.insert(where.end(), m_windows.shown.size(), "window");
    where.insert(where.end(), m_windows.broughtForward.size(), "forward");
    where.insert(where.end(), m_workspace.opened.size(), "browser");
    EXPECT_EQ(where, std::vector<std::string>{c.expected});
}

constexpr auto kPanel = OpenMode::Popover;
constexpr auto kWindow = OpenMode::Window;
const std::vector<SurfaceCase> kSurfaces{
    {"panel_under_the_clicked_icon", kPanel, "both", 4, 9, false, "panel 4"},
    {"keyboard_panel_under_its_own_icon", std::nullopt, "both", 0, 7, false, "panel 7"},
    {"panel_without_any_icon_in_a_window", kPanel, "both", 0, 0, false, "window"},
    {"panel_already_in_a_window_brings_it_forward", kPanel, "both", 4, 0, true, "forward"},
    {"panel_without_a_panel_presenter_in_a_window", kPanel, "windows", 4, 0, false, "window"},
    {"panel_without_presenters_in_the_browser", kPanel, "none", 1, 0, false, "browser"},
    {"window_ignores_the_anchor", kWindow, "both", 4, 0, false, "window"},
};

INSTANTIATE_TEST_SUITE_P(Table, OpenerSurface, testing::ValuesIn(kSurfaces), [](const auto& info) {
    return std::string(info.param.name);
});

TEST_F(OpenerTest, the_page_gets_its_settings_resolved_against_the_current_defaults)
{
    m_defaults.openMode = OpenMode::Window;
    m_defaults.blocksAds = false;
    const auto page = link("https://mail.example.com/", std::nullopt);
    m_opener->open(page);
    ASSERT_EQ(m_windows.settings.size(), 1u);
    EXPECT_FALSE(m_windows.settings[0].blocksAds);

    m_defaults.openMode = OpenMode::System;
    m_opener->open(page);
    EXPECT_EQ(m_workspace.opened, std::vector<std::string>{"https://mail.example.com/"});
    // The target's own mode wins over the defaults; a shortcut link there is just a page.
    m_opener->open(link("shortcuts://run-shortcut?name=X", OpenMode::Window));
    EXPECT_EQ(m_windows.shown.size(), 2u);
    EXPECT_TRUE(m_appleShortcuts.names.empty());
}

// Browsers.

// What is gone opens with the default and leaves a notice, without an alert.
TEST_F(OpenerTest, a_chosen_browser_or_app_that_is_gone_leaves_a_notice)
{
    m_bookmarks.places["/home/me/notes.txt"] = {"/home/me/notes.txt", false};
    EXPECT_EQ(m_opener->open(link("https://a.example/", OpenMode::System, "gone-browser")),
              Outcome::opened());
    EXPECT_EQ(m_opener->lastFailure(),
              "The browser chosen for Mail is not installed any more; opened with your default "
              "instead.");
    EXPECT_EQ(m_opener->open(file("/home/me/notes.txt", "org.gone.App")), Outcome::opened());
    EXPECT_EQ(m_opener->lastFailure(),
              "The app chosen for Notes is not installed any more; opened with the default "
              "instead.");
    EXPECT_EQ(m_workspace.opened,
              (std::vector<std::string>{"https://a.example/", "file:///home/me/notes.txt"}));
    EXPECT_TRUE(m_alerts.shown.empty());
}

// What cannot be reached at all is missing: said in an alert, and each report replaces the last.
TEST_F(OpenerTest, what_cannot_be_reached_is_missing_and_reported)
{
    m_workspace.canOpen = false;
    const std::pair<Shortcut, std::string> rows[] = {
        {link("zoommtg://join?id=1", OpenMode::System),
         "Nothing on this computer can open zoommtg://join?id=1."},
        {app("org.example.Editor", std::nullopt), "Editor is not installed any more."},
        {app("org.example.Editor", Bookmark{{1}, "/gone"}), "Editor is not installed any more."},
        {file("/media/usb/notes.txt"), std::string("Notes") + kGone},
    };
    for (const auto& [shortcut, sentence] : rows) {
        SCOPED_TRACE(sentence);
        EXPECT_EQ(m_opener->open(shortcut), Outcome::missing(sentence));
        EXPECT_EQ(m_opener->lastFailure(), sentence);
        ASSERT_FALSE(m_alerts.shown.empty());
        EXPECT_EQ(m_alerts.shown.back(), (std::pair(shortcut.name, sentence)));
    }
    EXPECT_EQ(m_alerts.shown.size(), std::size(rows));
    EXPECT_TRUE(m_workspace.launched.empty());
}

// Apple Shortcuts.

// Only "unavailable" comes back on this platform; the other results have no runner to give them.
TEST_F(OpenerTest, an_unavailable_shortcut_run_hands_the_address_over_on_the_main_queue)
{
    const std::string address = "shortcuts://run-shortcut?name=Clean%20this%20Mac";
    m_opener->open(link(address, OpenMode::System));
    EXPECT_EQ(m_appleShortcuts.names, std::vector<std::string>{"Clean this Mac"});
    ASSERT_EQ(m_appleShortcuts.pending.size(), 1u);
    std::thread([&] {
        m_appleShortcuts.pending[0]({AppleShortcutRun::Kind::Unavailable, {}});
    }).join();
    EXPECT_TRUE(m_workspace.opened.empty()); // nothing before the main queue runs

    m_queue.runAll();
    EXPECT_EQ(m_workspace.opened, std::vector<std::string>{address});
    EXPECT_EQ(m_opener->lastFailure(), std::nullopt);
    EXPECT_TRUE(m_alerts.shown.empty());
}

// Applications.

TEST_F(OpenerTest, an_app_launches_where_it_is_installed_else_from_its_bookmark)
{
    m_workspace.installed["org.example.Viewer"] = "/apps/viewer.desktop";
    EXPECT_EQ(m_opener->open(app("org.example.Viewer", std::nullopt)), Outcome::opened());
    m_bookmarks.places["/opt/Editor.AppImage"] = {"/opt/Editor.AppImage", false};
    const auto shortcut = added(app("org.example.Editor", Bookmark{{1}, "/opt/Editor.AppImage"}));
    EXPECT_EQ(m_opener->open(shortcut), Outcome::opened());
    EXPECT_EQ(m_workspace.launched,
              (std::vector<std::string>{"/apps/viewer.desktop", "/opt/Editor.AppImage"}));
    // Access is held until the launch completes.
    EXPECT_TRUE(m_bookmarks.accessing.contains("/opt/Editor.AppImage"));
    m_workspace.completions[1](std::nullopt);
    m_queue.runAll();
    EXPECT_TRUE(m_bookmarks.accessing.empty());
    EXPECT_EQ(stored(shortcut.id)->target, shortcut.target); // not stale: left alone
}

TEST_F(OpenerTest, a_launch_that_fails_later_is_reported_on_the_main_queue)
{
    m_workspace.installed["org.example.Editor"] = "/apps/editor.desktop";
    m_opener->open(app("org.example.Editor", std::nullopt));
    const std::string error = "Editor could not be started: the program is missing.";
    std::thread([&] { m_workspace.completions[0](error); }).join();
    EXPECT_TRUE(m_alerts.shown.empty());
    m_queue.runAll();
    EXPECT_EQ(m_opener->lastFailure(), error);
    EXPECT_THAT(m_alerts.shown,
                testing::ElementsAre(std::pair<std::string, std::string>("Editor", error)));
}

TEST_F(OpenerTest, a_completion_after_the_opener_is_gone_does_nothing)
{
    m_bookmarks.places["/opt/Editor.AppImage"] = {"/opt/Editor.AppImage", false};
    m_opener->open(app("x", Bookmark{{1}, "/opt/Editor.AppImage"}));
    m_opener.reset();
    m_workspace.completions[0]("failed");
    m_queue.runAll();
    EXPECT_TRUE(m_alerts.shown.empty());
    EXPECT_TRUE(m_bookmarks.accessing.empty()); // the hold still ends
}

// Files and folders.

TEST_F(OpenerTest, a_file_opens_with_the_default_app_under_held_access)
{
    m_bookmarks.places["/home/me/notes a.txt"] = {"/home/me/notes a.txt", false};
    EXPECT_EQ(m_opener->open(file("/home/me/notes a.txt")), Outcome::opened());
    EXPECT_EQ(m_workspace.opened, std::vector<std::string>{"file:///home/me/notes%20a.txt"});
    EXPECT_EQ(m_bookmarks.accessCount, 1);
    EXPECT_TRUE(m_bookmarks.accessing.empty()); // given back once the open returned

    m_bookmarks.places["/home/me/Projects"] = {"/home/me/Projects", false};
    EXPECT_EQ(m_opener->open(Shortcut::make(
                  "Projects", Target::folder(FileTarget{Bookmark{{1}, "/home/me/Projects"}, {}}))),
              Outcome::opened());
    EXPECT_EQ(m_workspace.opened.back(), "file:///home/me/Projects");
}

TEST_F(OpenerTest, a_file_that_does_not_open_fails_saying_why_after_the_first_sentence)
{
    const std::pair<OpenFailure, std::string> rows[] = {
        {OpenFailure::NoApp, " No app on this computer is set up to open this kind of file."},
        {OpenFailure::AppNotInstalled, " The app that opens it is not installed any more."},
        {OpenFailure::Missing, " It was moved or deleted, or is on a disk that is not connected."},
        {OpenFailure::Permission, " You do not have permission to open it."},
        {OpenFailure::Other, ""},
    };
    m_bookmarks.places["/home/me/notes.txt"] = {"/home/me/notes.txt", false};
    m_workspace.canOpen = false;
    for (const auto& [why, reason] : rows) {
        const std::string sentences = "\u201CNotes\u201D could not be opened." + reason;
        m_workspace.why = why;
        EXPECT_EQ(m_opener->open(file("/home/me/notes.txt")), Outcome::failed(sentences));
        EXPECT_EQ(m_opener->lastFailure(), sentences);
    }
}

TEST_F(OpenerTest, a_chosen_browser_or_app_opens_it_and_a_file_holds_access_until_done)
{
    m_workspace.installed["firefox"] = "/apps/firefox.desktop";
    EXPECT_EQ(m_opener->open(link("https://a.example/", OpenMode::System, "firefox")),
              Outcome::opened());
    m_bookmarks.places["/home/me/notes.txt"] = {"/home/me/notes.txt", false};
    m_workspace.installed["org.gnome.TextEditor"] = "/apps/te.desktop";
    EXPECT_EQ(m_opener->open(file("/home/me/notes.txt", "org.gnome.TextEditor")),
              Outcome::opened());
    EXPECT_EQ(m_workspace.openedWith,
              (std::vector<FakeWorkspace::OpenWith>{
                  {{"https://a.example/"}, "/apps/firefox.desktop"},
                  {{"file:///home/me/notes.txt"}, "/apps/te.desktop"}}));
    EXPECT_TRUE(m_workspace.opened.empty());
    EXPECT_TRUE(m_bookmarks.accessing.contains("/home/me/notes.txt"));
    for (auto& completion : m_workspace.completions) {
        completion(std::nullopt);
    }
    m_queue.runAll();
    EXPECT_TRUE(m_bookmarks.accessing.empty());
    EXPECT_EQ(m_opener->lastFailure(), std::nullopt);
}

TEST_F(OpenerTest, a_stale_bookmark_is_refreshed_in_the_library)
{
    m_bookmarks.places["/home/me/old.txt"] = {"/home/me/new.txt", true};
    m_bookmarks.places["/opt/Old.AppImage"] = {"/opt/New.AppImage", true};
    const auto notes = added(file("/home/me/old.txt"));
    const auto editor = added(app("", Bookmark{{1}, "/opt/Old.AppImage"}));
    m_opener->open(notes);
    m_opener->open(editor);
    EXPECT_EQ(m_workspace.opened, std::vector<std::string>{"file:///home/me/new.txt"});
    EXPECT_EQ(m_workspace.launched, std::vector<std::string>{"/opt/New.AppImage"});
    EXPECT_EQ(stored(notes.id)->target.fileTarget()->bookmark,
              (Bookmark{{'n', 'e', 'w'}, "/home/me/new.txt"}));
    EXPECT_EQ(stored(editor.id)->target.appTarget()->bookmark,
              (Bookmark{{'n', 'e', 'w'}, "/opt/New.AppImage"}));

    // One that cannot be made again still opens, and the old one stays.
    m_bookmarks.places["/home/me/older.txt"] = {"/home/me/new.txt", true};
    m_bookmarks.canMake = false;
    const auto older = added(file("/home/me/older.txt"));
    EXPECT_EQ(m_opener->open(older), Outcome::opened());
    EXPECT_EQ(stored(older.id)->target, older.target);
}

// Nothing to open.

TEST_F(OpenerTest, groups_and_dividers_are_skipped_without_a_report)
{
    EXPECT_EQ(m_opener->open(group("Work", {webLink("Docs")})), Outcome::skipped());
    EXPECT_EQ(m_opener->open(Shortcut::make("", Target::divider())), Outcome::skipped());
    EXPECT_EQ(m_opener->lastFailure(), std::nullopt);
    EXPECT_TRUE(m_alerts.shown.empty());
    EXPECT_TRUE(m_panels.shown.empty());
    EXPECT_TRUE(m_windows.shown.empty());
}

} // namespace
