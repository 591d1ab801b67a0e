// SPDX-License-Identifier: MIT
#include "kit/menubar/panel_placement.h"

#include <gtest/gtest.h>

namespace kit::menubar {
namespace {

TEST(PanelPlacement, StaysWholeOnScreen)
{
    const Rect screen{0, 0, 1280, 800};
    struct Case
    {
        const char* name;
        Rect icon;
        Point pointer;
        Size size;
        Rect expected;
    };
    const Case cases[] = {
        {"centred under an icon in a top tray",
         {600, 0, 24, 24},
         {},
         {400, 600},
         {412, 24, 400, 600}},
        {"pushed left at the right edge", {1250, 0, 24, 24}, {}, {400, 600}, {880, 24, 400, 600}},
        {"above an icon in a bottom tray",
         {600, 776, 24, 24},
         {},
         {400, 600},
         {412, 176, 400, 600}},
        {"under the pointer when the icon's place is unknown",
         {},
         {100, 30},
         {400, 600},
         {0, 30, 400, 600}},
        {"shrunk to a screen smaller than the panel",
         {600, 0, 24, 24},
         {},
         {2000, 1000},
         {0, 0, 1280, 800}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(panelGeometry(c.icon, c.pointer, c.size, screen), c.expected);
    }
}

TEST(WindowPlacement, NeverLargerThanTheScreenAndWholeOnIt)
{
    // A 1280x800 screen with a 24 px panel at its top, and a 30 px title bar.
    const Rect screen{0, 24, 1280, 776};
    const Margins frame{0, 30, 0, 0};
    struct Case
    {
        const char* name;
        std::optional<Point> at;
        Size wanted;
        Rect expected;
    };
    const Case cases[] = {
        {"a new window is centred below its title bar", {}, {600, 400}, {340, 227, 600, 400}},
        {"taller than the screen: as tall as the room under the title bar",
         Point{100, 20},
         {1100, 800},
         {100, 54, 1100, 746}},
        {"past the right and bottom edges: moved in",
         Point{1000, 700},
         {600, 400},
         {680, 400, 600, 400}},
        {"larger both ways: the whole room", {}, {3000, 2000}, {0, 54, 1280, 746}},
        {"above the screen's top: moved down under it",
         Point{10, -50},
         {300, 200},
         {10, 54, 300, 200}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(windowGeometry(c.at, c.wanted, frame, screen), c.expected);
    }
}

} // namespace
} // namespace kit::menubar
