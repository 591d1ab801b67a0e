// SPDX-License-Identifier: MIT
#include "desktop/tray/tray_status_bar.h"

#include "desktop/tray/menu_builder.h"
#include "ink.h"
#include "menus.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTextDocument>

#include <array>
#include <vector>

namespace desktop {
namespace {

using kit::menubar::Click;
using kit::menubar::Glyph;
using kit::menubar::Menu;
using kit::menubar::MenuItem;
using kit::menubar::StatusItemEvents;
using kit::menubar::StatusItemHandle;

void drainEvents()
{
    for (int i = 0; i < 3; ++i) {
        QCoreApplication::processEvents();
    }
}

Menu groupMenu(std::vector<std::string>& chosen)
{
    auto choose = [&chosen](std::string name) {
        return [&chosen, name] { chosen.push_back(name); };
    };
    return Menu{{
        MenuItem::heading("Work"),
        MenuItem::command("Mail", choose("Mail")),
        MenuItem::separator(),
        MenuItem::submenu("Docs & Sheets",
                          {MenuItem::command("Sheets", choose("Sheets")),
                           MenuItem::submenu("Old", {MenuItem::command("2019", choose("2019"))})}),
        MenuItem::submenu("Nothing here", {}),
        MenuItem::command("Unavailable", nullptr),
        MenuItem::command("Settings\xE2\x80\xA6", choose("Settings"), ","),
    }};
}

TEST(MenuBuilderTest, BuildsNestedSubmenusLinesHeadingsAndDisabledRows)
{
    std::vector<std::string> chosen;
    QMenu menu;
    fillMenu(menu, groupMenu(chosen));
    EXPECT_EQ(describe(menu),
              (std::vector<std::string>{"[Work]",
                                        "Mail",
                                        "-",
                                        "> Docs && Sheets",
                                        "  Sheets",
                                        "  > Old",
                                        "    2019",
                                        "> Nothing here",
                                        "[Unavailable]",
                                        "Settings\xE2\x80\xA6"}));
    // An empty submenu cannot be opened.
    EXPECT_FALSE(findAction(menu, QStringLiteral("Nothing here"))->isEnabled());
    EXPECT_EQ(findAction(menu, QStringLiteral("Settings\u2026"))->shortcut(),
              QKeySequence(Qt::ControlModifier | Qt::Key_Comma));
}

TEST(MenuBuilderTest, ARowRunsItsActionOnlyOnceBackInTheEventLoop)
{
    std::vector<std::string> chosen;
    auto menu = std::make_unique<QMenu>();
    fillMenu(*menu, groupMenu(chosen));
    findAction(*menu, QStringLiteral("2019"))->trigger();
    EXPECT_TRUE(chosen.empty());
    // The action may destroy the menu that offered it.
    menu.reset();
    drainEvents();
    EXPECT_EQ(chosen, (std::vector<std::string>{"2019"}));
}

TEST(MenuBuilderTest, OptionsCarryTheirCheckMarkAndRowsTheirIcons)
{
    QtIconRenderer icons;
    Glyph letter;
    letter.source = Glyph::Source::Letters;
    letter.name = "W";
    MenuItem work = MenuItem::option("Work", true, [] {});
    work.icon = letter;
    QMenu menu;
    fillMenu(menu, Menu{{work, MenuItem::option("Home", false, [] {})}}, &icons);
    QAction* workRow = findAction(menu, QStringLiteral("Work"));
    EXPECT_TRUE(workRow->isChecked() && !workRow->icon().isNull());
    EXPECT_FALSE(findAction(menu, QStringLiteral("Home"))->isChecked());
    // Without a renderer rows go without icons rather than fail.
    QMenu plain;
    fillMenu(plain, Menu{{work}});
    EXPECT_TRUE(findAction(plain, QStringLiteral("Work"))->icon().isNull());
}

class TrayStatusBarTest : public ::testing::Test
{
protected:
    QtIconRenderer m_icons;
    TrayStatusBar m_bar{m_icons, TrayStatusBar::Host::XEmbed};
    std::vector<std::optional<Click>> m_clicks;

