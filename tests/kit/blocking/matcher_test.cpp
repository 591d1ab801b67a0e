// SPDX-License-Identifier: MIT
#include "kit/blocking/matcher.h"

#include "kit/blocking/filter_list.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

using namespace kit::blocking;

namespace {

constexpr std::string_view kSuffixes = "// test list\ncom\nuk\nco.uk\n*.ck\n!www.ck\n";

Matcher fromJson(std::string_view json)
{
    auto compiled = Matcher::compile(json, kSuffixes);
    if (auto* error = std::get_if<std::string>(&compiled)) {
        ADD_FAILURE() << *error;
        return std::get<Matcher>(Matcher::compile("[]"));
    }
    return std::move(std::get<Matcher>(compiled));
}

Matcher fromFilters(const std::vector<std::string>& filters)
{
    std::string text;
    for (const std::string& filter : filters) {
        text += filter + "\n";
    }
    return fromJson(convertFilterLists({text}).json);
}

// A request decided against a small filter list.
struct Case
{
    std::vector<std::string> filters;
    std::string url;
    std::string top;
    ResourceType type;
    bool blocked;
    bool topFrame = false;
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    out << c.url << (c.topFrame ? " (top frame)" : "") << " on " << c.top << " by";
    for (const auto& filter : c.filters) {
        out << " " << filter;
    }
    return out;
}

class Decisions : public testing::TestWithParam<Case>
{};

TEST_P(Decisions, FollowTheFilters)
{
    const Case& c = GetParam();
    Matcher matcher = fromFilters(c.filters);
    EXPECT_EQ(matcher.decide({c.url, c.top, c.type, c.topFrame}).block, c.blocked);
}

constexpr auto kScript = ResourceType::Script;
constexpr auto kImage = ResourceType::Image;
const std::string kPage = "https://news.site.com/story";

INSTANTIATE_TEST_SUITE_P(
    Anchors,
    Decisions,
    testing::Values(
        Case{{"||ads.com^"}, "https://ads.com/x.js", kPage, kScript, true},
        Case{{"||ads.com^"}, "https://img.ads.com/x.js", kPage, kScript, true},
        Case{{"||ads.com^"}, "https://badads.com/x.js", kPage, kScript, false},
        Case{{"||ads.com^"}, "https://ads.com.example.net/", kPage, kScript, false},
        Case{{"||ads.com^"}, "https://ads.com:8080/x", kPage, kScript, true},
        Case{{"||ads.com^"}, "https://ads.com", kPage, kScript, true},
        Case{{"||ads.com/banner"}, "https://x.org/?u=ads.com/banner", kPage, kScript, false},
        Case{{"|https://t.co/"}, "https://t.co/x", kPage, kScript, true},
        Case{{"|https://t.co/"}, "http://a.com/?https://t.co/", kPage, kScript, false},
        Case{{"/pixel.gif|"}, "https://a.com/pixel.gif", kPage, kImage, true},
        Case{{"/pixel.gif|"}, "https://a.com/pixel.gif?x", kPage, kImage, false},
        Case{{"/ads/*/banner^"}, "https://a.com/ads/1/2/banner?x", kPage, kImage, true},
        Case{{"/ads/*/banner^"}, "https://a.com/ads/1/bannerx", kPage, kImage, false},
        Case{{"/AdServer/x"}, "https://A.com/adserver/x", kPage, kImage, true},
        Case{{"/AdServer/x$match-case"}, "https://a.com/adserver/x", kPage, kImage, false},
        Case{{"/AdServer/x$match-case"}, "https://a.com/AdServer/x", kPage, kImage, true},
        Case{{"&ad_type="}, "https://a.com/x?b=1&ad_type=2", kPage, kImage, true},
        Case{{"-ad-300x250."}, "https://a.com/img/top-ad-300x250.png", kPage, kImage, true}));

const std::vector<Case> kConditions{
    {{"||t.com^$third-party"}, "https://t.com/p", "https://t.com/", kScript, false},
    {{"||t.com^$third-party"}, "https://cdn.t.com/p", "https://www.t.com/", kScript, false},
    {{"||t.com^$third-party"}, "https://t.com/p", kPage, kScript, true},
    {{"||t.com^$~third-party"}, "https://t.com/p", kPage, kScript, false},
    {{"||t.com^$~third-party"}, "https://t.com/p", "https://a.t.com/", kScript, true},
    // Registrable domains come from the suffix list.
    {{"/p^$third-party"}, "https://a.shop.co.uk/p", "https://b.shop.co.uk/", kScript, false},
    {{"/p^$third-party"}, "https://a.co.uk/p", "https://b.co.uk/", kScript, true},
    {{"/p^$third-party"}, "https://a.x.ck/p", "https://b.x.ck/", kScript, true},
    {{"/p^$third-party"}, "https://a.www.ck/p", "https://b.www.ck/", kScript, false},
    {{"/ad.js$domain=site.com"}, "https://x.net/ad.js", kPage, kScript, true},
    {{"/ad.js$domain=other.com"}, "https://x.net/ad.js", kPage, kScript, false},
    {{"/ad.js$domain=~site.com"}, "https://x.net/ad.js", kPage, kScript, false},
    {{"/ad.js$domain=~other.com"}, "https://x.net/ad.js", kPage, kScript, true},
    {{"$script,domain=site.com"}, "https://x.net/any.js", kPage, kScript, true},
    {{"$script,domain=site.com"}, "https://x.net/any.png", kPage, kImage, false},
    {{"/ad.js$image"}, "https://x.net/ad.js", kPage, kScript, false},
    {{"/ad.js$~image"}, "https://x.net/ad.js", kPage, kScript, true},
    {{"/frame$subdocument"}, "https://x.net/frame", kPage, ResourceType::Document, true},
};

INSTANTIATE_TEST_SUITE_P(Conditions, Decisions, testing::ValuesIn(kConditions));

const std::string kAdsA = "https://ads.com/a";
const std::vector<Case> kExceptions{
    {{"||ads.com^", "@@||ads.com/ok.js"}, "https://ads.com/ok.js", kPage, kScript, false},
    {{"||ads.com^", "@@||ads.com/ok.js"}, "https://ads.com/no.js", kPage, kScript, true},
    {{"||ads.com^", "@@||ads.com^$image"}, "https://ads.com/a.js", kPage, kScript, true},
    {{"||ads.com^$important", "@@||ads.com^"}, kAdsA, kPage, kScript, true},
    {{"||ads.com^", "@@||site.com^$document"}, kAdsA, kPage, kScript, false},
    {{"||ads.com^", "@@||site.com^$document"}, kAdsA, "https://x.org/", kScript, true},
    {{"||ads.com^", "@@|https://news.site.com/$document"}, kAdsA, kPage, kScript, false},
    {{"||ads.com^", "@@|https://www.site.com/$document"}, kAdsA, kPage, kScript, true},
};

INSTANTIATE_TEST_SUITE_P(Exceptions, Decisions, testing::ValuesIn(kExceptions));

// WebKit's "document" is both the page and its sub-frames; the lists keep them apart.
constexpr auto kFrame = ResourceType::Document;
const std::string kAd = "https://ads.com/f/x.html";
const std::vector<Case> kFrames{
    {{"||ads.com^"}, kAd, kPage, kFrame, true},
    {{"||ads.com^"}, kAd, kAd, kFrame, false, true},
    {{"||ads.com^", "@@||ads.com/f/"}, kAd, kPage, kFrame, false},
    {{"||ads.com^", "@@||ads.com/f/$subdocument"}, kAd, kPage, kFrame, false},
    {{"||ads.com^", "@@||ads.com/f/$subdocument"}, kAd, kPage, kScript, true},
    {{"||ads.com^", "@@||ads.com/f/$image"}, kAd, kPage, kFrame, true},
    {{"||ads.com^$subdocument"}, kAd, kPage, kFrame, true},
    {{"||ads.com^$subdocument"}, kAd, kAd, kFrame, false, true},
    {{"||ads.com^$subdocument,script"}, kAd, kPage, kScript, true},
    {{"||ads.com^$document"}, kAd, kAd, kFrame, true, true},
    {{"||ads.com^$document"}, kAd, kPage, kFrame, false},
    {{"||ads.com^$document,subdocument"}, kAd, kPage, kFrame, true},
    {{"||ads.com^$~script"}, kAd, kPage, kFrame, true},
    {{"||ads.com^$~script"}, kAd, kAd, kFrame, false, true},
};

INSTANTIATE_TEST_SUITE_P(Frames, Decisions, testing::ValuesIn(kFrames));

// A rule is turned away by the characters around the token it is indexed by; each row is one
// the address must still reach through another place or another rule under the same token.
const std::vector<Case> kAroundTokens{
    {{"/banner/ad."}, "https://a.com/banner/x/banner/ad.png", kPage, kImage, true},
    {{"/banner/ad."}, "https://a.com/banner/adx.png", kPage, kImage, false},
    {{"/track/x-track-"}, "https://a.com/x-track-/track/x-track-1", kPage, kImage, true},
    {{"ads/x-ads-"}, "https://a.com/badads/x-ads-1", kPage, kImage, true},
    {{"/ads/top.", "-ads-side."}, "https://a.com/x-ads-side.png", kPage, kImage, true},
    {{"/ads/top.", "-ads-side."}, "https://a.com/ads/top.png", kPage, kImage, true},
    {{"/ads/top.", "-ads-side."}, "https://a.com/ads-top.png", kPage, kImage, false},
    {{"^adserver/"}, "https://a.com?adserver/x", kPage, kImage, true},
    {{"|adserver/"}, "adserver/x", kPage, kImage, true},
    {{"-Banner-Ad.$match-case"}, "https://a.com/top-Banner-Ad.png", kPage, kImage, true},
    {{"||ads.com^"}, "https://ads.ads.com/x", kPage, kImage, true},
};

INSTANTIATE_TEST_SUITE_P(AroundTokens, Decisions, testing::ValuesIn(kAroundTokens));

TEST(Matcher, LaterExceptionsCancelOnlyEarlierRules)
{
    Matcher matcher = fromJson(R"([
        {"trigger": {"url-filter": "a\\.js"}, "action": {"type": "ignore-previous-rules"}},
        {"trigger": {"url-filter": "a\\.js"}, "action": {"type": "block"}},
        {"trigger": {"url-filter": "b\\.js"}, "action": {"type": "block"}},
        {"trigger": {"url-filter": "b\\.js"}, "action": {"type": "ignore-previous-rules"}}
    ])");
    EXPECT_TRUE(matcher.decide({"https://x/a.js", "", ResourceType::Script}).block);
    EXPECT_FALSE(matcher.decide({"https://x/b.js", "", ResourceType::Script}).block);
}

