// SPDX-License-Identifier: MIT
#include "kit/web/page_notifications.h"

#include <gtest/gtest.h>

namespace kit::web {
namespace {

using library::ShortcutID;

TEST(PageNotifications, WhatASiteAskingGetsAndWhatReachesTheDesktop)
{
    // Each row: the global switch, the shortcut's, the remembered answer; then what asking
    // gets and whether a notification arriving now is shown.
    const struct
    {
        bool global;
        bool shortcut;
        SiteAnswer answer;
        PermissionStep step;
        bool shown;
    } rows[] = {
        {true, true, SiteAnswer::Unasked, PermissionStep::Ask, false},
        {true, true, SiteAnswer::Allowed, PermissionStep::Grant, true},
        {true, true, SiteAnswer::Refused, PermissionStep::Refuse, false},
        // Off never asks, so an answer is not taken while the person cannot mean it.
        {false, true, SiteAnswer::Unasked, PermissionStep::Refuse, false},
        {true, false, SiteAnswer::Unasked, PermissionStep::Refuse, false},
        // A site allowed before is silenced by either switch.
        {false, true, SiteAnswer::Allowed, PermissionStep::Refuse, false},
        {true, false, SiteAnswer::Allowed, PermissionStep::Refuse, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.global << row.shortcut << int(row.answer));
        EXPECT_EQ(permissionStep(row.global, row.shortcut, row.answer), row.step);
        EXPECT_EQ(delivers(row.global, row.shortcut, row.answer), row.shown);
    }
}

TEST(PageNotifications, ANotificationBelongsToThePageOnItsSite)
{
    const auto mail = ShortcutID::make();
    const auto chat = ShortcutID::make();
    const auto other = ShortcutID::make();
    const std::vector<OpenPage> pages = {{mail, "https://mail.example"},
                                         {chat, "https://chat.example"},
                                         {other, "https://chat.example"}};
    const struct
    {
        std::string site;
        std::optional<ShortcutID> expected;
    } rows[] = {
        {"https://mail.example", mail},
        {"https://chat.example", chat},
        // Same host, another scheme or port: another site.
        {"http://mail.example", std::nullopt},
        {"https://mail.example:8443", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.site);
        EXPECT_EQ(notifyingShortcut(pages, row.site), row.expected);
    }
}

TEST(PageNotifications, TheSitesTextIsShownAsText)
{
    const struct
    {
        const char* name;
        std::string shortcut, title, body;
        DesktopNotice expected;
    } rows[] = {
        {"plain", "Mail", "New message", "From Ann", {"Mail", "Mail: New message", "From Ann"}},
        {"no title", "Mail", "", "x", {"Mail", "Mail", "x"}},
        {"markup in the body is escaped",
         "Mail",
         "<b>Hi</b>",
         "<a href='x'>click</a> & more",
         {"Mail", "Mail: <b>Hi</b>", "&lt;a href='x'&gt;click&lt;/a&gt; &amp; more"}},
        {"line breaks stay, other controls show",
         "Mail",
         "a\tb",
         "one\r\ntwo\x1b",
         {"Mail", "Mail: a\u2409b", "one\ntwo\u241b"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(composeNotice(row.shortcut, row.title, row.body), row.expected);
    }

    // A flood is cut between characters, never inside one.
    const auto long_ = composeNotice("Mail", std::string(199, 'a') + "é", std::string(2000, '&'));
    EXPECT_EQ(long_.summary, "Mail: " + std::string(199, 'a') + "…");
    EXPECT_EQ(long_.body.find("&amp;&amp;…"),
              long_.body.size() - std::string("&amp;&amp;…").size());
}

TEST(PageNotifications, AnswersAreRememberedPerSessionAndSite)
{
    settings::MemoryKeyValueStore store;
    NotificationSites sites(store);
    const auto work = support::Uuid::random();
    const std::optional<support::Uuid> shared;

    sites.remember(work, "https://mail.example", true);
    sites.remember(work, "https://ads.example", false);
    sites.remember(shared, "https://mail.example", false);
    // Not a site: never stored, so never read back as one.
    sites.remember(work, "https://x.example\n+https://evil.example", true);
    sites.remember(work, "", true);

    const struct
    {
        std::optional<support::Uuid> session;
        std::string site;
        SiteAnswer expected;
    } rows[] = {
        {work, "https://mail.example", SiteAnswer::Allowed},
        {work, "https://ads.example", SiteAnswer::Refused},
        {shared, "https://mail.example", SiteAnswer::Refused},
        {shared, "https://ads.example", SiteAnswer::Unasked},
        {work, "https://evil.example", SiteAnswer::Unasked},
        {support::Uuid::random(), "https://mail.example", SiteAnswer::Unasked},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.site);
        EXPECT_EQ(sites.answer(row.session, row.site), row.expected);
    }

    // A new answer replaces the old; taking it back asks again.
    sites.remember(work, "https://ads.example", true);
    EXPECT_EQ(sites.answer(work, "https://ads.example"), SiteAnswer::Allowed);
    sites.forget(work, "https://mail.example");
    EXPECT_EQ(sites.answer(work, "https://mail.example"), SiteAnswer::Unasked);
    const std::vector<std::pair<std::string, bool>> left = {{"https://ads.example", true}};
    EXPECT_EQ(sites.sites(work), left);
    sites.forget(work, "https://ads.example");
    EXPECT_FALSE(store.value(NotificationSites::key(work)));

    // Bounded: the oldest answers go first.
    for (size_t n = 0; n <= NotificationSites::kMostSites; ++n) {
        sites.remember(shared, "https://s" + std::to_string(n) + ".example", true);
    }
    EXPECT_EQ(sites.sites(shared).size(), NotificationSites::kMostSites);
    EXPECT_EQ(sites.answer(shared, "https://mail.example"), SiteAnswer::Unasked);
    EXPECT_EQ(sites.answer(shared, "https://s0.example"), SiteAnswer::Unasked);
    EXPECT_EQ(sites.answer(shared, "https://s1.example"), SiteAnswer::Allowed);
}

TEST(PageNotifications, EachNotificationOpensItsShortcutOnce)
{
    NoticeRoutes routes;
    const auto first = ShortcutID::make();
    for (std::uint32_t id = 1; id <= NoticeRoutes::kMost + 1; ++id) {
        routes.add(id, id == 2 ? first : ShortcutID::make());
    }
    EXPECT_EQ(routes.take(1), std::nullopt) << "the oldest went";
    EXPECT_EQ(routes.take(2), first);
    EXPECT_EQ(routes.take(2), std::nullopt);
    EXPECT_EQ(routes.take(999), std::nullopt);
}

} // namespace
} // namespace kit::web
