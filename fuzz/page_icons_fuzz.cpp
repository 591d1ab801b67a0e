// SPDX-License-Identifier: MIT
// A site's page and manifest as they arrive. Any bytes must scan or fail with a JsonReadError,
// never crash; every icon found must be an http(s) address; and the search must end.
#include "kit/web/page_icons.h"

#include "kit/support/json_reader.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kit::web;

namespace {

void checkAddress(const std::string& address)
{
    if (!address.starts_with("http://") && !address.starts_with("https://")) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    PageHead head = scanPage(text, "https://example.com/a/b.html");
    for (const auto& icon : head.icons) {
        checkAddress(icon.address);
    }
    if (head.icons.size() > kCandidateLimit) {
        std::abort();
    }
    if (head.manifest) {
        checkAddress(*head.manifest);
    }
    try {
        for (const auto& icon : readManifest(text, "https://example.com/m.json")) {
            checkAddress(icon.address);
        }
    } catch (const kit::support::JsonReadError&) {
    }
    if (auto resolved = resolveAddress("https://example.com/a/b", text.substr(0, 4096))) {
        checkAddress(*resolved);
    }
    // Page, manifest, then images that never decode: the search gives up after a bounded number.
    IconSearch search("https://example.com/", 32);
    search.read(text, "");
    search.read(text, "");
    int steps = 0;
    while (search.next()) {
        search.failed();
        if (++steps > IconSearch::kImageTries + 2) {
            std::abort();
        }
    }
    return 0;
}
