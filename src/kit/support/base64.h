// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::support {

using Bytes = std::vector<uint8_t>;

// Standard base64 with padding, as JSON documents carry bytes.
std::string base64Encode(const Bytes& bytes);
// Nothing for text that is not base64; padding may be left off.
std::optional<Bytes> base64Decode(std::string_view text);

} // namespace kit::support
