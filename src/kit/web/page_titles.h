// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kit::web {

// The count a page puts at the start of its title ("(3) Inbox", "(1,204) Mail"), if any: unread
// mail, messages, notifications. A zero or anything unlike a count is no count.
std::optional<long> titleCount(std::string_view title);

// A count as a badge shows it: the number, or "99+" past that.
std::string countBadgeText(long count);

} // namespace kit::web
