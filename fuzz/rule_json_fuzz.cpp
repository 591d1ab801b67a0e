// SPDX-License-Identifier: MIT
// Rule JSON through the matcher compiler, then a few decisions with what compiled.
#include "kit/blocking/matcher.h"

#include <cstdint>
#include <string_view>
#include <variant>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto compiled = kit::blocking::Matcher::compile(text, "com\nco.uk\n*.ck\n!www.ck\n");
    if (auto* matcher = std::get_if<kit::blocking::Matcher>(&compiled)) {
        for (const char* url : {"https://a.b.example.com:8080/p/ad.js?q=1#f",
                                "http://x/",
                                "data:,",
                                "wss://A.ck/Track^",
                                ""}) {
            (void)matcher->decide(
                {url, "https://www.site.co.uk/page", kit::blocking::ResourceType::Image});
            (void)matcher->decide({url, url, kit::blocking::ResourceType::Document});
        }
        (void)matcher->hiddenSelectors("https://www.site.co.uk/");
        auto reloaded = kit::blocking::Matcher::load(matcher->serialize());
        if (!reloaded) {
            __builtin_trap();
        }
    }
    return 0;
}
