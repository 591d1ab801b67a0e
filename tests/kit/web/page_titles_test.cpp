// SPDX-License-Identifier: MIT
#include "kit/web/page_titles.h"

#include <gtest/gtest.h>

namespace kit::web {
namespace {

TEST(TitleCount, ReadsOnlyACountThatOpensTheTitle)
{
    const struct
    {
        const char* title;
        std::optional<long> count;
    } rows[] = {
        {"(3) Inbox", 3},
        {"  (12) Chat", 12},
        {"(1,204) Mail", 1204},
        {"(99+) Feed", 99},
        {"(3)", 3},
        {"(0) Inbox", std::nullopt},
        {"Inbox (3)", std::nullopt},
        {"(3 new) Inbox", std::nullopt},
        {"(,3) Inbox", std::nullopt},
        {"(3,) Inbox", std::nullopt},
        {"(3,,4) Inbox", std::nullopt},
        {"(3", std::nullopt},
        {"()", std::nullopt},
        {"(1234567890) Too many digits", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(titleCount(row.title), row.count) << row.title;
    }
    // Badges show two digits at most.
    EXPECT_EQ(countBadgeText(7), "7");
    EXPECT_EQ(countBadgeText(99), "99");
    EXPECT_EQ(countBadgeText(100), "99+");
}

} // namespace
} // namespace kit::web