TEST(Matcher, HonoursTopUrlsAndTheOtherActions)
{
    Matcher matcher = fromJson(R"([
        {"trigger": {"url-filter": "track", "if-top-url": ["^https://shop\\."]},
         "action": {"type": "block"}},
        {"trigger": {"url-filter": "pix", "unless-top-url": ["^https://shop\\."]},
         "action": {"type": "block"}},
        {"trigger": {"url-filter": "^http://secure\\.", "if-domain": ["site.com"]},
         "action": {"type": "make-https"}},
        {"trigger": {"url-filter": "cookie", "resource-type": ["raw"], "load-type": ["third-party"]},
         "action": {"type": "block-cookies"}}
    ])");
    EXPECT_TRUE(matcher.decide({"https://x/track", "https://shop.a/", ResourceType::Image}).block);
    EXPECT_FALSE(matcher.decide({"https://x/track", "https://a/", ResourceType::Image}).block);
    EXPECT_FALSE(matcher.decide({"https://x/pix", "https://shop.a/", ResourceType::Image}).block);
    EXPECT_TRUE(matcher.decide({"https://x/pix", "https://a/", ResourceType::Image}).block);
    // if-domain without "*" is the host itself, not its subdomains.
    EXPECT_TRUE(matcher.decide({"http://secure.x/", "https://site.com/", kImage}).makeHttps);
    EXPECT_FALSE(matcher.decide({"http://secure.x/", "https://a.site.com/", kImage}).makeHttps);
    EXPECT_TRUE(matcher.decide({"https://t.net/cookie", kPage, ResourceType::Raw}).blockCookies);
    EXPECT_FALSE(matcher.decide({"https://t.net/cookie", kPage, kImage}).blockCookies);
}

