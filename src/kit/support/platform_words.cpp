// SPDX-License-Identifier: MIT
#include "kit/support/platform_words.h"

#include <array>
#include <utility>

namespace kit::support {

namespace {

// Longest first, so "the macOS menu bar" wins over "macOS".
constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kWords{{
    {"The SF Symbols this Mac can draw", "The icon names of the icon theme this computer draws"},
    {"An SF Symbol name", "An icon name from the icon theme"},
    {"an SF Symbol name", "an icon name from the icon theme"},
    {"the macOS menu bar", "the menu bar"},
    {"SF Symbol names", "icon names from the icon theme"},
    {"SF Symbols", "icon names from the icon theme"},
    {"(arrows, weather, devices, communication, and so on)",
     "(actions, devices, places, status, and so on)"},
    {"this Mac", "this computer"},
    {"the Mac", "the computer"},
    {"macOS", "the desktop"},
}};

} // namespace

std::string inPlatformWords(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        bool replaced = false;
        for (const auto& [mac, here] : kWords) {
            if (text.substr(i, mac.size()) == mac) {
                out += here;
                i += mac.size();
                replaced = true;
                break;
            }
        }
        if (!replaced) {
            out += text[i++];
        }
    }
    return out;
}

} // namespace kit::support
