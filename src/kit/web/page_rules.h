// SPDX-License-Identifier: MIT
#pragma once

#include "kit/keys/modifiers.h"
#include "kit/library/enums.h"

#include <optional>
#include <string>
#include <string_view>

namespace kit::web {

// The agent a page sends: the engine's own agent with its platform part swapped for the chosen
// kind of device, so sites see this engine's real version. A blank custom agent means desktop.
std::string userAgent(std::string_view engineDefault,
                      library::BrowserAgent agent,
                      const std::optional<std::string>& custom);

// The zoom Ctrl with `key` leads to from `current`: '=' or '+' larger, '-' smaller, '0' normal;
// nothing for other keys or other modifiers. Shift is how "+" is typed on most layouts.
std::optional<double> zoomForKey(keys::ModifierSet modifiers, char32_t key, double current);

} // namespace kit::web
