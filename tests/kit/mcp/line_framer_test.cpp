// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_socket.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kit::mcp::LineFramer;
using Events = std::vector<std::string>;

constexpr size_t kLimit = 8;
const std::string kTooLong = "<too long>";

// Feeds the chunks in turn; a too-long line shows as kTooLong, the unfinished rest as "rest:...".
Events frame(const std::vector<std::string>& chunks)
{
    LineFramer framer(kLimit);
    Events events;
    for (const auto& chunk : chunks) {
        framer.feed(chunk, [&](std::optional<std::string_view> line) {
            events.push_back(line ? std::string(*line) : kTooLong);
            return true;
        });
    }
    auto rest = framer.takeRest();
    events.push_back(rest ? "rest:" + *rest : "rest:" + kTooLong);
    return events;
}

TEST(LineFramer, CutsLinesAndRefusesLongOnes)
{
    const std::pair<std::vector<std::string>, Events> rows[] = {
        {{"one\ntwo\n"}, {"one", "two", "rest:"}},
        {{"o", "n", "e\nt", "wo\n"}, {"one", "two", "rest:"}},
        {{"\n\none\n\n", "\n"}, {"one", "rest:"}},
        {{"one\ntw", "o"}, {"one", "rest:two"}},
        {{"12345678\n"}, {"12345678", "rest:"}},
        {{"123456789\nok\n"}, {kTooLong, "ok", "rest:"}},
        {{"1234", "5678", "9abc", "defg", "h\nok", "\n"}, {kTooLong, "ok", "rest:"}},
        {{"ok\n123456789"}, {"ok", "rest:" + kTooLong}},
    };
    for (const auto& [chunks, events] : rows) {
        EXPECT_EQ(frame(chunks), events) << testing::PrintToString(chunks);
    }
}

TEST(LineFramer, AStoppedSinkDropsTheRestOfTheChunk)
{
    LineFramer framer(kLimit);
    Events seen;
    bool more = framer.feed("a\nstop\nc\n", [&](std::optional<std::string_view> line) {
        seen.emplace_back(*line);
        return *line != "stop";
    });
    EXPECT_FALSE(more);
    EXPECT_EQ(seen, (Events{"a", "stop"}));
}

TEST(LineFramer, HoldsNoMoreThanTheLimitWhileDroppingALongLine)
{
    LineFramer framer(1024);
    std::string chunk(4096, 'x');
    for (int i = 0; i < 100; ++i) {
        framer.feed(chunk, [](auto) { return true; });
        ASSERT_LE(framer.heldBytes(), 2048U) << i;
    }
}

} // namespace
