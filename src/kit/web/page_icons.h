// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::web {

// One picture a site offers as its icon, its address already resolved.
struct IconCandidate
{
    enum class Origin {
        Link,      // <link rel="icon"> and "shortcut icon"
        TouchIcon, // <link rel="apple-touch-icon">
        Manifest,  // a web-app manifest's `icons`
        Favicon,   // /favicon.ico at the site's root
    };

    std::string address;
    Origin origin = Origin::Link;
    std::vector<int> sides; // the square sizes declared, in pixels; empty when unknown
    bool scalable = false;  // SVG, or sizes="any"

    bool operator==(const IconCandidate&) const = default;
};

// What a page's markup says about its icons.
struct PageHead
{
    std::vector<IconCandidate> icons;
    std::optional<std::string> manifest;

    bool operator==(const PageHead&) const = default;
};

// Bounds on what is read from a site.
inline constexpr size_t kPageScanLimit = size_t{512} * 1024;
inline constexpr size_t kManifestLimit = size_t{256} * 1024;
inline constexpr size_t kCandidateLimit = 32;

// An address in `reference` resolved against `base`, without its fragment; nothing unless the
// result is an http(s) address with a host (so no data:, file: or javascript: icons).
std::optional<std::string> resolveAddress(std::string_view base, std::string_view reference);

// The icon links and the manifest link in a page, resolved against the page's address (or its
// <base href>). Reads at most kPageScanLimit bytes; any bytes give an answer.
PageHead scanPage(std::string_view html, std::string_view pageAddress);

// The icons a web-app manifest lists, resolved against the manifest's address. Throws
// support::JsonReadError with a one-line reason when it is no manifest.
std::vector<IconCandidate> readManifest(std::string_view json, std::string_view manifestAddress);

// The site's /favicon.ico; nothing for an address that is not http(s).
std::optional<IconCandidate> favicon(std::string_view pageAddress);

// The candidates best first for drawing squares of `wanted` pixels: the smallest at or above it,
// then scalable ones, then the largest below it, then those of unknown size; each address once.
std::vector<IconCandidate> ranked(std::vector<IconCandidate> candidates, int wanted);

// The steps of finding a site's icon: the page, its manifest when it names one, then the
// candidates in order until one decodes. Decides what to fetch; the caller fetches and decodes.
class IconSearch
{
public:
    enum class Step {
        Page,
        Manifest,
        Image,
    };
    struct Request
    {
        Step step = Step::Page;
        std::string address;

        bool operator==(const Request&) const = default;
    };

    // Images tried before the search gives up.
    static constexpr int kImageTries = 5;

    IconSearch(std::string pageAddress, int wanted);

    // What to fetch now; nothing once the search is over.
    const std::optional<Request>& next() const { return m_next; }
    // The current page or manifest arrived; `finalAddress` is where redirects ended.
    void read(std::string_view body, std::string_view finalAddress);
    // The current request failed, or its image did not decode.
    void failed();
    // The current image decoded: the search is over.
    void found();

    // The image that decoded.
    const std::optional<std::string>& chosen() const { return m_chosen; }
    const std::string& pageAddress() const { return m_page; }
    int wanted() const { return m_wanted; }

private:
    void startImages();
    void nextImage();

    std::string m_page;
    int m_wanted;
    std::optional<Request> m_next;
    std::vector<IconCandidate> m_candidates;
    size_t m_position = 0;
    int m_tries = 0;
    std::optional<std::string> m_chosen;
};

} // namespace kit::web
