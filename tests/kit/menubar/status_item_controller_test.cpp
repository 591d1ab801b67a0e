// SPDX-License-Identifier: MIT
#include "kit/menubar/status_item_controller.h"

#include "kit/menubar/fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kit::menubar;
using namespace testing_support;
using ::testing::ElementsAre;

namespace {

class FakePopover final : public Popover
{
public:
    void show(StatusItemHandle, Edge) override { m_shown = true; }
    void close() override
    {
        if (m_shown) {
            m_shown = false;
            if (m_closed) {
                m_closed();
            }
        }
    }
    bool isShown() const override { return m_shown; }
    std::optional<Rect> frame() const override
    {
        return m_shown ? std::optional<Rect>(Rect{100, 30, 300, 400}) : std::nullopt;
    }
    void setClosedHandler(std::function<void()> closed) override { m_closed = std::move(closed); }

private:
    bool m_shown = false;
    std::function<void()> m_closed;
};

class FakeAppEvents final : public AppEvents
{
public:
    Token addGlobalMouseDown(std::function<void(Point)> handler) override
    {
        mouseDown[m_next] = std::move(handler);
        return m_next++;
    }
    Token addResignActive(std::function<void()> handler) override
    {
        resign[m_next] = std::move(handler);
        return m_next++;
    }
    void remove(Token token) override
    {
        mouseDown.erase(token);
        resign.erase(token);
    }
    void activate() override { active = true; }
    bool isActive() const override { return active; }

    // Copies first: a handler may remove itself.
    void pressAt(Point p)
    {
        for (auto& [token, handler] : std::map(mouseDown)) {
            handler(p);
        }
    }
    void resignActive()
    {
        for (auto& [token, handler] : std::map(resign)) {
            handler();
        }
    }

    std::map<Token, std::function<void(Point)>> mouseDown;
    std::map<Token, std::function<void()>> resign;
    bool active = false;

private:
    Token m_next = 1;
};

class StatusItemControllerTest : public ::testing::Test
{
protected:
    StatusItemControllerTest() { controller.install(); }

    FakeStatusBar::Item& icon() { return *bar.find(*controller.statusItem()); }
    void click(std::optional<Click> event) { icon().events.clicked(event); }

    FakeStatusBar bar;
    FakePopover popover;
    FakeAppEvents events;
    ManualQueue queue;
    StatusItemController controller{bar, popover, events, queue, "Vantorel"};
};

const Click kPlain{Click::Kind::Primary, false};
const Click kRight{Click::Kind::Secondary, false};
const Click kControl{Click::Kind::Primary, true};

} // namespace

TEST_F(StatusItemControllerTest, APlainClickTogglesThePanelAndItsMonitors)
{
    int opened = 0;
    int closed = 0;
    controller.setOnPanelOpened([&] { ++opened; });
    controller.setOnPanelClosed([&] { ++closed; });

    click(kPlain);
    EXPECT_TRUE(popover.isShown());
    EXPECT_TRUE(events.active);
    EXPECT_TRUE(controller.hasMonitors());
    EXPECT_TRUE(icon().highlighted);

    click(kPlain);
    EXPECT_FALSE(popover.isShown());
    EXPECT_FALSE(controller.hasMonitors());
    EXPECT_FALSE(icon().highlighted);
    EXPECT_EQ(opened, 1);
    EXPECT_EQ(closed, 1);

    // Showing it twice leaves one set of monitors.
    controller.showPopover();
    controller.showPopover();
    EXPECT_EQ(events.mouseDown.size(), 1u);
    EXPECT_EQ(events.resign.size(), 1u);
}

TEST_F(StatusItemControllerTest, APressOutsideThePanelOrLeavingTheAppClosesIt)
{
    controller.showPopover();
    events.pressAt(Point{150, 100});
    EXPECT_TRUE(popover.isShown());
    events.pressAt(Point{10, 10});
    EXPECT_FALSE(popover.isShown());
    EXPECT_TRUE(events.mouseDown.empty());

    controller.showPopover();
    events.resignActive();
    EXPECT_FALSE(popover.isShown());
}

TEST_F(StatusItemControllerTest, ASecondaryClickClosesThePanelAndShowsTheDefaultMenu)
{
    int settings = 0;
    int quits = 0;
    controller.setOnOpenSettings([&] { ++settings; });
    controller.setOnQuit([&] { ++quits; });
    controller.showPopover();

    click(kRight);
    click(kControl);
    EXPECT_FALSE(popover.isShown());
    ASSERT_EQ(icon().popped.size(), 2u);
    const Menu& menu = icon().popped[0];
    EXPECT_THAT(titles(menu), ElementsAre("Settings…", "---", "Quit Vantorel"));
    menu.items[0].action();
    menu.items[2].action();
    EXPECT_EQ(settings, 1);
    EXPECT_EQ(quits, 1);
}

