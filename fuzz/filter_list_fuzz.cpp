// SPDX-License-Identifier: MIT
// Filter-list text through the parser and converter; whatever comes out must compile.
#include "kit/blocking/filter_list.h"

#include "kit/blocking/matcher.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <variant>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto conversion = kit::blocking::convertFilterLists({text});
    auto compiled = kit::blocking::Matcher::compile(conversion.json);
    // The converter only writes rules the matcher accepts.
    if (std::holds_alternative<std::string>(compiled)) {
        std::abort();
    }
    const auto& matcher = std::get<kit::blocking::Matcher>(compiled);
    (void)matcher.decide({"https://ads.example.com/banner/ad.js?x=1",
                          "https://news.example.org/",
                          kit::blocking::ResourceType::Script});
    (void)matcher.hiddenSelectors("https://news.example.org/story");
    return 0;
}
