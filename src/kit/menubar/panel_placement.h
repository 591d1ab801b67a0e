// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

#include <optional>

namespace kit::menubar {

struct Size
{
    double width = 0;
    double height = 0;

    bool operator==(const Size&) const = default;
};

// Where a panel of `size` stands: centred under the icon (above it when the icon is at the
// screen's foot), or under the pointer when the icon's place is unknown (empty), always whole
// on `screen`, shrunk to it when larger.
Rect panelGeometry(Rect icon, Point pointer, Size size, Rect screen);

// What the window manager draws around a window's content.
struct Margins
{
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;

    bool operator==(const Margins&) const = default;
};

// Where a window's content stands so that it and its `frame` lie whole on `screen` (the screen's
// available area): `wanted` shrunk to fit, at `at` moved in as far as needed, or centred when
// the window has no place yet.
Rect windowGeometry(std::optional<Point> at, Size wanted, Margins frame, Rect screen);

} // namespace kit::menubar
