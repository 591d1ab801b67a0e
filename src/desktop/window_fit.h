// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/qt_geometry.h"
#include "kit/menubar/panel_placement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QWidget>
#include <QWindow>

#include <optional>

namespace desktop {

// Where `window` stands with its content `wanted` large, by the core's rule: on the screen it is
// on (or the pointer's, before it has one), never larger than its available area.
inline QRect fittedGeometry(const QWidget& window, QSize wanted)
{
    QScreen* screen = window.isVisible() ? window.screen() : nullptr;
    if (screen == nullptr) {
        screen = QGuiApplication::screenAt(QCursor::pos());
    }
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    if (screen == nullptr) {
        return {window.pos(), wanted};
    }
    kit::menubar::Margins frame;
    const QWindow* handle = window.windowHandle();
    if (window.isVisible() && handle != nullptr) {
        const QMargins margins = handle->frameMargins();
        frame = {double(margins.left()),
                 double(margins.top()),
                 double(margins.right()),
                 double(margins.bottom())};
    } else {
        // Not framed yet: room for a usual title bar.
        frame.top = window.style()->pixelMetric(QStyle::PM_TitleBarHeight);
    }
    std::optional<kit::menubar::Point> at;
    if (window.isVisible() || window.testAttribute(Qt::WA_Moved)) {
        at = kit::menubar::Point{double(window.geometry().x()), double(window.geometry().y())};
    }
    return toQt(kit::menubar::windowGeometry(at,
                                             {double(wanted.width()), double(wanted.height())},
                                             frame,
                                             toKit(screen->availableGeometry())));
}

// Sizes and places `window` by fittedGeometry.
inline void fitToScreen(QWidget& window, QSize wanted)
{
    window.setGeometry(fittedGeometry(window, wanted));
}

} // namespace desktop
