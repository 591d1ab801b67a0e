// SPDX-License-Identifier: MIT
#include "kit/menubar/panel_placement.h"

#include <algorithm>

namespace kit::menubar {

Rect panelGeometry(Rect icon, Point pointer, Size size, Rect screen)
{
    const double width = std::min(size.width, screen.width);
    const double height = std::min(size.height, screen.height);
    const double screenBottom = screen.y + screen.height;
    Rect placed{0, 0, width, height};
    if (!icon.isEmpty()) {
        placed.x = icon.x + icon.width / 2 - width / 2;
        placed.y = icon.y + icon.height;
        // A tray at the foot of the screen: the panel opens upwards.
        if (placed.y + height > screenBottom && icon.y - height >= screen.y) {
            placed.y = icon.y - height;
        }
    } else {
        placed.x = pointer.x - width / 2;
        placed.y = pointer.y;
        if (placed.y + height > screenBottom) {
            placed.y = pointer.y - height;
        }
    }
    placed.x = std::clamp(placed.x, screen.x, screen.x + screen.width - width);
    placed.y = std::clamp(placed.y, screen.y, screenBottom - height);
    return placed;
}

Rect windowGeometry(std::optional<Point> at, Size wanted, Margins frame, Rect screen)
{
    // The content's room: the screen less the frame, never below one pixel.
    const double roomX = screen.x + frame.left;
    const double roomY = screen.y + frame.top;
    const double roomWidth = std::max(1.0, screen.width - frame.left - frame.right);
    const double roomHeight = std::max(1.0, screen.height - frame.top - frame.bottom);
    Rect placed{0, 0, std::min(wanted.width, roomWidth), std::min(wanted.height, roomHeight)};
    if (at) {
        placed.x = at->x;
        placed.y = at->y;
    } else {
        placed.x = roomX + (roomWidth - placed.width) / 2;
        placed.y = roomY + (roomHeight - placed.height) / 2;
    }
    placed.x = std::clamp(placed.x, roomX, roomX + roomWidth - placed.width);
    placed.y = std::clamp(placed.y, roomY, roomY + roomHeight - placed.height);
    return placed;
}

} // namespace kit::menubar
