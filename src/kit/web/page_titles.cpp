// SPDX-License-Identifier: MIT
#include "kit/web/page_titles.h"

namespace kit::web {

namespace {

// Past this the digits are not a count anyone reads.
constexpr size_t kMostDigits = 9;
constexpr long kMostShown = 99;

} // namespace

std::optional<long> titleCount(std::string_view title)
{
    size_t at = title.find_first_not_of(" \t");
    if (at == std::string_view::npos || title[at] != '(') {
        return std::nullopt;
    }
    ++at;
    long count = 0;
    size_t digits = 0;
    bool separatorLast = false;
    for (; at < title.size(); ++at) {
        const char c = title[at];
        if (c >= '0' && c <= '9') {
            if (++digits > kMostDigits) {
                return std::nullopt;
            }
            count = count * 10 + (c - '0');
            separatorLast = false;
        } else if ((c == ',' || c == '.') && digits > 0 && !separatorLast) {
            separatorLast = true;
        } else {
            break;
        }
    }
    if (digits == 0 || separatorLast || at >= title.size()) {
        return std::nullopt;
    }
    // "(99+)" is what some sites write once there are too many to count.
    if (title[at] == '+') {
        ++at;
    }
    if (at >= title.size() || title[at] != ')' || count == 0) {
        return std::nullopt;
    }
    return count;
}

std::string countBadgeText(long count)
{
    return count > kMostShown ? std::to_string(kMostShown) + "+" : std::to_string(count);
}

} // namespace kit::web
