// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::web {

// A site's icon as kept in the support folder: the picture's file beside the index, when the
// search ran (seconds since 1970) and the address the picture came from. An empty file records a
// search that found nothing.
struct KeptIcon
{
    std::string file;
    int64_t fetched = 0;
    std::string source;

    bool operator==(const KeptIcon&) const = default;
};

// The kept icons by site host.
struct KeptIconIndex
{
    std::map<std::string, KeptIcon> sites;

    bool operator==(const KeptIconIndex&) const = default;
};

inline constexpr const char* kKeptIconFolder = "site-icons";
inline constexpr const char* kKeptIconIndexFile = "index.json";
inline constexpr size_t kKeptIconIndexLimit = size_t{4} * 1024 * 1024;
inline constexpr size_t kKeptIconSites = 10000;
// A kept icon is fetched again in the background after this long...
inline constexpr int64_t kRefreshSeconds = int64_t{30} * 24 * 3600;
// ...and a search that found nothing is tried again after this long.
inline constexpr int64_t kRetrySeconds = int64_t{24} * 3600;

std::string encodeKeptIcons(const KeptIconIndex& index);
// Throws support::JsonReadError with a one-line reason. Entries naming a file outside the
// folder are dropped, not followed.
KeptIconIndex decodeKeptIcons(std::string_view text);

// The host whose icon an address wears: only for http(s) addresses with a host.
std::optional<std::string> siteOf(std::string_view address);
// The picture's file name for a host: its letters, digits, dots and dashes, and ".png".
std::string keptFileName(std::string_view host);
// Whether the host's icon is to be searched for now: never searched, stale, or a failure old
// enough to try again.
bool isDue(const KeptIconIndex& index, std::string_view host, int64_t now);

// Records a search that ended: the picture found, or none. A failed refresh keeps the picture
// it had and is tried again after kRetrySeconds, like a site that never had one.
void recordSearch(KeptIconIndex& index,
                  const std::string& host,
                  std::optional<KeptIcon> found,
                  int64_t now);

// Whether a shortcut wears its site's icon: a web link without an icon of its own.
bool wearsSiteIcon(const library::Shortcut& shortcut);

// The page addresses to search once after start: one per site not kept or due, over all of
// the library's shortcuts, groups' members included.
std::vector<std::string>
searchesAtStart(const library::Library& library, const KeptIconIndex& index, int64_t now);
// The page addresses to search after a change: shortcuts added or whose address changed, for
// sites without a fresh kept icon.
std::vector<std::string> searchesAfterChange(const library::Library& before,
                                             const library::Library& after,
                                             const KeptIconIndex& index,
                                             int64_t now);

} // namespace kit::web
