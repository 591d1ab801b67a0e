// SPDX-License-Identifier: MIT
#include "kit/menubar/tray_host.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace kit::menubar;

TEST(TrayHostDetection, OwnerOfTheWatcherDecidesThenTheDesktop)
{
    struct Row
    {
        TrayHostClues clues;
        TrayHostKind expected;
    };
    const Row rows[] = {
        {{false, "gnome-shell", "GNOME"}, TrayHostKind::XEmbed}, // no watcher: docked windows
        {{true, "gnome-shell", ""}, TrayHostKind::GnomeAppIndicator},
        {{true, "xfce4-panel", "XFCE"}, TrayHostKind::XfcePanel},
        {{true, "panel-6-systray", ""}, TrayHostKind::XfcePanel}, // the plugin's own process
        {{true, "waybar", "sway"}, TrayHostKind::Waybar},
        {{true, "", "ubuntu:GNOME"}, TrayHostKind::GnomeAppIndicator}, // owner unreadable
        {{true, "snixembed", "i3"}, TrayHostKind::OtherStatusNotifier},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(detectTrayHost(row.clues), row.expected)
            << row.clues.watcherProcess << " / " << row.clues.currentDesktop;
    }
}

TEST(TrayHostOrder, NamesSortIntoPlaceWithTheApplicationLast)
{
    for (auto kind : {TrayHostKind::KdePlasma, TrayHostKind::Cinnamon}) {
        const TrayHost& host = trayHost(kind);
        // Names chosen to sort against their order; twelve, so 2 and 10 are compared as text.
        std::vector<std::string> names;
        for (size_t i = 0; i < 12; ++i) {
            names.push_back(itemTitle(host, "Vantorel", i, std::string(1, char('z' - i))));
        }
        names.push_back(itemTitle(host, "Vantorel", std::nullopt, ""));
        auto sorted = names;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, names) << host.name;
    }
    // Elsewhere the name is the shortcut's own.
    EXPECT_EQ(itemTitle(trayHost(TrayHostKind::XfcePanel), "Vantorel", 3, "Mail"), "Mail");
    EXPECT_EQ(itemTitle(trayHost(TrayHostKind::XfcePanel), "Vantorel", std::nullopt, ""),
              "Vantorel");
}

TEST(TrayHostClicks, EachGestureMeansWhatTheHostSends)
{
    const auto primary = Click{Click::Kind::Primary, false};
    const auto secondary = Click{Click::Kind::Secondary, false};
    struct Row
    {
        TrayHostKind host;
        HostGesture gesture;
        std::optional<Click> expected;
    };
    const Row rows[] = {
        {TrayHostKind::KdePlasma, HostGesture::Activate, primary},
        // GNOME sends Activate for the second press of a double click: the first opened the menu.
        {TrayHostKind::GnomeAppIndicator, HostGesture::Activate, std::nullopt},
        {TrayHostKind::GnomeAppIndicator, HostGesture::OpenEntry, primary},
        {TrayHostKind::GnomeAppIndicator, HostGesture::SecondaryActivate, primary},
        {TrayHostKind::Waybar, HostGesture::ContextMenu, secondary},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(clickFor(trayHost(row.host), row.gesture), row.expected)
            << trayHost(row.host).name << " gesture " << static_cast<int>(row.gesture);
    }
}

TEST(TrayHostWheel, DownIsTheNextBarWhateverTheHostsUnit)
{
    struct Row
    {
        TrayHostKind host;
        int delta;
        int step;
    };
    const Row rows[] = {
        {TrayHostKind::XfcePanel, -3, -1},  // GDK: positive is down; several notches, one step
        {TrayHostKind::KdePlasma, -120, 1}, // angle delta: negative is down
        {TrayHostKind::KdePlasma, 240, -1},
        {TrayHostKind::GnomeAppIndicator, 0, 0},
        {TrayHostKind::XEmbed, 1, 0}, // the wheel reaches our own window instead
    };
    for (const auto& row : rows) {
        EXPECT_EQ(scrollStep(trayHost(row.host), row.delta), row.step)
            << trayHost(row.host).name << " " << row.delta;
    }
}

TEST(TrayHostAnchor, OnlyScreenPointsPlaceAPage)
{
    auto anchor = anchorFromActivate(trayHost(TrayHostKind::XfcePanel), 300, 14);
    ASSERT_TRUE(anchor);
    EXPECT_TRUE(anchor->contains({300, 14}));
    // Hangs below a 28-point panel clicked in its middle, and narrower than an icon.
    EXPECT_GE(anchor->y + anchor->height, 28);
    EXPECT_LE(anchor->width, 16);
    EXPECT_FALSE(anchorFromActivate(trayHost(TrayHostKind::Waybar), 10, 10));
    EXPECT_FALSE(anchorFromActivate(trayHost(TrayHostKind::KdePlasma), 0, 0));
}

TEST(TrayHostIntroduction, SaysRightmostOnlyWhereItStays)
{
    const auto gnome = introductionPlace(trayHost(TrayHostKind::GnomeAppIndicator));
    EXPECT_NE(gnome.find("the rightmost,"), std::string::npos);
    EXPECT_NE(gnome.find("choose Open"), std::string::npos);
    const auto xfce = introductionPlace(trayHost(TrayHostKind::XfcePanel));
    EXPECT_EQ(xfce.find("the rightmost,"), std::string::npos);
    EXPECT_NE(xfce.find("right-click"), std::string::npos);
}

TEST(TrayHostIcons, OnlyAPlainThemeSymbolIsHandedOverByName)
{
    const TrayHost& gnome = trayHost(TrayHostKind::GnomeAppIndicator);
    const TrayHost& xfce = trayHost(TrayHostKind::XfcePanel);
    Glyph plain;
    plain.name = "mail-unread-symbolic";
    EXPECT_EQ(themeIconName(gnome, plain), "mail-unread-symbolic");
    // Xfce would draw the shape black whatever its panel; our own picture takes the panel's colour.
    EXPECT_FALSE(themeIconName(xfce, plain));
    Glyph colourful = plain;
    colourful.name = "mail-unread";
    EXPECT_EQ(themeIconName(xfce, colourful), "mail-unread");
    // A number or a site's picture is drawn by us everywhere.
    plain.number = 2;
    EXPECT_FALSE(themeIconName(gnome, plain));
    plain.number.reset();
    plain.source = Glyph::Source::SiteIcon;
    EXPECT_FALSE(themeIconName(gnome, plain));
}
