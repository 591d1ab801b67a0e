// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kit::support {

// The few words that name things only a Mac has, said as this build says them. Texts written
// for a Mac pass through here, so a Mac build would only need an empty table.
std::string inPlatformWords(std::string_view text);

} // namespace kit::support
