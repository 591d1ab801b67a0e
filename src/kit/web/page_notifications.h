// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/ids.h"
#include "kit/settings/key_value_store.h"
#include "kit/support/uuid.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit::web {

// What the person answered when a site of a session asked to notify.
enum class SiteAnswer { Unasked, Allowed, Refused };

// What a site asking to notify gets.
enum class PermissionStep { Grant, Refuse, Ask };

// Refused without a question while notifications are off globally or for the shortcut (so
// turning them on later still asks), else what the person answered before, else the question.
PermissionStep permissionStep(bool allowedGlobally, bool shortcutNotifies, SiteAnswer answer);

// Whether a notification arriving now is shown: a switch turned off since the site was allowed
// silences it, and so does an answer taken back.
bool delivers(bool allowedGlobally, bool shortcutNotifies, SiteAnswer answer);

// A page open in one profile, with the site (scheme://host[:port]) it shows.
struct OpenPage
{
    library::ShortcutID shortcut;
    std::string site;

    bool operator==(const OpenPage&) const = default;
};

// The shortcut a profile's notification from `site` belongs to: the first of its pages on that
// site. None when no page of the profile shows the site any more.
std::optional<library::ShortcutID> notifyingShortcut(const std::vector<OpenPage>& pages,
                                                     const std::string& site);

// A notification as the desktop's notification service takes it. The service reads markup in
// the body, so the site's text has it escaped; control characters are made visible and long
// texts cut.
struct DesktopNotice
{
    std::string appName;
    std::string summary;
    std::string body;

    bool operator==(const DesktopNotice&) const = default;
};

DesktopNotice
composeNotice(const std::string& shortcutName, const std::string& title, const std::string& body);

// The sites each session allowed or refused to notify, kept in the settings store so a site is
// asked once. No session is the shared profile. Main thread; the store must outlive this object.
class NotificationSites
{
public:
    static constexpr const char* kKeyPrefix = "pageNotificationSites.";
    // More than anyone answers; past it the oldest answers go.
    static constexpr size_t kMostSites = 500;

    explicit NotificationSites(settings::KeyValueStore& store);

    SiteAnswer answer(const std::optional<support::Uuid>& session, const std::string& site) const;
    // A site that cannot be a site (empty, too long, control characters) is not remembered.
    void
    remember(const std::optional<support::Uuid>& session, const std::string& site, bool allowed);
    void forget(const std::optional<support::Uuid>& session, const std::string& site);
    // In the order they were answered.
    std::vector<std::pair<std::string, bool>>
    sites(const std::optional<support::Uuid>& session) const;

    static std::string key(const std::optional<support::Uuid>& session);

private:
    void store(const std::optional<support::Uuid>& session,
               const std::vector<std::pair<std::string, bool>>& sites);

    settings::KeyValueStore& m_store;
};

// Which shortcut each shown notification opens, by the service's id. Bounded: the oldest go.
class NoticeRoutes
{
public:
    static constexpr size_t kMost = 100;

    void add(std::uint32_t id, const library::ShortcutID& shortcut);
    // Each notification opens once.
    std::optional<library::ShortcutID> take(std::uint32_t id);

private:
    std::deque<std::pair<std::uint32_t, library::ShortcutID>> m_routes;
};

} // namespace kit::web
