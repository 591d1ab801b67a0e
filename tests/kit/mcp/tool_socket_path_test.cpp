// SPDX-License-Identifier: MIT
#include "kit/mcp/tool_socket_path.h"

#include "kit/mcp/assistant_setup.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

namespace {

using kit::mcp::AssistantSetup;
using kit::mcp::ToolSocketPath;

// A socket address holds 107 bytes and the terminating zero.
TEST(ToolSocketPath, FitsTheSocketAddress)
{
    EXPECT_TRUE(ToolSocketPath::fits(std::string(107, 'a')));
    EXPECT_FALSE(ToolSocketPath::fits(std::string(108, 'a')));
}

TEST(ToolSocketHome, FollowsTheRuntimeFolderThenTheSupportFolder)
{
    using Environment = std::map<std::string, std::string>;
    const std::pair<Environment, std::optional<std::string>> rows[] = {
        {{{"XDG_RUNTIME_DIR", "/run/user/1000"}, {"XDG_DATA_HOME", "/d"}, {"HOME", "/h"}},
         "/run/user/1000"},
        {{{"XDG_DATA_HOME", "/d"}, {"HOME", "/h"}}, "/d/Vantorel"},
        {{{"HOME", "/home/ann"}}, "/home/ann/.local/share/Vantorel"},
        // Relative and empty folders are passed over.
        {{{"XDG_RUNTIME_DIR", "run"}, {"XDG_DATA_HOME", ""}, {"HOME", "/h"}},
         "/h/.local/share/Vantorel"},
        {{}, std::nullopt},
    };
    for (const auto& row : rows) {
        const Environment& environment = row.first;
        auto found =
            ToolSocketPath::containerHome([&](const char* name) -> std::optional<std::string> {
                auto it = environment.find(name);
                return it == environment.end() ? std::nullopt : std::optional(it->second);
            });
        EXPECT_EQ(found, row.second) << testing::PrintToString(environment);
    }
}

TEST(AssistantSetup, ConfigurationNamesTheBridge)
{
    EXPECT_EQ(AssistantSetup::configJSON("/usr/bin/vantorel-mcp"),
              "{\n  \"mcpServers\": {\n    \"vantorel\": {\n      \"command\": "
              "\"/usr/bin/vantorel-mcp\"\n    }\n  }\n}");
    EXPECT_NE(AssistantSetup::configJSON(R"(/opt/a "b"\c)").find(R"("/opt/a \"b\"\\c")"),
              std::string::npos);
}

TEST(AssistantSetup, AddCommandWithAndWithoutFlags)
{
    EXPECT_EQ(AssistantSetup::addCommand("claude", "/usr/bin/vantorel-mcp"),
              "claude mcp add vantorel -- \"/usr/bin/vantorel-mcp\"");
    EXPECT_EQ(AssistantSetup::addCommand("claude", "/usr/bin/vantorel-mcp", "--scope user"),
              "claude mcp add --scope user vantorel -- \"/usr/bin/vantorel-mcp\"");
    EXPECT_EQ(AssistantSetup::addCommand("codex", "/home/a/$x/vantorel-mcp"),
              "codex mcp add vantorel -- \"/home/a/\\$x/vantorel-mcp\"");
}

} // namespace
