// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kit::web {

// The SHA-256 digest of `bytes` as lower-case hexadecimal, two digits per byte.
std::string sha256Hex(std::string_view bytes);

} // namespace kit::web
