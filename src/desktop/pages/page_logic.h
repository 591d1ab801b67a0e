// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/enums.h"

#include <QKeyCombination>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>
#include <string>
#include <string_view>

namespace desktop::pages {

// The agent a page sends: the engine's own agent with its platform part swapped for the chosen
// kind of device, so sites see this engine's real version. A blank custom agent means desktop.
std::string userAgent(std::string_view engineDefault,
                      kit::library::BrowserAgent agent,
                      const std::optional<std::string>& custom);

// Where a panel of `size` stands: centred under the icon (above it when the icon is at the
// screen's foot), or under the pointer when the icon's place is unknown (empty), always whole
// on `screen`.
QRect panelGeometry(QRect icon, QPoint pointer, QSize size, QRect screen);

// The zoom Ctrl+= (or Ctrl++), Ctrl+- and Ctrl+0 lead to from `current`; nothing for other keys.
std::optional<double> zoomForKey(QKeyCombination key, double current);

} // namespace desktop::pages
