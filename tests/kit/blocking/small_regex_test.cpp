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
                                         Case{"", "anything", true}));

TEST(SmallRegex, CaseInsensitiveExpressionsMatchLowerCaseText)
{
    auto regex = SmallRegex::parse("/Ads/[A-C]x", false);
    ASSERT_TRUE(regex);
    EXPECT_TRUE(regex->search("https://x.com/ads/bx"));
}

TEST(SmallRegex, RejectsWhatTheRuleFormatForbids)
{
    for (const std::string& pattern : std::vector<std::string>{"a|b",
                                                               "a{2}",
                                                               "(ab",
                                                               "ab)",
                                                               "*a",
                                                               "a**",
                                                               "a$b",
                                                               "x^",
                                                               "[abc",
                                                               "\\",
                                                               "[z-a]",
                                                               std::string(5000, 'a')}) {
        std::string error;
        EXPECT_FALSE(SmallRegex::parse(pattern, true, &error)) << pattern;
        EXPECT_FALSE(error.empty()) << pattern;
    }
    std::string deep(40, '(');
    deep += "a" + std::string(40, ')');
    EXPECT_FALSE(SmallRegex::parse(deep, true));
}

} // namespace