TEST(Matcher, RunsOtherRegularExpressionsThroughTheRegexEngine)
{
    Matcher matcher = fromJson(R"([
        {"trigger": {"url-filter": "^https?://[a-z]+\\.ads[0-9]+\\.net/"}, "action": {"type": "block"}},
        {"trigger": {"url-filter": "/x.y$", "url-filter-is-case-sensitive": true},
         "action": {"type": "block"}}
    ])");
    EXPECT_TRUE(matcher.decide({"http://cdn.ads42.net/a", kPage, kImage}).block);
    EXPECT_TRUE(matcher.decide({"HTTPS://CDN.ADS42.NET/a", kPage, kImage}).block);
    EXPECT_FALSE(matcher.decide({"http://cdn.ads.net/a", kPage, kImage}).block);
    EXPECT_TRUE(matcher.decide({"http://a/x-y", kPage, kImage}).block);
    EXPECT_FALSE(matcher.decide({"http://a/X-Y", kPage, kImage}).block);
}

// Another converter writes "||host^" as a regular expression. However many there are, a decision
// checks only those whose literals the address holds, and runs the engine a bounded number of
// steps: this counts steps, so a slow machine cannot fail it nor a fast one hide a full scan.
TEST(Matcher, FindsRegularExpressionsThroughTheirLiterals)
{
    std::string json = "[";
    for (int i = 0; i < 5000; ++i) {
        json += R"({"trigger": {"url-filter": "^[^:]+://+([^:/]+\\.)?tracker)" + std::to_string(i)
                + R"(\\.com([^a-zA-Z0-9_.%-].*)?$"}, "action": {"type": "block"}},)";
    }
    json +=
        R"json({"trigger": {"url-filter": "/ads?/[0-9]+x[0-9]+\\.gif"}, "action": {"type": "block"}},
        {"trigger": {"url-filter": "(tracker[0-9]+\\.com/ok/)"},
         "action": {"type": "ignore-previous-rules"}}])json";
    Matcher matcher = fromJson(json);
    struct Row
    {
        std::string url;
        bool blocked;
    };
    for (const Row& row : {Row{"https://tracker42.com/p.js", true},
                           Row{"https://cdn.tracker4999.com:8080/x", true},
                           Row{"https://tracker42.com/ok/p.js", false},
                           Row{"https://tracker42.com.evil.net/", false},
                           Row{"https://nottracker42.com/", false},
                           Row{"https://site.com/ad/300x250.gif", true},
                           Row{"https://site.com/ads/wide.gif", false},
                           Row{"https://site.com/story?id=tracker7", false}}) {
        Effort effort;
        EXPECT_EQ(matcher.decide({row.url, kPage, kScript}, &effort).block, row.blocked) << row.url;
        EXPECT_LE(effort.rulesChecked, 3u) << row.url;
        EXPECT_LE(effort.regexSteps, 8 * row.url.size()) << row.url;
    }
}

