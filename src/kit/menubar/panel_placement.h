// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

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

} // namespace kit::menubar
