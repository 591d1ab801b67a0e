// SPDX-License-Identifier: MIT
#include "kit/blocking/filter_list.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

using namespace kit::blocking;
using nlohmann::json;

namespace {

json convert(std::vector<std::string_view> lines)
{
    std::string text;
    for (std::string_view line : lines) {
        text += line;
        text += '\n';
    }
    return json::parse(convertFilterLists({text}).json);
}

const std::string kHost = std::string(kHostAnchor);
const std::string kSepEnd = std::string(kSeparatorOrEnd);
const std::string kSep = std::string(kSeparatorClass);

// One filter and the single rule it must become (only the listed trigger fields are compared).
struct Shape
{
    std::string filter;
    json trigger;
    std::string action;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape)
{
    return out << shape.filter;
}

class FilterShapes : public testing::TestWithParam<Shape>
{};

TEST_P(FilterShapes, BecomeTheExpectedRule)
{
    const Shape& shape = GetParam();
    json rules = convert({shape.filter});
    ASSERT_EQ(rules.size(), 1u) << rules.dump();
    EXPECT_EQ(rules[0]["action"]["type"], shape.action);
    for (const auto& [key, value] : shape.trigger.items()) {
        EXPECT_EQ(rules[0]["trigger"][key], value) << key << " in " << rules[0].dump();
    }
    for (const auto& [key, value] : rules[0]["trigger"].items()) {
        EXPECT_TRUE(shape.trigger.contains(key))
            << "unexpected " << key << " in " << rules[0].dump();
    }
}

// The url-filter of "||name^".
std::string host(const std::string& name)
{
    return kHost + name + kSepEnd;
}

const json kAllButScriptAndImage = json::parse(R"(["document", "style-sheet", "font", "raw",
    "svg-document", "media", "ping", "fetch", "websocket", "other"])");

const std::vector<Shape> kNetwork{
    {"||ads.example.com^", {{"url-filter", host("ads\\.example\\.com")}}, "block"},
    {"|https://x.com/ad", {{"url-filter", "^https://x\\.com/ad"}}, "block"},
    {"/banner.gif|", {{"url-filter", "/banner\\.gif$"}}, "block"},
    {"/ads/*/track^id=", {{"url-filter", "/ads/.*/track" + kSep + "id="}}, "block"},
    {"*/pixel?*", {{"url-filter", "/pixel\\?"}}, "block"},
    {"||x.com/a^|", {{"url-filter", kHost + "x\\.com/a" + kSep + "?$"}}, "block"},
    {"||t.com^$third-party",
     {{"url-filter", host("t\\.com")}, {"load-type", {"third-party"}}},
     "block"},
    {"||t.com^$3p", {{"url-filter", host("t\\.com")}, {"load-type", {"third-party"}}}, "block"},
    {"||t.com^$~third-party",
     {{"url-filter", host("t\\.com")}, {"load-type", {"first-party"}}},
     "block"},
    {"/ad.js$domain=A.com|b.org",
     {{"url-filter", "/ad\\.js"}, {"if-domain", {"*a.com", "*b.org"}}},
     "block"},
    {"/ad.js$domain=~a.com", {{"url-filter", "/ad\\.js"}, {"unless-domain", {"*a.com"}}}, "block"},
    {"/ad.js$script,image",
     {{"url-filter", "/ad\\.js"}, {"resource-type", {"image", "script"}}},
     "block"},
    {"/ad.js$subdocument,xmlhttprequest",
     {{"url-filter", "/ad\\.js"},
      {"resource-type", {"document", "raw"}},
      {"load-context", {"child-frame"}}},
     "block"},
    {"||ad.com^$document",
     {{"url-filter", host("ad\\.com")},
      {"resource-type", {"document"}},
      {"load-context", {"top-frame"}}},
     "block"},
    {"/ad$~script,~image",
     {{"url-filter", "/ad"},
      {"resource-type", kAllButScriptAndImage},
      {"load-context", {"child-frame"}}},
     "block"},
    {"/Ad.JS$match-case",
     {{"url-filter", "/Ad\\.JS"}, {"url-filter-is-case-sensitive", true}},
     "block"},
    {"||x.com^$important", {{"url-filter", host("x\\.com")}}, "block"},
    {"$script,domain=a.com",
     {{"url-filter", ".*"}, {"resource-type", {"script"}}, {"if-domain", {"*a.com"}}},
     "block"},
    {"@@||cdn.com/lib.js", {{"url-filter", kHost + "cdn\\.com/lib\\.js"}}, "ignore-previous-rules"},
    {"@@||cdn.com^$script",
     {{"url-filter", host("cdn\\.com")}, {"resource-type", {"script"}}},
     "ignore-previous-rules"},
    {"@@||site.com^$document",
     {{"url-filter", ".*"}, {"if-domain", {"*site.com"}}},
     "ignore-previous-rules"},
    {"@@|https://site.com/app/$document",
     {{"url-filter", ".*"}, {"if-top-url", {"^https://site\\.com/app/"}}},
     "ignore-previous-rules"},
    {"@@||site.com^$elemhide",
     {{"url-filter", host("site\\.com")}, {"resource-type", {"document"}}},
     "ignore-previous-rules"},
};

