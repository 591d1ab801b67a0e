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

class SmallRegexSearch : public testing::TestWithParam<Case>
{};

TEST_P(SmallRegexSearch, FindsTheExpressionAnywhereUnlessAnchored)
{
    std::string error;
    auto regex = SmallRegex::parse(GetParam().pattern, true, &error);
    ASSERT_TRUE(regex) << error;
    EXPECT_EQ(regex->search(GetParam().text), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(All,
                         SmallRegexSearch,
                         testing::Values(Case{"ad", "https://x.com/bad", true},
                                         Case{"^ad", "bad", false},
                                         Case{"ad$", "adx", false},
                                         Case{"^https?://", "http://x", true},
                                         Case{"^https?://", "httpss://x", false},
                                         Case{"a.c", "abc", true},
                                         Case{"a.c", "ac", false},
                                         Case{"[0-9]+x", "id=42x", true},
                                         Case{"[^a-z]x", "ax", false},
                                         Case{"[^a-z]x", "/x", true},
                                         Case{"(ab)+c$", "xababc", true},
                                         Case{"(ab)+c$", "xac", false},
                                         Case{"^(www\\.)?ex\\.com/", "ex.com/", true},
                                         Case{"^(www\\.)?ex\\.com/", "www.ex.com/", true},
                                         Case{"x(y(z)*)?$", "x", true},
                                         Case{"()*a", "a", true},
                                         Case{"[a\\]]+$", "a]a", true},
                                         Case{"a*a*a*a*a*b", std::string(5000, 'a'), false},
                                         // A trailing ".*" accepts early, but only once reached.
                                         Case{"^x([^a-z].*)?$", "x/any", true},
                                         Case{"^x([^a-z].*)?$", "xa/any", false},
                                         Case{"^x.*$", "x", true},
                                         Case{"b.*$", "abc", true},
                                         Case{"^b.*$", "abc", false},
                                         Case{"", "anything", true},
                                         // Skipping to a character that may begin a match.
                                         Case{"a?b", "xxxb", true},
                                         Case{"(x?y)?[0-9]z", "....7z", true},
                                         Case{"(x?y)?[0-9]z", "yy.z", false},
                                         Case{"q*$", "abc", true},
                                         Case{"c", "abc", true},
                                         Case{"ab", "aab", true},
                                         Case{"[^/]x", "//x", false},
                                         // Too many optional parts to precompute what they reach.
                                         Case{repeated("a?", 40) + "b$", "xaab", true},
                                         Case{repeated("a?", 40) + "b$", "xaabc", false}));

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
