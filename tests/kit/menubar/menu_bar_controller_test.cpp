// SPDX-License-Identifier: MIT
#include "kit/menubar/menu_bar_controller.h"

#include "kit/library/fixtures.h"
#include "kit/menubar/fakes.h"
#include "kit/menubar/tray_host.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace kit::library;
using namespace kit::menubar;
using namespace kit::storage;
using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

Shortcut divider()
{
    return Shortcut::make("", Target::divider());
}

std::vector<std::string> idsOf(const std::vector<Shortcut>& list)
{
    std::vector<std::string> ids;
    for (const auto& s : list) {
        ids.push_back(s.id.string());
    }
    return ids;
}

class MenuBarTest : public ::testing::Test
{
protected:
    explicit MenuBarTest(TrayHostKind host = TrayHostKind::XEmbed)
        : bar(trayHost(host))
    {
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
    }

    void start(const std::vector<Shortcut>& shortcuts)
    {
        store->mutate([&](Library& l) {
            for (const auto& s : shortcuts) {
                l.add(s);
            }
        });
        controller = std::make_unique<MenuBarController>(
            *store,
            bar,
            icons,
            queue,
            [this](const Shortcut& s, std::optional<StatusItemHandle> at) {
                opened.push_back({s.name, at});
            });
        controller->setMenuRows([](const Shortcut& s) {
            return std::vector<MenuItem>{MenuItem::heading(s.name),
                                         MenuItem::command("Edit", [] {})};
        });
        controller->observe();
        queue.runAll();
    }

    void change(const std::function<void(Library&)>& edit)
    {
        store->mutate(edit);
        queue.runAll();
    }

    FakeStatusBar::Item& icon(const Shortcut& s) { return bar.item(s.id.string()); }

    struct Opened
    {
        std::string name;
        std::optional<StatusItemHandle> anchor;
    };

    TempDir dir;
    FakeStatusBar bar;
    ManualQueue queue;
    StandardIconRenderer icons;
    std::unique_ptr<LibraryStore> store;
    std::vector<Opened> opened;
    std::unique_ptr<MenuBarController> controller;
};

// The order of the row is checked against the three ways hosts place icons: newest leftmost,
// newest rightmost, sorted by name.
class MenuBarHostTest : public ::testing::WithParamInterface<TrayHostKind>, public MenuBarTest
{
protected:
    MenuBarHostTest()
        : MenuBarTest(GetParam())
    {}
};

INSTANTIATE_TEST_SUITE_P(
    Hosts,
    MenuBarHostTest,
    ::testing::Values(TrayHostKind::XEmbed, TrayHostKind::Waybar, TrayHostKind::KdePlasma),
    [](const auto& info) {
        return std::string(std::array{"NewestLeft", "NewestRight", "ByName"}[info.index]);
    });

} // namespace

TEST_P(MenuBarHostTest, MovingOrHidingRebuildsTheRowWhileRenamingRedrawsOnlyThatIcon)
{
    auto a = webLink("A");
    auto b = webLink("B");
    auto c = webLink("C");
    start({a, b, c});
    ASSERT_EQ(bar.created, 3);

    change([&](Library& l) {
        auto renamed = *l.shortcut(b.id);
        renamed.name = "Bee";
        l.update(renamed);
    });
    EXPECT_EQ(bar.created, 3);
    EXPECT_EQ(icon(a).draws, 1);
    EXPECT_EQ(icon(b).draws, 2);
    EXPECT_EQ(icon(b).toolTip, "Bee");
    EXPECT_EQ(icon(c).draws, 1);

    change([&](Library& l) { l.moveShortcuts({0}, 2); });
    EXPECT_THAT(bar.row(), ElementsAreArray(idsOf({b, a, c})));
    EXPECT_EQ(bar.created, 6);
    EXPECT_EQ(bar.removed, 3);
    EXPECT_EQ(controller->rebuildCount(), 2u);

    // Hiding an icon takes it out; showing it again brings it back in its place.
    change([&](Library& l) { l.apply(change::ShowInMenuBar{false}, a.id); });
    EXPECT_THAT(bar.row(), ElementsAreArray(idsOf({b, c})));
    change([&](Library& l) { l.apply(change::ShowInMenuBar{true}, a.id); });
    EXPECT_THAT(bar.row(), ElementsAreArray(idsOf({b, a, c})));
}

TEST_F(MenuBarTest, SeveralChangesBeforeTheQueueRunsMakeOnePass)
{
    auto a = webLink("A");
    start({a});

    store->mutate([&](Library& l) { l.add(webLink("B")); });
    store->mutate([&](Library& l) { l.add(webLink("C")); });
    store->mutate([&](Library& l) { l.remove(a.id); });
    EXPECT_EQ(queue.pending(), 1u);
    EXPECT_EQ(bar.row().size(), 1u);

    queue.runAll();
    EXPECT_EQ(bar.row().size(), 2u);
    EXPECT_EQ(controller->rebuildCount(), 2u);
}

TEST_F(MenuBarTest, APlayingPageShowsInTheTooltipAndGlyphOfItsIconAlone)
{
    auto a = webLink("Radio");
    auto b = webLink("News");
    PlayingPages playing;
    start({a, b});
    controller->setPlaying(&playing);

    playing.insert(a.id);
    queue.runAll();
    EXPECT_EQ(icon(a).toolTip, "Radio (playing)");
    ASSERT_TRUE(icon(a).image);
    EXPECT_TRUE(icon(a).image->playing);
    EXPECT_EQ(icon(b).draws, 1);
    controller->setPlaying(nullptr);
}

