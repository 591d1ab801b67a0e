// SPDX-License-Identifier: MIT
#include "kit/menubar/shortcut_menu.h"

#include "kit/library/fixtures.h"
#include "kit/menubar/fakes.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

using namespace kit::library;
using namespace kit::menubar;
using namespace kit::storage;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

// The row reached by following titles through submenus.
const MenuItem& rowAt(const std::vector<MenuItem>& rows, const std::vector<std::string>& path)
{
    const std::vector<MenuItem>* level = &rows;
    const MenuItem* found = nullptr;
    for (const auto& title : path) {
        found = nullptr;
        for (const auto& item : *level) {
            if (item.title == title && item.kind != MenuItem::Kind::Separator) {
                found = &item;
            }
        }
        if (!found) {
            throw std::out_of_range("no row " + title);
        }
        level = &found->items;
    }
    return *found;
}

std::vector<std::string> titlesOf(const std::vector<MenuItem>& rows)
{
    return titles(Menu{rows});
}

// The titles of the rows that carry a check mark, at one level.
std::vector<std::string> checked(const std::vector<MenuItem>& rows)
{
    std::vector<std::string> result;
    for (const auto& item : rows) {
        if (item.checked) {
            result.push_back(item.title);
        }
    }
    return result;
}

class ShortcutMenuTest : public ::testing::Test
{
protected:
    ShortcutMenuTest()
    {
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
        provider = ShortcutMenu::provider(
            *store,
            [this] { return defaults; },
            [this](const Shortcut& s) { opened.push_back(s.name); },
            [this](const ShortcutID& id) { edited.push_back(id); });
    }

    const Shortcut& add(Shortcut shortcut)
    {
        store->mutate([&](Library& l) { l.add(shortcut); });
        return *store->library().shortcut(shortcut.id);
    }

    // The rows as the menu would show them now.
    std::vector<MenuItem> rows(const ShortcutID& id)
    {
        return provider(*store->library().shortcut(id));
    }

    void choose(const ShortcutID& id, const std::vector<std::string>& path)
    {
        auto built = rows(id);
        const MenuItem& row = rowAt(built, path);
        ASSERT_TRUE(row.enabled && row.action) << path.back();
        row.action();
    }

    const URLTarget& url(const ShortcutID& id)
    {
        return *store->library().shortcut(id)->target.urlTarget();
    }

    TempDir dir;
    std::unique_ptr<LibraryStore> store;
    BrowsingDefaults defaults;
    std::vector<std::string> opened;
    std::vector<ShortcutID> edited;
    std::function<std::vector<MenuItem>(const Shortcut&)> provider;
};

TEST_F(ShortcutMenuTest, OffersTheRowsThatApplyToTheKind)
{
    const std::string kLast = "In the menu bar|---|Edit\u2026|Remove";
    const std::pair<Shortcut, std::string> kinds[] = {
        {webLink("Mail"),
         "Open|---|Opens|Browser|Account|Browser agent|Appearance|Zoom|---|Blocks ads|"
         "Stays on top|Reloads on open|Keeps playing|"
             + kLast},
        // A link into another app only ever opens in that app.
        {webLink("Chat", "chat://open?team=1"), "Open|---|" + kLast},
        {fileShortcut("Notes", "/home/a/notes.txt"), "Open|---|Opens in|" + kLast},
        {Shortcut::make("", Target::divider()), kLast},
    };
    for (const auto& [shortcut, titles] : kinds) {
        SCOPED_TRACE(titles);
        std::vector<std::string> expected;
        std::istringstream split(titles);
        for (std::string title; std::getline(split, title, '|');) {
            expected.push_back(title);
        }
        EXPECT_EQ(titlesOf(rows(add(shortcut).id)), expected);
    }
}

