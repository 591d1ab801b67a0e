// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QImage>
#include <QRect>

namespace desktop {

// A picture's pixels by colour, counting those at least half opaque.
struct Ink
{
    int visible = 0;
    int red = 0;   // mostly red
    int green = 0; // mostly green
    int blue = 0;  // mostly blue
    int light = 0; // near white
    int dark = 0;  // near black
};

inline Ink ink(const QImage& picture, QRect area = {})
{
    const QImage image = picture.convertToFormat(QImage::Format_ARGB32);
    if (area.isNull()) {
        area = image.rect();
    }
    Ink result;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const QColor c = QColor::fromRgba(image.pixel(x, y));
            if (c.alpha() < 128) {
                continue;
            }
            ++result.visible;
            result.red += c.red() > 180 && c.green() < 90 && c.blue() < 90 ? 1 : 0;
            result.green += c.green() > 150 && c.red() < 100 && c.blue() < 140 ? 1 : 0;
            result.blue += c.blue() > 180 && c.red() < 90 && c.green() < 90 ? 1 : 0;
            result.light += c.lightness() > 220 ? 1 : 0;
            result.dark += c.lightness() < 50 ? 1 : 0;
        }
    }
    return result;
}

} // namespace desktop
