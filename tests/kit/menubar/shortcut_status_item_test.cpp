// SPDX-License-Identifier: MIT
#include "kit/menubar/shortcut_status_item.h"

#include "kit/library/fixtures.h"
#include "kit/menubar/fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::library;
using namespace kit::menubar;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

class ShortcutStatusItemTest : public ::testing::Test
{
protected:
    std::unique_ptr<ShortcutStatusItem> make(const Shortcut& shortcut)
    {
        auto item = std::make_unique<ShortcutStatusItem>(shortcut.id, bar, icons);
        ShortcutStatusItem::Actions actions;
        actions.onOpen = [this](const Shortcut& s, StatusItemHandle) { opened.push_back(s.name); };
        actions.menuRows = [](const Shortcut& s) {
            return std::vector<MenuItem>{MenuItem::heading(s.name)};
        };
        item->setActions(std::move(actions));
        item->setShortcut(shortcut);
        item->render();
        return item;
    }

    FakeStatusBar::Item& host(const ShortcutStatusItem& item) { return *bar.find(*item.button()); }
    void click(const ShortcutStatusItem& item, std::optional<Click> event)
    {
        host(item).events.clicked(event);
    }

    FakeStatusBar bar;
    StandardIconRenderer icons;
    std::vector<std::string> opened;
};

const Click kPlain{Click::Kind::Primary, false};
const Click kRight{Click::Kind::Secondary, false};
const Click kControl{Click::Kind::Primary, true};
const Click kDouble{Click::Kind::DoubleClick, false};

} // namespace

TEST_F(ShortcutStatusItemTest, APlainClickOpensAndARightOrControlClickShowsTheShortcutMenu)
{
    auto item = make(webLink("Mail"));
    click(*item, kPlain);
    click(*item, std::nullopt);
    click(*item, kDouble); // its first half already opened
    EXPECT_THAT(opened, ElementsAre("Mail", "Mail"));

    click(*item, kRight);
    click(*item, kControl);
    EXPECT_EQ(opened.size(), 2u);
    ASSERT_EQ(host(*item).popped.size(), 2u);
    EXPECT_THAT(titles(host(*item).popped[1]), ElementsAre("Mail"));
}

TEST_F(ShortcutStatusItemTest, ADividerIgnoresPlainClicksUntilItBecomesALink)
{
    auto line = Shortcut::make("Line", Target::divider());
    auto item = make(line);
    EXPECT_TRUE(item->hasShield());
    click(*item, kPlain);
    item->openPrimary();
    EXPECT_TRUE(host(*item).popped.empty());
    EXPECT_TRUE(opened.empty());
    click(*item, kRight);
    EXPECT_THAT(titles(host(*item).popped.at(0)), ElementsAre("Line"));

    line.target = webLink("Link").target;
    item->setShortcut(line);
    item->render();
    EXPECT_FALSE(item->hasShield());
    click(*item, kPlain);
    EXPECT_THAT(opened, ElementsAre("Line"));
}

TEST_F(ShortcutStatusItemTest, AnIconTheHostRefusedDrawsNothingAndIgnoresClicks)
{
    bar.refuse = true;
    auto item = make(webLink("Mail"));
    EXPECT_FALSE(item->button());
    item->clicked(kPlain);
    item->openPrimary();
    EXPECT_TRUE(opened.empty());
    EXPECT_EQ(bar.totalDraws(), 0);
}

TEST_F(ShortcutStatusItemTest, EmojiStandAsATitleUntilABadgeNeedsAPicture)
{
    auto smile = webLink("Smile");
    smile.icon = IconOverride::emoji("🙂");
    auto item = make(smile);
    EXPECT_EQ(host(*item).title, "🙂");
    EXPECT_FALSE(host(*item).image);

    item->setNumber(4);
    item->render();
    ASSERT_TRUE(host(*item).image);
    EXPECT_EQ(host(*item).image->number, 4);
    EXPECT_EQ(host(*item).image->name, "🙂");
    EXPECT_TRUE(host(*item).title.empty());
}
