// SPDX-License-Identifier: MIT
#include "kit/web/kept_icons.h"

#include "kit/library/web_address.h"
#include "kit/support/json_reader.h"
#include "kit/support/json_writer.h"

#include <unordered_map>
#include <unordered_set>

namespace kit::web {

using library::Library;
using library::Shortcut;
using library::WebAddress;

namespace {

constexpr int kIndexDepth = 8;
constexpr int kIndexVersion = 1;

bool isSafeFileName(std::string_view name)
{
    if (name.empty() || name.size() > 255 || name == "." || name == ".."
        || name == kKeptIconIndexFile) {
        return false;
    }
    for (char c : name) {
        bool allowed =
            (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
        if (!allowed) {
            return false;
        }
    }
    return name.front() != '.';
}

// Each shortcut wearing its site's icon, with its address, by id.
std::unordered_map<library::ShortcutID, std::string> siteAddresses(const Library& library)
{
    std::unordered_map<library::ShortcutID, std::string> result;
    for (const Shortcut* shortcut : library.allShortcuts()) {
        if (wearsSiteIcon(*shortcut)) {
            result.emplace(shortcut->id, shortcut->target.urlTarget()->url);
        }
    }
    return result;
}

} // namespace

std::string encodeKeptIcons(const KeptIconIndex& index)
{
    support::PrettyJsonWriter out;
    out.beginObject();
    out.key("sites");
    out.beginObject();
    for (const auto& [host, kept] : index.sites) {
        out.key(host);
        out.beginObject();
        out.key("fetched");
        out.value(kept.fetched);
        out.key("file");
        out.value(kept.file);
        out.key("source");
        out.value(kept.source);
        out.endObject();
    }
    out.endObject();
    out.key("version");
    out.value(kIndexVersion);
    out.endObject();
    return out.take();
}

KeptIconIndex decodeKeptIcons(std::string_view text)
{
    if (text.size() > kKeptIconIndexLimit) {
        throw support::JsonReadError("The icon index is larger than "
                                     + std::to_string(kKeptIconIndexLimit / (size_t{1024} * 1024))
                                     + " MiB.");
    }
    support::JsonReader reader(text, kIndexDepth);
    KeptIconIndex index;
    reader.readObject([&](std::string_view key) {
        if (key != "sites") {
            reader.skipValue();
            return;
        }
        reader.readObject([&](std::string_view host) {
            std::string site(host);
            KeptIcon kept;
            reader.readObject([&](std::string_view field) {
                if (field == "file") {
                    kept.file = reader.readString();
                } else if (field == "source") {
                    kept.source = reader.readString();
                } else if (field == "fetched") {
                    double seconds = reader.readDouble();
                    // Out of range times read as "long ago", which makes the icon due.
                    kept.fetched =
                        seconds >= 0 && seconds < 1e15 ? static_cast<int64_t>(seconds) : 0;
                } else {
                    reader.skipValue();
                }
            });
            if (site.empty() || index.sites.size() >= kKeptIconSites) {
                return;
            }
            if (!kept.file.empty() && !isSafeFileName(kept.file)) {
                return;
            }
            index.sites[site] = std::move(kept);
        });
    });
    reader.expectEnd();
    return index;
}

std::optional<std::string> siteOf(std::string_view address)
{
    auto parts = WebAddress::parts(address);
    if (!parts || (parts->scheme != "http" && parts->scheme != "https") || parts->host.empty()) {
        return std::nullopt;
    }
    return parts->host;
}

std::string keptFileName(std::string_view host)
{
    std::string name;
    for (char c : host) {
        bool kept = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
        if (c >= 'A' && c <= 'Z') {
            name += static_cast<char>(c - 'A' + 'a');
        } else {
            name += kept ? c : '_';
        }
    }
    if (name.empty() || name.front() == '.') {
        name.insert(0, "_");
    }
    name = name.substr(0, 200);
    return name + ".png";
}

bool isDue(const KeptIconIndex& index, std::string_view host, int64_t now)
{
    auto found = index.sites.find(std::string(host));
    if (found == index.sites.end()) {
        return true;
    }
    const KeptIcon& kept = found->second;
    const int64_t wait = kept.file.empty() ? kRetrySeconds : kRefreshSeconds;
    // A time ahead of the clock (the clock was set back) counts as old.
    return kept.fetched > now || now - kept.fetched >= wait;
}

void recordSearch(KeptIconIndex& index,
                  const std::string& host,
                  std::optional<KeptIcon> found,
                  int64_t now)
{
    if (found) {
        found->fetched = now;
        index.sites[host] = std::move(*found);
        return;
    }
    KeptIcon& kept = index.sites[host];
    kept.fetched = kept.file.empty() ? now : now - kRefreshSeconds + kRetrySeconds;
}

bool wearsSiteIcon(const Shortcut& shortcut)
{
    const auto* url = shortcut.target.urlTarget();
    return url && !shortcut.icon && siteOf(url->url).has_value();
}

std::vector<std::string>
searchesAtStart(const Library& library, const KeptIconIndex& index, int64_t now)
{
    std::vector<std::string> result;
    std::unordered_set<std::string> hosts;
    for (const Shortcut* shortcut : library.allShortcuts()) {
        if (!wearsSiteIcon(*shortcut)) {
            continue;
        }
        const std::string& address = shortcut->target.urlTarget()->url;
        auto host = siteOf(address);
        if (isDue(index, *host, now) && hosts.insert(*host).second) {
            result.push_back(address);
        }
    }
    return result;
}

std::vector<std::string> searchesAfterChange(const Library& before,
                                             const Library& after,
                                             const KeptIconIndex& index,
                                             int64_t now)
{
    const auto earlier = siteAddresses(before);
    std::vector<std::string> result;
    std::unordered_set<std::string> hosts;
    for (const auto* shortcut : after.allShortcuts()) {
        if (!wearsSiteIcon(*shortcut)) {
            continue;
        }
        const std::string& address = shortcut->target.urlTarget()->url;
        auto was = earlier.find(shortcut->id);
        if (was != earlier.end() && was->second == address) {
            continue;
        }
        auto host = siteOf(address);
        if (isDue(index, *host, now) && hosts.insert(*host).second) {
            result.push_back(address);
        }
    }
    return result;
}

} // namespace kit::web