// Many wildcards against a long address would backtrack for ages; a bounded search gives up on
// that rule alone and the others still decide.
TEST(Matcher, APathologicalPatternCannotStallOrStarveOthers)
{
    Matcher matcher = fromFilters({"/a*a*a*a*a*a*a*a*a*a*a*a*b", "||slow.test^"});
    std::string url = "https://slow.test/" + std::string(4000, 'a');
    EXPECT_TRUE(matcher.decide({url, kPage, kImage}).block);
}

TEST(Matcher, HiddenSelectorsFollowDomainsAndExceptions)
{
    Matcher matcher = fromFilters({"##.generic",
                                   "##div:not(.a, .b)",
                                   "site.com##.local",
                                   "other.com##.elsewhere",
                                   "~site.com##.notHere",
                                   "shop.com##.sale",
                                   "@@||shop.com^$elemhide",
                                   "##.off",
                                   "quiet.org#@#.off",
                                   "@@||calm.net^$document"});
    auto selectors = [&](std::string_view url) {
        auto list = matcher.hiddenSelectors(url);
        std::sort(list.begin(), list.end());
        return list;
    };
    using List = std::vector<std::string>;
    EXPECT_EQ(selectors("https://news.site.com/"),
              (List{".generic", ".local", ".off", "div:not(.a, .b)"}));
    EXPECT_EQ(selectors("https://x.org/"),
              (List{".generic", ".notHere", ".off", "div:not(.a, .b)"}));
    EXPECT_EQ(selectors("https://quiet.org/"), (List{".generic", ".notHere", "div:not(.a, .b)"}));
    EXPECT_EQ(selectors("https://shop.com/"), List{});
    EXPECT_EQ(selectors("https://calm.net/"), List{});
}

