// SPDX-License-Identifier: MIT
#include "kit/library/library.h"

#include <gtest/gtest.h>

using namespace kit::library;

namespace {

Session unset(const char* uuid)
{
    return Session{*SessionID::parse(uuid), "S", std::nullopt};
}

} // namespace

TEST(SessionColours, SetOnesWrapIntoThePaletteAndUnsetOnesComeFromTheId)
{
    struct Row
    {
        int colour;
        int index;
    };
    for (auto row : std::vector<Row>{{-1, 7}, {9, 1}, {2147483647, 7}}) {
        EXPECT_EQ(Session::colourIndex(Session{SessionID::make(), "S", row.colour}), row.index)
            << row.colour;
    }
    // An unset colour comes from the id, with fixed answers: the same session shows the same colour
    // on every machine.
    EXPECT_EQ(Session::colourIndex(unset("00010203-0405-0607-0809-0A0B0C0D0E0F")), 7);
    EXPECT_EQ(Session::colourIndex(unset("00000000-0000-0000-0000-000000000000")), 0);
}

TEST(SessionColours, NextAndSpreadGiveTheLeastUsedLowestFirst)
{
    std::vector<Session> sessions{Session{SessionID::make(), "a", 0},
                                  Session{SessionID::make(), "b", 1}};
    EXPECT_EQ(Session::nextColour(sessions), 2);
    EXPECT_EQ(Session::nextColour({}), 0);
    for (int c = 2; c < 8; ++c) {
        sessions.push_back(Session{SessionID::make(), "x", c});
    }
    sessions.push_back(Session{SessionID::make(), "y", 8}); // counts as 0
    EXPECT_EQ(Session::nextColour(sessions), 1);

    // Spreading gives the least used in order.
    sessions = {unset("00000000-0000-0000-0000-000000000001"),
                unset("00000000-0000-0000-0000-000000000002")};
    EXPECT_TRUE(Session::spreadColours(sessions));
    EXPECT_EQ(sessions[0].colour, 0);
    EXPECT_EQ(sessions[1].colour, 1);
    EXPECT_FALSE(Session::spreadColours(sessions));
}
