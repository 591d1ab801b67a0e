// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kit::blocking {

// The kinds of load a content-blocker trigger can name, as bits so a rule keeps a set of them.
enum class ResourceType : uint16_t {
    Document = 1 << 0,
    Image = 1 << 1,
    StyleSheet = 1 << 2,
    Script = 1 << 3,
    Font = 1 << 4,
    Raw = 1 << 5,
    SvgDocument = 1 << 6,
    Media = 1 << 7,
    Popup = 1 << 8,
    Ping = 1 << 9,
    Fetch = 1 << 10,
    WebSocket = 1 << 11,
    Other = 1 << 12,
};

using ResourceTypes = uint16_t;
inline constexpr ResourceTypes kAllResourceTypes = (1 << 13) - 1;

constexpr ResourceTypes bit(ResourceType type)
{
    return static_cast<ResourceTypes>(type);
}

// The name used in "resource-type", such as "style-sheet".
std::string_view resourceTypeName(ResourceType type);
std::optional<ResourceType> resourceTypeFromName(std::string_view name);

} // namespace kit::blocking
