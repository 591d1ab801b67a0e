// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

#include <QRect>
#include <QtMath>

namespace desktop {

inline kit::menubar::Rect toKit(const QRect& rect)
{
    if (!rect.isValid()) {
        return {};
    }
    return {double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())};
}

inline QRect toQt(const kit::menubar::Rect& rect)
{
    return {qRound(rect.x), qRound(rect.y), qRound(rect.width), qRound(rect.height)};
}

} // namespace desktop