TEST(Matcher, RegistrableDomainFallsBackToAHeuristicWithoutASuffixList)
{
    auto compiled = Matcher::compile("[]");
    const Matcher& bare = std::get<Matcher>(compiled);
    EXPECT_EQ(bare.registrableDomain("a.b.example.com"), "example.com");
    EXPECT_EQ(bare.registrableDomain("news.bbc.co.uk"), "bbc.co.uk");
    EXPECT_EQ(bare.registrableDomain("192.168.1.20"), "192.168.1.20");
    EXPECT_EQ(bare.registrableDomain("localhost"), "localhost");
    Matcher listed = fromJson("[]");
    EXPECT_EQ(listed.registrableDomain("a.b.x.ck"), "b.x.ck");
    EXPECT_EQ(listed.registrableDomain("co.uk"), "co.uk");
}

TEST(Matcher, RejectsBadRulesWithOneSentence)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{}", "The rules are not a list."},
        {R"([{"trigger": {}, "action": {"type": "block"}}])", "Rule 1 has no url-filter."},
        {R"([{"trigger": {"url-filter": "a"}, "action": {"type": "explode"}}])",
         "Rule 1 has an unknown action type \"explode\"."},
        {R"([{"trigger": {"url-filter": "a|b"}, "action": {"type": "block"}}])",
         "Rule 1 has a url-filter that cannot be used: alternation (\"|\") is not supported."},
        {R"([{"trigger": {"url-filter": "a", "if-domain": ["a"], "unless-domain": ["b"]},
              "action": {"type": "block"}}])",
         "Rule 1 combines more than one of if-domain, unless-domain, if-top-url and "
         "unless-top-url."},
        {R"([{"trigger": {"url-filter": "a", "resource-type": ["movie"]}, "action": {"type": "block"}}])",
         "Rule 1 has an unknown resource type \"movie\"."},
        {R"([{"trigger": {"url-filter": "a"}, "action": {"type": "css-display-none"}}])",
         "Rule 1 hides elements but has no selector."},
        {R"([{"trigger": {"url-filter": "a", "if-frame": 1}, "action": {"type": "block"}}])",
         "Rule 1 has an unknown trigger field \"if-frame\"."},
        {R"([{"trigger": {"url-filter": "a", "load-context": ["side-frame"]},
              "action": {"type": "block"}}])",
         "Rule 1 has an unknown load context \"side-frame\"."},
    };
    for (const auto& [json, message] : cases) {
        auto compiled = Matcher::compile(json);
        ASSERT_TRUE(std::holds_alternative<std::string>(compiled)) << json;
        EXPECT_EQ(std::get<std::string>(compiled), message);
    }
    for (const char* broken : {"[", "[{\"trigger\": {\"url-filter\": 1}}]", "[] x"}) {
        auto compiled = Matcher::compile(broken);
        ASSERT_TRUE(std::holds_alternative<std::string>(compiled)) << broken;
        EXPECT_TRUE(std::get<std::string>(compiled).starts_with("The rules are not valid JSON")
                    || std::get<std::string>(compiled).starts_with("Rule 1 cannot be read"))
            << std::get<std::string>(compiled);
    }
}

