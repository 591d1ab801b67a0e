// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_error.h"
#include "kit/support/platform_words.h"

#include <gtest/gtest.h>

namespace {

using kit::mcp::ToolError;
using kit::mcp::ToolResult;

TEST(ToolError, MessagesUseTypographicQuotes)
{
    EXPECT_EQ(ToolError::unknownTool("create_apple_shortcut").message(),
              "There is no tool called \u201Ccreate_apple_shortcut\u201D.");
    EXPECT_EQ(ToolError::unknownBar("Wrok").message(),
              "There is no bar \u201CWrok\u201D. list_bars says which there are.");
    EXPECT_NE(ToolError::writesOff().message().find("Settings \u203A Advanced"), std::string::npos);
    EXPECT_NE(ToolError::unknownBar("a"), ToolError::unknownSession("a"));
}

TEST(ToolResult, FailureCarriesTheErrorsSentence)
{
    auto failed = ToolResult::failure(ToolError::badArguments("name is missing"));
    EXPECT_FALSE(failed.ok());
    EXPECT_EQ(failed.text(), "The arguments could not be read: name is missing");
    EXPECT_EQ(ToolResult::success("{}").text(), "{}");
}

TEST(PlatformWords, SayMacThingsInThisBuildsWords)
{
    EXPECT_EQ(kit::support::inPlatformWords("in the macOS menu bar on this Mac"),
              "in the menu bar on this computer");
    EXPECT_EQ(kit::support::inPlatformWords("An SF Symbol name, or text."),
              "An icon name from the icon theme, or text.");
    EXPECT_EQ(kit::support::inPlatformWords("nothing to change"), "nothing to change");
}

} // namespace