    StatusItemEvents recordingClicks()
    {
        StatusItemEvents events;
        events.clicked = [this](const std::optional<Click>& click) { m_clicks.push_back(click); };
        return events;
    }

    StatusItemHandle make(StatusItemEvents events)
    {
        auto handle = m_bar.create("3F2504E0-4F89-11D3-9A0C-0305E82C3301", std::move(events));
        EXPECT_TRUE(handle.has_value());
        return handle.value_or(StatusItemHandle{});
    }
};

struct ClickRow
{
    QSystemTrayIcon::ActivationReason reason;
    bool withContextMenu;
    std::optional<Click> expected; // nothing: no click reported
    bool reported;
};

class TrayClickTest : public TrayStatusBarTest, public ::testing::WithParamInterface<ClickRow>
{};

TEST_P(TrayClickTest, ReportsWhatTheHostSaid)
{
    const ClickRow row = GetParam();
    StatusItemEvents events = recordingClicks();
    if (row.withContextMenu) {
        events.contextMenu = [] { return Menu{}; };
    }
    const auto item = make(std::move(events));
    Q_EMIT m_bar.trayIcon(item)->activated(row.reason);
    if (!row.reported) {
        EXPECT_TRUE(m_clicks.empty());
        return;
    }
    ASSERT_EQ(m_clicks.size(), 1u);
    EXPECT_EQ(m_clicks[0], row.expected);
}

std::string rowName(const ClickRow& row)
{
    // QSystemTrayIcon's reasons in the order of their values.
    static constexpr std::array<const char*, 5> kReasons{
        "Unknown", "Context", "DoubleClick", "Trigger", "MiddleClick"};
    return std::string(kReasons.at(static_cast<std::size_t>(row.reason)))
           + (row.withContextMenu ? "WithMenu" : "WithoutMenu");
}

// Names the rows in test lists instead of their bytes.
void PrintTo(const ClickRow& row, std::ostream* out)
{
    *out << rowName(row);
}

std::string clickRowName(const ::testing::TestParamInfo<ClickRow>& info)
{
    return rowName(info.param);
}

INSTANTIATE_TEST_SUITE_P(
    Reasons,
    TrayClickTest,
    ::testing::Values(
        ClickRow{QSystemTrayIcon::Trigger, true, Click{Click::Kind::Primary, false}, true},
        ClickRow{QSystemTrayIcon::MiddleClick, true, Click{Click::Kind::Primary, false}, true},
        // The host opened the context menu by itself; a second menu must not follow.
        ClickRow{QSystemTrayIcon::Context, true, std::nullopt, false},
        ClickRow{QSystemTrayIcon::Context, false, Click{Click::Kind::Secondary, false}, true},
        ClickRow{QSystemTrayIcon::DoubleClick, true, Click{Click::Kind::DoubleClick, false}, true},
        ClickRow{QSystemTrayIcon::Unknown, true, std::nullopt, true}),
    clickRowName);

TEST_F(TrayStatusBarTest, TheContextMenuAsksForItsRowsEachTimeItOpens)
{
    int asked = 0;
    std::vector<std::string> chosen;
    StatusItemEvents events;
    events.contextMenu = [&] {
        ++asked;
        Menu menu = groupMenu(chosen);
        menu.items.push_back(MenuItem::command("Pass " + std::to_string(asked), nullptr));
        return menu;
    };
    const auto item = make(std::move(events));
    QMenu* menu = m_bar.trayIcon(item)->contextMenu();
    ASSERT_NE(menu, nullptr);
    Q_EMIT menu->aboutToShow();
    Q_EMIT menu->aboutToShow();
    EXPECT_EQ(asked, 2);
    const auto rows = describe(*menu);
    EXPECT_EQ(rows.back(), "[Pass 2]");
    EXPECT_EQ(rows.size(), 11u) << "rows of the first opening were left behind";
    findAction(*menu, QStringLiteral("Mail"))->trigger();
    drainEvents();
    EXPECT_EQ(chosen, (std::vector<std::string>{"Mail"}));
}

TEST_F(TrayStatusBarTest, AClickThatRemovesItsOwnIconIsSafe)
{
    std::optional<StatusItemHandle> item;
    StatusItemEvents events;
    events.clicked = [&](const std::optional<Click>&) {
        m_bar.remove(*item);
        m_bar.remove(*item);
    };
    item = make(std::move(events));
    QSystemTrayIcon* tray = m_bar.trayIcon(*item);
    Q_EMIT tray->activated(QSystemTrayIcon::Trigger);
    drainEvents();
    EXPECT_EQ(m_bar.trayIcon(*item), nullptr);
    // Calls naming a removed icon do nothing.
    m_bar.setTitle(*item, "A");
    m_bar.setToolTip(*item, "A");
    m_bar.popMenu(*item, Menu{});
    EXPECT_EQ(m_bar.geometry(*item), std::nullopt);
}

// Any ink at all: the highlight's backdrop is faint.
int visiblePixels(const QIcon& icon, int side)
{
    const QImage image = icon.pixmap(side, side).toImage().convertToFormat(QImage::Format_ARGB32);
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            count += qAlpha(image.pixel(x, y)) > 0 ? 1 : 0;
        }
    }
    return count;
}

