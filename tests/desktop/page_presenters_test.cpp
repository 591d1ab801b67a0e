// SPDX-License-Identifier: MIT
// The app's side of the pages without the engine: session folders are listed and removed from
// disk, and a page whose module is missing still opens, in the browser.
#include "desktop/pages/page_presenters.h"

#include "desktop/pages/profile_stores.h"
#include "desktop/qt_main_queue.h"
#include "spin.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

namespace desktop::pages {
namespace {

using kit::support::Uuid;

class PagesWithoutEngine : public ::testing::Test
{
protected:
    PagesWithoutEngine()
        : loader(host(), {folder.file("missing") / kModuleFileName})
        , stores(loader,
                 queue,
                 {folder.file("profiles"), folder.file("cache")},
                 makeRuleListStore(folder.file("rules")))
    {}

    Host host()
    {
        Host made;
        made.mainQueue = &queue;
        made.openInBrowser = [this](const std::string& address) { opened.push_back(address); };
        return made;
    }

    void makeProfile(const std::string& name)
    {
        std::filesystem::create_directories(folder.file("profiles") / name / "Local Storage");
        std::ofstream(folder.file("profiles") / name / "Cookies") << "cookies";
        std::filesystem::create_directories(folder.file("cache") / name);
    }

    testing_support::TempDir folder;
    QtMainQueue queue;
    std::vector<std::string> opened;
    PagesLoader loader;
    ProfileStores stores;
};

TEST_F(PagesWithoutEngine, ListsOnlySessionFoldersAndRemovesBothOfAStore)
{
    const Uuid kept = Uuid::random();
    const Uuid gone = Uuid::random();
    makeProfile(kept.string());
    makeProfile(gone.string());
    makeProfile("Default");
    std::ofstream(folder.file("profiles") / Uuid::random().string()) << "a file, not a profile";

    std::optional<std::set<std::string>> listed;
    stores.fetchDataStoreIdentifiers([&](std::vector<Uuid> ids) {
        listed.emplace();
        for (const Uuid& id : ids) {
            listed->insert(id.string());
        }
    });
    ASSERT_TRUE(spinUntil([&] { return listed.has_value(); }));
    EXPECT_EQ(*listed, (std::set<std::string>{kept.string(), gone.string()}));

    std::optional<std::optional<std::string>> removed;
    stores.removeDataStore(gone, [&](std::optional<std::string> error) { removed = error; });
    ASSERT_TRUE(spinUntil([&] { return removed.has_value(); }));
    EXPECT_EQ(*removed, std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder.file("profiles") / gone.string()));
    EXPECT_FALSE(std::filesystem::exists(folder.file("cache") / gone.string()));
    EXPECT_TRUE(std::filesystem::exists(folder.file("profiles") / kept.string() / "Cookies"));
    EXPECT_TRUE(std::filesystem::exists(folder.file("profiles") / "Default"));
    // Nothing of it needed the engine.
    EXPECT_EQ(loader.loaded(), nullptr);
    EXPECT_TRUE(loader.error().empty());
}

TEST_F(PagesWithoutEngine, APageOpensInTheBrowserWhenTheModuleIsMissing)
{
    PagePresenters presenters({loader, nullptr, nullptr});
    kit::library::URLTarget target;
    target.url = "https://example.org/";
    const auto shortcut =
        kit::library::Shortcut::make("Example", kit::library::Target::url(target));

    // Asking whether a window holds the page must not load the engine.
    EXPECT_FALSE(presenters.bringToFront(shortcut.id));
    EXPECT_TRUE(loader.error().empty());

    // Getting ready ahead of a click tries the engine but never opens the browser: only the
    // click does.
    presenters.prepare(shortcut);
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(loader.error(), "The page module is missing from this installation.");

    presenters.showPanel(shortcut, {}, kit::opening::Anchor{7});
    presenters.showWindow(shortcut, {});
    EXPECT_EQ(opened, (std::vector<std::string>{"https://example.org/", "https://example.org/"}));
    EXPECT_EQ(loader.error(), "The page module is missing from this installation.");
    EXPECT_EQ(presenters.anchorFallback(shortcut.id), std::nullopt);
}

} // namespace
} // namespace desktop::pages
