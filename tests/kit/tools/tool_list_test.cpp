// SPDX-License-Identifier: MIT
#include "kit/tools/action_tools.h"
#include "kit/tools/read_tools.h"
#include "kit/tools/tool_service.h"
#include "kit/tools/write_tools.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using kit::tools::ActionTools;
using kit::tools::ReadTools;
using kit::tools::ToolService;
using kit::tools::WriteTools;
using nlohmann::json;
using Names = std::vector<std::string>;

namespace {

// Names separated by spaces.
Names words(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// tools/list order: assistants are told to start from the first ones.
const Names kReads = words("list_bars list_shortcuts get_shortcut list_groups search_shortcuts "
                           "list_sessions get_settings search_icons list_deep_links find_apps");
const Names kWrites = words(
    "add_shortcuts add_group rename_shortcut set_open_mode set_icon move_shortcut show_in_menu_bar "
    "set_account set_link_options move_to_bar add_bar rename_bar add_session rename_session "
    "remove_session remove_shortcuts remove_bar propose");
const Names kActions = words("switch_bar open_shortcut");
const Names kServer = words("list_apple_shortcuts create_apple_shortcut");

bool in(const Names& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Exactly one group carries out each name; the server tools none inside the app.
TEST(ToolList, ListsEachGroupInOrderAndEachNameIsCarriedOutByItsOwnGroup)
{
    Names expected;
    for (const Names* group : {&kReads, &kWrites, &kActions, &kServer}) {
        expected.insert(expected.end(), group->begin(), group->end());
    }
    Names listed;
    for (const auto& description : ToolService::descriptions()) {
        listed.push_back(description.name);
    }
    EXPECT_EQ(listed, expected);
    for (const auto& name : listed) {
        SCOPED_TRACE(name);
        EXPECT_EQ(ReadTools::handles(name), in(kReads, name));
        EXPECT_EQ(WriteTools::handles(name), in(kWrites, name));
        EXPECT_EQ(ActionTools::handles(name), in(kActions, name));
    }
}

TEST(ToolList, EachSchemaIsAClosedObjectWhoseRequiredKeysExist)
{
    for (const auto& description : ToolService::descriptions()) {
        SCOPED_TRACE(description.name);
        json schema = json::parse(description.inputSchema, nullptr, false);
        ASSERT_TRUE(schema.is_object()) << description.inputSchema;
        EXPECT_EQ(schema["type"], "object");
        EXPECT_EQ(schema["additionalProperties"], false);
        ASSERT_TRUE(schema["properties"].is_object());
        for (const auto& [key, property] : schema["properties"].items()) {
            EXPECT_TRUE(property.contains("type")) << key;
        }
        for (const auto& key : schema.value("required", json::array())) {
            EXPECT_TRUE(schema["properties"].contains(key.get<std::string>())) << key;
        }
    }
}

TEST(ToolList, EachDescriptionSaysItInThisBuildsWords)
{
    for (const auto& description : ToolService::descriptions()) {
        SCOPED_TRACE(description.name);
        for (const char* macWord : {"this Mac", "SF Symbol", "macOS"}) {
            EXPECT_EQ(description.description.find(macWord), std::string::npos) << macWord;
            EXPECT_EQ(description.inputSchema.find(macWord), std::string::npos) << macWord;
        }
        EXPECT_EQ(description.description.ends_with(
                      " Nothing changes until the person reviews it in Vantorel and applies; the "
                      "answer says what would happen."),
                  in(kWrites, description.name));
    }
}

// Clients ask the person before running a tool they take for destructive or open-world, so
// the hints must be there for every tool and must not overstate or understate.
TEST(ToolList, EachToolsHintsTellTheTruth)
{
    const std::set<std::string> removing{
        "remove_shortcuts", "remove_bar", "remove_session", "propose"};
    for (const auto& description : ToolService::descriptions()) {
        const std::string& name = description.name;
        SCOPED_TRACE(name);
        EXPECT_FALSE(description.title.empty());
        ASSERT_TRUE(description.annotations.has_value());
        const auto& hints = *description.annotations;
        const bool reads = in(kReads, name) || name == "list_apple_shortcuts";
        EXPECT_EQ(hints.readOnly, reads);
        EXPECT_EQ(hints.destructive, removing.contains(name));
        EXPECT_EQ(hints.openWorld, name == "open_shortcut");
        EXPECT_TRUE(!reads || hints.idempotent);
    }
}

} // namespace
