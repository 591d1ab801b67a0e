// SPDX-License-Identifier: MIT
#include "kit/web/kept_icons.h"

#include "kit/library/fixtures.h"
#include "kit/support/json_reader.h"

#include <gtest/gtest.h>

using namespace kit::web;
using namespace testing_support;

namespace {

constexpr int64_t kNow = 1'800'000'000;
constexpr int64_t kDay = 24 * 3600;

KeptIconIndex index(std::initializer_list<std::pair<const std::string, KeptIcon>> sites)
{
    return KeptIconIndex{std::map<std::string, KeptIcon>(sites)};
}

Shortcut withSymbol(Shortcut shortcut)
{
    shortcut.icon = IconOverride::symbol("mail-unread");
    return shortcut;
}

} // namespace

TEST(KeptIcons, RoundTripsAndDropsEntriesThatNameFilesElsewhere)
{
    auto kept = index({{"a.example", {"a.example.png", kNow, "https://a.example/favicon.ico"}},
                       {"down.example", {"", kNow - 5, ""}}});
    EXPECT_EQ(decodeKeptIcons(encodeKeptIcons(kept)), kept);
    auto read = decodeKeptIcons(R"({"sites":{
        "a":{"file":"../../.bashrc","fetched":1},
        "b":{"file":"/etc/passwd","fetched":1},
        "c":{"file":".hidden.png","fetched":1},
        "d":{"file":"index.json","fetched":1},
        "e":{"file":"e.png","fetched":-4,"extra":[1,2]}},"version":9})");
    EXPECT_EQ(read, index({{"e", {"e.png", 0, ""}}}));
    EXPECT_THROW(decodeKeptIcons(R"({"sites":{"a":{"file":3}}})"), kit::support::JsonReadError);
    EXPECT_THROW(decodeKeptIcons(std::string(100, '{')), kit::support::JsonReadError);
    // The names it makes stay in the folder too.
    EXPECT_EQ(keptFileName("mail.example.com"), "mail.example.com.png");
    EXPECT_EQ(keptFileName("::1"), "__1.png");
    EXPECT_EQ(keptFileName(".."), "_...png");
}

TEST(KeptIcons, DueWhenNeverSearchedStaleOrAFailureOfYesterday)
{
    auto kept = index({{"fresh", {"f.png", kNow - 29 * kDay, ""}},
                       {"stale", {"s.png", kNow - 30 * kDay, ""}},
                       {"failed", {"", kNow - kDay + 60, ""}},
                       {"failed-long-ago", {"", kNow - kDay, ""}},
                       {"ahead", {"a.png", kNow + kDay, ""}}});
    EXPECT_FALSE(isDue(kept, "fresh", kNow));
    EXPECT_TRUE(isDue(kept, "stale", kNow));
    EXPECT_FALSE(isDue(kept, "failed", kNow));
    EXPECT_TRUE(isDue(kept, "failed-long-ago", kNow));
    EXPECT_TRUE(isDue(kept, "ahead", kNow));
    EXPECT_TRUE(isDue(kept, "unknown", kNow));
}

TEST(KeptIcons, AFailedRefreshKeepsThePictureAndTriesAgainAfterADay)
{
    auto kept = index({{"a.example", {"a.example.png", kNow - 40 * kDay, "https://a.example/i"}}});
    recordSearch(kept, "a.example", std::nullopt, kNow);
    recordSearch(kept, "gone.example", std::nullopt, kNow);
    EXPECT_EQ(kept.sites["a.example"].file, "a.example.png");
    for (const char* host : {"a.example", "gone.example"}) {
        EXPECT_FALSE(isDue(kept, host, kNow + kDay - 1)) << host;
        EXPECT_TRUE(isDue(kept, host, kNow + kDay)) << host;
    }
    recordSearch(kept, "gone.example", KeptIcon{"gone.example.png", 0, "https://g/i"}, kNow);
    EXPECT_EQ(kept.sites["gone.example"], (KeptIcon{"gone.example.png", kNow, "https://g/i"}));
}

TEST(KeptIcons, SearchesAtStartOncePerSiteWithoutAKeptIcon)
{
    Library library;
    library.shortcuts = {webLink("A", "https://a.example/1"),
                         webLink("A2", "https://a.example/2"),
                         webLink("Kept", "https://kept.example/"),
                         withSymbol(webLink("Own", "https://own.example/")),
                         webLink("App", "slack://channel?id=1"),
                         group("G", {webLink("B", "http://b.example/")})};
    auto kept = index({{"kept.example", {"kept.example.png", kNow - kDay, ""}}});
    EXPECT_EQ(searchesAtStart(library, kept, kNow),
              (std::vector<std::string>{"https://a.example/1", "http://b.example/"}));
}

TEST(KeptIcons, SearchesAfterAnAdditionOrAChangedAddressOnly)
{
    Library before;
    before.shortcuts = {webLink("Same", "https://same.example/"),
                        webLink("Moves", "https://old.example/")};
    Library after = before;
    after.shortcuts[1].target.urlTarget()->url = "https://new.example/";
    after.shortcuts.push_back(webLink("Added", "https://added.example/"));
    after.shortcuts.push_back(webLink("Kept", "https://kept.example/"));
    auto kept = index({{"kept.example", {"k.png", kNow, ""}}});
    EXPECT_EQ(searchesAfterChange(before, after, kept, kNow),
              (std::vector<std::string>{"https://new.example/", "https://added.example/"}));
}
