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
        {"top tray: centred under the icon", {600, 0, 24, 24}, {}, {400, 600}, {412, 24, 400, 600}},
        {"right edge: pushed left", {1250, 0, 24, 24}, {}, {400, 600}, {880, 24, 400, 600}},
        {"bottom tray: above the icon", {600, 776, 24, 24}, {}, {400, 600}, {412, 176, 400, 600}},
        {"icon's place unknown: at the pointer", {}, {100, 30}, {400, 600}, {0, 30, 400, 600}},
        {"larger than the screen: shrunk", {600, 0, 24, 24}, {}, {2000, 1000}, {0, 0, 1280, 800}},
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
        {"new: centred below its title bar", {}, {600, 400}, {340, 227, 600, 400}},
        {"taller: the room under the title bar", Point{100, 20}, {1100, 800}, {100, 54, 1100, 746}},
        {"past the right and bottom: moved in", Point{1000, 700}, {600, 400}, {680, 400, 600, 400}},
        {"larger both ways: the whole room", {}, {3000, 2000}, {0, 54, 1280, 746}},
        {"above the screen: moved under its top", Point{10, -50}, {300, 200}, {10, 54, 300, 200}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(windowGeometry(c.at, c.wanted, frame, screen), c.expected);
    }
}

} // namespace
} // namespace kit::menubar