TEST_F(TrayStatusBarTest, ImagesTitlesHighlightsAndTooltipsReachTheTrayIcon)
{
    const auto item = make({});
    QSystemTrayIcon* tray = m_bar.trayIcon(item);
    EXPECT_EQ(visiblePixels(tray->icon(), 22), 0);

    Glyph divider;
    divider.source = Glyph::Source::Divider;
    m_bar.setImage(item, divider);
    const int line = visiblePixels(tray->icon(), 22);
    EXPECT_GT(line, 0);

    m_bar.setTitle(item, "WM");
    const int plain = visiblePixels(tray->icon(), 22);
    EXPECT_GT(plain, line);
    for (const int side : {16, 22, 24, 32, 48, 64}) {
        EXPECT_TRUE(tray->icon().availableSizes().contains(QSize(side, side))) << side;
    }
    // The highlight's backdrop is a rounded square: all but the corners.
    m_bar.setHighlighted(item, true);
    EXPECT_GT(visiblePixels(tray->icon(), 22), 22 * 22 * 9 / 10);
    m_bar.setHighlighted(item, false);
    EXPECT_EQ(visiblePixels(tray->icon(), 22), plain);

    m_bar.setToolTip(item, "Mail (playing)");
    EXPECT_EQ(tray->toolTip(), QStringLiteral("Mail (playing)"));
    // A name is text: markup stays visible, a control character shows as its picture.
    m_bar.setToolTip(item, "<b>Bank</b>\x1b[2K");
    QTextDocument shown;
    shown.setHtml(tray->toolTip());
    EXPECT_EQ(shown.toPlainText(), QStringLiteral("<b>Bank</b>\u241B[2K"));
}

TEST_F(TrayStatusBarTest, ADarkPaletteRedrawsTemplatesInLightInkAndTellsTheIcon)
{
    std::vector<kit::menubar::Appearance> heard;
    StatusItemEvents events;
    events.appearanceChanged = [&](kit::menubar::Appearance appearance) {
        heard.push_back(appearance);
    };
    const auto item = make(std::move(events));
    m_bar.setTitle(item, "M");
    const QPalette original = QApplication::palette();
    QPalette dark = original;
    dark.setColor(QPalette::Window, QColor(0x20, 0x20, 0x20));
    QApplication::setPalette(dark);
    drainEvents();
    const QImage image = m_bar.trayIcon(item)->icon().pixmap(22, 22).toImage();
    QApplication::setPalette(original);
    drainEvents();

    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.front(), kit::menubar::Appearance::Dark);
    EXPECT_EQ(m_bar.appearance(item), TrayStatusBar::currentAppearance());
    EXPECT_GT(ink(image).light, 10);
}

} // namespace
} // namespace desktop
