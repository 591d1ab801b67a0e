// SPDX-License-Identifier: MIT
// Bar files, the bar list and the session list as read from disk: any bytes must decode or fail
// with a DecodeError, never crash; whatever decodes must encode and decode back to itself.
#include "kit/library/library_json.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kit::library;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        Library library = decodeLibrary(text);
        library.validate({});
        std::unordered_set<ShortcutID> seen;
        Library repaired = library.repaired(seen, {});
        if (decodeLibrary(encodeLibrary(repaired)) != repaired) {
            std::abort();
        }
        repaired.outline({});
    } catch (const DecodeError&) {
    }
    try {
        decodeBarIndex(text);
    } catch (const DecodeError&) {
    }
    try {
        decodeSessionIndex(text);
    } catch (const DecodeError&) {
    }
    return 0;
}
