// SPDX-License-Identifier: MIT
#include "kit/tools/action_tools.h"

#include "kit/library/library_json.h"
#include "kit/support/platform_words.h"
#include "kit/tools/arguments.h"

#include <algorithm>

namespace kit::tools {

using library::ShortcutID;
using mcp::ToolDescription;
using mcp::ToolError;

std::string ActionTools::Answer::encoded() const
{
    return library::prettyJson(nlohmann::json{{"done", done}, {"message", message}});
}

const std::vector<ToolDescription>& ActionTools::descriptions()
{
    static const std::vector<ToolDescription> kDescriptions{
        {"switch_bar",
         support::inPlatformWords(
             "Shows another bar in the menu bar, as the person would with the arrow keys. Not a "
             "change to anything; the bars stay as they are. Nothing to review."),
         R"({"type":"object","properties":{"bar":{"type":"string","description":"The bar's id or name."}},"required":["bar"],"additionalProperties":false})"},
        {"open_shortcut",
         support::inPlatformWords(
             "Opens a shortcut as a click on its icon would: a page in Vantorel's panel or window, "
             "an app, a file or a folder, a link into an app. A group cannot be opened this way; "
             "open one of its members. Nothing to review, since nothing changes."),
         R"({"type":"object","properties":{"id":{"type":"string"},"bar":{"type":"string","description":"The bar's id or name. Omit to look on every bar."}},"required":["id"],"additionalProperties":false})"},
    };
    return kDescriptions;
}

const std::vector<std::string>& ActionTools::names()
{
    static const std::vector<std::string> kNames = namesOf(descriptions());
    return kNames;
}

bool ActionTools::handles(std::string_view name)
{
    return isNamed(names(), name);
}

ActionTools::Action ActionTools::parse(const std::string& name,
                                       const std::optional<std::string>& arguments,
                                       const ToolContext& context)
{
    if (name == "switch_bar") {
        const Arguments args = Arguments::parse(arguments);
        return Action::switchBar(resolve(*context.snapshot, args.requiredString("bar")));
    }
    if (name == "open_shortcut") {
        const Arguments args = Arguments::parse(arguments);
        const std::string id = args.requiredString("id");
        if (!ShortcutID::parse(trimmed(id))) {
            throw ToolError::badArguments(id + " is not an id");
        }
        auto found = findShortcut(*context.snapshot, id, args.string("bar"));
        const auto& target = found.shortcut->target;
        if (target.isDivider()) {
            throw ToolError::badArguments("A divider opens nothing.");
        }
        if (target.isGroup()) {
            throw ToolError::badArguments("“" + found.shortcut->name
                                          + "” is a group; open one of its members, from "
                                            "list_shortcuts.");
        }
        return Action::open(*found.shortcut, found.bar->id);
    }
    throw ToolError::unknownTool(name);
}

ActionTools::Answer ActionTools::switched(const library::Bar& bar)
{
    return {true, "The menu bar is showing “" + bar.name + "”."};
}

ActionTools::Answer ActionTools::opened(const library::Shortcut& shortcut, bool succeeded)
{
    if (succeeded) {
        return {true, "Opened “" + shortcut.name + "”."};
    }
    return {false,
            "“" + shortcut.name + "” could not be opened; what it points at may be missing."};
}

} // namespace kit::tools