INSTANTIATE_TEST_SUITE_P(Network, FilterShapes, testing::ValuesIn(kNetwork));

const std::vector<Shape> kCosmetic{
    {"##.ad-banner", {{"url-filter", ".*"}}, "css-display-none"},
    {"a.com,b.com##.ad",
     {{"url-filter", ".*"}, {"if-domain", {"*a.com", "*b.com"}}},
     "css-display-none"},
    {"~a.com##.ad", {{"url-filter", ".*"}, {"unless-domain", {"*a.com"}}}, "css-display-none"},
};

INSTANTIATE_TEST_SUITE_P(Cosmetic, FilterShapes, testing::ValuesIn(kCosmetic));

TEST(FilterList, DroppedFiltersAreCountedByReasonAndMakeNoRule)
{
    const std::pair<std::string, std::string> rows[] = {
        {"/ads[0-9]+/", "regular expression"},
        {"||x.com^$csp=script-src 'none'", "unsupported option $csp"},
        {"||x.com^$redirect=noop.js", "unsupported option $redirect"},
        {"@@||x.com^$generichide", "$generichide (no rule form)"},
        {"||x.com^$elemhide", "$elemhide on a blocking filter"},
        {"/ad$domain=a.com|~b.a.com", "included and excluded domains together"},
        {"google.*##.ad", "unsupported domain form"},
        {"x.com##.ad:-abp-has(.sponsored)", "procedural element hiding"},
        {"x.com##div:has(> .ad)", "procedural element hiding"},
        {"x.com#?#div:has-text(Ad)", "procedural element hiding"},
        {"x.com#$#.ad { height: 0 }", "style injection"},
        {"x.com##+js(set-constant, a, 1)", "scriptlet"},
        {"x.com##^script:has-text(ad)", "HTML filtering"},
        {"/wërbung/", "regular expression"},
        {"/wërbung.js", "non-ASCII or malformed address"},
        {"/ad$script,~script", "no resource type left"},
        {"x.com##.a\xff\xfe", "malformed element hiding"}};
    for (const auto& [filter, reason] : rows) {
        Conversion conversion = convertFilterLists({filter});
        EXPECT_EQ(conversion.rules, 0u) << filter;
        EXPECT_EQ(conversion.filters, 1u) << filter;
        EXPECT_EQ(conversion.dropped[reason], 1u) << filter;
    }
}

TEST(FilterList, CommentsHeadersAndBlanksAreNotFilters)
{
    Conversion conversion =
        convertFilterLists({"[Adblock Plus 2.0]\n! Title: x\n\n   \r\n/ad.js\n"});
    EXPECT_EQ(conversion.filters, 1u);
    EXPECT_EQ(conversion.converted, 1u);
    EXPECT_EQ(conversion.rules, 1u);
}

// Exceptions must follow what they cancel, and important blocks must follow the exceptions.
TEST(FilterList, OrdersBlocksHidingExceptionsThenImportant)
{
    json rules = convert({"||imp.com^$important", "@@||a.com^", "##.ad", "||a.com^"});
    ASSERT_EQ(rules.size(), 4u);
    EXPECT_EQ(rules[0]["action"]["type"], "block");
    EXPECT_EQ(rules[0]["trigger"]["url-filter"], kHost + "a\\.com" + kSepEnd);
    EXPECT_EQ(rules[1]["action"]["type"], "css-display-none");
    EXPECT_EQ(rules[2]["action"]["type"], "ignore-previous-rules");
    EXPECT_EQ(rules[3]["trigger"]["url-filter"], kHost + "imp\\.com" + kSepEnd);
}

TEST(FilterList, HidingExceptionsEditTheRulesTheyName)
{
    json rules = convert({"##.gone",
                          "#@#.gone",
                          "##.kept",
                          "a.com#@#.kept",
                          "##.plain",
                          "##.other",
                          "a.com,b.com##.side",
                          "a.com#@#.side"});
    std::map<std::string, json> bySelector;
    for (const json& rule : rules) {
        bySelector[rule["action"]["selector"]] = rule["trigger"];
    }
    EXPECT_FALSE(bySelector.contains(".gone"));
    EXPECT_EQ(bySelector[".kept"]["unless-domain"], json({"*a.com"}));
    EXPECT_EQ(bySelector[".plain, .other"]["url-filter"], ".*"); // generic ones share a rule
    EXPECT_EQ(bySelector[".side"]["if-domain"], json({"*b.com"}));
    // Specific ones for the same domains share a rule too.
    rules = convert({"a.com##.x", "a.com##.y", "b.com##.z"});
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0]["action"]["selector"], ".x, .y");
    EXPECT_EQ(rules[1]["trigger"]["if-domain"], json({"*b.com"}));
}

} // namespace
