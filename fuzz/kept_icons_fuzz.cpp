// SPDX-License-Identifier: MIT
// The kept-icon index as read from the support folder. Any bytes must decode or fail with a
// JsonReadError; no entry may name a file outside its folder; what decodes survives a round trip.
#include "kit/web/kept_icons.h"

#include "kit/support/json_reader.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kit::web;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    KeptIconIndex index;
    try {
        index = decodeKeptIcons(text);
    } catch (const kit::support::JsonReadError&) {
        return 0;
    }
    for (const auto& [host, kept] : index.sites) {
        if (kept.file.find('/') != std::string::npos || kept.file.starts_with(".")) {
            std::abort();
        }
        if (keptFileName(host).find('/') != std::string::npos) {
            std::abort();
        }
    }
    if (decodeKeptIcons(encodeKeptIcons(index)) != index) {
        std::abort();
    }
    return 0;
}