TEST_F(StatusItemControllerTest, WithAMenuProviderEveryClickShowsItsMenu)
{
    controller.setMenuProvider([] { return Menu{{MenuItem::heading("Bars")}}; });
    click(kPlain);
    click(kRight);
    EXPECT_FALSE(popover.isShown());
    ASSERT_EQ(icon().popped.size(), 2u);
    EXPECT_THAT(titles(icon().popped[0]), ElementsAre("Bars"));
    EXPECT_THAT(titles(icon().events.contextMenu()), ElementsAre("Bars"));
}

TEST_F(StatusItemControllerTest, ChangesDrawOnceAndAnUnchangedLookIsNotDrawnAgain)
{
    ASSERT_EQ(icon().draws, 1);
    controller.setSummary("3 shortcuts");
    controller.setAlert(true);
    controller.setSymbolName("bookmark-new");
    EXPECT_EQ(queue.pending(), 1u);
    queue.runAll();
    EXPECT_EQ(icon().draws, 2);
    EXPECT_EQ(icon().toolTip, "3 shortcuts");
    EXPECT_EQ(icon().label, "3 shortcuts");
    EXPECT_TRUE(icon().appImage->alert);

    StatusItemGauge gauge{{{0.5, "#FFFFFF", "#000000"}}, "50%", "#FFF", "#000", "half"};
    controller.setGauge(gauge);
    queue.runAll();
    controller.setGauge(gauge);
    controller.setSummary("3 shortcuts");
    queue.runAll();
    EXPECT_EQ(icon().draws, 3);
}

TEST_F(StatusItemControllerTest, TheMenuBarTurningDarkRedrawsUnlessAnAppearanceIsForced)
{
    icon().appearance = Appearance::Dark;
    icon().events.appearanceChanged(Appearance::Dark);
    EXPECT_TRUE(icon().appImage->dark);
    EXPECT_EQ(icon().draws, 2);

    controller.setAppearance(Appearance::Light);
    queue.runAll();
    icon().events.appearanceChanged(Appearance::Dark);
    EXPECT_FALSE(icon().appImage->dark);
    EXPECT_EQ(icon().draws, 3);
}

TEST_F(StatusItemControllerTest, HoverAndDragsHighlightUntilBothEnd)
{
    controller.setOnDrop([](const std::vector<std::string>&) { return true; });
    icon().events.hovered(true);
    EXPECT_TRUE(icon().highlighted);
    EXPECT_TRUE(controller.dropCatcher().entered(DragData{{"file:///tmp/a.txt"}, std::nullopt}));
    icon().events.hovered(false);
    EXPECT_TRUE(icon().highlighted);
    controller.dropCatcher().exited();
    EXPECT_FALSE(icon().highlighted);
}

TEST_F(StatusItemControllerTest, OnlyADragWithAnAddressIsTakenAndItsDropEndsTheHighlight)
{
    std::vector<std::string> dropped;
    std::vector<bool> over;
    controller.setOnDragOver([&](bool o) { over.push_back(o); });
    auto& drops = controller.dropCatcher();
    DragData link{{}, std::string("  https://example.com/page \n")};

    // Nothing with an address: refused, and nothing lights up.
    EXPECT_FALSE(drops.entered(DragData{{}, std::string("just some words")}));
    EXPECT_FALSE(drops.entered(DragData{}));
    EXPECT_FALSE(drops.isReceiving());
    EXPECT_FALSE(icon().highlighted);
    EXPECT_TRUE(over.empty());

    EXPECT_TRUE(drops.entered(link));
    EXPECT_TRUE(drops.isReceiving());
    // Without a handler a drop is refused.
    EXPECT_FALSE(drops.perform(link));

    controller.setOnDrop([&](const std::vector<std::string>& urls) {
        dropped = urls;
        return true;
    });
    EXPECT_TRUE(drops.entered(link));
    EXPECT_TRUE(drops.perform(link));
    EXPECT_THAT(dropped, ElementsAre("https://example.com/page"));
    EXPECT_FALSE(icon().highlighted);
    EXPECT_THAT(over, ElementsAre(true, false, true, false));
}

TEST(DropCatcherUrls, PreferURLObjectsToText)
{
    EXPECT_THAT(DropCatcher::urls(DragData{{"file:///a", "file:///b"}, std::string("https://x/")}),
                ElementsAre("file:///a", "file:///b"));
    EXPECT_THAT(DropCatcher::urls(DragData{{}, std::string("mailto:a@example.com")}),
                ElementsAre("mailto:a@example.com"));
    EXPECT_TRUE(DropCatcher::urls(DragData{{}, std::string("/home/a b")}).empty());
}
