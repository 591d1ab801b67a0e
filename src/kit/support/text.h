// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace kit::support {

// ASCII white space, what people and files leave around names, values and lines.
inline constexpr std::string_view kAsciiSpace = " \t\r\n\f\v";

// `text` without `spaces` at either end; a view into `text`.
constexpr std::string_view trimmed(std::string_view text, std::string_view spaces = kAsciiSpace)
{
    const auto first = text.find_first_not_of(spaces);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

// The value of a hexadecimal digit, or -1 for any other character.
constexpr int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

} // namespace kit::support