class MatcherCache : public testing::Test
{
protected:
    Matcher original = fromFilters({"||ads.com^",
                                    "@@||ads.com/ok^",
                                    "/track?$third-party",
                                    "site.com##.local",
                                    "##.generic",
                                    "$script,domain=x.org"});
    std::string bytes = original.serialize();

    void expectSameDecisions(const Matcher& loaded)
    {
        for (const char* url : {"https://ads.com/a",
                                "https://ads.com/ok",
                                "https://t.net/track?x",
                                "https://cdn.x.org/a.js",
                                "https://fine.com/"}) {
            for (const char* top : {"https://site.com/", "https://x.org/", "https://t.net/"}) {
                EXPECT_EQ(loaded.decide({url, top, kScript}).block,
                          original.decide({url, top, kScript}).block)
                    << url << " on " << top;
            }
        }
        EXPECT_EQ(loaded.hiddenSelectors("https://site.com/"),
                  original.hiddenSelectors("https://site.com/"));
        EXPECT_EQ(loaded.registrableDomain("a.b.shop.co.uk"), "shop.co.uk");
    }
};

TEST_F(MatcherCache, RoundTripsEveryDecision)
{
    auto loaded = Matcher::load(bytes);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->ruleCount(), original.ruleCount());
    expectSameDecisions(*loaded);
    EXPECT_EQ(loaded->serialize(), bytes);
}

TEST_F(MatcherCache, RejectsDamagedTruncatedOrForeignBytes)
{
    for (size_t at : {size_t{0}, size_t{9}, bytes.size() / 2, bytes.size() - 1}) {
        std::string damaged = bytes;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x40);
        EXPECT_FALSE(Matcher::load(damaged)) << "byte " << at;
    }
    EXPECT_FALSE(Matcher::load(bytes.substr(0, bytes.size() - 3)));
    EXPECT_FALSE(Matcher::load(""));
    EXPECT_FALSE(Matcher::load(R"([{"trigger":{"url-filter":"a"},"action":{"type":"block"}}])"));
    std::string otherVersion = bytes;
    otherVersion[8] = static_cast<char>(Matcher::kFormatVersion + 1);
    EXPECT_FALSE(Matcher::load(otherVersion));
}

// With the checksum refitted, the structural checks must still catch nonsense.
TEST_F(MatcherCache, RejectsResealedPayloadsThatPointOutside)
{
    std::string truncated = Matcher::resealed(bytes.substr(0, bytes.size() - 8));
    EXPECT_FALSE(Matcher::load(truncated));
    std::string scrambled = bytes;
    for (size_t at = 40; at < scrambled.size(); at += 7) {
        scrambled[at] = '\xff';
    }
    EXPECT_FALSE(Matcher::load(Matcher::resealed(scrambled)));
    EXPECT_TRUE(Matcher::load(Matcher::resealed(bytes)));
}

} // namespace
