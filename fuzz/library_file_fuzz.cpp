// SPDX-License-Identifier: MIT
// Bar files, the bar list and the session list as read from disk. Any bytes must decode or fail
// with a DecodeError, never crash; the streamed reading must agree with the record codings; and
// whatever decodes must survive repair and a round trip.
#include "kit/library/library_json.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

using namespace kit::library;

namespace {

template <class Decode> auto attempt(Decode decode) -> std::optional<decltype(decode())>
{
    try {
        return decode();
    } catch (const DecodeError&) {
        return std::nullopt;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto streamed = attempt([&] { return decodeLibrary(text); });
    auto tree = attempt([&] { return reference::decodeLibrary(text); });
    if (streamed && tree && *streamed != *tree) {
        std::abort();
    }
    if (streamed) {
        streamed->validate({});
        std::unordered_set<ShortcutID> seen;
        Library repaired = streamed->repaired(seen, {});
        std::string encoded = encodeLibrary(repaired);
        if (encoded != reference::encodeLibrary(repaired) || decodeLibrary(encoded) != repaired) {
            std::abort();
        }
        repaired.outline({});
    }
    attempt([&] { return decodeBarIndex(text); });
    attempt([&] { return decodeSessionIndex(text); });
    attempt([&] { return decodeLegacySessions(text); });
    return 0;
}