TEST_F(ShortcutMenuTest, OpenModeChecksTheOneInForceAndWritesThroughTheStore)
{
    const ShortcutID id = add(webLink("Mail")).id;
    auto modes = rowAt(rows(id), {"Opens"}).items;
    EXPECT_THAT(titlesOf(modes),
                ElementsAre("Follows the default (In a panel)",
                            "---",
                            "In a panel",
                            "In a window",
                            "In a browser"));
    EXPECT_THAT(checked(modes), ElementsAre("Follows the default (In a panel)"));

    choose(id, {"Opens", "In a window"});
    EXPECT_EQ(url(id).openMode, OpenMode::Window);
    EXPECT_THAT(checked(rowAt(rows(id), {"Opens"}).items), ElementsAre("In a window"));

    choose(id, {"Opens", "Follows the default (In a panel)"});
    EXPECT_EQ(url(id).openMode, std::nullopt);
}

TEST_F(ShortcutMenuTest, PageRowsAreGreyedWhileTheLinkOpensInABrowser)
{
    defaults.openMode = OpenMode::System;
    const ShortcutID id = add(webLink("Mail")).id;
    auto built = rows(id);
    for (const char* title : {"Account", "Zoom", "Keeps playing"}) {
        EXPECT_FALSE(rowAt(built, {title}).enabled) << title;
    }
    EXPECT_TRUE(rowAt(built, {"Browser"}).enabled);

    // Its own mode overrides the default.
    choose(id, {"Opens", "In a panel"});
    built = rows(id);
    EXPECT_TRUE(rowAt(built, {"Zoom"}).enabled);
    EXPECT_FALSE(rowAt(built, {"Browser"}).enabled);
}

TEST_F(ShortcutMenuTest, AccountsListTheSessionsAndKeepAGoneOneVisible)
{
    store->addSession("Work");
    auto home = *store->addSession("Home");
    const ShortcutID id = add(webLink("Mail")).id;

    auto accounts = rowAt(rows(id), {"Account"}).items;
    EXPECT_THAT(titlesOf(accounts), ElementsAre("Default", "Work", "Home"));
    EXPECT_THAT(checked(accounts), ElementsAre("Default"));

    choose(id, {"Account", "Home"});
    EXPECT_EQ(url(id).sessionID, home);

    store->mutate([&](Library& l) { l.apply(change::Account{SessionID::make()}, id); });
    accounts = rowAt(rows(id), {"Account"}).items;
    EXPECT_THAT(titlesOf(accounts), ElementsAre("Default", "Unknown account", "Work", "Home"));
    EXPECT_THAT(checked(accounts), ElementsAre("Unknown account"));
    EXPECT_FALSE(rowAt(accounts, {"Unknown account"}).enabled);

    // A private page has no account to choose.
    Shortcut bank = webLink("Bank");
    bank.target.urlTarget()->isPrivate = true;
    EXPECT_FALSE(rowAt(rows(add(bank).id), {"Account"}).enabled);
}

TEST_F(ShortcutMenuTest, BlockingAdsGoesBackToTheDefaultWhenItMatchesIt)
{
    const ShortcutID id = add(webLink("News")).id;
    EXPECT_TRUE(rowAt(rows(id), {"Blocks ads"}).checked);

    choose(id, {"Blocks ads"});
    EXPECT_EQ(url(id).blocksAds, false);
    EXPECT_FALSE(rowAt(rows(id), {"Blocks ads"}).checked);

    choose(id, {"Blocks ads"});
    EXPECT_EQ(url(id).blocksAds, std::nullopt);

    // Following a default that blocks nothing, turning it on is the link's own choice.
    defaults.blocksAds = false;
    EXPECT_FALSE(rowAt(rows(id), {"Blocks ads"}).checked);
    choose(id, {"Blocks ads"});
    EXPECT_EQ(url(id).blocksAds, true);
}

TEST_F(ShortcutMenuTest, EachToggleFlipsItsOwnFieldOnly)
{
    const ShortcutID id = add(webLink("Radio")).id;
    const std::pair<const char*, bool URLTarget::*> toggles[] = {
        {"Keeps playing", &URLTarget::keepsPlaying},
        {"Stays on top", &URLTarget::staysOnTop},
        {"Reloads on open", &URLTarget::reloadsOnOpen}};
    for (const auto& [title, field] : toggles) {
        SCOPED_TRACE(title);
        const URLTarget before = url(id);
        choose(id, {title});
        URLTarget expected = before;
        expected.*field = !(before.*field);
        EXPECT_EQ(url(id), expected);
        EXPECT_TRUE(rowAt(rows(id), {title}).checked);
    }
}

