// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kit::support {

// Length of the well-formed UTF-8 sequence at s (its first byte not ASCII), or 0 when it is
// ill-formed: overlong forms, surrogates and code points past U+10FFFF are refused.
size_t utf8SequenceLength(const unsigned char* s, size_t available);

// Appends the code point (at most U+10FFFF) as UTF-8.
void appendUtf8(std::string& out, uint32_t code);

} // namespace kit::support
