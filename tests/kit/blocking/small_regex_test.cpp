// SPDX-License-Identifier: MIT
#include "kit/blocking/small_regex.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

using kit::blocking::SmallRegex;

namespace {

struct Case
{
    std::string pattern;
    std::string text;
    bool matches;
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << c.pattern << " ~ " << c.text;
}

std::string repeated(const std::string& part, int times)
{
    std::string out;
    for (int i = 0; i < times; ++i) {
        out += part;
    }
    return out;
}

TEST(SmallRegex, FindsTheExpressionAnywhereUnlessAnchored)
{
    const Case cases[] = {{"ad", "https://x.com/bad", true},
                          {"^ad", "bad", false},
                          {"ad$", "adx", false},
                          {"^https?://", "http://x", true},
                          {"^https?://", "httpss://x", false},
                          {"a.c", "abc", true},
                          {"a.c", "ac", false},
                          {"[0-9]+x", "id=42x", true},
                          {"[^a-z]x", "ax", false},
                          {"[^a-z]x", "/x", true},
                          {"(ab)+c$", "xababc", true},
                          {"(ab)+c$", "xac", false},
                          {"^(www\\.)?ex\\.com/", "ex.com/", true},
                          {"^(www\\.)?ex\\.com/", "www.ex.com/", true},
                          {"x(y(z)*)?$", "x", true},
                          {"()*a", "a", true},
                          {"[a\\]]+$", "a]a", true},
                          {"a*a*a*a*a*b", std::string(5000, 'a'), false},
                          // A trailing ".*" accepts early, but only once reached.
                          {"^x([^a-z].*)?$", "x/any", true},
                          {"^x([^a-z].*)?$", "xa/any", false},
                          {"^x.*$", "x", true},
                          {"b.*$", "abc", true},
                          {"^b.*$", "abc", false},
                          {"", "anything", true},
                          // Skipping to a character that may begin a match.
                          {"a?b", "xxxb", true},
                          {"(x?y)?[0-9]z", "....7z", true},
                          {"(x?y)?[0-9]z", "yy.z", false},
                          {"q*$", "abc", true},
                          {"c", "abc", true},
                          {"ab", "aab", true},
                          {"[^/]x", "//x", false},
                          // Too many optional parts to precompute what they reach.
                          {repeated("a?", 40) + "b$", "xaab", true},
                          {repeated("a?", 40) + "b$", "xaabc", false}};
    for (const Case& c : cases) {
        std::string error;
        auto regex = SmallRegex::parse(c.pattern, true, &error);
        ASSERT_TRUE(regex) << c << ": " << error;
        EXPECT_EQ(regex->search(c.text), c.matches) << c;
    }
}

// The index trusts these texts: a token drawn from them must be in every match, whole.
TEST(SmallRegex, RequiredTextsAndWhatMayStandAroundThem)
{
    auto texts = SmallRegex::requiredTexts("^[^:]+://+([^:/]+\\.)?Ads\\.com([^a-z0-9].*)?$", false);
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0].text, ":/");
    EXPECT_EQ(texts[1].text, "ads.com");
    EXPECT_TRUE(texts[1].before.test('.') && texts[1].before.test('/'));
    EXPECT_FALSE(texts[1].before.test('a'));
    EXPECT_FALSE(texts[1].after.test('a') || texts[1].after.test('7'));
    EXPECT_TRUE(texts[1].after.test('/'));
    // Nothing around an unanchored end is known; optional and repeated parts are not required.
    auto loose = SmallRegex::requiredTexts("x(yz)?w+tail", true);
    ASSERT_EQ(loose.size(), 2u);
    EXPECT_EQ(loose[0].text, "x");
    EXPECT_EQ(loose[1].text, "tail");
    EXPECT_TRUE(loose[1].after.all());
    EXPECT_TRUE(SmallRegex::requiredTexts("a|b", false).empty());
}

TEST(SmallRegex, CaseInsensitiveExpressionsMatchLowerCaseText)
{
    auto regex = SmallRegex::parse("/Ads/[A-C]x", false);
    ASSERT_TRUE(regex);
    EXPECT_TRUE(regex->search("https://x.com/ads/bx"));
}

TEST(SmallRegex, RejectsWhatTheRuleFormatForbids)
{
    for (const std::string& pattern : std::vector<std::string>{
             "a|b", "a{2}", "(ab", "ab)", "*a", "a**", "a$b", "x^", "[abc", "\\", "[z-a]"}) {
        std::string error;
        EXPECT_FALSE(SmallRegex::parse(pattern, true, &error)) << pattern;
        EXPECT_FALSE(error.empty()) << pattern;
    }
    EXPECT_FALSE(SmallRegex::parse(std::string(5000, 'a'), true)) << "too long";
    EXPECT_FALSE(SmallRegex::parse(std::string(40, '(') + "a" + std::string(40, ')'), true));
}

} // namespace
