// SPDX-License-Identifier: MIT
#include "kit/storage/session_words.h"

#include <gtest/gtest.h>

namespace kit::storage {
namespace {

TEST(SessionWords, CountsAndNamesReadAsEnglish)
{
    EXPECT_EQ(sessionDetail(1, std::nullopt), "1 link");
    EXPECT_EQ(sessionDetail(0, 1), "0 links · 1 site");
    EXPECT_EQ(sessionDetail(3, 12), "3 links · 12 sites");

    EXPECT_EQ(sessionRemovalQuestion("Work", 0), "Remove “Work” and what its pages remember?");
    EXPECT_EQ(sessionRemovalQuestion("Work", 2),
              "Remove “Work” and what its pages remember? Its 2 links go back to the default "
              "account.");

    std::vector<library::Session> sessions;
    EXPECT_EQ(newSessionName(sessions), "New Account");
    sessions.push_back({});
    sessions.back().name = "New Account";
    sessions.push_back({});
    sessions.back().name = "New Account 2";
    EXPECT_EQ(newSessionName(sessions), "New Account 3");
}

} // namespace
} // namespace kit::storage