TEST_F(MenuBarTest, NumbersSkipDividersAndRedrawOnlyIconsWhoseBadgeChanges)
{
    auto a = webLink("A");
    auto line = divider();
    auto b = webLink("B");
    auto c = webLink("C");
    start({a, line, b, c});

    controller->reveal(1);
    EXPECT_EQ(icon(a).image->number, 1);
    EXPECT_EQ(icon(b).image->number, 2);
    EXPECT_EQ(icon(c).image->number, 3);
    EXPECT_FALSE(icon(line).image->number);
    EXPECT_EQ(icon(line).draws, 1);

    int before = bar.totalDraws();
    controller->reveal(1);
    EXPECT_EQ(bar.totalDraws(), before);

    controller->reveal(std::nullopt);
    EXPECT_FALSE(icon(a).image->number);
    EXPECT_EQ(bar.totalDraws(), before + 3);

    // A rebuild drops the badges.
    controller->reveal(1);
    change([&](Library& l) { l.add(webLink("D")); });
    EXPECT_FALSE(icon(a).image->number);
    EXPECT_FALSE(controller->item(a.id)->number());
}

TEST_F(MenuBarTest, OpeningFromTheKeyboardDoesWhatAPlainClickDoes)
{
    auto page = webLink("Page");
    auto member = webLink("Member");
    auto g = group("G", {member, divider(), webLink("Other")});
    auto line = divider();
    start({page, g, line});

    controller->openFromKeyboard(page.id);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].anchor, controller->button(page.id));

    controller->openFromKeyboard(g.id);
    ASSERT_EQ(icon(g).popped.size(), 1u);
    EXPECT_THAT(titles(icon(g).popped[0]), ElementsAre("Member", "---", "Other"));

    controller->openFromKeyboard(line.id);
    controller->openFromKeyboard(member.id);
    EXPECT_EQ(opened.size(), 1u);
    EXPECT_TRUE(icon(line).popped.empty());
}

TEST_F(MenuBarTest, ANumberKeyStepsOverDividersAndOpensWhatIsShowingWhenPressed)
{
    std::vector<Shortcut> list{webLink("1"), webLink("2"), divider(), webLink("3"), webLink("4")};
    list.push_back(webLink("5"));
    start(list);

    controller->openNumbered(3);
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].name, "3");
    EXPECT_EQ(opened[0].anchor, controller->button(list[3].id));

    for (int n : {0, 6, -1}) {
        controller->openNumbered(n);
    }
    EXPECT_EQ(opened.size(), 1u);

    // Presses count in the bar as it is now, not as it was when the keys were registered.
    change([&](Library& l) { l.apply(change::ShowInMenuBar{false}, list[0].id); });
    controller->openNumbered(3);
    ASSERT_EQ(opened.size(), 2u);
    EXPECT_EQ(opened[1].name, "4");
}

TEST_F(MenuBarTest, AGroupMenuShowsTheGroupAsItIsNowAndOpensUnderTheGroupsIcon)
{
    auto g = group("G", {webLink("First")});
    start({g});
    // Changed without letting the queue run: the icon still holds the old group.
    store->mutate([&](Library& l) { l.addMember(webLink("Second"), g.id); });

    bar.item(g.id.string()).events.clicked(Click{});
    ASSERT_EQ(icon(g).popped.size(), 1u);
    const Menu& menu = icon(g).popped[0];
    ASSERT_THAT(titles(menu), ElementsAre("First", "Second"));

    menu.items[1].action();
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].name, "Second");
    EXPECT_EQ(opened[0].anchor, controller->button(g.id));
}

TEST_F(MenuBarTest, AClickOnAnIconGoneInARebuildDoesNothing)
{
    auto a = webLink("A");
    start({a});
    change([&](Library& l) { l.add(webLink("B")); });
    ASSERT_EQ(bar.gone().size(), 1u);

    bar.gone()[0].events.clicked(Click{});
    EXPECT_TRUE(opened.empty());
    EXPECT_TRUE(bar.gone()[0].events.contextMenu().items.empty());
}

TEST_F(MenuBarTest, AChangeQueuedWhenTheControllerGoesAwayIsDropped)
{
    auto a = webLink("A");
    start({a});
    store->mutate([&](Library& l) { l.add(webLink("B")); });
    ASSERT_EQ(queue.pending(), 1u);

    controller.reset();
    EXPECT_THAT(bar.row(), IsEmpty());
    queue.runAll();
    EXPECT_THAT(bar.row(), IsEmpty());
    // No observer is left behind.
    store->mutate([&](Library& l) { l.add(webLink("C")); });
    EXPECT_EQ(queue.pending(), 0u);
}

TEST(MenuBarBadge, CountsNineToATierAndNoneOutsideIt)
{
    struct Row
    {
        size_t position;
        std::optional<int> tier;
        std::optional<int> badge;
    };
    const Row rows[] = {{1, std::nullopt, std::nullopt},
                        {9, 1, 9},
                        {10, 1, std::nullopt},
                        {10, 2, 1},
                        {19, 2, std::nullopt}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.position << " in tier " << row.tier.value_or(0));
        EXPECT_EQ(MenuBarController::badge(row.position, row.tier), row.badge);
    }
}