TEST_F(ShortcutMenuTest, FilesChooseTheAppTheyOpenIn)
{
    const Shortcut file = add(fileShortcut("Notes", "/home/a/notes.txt"));
    ShortcutMenuContext context;
    context.apps = {{"org.gnome.TextEditor", "Text Editor"}, {"vim", "Vim"}};
    ShortcutMenuActions actions;
    actions.mutate = [&](const std::function<void(Library&)>& change) { store->mutate(change); };

    auto opensIn = rowAt(ShortcutMenu::rows(file, context, actions), {"Opens in"}).items;
    EXPECT_THAT(titlesOf(opensIn), ElementsAre("The default app", "---", "Text Editor", "Vim"));
    rowAt(opensIn, {"Vim"}).action();
    const Shortcut& now = *store->library().shortcut(file.id);
    EXPECT_EQ(now.target.fileTarget()->openWith, "vim");

    // An app no longer offered still shows as the choice in force.
    context.apps.pop_back();
    opensIn = rowAt(ShortcutMenu::rows(now, context, actions), {"Opens in"}).items;
    EXPECT_THAT(checked(opensIn), ElementsAre("vim"));
}

TEST_F(ShortcutMenuTest, OpenEditAndRemoveActOnTheShortcut)
{
    const ShortcutID id = add(webLink("Mail")).id;
    choose(id, {"Open"});
    choose(id, {"Edit\u2026"});
    EXPECT_THAT(opened, ElementsAre("Mail"));
    EXPECT_THAT(edited, ElementsAre(id));

    auto built = rows(id);
    rowAt(built, {"Remove"}).action();
    EXPECT_EQ(store->library().shortcut(id), nullptr);
    // A row of a menu still open does nothing once its shortcut is gone.
    rowAt(built, {"Stays on top"}).action();
    EXPECT_TRUE(store->library().shortcuts.empty());
}

TEST_F(ShortcutMenuTest, RemovingAGroupWithShortcutsInItAsksFirst)
{
    std::vector<std::string> questions;
    bool answer = false;
    provider = ShortcutMenu::provider(*store, {}, {}, {}, [&](const std::string& question) {
        questions.push_back(question);
        return answer;
    });
    const ShortcutID full = add(group("Work",
                                      {webLink("Mail"),
                                       Shortcut::make("", Target::divider()),
                                       group("Inner", {webLink("Docs")})}))
                                .id;
    const ShortcutID one = add(group("One", {webLink("Mail")})).id;
    const ShortcutID empty = add(group("Empty", {})).id;

    choose(full, {"Remove"});
    EXPECT_NE(store->library().shortcut(full), nullptr);
    answer = true;
    choose(full, {"Remove"});
    EXPECT_EQ(store->library().shortcut(full), nullptr);
    choose(one, {"Remove"});
    choose(empty, {"Remove"});
    EXPECT_TRUE(store->library().shortcuts.empty());
    EXPECT_THAT(questions,
                ElementsAre("Remove \u201cWork\u201d and the 3 shortcuts in it?",
                            "Remove \u201cWork\u201d and the 3 shortcuts in it?",
                            "Remove \u201cOne\u201d and the shortcut in it?"));
}

TEST_F(ShortcutMenuTest, OnlyATopLevelShortcutCanLeaveTheMenuBar)
{
    Shortcut member = webLink("Inside");
    const ShortcutID groupID = add(group("Work", {member})).id;
    EXPECT_THROW(rowAt(rows(member.id), {"In the menu bar"}), std::out_of_range);

    EXPECT_TRUE(rowAt(rows(groupID), {"In the menu bar"}).checked);
    choose(groupID, {"In the menu bar"});
    EXPECT_FALSE(store->library().shortcut(groupID)->isInMenuBar);
}

TEST_F(ShortcutMenuTest, WithoutActionsEveryRowIsGreyed)
{
    const Shortcut link = add(webLink("Mail"));
    ShortcutMenuContext context;
    for (const auto& row : ShortcutMenu::rows(link, context, {})) {
        EXPECT_FALSE(row.enabled && row.kind == MenuItem::Kind::Action) << row.title;
    }
}

} // namespace
