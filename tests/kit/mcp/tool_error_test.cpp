// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_error.h"

#include "kit/support/platform_words.h"

#include <gtest/gtest.h>

namespace {

using kit::mcp::ToolError;
using kit::mcp::ToolResult;

struct Worded
{
    ToolError error;
    const char* message;
};

// Assistants quote these back to the person, so every byte counts: the quotes are U+201C and
// U+201D, the arrow U+203A.
TEST(ToolErrorMessage, EveryKindReadsExactly)
{
    const Worded rows[] = {
        {ToolError::unknownTool("create_apple_shortcut"),
         "There is no tool called \u201Ccreate_apple_shortcut\u201D."},
        {ToolError::badArguments("name is required."),
         "The arguments could not be read: name is required."},
        {ToolError::unknownBar("Wrok"),
         "There is no bar \u201CWrok\u201D. list_bars says which there are."},
        {ToolError::unknownShortcut("abc"), "There is no shortcut with the id abc on that bar."},
        {ToolError::unknownSession("Club"),
         "There is no account \u201CClub\u201D. list_sessions says which there are."},
        {ToolError::writesOff(),
         "The person has turned off changes from assistants in Vantorel's Settings. Reading "
         "still works; ask them to turn it on under Settings \u203A Advanced if they want "
         "this change."},
    };
    for (const auto& [error, message] : rows) {
        EXPECT_EQ(error.message(), message);
    }
}

TEST(PlatformWords, SayMacThingsInThisBuildsWords)
{
    EXPECT_EQ(kit::support::inPlatformWords("in the macOS menu bar on this Mac"),
              "in the menu bar on this computer");
    EXPECT_EQ(kit::support::inPlatformWords("An SF Symbol name, or text."),
              "An icon name from the icon theme, or text.");
}

} // namespace
