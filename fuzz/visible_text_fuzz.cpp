// SPDX-License-Identifier: MIT
// Names and titles as they arrive. Whatever the bytes, the shown text must be valid UTF-8 with no
// control character left to act on a terminal, and showing it again must change nothing.
#include "kit/support/visible_text.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string shown = kit::support::visibleText(text);
    for (char c : shown) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            std::abort();
        }
    }
    if (kit::support::validUtf8(shown) != shown || kit::support::visibleText(shown) != shown) {
        std::abort();
    }
    if (kit::support::validUtf8(text).size() < size) {
        std::abort(); // every byte is kept or replaced, never dropped
    }
    return 0;
}
