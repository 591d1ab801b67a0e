// SPDX-License-Identifier: MIT
#include "kit/web/page_notifications.h"

#include "kit/support/visible_text.h"

#include <algorithm>
#include <sstream>

namespace kit::web {

namespace {

// Past these a notification is a page's mistake or an abuse, not a message.
constexpr size_t kMostTitleBytes = 200;
constexpr size_t kMostBodyBytes = 1000;
constexpr size_t kMostSiteBytes = 300;
// The stored answers of one session: kMostSites lines of a bounded site each.
constexpr size_t kMostStoredBytes = NotificationSites::kMostSites * (kMostSiteBytes + 3);

// At most `most` bytes, cut between characters, with an ellipsis when cut.
std::string cut(std::string text, size_t most)
{
    if (text.size() <= most) {
        return text;
    }
    size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    text.resize(end);
    return text + "…";
}

std::string escapeMarkup(const std::string& text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

// Line breaks stay breaks; every other control shows.
std::string visibleLines(const std::string& text)
{
    std::string out;
    std::istringstream lines(text);
    std::string line;
    bool first = true;
    while (std::getline(lines, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!first) {
            out += '\n';
        }
        first = false;
        out += support::visibleText(line);
    }
    return out;
}

bool isSite(const std::string& site)
{
    return !site.empty() && site.size() <= kMostSiteBytes
           && std::none_of(site.begin(), site.end(), [](char c) {
                  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
              });
}

} // namespace

PermissionStep permissionStep(bool allowedGlobally, bool shortcutNotifies, SiteAnswer answer)
{
    if (!allowedGlobally || !shortcutNotifies) {
        return PermissionStep::Refuse;
    }
    switch (answer) {
    case SiteAnswer::Allowed:
        return PermissionStep::Grant;
    case SiteAnswer::Refused:
        return PermissionStep::Refuse;
    case SiteAnswer::Unasked:
        break;
    }
    return PermissionStep::Ask;
}

bool delivers(bool allowedGlobally, bool shortcutNotifies, SiteAnswer answer)
{
    return allowedGlobally && shortcutNotifies && answer == SiteAnswer::Allowed;
}

std::optional<library::ShortcutID> notifyingShortcut(const std::vector<OpenPage>& pages,
                                                     const std::string& site)
{
    const auto found = std::find_if(
        pages.begin(), pages.end(), [&](const OpenPage& page) { return page.site == site; });
    if (found == pages.end() || site.empty()) {
        return std::nullopt;
    }
    return found->shortcut;
}

DesktopNotice
composeNotice(const std::string& shortcutName, const std::string& title, const std::string& body)
{
    DesktopNotice notice;
    notice.appName = support::visibleText(shortcutName);
    const std::string shownTitle = cut(support::visibleText(title), kMostTitleBytes);
    // The shortcut's name leads, so a notification says whose it is even where the service
    // hides the app's name.
    notice.summary = shownTitle.empty() ? notice.appName : notice.appName + ": " + shownTitle;
    notice.body = escapeMarkup(cut(visibleLines(body), kMostBodyBytes));
    return notice;
}

NotificationSites::NotificationSites(settings::KeyValueStore& store)
    : m_store(store)
{}

std::string NotificationSites::key(const std::optional<support::Uuid>& session)
{
    return std::string(kKeyPrefix) + (session ? session->string() : std::string("Default"));
}

// One line per site: "+" allowed or "-" refused, then the site.
std::vector<std::pair<std::string, bool>>
NotificationSites::sites(const std::optional<support::Uuid>& session) const
{
    std::vector<std::pair<std::string, bool>> sites;
    const auto value = m_store.value(key(session));
    const auto* text = value ? std::get_if<std::string>(&*value) : nullptr;
    if (!text || text->size() > kMostStoredBytes) {
        return sites;
    }
    std::istringstream lines(*text);
    std::string line;
    while (std::getline(lines, line) && sites.size() < kMostSites) {
        if (line.size() < 2 || (line[0] != '+' && line[0] != '-') || !isSite(line.substr(1))) {
            continue;
        }
        sites.emplace_back(line.substr(1), line[0] == '+');
    }
    return sites;
}

SiteAnswer NotificationSites::answer(const std::optional<support::Uuid>& session,
                                     const std::string& site) const
{
    for (const auto& [known, allowed] : sites(session)) {
        if (known == site) {
            return allowed ? SiteAnswer::Allowed : SiteAnswer::Refused;
        }
    }
    return SiteAnswer::Unasked;
}

void NotificationSites::remember(const std::optional<support::Uuid>& session,
                                 const std::string& site,
                                 bool allowed)
{
    if (!isSite(site)) {
        return;
    }
    auto known = sites(session);
    std::erase_if(known, [&](const auto& entry) { return entry.first == site; });
    known.emplace_back(site, allowed);
    if (known.size() > kMostSites) {
        known.erase(known.begin(), known.end() - kMostSites);
    }
    store(session, known);
}

void NotificationSites::forget(const std::optional<support::Uuid>& session, const std::string& site)
{
    auto known = sites(session);
    if (std::erase_if(known, [&](const auto& entry) { return entry.first == site; }) > 0) {
        store(session, known);
    }
}

void NotificationSites::store(const std::optional<support::Uuid>& session,
                              const std::vector<std::pair<std::string, bool>>& sites)
{
    if (sites.empty()) {
        m_store.remove(key(session));
        return;
    }
    std::string text;
    for (const auto& [site, allowed] : sites) {
        text += (allowed ? '+' : '-') + site + '\n';
    }
    m_store.setValue(key(session), text);
}

void NoticeRoutes::add(std::uint32_t id, const library::ShortcutID& shortcut)
{
    std::erase_if(m_routes, [id](const auto& route) { return route.first == id; });
    m_routes.emplace_back(id, shortcut);
    if (m_routes.size() > kMost) {
        m_routes.pop_front();
    }
}

std::optional<library::ShortcutID> NoticeRoutes::take(std::uint32_t id)
{
    const auto found = std::find_if(
        m_routes.begin(), m_routes.end(), [id](const auto& r) { return r.first == id; });
    if (found == m_routes.end()) {
        return std::nullopt;
    }
    auto shortcut = found->second;
    m_routes.erase(found);
    return shortcut;
}

} // namespace kit::web
