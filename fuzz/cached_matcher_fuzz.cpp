// SPDX-License-Identifier: MIT
// Bytes through the cached-matcher loader, both as they are and with the header refitted so the
// checksum passes and the structural checks are what stands between the bytes and a decision.
#include "kit/blocking/matcher.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace {

void exercise(std::string_view bytes)
{
    if (auto matcher = kit::blocking::Matcher::load(bytes)) {
        for (const char* url : {"https://ads.example.com/banner.gif", "http://a.b.ck/x?y", ""}) {
            (void)matcher->decide(
                {url, "https://www.example.co.uk/", kit::blocking::ResourceType::Image});
        }
        (void)matcher->hiddenSelectors("https://www.example.co.uk/");
        (void)matcher->registrableDomain("a.b.c.example.co.uk");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string bytes(reinterpret_cast<const char*>(data), size);
    exercise(bytes);
    exercise(kit::blocking::Matcher::resealed(std::move(bytes)));
    return 0;
}
