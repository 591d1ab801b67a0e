// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kit::tools {

// One icon name this machine can draw, with the category it is filed under.
struct IconEntry
{
    std::string name;
    std::string category;

    bool operator==(const IconEntry&) const = default;
};

using IconList = std::shared_ptr<const std::vector<IconEntry>>;

// Answers the icon names search_icons offers. Called on the main thread; an implementation may
// scan once and hand out the same list afterwards.
class IconProvider
{
public:
    virtual ~IconProvider() = default;
    // Never null; sorted by name.
    virtual IconList icons() = 0;
};

} // namespace kit::tools
