// SPDX-License-Identifier: MIT
#include "kit/web/page_icons.h"

#include "kit/support/json_reader.h"

#include <gtest/gtest.h>

using namespace kit::web;
using Origin = IconCandidate::Origin;

namespace {

std::vector<std::string> addresses(const std::vector<IconCandidate>& icons)
{
    std::vector<std::string> result;
    for (const auto& icon : icons) {
        result.push_back(icon.address);
    }
    return result;
}

} // namespace

TEST(ResolveAddress, GivesOnlyWebAddresses)
{
    const struct
    {
        const char* base;
        const char* reference;
        std::optional<std::string> expected;
    } rows[] = {
        {"https://a.example/x/y.html", "i.png", "https://a.example/x/i.png"},
        {"https://a.example/x/y.html", "../i.png?v=2#f", "https://a.example/i.png?v=2"},
        {"https://a.example/x/", "/s/./i.png", "https://a.example/s/i.png"},
        {"https://a.example:8443/x", "//cdn.example/i.png", "https://cdn.example/i.png"},
        {"http://u:p@a.example:81/x", "i.ico", "http://a.example:81/i.ico"},
        {"https://a.example/x", " \tHTTP://B.example/i.png ", "http://b.example/i.png"},
        {"https://a.example/x", "data:image/png;base64,AAAA", std::nullopt},
        {"https://a.example/x", "file:///etc/passwd", std::nullopt},
        {"https://a.example/x", "javascript:alert(1)", std::nullopt},
        {"https://a.example/x", "", std::nullopt},
        {"file:///home/x.html", "i.png", std::nullopt},
        {"https://a.example/a/b/c", "../../../../i.png", "https://a.example/i.png"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(resolveAddress(row.base, row.reference), row.expected) << row.reference;
    }
}

TEST(ScanPage, FindsEveryKindOfDeclarationOutsideScriptsAndComments)
{
    const char* html = R"(<!doctype html><html><head>
        <base href="/static/">
        <script>document.write('<link rel="icon" href="script.png">')</script>
        <!-- <link rel="icon" href="comment.png"> -->
        <LINK REL="Shortcut Icon" HREF="favicon.ico">
        <link rel=icon type="image/svg+xml" href=logo.svg>
        <link rel="icon" sizes="16x16 32X32" href="i.png?a=1&amp;b=2">
        <link rel="apple-touch-icon" href="https://cdn.example/touch.png">
        <link rel="manifest" href="site.webmanifest">
        <link rel="icon" href="data:image/png;base64,AAAA">
        <link rel="stylesheet" href="s.css">
        </head><body>)";
    PageHead head = scanPage(html, "https://a.example/page/index.html");
    EXPECT_EQ(addresses(head.icons),
              (std::vector<std::string>{"https://a.example/static/favicon.ico",
                                        "https://a.example/static/logo.svg",
                                        "https://a.example/static/i.png?a=1&b=2",
                                        "https://cdn.example/touch.png"}));
    EXPECT_TRUE(head.icons[1].scalable);
    EXPECT_EQ(head.icons[2].sides, (std::vector<int>{16, 32}));
    EXPECT_EQ(head.icons[3].origin, Origin::TouchIcon);
    EXPECT_EQ(head.manifest, "https://a.example/static/site.webmanifest");
}

TEST(ScanPage, BoundsWhatItReadsAndKeeps)
{
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += "<link rel=icon href=i" + std::to_string(i) + ".png>";
    }
    EXPECT_EQ(scanPage(many, "https://a.example/").icons.size(), kCandidateLimit);
    std::string late = std::string(kPageScanLimit, ' ') + "<link rel=icon href=late.png>";
    EXPECT_TRUE(scanPage(late, "https://a.example/").icons.empty());
    // Unclosed tags, quotes and comments end the scan, not the program.
    for (const char* broken :
         {"<link rel=\"icon", "<link rel=icon href='a.png", "<!--", "<", "<a =>"}) {
        EXPECT_NO_THROW(scanPage(broken, "https://a.example/"));
    }
}

TEST(ReadManifest, ListsIconsButNotMasksAndRefusesWhatIsNoManifest)
{
    auto icons = readManifest(R"({"icons":[
        {"src":"/i/192.png","sizes":"192x192","type":"image/png","purpose":"any maskable"},
        {"src":"mono.svg","purpose":"monochrome"},
        {"src":"data:image/png;base64,AA"},
        {"src":7}, 3]})",
                              "https://a.example/app/manifest.json");
    EXPECT_EQ(addresses(icons), (std::vector<std::string>{"https://a.example/i/192.png"}));
    EXPECT_EQ(icons[0].sides, (std::vector<int>{192}));
    EXPECT_THROW(readManifest("<html>", "https://a.example/m"), kit::support::JsonReadError);
    EXPECT_THROW(readManifest(std::string(200, '[') + std::string(200, ']'), "https://a.example/m"),
                 kit::support::JsonReadError);
    EXPECT_THROW(readManifest(std::string(kManifestLimit + 1, ' '), "https://a.example/m"),
                 kit::support::JsonReadError);
}

TEST(Ranked, PrefersTheSizeNearestAboveThenScalableThenLargestBelow)
{
    std::vector<IconCandidate> candidates{
        {"https://a/unknown.ico", Origin::Link, {}, false},
        {"https://a/16.png", Origin::Link, {16}, false},
        {"https://a/logo.svg", Origin::Link, {}, true},
        {"https://a/ico", Origin::Link, {16, 48, 256}, false},
        {"https://a/touch.png", Origin::TouchIcon, {}, false},
        {"https://a/m512.png", Origin::Manifest, {512}, false},
        {"https://a/24.png", Origin::Link, {24}, false},
        {"https://a/16.png", Origin::Manifest, {16}, false},
    };
    EXPECT_EQ(addresses(ranked(candidates, 32)),
              (std::vector<std::string>{"https://a/ico",
                                        "https://a/touch.png",
                                        "https://a/m512.png",
                                        "https://a/logo.svg",
                                        "https://a/24.png",
                                        "https://a/16.png",
                                        "https://a/unknown.ico"}));
}
