// SPDX-License-Identifier: MIT
#include "kit/support/uuid.h"

#include <gtest/gtest.h>

#include <unordered_set>

using namespace kit::support;

TEST(Uuid, ParsesEitherCaseWritesUpperCaseAndRejectsMalformedText)
{
    auto lower = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse(lower->string()), lower);
    for (const char* bad : {"",
                            "E621E1F8C36C495A93FC0C247A3E6E5F",
                            "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
                            "E621E1F8-C36C-495A-93FC-0C247A3E6E5G",
                            "E621E1F8_C36C-495A-93FC-0C247A3E6E5F"}) {
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    }
}

TEST(Uuid, RandomOnesAreVersionFourAndDistinct)
{
    std::unordered_set<Uuid> seen;
    for (int i = 0; i < 1000; ++i) {
        Uuid u = Uuid::random();
        EXPECT_EQ(u.bytes[6] >> 4, 4);
        EXPECT_EQ(u.bytes[8] >> 6, 2);
        EXPECT_TRUE(seen.insert(u).second);
    }
}
