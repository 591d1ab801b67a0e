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
        {"pushed right at the left edge", {2, 0, 24, 24}, {}, {400, 600}, {0, 24, 400, 600}},
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
        {"above the pointer near the foot", {}, {640, 790}, {400, 600}, {440, 190, 400, 600}},
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

} // namespace
} // namespace kit::menubar
