// SPDX-License-Identifier: MIT
#include "kit/tools/action_tools.h"
#include "kit/tools/read_tools.h"
#include "kit/tools/tool_service.h"
#include "kit/tools/write_tools.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>
#include <string>

using kit::tools::ActionTools;
using kit::tools::ReadTools;
using kit::tools::ToolService;
using kit::tools::WriteTools;
using nlohmann::json;

namespace {

enum class Group { Read, Write, Action, Server };

struct Listed
{
    size_t index;
    const char* name;
    Group group;
};

// tools/list order: assistants are told to start from the first ones.
const Listed kListed[] = {
    {0, "list_bars", Group::Read},
    {1, "list_shortcuts", Group::Read},
    {2, "get_shortcut", Group::Read},
    {3, "list_groups", Group::Read},
    {4, "search_shortcuts", Group::Read},
    {5, "list_sessions", Group::Read},
    {6, "get_settings", Group::Read},
    {7, "search_icons", Group::Read},
    {8, "list_deep_links", Group::Read},
    {9, "find_apps", Group::Read},
    {10, "add_shortcuts", Group::Write},
    {11, "add_group", Group::Write},
    {12, "rename_shortcut", Group::Write},
    {13, "set_open_mode", Group::Write},
    {14, "set_icon", Group::Write},
    {15, "move_shortcut", Group::Write},
    {16, "show_in_menu_bar", Group::Write},
    {17, "set_account", Group::Write},
    {18, "set_link_options", Group::Write},
    {19, "move_to_bar", Group::Write},
    {20, "add_bar", Group::Write},
    {21, "rename_bar", Group::Write},
    {22, "add_session", Group::Write},
    {23, "rename_session", Group::Write},
    {24, "remove_session", Group::Write},
    {25, "remove_shortcuts", Group::Write},
    {26, "remove_bar", Group::Write},
    {27, "propose", Group::Write},
    {28, "switch_bar", Group::Action},
    {29, "open_shortcut", Group::Action},
    {30, "list_apple_shortcuts", Group::Server},
    {31, "create_apple_shortcut", Group::Server},
};

class ToolListTest : public ::testing::TestWithParam<Listed>
{};

TEST(ToolList, HoldsThirtyTwoDistinctTools)
{
    const auto& all = ToolService::descriptions();
    ASSERT_EQ(all.size(), std::size(kListed));
    std::set<std::string> names;
    for (const auto& description : all) {
        names.insert(description.name);
    }
    EXPECT_EQ(names.size(), all.size());
}

TEST_P(ToolListTest, StandsInItsPlaceInItsGroup)
{
    const Listed& listed = GetParam();
    const auto& all = ToolService::descriptions();
    ASSERT_LT(listed.index, all.size());
    EXPECT_EQ(all[listed.index].name, listed.name);
    // Exactly one group carries out each name; the server tools none inside the app.
    EXPECT_EQ(ReadTools::handles(listed.name), listed.group == Group::Read);
    EXPECT_EQ(WriteTools::handles(listed.name), listed.group == Group::Write);
    EXPECT_EQ(ActionTools::handles(listed.name), listed.group == Group::Action);
}

TEST_P(ToolListTest, SchemaIsAClosedObjectWhoseRequiredKeysExist)
{
    const auto& description = ToolService::descriptions().at(GetParam().index);
    json schema = json::parse(description.inputSchema, nullptr, false);
    ASSERT_TRUE(schema.is_object()) << description.inputSchema;
    EXPECT_EQ(schema["type"], "object");
    EXPECT_EQ(schema["additionalProperties"], false);
    ASSERT_TRUE(schema["properties"].is_object());
    for (const auto& [key, property] : schema["properties"].items()) {
        EXPECT_TRUE(property.contains("type")) << key;
    }
    if (schema.contains("required")) {
        ASSERT_TRUE(schema["required"].is_array());
        for (const auto& key : schema["required"]) {
            EXPECT_TRUE(schema["properties"].contains(key.get<std::string>())) << key;
        }
    }
}

TEST_P(ToolListTest, DescriptionSaysItInThisBuildsWords)
{
    const auto& description = ToolService::descriptions().at(GetParam().index);
    for (const char* macWord : {"this Mac", "SF Symbol", "macOS"}) {
        EXPECT_EQ(description.description.find(macWord), std::string::npos) << macWord;
        EXPECT_EQ(description.inputSchema.find(macWord), std::string::npos) << macWord;
    }
    const bool proposes = GetParam().group == Group::Write;
    EXPECT_EQ(description.description.ends_with(
                  " Nothing changes until the person reviews it in Vantorel and applies; the "
                  "answer says what would happen."),
              proposes);
}

// Clients ask the person before running a tool they take for destructive or open-world, so
// the hints must be there for every tool and must not overstate or understate.
TEST_P(ToolListTest, HintsTellTheTruth)
{
    const Listed& listed = GetParam();
    const auto& description = ToolService::descriptions().at(listed.index);
    EXPECT_FALSE(description.title.empty());
    ASSERT_TRUE(description.annotations.has_value());
    const auto& hints = *description.annotations;
    const std::string name = listed.name;
    const bool reads = listed.group == Group::Read || name == "list_apple_shortcuts";
    const std::set<std::string> removing{
        "remove_shortcuts", "remove_bar", "remove_session", "propose"};
    EXPECT_EQ(hints.readOnly, reads);
    EXPECT_EQ(hints.destructive, removing.contains(name));
    EXPECT_EQ(hints.openWorld, name == "open_shortcut");
    if (reads) {
        EXPECT_TRUE(hints.idempotent);
    }
}

INSTANTIATE_TEST_SUITE_P(InOrder,
                         ToolListTest,
                         ::testing::ValuesIn(kListed),
                         [](const ::testing::TestParamInfo<Listed>& info) {
                             return std::string(info.param.name);
                         });

} // namespace
